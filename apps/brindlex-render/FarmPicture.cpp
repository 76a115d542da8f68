#include "FarmPicture.h"

#include <cstring>
#include <new>

#include "host/BrindlexTexture.h"
#include "platform/GdiPlus.h"
#include "pipeline/HDRPictureFile.h"
#include "pipeline/PictureSave.h"
#include "pipeline/ToneMapping.h"

FarmPicture::FarmPicture(uint32_t width, uint32_t height, const MODE_RENDER_OPTIONS& options, bool keepAlpha)
    : width(width), height(height), options(options), keepAlpha(keepAlpha) {
  try {
    mean.assign(size_t(width) * height, SCENE_VERTEX_XYZW{});
  } catch (const std::bad_alloc&) {
    return;
  }
  bitmap.reset(new (std::nothrow) Gdiplus::Bitmap(int(width), int(height), Gdiplus::PixelFormat32bppARGB));
}

FarmPicture::~FarmPicture() = default;

bool FarmPicture::Valid() const {
  return bitmap && bitmap->GetLastStatus() == Gdiplus::Ok && mean.size() == size_t(width) * height;
}

void FarmPicture::Blend(const FarmTile& tile, uint64_t pass, const SCENE_VERTEX_XYZW* samples) {
  if (!Valid() || tile.x + tile.width > width || tile.y + tile.height > height) return;
  const PixelFinishRules rules = {pass, keepAlpha};
  const Gdiplus::Rect rect(int(tile.x), int(tile.y), int(tile.width), int(tile.height));
  Gdiplus::BitmapData bits;
  if (bitmap->LockBits(&rect, Gdiplus::ImageLockModeWrite, Gdiplus::PixelFormat32bppARGB, &bits) !=
      Gdiplus::Ok)
    return;
  size_t k = 0;
  for (uint32_t column = 0; column < tile.width; ++column) {
    for (uint32_t row = 0; row < tile.height; ++row, ++k) {
      SCENE_VERTEX_XYZW& value = mean[size_t(tile.y + row) * width + tile.x + column];
      BlendIntoRunningMean(samples[k], value, rules);
      WriteBitmapPixel(value, options, rules,
                       static_cast<uint8_t*>(bits.Scan0) + ptrdiff_t(row) * bits.Stride + size_t(column) * 4);
    }
  }
  bitmap->UnlockBits(&bits);
}

int FarmPicture::Save(const std::string& name) {
  if (!Valid()) return 2;
  // An OpenEXR picture holds the running mean itself, before the tone map,
  // as a single engine writes it.
  if (IsEXRFile(name.c_str()))
    return SaveHDRPicture(name.c_str(), mean.data(), width, height, keepAlpha) ? 0 : 1;
  return SavePicture(name.c_str(), *bitmap);
}

uint32_t FarmPicture::Pixel(uint32_t x, uint32_t y) {
  const Gdiplus::Rect rect(int(x), int(y), 1, 1);
  Gdiplus::BitmapData bits;
  if (!Valid() || bitmap->LockBits(&rect, Gdiplus::ImageLockModeRead, Gdiplus::PixelFormat32bppARGB, &bits) !=
                      Gdiplus::Ok)
    return 0;
  uint32_t pixel = 0;
  std::memcpy(&pixel, bits.Scan0, sizeof pixel);
  bitmap->UnlockBits(&bits);
  return pixel;
}
