// The path tracer's shader. It follows one ray, and where the ordinary
// shader blends it chooses at random: at each hit the ray passes through
// the surface, mirrors off it, or stops there, is lit, and sends one
// diffuse bounce on. Passes average the choices into the blends.
#include <cmath>

#include "shading/Background.h"
#include "host/BrindlexViewModel.h"
#include "engine/BrindlexViewRTRenderEngine.h"
#include "scene/LightTable.h"
#include "scene/SWMeshTable.h"
#include "shading/ContinuationSample.h"
#include "pipeline/RandomNumberGenerator.h"
#include "shading/SampleCosineHemisphere.h"
#include "shading/ShadingGroup.h"
#include "shading/ShadingLevels.h"
#include "shading/SurfaceMaterial.h"
#include "host/Numbers.h"

namespace {
// From this reflectivity on, in percent, a mirror always mirrors and no
// number is drawn for it.
constexpr double CertainMirrorLevel = 99.1;

// Stochastic transparency: over many passes a surface shows with the
// frequency of its opacity. An opaque surface draws no number.
bool PassesThrough(float alpha, RT_RANDOM_NUMBER_GENERATOR& generator) {
  if (!(alpha < 1.0f)) return false;
  if (std::fabs(alpha) <= static_cast<float>(NearZero)) return true;
  return generator.RandomUnit() > alpha;
}

// Stochastic mirror: a surface of reflectivity `level` mirrors in that
// share of the paths.
bool MirrorsThisTime(float level, RT_RANDOM_NUMBER_GENERATOR& generator) {
  if (level >= CertainMirrorLevel) return true;
  return level / 100.0 >= generator.RandomUnit();
}

SCENE_VERTEX_XYZ Sum(const SCENE_VERTEX_XYZ& a, const SCENE_VERTEX_XYZ& b) {
  return {a.x + b.x, a.y + b.y, a.z + b.z};
}
}  // namespace

SCENE_VERTEX_XYZW RT_RENDER_ENGINE::PathTrace(ENVIRONMENT_3D_VIEW* view, const MODE_RENDER_OPTIONS* options,
                                              bool hit, const SWRayIntersectionResult& result,
                                              const PixelRaySample& sample,
                                              RT_RANDOM_NUMBER_GENERATOR& generator, float nearDistance,
                                              float farDistance, uint32_t bounceCount, uint32_t depth,
                                              bool& abort) {
  if (ShouldAbort()) abort = true;
  const SCENE_VERTEX_XYZW none = {0.0f, 0.0f, 0.0f, 0.0f};
  if (!view || !options || abort) return none;
  const auto miss = [&] {
    SCENE_VERTEX_XYZW color = BackgroundPicture{*this, textures, backgroundTexture}.MissColor(
        view, *options, sample, depth, farDistance);
    color.w = 0.0f;
    return color;
  };
  if (!hit) return miss();
  SWHitSurface surface;
  const SWHitSurfaceStatus status = ResolveHitSurface(meshTables, swMaterials, result, surface);
  const TEXTURE_LINK* link =
      status == SWHitSurfaceStatus::NoSurface ? nullptr : surface.material->material->GetTextureLink();
  if (!link) return miss();
  if (status == SWHitSurfaceStatus::VertexOutOfRange) return none;

  // The hit facts come from the ordinary shader's group, of one ray here.
  PixelRaySample ray = sample;
  const SWRayIntersectionResult* results[1] = {&result};
  PixelRaySample* samples[1] = {&ray};
  ShadingGroup group;
  group.engine = this;
  group.view = view;
  group.options = options;
  group.results = results;
  group.samples = samples;
  group.count = 1;
  group.nearDistance = nearDistance;
  group.farDistance = farDistance;
  group.depth = depth;
  group.TakeSurface(surface, link);
  const SCENE_VERTEX_XYZ_64 hitPoint = group.HitPoint(0);

  // Traces `next` and follows the path on from what it meets.
  const auto follow = [&](const PixelRaySample& next, uint32_t nextBounceCount) {
    SWRayIntersectionResult nextResult{};
    const bool nextHit = IntersectSWGeometry(next.origin, next.direction, next.inverseDirection, nextResult);
    return PathTrace(view, options, nextHit, nextResult, next, generator, nearDistance, farDistance,
                     nextBounceCount, depth + 1, abort);
  };
  // Straight on through the surface; what lies behind comes back whole.
  const auto passThrough = [&] {
    if (depth >= maximumRayDepth || !kdTrees) return none;
    PixelRaySample next = ContinuationOf(sample);
    next.direction = sample.direction;
    next.inverseDirection = sample.inverseDirection;
    next.origin = GetPointOnRay(hitPoint, next.direction, SurfaceOffset);
    if (group.HasDifferentials(0)) {
      const ShadingRay& footprint = group.Differentials(0);
      next.xOrigin = vector64::Add(hitPoint, footprint.dPdx);
      next.yOrigin = vector64::Add(hitPoint, footprint.dPdy);
      next.xDirection = sample.xDirection;
      next.yDirection = sample.yDirection;
      next.flags |= PixelRayDifferentialsValid;
    }
    return follow(next, bounceCount);
  };
  if (group.material->IsVisible() == 0) return passThrough();

  group.textured =
      !UsesMaterialColor(*link, *options) && IsUsableTexture(textures, surface.material->textureIndex);
  group.textureScale = SurfaceTextureScale(*link, *options);
  group.alpha = SurfaceAlpha(*link, *options);
  SCENE_VERTEX_XYZW texel = none;
  if (group.textured) {
    texel = group.SampleTexture();
    group.alpha *= texel.w;
  }
  if (PassesThrough(group.alpha, generator)) return passThrough();
  // The relief map is read at the unscaled coordinates here.
  const SCENE_VERTEX_XYZ_64 normal = group.ShadingNormal(0, 1.0);

  // The first mirror bounce is never refused by the bounce limit.
  const uint16_t bounceLimit = options->GetNumberOfIndirectBounces();
  const float level = link->GetReflectivityLevel();
  const bool mayMirror = depth < maximumRayDepth && kdTrees && options->DoReflections() &&
                         link->IsReflecting() != 0 && level != 0 &&
                         !(bounceCount != 0 && bounceCount >= bounceLimit);
  if (mayMirror && MirrorsThisTime(level, generator)) {
    PixelRaySample next = ContinuationOf(sample);
    next.direction = MirrorDirection(sample.direction, normal);
    next.origin = GetPointOnRay(hitPoint, next.direction, SurfaceOffset);
    next.inverseDirection = InverseDirection(next.direction, ContinuationLargestInverse);
    // Untinted: neither the surface colour nor the level weighs the mirror.
    return follow(next, bounceCount + 1);
  }

  const SCENE_VERTEX_XYZ white = {1.0f, 1.0f, 1.0f};
  SurfaceTerms terms =
      MaterialTerms(*link, *options, group.textured ? white : MaterialColor(*link, *options));
  if (options->DoCustomLighting() && options->DoAmbientOcclusion()) {
    const float openness = static_cast<float>(GetAmbientOcclusionFactor(hitPoint, normal));
    terms.ambient = {terms.ambient.x * openness, terms.ambient.y * openness, terms.ambient.z * openness};
  }
  SCENE_VERTEX_XYZ diffuseSum = {0.0f, 0.0f, 0.0f}, specularSum = {0.0f, 0.0f, 0.0f};
  const auto addLight = [&](const RTRendererLight* light) {
    AddLightContributionToPixel(light, options, &generator, hitPoint, normal, sample.direction, terms.diffuse,
                                terms.specular, depth, diffuseSum, specularSum);
  };
  if (lightTable && headlight && options->DoCustomLighting()) {
    for (const RTRendererLight* light : lightTable->lights) addLight(light);
    addLight(headlight);
  } else if (defaultLights && !options->DoCustomLighting()) {
    addLight(&defaultLights[0]);
    addLight(&defaultLights[1]);
  }

  // One diffuse bounce, always followed up to the limit: no Russian
  // roulette. Its colour is not tinted by the surface, and the cosine
  // weighs it although the direction was drawn by the cosine already.
  SCENE_VERTEX_XYZ indirect = {0.0f, 0.0f, 0.0f};
  if (depth < maximumRayDepth && options->DoIndirectLighting() && bounceCount < bounceLimit) {
    const SCENE_VERTEX_XYZ_64 bounce = SampleCosineHemisphere(generator, normal);
    PixelRaySample next = ContinuationOf(sample);
    next.direction = bounce;
    next.origin = GetPointOnRay(hitPoint, bounce, SurfaceOffset);
    next.inverseDirection = InverseDirection(bounce, ContinuationLargestInverse);
    const SCENE_VERTEX_XYZW seen = follow(next, bounceCount + 1);
    const float cosine = static_cast<float>(vector64::Dot(normal, bounce));
    indirect = {seen.x * cosine, seen.y * cosine, seen.z * cosine};
  }

  // No clamp: bright light goes on up the path into the mean of the passes.
  SCENE_VERTEX_XYZ color = Sum(Sum(Sum(terms.ambient, diffuseSum), terms.emissive), indirect);
  if (group.textured) color = {color.x * texel.x, color.y * texel.y, color.z * texel.z};
  color = Sum(color, specularSum);
  return {color.x, color.y, color.z, 1.0f};
}
