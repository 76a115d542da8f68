#include <filesystem>
#include <gtest/gtest.h>
#include <memory>

#include "host/BrindlexTexture.h"
#include "textures/TextureSampling.h"
#include "TextureTestAccess.h"

namespace {

namespace fs = std::filesystem;

// Red, blue, green and white in 5:6:5 survive exactly: texel (x, y), y from
// the bottom, is one of them by its block of 4 x 4 and the checker.
uint8_t CheckerByte(int x, int y, int c) {
  const bool odd = (x + y) % 2 == 1, right = x >= 4;
  const uint8_t red = !right && !odd, green = right && !odd, blue = !right && odd, white = right && odd;
  return 255 * (c == 0 ? blue || white : c == 1 ? green || white : red || white);
}

class TextureCacheLookup : public testing::Test {
 protected:
  void SetUp() override { access.Textures().assign(4, nullptr); }

  SCENE_VERTEX_XYZW Fetch(unsigned int slot, unsigned int level, int x, int y) {
    SCENE_VERTEX_XYZW colour{-1, -1, -1, -1};
    FetchTextureTexel(*access.Row(slot), level, x, y, colour);
    return colour;
  }
  // Loads the picture into `slot`, from the cache entry if it has one.
  bool Load(unsigned int slot, const std::string& path, bool transparent) {
    EXPECT_TRUE(access.LoadSWTexture(slot, path.c_str(), transparent, nullptr));
    return access.Row(slot)->compressedLevels && !access.Row(slot)->levels;
  }
  bool WriteCache(const std::string& path, bool transparent) {
    return WriteCompressedTextureCache(path.c_str(), transparent, access.Row(0)->levels,
                                       access.Row(0)->levelCount);
  }

  TextureFolder folder;
  std::unique_ptr<RT_RENDER_ENGINE> engine = std::make_unique<RT_RENDER_ENGINE>();
  TextureTestAccess access{engine.get()};
};

TEST_F(TextureCacheLookup, CachedPyramidIsReadInsteadOfThePicture) {
  const std::string path = folder.Picture("checker.png", 8, 4, 24, CheckerByte);
  ASSERT_FALSE(Load(0, path, false));
  ASSERT_TRUE(WriteCache(path, false));
  EXPECT_TRUE(fs::exists(folder.File("BrindlexCT/checker.ct1")));
  ASSERT_TRUE(Load(1, path, false));
  EXPECT_EQ(access.Row(1)->name, path);
  ASSERT_EQ(access.Row(1)->levelCount, 4u);
  for (int y = 0; y < 4; ++y)
    for (int x = 0; x < 8; ++x) {
      const SCENE_VERTEX_XYZW got = Fetch(1, 0, x, y);
      EXPECT_TRUE(got.x == CheckerByte(x, 3 - y, 2) / 255 && got.y == CheckerByte(x, 3 - y, 1) / 255 &&
                  got.z == CheckerByte(x, 3 - y, 0) / 255 && got.w == 1.0f)
          << x << ", " << y;
    }
  // Smaller levels hold means, which 5:6:5 keeps within one step of 8.
  for (unsigned int level = 1; level < 4; ++level) {
    EXPECT_NEAR(Fetch(1, level, 0, 0).x, Fetch(0, level, 0, 0).x, 8.5 / 255);
    EXPECT_NEAR(Fetch(1, level, 0, 0).y, Fetch(0, level, 0, 0).y, 4.5 / 255);
  }
  // The transparent use of the picture has its own entry, not written yet.
  EXPECT_FALSE(Load(2, path, true));

  // Alpha of a transparent entry is kept in sixteenths.
  const std::string glass = folder.Picture(
      "glass.png", 4, 4, 32, [](int x, int y, int c) { return uint8_t(c == 3 ? 16 * (x + 4 * y) : 80); });
  ASSERT_FALSE(Load(0, glass, true));
  ASSERT_TRUE(WriteCache(glass, true));
  ASSERT_TRUE(Load(1, glass, true));
  for (int y = 0; y < 4; ++y)
    for (int x = 0; x < 4; ++x)
      EXPECT_EQ(Fetch(1, 0, x, y).w, static_cast<float>(16 * (x + 4 * (3 - y)) / 255.0)) << x << "," << y;
}

TEST_F(TextureCacheLookup, StaleOrOrphanedEntriesAreIgnored) {
  // Which entries are damaged is the cache reader's to say (and its tests');
  // the engine gives it the picture's time, and loads the picture instead.
  const std::string path = folder.Picture("checker.png", 8, 4, 24, CheckerByte);
  Load(0, path, false);
  ASSERT_TRUE(WriteCache(path, false));
  fs::last_write_time(path, fs::last_write_time(path) + std::chrono::seconds(10));
  EXPECT_FALSE(Load(1, path, false));
  ASSERT_TRUE(WriteCache(path, false));
  EXPECT_TRUE(Load(1, path, false));
  fs::remove(path);
  EXPECT_FALSE(access.LoadSWTexture(1, path.c_str(), false, nullptr));
  EXPECT_EQ(access.Row(1)->levelCount, 0u);
}

}  // namespace
