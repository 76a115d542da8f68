#include <filesystem>
#include <gtest/gtest.h>
#include <memory>

#include "host/BrindlexTexture.h"
#include "textures/TextureSampling.h"
#include "TextureTestAccess.h"

namespace {

namespace fs = std::filesystem;

// Red, blue, green and white in 5:6:5 survive the cache exactly: texel
// (x, y), y from the top, is one of them by its half and the checker.
uint8_t CheckerByte(int x, int y, int c) {
  const bool odd = (x + y) % 2 == 1, right = x >= 4;
  const uint8_t red = !right && !odd, green = right && !odd, blue = !right && odd, white = right && odd;
  return 255 * (c == 0 ? blue || white : c == 1 ? green || white : red || white);
}

// How the cache reads and writes its entries is the cache's own tests'; the
// engine looks an entry up, hands the reader the picture's time, and loads
// the picture when there is none or it is stale.
TEST(TextureCacheLookup, TheEntryIsReadInsteadOfThePictureUntilThePictureChanges) {
  TextureFolder folder;
  std::unique_ptr<RT_RENDER_ENGINE> engine = std::make_unique<RT_RENDER_ENGINE>();
  TextureTestAccess access{engine.get()};
  access.Textures().assign(2, nullptr);
  const std::string path = folder.Picture("checker.png", 8, 4, 24, CheckerByte);
  // Loads the picture into `slot`; true when it came from the cache entry.
  const auto load = [&](unsigned int slot, bool transparent) {
    EXPECT_TRUE(access.LoadSWTexture(slot, path.c_str(), transparent, nullptr));
    return access.Row(slot)->compressedLevels && !access.Row(slot)->levels;
  };
  const auto writeCache = [&] {
    return WriteCompressedTextureCache(path.c_str(), false, access.Row(0)->levels, access.Row(0)->levelCount);
  };
  ASSERT_FALSE(load(0, false));
  ASSERT_TRUE(writeCache());
  ASSERT_TRUE(load(1, false));
  ASSERT_EQ(access.Row(1)->levelCount, 4u);
  for (int y = 0; y < 4; ++y)
    for (int x = 0; x < 8; ++x) {
      SCENE_VERTEX_XYZW got{-1, -1, -1, -1};
      FetchTextureTexel(*access.Row(1), 0, x, y, got);
      EXPECT_TRUE(got.x == CheckerByte(x, 3 - y, 2) / 255 && got.y == CheckerByte(x, 3 - y, 1) / 255 &&
                  got.z == CheckerByte(x, 3 - y, 0) / 255 && got.w == 1.0f)
          << x << ", " << y;
    }
  EXPECT_FALSE(load(1, true));  // the transparent use has an entry of its own

  // A picture newer than its entry is read again; a picture that is gone is
  // not loaded from its orphaned entry.
  fs::last_write_time(path, fs::last_write_time(path) + std::chrono::seconds(10));
  EXPECT_FALSE(load(1, false));
  ASSERT_TRUE(writeCache());
  EXPECT_TRUE(load(1, false));
  fs::remove(path);
  EXPECT_FALSE(access.LoadSWTexture(1, path.c_str(), false, nullptr));
  EXPECT_EQ(access.Row(1)->levelCount, 0u);
}

}  // namespace
