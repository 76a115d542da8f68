// Whole frames per second: a model assembled as brindlex-render assembles
// it, rendered through UpdateFrame and RenderFrame into the engine's frame
// buffer (a window that shows nothing), once with one worker and once with
// every processor, and the pixel bytes of the two compared. The worker count
// follows the processors the engine sees when it starts, so the program
// narrows its own processor set for the one-worker engine.
//
//   frame_rate <model> [width height [frames [brindlex-render options...]]]
//
// On the screen the path tracer runs passes until the host aborts, so with
// --path-tracing each "frame" is a fixed stretch of tracing (PathTraceSeconds)
// and its time is the stretch over the frames' worth of pixels whose blocks
// finished in it; the pictures of two such runs are not compared.
//
// Prints one line: pixels per second (the median frame) for one worker and
// for all, their ratio, the share of the frames' time in which the workers
// ran or were ready to run, the processor time of a frame, and whether the
// two pictures are the same bytes. On a machine shared with other work the
// wall-time ratio follows the other work; "quiet_scaling" estimates the
// ratio on an idle machine as the workers' count times their busy share
// times the ratio of processor time per frame.
#include <sched.h>

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "engine/BrindlexViewRTRenderEngine.h"
#include "PipelineTestAccess.h"
#include "SceneAssembly.h"
#include "platform/Window.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr double PathTraceSeconds = 5.0;

// Counts the pixels of the blocks that reach the frame buffer.
class BlockCounter : public RENDER_PROGRESS_INTERFACE {
 public:
  void DisplayBeginProgress(unsigned long, unsigned int, unsigned int, unsigned int, unsigned int,
                            unsigned int, unsigned int) override {}
  bool DisplayEndProgress(Gdiplus::Bitmap*, unsigned int, unsigned int, unsigned int, unsigned int,
                          unsigned int width, unsigned int height) override {
    pixels += uint64_t{width} * height;
    return true;
  }
  std::atomic<uint64_t> pixels{0};
};

bool PastDeadline(void* deadline) {
  return Clock::now() >= *static_cast<const Clock::time_point*>(deadline);
}

struct FrameFigures {
  double updateSeconds = 0.0;
  double medianSeconds = 0.0;
  // Of the frames' wall time, the share in which the workers were running
  // or ready to run, rather than asleep on a lock or a semaphore.
  double busyShare = 0.0;
  double processorSeconds = 0.0;  // per frame, all threads
  std::vector<uint32_t> pixels;
};

// Nanoseconds that each thread of this process has run and waited ready to
// run, by thread id. On a machine shared with other work the wall time says
// little about scaling; the time a worker spent neither running nor ready
// is what a frame really lost to waiting.
std::map<int, double> ThreadBusyTimes() {
  std::map<int, double> times;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task")) {
    std::ifstream stat(entry.path() / "schedstat");
    double run = 0, wait = 0;
    if (stat >> run >> wait) times[std::stoi(entry.path().filename())] = run + wait;
  }
  return times;
}

// The first `count` processors of those this process may use.
cpu_set_t FirstProcessors(const cpu_set_t& allowed, int count) {
  cpu_set_t set;
  CPU_ZERO(&set);
  for (int cpu = 0; cpu < CPU_SETSIZE && count > 0; ++cpu)
    if (CPU_ISSET(cpu, &allowed)) CPU_SET(cpu, &set), --count;
  return set;
}

FrameFigures Render(HostScene& host, int width, int height, int frames, bool timed) {
  FrameFigures figures;
  platform::NullWindow window(width, height);
  auto* engine = static_cast<RT_RENDER_ENGINE*>(CreateRenderEngine());
  engine->Initialize(host.TextureDirectory().string().c_str(), "", "bump", "mask", "", "");
  engine->InitializeRendererWindow(&window, nullptr);
  ENVIRONMENT_3D_VIEW& view = host.View();
  Clock::time_point start = Clock::now();
  engine->UpdateFrame(&host.Project(), &view, &host.Graph(), &host.Lights(), host.HorizonNode(),
                      host.HorizonMaterialID(), view.GetViewMaterialSet(), host.Project().GetFrameTag());
  figures.updateSeconds = std::chrono::duration<double>(Clock::now() - start).count();
  BlockCounter counter;
  Clock::time_point deadline;
  if (timed) {
    engine->SetRenderProgressInterface(&counter);
    engine->SetShouldAbortRenderFunction(&PastDeadline, &deadline);
  }
  std::vector<double> seconds;
  const std::map<int, double> busyBefore = ThreadBusyTimes();
  const Clock::time_point first = Clock::now();
  const std::clock_t processorStart = std::clock();
  double framesTraced = timed ? 0.0 : frames;
  for (int frame = 0; frame < frames; ++frame) {
    counter.pixels = 0;
    start = Clock::now();
    deadline =
        start + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(PathTraceSeconds));
    engine->RenderFrame(&host.Project(), &view, &host.Graph(), {0, 0, width, height}, true);
    const double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
    if (timed) framesTraced += double(counter.pixels) / (double(width) * height);
    seconds.push_back(timed ? elapsed * double(width) * height / double(std::max<uint64_t>(counter.pixels, 1))
                            : elapsed);
  }
  const double wall = std::chrono::duration<double>(Clock::now() - first).count();
  figures.processorSeconds =
      double(std::clock() - processorStart) / CLOCKS_PER_SEC / std::max(framesTraced, 1e-9);
  double busy = 0.0;
  int workers = 0;
  for (const auto& [thread, after] : ThreadBusyTimes()) {
    const auto before = busyBefore.find(thread);
    if (thread == gettid() || before == busyBefore.end()) continue;
    busy += (after - before->second) * 1e-9;
    ++workers;
  }
  figures.busyShare = workers > 0 ? busy / (workers * wall) : 0.0;
  std::sort(seconds.begin(), seconds.end());
  figures.medianSeconds = seconds[seconds.size() / 2];
  const PipelineTestAccess pipeline(engine);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) figures.pixels.push_back(pipeline.BitmapPixel(x, y));
  engine->ShutDown();
  engine->Release();
  return figures;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: %s <model> [width height [frames [options...]]]\n", argv[0]);
    return 2;
  }
  const int width = argc > 3 ? std::stoi(argv[2]) : 1280, height = argc > 3 ? std::stoi(argv[3]) : 720;
  const int frames = argc > 4 ? std::max(1, std::stoi(argv[4])) : 5;
  std::vector<std::string> arguments = {argv[1], "--width", std::to_string(width), "--height",
                                        std::to_string(height)};
  for (int i = 5; i < argc; ++i) arguments.push_back(argv[i]);
  RenderSettings settings;
  std::string error;
  HostScene host;
  if (!ParseOptions(arguments, settings, error) ||
      !AssembleScene(settings, double(width) / double(height), host, error)) {
    std::fprintf(stderr, "frame_rate: %s\n", error.c_str());
    return 2;
  }
  cpu_set_t allowed;
  sched_getaffinity(0, sizeof allowed, &allowed);
  const int all = CPU_COUNT(&allowed);
  const cpu_set_t one = FirstProcessors(allowed, 1);
  sched_setaffinity(0, sizeof one, &one);
  const bool timed = settings.pathTracing;
  const FrameFigures single = Render(host, width, height, frames, timed);
  sched_setaffinity(0, sizeof allowed, &allowed);
  const FrameFigures every = Render(host, width, height, frames, timed);
  const double pixels = double(width) * height;
  std::printf(
      "model=%s size=%dx%d frames=%d update_s_1=%.3f frame_s_1=%.3f pixels_per_s_1=%.0f workers=%d "
      "update_s_all=%.3f frame_s_all=%.3f pixels_per_s_all=%.0f scaling=%.2f busy_1=%.3f busy_all=%.3f "
      "cpu_s_1=%.3f cpu_s_all=%.3f quiet_scaling=%.2f same_pixels=%s\n",
      argv[1], width, height, frames, single.updateSeconds, single.medianSeconds,
      pixels / single.medianSeconds, all, every.updateSeconds, every.medianSeconds,
      pixels / every.medianSeconds, single.medianSeconds / every.medianSeconds, single.busyShare,
      every.busyShare, single.processorSeconds, every.processorSeconds,
      all * every.busyShare * single.processorSeconds / every.processorSeconds,
      timed                           ? "n/a"
      : single.pixels == every.pixels ? "yes"
                                      : "no");
  return 0;
}
