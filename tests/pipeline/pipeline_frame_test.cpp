#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <mutex>
#include <random>
#include <set>
#include <thread>
#include <tuple>
#include <variant>

#include "host/BrindlexViewModel.h"
#include "engine/BrindlexViewRTRenderEngine.h"
#include "EngineTestAccess.h"
#include "LogCapture.h"
#include "PipelineTestAccess.h"
#include "pipeline/PixelRayGroups.h"
#include "platform/Window.h"

namespace {

constexpr uint32_t Black = 0xFF000000, Marker = 0xFFFF0000;
// Abort polls of a path-traced pixel whose one ray misses the empty scene:
// after the intersection, at the start of the path, and after it.
constexpr long PathPollsPerPixel = 3;

// The abort function of the tests. It tells the host's polls from the
// workers' and can act at a chosen host poll, between two passes.
struct AbortPlan {
  std::thread::id host = std::this_thread::get_id();
  std::atomic<long> hostPolls{0}, workerPolls{0};
  long abortAfterWorkerPolls = -1;  // counted from hostPollsBeforeCount on
  long hostPollsBeforeCount = 0;
  std::function<void(long)> atHostPoll;
  std::chrono::microseconds delay{0};
  std::mutex mutex;
  std::set<std::thread::id> workerThreads;
  std::atomic<bool> aborted{false};
};

bool PollAbort(void* context) {
  auto* plan = static_cast<AbortPlan*>(context);
  if (std::this_thread::get_id() == plan->host) {
    const long poll = ++plan->hostPolls;
    if (plan->atHostPoll) plan->atHostPoll(poll);
    return plan->aborted;
  }
  {
    std::lock_guard<std::mutex> lock(plan->mutex);
    plan->workerThreads.insert(std::this_thread::get_id());
  }
  if (plan->delay.count()) std::this_thread::sleep_for(plan->delay);
  if (plan->hostPolls < plan->hostPollsBeforeCount) return false;
  const long poll = ++plan->workerPolls;
  if (plan->abortAfterWorkerPolls >= 0 && poll > plan->abortAfterWorkerPolls) plan->aborted = true;
  return plan->aborted;
}

struct FrameTest : ::testing::Test {
  void Start(int width, int height) {
    window = std::make_unique<platform::RecordingWindow>(width, height);
    engine = static_cast<RT_RENDER_ENGINE*>(CreateRenderEngine());
    engine->Initialize(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
    engine->InitializeRendererWindow(window.get(), nullptr);
    access = std::make_unique<PipelineTestAccess>(engine);
    workers = engine->GetProcessorCount();
    view.GetViewFileState()->SetCameraInfo({{0, 10, 0}, {0, 0, 0}, 60.0f, 10.0f, 0.0f});
    // Every ray misses the empty scene: a black background keeps the
    // finished picture black.
    options.SetBackgroundColor(0);
    view.SetRenderOptions(options);
    rect = {0, 0, width, height};
  }
  void TearDown() override {
    if (engine) engine->Release();
  }
  unsigned int Render(AbortPlan& plan) {
    view.SetRenderOptions(options);
    engine->SetShouldAbortRenderFunction(&PollAbort, &plan);
    unsigned int result = engine->RenderFrame(nullptr, &view, &scene, rect, false);
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
  std::vector<std::string> LinesStartingWith(const LogCapture& log, const std::string& start) {
    std::vector<std::string> lines;
    for (const std::string& line : log.Lines())
      if (line.rfind(start, 0) == 0) lines.push_back(line);
    return lines;
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
  LogCapture log;
  EXPECT_EQ(engine->QueryRenderer(6), 0);
  EXPECT_EQ(Render(plan), 0u);
  EXPECT_EQ(engine->QueryRenderer(6), 1);

  // 2800 pixels of 4 rays: 4 polls after the intersections, 3 between the
  // sorted records and 1 in the shading of their one group of misses; one
  // poll before each of the 6 blocks; 3 on the host: at entry, before
  // queueing and after the pass.
  EXPECT_EQ(plan.workerPolls + plan.hostPolls, 2800 * 8 + 6 + 3);
  EXPECT_EQ(plan.hostPolls, 3);

  std::vector<platform::WindowEvent> events = window->Events();
  std::set<std::tuple<int, int, int, int>> blits, expectedBlits;
  for (int top : {0, 32})
    for (int left : {0, 32, 64})
      expectedBlits.insert({left, top, std::min(left + 32, 70), std::min(top + 32, 40)});
  int lines = 0;
  for (const platform::WindowEvent& event : events) {
    if (auto* line = std::get_if<platform::DrawnLine>(&event)) {
      ++lines;
      EXPECT_EQ(line->color, 0x00123456u);
    } else if (auto* pixels = std::get_if<platform::DrawnPixels>(&event); pixels && pixels->sourceCopy) {
      const RECT r = pixels->sourceRect;
      EXPECT_TRUE(blits.insert({r.left, r.top, r.right, r.bottom}).second) << "blitted twice";
    }
  }
  EXPECT_EQ(lines, 6 * 4);
  EXPECT_EQ(blits, expectedBlits);
  // The last paint is the whole frame, after every block.
  const auto* last = std::get_if<platform::DrawnPixels>(&events.back());
  ASSERT_NE(last, nullptr);
  EXPECT_FALSE(last->sourceCopy);
  EXPECT_EQ(last->destination.right, 70);
  EXPECT_EQ(last->destination.bottom, 40);
  // Every block replaced the picture and its own outline.
  EXPECT_EQ(UniformBlocksOf(Black), 6);
  for (int y = 0; y < 40; ++y)
    for (int x = 0; x < 70; ++x) ASSERT_EQ(window->Pixel(x, y), Black) << x << "," << y;

  const std::vector<std::string> times = LinesStartingWith(log, "TotalRenderTime = ");
  ASSERT_EQ(times.size(), 1u);
  EXPECT_EQ(times[0].substr(times[0].size() - 8), " seconds");
  EXPECT_TRUE(LinesStartingWith(log, "Path Trace Pass ").empty());
}

TEST_F(FrameTest, MissingPartsDrawNothingButTheTimeIsLogged) {
  Start(40, 40);
  access->FillBitmap(Marker);
  AbortPlan plan;
  LogCapture log;
  engine->SetShouldAbortRenderFunction(&PollAbort, &plan);
  EXPECT_EQ(engine->RenderFrame(nullptr, nullptr, &scene, rect, false), 0u);
  EXPECT_EQ(engine->RenderFrame(nullptr, &view, nullptr, rect, false), 0u);
  EXPECT_EQ(engine->RenderFrame(nullptr, &view, &scene, {0, 0, 41, 40}, false), 0u);  // larger than the frame
  plan.aborted = true;
  EXPECT_EQ(engine->RenderFrame(nullptr, &view, &scene, rect, false), 0u);
  engine->SetShouldAbortRenderFunction(nullptr, nullptr);
  EXPECT_EQ(LinesStartingWith(log, "TotalRenderTime = ").size(), 4u);
  EXPECT_EQ(UniformBlocksOf(Marker), 4);
  EXPECT_EQ(plan.workerPolls, 0);
  // The screen path with a null abort function and ordinary tracing ends
  // after one pass.
  EXPECT_EQ(engine->RenderFrame(nullptr, &view, &scene, rect, true), 0u);
  EXPECT_EQ(UniformBlocksOf(Black), 4);
  EXPECT_EQ(engine->QueryRenderer(6), 1);
}

TEST_F(FrameTest, AnEngineWithoutTreesAndTablesRendersNothing) {
  const std::string picture = ::testing::TempDir() + "no_tables_" + std::to_string(::getpid()) + ".png";
  window = std::make_unique<platform::RecordingWindow>(40, 40);
  view.GetViewFileState()->SetCameraInfo({{0, 10, 0}, {0, 0, 0}, 60.0f, 10.0f, 0.0f});
  rect = {0, 0, 40, 40};
  // Never initialised, and initialised then shut down: both have no trees.
  for (bool initialiseFirst : {false, true}) {
    engine = static_cast<RT_RENDER_ENGINE*>(CreateRenderEngine());
    if (initialiseFirst) {
      engine->Initialize(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
      engine->ShutDown();
    }
    engine->InitializeRendererWindow(window.get(), nullptr);
    window->ClearEvents();
    LogCapture log;
    EXPECT_EQ(engine->RenderFrame(nullptr, &view, &scene, rect, false), 0u);
    EXPECT_EQ(engine->QueryRenderer(6), 0) << initialiseFirst;
    EXPECT_TRUE(window->Events().empty()) << initialiseFirst;
    // A render to file writes no blank picture and does not call it complete.
    engine->SetRenderToFile(true);
    engine->SetRenderToFileName(picture.c_str());
    engine->RenderFrame(nullptr, &view, &scene, rect, false);
    EXPECT_EQ(engine->GetRenderToFileInterface()->QueryRenderToFile(1), 0) << initialiseFirst;
    EXPECT_FALSE(std::filesystem::exists(picture)) << initialiseFirst;
    EXPECT_EQ(LinesStartingWith(log, "TotalRenderTime = ").size(), 2u);
    engine->Release();
    engine = nullptr;
    std::filesystem::remove(picture);
  }
}

TEST_F(FrameTest, AbortInTheFirstPathTracingPassKeepsWholeBlocksOnly) {
  Start(96, 64);
  options.SetPathTracing(true);
  access->FillBitmap(Marker);
  AbortPlan plan;
  // More polls than all but one worker can have made without finishing a
  // block.
  plan.abortAfterWorkerPolls = PathPollsPerPixel * 1024 * workers + 500;
  LogCapture log;
  Render(plan);
  const int traced = UniformBlocksOf(Black);
  EXPECT_GE(traced, 1);
  EXPECT_LT(traced, 6);
  EXPECT_EQ(traced + UniformBlocksOf(Marker), 6);
  EXPECT_EQ(engine->QueryRenderer(6), 0);
  EXPECT_EQ(LinesStartingWith(log, "Path Trace Pass "), std::vector<std::string>{"Path Trace Pass 2"});
  EXPECT_EQ(EngineTestAccess(engine).QueueLength(), 0u);
  EXPECT_EQ(EngineTestAccess(engine).CoreTokens(), long(workers));
}

TEST_F(FrameTest, AbortInALaterPassPutsTheLastCompletePassBack) {
  Start(64, 64);
  options.SetPathTracing(true);
  AbortPlan plan;
  // Host polls: 1 entry, 2 before queueing pass 1, 3 after it. There the
  // test marks the finished picture, so the copy of pass 1 is told apart
  // from what pass 2 draws.
  plan.atHostPoll = [this](long poll) {
    if (poll != 3) return;
    access->FillBitmap(Marker);
    access->FillHDR({1.0f, 1.0f, 1.0f, 1.0f});
  };
  plan.hostPollsBeforeCount = 5;  // from the queueing of pass 2 on
  plan.abortAfterWorkerPolls = PathPollsPerPixel * 1024 * workers + 500;
  LogCapture log;
  Render(plan);
  EXPECT_EQ(engine->QueryRenderer(6), 1);  // pass 1 was ready
  EXPECT_EQ(UniformBlocksOf(Marker), 4);
  for (int y = 0; y < 64; ++y)
    for (int x = 0; x < 64; ++x) ASSERT_EQ(window->Pixel(x, y), Marker) << x << "," << y;
  // The running mean keeps the blocks of pass 2 that finished: 1 and 0
  // averaged to 0.5; the others still hold pass 1.
  int halved = 0;
  for (int top : {0, 32}) {
    for (int left : {0, 32}) {
      const float value = access->FrameHDR()[top * 64 + left].x;
      EXPECT_TRUE(value == 0.5f || value == 1.0f) << value;
      halved += value == 0.5f;
    }
  }
  EXPECT_GE(halved, 1);
  EXPECT_LT(halved, 4);
  EXPECT_EQ(LinesStartingWith(log, "Path Trace Pass "),
            (std::vector<std::string>{"Path Trace Pass 2", "Path Trace Pass 3"}));
}

TEST_F(FrameTest, LentProcessorsFinishALoneBlockAndEachPixelIsTracedOnce) {
  Start(32, 32);
  options.SetAntiAliasing(false);
  std::mt19937 random(77);
  for (int frame = 0; frame < 24; ++frame) {
    access->FillBitmap(Marker);
    AbortPlan plan;
    plan.delay = std::chrono::microseconds(20);
    const bool abortThisFrame = frame >= 8;
    if (abortThisFrame) plan.abortAfterWorkerPolls = std::uniform_int_distribution<long>(0, 1100)(random);
    Render(plan);
    if (!abortThisFrame) {
      // One ray: a poll after its intersection and one in its shading, for
      // each pixel, and one before the block.
      EXPECT_EQ(plan.workerPolls, 2 * 1024 + 1);
      EXPECT_EQ(UniformBlocksOf(Black), 1);
      if (workers >= 2) {
        EXPECT_GE(plan.workerThreads.size(), 2u) << "no processor was lent";
      }
    } else {
      EXPECT_EQ(UniformBlocksOf(Black) + UniformBlocksOf(Marker), 1);
    }
    EXPECT_EQ(EngineTestAccess(engine).CoreTokens(), long(workers));
  }
}

namespace {
// Deals out the 32 x 32 tiles of a view, and one tile that lies outside.
class TileServer : public RENDER_DISTRIBUTED_SERVER_INTERFACE {
 public:
  struct Submitted {
    unsigned x, y, size, width, height;
    bool allWritten;
  };
  TileServer(unsigned width, unsigned height) {
    for (unsigned y = 0; y < height; y += 32)
      for (unsigned x = 0; x < width; x += 32) tiles.push_back({x, y});
    tiles.push_back({width + 32, 0});
  }
  unsigned int GetDistributedThreadCount() override { return 2; }
  void BeginDistributedFrame(unsigned int threads, uint64_t pass) override {
    frames.push_back({threads, pass});
  }
  void EndDistributedFrame() override { ++framesEnded; }
  void NotifyDistributedWorkerActive() override {}
  unsigned short GetDistributedPass() override { return 1; }
  void BeginDistributedJob() override { ++jobs; }
  void EndDistributedJob() override { ++jobsEnded; }
  bool GetNextDistributedTile(unsigned int* x, unsigned int* y, unsigned short* size, unsigned short* pass,
                              unsigned short* passCount) override {
    std::lock_guard<std::mutex> lock(mutex);
    if (next == tiles.size()) return false;
    std::tie(*x, *y) = tiles[next++];
    *size = 32;
    *pass = 1;
    *passCount = 1;
    return true;
  }
  void SubmitDistributedTile(SCENE_VERTEX_XYZW* samples, unsigned int x, unsigned int y, unsigned short size,
                             unsigned short, unsigned short, unsigned int width,
                             unsigned int height) override {
    // Every ray misses: each sample is the background, red in the low byte
    // of 0x00336699, and no alpha. The buffer starts zeroed.
    bool allWritten = true;
    for (unsigned i = 0; i < width * height; ++i) {
      const SCENE_VERTEX_XYZW sample = samples[i];
      allWritten &= sample.x == float(0x99 / 255.0) && sample.y == float(0x66 / 255.0) &&
                    sample.z == float(0x33 / 255.0) && sample.w == 0.0f;
    }
    std::lock_guard<std::mutex> lock(mutex);
    submitted.push_back({x, y, size, width, height, allWritten});
  }
  void SetDistributedTileTracing(bool tracing) override { (tracing ? tracingOn : tracingOff)++; }

  std::mutex mutex;
  std::vector<std::pair<unsigned, unsigned>> tiles;
  size_t next = 0;
  std::vector<std::pair<unsigned, uint64_t>> frames;
  int framesEnded = 0;
  std::atomic<int> jobs{0}, jobsEnded{0}, tracingOn{0}, tracingOff{0};
  std::vector<Submitted> submitted;
};
}  // namespace

TEST_F(FrameTest, DistributedFrameSubmitsEveryDealtTileOnce) {
  TileServer server(70, 40);
  window = std::make_unique<platform::RecordingWindow>(70, 40);
  engine = static_cast<RT_RENDER_ENGINE*>(CreateRenderEngine());
  engine->Initialize(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
  engine->SetRenderDistributedServerInterface(&server);
  engine->InitializeRendererWindow(window.get(), nullptr);  // no frame buffer of its own
  view.GetViewFileState()->SetCameraInfo({{0, 10, 0}, {0, 0, 0}, 60.0f, 10.0f, 0.0f});
  options.SetBackgroundColor(0x00336699);
  rect = {0, 0, 70, 40};
  AbortPlan plan;
  Render(plan);
  const unsigned shares = engine->GetProcessorCount();
  ASSERT_EQ(server.frames.size(), 1u);
  EXPECT_EQ(server.frames[0].first, shares);
  EXPECT_EQ(server.frames[0].second, 1u);
  EXPECT_EQ(server.framesEnded, 1);
  EXPECT_EQ(server.jobs.load(), int(shares));
  EXPECT_EQ(server.jobsEnded.load(), int(shares));
  EXPECT_EQ(server.tracingOn.load(), 6);  // not the tile outside the view
  EXPECT_EQ(server.tracingOff.load(), 6);

  std::set<std::tuple<unsigned, unsigned, unsigned, unsigned>> tiles;
  for (const TileServer::Submitted& tile : server.submitted) {
    EXPECT_TRUE(tiles.insert({tile.x, tile.y, tile.width, tile.height}).second) << "submitted twice";
    EXPECT_EQ(tile.size, 32u);
    EXPECT_TRUE(tile.allWritten);
  }
  const std::set<std::tuple<unsigned, unsigned, unsigned, unsigned>> expected = {
      {0, 0, 32, 32}, {32, 0, 32, 32}, {64, 0, 6, 32}, {0, 32, 32, 8}, {32, 32, 32, 8}, {64, 32, 6, 8}};
  EXPECT_EQ(tiles, expected);
  engine->SetRenderDistributedServerInterface(nullptr);
}

namespace {
struct ShadedGroup {
  bool hit;
  std::multiset<unsigned> rays;  // rows of the pixel's ray set
  std::set<std::tuple<uint32_t, uint32_t, uint32_t>> targets;
};

// Runs the grouping walk over hand-made records and notes each group that
// it hands to shading, with the rays and hits of the group.
std::vector<ShadedGroup> Groups(std::vector<PixelRayHit> hits, int& polls) {
  PixelRaySet rays;
  rays.count = uint32_t(hits.size());
  for (unsigned i = 0; i < hits.size(); ++i) hits[i].sampleIndex = i;
  std::vector<ShadedGroup> groups;
  std::atomic<bool> abort{false};
  polls = 0;
  ShadeRayGroups(
      hits.data(), rays.count, rays, abort,
      [&](PixelRayGroup& group, bool hit) {
        ShadedGroup shaded{hit, {}, {}};
        for (unsigned i = 0; i < group.count; ++i) {
          shaded.rays.insert(unsigned(group.samples[i] - rays.rays));
          const SWRayIntersectionResult result = *group.results[i];
          if (hit) shaded.targets.insert({result.treeIndex, result.instanceIndex, result.triangleIndex});
        }
        groups.push_back(shaded);
      },
      [&] { return ++polls, false; });
  return groups;
}

PixelRayHit Miss() {
  return {};
}
PixelRayHit HitOn(uint32_t tree, uint32_t instance, uint32_t triangle) {
  PixelRayHit record;
  record.hit = true;
  record.result.treeIndex = tree;
  record.result.instanceIndex = instance;
  record.result.triangleIndex = triangle;
  return record;
}
}  // namespace

TEST(PixelRayGrouping, RaysOnOneTriangleShareOneShadingCall) {
  int polls = 0;
  // Four rays on two triangles and the background: three calls, the misses
  // first, then the triangles in order, each with its own rays.
  std::vector<ShadedGroup> groups = Groups({HitOn(0, 0, 7), Miss(), HitOn(0, 0, 2), HitOn(0, 0, 7)}, polls);
  ASSERT_EQ(groups.size(), 3u);
  EXPECT_FALSE(groups[0].hit);
  EXPECT_EQ(groups[0].rays, std::multiset<unsigned>{1});
  EXPECT_TRUE(groups[1].hit);
  EXPECT_EQ(groups[1].rays, std::multiset<unsigned>{2});
  EXPECT_EQ(groups[1].targets, (std::set<std::tuple<uint32_t, uint32_t, uint32_t>>{{0, 0, 2}}));
  EXPECT_TRUE(groups[2].hit);
  EXPECT_EQ(groups[2].rays, (std::multiset<unsigned>{0, 3}));
  EXPECT_EQ(groups[2].targets, (std::set<std::tuple<uint32_t, uint32_t, uint32_t>>{{0, 0, 7}}));
  EXPECT_EQ(polls, 3);  // after each record from the second on

  // The same triangle of two instances, or of the two trees, is two groups.
  groups = Groups({HitOn(0, 1, 4), HitOn(0, 0, 4), HitOn(0, 1, 4), HitOn(1, 0, 4)}, polls);
  ASSERT_EQ(groups.size(), 3u);
  EXPECT_EQ(groups[0].rays, std::multiset<unsigned>{1});
  EXPECT_EQ(groups[1].rays, (std::multiset<unsigned>{0, 2}));
  EXPECT_EQ(groups[2].rays, std::multiset<unsigned>{3});
  for (const ShadedGroup& group : groups) EXPECT_TRUE(group.hit);

  // One ray without a hit: one call; all rays on one triangle: one call.
  groups = Groups({Miss()}, polls);
  ASSERT_EQ(groups.size(), 1u);
  EXPECT_FALSE(groups[0].hit);
  EXPECT_EQ(polls, 0);
  groups = Groups(std::vector<PixelRayHit>(16, HitOn(0, 3, 9)), polls);
  ASSERT_EQ(groups.size(), 1u);
  EXPECT_EQ(groups[0].rays.size(), 16u);
}
