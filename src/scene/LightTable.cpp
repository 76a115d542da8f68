#include "LightTable.h"

void RTLightTable::Clear() {
  for (auto& entry : lightsByNumber) delete entry.second;
  lightsByNumber.clear();
  lights.clear();
}
