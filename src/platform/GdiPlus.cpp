#include "platform/GdiPlus.h"

#include <array>
#include <climits>
#include <cstring>
#include <map>
#include <mutex>
#include <optional>

#include "platform/Gdi.h"
#include "platform/TextConversion.h"

namespace Gdiplus {
namespace {

static_assert(sizeof(CLSID) == 16, "a class identifier is 16 bytes without padding");
using ClsidKey = std::array<uint8_t, 16>;

ClsidKey KeyOf(const CLSID& clsid) {
  ClsidKey key;
  std::memcpy(key.data(), &clsid, key.size());
  return key;
}

struct EncoderRegistry {
  std::mutex mutex;
  std::map<ClsidKey, ImageEncoderFunction> encoders;
};

EncoderRegistry& Registry() {
  static EncoderRegistry registry;
  return registry;
}

ImageEncoderFunction FindEncoder(const CLSID& clsid) {
  EncoderRegistry& registry = Registry();
  std::lock_guard guard(registry.mutex);
  const auto found = registry.encoders.find(KeyOf(clsid));
  return found == registry.encoders.end() ? nullptr : found->second;
}

}  // namespace

void RegisterImageEncoder(const CLSID& clsid, ImageEncoderFunction encoder) {
  EncoderRegistry& registry = Registry();
  std::lock_guard guard(registry.mutex);
  if (encoder)
    registry.encoders[KeyOf(clsid)] = encoder;
  else
    registry.encoders.erase(KeyOf(clsid));
}

Image::Image(int width, int height, PixelFormat format) {
  if (format != PixelFormat32bppARGB || width <= 0 || height <= 0 || width > INT_MAX / 4 / height) {
    status = InvalidParameter;
    return;
  }
  // calloc rather than new: large zeroed blocks come straight from the
  // system, already zero, without being written page by page.
  pixels.reset(
      static_cast<uint8_t*>(std::calloc(static_cast<size_t>(width) * 4, static_cast<size_t>(height))));
  if (!pixels) {
    status = OutOfMemory;
    return;
  }
  this->width = width;
  this->height = height;
}

platform::PixelSurface Image::Surface() const {
  if (!pixels) return {};
  return platform::PixelSurface{width, height, 32, pixels.get(), static_cast<ptrdiff_t>(width) * 4};
}

Status Image::Save(const wchar_t* fileName, const CLSID* clsid, const void*) {
  if (!fileName || !clsid) return InvalidParameter;
  if (!pixels) return status;
  if (locked) return WrongState;
  const ImageEncoderFunction encoder = FindEncoder(*clsid);
  if (!encoder) return UnknownImageFormat;
  const std::optional<std::string> name = platform::WideToUtf8(fileName);
  if (!name || name->empty()) return InvalidParameter;
  const platform::PixelSurface surface = Surface();
  int encoded = -1;
  const bool saved = platform::WriteFileThroughTemporary(
      name->c_str(), false, [&](const char* temporary) { return encoder(temporary, surface); }, &encoded);
  if (saved) return Ok;
  return encoded == 0 ? GenericError : Win32Error;
}

Status Bitmap::LockBits(const Rect* rect, unsigned flags, PixelFormat format, BitmapData* data) {
  const platform::PixelSurface surface = Surface();
  if (!data) return InvalidParameter;
  if (!surface.Valid()) return GetLastStatus();
  if (locked) return WrongState;
  const unsigned knownFlags = ImageLockModeRead | ImageLockModeWrite | ImageLockModeUserInputBuf;
  if (format != PixelFormat32bppARGB || (flags & ~knownFlags) ||
      !(flags & (ImageLockModeRead | ImageLockModeWrite)))
    return InvalidParameter;
  const Rect area = rect ? *rect : Rect(0, 0, surface.width, surface.height);
  if (area.Width <= 0 || area.Height <= 0 || area.X < 0 || area.Y < 0 ||
      area.X > surface.width - area.Width || area.Y > surface.height - area.Height)
    return InvalidParameter;
  const bool userBuffer = flags & ImageLockModeUserInputBuf;
  if (userBuffer && (!data->Scan0 || std::abs(int64_t{data->Stride}) < int64_t{area.Width} * 4))
    return InvalidParameter;
  lockedData.Width = static_cast<unsigned>(area.Width);
  lockedData.Height = static_cast<unsigned>(area.Height);
  lockedData.PixelFormat = format;
  lockedData.Stride = userBuffer ? data->Stride : static_cast<int>(surface.pitch);
  lockedData.Scan0 = userBuffer ? data->Scan0 : surface.Row(area.Y) + static_cast<ptrdiff_t>(area.X) * 4;
  *data = lockedData;
  lockedRect = area;
  lockedFlags = flags;
  locked = true;
  if (userBuffer && (flags & ImageLockModeRead)) CopyLockedRows(false);
  return Ok;
}

Status Bitmap::UnlockBits(BitmapData* data) {
  if (!data) return InvalidParameter;
  if (!locked) return WrongState;
  if ((lockedFlags & ImageLockModeUserInputBuf) && (lockedFlags & ImageLockModeWrite)) CopyLockedRows(true);
  locked = false;
  return Ok;
}

void Bitmap::CopyLockedRows(bool intoImage) {
  const platform::PixelSurface surface = Surface();
  const size_t rowBytes = static_cast<size_t>(lockedRect.Width) * 4;
  for (int r = 0; r < lockedRect.Height; ++r) {
    uint8_t* image = surface.Row(lockedRect.Y + r) + static_cast<ptrdiff_t>(lockedRect.X) * 4;
    uint8_t* user = static_cast<uint8_t*>(lockedData.Scan0) + static_cast<ptrdiff_t>(r) * lockedData.Stride;
    std::memcpy(intoImage ? image : user, intoImage ? user : image, rowBytes);
  }
}

Graphics::Graphics(HDC dc) : dc(dc), status(dc ? Ok : InvalidParameter) {}

Graphics::Graphics(Image* image) : target(image), status(image && image->pixels ? Ok : InvalidParameter) {}

Status Graphics::SetCompositingMode(CompositingMode compositingMode) {
  if (compositingMode != CompositingModeSourceOver && compositingMode != CompositingModeSourceCopy)
    return InvalidParameter;
  mode = compositingMode;
  return Ok;
}

Status Graphics::DrawImage(Image* image, int x, int y, int width, int height) {
  RECT destination;
  if (!image || !platform::RectFromSize(x, y, width, height, destination)) return InvalidParameter;
  const RECT whole{0, 0, static_cast<int32_t>(image->GetWidth()), static_cast<int32_t>(image->GetHeight())};
  return Draw(image, whole, destination);
}

Status Graphics::DrawImage(Image* image, int x, int y, int sourceX, int sourceY, int sourceWidth,
                           int sourceHeight, Unit sourceUnit) {
  RECT sourceRect, destination;
  if (sourceUnit != UnitPixel ||
      !platform::RectFromSize(sourceX, sourceY, sourceWidth, sourceHeight, sourceRect) ||
      !platform::RectFromSize(x, y, sourceWidth, sourceHeight, destination))
    return InvalidParameter;
  return Draw(image, sourceRect, destination);
}

Status Graphics::Draw(Image* image, const RECT& sourceRect, const RECT& destination) {
  if (status != Ok) return status;
  if (!image || !image->pixels || image == target) return InvalidParameter;
  if (image->locked || (target && target->locked)) return WrongState;
  const bool sourceCopy = mode == CompositingModeSourceCopy;
  const platform::PixelSurface source = image->Surface();
  if (!target && dc->window) {
    dc->window->DrawPixels(source, sourceRect, destination, sourceCopy);
    return Ok;
  }
  const platform::PixelSurface surface = target ? target->Surface() : dc->surface;
  return platform::TransferPixels(source, sourceRect, surface, destination, sourceCopy) ? Ok
                                                                                        : InvalidParameter;
}

}  // namespace Gdiplus
