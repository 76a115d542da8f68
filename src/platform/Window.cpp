#include "platform/Window.h"

#include <algorithm>
#include <new>
#include <utility>

#include "platform/Gdi.h"

namespace platform {

NullWindow::NullWindow(int width, int height, MessageReceiver receiver)
    : width(std::max(width, 0)), height(std::max(height, 0)), receiver(std::move(receiver)) {}

void NullWindow::GetClientRect(RECT& rect) const {
  rect = {0, 0, width, height};
}

bool NullWindow::PostMessage(unsigned message, WPARAM wParam, LPARAM lParam) {
  if (receiver) receiver(message, wParam, lParam);
  return true;  // the window exists and took the message, even to drop it
}

RecordingWindow::RecordingWindow(int width, int height)
    : width(std::max(width, 0)), height(std::max(height, 0)) {
  static constexpr uint8_t opaqueBlack[4] = {0, 0, 0, 255};
  try {
    pixels.resize(static_cast<size_t>(this->width) * static_cast<size_t>(this->height) * 4);
  } catch (const std::bad_alloc&) {
    this->width = this->height = 0;
  } catch (const std::length_error&) {
    this->width = this->height = 0;
  }
  for (size_t i = 0; i < pixels.size(); ++i) pixels[i] = opaqueBlack[i % 4];
}

void RecordingWindow::GetClientRect(RECT& rect) const {
  rect = {0, 0, width, height};
}

PixelSurface RecordingWindow::Surface() {
  return PixelSurface{width, height, 32, pixels.data(), static_cast<ptrdiff_t>(width) * 4};
}

void RecordingWindow::DrawLine(POINT from, POINT to, COLORREF color) {
  std::lock_guard guard(mutex);
  events.emplace_back(DrawnLine{from, to, color});
  DrawSurfaceLine(Surface(), from, to, color);
}

void RecordingWindow::DrawPixels(const PixelSurface& source, RECT sourceRect, RECT destination,
                                 bool sourceCopy) {
  std::lock_guard guard(mutex);
  events.emplace_back(DrawnPixels{sourceRect, destination, sourceCopy});
  TransferPixels(source, sourceRect, Surface(), destination, sourceCopy);
}

bool RecordingWindow::PostMessage(unsigned message, WPARAM wParam, LPARAM lParam) {
  std::lock_guard guard(mutex);
  events.emplace_back(PostedMessage{message, wParam, lParam});
  return true;
}

uint32_t RecordingWindow::Pixel(int x, int y) const {
  std::lock_guard guard(mutex);
  if (x < 0 || y < 0 || x >= width || y >= height) return 0;
  const uint8_t* p = &pixels[(static_cast<size_t>(y) * width + x) * 4];
  return p[0] | p[1] << 8 | p[2] << 16 | static_cast<uint32_t>(p[3]) << 24;
}

std::vector<uint8_t> RecordingWindow::Pixels() const {
  std::lock_guard guard(mutex);
  return pixels;
}

std::vector<WindowEvent> RecordingWindow::Events() const {
  std::lock_guard guard(mutex);
  return events;
}

void RecordingWindow::ClearEvents() {
  std::lock_guard guard(mutex);
  events.clear();
}

}  // namespace platform
