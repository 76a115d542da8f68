// Ambient occlusion: short rays over the hemisphere of the shading normal
// tell how open the neighbourhood of a point is. Only the ambient term is
// darkened by it.
#include "engine/BrindlexViewRTRenderEngine.h"
#include "shading/HitGeometry.h"
#include "shadows/ShadowBlocker.h"
#include "pipeline/RandomNumberGenerator.h"
#include "lighting/VectorOps.h"
#include "host/Numbers.h"

using namespace vector64;

namespace {
constexpr int OcclusionRayCount = 10;
// A blocker farther than this along a ray no longer counts.
constexpr double OcclusionReach = 1.0;
// Far above the rounding of a sum of distances near 1.
constexpr double ReachMargin = 1e-9;
// A direction below the surface is drawn again; after this many draws in a
// row the last one is mirrored instead, so that a random source that fails
// (and so repeats one value) cannot stall the render.
constexpr int MaximumDraws = 64;

double RandomAxis() {
  unsigned int value = 0;
  rand_s(&value);
  return (value / 4294967295.0 - 0.5) * 2.0;
}

// A point of the cube from -1 to 1 made unit: not uniform over the sphere.
SCENE_VERTEX_XYZ_64 RandomDirection() {
  SCENE_VERTEX_XYZ_64 cubePoint;
  cubePoint.x = RandomAxis();
  cubePoint.y = RandomAxis();
  cubePoint.z = RandomAxis();
  return UnitOf(cubePoint);
}

// A random direction on the side of `normal`; at right angles counts.
SCENE_VERTEX_XYZ_64 RandomDirectionAbove(const SCENE_VERTEX_XYZ_64& normal) {
  SCENE_VERTEX_XYZ_64 direction = RandomDirection();
  for (int draw = 1; Dot(normal, direction) < 0.0; ++draw) {
    if (draw == MaximumDraws) return Scale(direction, -1.0);
    direction = RandomDirection();
  }
  return direction;
}
}  // namespace

double RT_RENDER_ENGINE::GetAmbientOcclusionFactor(const SCENE_VERTEX_XYZ_64& point,
                                                   const SCENE_VERTEX_XYZ_64& normal) const {
  double sum = 0.0;
  for (int ray = 0; ray < OcclusionRayCount; ++ray) {
    const SCENE_VERTEX_XYZ_64 direction = RandomDirectionAbove(normal);
    const SCENE_VERTEX_XYZ_64 origin = GetPointOnRay(point, direction, SurfaceOffset);
    sum += GetAmbientOcclusionFactorForRay(origin, direction, InverseDirection(direction), SurfaceOffset);
  }
  return sum / 10.0;
}

double RT_RENDER_ENGINE::GetAmbientOcclusionFactorForRay(const SCENE_VERTEX_XYZ_64& origin,
                                                         const SCENE_VERTEX_XYZ_64& direction,
                                                         const SCENE_VERTEX_XYZ_64& inverseDirection,
                                                         double travelled) const {
  // Each pass steps past one see-through blocker; a loop instead of a call
  // per blocker.
  SCENE_VERTEX_XYZ_64 from = origin;
  for (;;) {
    SWRayIntersectionResult result{};
    // Nothing beyond the reach counts, so the walk need not go past it; the
    // margin keeps a blocker at exactly the reach, which counts.
    const double reach = OcclusionReach - travelled + ReachMargin;
    if (!IntersectSWGeometry(from, direction, inverseDirection, result, &reach)) return 1.0;
    const double distance = result.distance;
    const double total = travelled + distance;
    // Written so that a distance that is not a number ends the walk too.
    if (!(total <= OcclusionReach)) return 1.0;
    // A hit that does not lead back to its material blocks.
    if (ClassifyBlocker(*this, {meshTables, swMaterials, textures}, result) != BlockerKind::SeeThrough)
      return total / OcclusionReach;
    from = GetPointOnRay(GetPointOnRay(from, direction, distance), direction, SurfaceOffset);
    travelled = distance + travelled + SurfaceOffset;
  }
}
