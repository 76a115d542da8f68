#include <algorithm>
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

  // Bytes blue, green, red, alpha of texel (x, y) of a level, as stored.
  std::vector<int> Texel(unsigned int slot, unsigned int level, int x, int y) {
    SWTexture* texture = access.Row(slot);
    const platform::PixelSurface s = texture->levels[level].Surface();
    const uint8_t* p = s.Row(y) + x * s.bitsPerPixel / 8;
    return std::vector<int>(p, p + s.bitsPerPixel / 8);
  }
  // Level 0 of width x height, halved down to 1 x 1 in `count` levels.
  void ExpectLevels(unsigned int slot, int width, int height, unsigned int count) {
    const SWTexture* texture = access.Row(slot);
    ASSERT_EQ(texture->levelCount, count);
    for (unsigned int i = 0; i < count; ++i, width = std::max(1, width / 2), height = std::max(1, height / 2))
      EXPECT_TRUE(texture->levels[i].GetWidth() == width && texture->levels[i].GetHeight() == height) << i;
  }

  TextureFolder folder;
  std::unique_ptr<RT_RENDER_ENGINE> engine = std::make_unique<RT_RENDER_ENGINE>();
  TextureTestAccess access{engine.get()};
};

TEST_F(TextureLoading, PyramidShapesFlipAndTruncatedMeans) {
  const auto grey = [](int, int, int) { return uint8_t{90}; };
  ASSERT_TRUE(access.LoadSWTexture(0, folder.Picture("one.png", 1, 1, 8, grey).c_str(), false, nullptr));
  ExpectLevels(0, 1, 1, 1);
  // 300 x 100 is scaled to 256 x 128, the powers of two nearest on a log scale.
  ASSERT_TRUE(
      access.LoadSWTexture(1, folder.Picture("wide.png", 300, 100, 24, grey).c_str(), false, nullptr));
  ExpectLevels(1, 256, 128, 9);
  ASSERT_TRUE(access.LoadSWTexture(2, folder.Picture("line.png", 256, 1, 8, grey).c_str(), false, nullptr));
  ExpectLevels(2, 256, 1, 9);

  // Top row 0 and 3, bottom row 255 and 253: the top row becomes row 1, and
  // level 1 is the truncated mean 127.75. A level of width 1 reads its
  // column twice: 255 and 0 give 127.5, stored as 127.
  const uint8_t bytes[2][2] = {{0, 3}, {255, 253}};
  const std::string path = folder.Picture("two.png", 2, 2, 8, [&](int x, int y, int) { return bytes[y][x]; });
  ASSERT_TRUE(access.LoadSWTexture(3, path.c_str(), false, nullptr));
  EXPECT_EQ(access.Row(3)->name, path);
  EXPECT_EQ(Texel(3, 0, 0, 0), std::vector<int>{255});
  EXPECT_EQ(Texel(3, 0, 1, 1), std::vector<int>{3});
  EXPECT_EQ(Texel(3, 1, 0, 0), std::vector<int>{127});
  const std::string column = folder.Picture("col.png", 1, 2, 8, [&](int, int y, int) { return bytes[y][0]; });
  ASSERT_TRUE(access.LoadSWTexture(3, column.c_str(), false, nullptr));
  EXPECT_EQ(Texel(3, 1, 0, 0), std::vector<int>{127});
}

TEST_F(TextureLoading, AlphaFromMaskPictureOrColourKey) {
  // Opaque 32 bits: the colour key is the top left colour, here also found
  // bottom right; every other pixel becomes opaque.
  const auto keyed = [](int x, int y, int c) {
    return uint8_t(c == 3 ? 255 : (x == y ? 10 * (c + 1) : 200));
  };
  ASSERT_TRUE(access.LoadSWTexture(0, folder.Picture("key.png", 2, 2, 32, keyed).c_str(), true, nullptr));
  EXPECT_EQ(Texel(0, 0, 0, 1), (std::vector<int>{0, 0, 0, 0}));  // top left
  EXPECT_EQ(Texel(0, 0, 1, 0), (std::vector<int>{0, 0, 0, 0}));  // bottom right
  EXPECT_EQ(Texel(0, 0, 0, 0), (std::vector<int>{200, 200, 200, 255}));

  // A picture with alpha keeps it, even where its top left colour recurs.
  const auto translucent = [&](int x, int y, int c) { return c == 3 ? uint8_t(100 + x) : keyed(x, y, c); };
  ASSERT_TRUE(access.LoadSWTexture(1, folder.Picture("alpha.png", 2, 2, 32, translucent).c_str(), true,
                                   folder.File("missing.png").c_str()));
  EXPECT_EQ(Texel(1, 0, 0, 1), (std::vector<int>{10, 20, 30, 100}));
  EXPECT_EQ(Texel(1, 0, 1, 0), (std::vector<int>{10, 20, 30, 101}));

  // An 8-bit picture of 4 x 4 with a 2 x 2 mask whose blue differs from its
  // red: alpha is the blue of the mask pixel under each pixel, mask rows
  // flipped like the picture's.
  const std::string picture =
      folder.Picture("grey.png", 4, 4, 8, [](int x, int y, int) { return uint8_t(x + 4 * y); });
  const std::string mask = folder.Picture(
      "mask.png", 2, 2, 24, [](int x, int y, int c) { return uint8_t(c == 0 ? 50 * (1 + x + 2 * y) : 7); });
  ASSERT_TRUE(access.LoadSWTexture(2, picture.c_str(), true, mask.c_str()));
  EXPECT_EQ(access.Row(2)->levels[0].GetBPP(), 32);
  EXPECT_EQ(Texel(2, 0, 0, 0), (std::vector<int>{12, 12, 12, 150}));  // bottom left: mask bottom left
  EXPECT_EQ(Texel(2, 0, 3, 1), (std::vector<int>{11, 11, 11, 200}));
  EXPECT_EQ(Texel(2, 0, 1, 3), (std::vector<int>{1, 1, 1, 50}));  // top: mask top left
  EXPECT_EQ(Texel(2, 0, 2, 2), (std::vector<int>{6, 6, 6, 100}));
}

TEST_F(TextureLoading, FailuresLeaveAnEmptyRecord) {
  const std::string good = folder.Picture("good.png", 4, 4, 24, [](int, int, int) { return uint8_t{1}; });
  // Hostile files: cut, empty, BMPs that declare 100000 x 100000 and 0 x 0, a name
  // of a picture whose content is no picture.
  std::ifstream in(good, std::ios::binary);
  const std::vector<char> whole((std::istreambuf_iterator<char>(in)), {});
  std::ofstream(folder.File("cut.png"), std::ios::binary).write(whole.data(), whole.size() / 2);
  std::ofstream(folder.File("empty.png"), std::ios::binary).close();
  std::vector<char> bmp(54, 0);
  const auto put = [&](size_t at, uint32_t v) {
    for (int i = 0; i < 4; ++i) bmp[at + i] = char(v >> (8 * i));
  };
  bmp[0] = 'B', bmp[1] = 'M', put(2, 54), put(10, 54), put(14, 40), put(18, 100000), put(22, 100000);
  bmp[26] = 1, bmp[28] = 24;
  std::ofstream(folder.File("huge.bmp"), std::ios::binary).write(bmp.data(), bmp.size());
  put(18, 0), put(22, 0);
  std::ofstream(folder.File("zero.bmp"), std::ios::binary).write(bmp.data(), bmp.size());
  std::ofstream(folder.File("magic.png"), std::ios::binary) << "GIF89a not a picture at all";

  for (const char* name : {"cut.png", "empty.png", "huge.bmp", "zero.bmp", "magic.png", "absent.png"}) {
    ASSERT_TRUE(access.LoadSWTexture(0, good.c_str(), true, nullptr));
    EXPECT_FALSE(access.LoadSWTexture(0, folder.File(name).c_str(), false, nullptr)) << name;
    const SWTexture* texture = access.Row(0);
    EXPECT_EQ(texture->levelCount, 0u) << name;
    EXPECT_EQ(texture->levels, nullptr) << name;
    EXPECT_EQ(texture->name, good) << name;  // kept until a load succeeds
  }
  EXPECT_FALSE(access.LoadSWTexture(4, good.c_str(), false, nullptr));
  EXPECT_FALSE(access.LoadSWTexture(1, nullptr, false, nullptr));
  EXPECT_EQ(access.Row(1), nullptr);
  EXPECT_FALSE(access.LoadSWNormalHeightMapTexture(4, good.c_str(), nullptr));
}

// Normal texel bytes blue, green, red: z, y and x mapped from -1..1 to 0..255.
TEST_F(TextureLoading, NormalMapsFromHeightOrGreyColour) {
  const std::vector<int> flat{255, 127, 127};
  const std::string constant =
      folder.Picture("flat.png", 4, 4, 24, [](int, int, int) { return uint8_t{77}; });
  ASSERT_TRUE(access.LoadSWNormalHeightMapTexture(0, constant.c_str(), folder.File("nothing.png").c_str()));
  EXPECT_EQ(access.Row(0)->name, constant);
  EXPECT_EQ(access.Row(0)->levels[0].GetBPP(), 24);
  for (int x = 0; x < 4; ++x) EXPECT_EQ(Texel(0, 0, x, x), flat);
  ASSERT_TRUE(access.LoadSWNormalHeightMapTexture(
      0, folder.Picture("dot.png", 1, 1, 8, [](int, int, int) { return uint8_t{200}; }).c_str(), nullptr));
  EXPECT_EQ(Texel(0, 0, 0, 0), flat);

  // Blue steps from 0 to 255 between columns 1 and 2, red the other way. As
  // a height picture only blue counts: dx = 2 in columns 1 and 2, so the
  // normal is (-2, 0, 1) / sqrt(5). As a colour picture (no height picture)
  // every pixel has the mean 85: flat.
  const std::string step = folder.Picture("step.png", 4, 1, 24, [](int x, int, int c) {
    return uint8_t(c == 1 || (c == 0) != (x >= 2) ? 0 : 255);
  });
  const std::string red = folder.Picture(
      "red.png", 4, 1, 24, [](int x, int, int c) { return uint8_t(x >= 2 && c == 2 ? 255 : 0); });
  ASSERT_TRUE(access.LoadSWNormalHeightMapTexture(1, red.c_str(), step.c_str()));
  EXPECT_EQ(access.Row(1)->name, red);
  const std::vector<int> steep{184, 127, 13};
  EXPECT_EQ(Texel(1, 0, 0, 0), flat);
  EXPECT_EQ(Texel(1, 0, 1, 0), steep);
  EXPECT_EQ(Texel(1, 0, 2, 0), steep);
  EXPECT_EQ(Texel(1, 0, 3, 0), flat);
  ASSERT_TRUE(access.LoadSWNormalHeightMapTexture(2, step.c_str(), nullptr));
  for (int x = 0; x < 4; ++x) EXPECT_EQ(Texel(2, 0, x, 0), flat);
  // Colour route on the red step: mean 0 then 85, dx = 2/3 in columns 1, 2.
  ASSERT_TRUE(access.LoadSWNormalHeightMapTexture(2, red.c_str(), folder.File("nothing.png").c_str()));
  EXPECT_EQ(Texel(2, 0, 1, 0), (std::vector<int>{233, 127, 56}));
  EXPECT_EQ(Texel(2, 0, 0, 0), flat);
  EXPECT_FALSE(
      access.LoadSWNormalHeightMapTexture(3, folder.File("no.png").c_str(), folder.File("ne.png").c_str()));
}

}  // namespace
