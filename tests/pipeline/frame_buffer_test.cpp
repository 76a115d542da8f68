#include <gtest/gtest.h>

#include "TestDoubles.h"

#include "host/BrindlexViewModel.h"
#include "engine/BrindlexViewRTRenderEngine.h"
#include "platform/CImage.h"
#include "PipelineTestAccess.h"
#include "platform/Window.h"

namespace {

// A recording window whose client area the test can change, as a user
// drags the window's frame.
class ResizableWindow : public platform::RecordingWindow {
 public:
  ResizableWindow(int width, int height) : RecordingWindow(64, 64), client{0, 0, width, height} {}
  void GetClientRect(RECT& rect) const override { rect = client; }
  RECT client;
};

constexpr uint32_t Red = 0xFFFF0000, Green = 0xFF00FF00, Blue = 0xFF0000FF, Grey = 0xFF808080;

void Paint(PipelineTestAccess& access, int x, int y, uint32_t argb) {
  for (int b = 0; b < 4; ++b) access.FrameBitmap()->Surface().Row(y)[4 * x + b] = uint8_t(argb >> (8 * b));
}

}  // namespace

TEST(FrameBuffer, ResizeStretchesThePictureIntoBothBuffers) {
  RT_RENDER_ENGINE engine;
  PipelineTestAccess access(&engine);
  ResizableWindow window(2, 2);
  engine.InitializeRendererWindow(&window, nullptr);
  // The resize question: a new size, not minimised (1), not empty.
  EXPECT_FALSE(engine.DoesRendererNeedToResizeClientArea(0, MAKELPARAM(2, 2)));
  EXPECT_TRUE(engine.DoesRendererNeedToResizeClientArea(0, MAKELPARAM(2, 3)));
  EXPECT_FALSE(engine.DoesRendererNeedToResizeClientArea(1, MAKELPARAM(3, 2)));
  EXPECT_FALSE(engine.DoesRendererNeedToResizeClientArea(0, MAKELPARAM(0, 2)));

  const uint32_t colours[2][2] = {{Red, Green}, {Blue, Grey}};  // [row][column]
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 2; ++x) Paint(access, x, y, colours[y][x]);
  window.client = {0, 0, 4, 4};
  engine.ResizeClientArea(nullptr, nullptr);
  ASSERT_EQ(access.FrameWidth(), 4u);
  for (int i = 0; i < 16; ++i) {
    // Doubling repeats each pixel as a 2 x 2 square.
    const uint32_t expected = colours[i / 8][i % 4 / 2];
    EXPECT_EQ(access.BitmapPixel(i % 4, i / 4), expected) << i;
    ExpectColor(access.FrameHDR()[i], float(((expected >> 16) & 0xFF) / 255.0),
                float(((expected >> 8) & 0xFF) / 255.0), float((expected & 0xFF) / 255.0), 1, 0);
  }
  // The frame image halves, keeping the second pixel of each pair; a
  // repaint doubles.
  Paint(access, 1, 1, Grey);
  ATL::CImage image;
  ASSERT_NE(image.Create(2, 2, 32), 0);
  engine.GetFrameImage(image, nullptr, nullptr);
  const uint8_t* p = image.Surface().Row(0);
  EXPECT_EQ(p[0] | p[1] << 8 | p[2] << 16 | uint32_t(p[3]) << 24, Grey);
  EXPECT_EQ(engine.RepaintScreen(RECT{0, 0, 8, 8}), 0u);
  EXPECT_EQ(window.Pixel(1, 1), Red);
  EXPECT_EQ(window.Pixel(2, 2), Grey);
  EXPECT_EQ(window.Pixel(4, 0), Green);

  engine.ShutDownRendererWindow();
  EXPECT_EQ(access.FrameBitmap(), nullptr);
  EXPECT_FALSE(engine.DoesRendererNeedToResizeClientArea(0, MAKELPARAM(5, 4)));  // no bitmap
}
