#include "textures/TexturePictures.h"

#include <cstring>

#include "platform/Gdi.h"

bool FlipPicture(const ATL::CImage& source, ATL::CImage& target) {
  if (source.IsNull() || !IsTextureDepth(source.GetBPP())) return false;
  const int width = source.GetWidth(), height = source.GetHeight();
  if (!target.Create(width, height, source.GetBPP())) return false;
  const platform::PixelSurface from = source.Surface(), to = target.Surface();
  const size_t rowBytes = static_cast<size_t>(width) * (source.GetBPP() / 8);
  for (int y = 0; y < height; ++y) std::memcpy(to.Row(y), from.Row(height - 1 - y), rowBytes);
  return true;
}

bool StretchPicture(const ATL::CImage& source, ATL::CImage& target, int width, int height) {
  if (source.IsNull() || !target.Create(width, height, source.GetBPP())) return false;
  HDC targetContext = target.GetDC();
  HDC sourceContext = source.GetDC();
  const bool stretched = StretchBlt(targetContext, 0, 0, width, height, sourceContext, 0, 0,
                                    source.GetWidth(), source.GetHeight(), SRCCOPY);
  if (sourceContext) source.ReleaseDC();
  if (targetContext) target.ReleaseDC();
  return stretched;
}

bool MakeGreyPicture(const ATL::CImage& source, ATL::CImage& target) {
  const int bpp = source.GetBPP();
  if (source.IsNull() || !IsTextureDepth(bpp)) return false;
  if (!target.Create(source.GetWidth(), source.GetHeight(), bpp)) return false;
  const platform::PixelSurface from = source.Surface(), to = target.Surface();
  const int bytesPerPixel = bpp / 8;
  for (int y = 0; y < from.height; ++y) {
    const uint8_t* s = from.Row(y);
    uint8_t* t = to.Row(y);
    for (int x = 0; x < from.width; ++x, s += bytesPerPixel, t += bytesPerPixel) {
      if (bpp == 8) {
        t[0] = s[0];
        continue;
      }
      const uint8_t grey = static_cast<uint8_t>((s[0] + s[1] + s[2]) / 3);
      t[0] = t[1] = t[2] = grey;
      if (bpp == 32) t[3] = s[3];
    }
  }
  return true;
}
