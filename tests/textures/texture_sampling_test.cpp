#include <cmath>
#include <gtest/gtest.h>
#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "host/BrindlexTexture.h"
#include "TextureTestAccess.h"

namespace {

float Byte(int b) {
  return static_cast<float>(b / 255.0);
}

class TextureSampling : public testing::Test {
 protected:
  // Row 0: a 2 x 2 grey level 0 of bytes 0, 60 (row 0) and 120, 240 (row
  // 1) and a 1 x 1 level 1 of 200. Row 1: an empty record. Row 2: null.
  void SetUp() override {
    auto* texture = new SWTexture();
    texture->levels = new Brindlex_CImage[2];
    texture->levelCount = 2;
    ASSERT_NE(texture->levels[0].Create(2, 2, 8), 0);
    ASSERT_NE(texture->levels[1].Create(1, 1, 8), 0);
    const platform::PixelSurface s = texture->levels[0].Surface();
    s.Row(0)[0] = 0, s.Row(0)[1] = 60, s.Row(1)[0] = 120, s.Row(1)[1] = 240;
    texture->levels[1].Surface().Row(0)[0] = 200;
    access.Textures() = {texture, new SWTexture(), nullptr};
  }
  // The red channel of a sample; alpha must be 1 for grey texels.
  float Red(unsigned int id, float u, float v, float footprint = 0.0f) {
    SCENE_VERTEX_XYZW color{-1, -1, -1, -1};
    engine->SampleSWTexture(id, u, v, footprint, 0.0f, 0.0f, -footprint, color);
    const float red = color.x, green = color.y, alpha = color.w;
    EXPECT_EQ(green, red);
    EXPECT_EQ(alpha, 1.0f);
    return red;
  }
  SCENE_VERTEX_XYZW Sample(unsigned int id, float u, float v) {
    SCENE_VERTEX_XYZW color{-1, -1, -1, -1};
    engine->SampleSWTexture(id, u, v, 0.0f, 0.0f, 0.0f, 0.0f, color);
    return color;
  }

  std::unique_ptr<RT_RENDER_ENGINE> engine = std::make_unique<RT_RENDER_ENGINE>();
  TextureTestAccess access{engine.get()};
};

void ExpectColor(const SCENE_VERTEX_XYZW& c, float r, float g, float b, float a) {
  const SCENE_VERTEX_XYZW copy = c;
  EXPECT_FLOAT_EQ(copy.x, r);
  EXPECT_FLOAT_EQ(copy.y, g);
  EXPECT_FLOAT_EQ(copy.z, b);
  EXPECT_FLOAT_EQ(copy.w, a);
}

TEST_F(TextureSampling, BilinearInsideLevelZeroWithWrap) {
  EXPECT_EQ(Red(0, 0.25f, 0.25f), Byte(0));  // texel centres are exact
  EXPECT_EQ(Red(0, 0.75f, 0.25f), Byte(60));
  EXPECT_EQ(Red(0, 0.75f, 0.75f), Byte(240));
  EXPECT_FLOAT_EQ(Red(0, 0.5f, 0.25f), 30 / 255.0f);
  EXPECT_FLOAT_EQ(Red(0, 0.25f, 0.5f), 60 / 255.0f);
  EXPECT_FLOAT_EQ(Red(0, 0.5f, 0.5f), 105 / 255.0f);
  // Across the edge: u = 1 mixes the last column with the first, and so
  // does u = 0 from the other side (x0 = 0, x1 = -1, which wraps).
  EXPECT_FLOAT_EQ(Red(0, 1.0f, 0.25f), 30 / 255.0f);
  EXPECT_FLOAT_EQ(Red(0, 0.0f, 0.25f), 30 / 255.0f);
  EXPECT_FLOAT_EQ(Red(0, 0.25f, 1.0f), 60 / 255.0f);
  EXPECT_EQ(Red(0, 1.25f, 0.25f), Byte(0));
  // Negative u pairs texels downward: -0.75 reads column 1, not column 0.
  EXPECT_EQ(Red(0, -0.75f, 0.25f), Byte(60));
}

TEST_F(TextureSampling, FootprintChoosesAndBlendsLevels) {
  // Two levels: lod = 1 + log2(largest derivative / 2).
  EXPECT_EQ(Red(0, 0.75f, 0.75f, 1.0f), Byte(240));  // lod 0 (a hair below): level 0
  EXPECT_EQ(Red(0, 0.75f, 0.75f, 2.0f), Byte(200));  // lod 1: the last level
  EXPECT_EQ(Red(0, 0.75f, 0.75f, 1e30f), Byte(200));
  EXPECT_EQ(Red(0, 0.75f, 0.75f, 1e-30f), Byte(240));  // below 1e-8: level 0
  const double f = 1.0 + std::log2(0.75);
  EXPECT_NEAR(Red(0, 0.75f, 0.75f, 1.5f), f * (200 / 255.0) + (1 - f) * (240 / 255.0), 1e-6);
}

TEST_F(TextureSampling, WorkersSampleTogether) {
  // A block-compressed row beside the plain one: red over red, then white
  // over black (see BlockCompressedLevels).
  auto* bc1 = new SWTexture();
  bc1->compressedLevels = new SW_BC_TEXTURE[1]{
      {new uint8_t[2][8]{{0x00, 0xF8, 0x00, 0xF8, 0x38, 0, 0, 0}, {0xFF, 0xFF, 0x00, 0x00, 0, 0x0E, 0, 0}},
       nullptr, 8, 4, 2}};
  bc1->levelCount = 1;
  access.Textures().push_back(bc1);  // row 3
  struct Case {
    unsigned int id;
    float u, v;
    SCENE_VERTEX_XYZW color;
  };
  const float g0 = Byte(0), g60 = Byte(60), g120 = Byte(120), g240 = Byte(240), g170 = Byte(170);
  const std::vector<Case> cases = {
      {0, 0.25f, 0.25f, {g0, g0, g0, 1}},
      {0, 0.75f, 0.25f, {g60, g60, g60, 1}},
      {0, 0.25f, 0.75f, {g120, g120, g120, 1}},
      {0, 0.75f, 0.75f, {g240, g240, g240, 1}},
      {3, 0.5f / 8, 0.5f / 4, {1, 0, 0, 1}},
      {3, 2.5f / 8, 0.5f / 4, {0, 0, 0, 0}},
      {3, 4.5f / 8, 1.5f / 4, {g170, g170, g170, 1}},
      {3, 6.5f / 8, 0.5f / 4, {1, 1, 1, 1}},
      // Between texels all four take part: (0 + 60 + 120 + 240) / 4.
      {0, 0.5f, 0.5f, {105 / 255.0f, 105 / 255.0f, 105 / 255.0f, 1}},
      {0, 0.5f, 0.25f, {30 / 255.0f, 30 / 255.0f, 30 / 255.0f, 1}},
  };
  // Each worker walks the cases from its own start, so that at any moment
  // the threads read different texels and blocks; a result that took
  // anything from another thread's sample is off (and the thread sanitizer
  // reports any scratch they share).
  std::vector<std::thread> workers;
  std::atomic<int> wrong{0};
  for (size_t t = 0; t < 4; ++t)
    workers.emplace_back([&, t] {
      for (size_t i = 0; i < 20000; ++i) {
        const Case& c = cases[(t * 3 + i) % cases.size()];
        SCENE_VERTEX_XYZW color{-1, -1, -1, -1};
        engine->SampleSWTexture(c.id, c.u, c.v, 0.0f, 0.0f, 0.0f, 0.0f, color);
        const SCENE_VERTEX_XYZW want = c.color;
        const auto off = [](float a, float b) { return std::fabs(a - b) > 1e-6f; };
        if (off(color.x, want.x) || off(color.y, want.y) || off(color.z, want.z) || off(color.w, want.w))
          ++wrong;
      }
    });
  for (std::thread& worker : workers) worker.join();
  EXPECT_EQ(wrong.load(), 0);
}

TEST_F(TextureSampling, RowsWithoutImageLeaveTheColour) {
  for (unsigned int id : {1u, 2u, 3u, 0xFFFFFFFFu}) ExpectColor(Sample(id, 0.25f, 0.25f), -1, -1, -1, -1);
}

TEST_F(TextureSampling, BlockCompressedLevels) {
  // BC1, 8 x 4 texels. Block 0: both colours red (0xF800), so three-colour
  // mode: index 2 is red too, index 3 transparent black. Block 1: white
  // over black, four colours: index 2 is 170, index 3 is 85.
  auto* bc1 = new SWTexture();
  bc1->compressedLevels = new SW_BC_TEXTURE[1]{
      {new uint8_t[2][8]{{0x00, 0xF8, 0x00, 0xF8, 0x38, 0, 0, 0}, {0xFF, 0xFF, 0x00, 0x00, 0, 0x0E, 0, 0}},
       nullptr, 8, 4, 2}};
  bc1->levelCount = 1;
  // BC2, 4 x 4: alpha row 0 is 0xF000, the colour blue.
  auto* bc2 = new SWTexture();
  bc2->compressedLevels = new SW_BC_TEXTURE[1]{
      {nullptr, new uint8_t[1][16]{{0x00, 0xF0, 0, 0, 0, 0, 0, 0, 0x1F, 0x00, 0x1F, 0x00, 0, 0, 0, 0}}, 4, 4,
       1}};
  bc2->levelCount = 1;
  for (SWTexture* old : access.Textures()) delete old;
  access.Textures() = {bc1, bc2};

  ExpectColor(Sample(0, 0.5f / 8, 0.5f / 4), 1, 0, 0, 1);
  ExpectColor(Sample(0, 1.5f / 8, 0.5f / 4), 1, 0, 0, 1);
  ExpectColor(Sample(0, 2.5f / 8, 0.5f / 4), 0, 0, 0, 0);
  ExpectColor(Sample(0, 4.5f / 8, 1.5f / 4), Byte(170), Byte(170), Byte(170), 1);
  ExpectColor(Sample(0, 5.5f / 8, 1.5f / 4), Byte(85), Byte(85), Byte(85), 1);
  ExpectColor(Sample(0, 6.5f / 8, 0.5f / 4), 1, 1, 1, 1);
  // u < 0: x = -4.75, x0 = -4 (column 4, white), x1 = -5 (column 3, red).
  ExpectColor(Sample(0, -5.25f / 8, 0.5f / 4), 1, 0.25f, 0.25f, 1);
  ExpectColor(Sample(1, 0.5f / 4, 0.5f / 4), 0, 0, 1, Byte(240));
  ExpectColor(Sample(1, 1.5f / 4, 0.5f / 4), 0, 0, 1, 0);
  ExpectColor(Sample(1, 0.5f / 4, 1.5f / 4), 0, 0, 1, 0);
}

}  // namespace
