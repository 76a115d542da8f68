#include <cmath>
#include <gtest/gtest.h>
#include <memory>

#include "host/BrindlexTexture.h"
#include "TextureTestAccess.h"

namespace {

float Byte(int b) {
  return static_cast<float>(b / 255.0);
}
SCENE_VERTEX_XYZW Grey(float g) {
  return {g, g, g, 1};
}

struct Case {
  unsigned int row;
  float u, v, footprint;
  SCENE_VERTEX_XYZW color;
};

// Row 0: a 2 x 2 grey level 0 of bytes 0, 60 (row 0) and 120, 240 (row 1)
// and a 1 x 1 level 1 of 200. Row 1: an empty record. Row 2: null.
// Row 3: BC1 of 8 x 4 texels. Block 0 has both colours red (0xF800), so
// three-colour mode: index 2 is red too, index 3 transparent black. Block 1
// is white over black, four colours: index 2 is 170, index 3 is 85.
// Row 4: BC2 of 4 x 4, alpha row 0 is 0xF000, the colour blue.
class TextureSampling : public testing::Test {
 protected:
  void SetUp() override {
    auto* grey = new SWTexture();
    grey->levels = new Brindlex_CImage[2];
    grey->levelCount = 2;
    ASSERT_NE(grey->levels[0].Create(2, 2, 8), 0);
    ASSERT_NE(grey->levels[1].Create(1, 1, 8), 0);
    const platform::PixelSurface s = grey->levels[0].Surface();
    s.Row(0)[0] = 0, s.Row(0)[1] = 60, s.Row(1)[0] = 120, s.Row(1)[1] = 240;
    grey->levels[1].Surface().Row(0)[0] = 200;
    auto* bc1 = new SWTexture();
    bc1->compressedLevels = new SW_BC_TEXTURE[1]{
        {new uint8_t[2][8]{{0x00, 0xF8, 0x00, 0xF8, 0x38, 0, 0, 0}, {0xFF, 0xFF, 0x00, 0x00, 0, 0x0E, 0, 0}},
         nullptr, 8, 4, 2}};
    bc1->levelCount = 1;
    auto* bc2 = new SWTexture();
    bc2->compressedLevels = new SW_BC_TEXTURE[1]{
        {nullptr, new uint8_t[1][16]{{0x00, 0xF0, 0, 0, 0, 0, 0, 0, 0x1F, 0x00, 0x1F, 0x00, 0, 0, 0, 0}}, 4,
         4, 1}};
    bc2->levelCount = 1;
    access.Textures() = {grey, new SWTexture(), nullptr, bc1, bc2};
  }
  SCENE_VERTEX_XYZW Sample(const Case& c) {
    SCENE_VERTEX_XYZW color{-1, -1, -1, -1};
    engine->SampleSWTexture(c.row, c.u, c.v, c.footprint, 0.0f, 0.0f, -c.footprint, color);
    return color;
  }

  std::unique_ptr<RT_RENDER_ENGINE> engine = std::make_unique<RT_RENDER_ENGINE>();
  TextureTestAccess access{engine.get()};
};

bool Near(const SCENE_VERTEX_XYZW& a, const SCENE_VERTEX_XYZW& b) {
  const auto off = [](float x, float y) { return std::fabs(x - y) > 1e-6f; };
  return !(off(a.x, b.x) || off(a.y, b.y) || off(a.z, b.z) || off(a.w, b.w));
}

const float g0 = Byte(0), g60 = Byte(60), g240 = Byte(240), g200 = Byte(200),
            f = float(1.0 + std::log2(0.75));
const Case cases[] = {
    // Texel centres are exact; between them bilinear: (0 + 60) / 2, (0 + 120) / 2, all four.
    {0, 0.25f, 0.25f, 0, Grey(g0)},
    {0, 0.75f, 0.75f, 0, Grey(g240)},
    {0, 0.5f, 0.25f, 0, Grey(30 / 255.0f)},
    {0, 0.25f, 0.5f, 0, Grey(60 / 255.0f)},
    {0, 0.5f, 0.5f, 0, Grey(105 / 255.0f)},
    // Across the edge: u = 1 mixes the last column with the first, and so
    // does u = 0 from the other side (x0 = 0, x1 = -1, which wraps).
    {0, 1.0f, 0.25f, 0, Grey(30 / 255.0f)},
    {0, 0.0f, 0.25f, 0, Grey(30 / 255.0f)},
    {0, 0.25f, 1.0f, 0, Grey(60 / 255.0f)},
    {0, 1.25f, 0.25f, 0, Grey(g0)},
    {0, -0.75f, 0.25f, 0, Grey(g60)},  // negative u pairs texels downward: column 1
    // Two levels: lod = 1 + log2(largest derivative / 2).
    {0, 0.75f, 0.75f, 1.0f, Grey(g240)},  // lod 0 (a hair below): level 0
    {0, 0.75f, 0.75f, 2.0f, Grey(g200)},  // lod 1: the last level
    {0, 0.75f, 0.75f, 1e30f, Grey(g200)},
    {0, 0.75f, 0.75f, 1e-30f, Grey(g240)},  // below 1e-8: level 0
    {0, 0.75f, 0.75f, 1.5f, Grey(f* g200 + (1 - f) * g240)},
    // A row without an image leaves the colour.
    {1, 0.25f, 0.25f, 0, {-1, -1, -1, -1}},
    {3, 0.5f / 8, 0.5f / 4, 0, {1, 0, 0, 1}},
    {3, 1.5f / 8, 0.5f / 4, 0, {1, 0, 0, 1}},
    {3, 2.5f / 8, 0.5f / 4, 0, {0, 0, 0, 0}},
    {3, 4.5f / 8, 1.5f / 4, 0, Grey(Byte(170))},
    {3, 5.5f / 8, 1.5f / 4, 0, Grey(Byte(85))},
    {3, 6.5f / 8, 0.5f / 4, 0, {1, 1, 1, 1}},
    // u < 0: x = -4.75, x0 = -4 (column 4, white), x1 = -5 (column 3, red).
    {3, -5.25f / 8, 0.5f / 4, 0, {1, 0.25f, 0.25f, 1}},
    {4, 0.5f / 4, 0.5f / 4, 0, {0, 0, 1, g240}},
    {4, 1.5f / 4, 0.5f / 4, 0, {0, 0, 1, 0}},
    {4, 0.5f / 4, 1.5f / 4, 0, {0, 0, 1, 0}},
};

TEST_F(TextureSampling, BilinearWrapLevelsAndBlockCompression) {
  for (size_t i = 0; i < std::size(cases); ++i) {
    const SCENE_VERTEX_XYZW got = Sample(cases[i]), want = cases[i].color;
    EXPECT_TRUE(Near(got, want)) << "case " << i << ": " << got.x << " " << got.y << " " << got.z << " "
                                 << got.w;
  }
}

}  // namespace
