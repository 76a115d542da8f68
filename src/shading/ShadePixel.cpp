// The ordinary ray tracer's shader: a group of rays of one pixel on one
// triangle is shaded once, for its first ray; only the transparency and
// mirror rays that continue from the surface are traced per ray.
#include <cstdio>
#include "shading/Background.h"
#include "host/BrindlexViewModel.h"
#include "engine/BrindlexViewRTRenderEngine.h"
#include "scene/SWMeshTable.h"
#include "shading/FogAndMist.h"
#include "shading/ShadingCounters.h"
#include "shading/ShadingGroup.h"
#include "shading/SurfaceMaterial.h"

namespace {
bool GroupIsComplete(const SWRayIntersectionResult* const* results, PixelRaySample* const* samples,
                     uint32_t count) {
  for (uint32_t i = 0; i < count; ++i)
    if (!results[i] || !samples[i]) return false;
  return true;
}

// Red, green and blue into every ray; alpha is settled at the end of the call.
void WriteColor(ShadingGroup& group, const SCENE_VERTEX_XYZ& rgb) {
  for (uint32_t i = 0; i < group.count; ++i) {
    SCENE_VERTEX_XYZW& color = group.samples[i]->color;
    color = {rgb.x, rgb.y, rgb.z, color.w};
  }
}

SCENE_VERTEX_XYZ Sum(const SCENE_VERTEX_XYZ& a, const SCENE_VERTEX_XYZ& b) {
  return {a.x + b.x, a.y + b.y, a.z + b.z};
}

// Bright emission or light saturates at white; there is no lower clamp.
float ClampToOne(float channel) {
  return channel > 1.0f ? 1.0f : channel;
}

// Fog at the first ray's distance, then mist at its point, on every ray.
void ApplyHaze(ShadingGroup& group) {
  const MODE_RENDER_OPTIONS& options = *group.options;
  if (options.GetFogLevel() > 0) {
    const float fog =
        HitFogFactor(options, group.results[0]->distance, group.nearDistance, group.farDistance);
    for (uint32_t i = 0; i < group.count; ++i) ApplyFog(fog, group.samples[i]->color);
  }
  if (options.GetMistLevel() > 0) {
    const SCENE_VERTEX_XYZ_64 point = group.HitPoint(0);
    for (uint32_t i = 0; i < group.count; ++i) ApplyMist(options, point, group.samples[i]->color);
  }
}
}  // namespace

void RT_RENDER_ENGINE::ShadePixel(ENVIRONMENT_3D_VIEW* view, const MODE_RENDER_OPTIONS* options, bool hit,
                                  const SWRayIntersectionResult* const* results,
                                  PixelRaySample* const* samples, uint32_t count, float nearDistance,
                                  float farDistance, uint32_t depth, uint32_t reflectionDepth, bool& abort) {
  if (ShouldAbort()) abort = true;
  // A group never holds more rays than a pixel has.
  if (!view || !options || count == 0 || count > MaximumPixelRays || abort) return;
  if (!results || !samples || !GroupIsComplete(results, samples, count)) return;
  if (!hit)
    return BackgroundPicture{*this, textures, backgroundTexture}.ShadeMiss(view, *options, samples, count,
                                                                           depth, farDistance);

  SWHitSurface surface;
  const SWHitSurfaceStatus status = ResolveHitSurface(meshTables, swMaterials, *results[0], surface);
  const TEXTURE_LINK* link =
      status == SWHitSurfaceStatus::NoSurface ? nullptr : surface.material->material->GetTextureLink();
  if (!link)
    return BackgroundPicture{*this, textures, backgroundTexture}.ShadeMiss(view, *options, samples, count,
                                                                           depth, farDistance);
  if (status == SWHitSurfaceStatus::VertexOutOfRange) return;

  ShadingSources sources;
  sources.textures = &textures;
  sources.lightTable = lightTable;
  sources.headlight = headlight;
  sources.defaultLights = defaultLights;
  sources.directPhotonMap = directPhotonMap;
  sources.directPhotons = &directPhotons;
  sources.indirectPhotonMap = indirectPhotonMap;
  sources.indirectPhotons = &indirectPhotons;
  sources.cameraUnderCover = engineFlags.IsSet(CameraUnderCover);
  sources.hasTrees = kdTrees != nullptr;
  sources.maximumRayDepth = maximumRayDepth;
  sources.maximumReflectionDepth = maximumReflectionDepth;

  ShadingGroup group;
  group.engine = this;
  group.view = view;
  group.options = options;
  group.results = results;
  group.samples = samples;
  group.count = count;
  group.nearDistance = nearDistance;
  group.farDistance = farDistance;
  group.depth = depth;
  group.reflectionDepth = reflectionDepth;
  group.TakeSurface(surface, link);

  // An invisible surface keeps alpha 0: it adds nothing of its own, and the
  // transparency ray shows what lies behind it.
  group.visible = group.material->IsVisible() != 0;
  if (group.visible) ShadeSurface(group, sources);
  TraceTransparency(group, sources, abort);
  TraceReflections(group, sources, abort);
  if (depth == 0) ApplyHaze(group);
  for (uint32_t i = 0; i < count; ++i) samples[i]->color.w = group.alpha;
}

void ShadeSurface(ShadingGroup& group, const ShadingSources& sources) {
  ++ThreadShadingCounters().surfaces;
  const MODE_RENDER_OPTIONS& options = *group.options;
  const TEXTURE_LINK& link = *group.link;
  group.textured =
      !UsesMaterialColor(link, options) && IsUsableTexture(*sources.textures, group.row->textureIndex);
  group.alpha = SurfaceAlpha(link, options);
  if (!(group.alpha > 0)) return;
  group.textureScale = SurfaceTextureScale(link, options);
  const SCENE_VERTEX_XYZ materialColor = MaterialColor(link, options);

  if (!options.DoLighting()) {
    // Unlit: the texture as it is, alpha included, or the material colour.
    if (!group.textured) return WriteColor(group, materialColor);
    const SCENE_VERTEX_XYZW texel = group.SampleTexture();
    for (uint32_t i = 0; i < group.count; ++i) group.samples[i]->color = texel;
    return;
  }

  const SCENE_VERTEX_XYZ baseColor = group.textured ? SCENE_VERTEX_XYZ{1.0f, 1.0f, 1.0f} : materialColor;
  SurfaceTerms terms = MaterialTerms(link, options, baseColor);
  const SCENE_VERTEX_XYZ_64 point = group.HitPoint(0);
  const SCENE_VERTEX_XYZ_64 normal = group.ShadingNormal(0, group.textureScale);
  if (options.DoCustomLighting() && options.DoAmbientOcclusion()) {
    const float openness = static_cast<float>(group.engine->GetAmbientOcclusionFactor(point, normal));
    terms.ambient = {terms.ambient.x * openness, terms.ambient.y * openness, terms.ambient.z * openness};
  }

  SCENE_VERTEX_XYZ diffuseSum = {0.0f, 0.0f, 0.0f}, specularSum = {0.0f, 0.0f, 0.0f};
  GatherSurfaceLight(group, sources, terms.diffuse, terms.specular, diffuseSum, specularSum);
  SCENE_VERTEX_XYZ local = Sum(Sum(terms.ambient, diffuseSum), terms.emissive);
  if (!group.textured) {
    local = Sum(local, specularSum);
  } else {
    // The texture tints every term but the highlight.
    const SCENE_VERTEX_XYZW texel = group.SampleTexture();
    local = Sum({local.x * texel.x, local.y * texel.y, local.z * texel.z}, specularSum);
    group.alpha = group.alpha * texel.w;
  }
  WriteColor(group, {ClampToOne(local.x), ClampToOne(local.y), ClampToOne(local.z)});
}
