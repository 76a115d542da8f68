// Texels of BC1 and BC2 blocks. Only the palette entry that the texel's
// index picks is computed, which gives the same colour as building the
// whole palette.
#include <array>

#include "textures/TextureSampling.h"

namespace {

using Rgba = std::array<int, 4>;

Rgba Expand565(unsigned int c) {
  const unsigned int r = c >> 11, g = c >> 5 & 63, b = c & 31;
  return {static_cast<int>(r * 8 | r >> 2), static_cast<int>(g * 4 | g >> 4),
          static_cast<int>(b * 8 | b >> 2), 255};
}

Rgba PaletteEntry(const uint8_t* block, int index) {
  const unsigned int color0 = block[0] | block[1] << 8, color1 = block[2] | block[3] << 8;
  const Rgba c0 = Expand565(color0), c1 = Expand565(color1);
  if (index == 0) return c0;
  if (index == 1) return c1;
  Rgba entry{0, 0, 0, 0};
  if (color0 > color1) {
    for (int c = 0; c < 3; ++c) entry[c] = index == 2 ? (2 * c0[c] + c1[c]) / 3 : (c0[c] + 2 * c1[c]) / 3;
    entry[3] = 255;
  } else if (index == 2) {
    for (int c = 0; c < 3; ++c) entry[c] = (c0[c] + c1[c]) / 2;
    entry[3] = 255;
  }
  return entry;
}

float Unit(int byte) {
  return static_cast<float>(byte / 255.0);
}

}  // namespace

void DecodeBC1Texel(const uint8_t* block, int bx, int by, SCENE_VERTEX_XYZW& color) {
  const int index = block[4 + by] >> (2 * bx) & 3;
  const Rgba entry = PaletteEntry(block, index);
  color = {Unit(entry[0]), Unit(entry[1]), Unit(entry[2]), Unit(entry[3])};
}

void DecodeBC2Texel(const uint8_t* block, int bx, int by, SCENE_VERTEX_XYZW& color) {
  DecodeBC1Texel(block + 8, bx, by, color);
  const unsigned int row = block[2 * by] | block[2 * by + 1] << 8;
  color.w = Unit(static_cast<int>(row >> ((3 - bx) * 4) & 15) * 16);
}
