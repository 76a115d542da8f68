#include "platform/SdlWindow.h"

#include <SDL.h>

#include <cstdlib>

namespace platform {

std::unique_ptr<SdlWindow> SdlWindow::Open(const std::string& title, int width, int height,
                                           std::string& error) {
  // Without a display SDL would fall back to drawing off screen, where
  // nobody sees the window and nobody can close it; that happens only when
  // asked for by name.
  const char* driver = std::getenv("SDL_VIDEODRIVER");
  const bool named = driver && *driver;
  if (!named && !std::getenv("DISPLAY") && !std::getenv("WAYLAND_DISPLAY")) {
    error = "no display to open a window on (neither DISPLAY nor WAYLAND_DISPLAY is set)";
    return nullptr;
  }
  // The picture is made on the processor, so the window's own surface is
  // copied to the display as it is (shared memory on X11). SDL would
  // otherwise put a GPU texture behind that surface, which on machines
  // without a GPU (Xvfb, remote X) loads a software OpenGL stack only to
  // copy the same pixels once more. A user's SDL_FRAMEBUFFER_ACCELERATION
  // in the environment still wins.
  SDL_SetHint(SDL_HINT_FRAMEBUFFER_ACCELERATION, "0");
  if (SDL_InitSubSystem(SDL_INIT_VIDEO) != 0) {
    error = std::string("no display to open a window on (") + SDL_GetError() + ")";
    return nullptr;
  }
  const std::string chosen = SDL_GetCurrentVideoDriver();
  if (!named && (chosen == "offscreen" || chosen == "dummy")) {
    SDL_QuitSubSystem(SDL_INIT_VIDEO);
    error = "no display to open a window on (" + chosen + " only)";
    return nullptr;
  }
  SDL_Window* window = SDL_CreateWindow(title.c_str(), SDL_WINDOWPOS_UNDEFINED, SDL_WINDOWPOS_UNDEFINED,
                                        width, height, SDL_WINDOW_RESIZABLE | SDL_WINDOW_SHOWN);
  if (!window) {
    error = std::string("the window could not be opened (") + SDL_GetError() + ")";
    SDL_QuitSubSystem(SDL_INIT_VIDEO);
    return nullptr;
  }
  // A window manager may have given another size than the one asked for.
  SDL_GetWindowSize(window, &width, &height);
  return std::unique_ptr<SdlWindow>(new SdlWindow(window, width, height));
}

SdlWindow::SdlWindow(SDL_Window* window, int width, int height)
    : PictureWindow(width, height), window(window) {}

SdlWindow::~SdlWindow() {
  SDL_DestroyWindow(window);
  SDL_QuitSubSystem(SDL_INIT_VIDEO);
}

uint32_t SdlWindow::Id() const {
  return SDL_GetWindowID(window);
}

void SdlWindow::Present(bool always) {
  // The window's own surface, in whatever 32-bit layout the display has;
  // SDL converts while it copies. No renderer: the picture is made on the
  // processor already, and this works on any display, Xvfb included.
  SDL_Surface* shown = SDL_GetWindowSurface(window);
  if (!shown) return;
  const bool copied = UsePicture(
      [&](const PixelSurface& picture) {
        SDL_FillRect(shown, nullptr, SDL_MapRGB(shown->format, 0, 0, 0));
        if (!picture.Valid()) return;
        SDL_Surface* source =
            SDL_CreateRGBSurfaceWithFormatFrom(picture.firstRow, picture.width, picture.height, 32,
                                               static_cast<int>(picture.pitch), SDL_PIXELFORMAT_ARGB8888);
        if (!source) return;
        // The window shows colour only: alpha is not blended with anything.
        SDL_SetSurfaceBlendMode(source, SDL_BLENDMODE_NONE);
        SDL_BlitSurface(source, nullptr, shown, nullptr);
        SDL_FreeSurface(source);
      },
      always);
  if (copied) SDL_UpdateWindowSurface(window);
}

void SdlWindow::SetTitle(const std::string& title) {
  SDL_SetWindowTitle(window, title.c_str());
}

bool SdlWindow::ReadShown(ATL::CImage& image) {
  SDL_Surface* shown = SDL_GetWindowSurface(window);
  if (!shown || shown->w <= 0 || shown->h <= 0) return false;
  image.Destroy();
  if (!image.Create(shown->w, -shown->h, 32)) return false;
  if (SDL_LockSurface(shown) != 0) return false;
  const int converted =
      SDL_ConvertPixels(shown->w, shown->h, shown->format->format, shown->pixels, shown->pitch,
                        SDL_PIXELFORMAT_ARGB8888, image.GetBits(), image.GetPitch());
  SDL_UnlockSurface(shown);
  // A display without alpha leaves the fourth byte undefined; what is shown
  // is opaque.
  auto* row = static_cast<uint8_t*>(image.GetBits());
  for (int y = 0; y < image.GetHeight(); ++y, row += image.GetPitch())
    for (int x = 0; x < image.GetWidth(); ++x) row[4 * x + 3] = 255;
  return converted == 0;
}

}  // namespace platform
