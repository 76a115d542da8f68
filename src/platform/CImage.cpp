#include "platform/CImage.h"

#include <new>
#include <utility>

namespace ATL {

CImage::~CImage() {
  Destroy();
}

CImage::CImage(CImage&& other) noexcept {
  *this = std::move(other);
}

CImage& CImage::operator=(CImage&& other) noexcept {
  if (this == &other) return *this;
  Destroy();
  pixels = std::move(other.pixels);
  context = std::move(other.context);
  topRow = std::exchange(other.topRow, nullptr);
  width = std::exchange(other.width, 0);
  height = std::exchange(other.height, 0);
  bitsPerPixel = std::exchange(other.bitsPerPixel, 0);
  pitch = std::exchange(other.pitch, 0);
  contextUses = std::exchange(other.contextUses, 0);
  return *this;
}

int CImage::Create(int newWidth, int newHeight, int newBitsPerPixel) {
  if (!IsNull()) return 0;
  if (newBitsPerPixel != 8 && newBitsPerPixel != 24 && newBitsPerPixel != 32) return 0;
  // Both sides are limited to 16 bits, which keeps every product below in
  // 64-bit range and every row pitch within an int.
  const bool bottomUp = newHeight > 0;
  const int64_t rows = bottomUp ? int64_t{newHeight} : -int64_t{newHeight};
  if (newWidth <= 0 || newWidth > 65535 || rows == 0 || rows > 65535) return 0;
  const int64_t rowBytes = (int64_t{newWidth} * newBitsPerPixel + 31) / 32 * 4;
  const int64_t bytes = rowBytes * rows;
  if (static_cast<uint64_t>(bytes) > MaxPixelBytes) return 0;

  pixels.reset(new (std::nothrow) uint8_t[static_cast<size_t>(bytes)]());
  if (!pixels) return 0;
  width = newWidth;
  height = static_cast<int>(rows);
  bitsPerPixel = newBitsPerPixel;
  pitch = static_cast<int>(bottomUp ? -rowBytes : rowBytes);
  topRow = bottomUp ? pixels.get() + (rows - 1) * rowBytes : pixels.get();
  return 1;
}

void CImage::Destroy() {
  pixels.reset();
  context.reset();
  contextUses = 0;
  topRow = nullptr;
  width = height = bitsPerPixel = pitch = 0;
}

HDC CImage::GetDC() const {
  if (IsNull()) return nullptr;
  if (!context) {
    context.reset(new (std::nothrow) platform::DeviceContext());
    if (!context) return nullptr;
    ResetContext();
  }
  ++contextUses;
  return context.get();
}

void CImage::ReleaseDC() const {
  if (contextUses == 0) return;
  // The last release ends the context's drawing state, so the next GetDC
  // starts with the default pen and position. The object itself lives on
  // with the image, so a stale HDC still points at valid memory.
  if (--contextUses == 0) ResetContext();
}

void CImage::ResetContext() const {
  *context = platform::DeviceContext();
  context->surface = Surface();
}

platform::PixelSurface CImage::Surface() const {
  platform::PixelSurface surface;
  if (IsNull()) return surface;
  surface.width = width;
  surface.height = height;
  surface.bitsPerPixel = bitsPerPixel;
  surface.firstRow = topRow;
  surface.pitch = pitch;
  return surface;
}

}  // namespace ATL
