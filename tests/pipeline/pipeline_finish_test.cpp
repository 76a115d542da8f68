#include <gtest/gtest.h>

#include "TestDoubles.h"

#include "host/BrindlexViewModel.h"
#include "pipeline/ToneMapping.h"

TEST(PipelineFinish, BlendKeepsTheRunningMeanOfAllPasses) {
  const struct {
    SCENE_VERTEX_XYZW mean, sample;
    uint64_t pass;
    bool keepBackgroundAlpha;
    SCENE_VERTEX_XYZW expected;
  } cases[] = {
      {{0.3f, 0.3f, 0.3f, 0.3f}, {1, 0, 0.5f, 1}, 1, false, {1, 0, 0.5f, 1}},  // the first pass replaces
      {{0.3f, 0.3f, 0.3f, 0.75f}, {0.9f, 0, 0.6f, 0}, 3, false, {0.5f, 0.2f, 0.4f, 0.5f}},  // alpha kept out
      // With background alpha: a pass that saw background only lowers the
      // coverage, and the first pass that saw the model sets the colour.
      {{0.6f, 0.6f, 0.6f, 0.5f}, {0.9f, 0.9f, 0.9f, 0}, 3, true, {0.6f, 0.6f, 0.6f, 0.5f * 2 / 3}},
      {{0.2f, 0.2f, 0.2f, 0}, {0.9f, 0.3f, 0.1f, 1}, 3, true, {0.9f, 0.3f, 0.1f, 1.0f / 3}},
      {{0.3f, 0.3f, 0.3f, 0.75f}, {0.9f, 0, 0.6f, 0.15f}, 3, true, {0.5f, 0.2f, 0.4f, 0.55f}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "pass " << c.pass << " " << c.keepBackgroundAlpha);
    SCENE_VERTEX_XYZW mean = c.mean;
    BlendIntoRunningMean(c.sample, mean, {c.pass, c.keepBackgroundAlpha});
    ExpectColor(mean, c.expected.x, c.expected.y, c.expected.z, c.expected.w);
  }
}

TEST(PipelineFinish, BitmapBytesTruncateClipToneMapAndKeepAlpha) {
  // Tone mapping is asked for in every row but runs only with custom
  // lighting. Level 0, luminance 1: t = 0.25 (1 + 0.25 x 0.4444) = 0.277775,
  // mapped 0.277775 / 1.277775 = 0.21739, 55.43 in bytes; with gamma
  // 0.21739^0.4545 = 0.49974. Level 75 (scale 1): t = 1.4444, mapped
  // 0.59090; luminance 0.2851 gives t = 0.32122, mapped 0.24313, a ratio
  // of 0.85277 on all three channels.
  const struct {
    SCENE_VERTEX_XYZW color;
    bool customLighting, gamma;
    float level;
    bool keepAlpha;
    uint32_t argb;
  } cases[] = {
      {{1.0f, 0.5f, 0.0f, 0.2f}, false, false, 0, false, 0xFFFF7F00},
      {{1.00001f, 0.999f, -0.5f, 1}, false, false, 0, false, 0xFFFFFE81},  // -127 keeps its low byte
      {{1, 1, 1, 1}, true, false, 0, false, 0xFF373737},                   // 55
      {{1, 1, 1, 1}, true, true, 0, false, 0xFF7F7F7F},                    // 127
      {{1, 1, 1, 1}, true, false, 75, false, 0xFF969696},                  // 150
      {{0.5f, 0.25f, 0, 1}, true, false, 75, false, 0xFF6C3600},           // 108, 54
      {{0, 0, 0, 0.5f}, true, false, 75, true, 0x7F000000},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.color.x << " " << c.color.y << " " << c.color.z << " " << c.color.w);
    MODE_RENDER_OPTIONS options;
    options.SetHDRTonalMapping(true);
    options.SetCustomLighting(c.customLighting);
    options.SetHDRGamma(c.gamma);
    options.SetHDRTonalMappingLevel(c.level);
    uint8_t bgra[4];
    WriteBitmapPixel(c.color, options, {1, c.keepAlpha}, bgra);
    EXPECT_EQ(bgra[0] | bgra[1] << 8 | bgra[2] << 16 | uint32_t(bgra[3]) << 24, c.argb);
  }
}
