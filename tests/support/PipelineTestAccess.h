// Reaches the frame pipeline's internals for its tests: the frame buffer
// and its pixels.
#pragma once

#include <vector>

#include "engine/BrindlexViewRTRenderEngine.h"
#include "pipeline/FrameBufferGuard.h"
#include "platform/GdiPlus.h"

class PipelineTestAccess {
 public:
  explicit PipelineTestAccess(RT_RENDER_ENGINE* engine) : engine(engine) {}

  uint32_t FrameWidth() const { return engine->frameWidth; }
  Gdiplus::Bitmap* FrameBitmap() const { return engine->frameBitmap; }
  SCENE_VERTEX_XYZW* FrameHDR() const { return engine->frameHDRBuffer; }

  // The frame bitmap's pixel as 0xAARRGGBB.
  uint32_t BitmapPixel(int x, int y) const {
    platform::PixelSurface surface = engine->frameBitmap->Surface();
    const uint8_t* p = surface.Row(y) + 4 * x;
    return p[0] | p[1] << 8 | p[2] << 16 | uint32_t(p[3]) << 24;
  }
  // Paints the whole frame bitmap in one colour, 0xAARRGGBB.
  void FillBitmap(uint32_t argb) {
    FrameBufferGuard guard(*engine);
    platform::PixelSurface surface = engine->frameBitmap->Surface();
    for (int y = 0; y < surface.height; ++y)
      for (int x = 0; x < surface.width; ++x)
        for (int b = 0; b < 4; ++b) surface.Row(y)[4 * x + b] = uint8_t(argb >> (8 * b));
  }

 private:
  RT_RENDER_ENGINE* engine;
};
