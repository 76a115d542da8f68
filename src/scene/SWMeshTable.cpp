#include "SWMeshTable.h"

#include "BrindlexViewMath.h"

void SWMeshTable::Clear() {
  meshes.clear();
  transforms.clear();
  instances.clear();
  SCENE_MATRIX identity;
  GetIdentityMatrix(&identity);
  transforms.push_back(identity);
}
