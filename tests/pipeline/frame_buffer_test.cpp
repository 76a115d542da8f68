#include <gtest/gtest.h>

#include "TestDoubles.h"

#include <functional>
#include <utility>
#include <variant>

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
  void SetClientSize(int width, int height) { client = {0, 0, width, height}; }

 private:
  RECT client;
};

constexpr uint32_t Red = 0xFFFF0000, Green = 0xFF00FF00, Blue = 0xFF0000FF, Grey = 0xFF808080;

void Paint(PipelineTestAccess& access, int x, int y, uint32_t argb) {
  for (int b = 0; b < 4; ++b) access.FrameBitmap()->Surface().Row(y)[4 * x + b] = uint8_t(argb >> (8 * b));
}

}  // namespace

TEST(FrameBuffer, TheWindowSizesItAndAResizeStretchesThePictureIntoBothBuffers) {
  auto* engine = static_cast<RT_RENDER_ENGINE*>(CreateRenderEngine());
  PipelineTestAccess access(engine);
  ResizableWindow window(2, 2);
  EXPECT_FALSE(engine->InitializeRendererWindow(&window, nullptr));
  ASSERT_EQ(access.FrameWidth(), 2u);
  ASSERT_EQ(access.FrameHeight(), 2u);
  // The resize question: a new size, not minimised (1), not empty.
  EXPECT_FALSE(engine->DoesRendererNeedToResizeClientArea(0, MAKELPARAM(2, 2)));
  EXPECT_TRUE(engine->DoesRendererNeedToResizeClientArea(0, MAKELPARAM(3, 2)));
  EXPECT_TRUE(engine->DoesRendererNeedToResizeClientArea(0, MAKELPARAM(2, 3)));
  EXPECT_FALSE(engine->DoesRendererNeedToResizeClientArea(1, MAKELPARAM(3, 2)));
  EXPECT_FALSE(engine->DoesRendererNeedToResizeClientArea(0, MAKELPARAM(0, 2)));

  const uint32_t colours[2][2] = {{Red, Green}, {Blue, Grey}};  // [row][column]
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 2; ++x) Paint(access, x, y, colours[y][x]);
  window.SetClientSize(4, 4);
  engine->ResizeClientArea(nullptr, nullptr);
  ASSERT_EQ(access.FrameWidth(), 4u);
  for (int y = 0; y < 4; ++y) {
    for (int x = 0; x < 4; ++x) {
      // Doubling repeats each pixel as a 2 x 2 square.
      const uint32_t expected = colours[y / 2][x / 2];
      EXPECT_EQ(access.BitmapPixel(x, y), expected) << x << "," << y;
      ExpectColor(access.FrameHDR()[y * 4 + x], float(((expected >> 16) & 0xFF) / 255.0),
                  float(((expected >> 8) & 0xFF) / 255.0), float((expected & 0xFF) / 255.0), 1, 0);
    }
  }
  engine->ShutDownRendererWindow();
  engine->ShutDownRendererWindow();  // twice does no harm
  EXPECT_EQ(access.FrameBitmap(), nullptr);
  EXPECT_FALSE(engine->DoesRendererNeedToResizeClientArea(0, MAKELPARAM(5, 4)));  // no bitmap
  // Without a window, a resize with a size makes the buffers.
  unsigned int width = 12, height = 7;
  engine->ResizeClientArea(&width, &height);
  ASSERT_NE(access.FrameHDR(), nullptr);
  EXPECT_EQ(access.FrameBitmap()->GetWidth(), 12u);
  EXPECT_EQ(access.FrameBitmap()->GetHeight(), 7u);
  // A distributed engine has no frame buffer of its own.
  engine->ShutDownRendererWindow();
  engine->InitializeRendererWindow(&window, nullptr);
  ThreadCountServer server{1};
  engine->SetRenderDistributedServerInterface(&server);
  window.SetClientSize(8, 8);
  engine->ResizeClientArea(nullptr, nullptr);
  EXPECT_EQ(access.FrameBitmap(), nullptr);
  EXPECT_EQ(access.FrameHDR(), nullptr);
  engine->SetRenderDistributedServerInterface(nullptr);
  engine->Release();
}

TEST(FrameBuffer, FrameImageRepaintAndBlockProgressReachTheirTargets) {
  auto* engine = static_cast<RT_RENDER_ENGINE*>(CreateRenderEngine());
  PipelineTestAccess access(engine);
  ResizableWindow window(4, 4);
  engine->InitializeRendererWindow(&window, nullptr);
  access.FillBitmap(Grey);
  Paint(access, 1, 1, Red);
  Paint(access, 3, 3, Green);
  ATL::CImage image;
  ASSERT_NE(image.Create(2, 2, 32), 0);
  engine->GetFrameImage(image, nullptr, nullptr);
  // Halving keeps the second pixel of each pair: frame (1,1), (3,1), (1,3), (3,3).
  const uint32_t halved[4] = {Red, Grey, Grey, Green};
  for (int i = 0; i < 4; ++i) {
    const uint8_t* p = image.Surface().Row(i / 2) + 4 * (i % 2);
    EXPECT_EQ(p[0] | p[1] << 8 | p[2] << 16 | uint32_t(p[3]) << 24, halved[i]) << i;
  }
  EXPECT_EQ(engine->RepaintScreen(RECT{0, 0, 8, 8}), 0u);
  EXPECT_EQ(window.Pixel(2, 2), Red);  // pixel (1,1) doubled to 2..3
  EXPECT_EQ(window.Pixel(7, 7), Green);

  // A beginning block is outlined inside its edge; a finished one blitted.
  window.ClearEvents();
  engine->DisplayBeginProgress(0x0000FFFF, 99, 99, 10, 20, 32, 16);
  std::vector<platform::WindowEvent> events = window.Events();
  ASSERT_EQ(events.size(), 4u);
  const POINT corners[5] = {{11, 21}, {41, 21}, {41, 35}, {11, 35}, {11, 21}};
  for (int i = 0; i < 4; ++i) {
    const auto& line = std::get<platform::DrawnLine>(events[i]);
    EXPECT_TRUE(line.from.x == corners[i].x && line.from.y == corners[i].y) << i;
    EXPECT_TRUE(line.to.x == corners[i + 1].x && line.to.y == corners[i + 1].y) << i;
    EXPECT_EQ(line.color, 0x0000FFFFu);
  }
  window.ClearEvents();
  EXPECT_TRUE(engine->DisplayEndProgress(access.FrameBitmap(), 99, 99, 1, 2, 3, 2));
  events = window.Events();
  ASSERT_EQ(events.size(), 1u);
  const auto& pixels = std::get<platform::DrawnPixels>(events[0]);
  EXPECT_TRUE(pixels.sourceCopy);
  const RECT r = pixels.sourceRect;
  EXPECT_TRUE(r.left == 1 && r.top == 2 && r.right == 4 && r.bottom == 4);
  EXPECT_TRUE(pixels.destination.left == 1 && pixels.destination.top == 2);
  EXPECT_FALSE(engine->DisplayEndProgress(nullptr, 0, 0, 0, 0, 1, 1));
  engine->Release();
}

namespace {
// A host's engine that does its own work when the frame buffer is locked;
// it must see every lock that the engine takes.
class LockCountingEngine : public RT_RENDER_ENGINE {
 public:
  void LockSWFrameBuffer() override {
    ++locks;
    RT_RENDER_ENGINE::LockSWFrameBuffer();
  }
  void UnLockSWFrameBuffer() override {
    ++unlocks;
    RT_RENDER_ENGINE::UnLockSWFrameBuffer();
  }
  int locks = 0, unlocks = 0;
};
}  // namespace

TEST(FrameBuffer, TheEngineLocksThroughTheVirtualOperations) {
  LockCountingEngine engine;
  ResizableWindow window(8, 8);
  ATL::CImage image;
  ASSERT_NE(image.Create(2, 2, 32), 0);
  unsigned int width = 4, height = 4;
  const std::pair<const char*, std::function<void()>> operations[] = {
      {"InitializeRendererWindow", [&] { engine.InitializeRendererWindow(&window, nullptr); }},
      {"RepaintScreen",
       [&] {
         engine.RepaintScreen(RECT{0, 0, 8, 8});
       }},
      {"GetFrameImage", [&] { engine.GetFrameImage(image, nullptr, nullptr); }},
      {"ResizeClientArea", [&] { engine.ResizeClientArea(&width, &height); }},
      {"ShutDownRendererWindow", [&] { engine.ShutDownRendererWindow(); }},
  };
  for (const auto& [name, operation] : operations) {
    engine.locks = engine.unlocks = 0;
    operation();
    EXPECT_GE(engine.locks, 1) << name;
    EXPECT_EQ(engine.unlocks, engine.locks) << name;
  }
}
