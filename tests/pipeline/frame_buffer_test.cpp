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

struct FrameBufferTest : ::testing::Test {
  void SetUp() override { engine = static_cast<RT_RENDER_ENGINE*>(CreateRenderEngine()); }
  void TearDown() override { engine->Release(); }
  LPARAM Size(uint32_t width, uint32_t height) { return MAKELPARAM(width, height); }

  RT_RENDER_ENGINE* engine = nullptr;
};

constexpr uint32_t Red = 0xFFFF0000, Green = 0xFF00FF00, Blue = 0xFF0000FF, Grey = 0xFF808080;

}  // namespace

TEST_F(FrameBufferTest, WindowGivesTheSizeAndTheResizeQuestionFollowsIt) {
  PipelineTestAccess access(engine);
  ResizableWindow window(40, 30);
  EXPECT_FALSE(engine->InitializeRendererWindow(&window, nullptr));
  EXPECT_EQ(access.FrameWidth(), 40u);
  EXPECT_EQ(access.FrameHeight(), 30u);
  ASSERT_NE(access.FrameBitmap(), nullptr);
  ASSERT_NE(access.FrameHDR(), nullptr);
  const SCENE_VERTEX_XYZW last = access.FrameHDR()[40 * 30 - 1];
  EXPECT_EQ(last.x + last.y + last.z + last.w, 0.0f);

  EXPECT_FALSE(engine->DoesRendererNeedToResizeClientArea(0, Size(40, 30)));
  EXPECT_TRUE(engine->DoesRendererNeedToResizeClientArea(0, Size(41, 30)));
  EXPECT_TRUE(engine->DoesRendererNeedToResizeClientArea(0, Size(40, 31)));
  EXPECT_FALSE(engine->DoesRendererNeedToResizeClientArea(1, Size(41, 30)));  // minimised
  EXPECT_FALSE(engine->DoesRendererNeedToResizeClientArea(0, Size(0, 30)));
  EXPECT_FALSE(engine->DoesRendererNeedToResizeClientArea(0, Size(41, 0)));

  engine->ShutDownRendererWindow();
  engine->ShutDownRendererWindow();  // twice does no harm
  EXPECT_EQ(access.FrameBitmap(), nullptr);
  EXPECT_EQ(access.FrameHDR(), nullptr);
  EXPECT_EQ(access.FrameWidth(), 40u);
  EXPECT_FALSE(engine->DoesRendererNeedToResizeClientArea(0, Size(41, 30)));  // no bitmap
  // A window-less engine without buffers gets them from a resize with a size.
  unsigned int width = 12, height = 7;
  engine->ResizeClientArea(nullptr, nullptr);
  EXPECT_EQ(access.FrameBitmap(), nullptr);
  engine->ResizeClientArea(&width, &height);
  ASSERT_NE(access.FrameBitmap(), nullptr);
  ASSERT_NE(access.FrameHDR(), nullptr);
  EXPECT_EQ(access.FrameBitmap()->GetWidth(), 12u);
  EXPECT_EQ(access.FrameBitmap()->GetHeight(), 7u);
  EXPECT_EQ(access.FrameWidth(), 12u);
  EXPECT_EQ(access.FrameHeight(), 7u);
  EXPECT_FALSE(engine->InitializeRendererWindow(nullptr, nullptr));
}

TEST_F(FrameBufferTest, GrowingTheWindowStretchesThePictureIntoBothBuffers) {
  PipelineTestAccess access(engine);
  ResizableWindow window(2, 2);
  engine->InitializeRendererWindow(&window, nullptr);
  access.FillBitmap(Grey);
  platform::PixelSurface before = access.FrameBitmap()->Surface();
  const uint32_t colours[2][2] = {{Red, Green}, {Blue, Grey}};  // [row][column]
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 2; ++x)
      for (int b = 0; b < 4; ++b) before.Row(y)[4 * x + b] = uint8_t(colours[y][x] >> (8 * b));

  window.SetClientSize(4, 4);
  engine->ResizeClientArea(nullptr, nullptr);
  ASSERT_EQ(access.FrameWidth(), 4u);
  ASSERT_NE(access.FrameHDR(), nullptr);
  for (int y = 0; y < 4; ++y) {
    for (int x = 0; x < 4; ++x) {
      // Doubling repeats each pixel as a 2 x 2 square.
      const uint32_t expected = colours[y / 2][x / 2];
      EXPECT_EQ(access.BitmapPixel(x, y), expected) << x << "," << y;
      const SCENE_VERTEX_XYZW hdr = access.FrameHDR()[y * 4 + x];
      EXPECT_EQ(float(hdr.x), float(((expected >> 16) & 0xFF) / 255.0));
      EXPECT_EQ(float(hdr.y), float(((expected >> 8) & 0xFF) / 255.0));
      EXPECT_EQ(float(hdr.z), float((expected & 0xFF) / 255.0));
      EXPECT_EQ(float(hdr.w), 1.0f);
    }
  }
  // The frame matches the window again; a window that drops its buffers
  // refuses to make new ones.
  EXPECT_FALSE(engine->DoesRendererNeedToResizeClientArea(0, Size(4, 4)));
  engine->ShutDownRendererWindow();
  engine->InitializeRendererWindow(&window, nullptr);
  ThreadCountServer server{1};
  engine->SetRenderDistributedServerInterface(&server);
  window.SetClientSize(8, 8);
  engine->ResizeClientArea(nullptr, nullptr);
  EXPECT_EQ(access.FrameBitmap(), nullptr);
  EXPECT_EQ(access.FrameHDR(), nullptr);
  EXPECT_EQ(access.FrameWidth(), 8u);
  engine->ResizeClientArea(nullptr, nullptr);  // nothing left to resize
  EXPECT_EQ(access.FrameBitmap(), nullptr);
  engine->SetRenderDistributedServerInterface(nullptr);
}

TEST_F(FrameBufferTest, FrameImageRepaintAndBlockProgressReachTheirTargets) {
  PipelineTestAccess access(engine);
  ResizableWindow window(4, 4);
  engine->InitializeRendererWindow(&window, nullptr);
  access.FillBitmap(Grey);
  platform::PixelSurface frame = access.FrameBitmap()->Surface();
  for (int b = 0; b < 4; ++b) frame.Row(1)[4 * 1 + b] = uint8_t(Red >> (8 * b));
  for (int b = 0; b < 4; ++b) frame.Row(3)[4 * 3 + b] = uint8_t(Green >> (8 * b));

  ATL::CImage empty;
  engine->GetFrameImage(empty, nullptr, nullptr);  // does nothing
  EXPECT_TRUE(empty.IsNull());
  ATL::CImage image;
  ASSERT_NE(image.Create(2, 2, 32), 0);
  engine->GetFrameImage(image, nullptr, nullptr);
  // Halving keeps the second pixel of each pair: frame (1,1), (3,1), (1,3), (3,3).
  auto imagePixel = [&](int x, int y) {
    const uint8_t* p = image.Surface().Row(y) + 4 * x;
    return p[0] | p[1] << 8 | p[2] << 16 | uint32_t(p[3]) << 24;
  };
  EXPECT_EQ(imagePixel(0, 0), Red);
  EXPECT_EQ(imagePixel(1, 0), Grey);
  EXPECT_EQ(imagePixel(0, 1), Grey);
  EXPECT_EQ(imagePixel(1, 1), Green);

  EXPECT_EQ(engine->RepaintScreen(RECT{0, 0, 8, 8}), 0u);
  EXPECT_EQ(window.Pixel(2, 2), Red);  // pixel (1,1) doubled to 2..3
  EXPECT_EQ(window.Pixel(7, 7), Green);

  window.ClearEvents();
  engine->DisplayBeginProgress(0x0000FFFF, 99, 99, 10, 20, 32, 16);
  std::vector<platform::WindowEvent> events = window.Events();
  ASSERT_EQ(events.size(), 4u);
  const POINT corners[5] = {{11, 21}, {41, 21}, {41, 35}, {11, 35}, {11, 21}};
  for (int i = 0; i < 4; ++i) {
    const auto& line = std::get<platform::DrawnLine>(events[i]);
    EXPECT_EQ(line.from.x, corners[i].x);
    EXPECT_EQ(line.from.y, corners[i].y);
    EXPECT_EQ(line.to.x, corners[i + 1].x);
    EXPECT_EQ(line.to.y, corners[i + 1].y);
    EXPECT_EQ(line.color, 0x0000FFFFu);
  }
  window.ClearEvents();
  EXPECT_TRUE(engine->DisplayEndProgress(access.FrameBitmap(), 99, 99, 1, 2, 3, 2));
  events = window.Events();
  ASSERT_EQ(events.size(), 1u);
  const auto& pixels = std::get<platform::DrawnPixels>(events[0]);
  EXPECT_TRUE(pixels.sourceCopy);
  EXPECT_EQ(pixels.sourceRect.left, 1);
  EXPECT_EQ(pixels.sourceRect.top, 2);
  EXPECT_EQ(pixels.sourceRect.right, 4);
  EXPECT_EQ(pixels.sourceRect.bottom, 4);
  EXPECT_EQ(pixels.destination.left, 1);
  EXPECT_EQ(pixels.destination.top, 2);
  EXPECT_FALSE(engine->DisplayEndProgress(nullptr, 0, 0, 0, 0, 1, 1));
  engine->ShutDownRendererWindow();
  EXPECT_FALSE(engine->DisplayEndProgress(access.FrameBitmap(), 0, 0, 0, 0, 1, 1));
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

TEST(FrameBufferLock, TheEngineLocksThroughTheVirtualOperations) {
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
