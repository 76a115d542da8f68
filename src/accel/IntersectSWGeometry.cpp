#include "engine/BrindlexViewRTRenderEngine.h"
#include "accel/KDTree.h"

bool RT_RENDER_ENGINE::IntersectSWGeometry(const SCENE_VERTEX_XYZ_64& origin,
                                           const SCENE_VERTEX_XYZ_64& direction,
                                           const SCENE_VERTEX_XYZ_64& inverseDirection,
                                           SWRayIntersectionResult& result, const double* reach) const {
  if (!kdTrees) return false;
  bool hit = kdTrees[0].Intersect(origin, direction, inverseDirection, result, reach);
  if (hit) result.treeIndex = 0;
  // Most scenes have no rotated geometry: an empty tree is a miss, and the
  // call is saved.
  if (kdTrees[1].nodes.empty()) return hit;
  SWRayIntersectionResult rotated{};
  if (!kdTrees[1].Intersect(origin, direction, inverseDirection, rotated, reach)) return hit;
  // At equal distance the ordinary geometry stays.
  if (!hit || result.distance > rotated.distance) {
    result = rotated;
    result.treeIndex = 1;
  }
  return true;
}
