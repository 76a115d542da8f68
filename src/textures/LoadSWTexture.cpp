// Loading a picture into a row of the texture table, with the alpha of a
// transparent texture taken from a mask, from the picture, or from a colour
// key, in that order of preference.
#include <algorithm>
#include <new>

#include "host/BrindlexTexture.h"
#include "engine/BrindlexViewRTRenderEngine.h"
#include "textures/SWTexture.h"
#include "textures/TexturePictures.h"
#include "textures/TexturePyramid.h"

namespace {

// Blue, green and red of a pixel; an 8-bit grey byte gives all three.
void ColourBytes(const uint8_t* pixel, int bpp, uint8_t* out) {
  if (bpp == 8) {
    out[0] = out[1] = out[2] = pixel[0];
  } else {
    out[0] = pixel[0], out[1] = pixel[1], out[2] = pixel[2];
  }
}

// `composed` becomes `picture` at 32 bits per pixel with the alpha of each
// pixel taken from the first byte of the mask pixel at the same relative
// position, by nearest neighbour: the mask is sampled, not scaled.
bool ComposeMaskAlpha(const ATL::CImage& picture, const char* maskPath, ATL::CImage& composed) {
  ATL::CImage mask, flippedMask;
  if (!LoadCImageTextureFromFile(maskPath, mask) || !FlipPicture(mask, flippedMask)) return false;
  mask.Destroy();
  const int width = picture.GetWidth(), height = picture.GetHeight();
  const int maskWidth = flippedMask.GetWidth(), maskHeight = flippedMask.GetHeight();
  const float scaleX = static_cast<float>(maskWidth) / static_cast<float>(width);
  const float scaleY = static_cast<float>(maskHeight) / static_cast<float>(height);
  if (!composed.Create(width, height, 32)) return false;
  const platform::PixelSurface from = picture.Surface(), to = composed.Surface(),
                               alpha = flippedMask.Surface();
  const int bpp = picture.GetBPP(), maskBytes = flippedMask.GetBPP() / 8;
  for (int y = 0; y < height; ++y) {
    // The products stay below the mask's size; the bound only guards
    // against a float rounding up onto it.
    const int my = std::min(static_cast<int>(static_cast<float>(y) * scaleY), maskHeight - 1);
    for (int x = 0; x < width; ++x) {
      const int mx = std::min(static_cast<int>(static_cast<float>(x) * scaleX), maskWidth - 1);
      uint8_t* target = to.Row(y) + 4 * x;
      ColourBytes(from.Row(y) + x * (bpp / 8), bpp, target);
      target[3] = alpha.Row(my)[mx * maskBytes];
    }
  }
  return true;
}

bool HasTranslucentPixel(const ATL::CImage& picture) {
  const platform::PixelSurface surface = picture.Surface();
  for (int y = 0; y < surface.height; ++y)
    for (int x = 0; x < surface.width; ++x)
      if (surface.Row(y)[4 * x + 3] < 255) return true;
  return false;
}

// `keyed` becomes `picture` at 32 bits per pixel, with every pixel of the
// colour of the picture's top left pixel (row height - 1 after the flip)
// made transparent black and every other pixel opaque.
bool ApplyColourKey(const ATL::CImage& picture, ATL::CImage& keyed) {
  const int width = picture.GetWidth(), height = picture.GetHeight(), bpp = picture.GetBPP();
  if (!keyed.Create(width, height, 32)) return false;
  const platform::PixelSurface from = picture.Surface(), to = keyed.Surface();
  uint8_t key[3];
  ColourBytes(from.Row(height - 1), bpp, key);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      uint8_t* target = to.Row(y) + 4 * x;
      ColourBytes(from.Row(y) + x * (bpp / 8), bpp, target);
      const bool isKey = target[0] == key[0] && target[1] == key[1] && target[2] == key[2];
      if (isKey)
        target[0] = target[1] = target[2] = target[3] = 0;
      else
        target[3] = 255;
    }
  return true;
}

// The pyramid of a transparent picture, alpha from a mask, the picture's
// own alpha or a colour key, whichever is first usable.
bool BuildTransparentPyramid(SWTexture& texture, const ATL::CImage& picture, const char* maskPath) {
  ATL::CImage composed;
  if (maskPath && ComposeMaskAlpha(picture, maskPath, composed) && BuildTexturePyramid(texture, composed))
    return true;
  composed.Destroy();
  if (picture.GetBPP() == 32 && HasTranslucentPixel(picture)) return BuildTexturePyramid(texture, picture);
  ATL::CImage keyed;
  return ApplyColourKey(picture, keyed) && BuildTexturePyramid(texture, keyed);
}

}  // namespace

SWTexture* TextureRecordForLoad(std::vector<SWTexture*>& textures, unsigned int slot) {
  if (slot >= textures.size()) return nullptr;
  if (!textures[slot]) textures[slot] = new (std::nothrow) SWTexture();
  return textures[slot];
}

bool RT_RENDER_ENGINE::LoadSWTexture(unsigned int slot, const char* path, bool transparent,
                                     const char* maskPath) {
  if (slot >= textures.size() || !path) return false;
  SWTexture* texture = TextureRecordForLoad(textures, slot);
  if (!texture) return false;
  // Emptied first, so that a failed load leaves no old pyramid behind; the
  // old name stays until a load succeeds.
  texture->Clear();
  if (ReadCompressedTextureCache(*texture, path, transparent)) return true;

  ATL::CImage picture, flipped;
  if (!LoadCImageTextureFromFile(path, picture) || !IsTextureDepth(picture.GetBPP())) return false;
  if (!FlipPicture(picture, flipped)) return false;
  picture.Destroy();
  const bool built = transparent ? BuildTransparentPyramid(*texture, flipped, maskPath)
                                 : BuildTexturePyramid(*texture, flipped);
  if (built) texture->name = path;
  return built;
}
