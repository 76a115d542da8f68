#include "textures/TexturePyramid.h"

#include <algorithm>
#include <cmath>
#include <new>

#include "host/BrindlexTexture.h"
#include "textures/TexturePictures.h"
#include "textures/TextureSampling.h"

namespace {

// log2(m) + 1 for a power of two m; the 0.5 absorbs the rounding of the
// float logarithm.
uint32_t LevelCountFor(int largestSide) {
  return static_cast<uint32_t>(1.5 + static_cast<double>(std::log(static_cast<float>(largestSide))) /
                                         std::log(2.0));
}

uint8_t StoredChannel(float channel) {
  return static_cast<uint8_t>(static_cast<int>(channel * 255.0));
}

// Each texel is the truncated mean of the 2 x 2 texels above it; the fetch
// wraps, so a side of 1 reads its single texel twice.
bool MakeHalfLevel(const SWTexture& texture, uint32_t level) {
  const Brindlex_CImage& above = texture.levels[level - 1];
  const int width = std::max(above.GetWidth() / 2, 1), height = std::max(above.GetHeight() / 2, 1);
  const int bpp = above.GetBPP();
  Brindlex_CImage& image = texture.levels[level];
  if (!image.Create(width, height, bpp)) return false;
  const platform::PixelSurface surface = image.Surface();
  for (int y = 0; y < height; ++y) {
    uint8_t* p = surface.Row(y);
    for (int x = 0; x < width; ++x, p += bpp / 8) {
      SCENE_VERTEX_XYZW t[4] = {};
      FetchTextureTexel(texture, level - 1, 2 * x, 2 * y, t[0]);
      FetchTextureTexel(texture, level - 1, 2 * x + 1, 2 * y, t[1]);
      FetchTextureTexel(texture, level - 1, 2 * x, 2 * y + 1, t[2]);
      FetchTextureTexel(texture, level - 1, 2 * x + 1, 2 * y + 1, t[3]);
      const float red = (t[0].x + t[1].x + t[2].x + t[3].x) * 0.25f;
      const float green = (t[0].y + t[1].y + t[2].y + t[3].y) * 0.25f;
      const float blue = (t[0].z + t[1].z + t[2].z + t[3].z) * 0.25f;
      const float alpha = (t[0].w + t[1].w + t[2].w + t[3].w) * 0.25f;
      p[0] = StoredChannel(blue);
      if (bpp > 8) p[1] = StoredChannel(green), p[2] = StoredChannel(red);
      if (bpp == 32) p[3] = StoredChannel(alpha);
    }
  }
  return true;
}

bool FillLevels(SWTexture& texture, const ATL::CImage& picture, int width, int height) {
  if (!StretchPicture(picture, texture.levels[0], width, height)) return false;
  for (uint32_t level = 1; level < texture.levelCount; ++level)
    if (!MakeHalfLevel(texture, level)) return false;
  return true;
}

}  // namespace

bool BuildTexturePyramid(SWTexture& texture, const ATL::CImage& picture) {
  texture.Clear();
  if (picture.IsNull() || !IsTextureDepth(picture.GetBPP())) return false;
  int width = 0, height = 0;
  TexMapScalePow2(picture.GetWidth(), picture.GetHeight(), TextureSideLimit, width, height);
  const uint32_t count = LevelCountFor(std::max(width, height));
  texture.levels = new (std::nothrow) Brindlex_CImage[count];
  if (!texture.levels) return false;
  texture.levelCount = count;
  if (FillLevels(texture, picture, width, height)) return true;
  texture.Clear();
  return false;
}
