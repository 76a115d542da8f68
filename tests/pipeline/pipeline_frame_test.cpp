#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <mutex>
#include <set>
#include <thread>
#include <tuple>
#include <variant>

#include "host/BrindlexViewModel.h"
#include "host/brindlexutil.h"
#include "engine/BrindlexViewRTRenderEngine.h"
#include "EngineTestAccess.h"
#include "TestDoubles.h"
#include "PipelineTestAccess.h"
#include "pipeline/PixelRayGroups.h"
#include "platform/Window.h"

namespace {

constexpr uint32_t Black = 0xFF000000, Marker = 0xFFFF0000;
// Abort polls of a path-traced pixel whose one ray misses the empty scene:
// after the intersection, at the start of the path, and after it.
constexpr long PathPollsPerPixel = 3;

// The abort function of the tests. It tells the host's polls from the
// workers' and can abort after a number of the workers'.
struct AbortPlan {
  std::thread::id host = std::this_thread::get_id();
  std::atomic<long> hostPolls{0}, workerPolls{0};
  long abortAfterWorkerPolls = -1;
  std::atomic<bool> aborted{false};
};

bool PollAbort(void* context) {
  auto* plan = static_cast<AbortPlan*>(context);
  if (std::this_thread::get_id() == plan->host) {
    ++plan->hostPolls;
    return plan->aborted;
  }
  if (++plan->workerPolls > plan->abortAfterWorkerPolls && plan->abortAfterWorkerPolls >= 0)
    plan->aborted = true;
  return plan->aborted;
}

// An empty scene, every ray a miss on a black background, in a frame of
// `width` x `height`.
struct FrameTest : ::testing::Test {
  void Start(int width, int height) {
    window = std::make_unique<platform::RecordingWindow>(width, height);
    engine = static_cast<RT_RENDER_ENGINE*>(CreateRenderEngine());
    engine->Initialize(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
    engine->InitializeRendererWindow(window.get(), nullptr);
    access = std::make_unique<PipelineTestAccess>(engine);
    workers = engine->GetProcessorCount();
    view.GetViewFileState()->SetCameraInfo({{0, 10, 0}, {0, 0, 0}, 60.0f, 10.0f, 0.0f});
    options.SetBackgroundColor(0);
    rect = {0, 0, width, height};
  }
  void TearDown() override {
    if (engine) engine->Release();
  }
  unsigned int Render(AbortPlan& plan) {
    view.SetRenderOptions(options);
    engine->SetShouldAbortRenderFunction(&PollAbort, &plan);
    const unsigned int result = engine->RenderFrame(nullptr, &view, &scene, rect, false);
    engine->SetShouldAbortRenderFunction(nullptr, nullptr);
    return result;
  }
  // Each 32 x 32 block of the frame bitmap has one colour; how many blocks
  // have `argb`.
  int UniformBlocksOf(uint32_t argb) {
    int matching = 0;
    for (int top = 0; top < rect.bottom; top += 32) {
      for (int left = 0; left < rect.right; left += 32) {
        const uint32_t first = access->BitmapPixel(left, top);
        for (int y = top; y < std::min(top + 32, int(rect.bottom)); ++y)
          for (int x = left; x < std::min(left + 32, int(rect.right)); ++x)
            EXPECT_EQ(access->BitmapPixel(x, y), first) << "block " << left << "," << top;
        matching += first == argb;
      }
    }
    return matching;
  }

  std::unique_ptr<platform::RecordingWindow> window;
  RT_RENDER_ENGINE* engine = nullptr;
  std::unique_ptr<PipelineTestAccess> access;
  unsigned int workers = 0;
  SCENE_GRAPH scene;
  ENVIRONMENT_3D_VIEW view;
  MODE_RENDER_OPTIONS options;
  RECT rect{};
};

}  // namespace

TEST_F(FrameTest, RayTracedFrameOutlinesTracesAndShowsEveryBlockOnce) {
  Start(70, 40);
  options.SetHighlightColor(0x00123456);
  access->FillBitmap(Marker);
  AbortPlan plan;
  EXPECT_EQ(workers, ::GetProcessorCount());  // one worker a processor
  EXPECT_EQ(Render(plan), 0u);
  EXPECT_EQ(engine->QueryRenderer(6), 1);
  // Every abort poll: 2800 pixels of 4 rays: 4 polls after the
  // intersections, 3 between the sorted records and 1 in the shading of
  // their one group of misses; one poll before each of the 6 blocks; 3 on
  // the host: at entry, before queueing and after the pass.
  EXPECT_EQ(plan.workerPolls, 2800 * 8 + 6);
  EXPECT_EQ(plan.hostPolls, 3);
  // Each of the 6 blocks outlined in the highlight colour, then blitted
  // once: 6 blits covering the 70 x 40 frame.
  int lines = 0, blits = 0, area = 0;
  for (const platform::WindowEvent& event : window->Events()) {
    if (auto* line = std::get_if<platform::DrawnLine>(&event)) {
      lines += line->color == 0x00123456u;
    } else if (auto* pixels = std::get_if<platform::DrawnPixels>(&event); pixels && pixels->sourceCopy) {
      const RECT r = pixels->sourceRect;
      ++blits;
      area += (r.right - r.left) * (r.bottom - r.top);
    }
  }
  EXPECT_EQ(std::tuple(lines, blits, area), std::tuple(6 * 4, 6, 70 * 40));
  for (int y = 0; y < 40; ++y)
    for (int x = 0; x < 70; ++x) ASSERT_EQ(window->Pixel(x, y), Black) << x << "," << y;
}

TEST_F(FrameTest, AbortAtEntryOrNoTreesDrawNothing) {
  Start(40, 40);
  access->FillBitmap(Marker);
  AbortPlan plan, none;
  plan.aborted = true;  // at the host's first poll
  EXPECT_EQ(Render(plan), 0u);
  EXPECT_EQ(UniformBlocksOf(Marker), 4);
  EXPECT_EQ(plan.workerPolls, 0);
  // Shut down: no trees, and nothing reaches the window.
  engine->ShutDown();
  window->ClearEvents();
  EXPECT_EQ(Render(none), 0u);
  EXPECT_EQ(engine->QueryRenderer(6), 0);
  EXPECT_TRUE(window->Events().empty());
}

TEST_F(FrameTest, AbortInTheFirstPathTracingPassKeepsWholeBlocksOnly) {
  Start(96, 64);
  options.SetPathTracing(true);
  access->FillBitmap(Marker);
  AbortPlan plan;
  // More polls than all but one worker can have made without finishing a
  // block.
  plan.abortAfterWorkerPolls = PathPollsPerPixel * 1024 * workers + 500;
  Render(plan);
  const int traced = UniformBlocksOf(Black);
  EXPECT_GE(traced, 1);
  EXPECT_LT(traced, 6);
  EXPECT_EQ(traced + UniformBlocksOf(Marker), 6);
  EXPECT_EQ(engine->QueryRenderer(6), 0);
  EXPECT_EQ(EngineTestAccess(engine).QueueLength(), 0u);
  EXPECT_EQ(EngineTestAccess(engine).CoreTokens(), long(workers));
}

namespace {
// Deals out the 32 x 32 tiles of a 70 x 40 view, and one that lies outside.
struct TileServer : ThreadCountServer {
  TileServer() : ThreadCountServer(2) {}
  bool GetNextDistributedTile(unsigned int* x, unsigned int* y, unsigned short* size, unsigned short* pass,
                              unsigned short* passCount) override {
    const int tile = next++;
    if (tile > 6) return false;
    *x = tile == 6 ? 102 : 32 * (tile % 3);
    *y = tile == 6 ? 0 : 32 * (tile / 3);
    *size = 32;
    *pass = *passCount = 1;
    return true;
  }
  void SubmitDistributedTile(SCENE_VERTEX_XYZW*, unsigned int x, unsigned int y, unsigned short,
                             unsigned short, unsigned short, unsigned int width,
                             unsigned int height) override {
    std::lock_guard<std::mutex> lock(mutex);
    submitted.insert({x, y, width, height});
  }
  std::atomic<int> next{0};
  std::mutex mutex;
  std::multiset<std::tuple<unsigned, unsigned, unsigned, unsigned>> submitted;  // x, y, width, height
};
}  // namespace

TEST_F(FrameTest, DistributedFrameSubmitsEveryDealtTileOnce) {
  TileServer server;
  Start(70, 40);
  engine->SetRenderDistributedServerInterface(&server);
  AbortPlan plan;
  Render(plan);
  EXPECT_EQ(
      server.submitted,
      (decltype(server.submitted){
          {0, 0, 32, 32}, {32, 0, 32, 32}, {64, 0, 6, 32}, {0, 32, 32, 8}, {32, 32, 32, 8}, {64, 32, 6, 8}}));
  engine->SetRenderDistributedServerInterface(nullptr);
}

TEST(PixelRayGrouping, RaysOnOneTriangleShareOneShadingCall) {
  // Records (tree, instance, triangle), tree -1 a miss; each group the walk
  // hands to shading is written as its rays' rows.
  using Groups = std::vector<std::multiset<unsigned>>;
  int polls = 0;
  const auto groups = [&](const std::vector<std::array<int, 3>>& records) {
    std::vector<PixelRayHit> hits(records.size());
    for (unsigned i = 0; i < hits.size(); ++i) {
      hits[i].sampleIndex = i;
      hits[i].hit = records[i][0] >= 0;
      hits[i].result.treeIndex = records[i][0], hits[i].result.instanceIndex = records[i][1];
      hits[i].result.triangleIndex = records[i][2];
    }
    PixelRaySet rays;
    rays.count = uint32_t(hits.size());
    Groups shaded;
    std::atomic<bool> abort{false};
    polls = 0;
    const auto shade = [&](PixelRayGroup& group, bool) {
      shaded.emplace_back();
      for (unsigned i = 0; i < group.count; ++i) shaded.back().insert(unsigned(group.samples[i] - rays.rays));
    };
    ShadeRayGroups(hits.data(), rays.count, rays, abort, shade, [&] { return ++polls, false; });
    return shaded;
  };
  EXPECT_EQ(groups({{0, 0, 7}, {-1, 0, 0}, {0, 0, 2}, {0, 0, 7}}), (Groups{{1}, {2}, {0, 3}}));
  EXPECT_EQ(polls, 3);  // after each record from the second on
  // The same triangle of two instances, or of the two trees, is two groups.
  EXPECT_EQ(groups({{0, 1, 4}, {0, 0, 4}, {0, 1, 4}, {1, 0, 4}}), (Groups{{1}, {0, 2}, {3}}));
}
