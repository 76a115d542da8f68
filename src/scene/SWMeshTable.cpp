#include "scene/SWMeshTable.h"

#include <limits>

#include "host/BrindlexViewMath.h"

void SWMeshTable::Clear() {
  meshes.clear();
  transforms.clear();
  instances.clear();
  SCENE_MATRIX identity;
  GetIdentityMatrix(&identity);
  transforms.push_back(identity);
}

void ResetSceneBounds(SCENE_VERTEX_XYZ_64& boundsMin, SCENE_VERTEX_XYZ_64& boundsMax) {
  constexpr double largest = std::numeric_limits<double>::max();
  boundsMin = {largest, largest, largest};
  boundsMax = {-largest, -largest, -largest};
}
