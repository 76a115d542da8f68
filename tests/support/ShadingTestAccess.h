// Reaches the texture table, background row and materials of the engine
// for the shading tests, and shades hand-made groups of rays through
// ShadePixel.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "host/BrindlexTexture.h"
#include "host/BrindlexViewModel.h"
#include "engine/BrindlexViewRTRenderEngine.h"
#include "textures/SWTexture.h"
#include "shading/ShadingCounters.h"

class ShadingTestAccess {
 public:
  explicit ShadingTestAccess(RT_RENDER_ENGINE* engine) : engine(engine) {}

  uint32_t& BackgroundTexture() { return engine->backgroundTexture; }

  // The engine's own copy of the material whose node id is `id`, to change
  // behind its back; null if there is none.
  MATERIAL_3D_NODE* MaterialNode(const char* id) {
    for (const SWMaterialEntry& row : engine->swMaterials) {
      const MATERIAL_3D_NODE* node = row.material;  // read by value: the row is packed
      if (node && std::string(node->GetThisNodesID()) == id) return const_cast<MATERIAL_3D_NODE*>(node);
    }
    return nullptr;
  }

  // A one-level texture of 32-bit pixels; `bgra(x, y)` has blue in the low
  // byte. Appended to the table; returns its row.
  uint32_t AddTexture(int width, int height, const std::function<uint32_t(int x, int y)>& bgra) {
    engine->textures.push_back(MakeTexture(width, height, bgra));
    return uint32_t(engine->textures.size() - 1);
  }
  static SWTexture* MakeTexture(int width, int height, const std::function<uint32_t(int x, int y)>& bgra) {
    auto* texture = new SWTexture();
    texture->levels = new Brindlex_CImage[1];
    texture->levelCount = 1;
    texture->levels[0].Create(width, height, 32);
    const platform::PixelSurface s = texture->levels[0].Surface();
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < width; ++x)
        for (int c = 0; c < 4; ++c) s.Row(y)[4 * x + c] = uint8_t(bgra(x, y) >> (8 * c));
    return texture;
  }

  // Traces the `count` samples and shades them as one group, with the hit
  // flag and result of the first: the caller aims them at one triangle.
  void ShadeGroup(ENVIRONMENT_3D_VIEW* view, const MODE_RENDER_OPTIONS& options, PixelRaySample* samples,
                  uint32_t count, float nearDistance = 1.0f, float farDistance = 100.0f, uint32_t depth = 0) {
    SWRayIntersectionResult results[MaximumPixelRays] = {};
    const SWRayIntersectionResult* resultPointers[MaximumPixelRays];
    PixelRaySample* samplePointers[MaximumPixelRays];
    bool hit = false;
    for (uint32_t i = 0; i < count; ++i) {
      const bool thisHit = engine->IntersectSWGeometry(samples[i].origin, samples[i].direction,
                                                       samples[i].inverseDirection, results[i]);
      if (i == 0) hit = thisHit;
      resultPointers[i] = &results[i];
      samplePointers[i] = &samples[i];
    }
    bool abort = false;
    engine->ShadePixel(view, &options, hit, resultPointers, samplePointers, count, nearDistance, farDistance,
                       depth, 0, abort);
  }

  static ShadingCounters& Counters() { return ThreadShadingCounters(); }

 private:
  RT_RENDER_ENGINE* engine;
};

// A camera ray from `origin` along the unit `direction`, at pixel (x, y) of
// a view of width x height.
inline PixelRaySample CameraRay(SCENE_VERTEX_XYZ_64 origin, SCENE_VERTEX_XYZ_64 direction, double x = 0,
                                double y = 0, float width = 1, float height = 1) {
  PixelRaySample sample;
  sample.origin = origin;
  sample.direction = direction;
  const auto inverse = [](double d) { return d > 1e-7 || d < -1e-7 ? 1.0 / d : 1.7976931348623157e308; };
  sample.inverseDirection = {inverse(direction.x), inverse(direction.y), inverse(direction.z)};
  sample.pixelX = x;
  sample.pixelY = y;
  sample.viewWidth = width;
  sample.viewHeight = height;
  return sample;
}
