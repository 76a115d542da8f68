// Block compression of texture levels for the cache: BC1 for opaque
// textures, BC2 (with its alpha rows as the cache stores them) for
// transparent ones.
#include <array>
#include <cstring>
#include <new>

#include "host/BrindlexTexture.h"

namespace {

using Rgba = std::array<int, 4>;

// The texels of one block; `present` is false past the level's edge.
struct BlockTexels {
  Rgba texel[4][4];
  bool present[4][4];
};

Rgba ReadTexel(const platform::PixelSurface& level, int x, int y) {
  const uint8_t* p = level.Row(y) + x * (level.bitsPerPixel / 8);
  if (level.bitsPerPixel == 8) return {p[0], p[0], p[0], 255};
  return {p[2], p[1], p[0], level.bitsPerPixel == 32 ? p[3] : 255};
}

BlockTexels GatherBlock(const platform::PixelSurface& level, int blockX, int blockY) {
  BlockTexels block{};
  for (int by = 0; by < 4; ++by)
    for (int bx = 0; bx < 4; ++bx) {
      const int x = blockX * 4 + bx, y = blockY * 4 + by;
      block.present[by][bx] = x < level.width && y < level.height;
      if (block.present[by][bx]) block.texel[by][bx] = ReadTexel(level, x, y);
    }
  return block;
}

int DistanceSquared(const Rgba& a, const Rgba& b) {
  int sum = 0;
  for (int c = 0; c < 3; ++c) sum += (a[c] - b[c]) * (a[c] - b[c]);
  return sum;
}

uint16_t To565(const Rgba& c) {
  const int r = (c[0] * 31 + 127) / 255, g = (c[1] * 63 + 127) / 255, b = (c[2] * 31 + 127) / 255;
  return static_cast<uint16_t>(r << 11 | g << 5 | b);
}

// The colour that a reader expands a 5:6:5 value to.
Rgba From565(uint16_t c) {
  const int r = c >> 11, g = c >> 5 & 63, b = c & 31;
  return {r * 8 | r >> 2, g * 4 | g >> 4, b * 8 | b >> 2, 255};
}

// The two texels farthest apart become the end colours: for the few
// colours of a block of a texture that is a close enough fit, and exact for
// a block of two colours that 5:6:5 holds.
void ChooseEndColours(const BlockTexels& block, Rgba& first, Rgba& second) {
  int farthest = -1;
  for (int i = 0; i < 16; ++i)
    for (int j = i; j < 16; ++j) {
      if (!block.present[i / 4][i % 4] || !block.present[j / 4][j % 4]) continue;
      const int d = DistanceSquared(block.texel[i / 4][i % 4], block.texel[j / 4][j % 4]);
      if (d > farthest) farthest = d, first = block.texel[i / 4][i % 4], second = block.texel[j / 4][j % 4];
    }
}

// Always the four-colour mode (color0 above color1), so that no texel turns
// into transparent black; equal ends give one colour at index 0.
void EncodeColourBlock(const BlockTexels& block, uint8_t* out) {
  Rgba first{}, second{};
  ChooseEndColours(block, first, second);
  uint16_t c0 = To565(first), c1 = To565(second);
  if (c0 < c1) std::swap(c0, c1);
  out[0] = static_cast<uint8_t>(c0), out[1] = static_cast<uint8_t>(c0 >> 8);
  out[2] = static_cast<uint8_t>(c1), out[3] = static_cast<uint8_t>(c1 >> 8);
  std::memset(out + 4, 0, 4);
  if (c0 == c1) return;
  const Rgba a = From565(c0), b = From565(c1);
  Rgba palette[4] = {a, b, {}, {}};
  for (int c = 0; c < 3; ++c) palette[2][c] = (2 * a[c] + b[c]) / 3, palette[3][c] = (a[c] + 2 * b[c]) / 3;
  for (int by = 0; by < 4; ++by)
    for (int bx = 0; bx < 4; ++bx) {
      if (!block.present[by][bx]) continue;
      int best = 0;
      for (int k = 1; k < 4; ++k)
        if (DistanceSquared(block.texel[by][bx], palette[k]) <
            DistanceSquared(block.texel[by][bx], palette[best]))
          best = k;
      out[4 + by] = static_cast<uint8_t>(out[4 + by] | best << (2 * bx));
    }
}

// Alphas are stored in 4 bits and read back as 16 times those bits, so the
// nearest of 0, 16, ..., 240 is kept.
void EncodeAlphaRows(const BlockTexels& block, uint8_t* out) {
  for (int by = 0; by < 4; ++by) {
    uint16_t row = 0;
    for (int bx = 0; bx < 4; ++bx) {
      const int alpha = block.present[by][bx] ? block.texel[by][bx][3] : 0;
      const int nibble = alpha + 8 >= 16 * 15 ? 15 : (alpha + 8) / 16;
      row = static_cast<uint16_t>(row | nibble << ((3 - bx) * 4));
    }
    out[2 * by] = static_cast<uint8_t>(row), out[2 * by + 1] = static_cast<uint8_t>(row >> 8);
  }
}

}  // namespace

bool CompressTextureLevel(const platform::PixelSurface& level, bool withAlpha, SW_BC_TEXTURE& compressed) {
  if (!level.Valid() || (level.bitsPerPixel != 8 && level.bitsPerPixel != 24 && level.bitsPerPixel != 32))
    return false;
  const uint32_t blocksPerRow = (static_cast<uint32_t>(level.width) + 3) / 4;
  const uint32_t blockRows = (static_cast<uint32_t>(level.height) + 3) / 4;
  const size_t count = size_t{blocksPerRow} * blockRows;
  uint8_t* blocks = nullptr;
  SW_BC_TEXTURE result{nullptr, nullptr, static_cast<uint32_t>(level.width),
                       static_cast<uint32_t>(level.height), blocksPerRow};
  if (withAlpha)
    blocks = reinterpret_cast<uint8_t*>(result.bc2Blocks = new (std::nothrow) uint8_t[count][16]);
  else
    blocks = reinterpret_cast<uint8_t*>(result.bc1Blocks = new (std::nothrow) uint8_t[count][8]);
  if (!blocks) return false;
  const size_t blockBytes = withAlpha ? 16 : 8;
  for (uint32_t by = 0; by < blockRows; ++by)
    for (uint32_t bx = 0; bx < blocksPerRow; ++bx) {
      const BlockTexels texels = GatherBlock(level, static_cast<int>(bx), static_cast<int>(by));
      uint8_t* out = blocks + (size_t{by} * blocksPerRow + bx) * blockBytes;
      if (withAlpha) EncodeAlphaRows(texels, out), out += 8;
      EncodeColourBlock(texels, out);
    }
  compressed = result;
  return true;
}
