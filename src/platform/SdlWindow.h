// A window on the screen, through SDL2. It is a PictureWindow: the engine's
// workers draw into the picture in memory from any thread, and the thread
// that opened the window shows it. SDL itself is called from that one
// thread only, as SDL wants, so every member below beyond the Window
// interface belongs to it.
#pragma once

#include <memory>
#include <string>

#include "platform/CImage.h"
#include "platform/PictureWindow.h"

struct SDL_Window;

namespace platform {

class SdlWindow : public PictureWindow {
 public:
  // A resizable window with a client area of the size, shown at once. Null,
  // with a one-line reason, when there is no display or SDL fails.
  static std::unique_ptr<SdlWindow> Open(const std::string& title, int width, int height, std::string& error);
  ~SdlWindow() override;
  SdlWindow(const SdlWindow&) = delete;
  SdlWindow& operator=(const SdlWindow&) = delete;

  // SDL's number of this window, to tell its events from others.
  uint32_t Id() const;
  // Shows the picture when it changed since it was last shown, or `always`
  // (after the window was uncovered).
  void Present(bool always);
  void SetTitle(const std::string& title);
  // What the window shows, as a 32-bit image, top row first; false when it
  // can't be read.
  bool ReadShown(ATL::CImage& image);

 private:
  SdlWindow(SDL_Window* window, int width, int height);

  SDL_Window* window;
};

}  // namespace platform
