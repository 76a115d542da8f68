// Images, pixel locking, drawing and saving as the engine uses them, in the
// names of GDI+. There is nothing to start or shut down: every object works
// from its construction on.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>

#include "platform/DeviceContext.h"
#include "platform/WindowsTypes.h"

namespace Gdiplus {

using CLSID = GUID;

enum Status {
  Ok = 0,
  GenericError = 1,
  InvalidParameter = 2,
  OutOfMemory = 3,
  ObjectBusy = 4,
  InsufficientBuffer = 5,
  NotImplemented = 6,
  Win32Error = 7,
  WrongState = 8,
  Aborted = 9,
  FileNotFound = 10,
  ValueOverflow = 11,
  AccessDenied = 12,
  UnknownImageFormat = 13,
};

using PixelFormat = int;
// 32 bits a pixel: blue, green, red and alpha bytes, alpha not premultiplied.
constexpr PixelFormat PixelFormat32bppARGB = 0x26200A;

enum ImageLockMode { ImageLockModeRead = 1, ImageLockModeWrite = 2, ImageLockModeUserInputBuf = 4 };
enum Unit { UnitWorld = 0, UnitDisplay = 1, UnitPixel = 2 };
enum CompositingMode { CompositingModeSourceOver = 0, CompositingModeSourceCopy = 1 };

struct Rect {
  Rect() = default;
  Rect(int x, int y, int width, int height) : X(x), Y(y), Width(width), Height(height) {}
  int X = 0, Y = 0, Width = 0, Height = 0;
};

struct BitmapData {
  unsigned Width = 0;
  unsigned Height = 0;
  int Stride = 0;
  Gdiplus::PixelFormat PixelFormat = 0;
  void* Scan0 = nullptr;
  uintptr_t Reserved = 0;
};

// An encoder writes a picture file of the pixels to the UTF-8 name it is
// given and answers whether it succeeded.
using ImageEncoderFunction = bool (*)(const char* utf8FileName, const platform::PixelSurface& pixels);
// Makes `encoder` the one that Image::Save uses for `clsid`; a later call
// for the same identifier replaces it, a null encoder removes it. Safe to
// call from any thread.
void RegisterImageEncoder(const CLSID& clsid, ImageEncoderFunction encoder);

class Graphics;

// Pixels in memory, 32-bit ARGB, top row first, rows without padding.
class Image {
 public:
  virtual ~Image() = default;
  Image(const Image&) = delete;
  Image& operator=(const Image&) = delete;

  // Why the image has no pixels, or Ok.
  Status GetLastStatus() const { return status; }
  unsigned GetWidth() const { return pixels ? static_cast<unsigned>(width) : 0; }
  unsigned GetHeight() const { return pixels ? static_cast<unsigned>(height) : 0; }
  PixelFormat GetPixelFormat() const { return PixelFormat32bppARGB; }
  // The pixels as a surface; an empty one when there are none.
  platform::PixelSurface Surface() const;

  // Writes the picture to a temporary file beside `fileName` with the
  // encoder registered for `encoder`, then gives it the name, so that a
  // failure leaves any old file as it was. The encoders of this system have
  // fixed settings: `parameters` is not read.
  Status Save(const wchar_t* fileName, const CLSID* encoder, const void* parameters = nullptr);

 protected:
  // See Bitmap's constructor.
  Image(int width, int height, PixelFormat format);
  // A locked image can be neither drawn, drawn on nor saved.
  bool locked = false;

 private:
  friend class Graphics;
  struct FreePixels {
    void operator()(uint8_t* p) const { std::free(p); }
  };
  int width = 0, height = 0;
  std::unique_ptr<uint8_t[], FreePixels> pixels;
  Status status = Ok;
};

class Bitmap : public Image {
 public:
  // Zeroed pixels: black, fully transparent. Only the 32-bit ARGB format
  // is offered. Another format, a size that is not positive, or more than
  // 2^31 - 1 bytes of pixels (so that a row offset computed in int by a
  // caller of LockBits cannot overflow) leaves the bitmap empty with
  // InvalidParameter, and a failed allocation with OutOfMemory.
  Bitmap(int width, int height, PixelFormat format) : Image(width, height, format) {}

  // Access to a rectangle, the whole image for a null `rect`, in 32-bit
  // ARGB. Without ImageLockModeUserInputBuf, `data->Scan0` points straight
  // into the pixels; with it, the caller's `Scan0` and `Stride` name a
  // buffer that a read lock fills and a write lock's UnlockBits copies
  // back. One lock at a time.
  Status LockBits(const Rect* rect, unsigned flags, PixelFormat format, BitmapData* data);
  Status UnlockBits(BitmapData* data);

 private:
  void CopyLockedRows(bool intoImage);

  Rect lockedRect;
  unsigned lockedFlags = 0;
  BitmapData lockedData;
};

// A drawing surface on a window, on an image's device context or on an
// image. Drawing is clipped to the surface and scaled by nearest neighbour
// (see platform::NearestSourceIndex), so an image drawn twice its size
// shows each pixel as a 2 by 2 square.
class Graphics {
 public:
  explicit Graphics(HDC dc);
  // Onto the image itself; an image can't be drawn onto itself.
  explicit Graphics(Image* image);

  Status GetLastStatus() const { return status; }
  CompositingMode GetCompositingMode() const { return mode; }
  Status SetCompositingMode(CompositingMode compositingMode);

  // The whole image, scaled into the rectangle.
  Status DrawImage(Image* image, int x, int y, int width, int height);
  // The rectangle `sourceX`, `sourceY`, `sourceWidth`, `sourceHeight` of the
  // image at (x, y), pixel for pixel. Only UnitPixel is known.
  Status DrawImage(Image* image, int x, int y, int sourceX, int sourceY, int sourceWidth, int sourceHeight,
                   Unit sourceUnit);

 private:
  Status Draw(Image* image, const RECT& sourceRect, const RECT& destination);

  HDC dc = nullptr;
  Image* target = nullptr;
  CompositingMode mode = CompositingModeSourceOver;
  Status status = Ok;
};

}  // namespace Gdiplus
