// The SDL window of brindlex-view. What the engine draws into it goes
// through the pixel transfers of tests/platform; the engine's frame follows
// a resize in view_loop_test.
#include <gtest/gtest.h>

#include <cstdlib>

#include "platform/GdiPlus.h"
#include "platform/SdlWindow.h"

namespace {

constexpr uint32_t Black = 0xFF000000;

// A picture whose pixel (x, y) has blue x, green y and red 200.
std::unique_ptr<Gdiplus::Bitmap> Gradient(int width, int height) {
  auto bitmap = std::make_unique<Gdiplus::Bitmap>(width, height, Gdiplus::PixelFormat32bppARGB);
  const platform::PixelSurface s = bitmap->Surface();
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      uint8_t* p = s.Row(y) + 4 * x;
      p[0] = uint8_t(x), p[1] = uint8_t(y), p[2] = 200, p[3] = 255;
    }
  return bitmap;
}

uint32_t GradientPixel(int x, int y) {
  return 0xFFC80000u | uint32_t(y) << 8 | uint32_t(x);
}

// SDL's off-screen driver stands in for a display: the window is real to
// SDL, its pixels are only not on a screen.
TEST(SdlWindow, ShowsThePictureAtItsPixels) {
  setenv("SDL_VIDEODRIVER", "offscreen", 1);
  std::string error;
  auto window = platform::SdlWindow::Open("test", 40, 30, error);
  unsetenv("SDL_VIDEODRIVER");
  if (!window) GTEST_SKIP() << "SDL has no off-screen driver here: " << error;
  window->DrawLine({2, 3}, {6, 3}, 0x00FF00);
  const auto frame = Gradient(40, 30);
  window->DrawPixels(frame->Surface(), {10, 10, 20, 20}, {10, 10, 20, 20}, true);
  window->Present(false);
  ATL::CImage shown;
  ASSERT_TRUE(window->ReadShown(shown));
  ASSERT_EQ(shown.GetWidth(), 40);
  ASSERT_EQ(shown.GetHeight(), 30);
  auto pixel = [&](int x, int y) {
    const uint8_t* p = static_cast<const uint8_t*>(shown.GetBits()) + y * shown.GetPitch() + 4 * x;
    return p[0] | p[1] << 8 | p[2] << 16 | uint32_t(p[3]) << 24;
  };
  for (int x = 2; x < 6; ++x) EXPECT_EQ(pixel(x, 3), 0xFF00FF00u) << x;
  EXPECT_EQ(pixel(6, 3), Black);
  EXPECT_EQ(pixel(10, 10), GradientPixel(10, 10));
  EXPECT_EQ(pixel(19, 19), GradientPixel(19, 19));
  EXPECT_EQ(pixel(20, 20), Black);
}

}  // namespace
