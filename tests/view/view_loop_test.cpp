#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "DemoScene.h"
#include "RenderLoop.h"

namespace {

// The render loop with the demo scene in a small window that keeps its
// picture, without a display.
class RenderLoopTest : public ::testing::Test {
 protected:
  RenderLoopTest() : window(64, 48), loop(host, window) { BuildDemoScene(host); }

  // Collects messages until `done` says so; false after the limit, which
  // is a guard against a hang, not a speed check: a sanitized build on a
  // busy machine takes minutes for the demo scene's first frame.
  template <typename Done>
  bool WaitFor(Done done) {
#ifdef BRINDLEX_SANITIZED_BUILD
    const auto limit = std::chrono::minutes(10);
#else
    const auto limit = std::chrono::minutes(2);
#endif
    const auto end = std::chrono::steady_clock::now() + limit;
    while (std::chrono::steady_clock::now() < end) {
      for (const platform::PostedMessage& message : window.TakeMessages()) {
        received.push_back(message);
        if (done(message)) return true;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return false;
  }
  bool WaitForFrame(uint64_t request) {
    received.clear();
    return WaitFor([&](const auto& m) { return m.message == FrameDoneMessage && m.wParam == request; });
  }
  // The first and second parameter of each message of one kind received
  // since the last wait began.
  std::vector<std::pair<WPARAM, LPARAM>> Received(unsigned code) const {
    std::vector<std::pair<WPARAM, LPARAM>> found;
    for (const auto& m : received)
      if (m.message == code) found.emplace_back(m.wParam, m.lParam);
    return found;
  }
  using Params = std::vector<std::pair<WPARAM, LPARAM>>;
  std::vector<uint32_t> Picture() const {
    std::vector<uint32_t> pixels;
    for (int y = 0; y < 48; ++y)
      for (int x = 0; x < 64; ++x) pixels.push_back(window.Pixel(x, y));
    return pixels;
  }

  HostScene host;
  platform::PictureWindow window;
  RenderLoop loop;
  std::vector<platform::PostedMessage> received;
};

TEST_F(RenderLoopTest, FirstFrameBuildsTheModelAndACameraMoveOnlyRendersAgain) {
  ASSERT_TRUE(loop.Start(host.TextureDirectory().string()));
  ASSERT_TRUE(WaitForFrame(0));
  ASSERT_EQ(Received(UpdateDoneMessage).size(), 1u);
  EXPECT_EQ(Received(UpdateDoneMessage)[0].first, ModelUpdate);
  EXPECT_EQ(Received(FrameStartedMessage), (Params{{0, 4}}));  // 2 x 2 blocks of 32
  EXPECT_EQ(Received(PBM_STEPIT).size(), 4u);
  const std::vector<uint32_t> first = Picture();
  EXPECT_GT(std::count_if(first.begin(), first.end(), [](uint32_t p) { return (p & 0xFFFFFF) != 0; }),
            64 * 48 / 2);
  // What `S` saves is the engine's picture, which the window shows 1:1.
  ATL::CImage copy;
  ASSERT_TRUE(loop.CopyPicture(copy));
  const auto* row = static_cast<const uint8_t*>(copy.GetBits()) + 20 * copy.GetPitch();
  EXPECT_EQ(row[4 * 30] | row[4 * 30 + 1] << 8 | row[4 * 30 + 2] << 16, window.Pixel(30, 20) & 0xFFFFFF);

  ViewChange turn;
  turn.azimuth = 40;
  ASSERT_TRUE(WaitForFrame(loop.Request(turn)));
  ASSERT_EQ(Received(UpdateDoneMessage).size(), 1u);
  EXPECT_EQ(Received(UpdateDoneMessage)[0].first, CameraUpdate);
  EXPECT_NE(Picture(), first);

  ViewChange photons;
  photons.modesChanged = true;
  photons.modes.photons = true;
  ASSERT_TRUE(WaitForFrame(loop.Request(photons)));
  EXPECT_EQ(Received(UpdateDoneMessage).at(0).first, ModelUpdate);

  ViewChange resize;
  resize.resized = true, resize.width = 96, resize.height = 64;
  ASSERT_TRUE(WaitForFrame(loop.Request(resize)));
  EXPECT_EQ(Received(UpdateDoneMessage).at(0).first, SizeUpdate);
  EXPECT_EQ(Received(FrameStartedMessage).at(0).second, 6);  // 3 x 2 blocks
  RECT client;
  window.GetClientRect(client);
  EXPECT_EQ(std::pair(client.right, client.bottom), std::pair(96, 64));
}

TEST_F(RenderLoopTest, PathTracingRunsPassAfterPassUntilStopped) {
  ASSERT_TRUE(loop.Start(host.TextureDirectory().string()));
  ViewChange paths;
  paths.modesChanged = true;
  paths.modes.pathTracing = true;
  loop.Request(paths);
  // Two passes of four blocks after the frame of the request began; the
  // frame itself never ends by itself.
  bool started = false;
  int blocks = 0;
  ASSERT_TRUE(WaitFor([&](const auto& m) {
    if (m.message == FrameStartedMessage) started = m.wParam == 1, blocks = 0;
    if (m.message == PBM_STEPIT && started) ++blocks;
    return blocks == 8;
  }));
  loop.Stop();  // aborts the pass under way and joins
  for (const auto& m : window.TakeMessages()) received.push_back(m);
  for (const auto& [request, seconds] : Received(FrameDoneMessage))
    EXPECT_NE(request, 1u) << "an aborted frame counts as done";
}

}  // namespace
