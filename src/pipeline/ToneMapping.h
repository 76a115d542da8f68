// The last stage of a pixel: its sample joins the running mean of all
// passes, and the mean becomes the 8-bit pixel of the frame bitmap.
#pragma once

#include <cstdint>

#include "host/SceneRecords.h"

class MODE_RENDER_OPTIONS;

// How a finishing block treats its pixels; the same for every pixel of a
// block.
struct PixelFinishRules {
  uint64_t pass = 1;  // the block's pass: 0 and 1 copy the sample
  // RenderToFile with BackgroundAlpha: a pass that saw only background does
  // not darken the colour, and alpha reaches the bitmap.
  bool keepBackgroundAlpha = false;
};

// Blends `sample` into `mean`, the running mean of the passes before.
void BlendIntoRunningMean(const SCENE_VERTEX_XYZW& sample, SCENE_VERTEX_XYZW& mean,
                          const PixelFinishRules& rules);

// 1.0 and above give 255; below, the low 8 bits of value x 255 truncated.
uint8_t ConvertToByte(float value);

// Writes the 4 bytes blue, green, red, alpha of the bitmap pixel for the
// running mean `mean`, tone-mapped when the options ask for it.
void WriteBitmapPixel(const SCENE_VERTEX_XYZW& mean, const MODE_RENDER_OPTIONS& options,
                      const PixelFinishRules& rules, uint8_t* bgra);
