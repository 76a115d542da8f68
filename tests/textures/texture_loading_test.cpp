#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

#include "host/BrindlexTexture.h"
#include "textures/TextureSampling.h"
#include "TextureTestAccess.h"

namespace {

class TextureLoading : public testing::Test {
 protected:
  void SetUp() override { access.Textures().assign(4, nullptr); }

  // Every byte of row y (from the bottom) of a level: blue, green, red,
  // alpha of each texel, as stored.
  std::vector<int> Line(unsigned int slot, int y, unsigned int level = 0) {
    const platform::PixelSurface s = access.Row(slot)->levels[level].Surface();
    return std::vector<int>(s.Row(y), s.Row(y) + s.width * s.bitsPerPixel / 8);
  }
  static std::vector<int> Joined(std::initializer_list<std::vector<int>> parts) {
    std::vector<int> all;
    for (const std::vector<int>& part : parts) all.insert(all.end(), part.begin(), part.end());
    return all;
  }
  // Width and height of level 0, the level count, and the size of the last level.
  std::vector<int> Levels(unsigned int slot) {
    const SWTexture* t = access.Row(slot);
    const Brindlex_CImage& last = t->levels[t->levelCount - 1];
    return {t->levels[0].GetWidth(), t->levels[0].GetHeight(), int(t->levelCount), last.GetWidth(),
            last.GetHeight()};
  }

  TextureFolder folder;
  std::unique_ptr<RT_RENDER_ENGINE> engine = std::make_unique<RT_RENDER_ENGINE>();
  TextureTestAccess access{engine.get()};
};

TEST_F(TextureLoading, PyramidShapesFlipAndTruncatedMeans) {
  // 300 x 100 is scaled to 256 x 128, the powers of two nearest on a log
  // scale; every pyramid ends at 1 x 1.
  const auto grey = [](int, int, int) { return uint8_t{90}; };
  const struct {
    int width, height, bits;
    std::vector<int> levels;
  } cases[] = {
      {1, 1, 8, {1, 1, 1, 1, 1}}, {300, 100, 24, {256, 128, 9, 1, 1}}, {256, 1, 8, {256, 1, 9, 1, 1}}};
  for (const auto& c : cases) {
    ASSERT_TRUE(access.LoadSWTexture(0, folder.Picture("p.png", c.width, c.height, c.bits, grey).c_str(),
                                     false, nullptr));
    EXPECT_EQ(Levels(0), c.levels) << c.width;
  }

  // Top row 0 and 3, bottom row 255 and 253: the top row becomes row 1, and
  // level 1 is the truncated mean 127.75. A level of width 1 reads its
  // column twice: 255 and 0 give 127.5, stored as 127.
  const uint8_t bytes[2][2] = {{0, 3}, {255, 253}};
  const std::string path = folder.Picture("two.png", 2, 2, 8, [&](int x, int y, int) { return bytes[y][x]; });
  ASSERT_TRUE(access.LoadSWTexture(3, path.c_str(), false, nullptr));
  EXPECT_EQ(Joined({Line(3, 0), Line(3, 1), Line(3, 0, 1)}), (std::vector<int>{255, 253, 0, 3, 127}));
  const std::string column = folder.Picture("col.png", 1, 2, 8, [&](int, int y, int) { return bytes[y][0]; });
  ASSERT_TRUE(access.LoadSWTexture(3, column.c_str(), false, nullptr));
  EXPECT_EQ(Line(3, 0, 1), std::vector<int>{127});
}

TEST_F(TextureLoading, AlphaFromMaskPictureOrColourKey) {
  // Opaque 32 bits: the colour key is the top left colour, also found bottom
  // right; every other pixel becomes opaque. A picture with alpha keeps it,
  // even where its top left colour recurs.
  const auto keyed = [](int x, int y, int c) {
    return uint8_t(c == 3 ? 255 : (x == y ? 10 * (c + 1) : 200));
  };
  const auto translucent = [&](int x, int y, int c) { return c == 3 ? uint8_t(100 + x) : keyed(x, y, c); };
  ASSERT_TRUE(access.LoadSWTexture(0, folder.Picture("key.png", 2, 2, 32, keyed).c_str(), true, nullptr));
  ASSERT_TRUE(access.LoadSWTexture(1, folder.Picture("alpha.png", 2, 2, 32, translucent).c_str(), true,
                                   folder.File("missing.png").c_str()));
  // An 8-bit picture of 4 x 4 with a 2 x 2 mask whose blue differs from its
  // red: alpha is the blue of the mask pixel under each pixel, mask rows
  // flipped like the picture's.
  const std::string picture =
      folder.Picture("grey.png", 4, 4, 8, [](int x, int y, int) { return uint8_t(x + 4 * y); });
  const std::string mask = folder.Picture(
      "mask.png", 2, 2, 24, [](int x, int y, int c) { return uint8_t(c == 0 ? 50 * (1 + x + 2 * y) : 7); });
  ASSERT_TRUE(access.LoadSWTexture(2, picture.c_str(), true, mask.c_str()));
  const struct {
    unsigned int slot;
    int y;
    std::vector<int> bytes;
  } rows[] = {{0, 0, {200, 200, 200, 255, 0, 0, 0, 0}},
              {0, 1, {0, 0, 0, 0, 200, 200, 200, 255}},
              {1, 1, {10, 20, 30, 100, 200, 200, 200, 101}},
              {2, 0, {12, 12, 12, 150, 13, 13, 13, 150, 14, 14, 14, 200, 15, 15, 15, 200}},
              {2, 3, {0, 0, 0, 50, 1, 1, 1, 50, 2, 2, 2, 100, 3, 3, 3, 100}}};
  for (const auto& row : rows) EXPECT_EQ(Line(row.slot, row.y), row.bytes) << row.slot << ", " << row.y;
}

TEST_F(TextureLoading, FailuresLeaveAnEmptyRecord) {
  // Which files are no pictures is the picture loader's to say (and its
  // tests'); a failed load empties the record and keeps the name until a
  // load succeeds.
  const std::string good = folder.Picture("good.png", 4, 4, 24, [](int, int, int) { return uint8_t{1}; });
  std::ofstream(folder.File("magic.png"), std::ios::binary) << "GIF89a not a picture at all";
  for (const char* name : {"magic.png", "absent.png"}) {
    ASSERT_TRUE(access.LoadSWTexture(0, good.c_str(), true, nullptr));
    EXPECT_FALSE(access.LoadSWTexture(0, folder.File(name).c_str(), false, nullptr)) << name;
    EXPECT_TRUE(access.Row(0)->levelCount == 0 && !access.Row(0)->levels && access.Row(0)->name == good)
        << name;
  }
}

// Normal texel bytes blue, green, red: z, y and x mapped from -1..1 to 0..255.
TEST_F(TextureLoading, NormalMapsFromHeightOrGreyColour) {
  const std::vector<int> flat{255, 127, 127}, flatRow = Joined({flat, flat, flat, flat});
  const std::string nothing = folder.File("nothing.png");
  const std::string constant =
      folder.Picture("flat.png", 4, 4, 24, [](int, int, int) { return uint8_t{77}; });
  ASSERT_TRUE(access.LoadSWNormalHeightMapTexture(0, constant.c_str(), nothing.c_str()));
  EXPECT_EQ(Line(0, 2), flatRow);
  // Blue steps from 0 to 255 between columns 1 and 2, red the other way. As
  // a height picture only blue counts: dx = 2 in columns 1 and 2, so the
  // normal is (-2, 0, 1) / sqrt(5). As a colour picture (no height picture)
  // every pixel has the mean 85: flat. The red step alone as colour has the
  // means 0, 0, 85, 85: dx = 2/3 in columns 1 and 2.
  const std::string step = folder.Picture("step.png", 4, 1, 24, [](int x, int, int c) {
    return uint8_t(c == 1 || (c == 0) != (x >= 2) ? 0 : 255);
  });
  const std::string red = folder.Picture(
      "red.png", 4, 1, 24, [](int x, int, int c) { return uint8_t(x >= 2 && c == 2 ? 255 : 0); });
  const std::vector<int> steep{184, 127, 13}, slope{233, 127, 56};
  const struct {
    std::string colour;
    const char* height;
    std::vector<int> row;
  } cases[] = {{red, step.c_str(), Joined({flat, steep, steep, flat})},
               {step, nullptr, flatRow},
               {red, nothing.c_str(), Joined({flat, slope, slope, flat})}};
  for (const auto& c : cases) {
    ASSERT_TRUE(access.LoadSWNormalHeightMapTexture(1, c.colour.c_str(), c.height));
    EXPECT_EQ(access.Row(1)->name, c.colour);
    EXPECT_EQ(Line(1, 0), c.row) << c.colour << " " << (c.height ? c.height : "");
  }
  EXPECT_FALSE(access.LoadSWNormalHeightMapTexture(3, folder.File("no.png").c_str(), nothing.c_str()));
}

}  // namespace
