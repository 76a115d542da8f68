// The host's image object: a device-independent bitmap of 8, 24 or 32 bits
// per pixel with a drawing context onto its pixels.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "platform/DeviceContext.h"
#include "platform/WindowsTypes.h"

namespace ATL {

class CImage {
 public:
  // Above this many bytes of pixels an image is refused, so that a wrong
  // or hostile size fails cleanly instead of exhausting memory.
  static constexpr size_t MaxPixelBytes = size_t{1} << 30;

  CImage() = default;
  ~CImage();
  CImage(const CImage&) = delete;
  CImage& operator=(const CImage&) = delete;
  CImage(CImage&& other) noexcept;
  CImage& operator=(CImage&& other) noexcept;

  // Makes a zeroed image; 8 bits per pixel is one grey byte, without a
  // palette. A positive height stores the bottom row first, as a DIB does,
  // so the pitch is negative; a negative height stores the top row first.
  // Non-zero on success; 0 for a bad size or depth, when memory runs out,
  // or when this image already holds a bitmap.
  int Create(int width, int height, int bitsPerPixel);
  // Releases the bitmap and its drawing context.
  void Destroy();
  bool IsNull() const { return pixels == nullptr; }

  int GetWidth() const { return width; }
  int GetHeight() const { return height; }
  int GetBPP() const { return bitsPerPixel; }
  // The top row as the picture is shown; null without a bitmap.
  void* GetBits() { return topRow; }
  const void* GetBits() const { return topRow; }
  // Signed bytes from one shown row to the next below it. Rows are padded
  // to a multiple of 4 bytes.
  int GetPitch() const { return pitch; }

  // A drawing context onto the pixels, owned by this image; null without a
  // bitmap. Calls nest: each GetDC wants one ReleaseDC.
  HDC GetDC() const;
  void ReleaseDC() const;

  platform::PixelSurface Surface() const;

 private:
  void ResetContext() const;

  std::unique_ptr<uint8_t[]> pixels;
  uint8_t* topRow = nullptr;
  int width = 0;
  int height = 0;
  int bitsPerPixel = 0;
  int pitch = 0;
  // The context keeps a fixed address for the image's life, also across
  // moves, because callers hold it as an HDC.
  mutable std::unique_ptr<platform::DeviceContext> context;
  mutable int contextUses = 0;
};

}  // namespace ATL
