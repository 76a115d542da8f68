// What an HDC points at. A context draws either onto a window, through the
// window's own drawing operations, or straight into the pixels of an image.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/WindowsTypes.h"

namespace platform {

// A view of pixel memory: 8, 24 or 32 bits per pixel, bytes of a pixel in
// the order blue, green, red, alpha (one grey byte at 8 bits). `firstRow` is
// the top row as the picture is shown and `pitch` the signed distance in
// bytes to the next row.
struct PixelSurface {
  int width = 0;
  int height = 0;
  int bitsPerPixel = 0;
  uint8_t* firstRow = nullptr;
  ptrdiff_t pitch = 0;

  bool Valid() const { return firstRow != nullptr && width > 0 && height > 0; }
  uint8_t* Row(int y) const { return firstRow + y * pitch; }
};

struct DeviceContext {
  Window* window = nullptr;  // set: drawing goes to this window
  PixelSurface surface;      // otherwise: drawing goes into these pixels
  COLORREF pen = 0;          // colour of lines, as selected by a pen
  POINT position{0, 0};      // current position for LineTo
};

}  // namespace platform
