#include <gtest/gtest.h>

#include "TestDoubles.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <limits>
#include <thread>
#include <variant>
#include <vector>

#include "host/BrindlexViewModel.h"
#include "engine/BrindlexViewRTRenderEngine.h"
#include "PipelineTestAccess.h"
#include "pipeline/RandomNumberGenerator.h"
#include "pipeline/ToneMapping.h"
#include "platform/Window.h"

namespace {

struct Bytes {
  uint8_t b, g, r, a;
};
Bytes Pixel(float r, float g, float b, float a, const MODE_RENDER_OPTIONS& options, bool keepAlpha = false) {
  uint8_t bgra[4];
  WriteBitmapPixel({r, g, b, a}, options, {1, keepAlpha}, bgra);
  return {bgra[0], bgra[1], bgra[2], bgra[3]};
}

}  // namespace

TEST(PipelineFinish, BlendKeepsTheRunningMeanOfAllPasses) {
  const SCENE_VERTEX_XYZW sample = {1.0f, 0.0f, 0.5f, 1.0f};
  for (uint64_t pass : {0, 1}) {
    SCENE_VERTEX_XYZW mean = {0.3f, 0.3f, 0.3f, 0.3f};
    BlendIntoRunningMean(sample, mean, {pass, false});
    ExpectColor(mean, 1.0f, 0.0f, 0.5f, 1.0f);
  }
  SCENE_VERTEX_XYZW mean = {0.0f, 1.0f, 0.5f, 1.0f};
  BlendIntoRunningMean(sample, mean, {2, false});
  ExpectColor(mean, 0.5f, 0.5f, 0.5f, 1.0f);

  // Pass 3 with a transparent background: a pass that saw background only
  // lowers the coverage, and the first pass that saw the model sets the
  // colour.
  mean = {0.6f, 0.6f, 0.6f, 0.5f};
  BlendIntoRunningMean({0.9f, 0.9f, 0.9f, 0.0f}, mean, {3, true});
  ExpectColor(mean, 0.6f, 0.6f, 0.6f, 0.5f * 2.0f / 3.0f);
  mean = {0.2f, 0.2f, 0.2f, 0.0f};
  BlendIntoRunningMean({0.9f, 0.3f, 0.1f, 1.0f}, mean, {3, true});
  ExpectColor(mean, 0.9f, 0.3f, 0.1f, 1.0f / 3.0f);
  mean = {0.3f, 0.3f, 0.3f, 0.75f};
  BlendIntoRunningMean({0.9f, 0.0f, 0.6f, 0.0f}, mean, {3, false});  // alpha kept out of it
  ExpectColor(mean, 0.5f, 0.2f, 0.4f, 0.5f);
  mean = {0.3f, 0.3f, 0.3f, 0.75f};
  BlendIntoRunningMean({0.9f, 0.0f, 0.6f, 0.15f}, mean, {3, true});  // both covered
  ExpectColor(mean, 0.5f, 0.2f, 0.4f, 0.55f);
}

TEST(PipelineFinish, ByteConversionTruncatesClipsAndKeepsTheLowBits) {
  EXPECT_EQ(ConvertToByte(1.0f), 255);
  EXPECT_EQ(ConvertToByte(1.00001f), 255);
  EXPECT_EQ(ConvertToByte(1e30f), 255);
  EXPECT_EQ(ConvertToByte(0.999f), 254);
  EXPECT_EQ(ConvertToByte(0.5f), 127);
  EXPECT_EQ(ConvertToByte(0.0f), 0);
  EXPECT_EQ(ConvertToByte(-0.5f), 129);  // -127 keeps its low byte 0x81
  EXPECT_EQ(ConvertToByte(std::numeric_limits<float>::quiet_NaN()), 0);
  EXPECT_EQ(ConvertToByte(-1e30f), 0);
}

TEST(PipelineFinish, ToneMapScalesByLuminanceOnlyWithCustomLighting) {
  MODE_RENDER_OPTIONS options;
  options.SetHDRTonalMapping(true);
  options.SetHDRGamma(false);
  options.SetHDRTonalMappingLevel(0.0f);
  Bytes plain = Pixel(0.5f, 0.25f, 1.5f, 0.2f, options);  // no custom lighting: no tone map
  EXPECT_EQ(plain.r, 127);
  EXPECT_EQ(plain.g, 63);
  EXPECT_EQ(plain.b, 255);
  EXPECT_EQ(plain.a, 255);

  options.SetCustomLighting(true);
  // Level 0, luminance 1: t = 0.25 (1 + 0.25 x 0.4444) = 0.277775, mapped
  // 0.277775 / 1.277775 = 0.21739, 55.43 in bytes.
  Bytes mapped = Pixel(1.0f, 1.0f, 1.0f, 1.0f, options);
  EXPECT_EQ(mapped.r, 55);
  EXPECT_EQ(mapped.g, 55);
  EXPECT_EQ(mapped.b, 55);
  options.SetHDRGamma(true);  // 0.21739 ^ 0.4545 = 0.49974
  EXPECT_EQ(Pixel(1.0f, 1.0f, 1.0f, 1.0f, options).g, 127);
  options.SetHDRGamma(false);
  options.SetHDRTonalMappingLevel(75.0f);  // scale 1: t = 1.4444, mapped 0.59090
  EXPECT_EQ(Pixel(1.0f, 1.0f, 1.0f, 1.0f, options).r, 150);
  // Luminance 0.2851: t = 0.32122, mapped 0.24313, ratio 0.85277 on all three.
  Bytes hue = Pixel(0.5f, 0.25f, 0.0f, 1.0f, options);
  EXPECT_EQ(hue.r, 108);
  EXPECT_EQ(hue.g, 54);
  EXPECT_EQ(hue.b, 0);
  Bytes black = Pixel(0.0f, 0.0f, 0.0f, 0.0f, options, true);
  EXPECT_EQ(black.r + black.g + black.b + black.a, 0);
  EXPECT_EQ(Pixel(0.0f, 0.0f, 0.0f, 0.5f, options, true).a, 127);
}

TEST(PipelineFinish, RandomUnitFollowsMT19937OrTheSystemSource) {
  RT_RANDOM_NUMBER_GENERATOR seeded(false, 5489);
  // The first outputs of MT19937 seeded with 5489, as published.
  EXPECT_EQ(seeded.RandomUnit(), 3499211612u / 4294967295.0);
  EXPECT_EQ(seeded.RandomUnit(), 581869302u / 4294967295.0);
  EXPECT_EQ(seeded.RandomUnit(), 3890346734u / 4294967295.0);

  unsigned int value = 0;
  EXPECT_EQ(rand_s(&value), 0);
  EXPECT_EQ(rand_s(nullptr), EINVAL);
  RT_RANDOM_NUMBER_GENERATOR system(true, 5489);
  double first = system.RandomUnit(), different = first;
  for (int i = 0; i < 8 && different == first; ++i) different = system.RandomUnit();
  EXPECT_NE(first, different);  // not the seeded sequence, nor a constant
  EXPECT_NE(first, 3499211612u / 4294967295.0);
  EXPECT_GE(first, 0.0);
  EXPECT_LE(first, 1.0);
}

namespace {
std::vector<unsigned int> SystemDraws(size_t count) {
  std::vector<unsigned int> values(count);
  for (unsigned int& value : values) EXPECT_EQ(rand_s(&value), 0);
  return values;
}
}  // namespace

TEST(PipelineFinish, SystemDrawsStayFreshAcrossRefillsThreadsAndForks) {
  // Uniform over the whole range: the mean of N draws of RandomUnit is 0.5
  // within 5 standard deviations of 1 / sqrt(12 N).
  RT_RANDOM_NUMBER_GENERATOR system(true, 0);
  const int draws = 100000;
  double sum = 0.0;
  for (int i = 0; i < draws; ++i) sum += system.RandomUnit();
  EXPECT_NEAR(sum / draws, 0.5, 5.0 / std::sqrt(12.0 * draws));

  // Whatever the size of a thread's buffer, no run of 64 draws comes back
  // as the run before it, in this thread or another one.
  const std::vector<unsigned int> here = SystemDraws(64 * 40);
  for (size_t run = 1; run < 40; ++run)
    EXPECT_FALSE(std::equal(here.begin() + 64 * (run - 1), here.begin() + 64 * run, here.begin() + 64 * run));
  std::vector<unsigned int> there;
  std::thread([&] { there = SystemDraws(64); }).join();
  const std::vector<unsigned int> next = SystemDraws(64);
  EXPECT_NE(there, next);

  // A forked child does not hand out the draws its parent still holds.
  int pipeEnds[2];
  ASSERT_EQ(pipe(pipeEnds), 0);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    const std::vector<unsigned int> drawn = SystemDraws(16);
    const ssize_t written = write(pipeEnds[1], drawn.data(), 16 * sizeof(unsigned int));
    _exit(written == 16 * sizeof(unsigned int) ? 0 : 1);
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
      const SCENE_VERTEX_XYZW hdr = access.FrameHDR()[y * 4 + x];
      if (x == 0 || x == 3) {
        EXPECT_EQ(float(hdr.x), 0.25f) << "outside the block";
        EXPECT_EQ(access.BitmapPixel(x, y), 0xFF0000FFu);
        continue;
      }
      const int k = (x - 1) * 3 + y;  // down the column, then the next one
      EXPECT_EQ(float(hdr.x), 0.1f * k) << x << "," << y;
      EXPECT_EQ(access.BitmapPixel(x, y), 0xFF000000u | uint32_t(0.1f * k * 255.0) << 16);
      EXPECT_EQ(window.Pixel(x, y), access.BitmapPixel(x, y));  // blitted
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
  const SCENE_VERTEX_XYZW blended = access.FrameHDR()[4 + 2];
  EXPECT_EQ(float(blended.x), 0.1f * 4);
  engine->Release();
}
