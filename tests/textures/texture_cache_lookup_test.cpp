#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <memory>

#include "host/BrindlexTexture.h"
#include "textures/TextureSampling.h"
#include "TextureTestAccess.h"

namespace {

namespace fs = std::filesystem;

// Texture row y is picture row 3 - y. Left block: red and blue in a
// checker; right block: green and white. All four survive 5:6:5 exactly.
SCENE_VERTEX_XYZW CheckerColour(int x, int y) {
  const bool odd = (x + (3 - y)) % 2 == 1;
  if (x < 4) return odd ? SCENE_VERTEX_XYZW{0, 0, 1, 1} : SCENE_VERTEX_XYZW{1, 0, 0, 1};
  return odd ? SCENE_VERTEX_XYZW{1, 1, 1, 1} : SCENE_VERTEX_XYZW{0, 1, 0, 1};
}

uint8_t CheckerByte(int x, int y, int c) {
  const SCENE_VERTEX_XYZW colour = CheckerColour(x, 3 - y);
  const float channels[3] = {colour.z, colour.y, colour.x};
  return static_cast<uint8_t>(channels[c] * 255);
}

class TextureCacheLookup : public testing::Test {
 protected:
  void SetUp() override { access.Textures().assign(4, nullptr); }

  SCENE_VERTEX_XYZW Fetch(unsigned int slot, unsigned int level, int x, int y) {
    SCENE_VERTEX_XYZW colour{-1, -1, -1, -1};
    FetchTextureTexel(*access.Row(slot), level, x, y, colour);
    return colour;
  }
  bool Compressed(unsigned int slot) {
    const SWTexture* texture = access.Row(slot);
    return texture->compressedLevels && !texture->levels;
  }

  TextureFolder folder;
  std::unique_ptr<RT_RENDER_ENGINE> engine = std::make_unique<RT_RENDER_ENGINE>();
  TextureTestAccess access{engine.get()};
};

TEST_F(TextureCacheLookup, CachedPyramidIsReadInsteadOfThePicture) {
  const std::string path = folder.Picture("checker.png", 8, 4, 24, CheckerByte);
  ASSERT_TRUE(access.LoadSWTexture(0, path.c_str(), false, nullptr));
  ASSERT_FALSE(Compressed(0));
  const SWTexture* plain = access.Row(0);
  ASSERT_TRUE(WriteCompressedTextureCache(path.c_str(), false, plain->levels, plain->levelCount));
  EXPECT_TRUE(std::filesystem::exists(folder.File("BrindlexCT/checker.ct1")));

  ASSERT_TRUE(access.LoadSWTexture(1, path.c_str(), false, nullptr));
  ASSERT_TRUE(Compressed(1));
  EXPECT_EQ(access.Row(1)->name, path);
  ASSERT_EQ(access.Row(1)->levelCount, 4u);
  for (int y = 0; y < 4; ++y)
    for (int x = 0; x < 8; ++x) {
      const SCENE_VERTEX_XYZW got = Fetch(1, 0, x, y), want = CheckerColour(x, y);
      const float r = got.x, g = got.y, b = got.z, a = got.w;
      const float wantR = want.x, wantG = want.y, wantB = want.z;
      EXPECT_EQ(r, wantR);
      EXPECT_EQ(g, wantG);
      EXPECT_EQ(b, wantB);
      EXPECT_EQ(a, 1.0f);
    }
  // Smaller levels hold means, which 5:6:5 keeps within one step of 8.
  for (unsigned int level = 1; level < 4; ++level) {
    const SCENE_VERTEX_XYZW got = Fetch(1, level, 0, 0), want = Fetch(0, level, 0, 0);
    EXPECT_NEAR(got.x, want.x, 8.5 / 255);
    EXPECT_NEAR(got.y, want.y, 4.5 / 255);
  }
  // The transparent use of the picture has its own entry, not written yet.
  ASSERT_TRUE(access.LoadSWTexture(2, path.c_str(), true, nullptr));
  EXPECT_FALSE(Compressed(2));
}

TEST_F(TextureCacheLookup, TransparentEntryKeepsAlphaInSixteenths) {
  const std::string path = folder.Picture(
      "glass.png", 4, 4, 32, [](int x, int y, int c) { return uint8_t(c == 3 ? 16 * (x + 4 * y) : 80); });
  ASSERT_TRUE(access.LoadSWTexture(0, path.c_str(), true, nullptr));
  ASSERT_TRUE(
      WriteCompressedTextureCache(path.c_str(), true, access.Row(0)->levels, access.Row(0)->levelCount));
  ASSERT_TRUE(access.LoadSWTexture(1, path.c_str(), true, nullptr));
  ASSERT_TRUE(Compressed(1));
  ASSERT_TRUE(access.Row(1)->compressedLevels[0].bc2Blocks != nullptr);
  for (int y = 0; y < 4; ++y)
    for (int x = 0; x < 4; ++x) {
      const float alpha = Fetch(1, 0, x, y).w;
      EXPECT_EQ(alpha, static_cast<float>(16 * (x + 4 * (3 - y)) / 255.0)) << x << "," << y;
    }
}

TEST_F(TextureCacheLookup, StaleCutDamagedOrOrphanedEntriesAreIgnored) {
  const std::string path = folder.Picture("checker.png", 8, 4, 24, CheckerByte);
  const std::string cache = folder.File("BrindlexCT/checker.ct1");
  ASSERT_TRUE(access.LoadSWTexture(0, path.c_str(), false, nullptr));
  const auto writeCache = [&] {
    ASSERT_TRUE(
        WriteCompressedTextureCache(path.c_str(), false, access.Row(0)->levels, access.Row(0)->levelCount));
  };
  // The picture changed after its entry was made; the entry is cut short;
  // a byte in its middle is flipped.
  const std::function<void()> damages[] = {
      [&] { fs::last_write_time(path, fs::last_write_time(path) + std::chrono::seconds(10)); },
      [&] { fs::resize_file(cache, fs::file_size(cache) - 1); },
      [&] {
        std::fstream file(cache, std::ios::in | std::ios::out | std::ios::binary);
        const auto middle = static_cast<std::streamoff>(fs::file_size(cache) / 2);
        file.seekg(middle);
        const char byte = static_cast<char>(file.get());
        file.seekp(middle);
        file.put(static_cast<char>(~byte));
      }};
  for (const auto& damage : damages) {
    writeCache();
    damage();
    ASSERT_TRUE(access.LoadSWTexture(1, path.c_str(), false, nullptr));
    EXPECT_FALSE(Compressed(1));
  }
  writeCache();
  ASSERT_TRUE(access.LoadSWTexture(1, path.c_str(), false, nullptr));
  EXPECT_TRUE(Compressed(1));
  std::filesystem::remove(path);
  EXPECT_FALSE(access.LoadSWTexture(1, path.c_str(), false, nullptr));
  EXPECT_EQ(access.Row(1)->levelCount, 0u);
}

}  // namespace
