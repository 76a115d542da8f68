// The working state of one ShadePixel call on a hit: the call's arguments,
// the surface all rays share, and per ray the hit facts that a step needs,
// each worked out at most once and only when asked for.
#pragma once

#include <cstdint>
#include <vector>

#include "engine/BrindlexViewRTRenderEngine.h"
#include "shading/HitGeometry.h"
#include "pipeline/PixelRays.h"

class TEXTURE_LINK;

// Per-ray cache. Only `known` is initialised: a value is read only after
// its bit is set, so 16 entries cost nothing until they are used.
struct ShadingRay {
  enum : uint8_t { KnowsPoint = 1, KnowsCoordinates = 2, KnowsDifferentials = 4, KnowsNormal = 8 };
  uint8_t known = 0;
  double hitWeight;
  SCENE_VERTEX_XYZ_64 hitPoint;
  double textureU, textureV;
  SCENE_VERTEX_XYZ_64 dPdx, dPdy;
  double dudx, dvdx, dudy, dvdy;  // 0 when the sample has no differentials
  SCENE_VERTEX_XYZ_64 shadingNormal;
};

// What the surface shader reads of the engine beyond its public operations:
// the texture table, the lights, the photon maps and the limits of the rays
// that continue from a surface. ShadePixel fills it from the engine's tables.
struct ShadingSources {
  const std::vector<SWTexture*>* textures = nullptr;
  const RTLightTable* lightTable = nullptr;
  const RTRendererLight* headlight = nullptr;
  const RTRendererLight* defaultLights = nullptr;  // two, or null
  const SWPhotonMap* directPhotonMap = nullptr;
  const std::vector<SWPhoton>* directPhotons = nullptr;
  const SWPhotonMap* indirectPhotonMap = nullptr;
  const std::vector<SWPhoton>* indirectPhotons = nullptr;
  bool cameraUnderCover = false;
  bool hasTrees = false;
  uint32_t maximumRayDepth = 0;
  uint32_t maximumReflectionDepth = 0;
};

struct ShadingGroup {
  // The call, and the engine that traces and samples for it.
  RT_RENDER_ENGINE* engine = nullptr;
  ENVIRONMENT_3D_VIEW* view = nullptr;
  const MODE_RENDER_OPTIONS* options = nullptr;
  const SWRayIntersectionResult* const* results = nullptr;
  PixelRaySample* const* samples = nullptr;
  uint32_t count = 0;
  float nearDistance = 0.0f, farDistance = 0.0f;
  uint32_t depth = 0, reflectionDepth = 0;

  // The surface of results[0], shared by the whole group.
  SCENE_VERTEX triangleVertices[3];
  const SWMaterialEntry* row = nullptr;
  const MATERIAL_3D_NODE* material = nullptr;
  const TEXTURE_LINK* link = nullptr;
  bool visible = false;
  bool textured = false;
  float alpha = 0.0f;  // surface opacity of this hit, 0 to 1
  double textureScale = 1.0;

  ShadingRay rays[MaximumPixelRays];

  // Takes the resolved surface of results[0] and works out the vertex-0
  // weight of each of the `count` rays; `results` must be set.
  void TakeSurface(const SWHitSurface& surface, const TEXTURE_LINK* surfaceLink);

  const SCENE_VERTEX_XYZ_64& GeometricNormal();
  const SCENE_VERTEX_XYZ_64& HitPoint(uint32_t i);
  // Texture coordinates of ray `i`, unscaled.
  const ShadingRay& TextureCoordinates(uint32_t i);
  // dPdx ... dvdy of ray `i`; the four scalars are 0 without differentials.
  const ShadingRay& Differentials(uint32_t i);
  // The shading normal of ray `i`, read at texture coordinates multiplied
  // by `scale` when it has to be worked out; a normal already known stays.
  const SCENE_VERTEX_XYZ_64& ShadingNormal(uint32_t i, double scale);
  // The surface's colour at the first ray, from the material's texture.
  SCENE_VERTEX_XYZW SampleTexture();

  bool HasDifferentials(uint32_t i) const { return (samples[i]->flags & PixelRayDifferentialsValid) != 0; }

 private:
  SCENE_VERTEX_XYZ_64 geometricNormal;
  bool knowsGeometricNormal = false;
};

// The local colour of a visible surface into every ray of the group, and the
// surface's alpha into `group.alpha`.
void ShadeSurface(ShadingGroup& group, const ShadingSources& sources);
// Diffuse and specular light at the first ray's point, from the lights, the
// headlight, the default lights and the photon maps as the options say.
void GatherSurfaceLight(ShadingGroup& group, const ShadingSources& sources,
                        const SCENE_VERTEX_XYZ& diffuseColor, const SCENE_VERTEX_XYZ& specularColor,
                        SCENE_VERTEX_XYZ& diffuseSum, SCENE_VERTEX_XYZ& specularSum);
// Straight-on rays behind a see-through surface, blended by its alpha.
void TraceTransparency(ShadingGroup& group, const ShadingSources& sources, bool& abort);
// Mirror rays, blended by the material's reflectivity.
void TraceReflections(ShadingGroup& group, const ShadingSources& sources, bool& abort);
