// Filtered texture samples: a mip level from the pixel's footprint,
// bilinear inside a level and linear between two levels.
#include <algorithm>
#include <cmath>

#include "host/BrindlexTexture.h"
#include "engine/BrindlexViewRTRenderEngine.h"
#include "textures/TextureSampling.h"

namespace {

int Wrap(int value, int size) {
  const int remainder = value % size;
  return remainder < 0 ? remainder + size : remainder;
}

float Unit(uint8_t byte) {
  return static_cast<float>(byte / 255.0);
}

void FetchImageTexel(const Brindlex_CImage& image, int x, int y, SCENE_VERTEX_XYZW& color) {
  const int width = image.GetWidth(), height = image.GetHeight();
  if (width <= 0 || height <= 0) return;
  const int bpp = image.GetBPP();
  const uint8_t* p = static_cast<const uint8_t*>(image.GetBits()) +
                     static_cast<ptrdiff_t>(Wrap(y, height)) * image.GetPitch() + Wrap(x, width) * bpp / 8;
  if (bpp == 8)
    color = {Unit(p[0]), Unit(p[0]), Unit(p[0]), 1.0f};
  else
    color = {Unit(p[2]), Unit(p[1]), Unit(p[0]), bpp == 32 ? Unit(p[3]) : 1.0f};
}

void FetchBlockTexel(const SW_BC_TEXTURE& level, int x, int y, SCENE_VERTEX_XYZW& color) {
  const uint32_t width = level.width, height = level.height;
  if (width == 0 || height == 0) return;
  x = Wrap(x, static_cast<int>(width));
  y = Wrap(y, static_cast<int>(height));
  const size_t block = static_cast<size_t>(y / 4) * level.blocksPerRow + x / 4;
  uint8_t(*const bc2)[16] = level.bc2Blocks;
  uint8_t(*const bc1)[8] = level.bc1Blocks;
  if (bc2)
    DecodeBC2Texel(bc2[block], x % 4, y % 4, color);
  else if (bc1)
    DecodeBC1Texel(bc1[block], x % 4, y % 4, color);
}

void LevelSize(const SWTexture& texture, unsigned int level, int& width, int& height) {
  if (texture.levels) {
    width = texture.levels[level].GetWidth();
    height = texture.levels[level].GetHeight();
  } else {
    width = static_cast<int>(texture.compressedLevels[level].width);
    height = static_cast<int>(texture.compressedLevels[level].height);
  }
}

// Truncation towards zero. Positions beyond 2^30 texels have no meaning and
// are held there, so that a wild coordinate gives a wild colour, not an
// undefined conversion.
int TruncateToInt(float value) {
  constexpr float Largest = 1073741824.0f;
  if (std::isnan(value)) return 0;
  if (value <= -Largest) return -static_cast<int>(Largest);
  if (value >= Largest) return static_cast<int>(Largest);
  return static_cast<int>(value);
}

// The pair of texels that one axis of a bilinear sample reads, and the
// weight of the second.
struct AxisTexels {
  int first;
  int second;
  float fraction;
};

AxisTexels TexelsOnAxis(float coordinate, float position) {
  AxisTexels texels;
  if (coordinate > 0.0f) {
    position = static_cast<float>(position - 0.5);
    texels.first = TruncateToInt(position);
    texels.second = texels.first + 1;
  } else {
    position = static_cast<float>(position + 0.5);
    texels.first = TruncateToInt(position);
    texels.second = texels.first - 1;
  }
  texels.fraction = std::fabs(position - static_cast<float>(texels.first));
  return texels;
}

}  // namespace

void FetchTextureTexel(const SWTexture& texture, unsigned int level, int x, int y, SCENE_VERTEX_XYZW& color) {
  if (level >= texture.levelCount) return;
  if (texture.levels)
    FetchImageTexel(texture.levels[level], x, y, color);
  else if (texture.compressedLevels)
    FetchBlockTexel(texture.compressedLevels[level], x, y, color);
}

void SampleTextureLevel(const SWTexture& texture, unsigned int level, float u, float v,
                        SCENE_VERTEX_XYZW& color) {
  if (!texture.HasImage()) return;
  level = std::min(level, texture.levelCount - 1);
  int width = 0, height = 0;
  LevelSize(texture, level, width, height);
  const AxisTexels x = TexelsOnAxis(u, u * static_cast<float>(width));
  const AxisTexels y = TexelsOnAxis(v, v * static_cast<float>(height));

  SCENE_VERTEX_XYZW t00 = color, t01 = color, t10 = color, t11 = color;
  FetchTextureTexel(texture, level, x.first, y.first, t00);
  FetchTextureTexel(texture, level, x.first, y.second, t01);
  FetchTextureTexel(texture, level, x.second, y.first, t10);
  FetchTextureTexel(texture, level, x.second, y.second, t11);

  const float fx = x.fraction, fy = y.fraction;
  const float w11 = fx * fy;
  const float w10 = static_cast<float>(fx * (1.0 - fy));
  const float w01 = static_cast<float>((1.0 - fx) * fy);
  const float w00 = static_cast<float>((1.0 - fx) * (1.0 - fy));
  auto mix = [&](float a00, float a01, float a10, float a11) {
    return ((a00 * w00 + a01 * w01) + a10 * w10) + a11 * w11;
  };
  color = {mix(t00.x, t01.x, t10.x, t11.x), mix(t00.y, t01.y, t10.y, t11.y), mix(t00.z, t01.z, t10.z, t11.z),
           mix(t00.w, t01.w, t10.w, t11.w)};
}

void RT_RENDER_ENGINE::SampleSWTexture(unsigned int textureId, float u, float v, float dudx, float dvdx,
                                       float dudy, float dvdy, SCENE_VERTEX_XYZW& color) const {
  if (textureId >= textures.size() || !textures[textureId]) return;
  const SWTexture& texture = *textures[textureId];
  if (!texture.HasImage()) return;

  const float largest = std::max({std::fabs(dudx), std::fabs(dvdx), std::fabs(dudy), std::fabs(dvdy)});
  float footprint = static_cast<float>(largest / 2.0);
  // Written so that a footprint of NaN also reads level 0.
  if (!(footprint >= 1e-8f)) footprint = 1e-8f;
  const unsigned int last = texture.levelCount - 1;
  const float lod = static_cast<float>((static_cast<float>(texture.levelCount) - 1.0) +
                                       static_cast<double>(std::log(footprint)) / std::log(2.0));
  if (lod < 0.0f) {
    SampleTextureLevel(texture, 0, u, v, color);
    return;
  }
  if (lod >= static_cast<float>(last)) {
    FetchTextureTexel(texture, last, 0, 0, color);
    return;
  }
  const unsigned int level = static_cast<unsigned int>(lod);
  const float f = lod - static_cast<float>(level);
  SCENE_VERTEX_XYZW a = color, b = color;
  SampleTextureLevel(texture, level, u, v, a);
  SampleTextureLevel(texture, level + 1, u, v, b);
  const float keep = static_cast<float>(1.0 - f);
  color = {b.x * f + a.x * keep, b.y * f + a.y * keep, b.z * f + a.z * keep, b.w * f + a.w * keep};
}
