// Rays that continue from a shaded surface, one per ray of the group: on
// through a see-through surface, and off a mirror. Each is traced alone
// and shaded as a group of one, one level deeper.
#include <cmath>

#include "host/BrindlexViewModel.h"
#include "engine/BrindlexViewRTRenderEngine.h"
#include "shading/ContinuationSample.h"
#include "shading/ShadingGroup.h"
#include "shading/ShadingLevels.h"
#include "lighting/VectorOps.h"
#include "host/Numbers.h"

namespace {
// Traces one continuation sample and shades it as a group of one.
// Continuation rays are traced one after the other, so a level keeps one
// sample and one hit record on its stack for them, not one per ray.
void ShadeContinuation(ShadingGroup& group, PixelRaySample& next, uint32_t reflectionDepth, bool& abort) {
  SWRayIntersectionResult result{};
  const bool hit =
      group.engine->IntersectSWGeometry(next.origin, next.direction, next.inverseDirection, result);
  const SWRayIntersectionResult* results[1] = {&result};
  PixelRaySample* samples[1] = {&next};
  group.engine->ShadePixel(group.view, group.options, hit, results, samples, 1, group.nearDistance,
                           group.farDistance, group.depth + 1, reflectionDepth, abort);
}
}  // namespace

void TraceTransparency(ShadingGroup& group, const ShadingSources& sources, bool& abort) {
  if (!(group.alpha < 1.0f) || group.depth >= sources.maximumRayDepth || !sources.hasTrees) return;
  const float alpha = group.alpha;
  for (uint32_t i = 0; i < group.count; ++i) {
    PixelRaySample& sample = *group.samples[i];
    // Straight on: glass here does not refract.
    PixelRaySample next = ContinuationOf(sample);
    next.direction = sample.direction;
    next.inverseDirection = sample.inverseDirection;
    const SCENE_VERTEX_XYZ_64 point = group.HitPoint(i);
    next.origin = GetPointOnRay(point, next.direction, SurfaceOffset);
    if (group.HasDifferentials(i)) {
      const ShadingRay& ray = group.Differentials(i);
      next.xOrigin = vector64::Add(point, ray.dPdx);
      next.yOrigin = vector64::Add(point, ray.dPdy);
      next.xDirection = sample.xDirection;
      next.yDirection = sample.yDirection;
      next.flags |= PixelRayDifferentialsValid;
    }
    ShadeContinuation(group, next, group.reflectionDepth, abort);
    const SCENE_VERTEX_XYZW front = sample.color, behind = next.color;
    sample.color = {static_cast<float>(front.x * alpha + behind.x * (1.0 - alpha)),
                    static_cast<float>(front.y * alpha + behind.y * (1.0 - alpha)),
                    static_cast<float>(front.z * alpha + behind.z * (1.0 - alpha)),
                    static_cast<float>(front.w * alpha + behind.w * (1.0 - alpha))};
  }
}

void TraceReflections(ShadingGroup& group, const ShadingSources& sources, bool& abort) {
  const TEXTURE_LINK& link = *group.link;
  // Opacity and lighting play no part: a clear or unlit mirror reflects too.
  if (!group.visible || link.IsReflecting() == 0 || !(link.GetReflectivityLevel() > 0) ||
      !group.options->DoReflections() || group.reflectionDepth >= sources.maximumReflectionDepth ||
      group.depth >= sources.maximumRayDepth || !sources.hasTrees)
    return;
  const float reflectivity = PercentLevel(link.GetReflectivityLevel());
  for (uint32_t i = 0; i < group.count; ++i) {
    PixelRaySample& sample = *group.samples[i];
    const SCENE_VERTEX_XYZ_64 normal = group.ShadingNormal(i, 1.0);
    PixelRaySample next = ContinuationOf(sample);
    next.direction = MirrorDirection(sample.direction, normal);
    next.origin = GetPointOnRay(group.HitPoint(i), next.direction, SurfaceOffset);
    next.inverseDirection = InverseDirection(next.direction, ContinuationLargestInverse);
    ShadeContinuation(group, next, group.reflectionDepth + 1, abort);
    const SCENE_VERTEX_XYZW surface = sample.color, mirrored = next.color;
    sample.color = {static_cast<float>(mirrored.x * reflectivity + surface.x * (1.0 - reflectivity)),
                    static_cast<float>(mirrored.y * reflectivity + surface.y * (1.0 - reflectivity)),
                    static_cast<float>(mirrored.z * reflectivity + surface.z * (1.0 - reflectivity)),
                    static_cast<float>(mirrored.w * reflectivity + surface.w * (1.0 - reflectivity))};
  }
}
