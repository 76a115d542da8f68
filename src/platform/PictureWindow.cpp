#include "platform/PictureWindow.h"

#include <algorithm>
#include <new>
#include <stdexcept>
#include <utility>

#include "platform/Gdi.h"

namespace platform {

PictureWindow::PictureWindow(int width, int height) {
  if (Allocate(width, height, pixels)) this->width = width, this->height = height;
}

bool PictureWindow::Allocate(int width, int height, std::vector<uint8_t>& pixels) {
  try {
    pixels.assign(static_cast<size_t>(std::max(width, 0)) * static_cast<size_t>(std::max(height, 0)) * 4, 0);
  } catch (const std::bad_alloc&) {
    pixels.clear();
    return false;
  } catch (const std::length_error&) {
    pixels.clear();
    return false;
  }
  for (size_t i = 3; i < pixels.size(); i += 4) pixels[i] = 255;  // opaque black
  return true;
}

PixelSurface PictureWindow::Surface() {
  return PixelSurface{width, height, 32, pixels.data(), static_cast<ptrdiff_t>(width) * 4};
}

void PictureWindow::GetClientRect(RECT& rect) const {
  std::lock_guard guard(mutex);
  rect = {0, 0, width, height};
}

void PictureWindow::DrawLine(POINT from, POINT to, COLORREF color) {
  std::lock_guard guard(mutex);
  DrawSurfaceLine(Surface(), from, to, color);
  changed = true;
}

void PictureWindow::DrawPixels(const PixelSurface& source, RECT sourceRect, RECT destination,
                               bool sourceCopy) {
  std::lock_guard guard(mutex);
  if (TransferPixels(source, sourceRect, Surface(), destination, sourceCopy)) changed = true;
}

bool PictureWindow::PostMessage(unsigned message, WPARAM wParam, LPARAM lParam) {
  std::lock_guard guard(mutex);
  messages.push_back({message, wParam, lParam});
  return true;
}

void PictureWindow::Resize(int newWidth, int newHeight) {
  std::lock_guard guard(mutex);
  if (newWidth == width && newHeight == height) return;
  std::vector<uint8_t> resized;
  const bool allocated = Allocate(newWidth, newHeight, resized);
  const PixelSurface old = Surface();
  width = allocated ? std::max(newWidth, 0) : 0;
  height = allocated ? std::max(newHeight, 0) : 0;
  const PixelSurface target{width, height, 32, resized.data(), static_cast<ptrdiff_t>(width) * 4};
  if (old.Valid() && target.Valid())
    TransferPixels(old, {0, 0, old.width, old.height}, target, {0, 0, width, height}, true);
  pixels = std::move(resized);
  changed = true;
}

uint32_t PictureWindow::Pixel(int x, int y) const {
  std::lock_guard guard(mutex);
  if (x < 0 || y < 0 || x >= width || y >= height) return 0;
  const uint8_t* p = &pixels[(static_cast<size_t>(y) * width + x) * 4];
  return p[0] | p[1] << 8 | p[2] << 16 | static_cast<uint32_t>(p[3]) << 24;
}

bool PictureWindow::UsePicture(const std::function<void(const PixelSurface& picture)>& use, bool always) {
  std::lock_guard guard(mutex);
  if (!changed && !always) return false;
  changed = false;
  use(Surface());
  return true;
}

std::vector<PostedMessage> PictureWindow::TakeMessages() {
  std::lock_guard guard(mutex);
  return std::exchange(messages, {});
}

}  // namespace platform
