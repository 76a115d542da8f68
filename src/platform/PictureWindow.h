// A window whose client area is a picture in memory. The engine's workers
// draw into it from their own threads; the thread that owns the window
// reads the picture to show it, changes its size and collects the posted
// messages. Everything is behind one lock, so any thread may call anything.
#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <vector>

#include "platform/Window.h"

namespace platform {

class PictureWindow : public Window {
 public:
  // Opaque black at first. A size too large for memory leaves the window
  // empty, 0 by 0.
  PictureWindow(int width, int height);

  void GetClientRect(RECT& rect) const override;
  bool CanDraw() const override { return true; }
  void DrawLine(POINT from, POINT to, COLORREF color) override;
  void DrawPixels(const PixelSurface& source, RECT sourceRect, RECT destination, bool sourceCopy) override;
  // Kept until TakeMessages; a window that nobody reads grows.
  bool PostMessage(unsigned message, WPARAM wParam, LPARAM lParam) override;

  // A new client size. The picture is kept, scaled to the new size, so that
  // the window shows something sensible until the engine repaints it.
  void Resize(int width, int height);
  // A client pixel as 0xAARRGGBB; 0 outside the client area.
  uint32_t Pixel(int x, int y) const;
  // Hands the picture to `use` under the lock, when it has changed since
  // the last call or `always`; true when `use` was called. `use` must not
  // call back into this window.
  bool UsePicture(const std::function<void(const PixelSurface& picture)>& use, bool always);
  // The messages posted since the last call, oldest first.
  std::vector<PostedMessage> TakeMessages();

 private:
  // Allocates a black picture of the size; false, and 0 by 0, when it
  // does not fit in memory. The caller holds the lock.
  bool Allocate(int width, int height, std::vector<uint8_t>& pixels);
  PixelSurface Surface();

  int width = 0, height = 0;
  mutable std::mutex mutex;
  std::vector<uint8_t> pixels;
  bool changed = true;
  std::vector<PostedMessage> messages;
};

}  // namespace platform
