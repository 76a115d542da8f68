#include "engine/BrindlexViewRTRenderEngine.h"
#include "accel/KDTree.h"

namespace {

// Both trees, the rotated geometry's after the ordinary one's: out of line,
// so that a scene without rotated geometry, the common case, goes through
// a function that keeps nothing across its one call.
[[gnu::noinline]] bool IntersectBothTrees(const KDTree* trees, const SCENE_VERTEX_XYZ_64& origin,
                                          const SCENE_VERTEX_XYZ_64& direction,
                                          const SCENE_VERTEX_XYZ_64& inverseDirection,
                                          SWRayIntersectionResult& result, const double* reach) {
  const bool hit = trees[0].Intersect(origin, direction, inverseDirection, result, reach);
  if (hit) result.treeIndex = 0;
  SWRayIntersectionResult rotated{};
  if (!trees[1].Intersect(origin, direction, inverseDirection, rotated, reach)) return hit;
  // At equal distance the ordinary geometry stays.
  if (!hit || result.distance > rotated.distance) {
    result = rotated;
    result.treeIndex = 1;
  }
  return true;
}

}  // namespace

bool RT_RENDER_ENGINE::IntersectSWGeometry(const SCENE_VERTEX_XYZ_64& origin,
                                           const SCENE_VERTEX_XYZ_64& direction,
                                           const SCENE_VERTEX_XYZ_64& inverseDirection,
                                           SWRayIntersectionResult& result, const double* reach) const {
  if (!kdTrees) return false;
  // Most scenes have no rotated geometry: an empty tree is a miss, and its
  // call is saved.
  if (!kdTrees[1].nodes.empty())
    return IntersectBothTrees(kdTrees, origin, direction, inverseDirection, result, reach);
  const bool hit = kdTrees[0].Intersect(origin, direction, inverseDirection, result, reach);
  if (hit) result.treeIndex = 0;
  return hit;
}
