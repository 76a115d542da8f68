#include <gtest/gtest.h>

#include "TestDoubles.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <limits>
#include <variant>
#include <vector>

#include "host/BrindlexViewModel.h"
#include "engine/BrindlexViewRTRenderEngine.h"
#include "PipelineTestAccess.h"
#include "pipeline/RandomNumberGenerator.h"
#include "pipeline/ToneMapping.h"
#include "platform/Window.h"

TEST(PipelineFinish, BlendKeepsTheRunningMeanOfAllPasses) {
  const struct {
    SCENE_VERTEX_XYZW mean, sample;
    uint64_t pass;
    bool keepBackgroundAlpha;
    SCENE_VERTEX_XYZW expected;
  } cases[] = {
      {{0.3f, 0.3f, 0.3f, 0.3f}, {1, 0, 0.5f, 1}, 0, false, {1, 0, 0.5f, 1}},  // the first pass replaces
      {{0.3f, 0.3f, 0.3f, 0.3f}, {1, 0, 0.5f, 1}, 1, false, {1, 0, 0.5f, 1}},
      {{0, 1, 0.5f, 1}, {1, 0, 0.5f, 1}, 2, false, {0.5f, 0.5f, 0.5f, 1}},
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
  constexpr float NaN = std::numeric_limits<float>::quiet_NaN();
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
    uint8_t r, g, b, a;
  } cases[] = {
      {{1.0f, 0.5f, 0.0f, 0.2f}, false, false, 0, false, 255, 127, 0, 255},
      {{1.00001f, 0.999f, -0.5f, 1}, false, false, 0, false, 255, 254, 129, 255},  // -127 keeps its low byte
      {{1e30f, NaN, -1e30f, 1}, false, false, 0, false, 255, 0, 0, 255},
      {{1, 1, 1, 1}, true, false, 0, false, 55, 55, 55, 255},
      {{1, 1, 1, 1}, true, true, 0, false, 127, 127, 127, 255},
      {{1, 1, 1, 1}, true, false, 75, false, 150, 150, 150, 255},
      {{0.5f, 0.25f, 0, 1}, true, false, 75, false, 108, 54, 0, 255},
      {{0, 0, 0, 0}, true, false, 75, true, 0, 0, 0, 0},
      {{0, 0, 0, 0.5f}, true, false, 75, true, 0, 0, 0, 127},
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
    EXPECT_EQ(bgra[2], c.r);
    EXPECT_EQ(bgra[1], c.g);
    EXPECT_EQ(bgra[0], c.b);
    EXPECT_EQ(bgra[3], c.a);
  }
}

namespace {
std::vector<unsigned int> SystemDraws(size_t count) {
  std::vector<unsigned int> values(count);
  for (unsigned int& value : values) EXPECT_EQ(rand_s(&value), 0);
  return values;
}
}  // namespace

TEST(PipelineFinish, RandomUnitFollowsMT19937OrFreshSystemDraws) {
  RT_RANDOM_NUMBER_GENERATOR seeded(false, 5489);
  // The first outputs of MT19937 seeded with 5489, as published.
  EXPECT_EQ(seeded.RandomUnit(), 3499211612u / 4294967295.0);
  EXPECT_EQ(seeded.RandomUnit(), 581869302u / 4294967295.0);
  EXPECT_EQ(rand_s(nullptr), EINVAL);

  // The system source: uniform, the mean of N draws within 5 standard
  // deviations of 1 / sqrt(12 N) of 0.5, and never the seeded sequence.
  RT_RANDOM_NUMBER_GENERATOR system(true, 5489);
  EXPECT_NE(system.RandomUnit(), 3499211612u / 4294967295.0);
  const int draws = 100000;
  double sum = 0.0;
  for (int i = 0; i < draws; ++i) sum += system.RandomUnit();
  EXPECT_NEAR(sum / draws, 0.5, 5.0 / std::sqrt(12.0 * draws));

  // A forked child does not hand out the draws its parent still holds.
  int pipeEnds[2];
  ASSERT_EQ(pipe(pipeEnds), 0);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    const std::vector<unsigned int> drawn = SystemDraws(16);
    _exit(write(pipeEnds[1], drawn.data(), 16 * sizeof(unsigned int)) == 16 * sizeof(unsigned int) ? 0 : 1);
  }
  const std::vector<unsigned int> parent = SystemDraws(16);
  std::vector<unsigned int> fromChild(16);
  EXPECT_EQ(read(pipeEnds[0], fromChild.data(), 16 * sizeof(unsigned int)),
            ssize_t(16 * sizeof(unsigned int)));
  int status = 0;
  waitpid(child, &status, 0);
  close(pipeEnds[0]);
  close(pipeEnds[1]);
  EXPECT_NE(parent, fromChild);
}

TEST(PipelineFinish, BlockSamplesFillTheFrameColumnByColumn) {
  auto* engine = static_cast<RT_RENDER_ENGINE*>(CreateRenderEngine());
  PipelineTestAccess access(engine);
  platform::RecordingWindow window(4, 3), progressBar(1, 1);
  engine->InitializeRendererWindow(&window, nullptr);
  engine->SetRenderToFileCubeMapProgressBar(&progressBar);
  access.FillHDR({0.25f, 0.25f, 0.25f, 1.0f});
  access.FillBitmap(0xFF0000FF);
  ENVIRONMENT_3D_VIEW view;
  MODE_RENDER_OPTIONS options;
  SWRT_RENDER_THREAD_DATA block;
  block.frameX = 1;
  block.width = 2;
  block.height = 3;
  block.passNumber = 1;
  block.view = &view;
  block.options = &options;
  SCENE_VERTEX_XYZW samples[6];
  for (int k = 0; k < 6; ++k) samples[k] = {0.1f * k, 0.0f, 0.0f, 1.0f};
  EXPECT_TRUE(access.FinishBlock(block, samples));
  for (int y = 0; y < 3; ++y) {
    for (int x = 0; x < 4; ++x) {
      const bool outside = x == 0 || x == 3;
      const int k = (x - 1) * 3 + y;  // down the column, then the next one
      EXPECT_EQ(float(access.FrameHDR()[y * 4 + x].x), outside ? 0.25f : 0.1f * k) << x << "," << y;
      EXPECT_EQ(access.BitmapPixel(x, y),
                outside ? 0xFF0000FFu : 0xFF000000u | uint32_t(0.1f * k * 255.0) << 16);
      if (!outside) {
        EXPECT_EQ(window.Pixel(x, y), access.BitmapPixel(x, y));  // blitted
      }
    }
  }
  const std::vector<platform::WindowEvent> posted = progressBar.Events();
  ASSERT_EQ(posted.size(), 1u);
  EXPECT_EQ(std::get<platform::PostedMessage>(posted[0]).message, PBM_STEPIT);
  // Without a window the block is blended all the same, but not shown.
  engine->SetRenderToFileCubeMapProgressBar(nullptr);
  unsigned int width = 4, height = 3;
  engine->ShutDownRendererWindow();
  engine->ResizeClientArea(&width, &height);
  EXPECT_FALSE(access.FinishBlock(block, samples));
  EXPECT_EQ(float(access.FrameHDR()[4 + 2].x), 0.1f * 4);
  engine->Release();
}
