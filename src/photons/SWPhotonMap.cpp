#include "SWPhotonMap.h"

void SWPhotonMap::Clear() {
  entries.clear();
  nodes.clear();
  for (int axis = 0; axis < 3; ++axis) boundsMin[axis] = boundsMax[axis] = 0.0f;
}
