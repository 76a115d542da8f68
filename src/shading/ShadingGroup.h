// The working state of one ShadePixel call on a hit: the call's arguments,
// the surface all rays share, and per ray the hit facts that a step needs,
// each worked out at most once and only when asked for.
#pragma once

#include <cstdint>

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

struct RT_RENDER_ENGINE::ShadingGroup {
  // The call.
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
  const SCENE_VERTEX_XYZ_64& ShadingNormal(const RT_RENDER_ENGINE& engine, uint32_t i, double scale);

  bool HasDifferentials(uint32_t i) const { return (samples[i]->flags & PixelRayDifferentialsValid) != 0; }

 private:
  SCENE_VERTEX_XYZ_64 geometricNormal;
  bool knowsGeometricNormal = false;
};
