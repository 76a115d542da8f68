// Hard shadow rays: does a surface that casts a shadow lie between a point
// and a light? Surfaces that let light through are stepped through, at most
// maximumRayDepth deep.
#include "engine/BrindlexViewRTRenderEngine.h"
#include "shading/HitGeometry.h"
#include "shadows/ShadowBlocker.h"
#include "lighting/VectorOps.h"
#include "host/Numbers.h"

using namespace vector64;

bool RT_RENDER_ENGINE::IsPointInShadow(const SCENE_VERTEX_XYZ_64& target, const SCENE_VERTEX_XYZ_64& point,
                                       uint32_t depth) const {
  if (!kdTrees) return false;
  return WalkShadowRay(*this, {meshTables, swMaterials, textures}, maximumRayDepth, &target, {}, point,
                       depth);
}

bool RT_RENDER_ENGINE::IsPointInDirectShadow(const SCENE_VERTEX_XYZ_64& direction,
                                             const SCENE_VERTEX_XYZ_64& point, uint32_t depth) const {
  if (!kdTrees) return false;
  return WalkShadowRay(*this, {meshTables, swMaterials, textures}, maximumRayDepth, nullptr, direction, point,
                       depth);
}

bool WalkShadowRay(const RT_RENDER_ENGINE& engine, const BlockerTables& tables, uint32_t maximumRayDepth,
                   const SCENE_VERTEX_XYZ_64* target, SCENE_VERTEX_XYZ_64 direction,
                   SCENE_VERTEX_XYZ_64 point, uint32_t depth) {
  // Each pass is one step through a surface that does not block; a loop
  // instead of a call per surface, with the same depth bound.
  for (;; ++depth) {
    if (target) direction = UnitOf(Subtract(*target, point));
    const SCENE_VERTEX_XYZ_64 inverseDirection = InverseDirection(direction);
    const SCENE_VERTEX_XYZ_64 origin = GetPointOnRay(point, direction, SurfaceOffset);
    SWRayIntersectionResult result{};
    if (!engine.IntersectSWGeometry(origin, direction, inverseDirection, result)) return false;
    const double hitDistance = result.distance;
    // Measured from `point`, against a hit distance measured from `origin`.
    if (target && !(Distance(target, &point) > hitDistance)) return false;

    switch (ClassifyBlocker(engine, tables, result)) {
      case BlockerKind::Unresolved:
        return false;
      case BlockerKind::Blocks:
        return true;
      case BlockerKind::SeeThrough:
        break;
    }
    if (depth >= maximumRayDepth) return false;
    point = GetPointOnRay(origin, direction, hitDistance);
  }
}
