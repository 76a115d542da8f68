#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <tuple>
#include <vector>

#include "host/BrindlexTexture.h"
#include "platform/FileTime.h"

#include "TestFolder.h"

namespace {

using Bytes = std::vector<uint8_t>;

Bytes BlockBytes(const SW_BC_TEXTURE& level, size_t size) {
  const uint8_t* blocks = level.bc2Blocks ? *level.bc2Blocks : *level.bc1Blocks;
  return Bytes(blocks, blocks + size);
}

TEST(TextureCache, LevelsCompressIntoBlocksByHand) {
  // Red and blue in a checker: ends 0xF800 and 0x001F, indices 0 and 1.
  ATL::CImage checker;
  ASSERT_NE(checker.Create(4, 4, 24), 0);
  for (int y = 0; y < 4; ++y)
    for (int x = 0; x < 4; ++x) checker.Surface().Row(y)[3 * x + ((x + y) % 2 ? 0 : 2)] = 255;
  SW_BC_TEXTURE bc1;
  ASSERT_TRUE(CompressTextureLevel(checker.Surface(), false, bc1));
  EXPECT_EQ(BlockBytes(bc1, 8), (Bytes{0x00, 0xF8, 0x1F, 0x00, 0x44, 0x11, 0x44, 0x11}));
  EXPECT_TRUE(bc1.bc2Blocks == nullptr);
  DeleteCompressedTextureArray(new SW_BC_TEXTURE[1]{bc1}, 1);

  // White, with alpha 255 in row 0 and 128, 250, 8, 7 in row 1: 4-bit
  // alphas 15, 8, 15, 1, 0, the first texel in the top bits.
  ATL::CImage glass;
  ASSERT_NE(glass.Create(4, 4, 32), 0);
  const uint8_t row1[4] = {128, 250, 8, 7};
  for (int y = 0; y < 4; ++y)
    for (int x = 0; x < 4; ++x) {
      uint8_t* p = glass.Surface().Row(y) + 4 * x;
      p[0] = p[1] = p[2] = 255;
      p[3] = y == 0 ? 255 : y == 1 ? row1[x] : 0;
    }
  SW_BC_TEXTURE bc2;
  ASSERT_TRUE(CompressTextureLevel(glass.Surface(), true, bc2));
  EXPECT_EQ(BlockBytes(bc2, 16),
            (Bytes{0xFF, 0xFF, 0x10, 0x8F, 0, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0}));
  DeleteCompressedTextureArray(new SW_BC_TEXTURE[1]{bc2}, 1);
}

class TextureCacheFile : public testing::Test {
 protected:
  bool Read(const FILETIME& time, SW_BC_TEXTURE** levels, unsigned int* count) {
    return ReadCompressedTextureArrayFile(file.c_str(), &time, levels, count);
  }

  TestFolder folder;
  const std::string file = (folder.path / "a.ct1").string();
  FILETIME time{0x89ABCDEF, 0x01D00000};
  uint8_t big[2][8] = {{1, 2, 3, 4, 5, 6, 7, 8}, {9, 10, 11, 12, 13, 14, 15, 16}};
  uint8_t small[1][8] = {{17, 18, 19, 20, 21, 22, 23, 24}};
  SW_BC_TEXTURE pyramid[2] = {{big, nullptr, 8, 4, 2}, {small, nullptr, 4, 2, 1}};
};

TEST_F(TextureCacheFile, RoundTripWithTheSameTimeOnly) {
  ASSERT_TRUE(WriteCompressedTextureArrayFile(file.c_str(), &time, pyramid, 2));
  SW_BC_TEXTURE* levels = nullptr;
  unsigned int count = 0;
  FILETIME later = time;
  ++later.dwHighDateTime;
  EXPECT_FALSE(Read(later, &levels, &count));
  EXPECT_EQ(levels, nullptr);
  ASSERT_TRUE(Read(time, &levels, &count));
  ASSERT_EQ(count, 2u);
  const SW_BC_TEXTURE second = levels[1];
  EXPECT_EQ(std::tuple(+second.width, +second.height, +second.blocksPerRow), std::tuple(4u, 2u, 1u));
  EXPECT_EQ(BlockBytes(levels[0], 16), Bytes(&big[0][0], &big[0][0] + 16));
  EXPECT_EQ(BlockBytes(second, 8), Bytes(&small[0][0], &small[0][0] + 8));
  DeleteCompressedTextureArray(levels, count);
}

TEST_F(TextureCacheFile, EveryCutOrChangedByteIsRefused) {
  ASSERT_TRUE(WriteCompressedTextureArrayFile(file.c_str(), &time, pyramid, 2));
  std::ifstream in(file, std::ios::binary);
  const std::vector<char> whole((std::istreambuf_iterator<char>(in)), {});
  SW_BC_TEXTURE* levels = nullptr;
  unsigned int count = 7;
  for (size_t length = 0; length < whole.size(); ++length) {
    std::ofstream(file, std::ios::binary).write(whole.data(), static_cast<std::streamsize>(length));
    EXPECT_FALSE(Read(time, &levels, &count)) << length;
  }
  for (size_t at = 0; at < whole.size(); ++at) {
    std::vector<char> damaged = whole;
    damaged[at] = static_cast<char>(damaged[at] ^ 0x20);
    std::ofstream(file, std::ios::binary).write(damaged.data(), static_cast<std::streamsize>(damaged.size()));
    EXPECT_FALSE(Read(time, &levels, &count)) << at;
  }
  EXPECT_EQ(levels, nullptr);
  EXPECT_EQ(count, 7u);
  EXPECT_FALSE(ReadCompressedTextureArrayFile((folder.path / "none.ct1").c_str(), &time, &levels, &count));
}

}  // namespace
