// One row of the path-tracing table: a whole building through
// brindlex-render's scene assembly and the engine's file path, as a user
// renders it. Prints the scene update's time, the time of each number of
// path-tracing passes with paths per second (pixels x passes / seconds), and
// an ordinary ray-traced frame with and without ambient occlusion. The
// workers are as many as the processors the process may use: run it under
// `taskset -c 0` for one.
//
// The counts of passes are timed in one render of the largest: a pass ends
// where the next one is announced. --no-frames leaves out the ordinary
// frames.
//
//   path_trace_compare demo|MODEL [--scale S] [--passes 16,64] [--width W] [--height H] [--no-frames]
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "engine/BrindlexViewRTRenderEngine.h"
#include "RenderJob.h"
#include "SceneAssembly.h"
#include "platform/Window.h"
#include "host/brindlexutil.h"

namespace {

// The message the engine posts at the start of each pass.
constexpr unsigned PassAnnounced = 0x8000;

using Clock = std::chrono::steady_clock;

double Seconds(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

// Processor time of the whole process: on a machine that others load, it
// moves less than the time on the clock.
double ProcessorSeconds() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return double(now.tv_sec) + now.tv_nsec * 1e-9;
}

struct Timing {
  double wall, processor;
};

struct Arguments {
  std::string scene;
  double scale = 1.0;
  std::vector<int> passes = {16, 64};
  int width = 1280, height = 720;
  bool frames = true;
};

bool Parse(int argc, char** argv, Arguments& a) {
  if (argc < 2) return false;
  a.scene = argv[1];
  for (int i = 2; i < argc; i += 2) {
    const std::string name = argv[i], value = i + 1 < argc ? argv[i + 1] : "";
    if (name == "--no-frames") {
      a.frames = false;
      --i;
    } else if (name == "--scale") {
      a.scale = std::atof(value.c_str());
    } else if (name == "--width") {
      a.width = std::atoi(value.c_str());
    } else if (name == "--height") {
      a.height = std::atoi(value.c_str());
    } else if (name == "--passes") {
      a.passes.clear();
      std::istringstream list(value);
      for (std::string item; std::getline(list, item, ',');) a.passes.push_back(std::atoi(item.c_str()));
    } else {
      return false;
    }
  }
  return a.width > 0 && a.height > 0 && a.scale > 0 && !a.passes.empty();
}

}  // namespace

int main(int argc, char** argv) {
  Arguments a;
  if (!Parse(argc, argv, a)) {
    std::fprintf(stderr, "usage: %s demo|MODEL [--scale S] [--passes 16,64] [--width W] [--height H]\n",
                 argv[0]);
    return 2;
  }
  const std::filesystem::path folder =
      std::filesystem::temp_directory_path() / ("brindlex-path-bench-" + std::to_string(getpid()));
  std::filesystem::create_directories(folder);
  RenderSettings settings;
  if (a.scene != "demo") {
    // Through a scene file, which is where a model takes a scale.
    settings.sceneFile = (folder / "scene.json").string();
    std::ofstream(settings.sceneFile)
        << "{\"models\": [{\"file\": \"" << std::filesystem::absolute(a.scene).string()
        << "\", \"scale\": " << a.scale << "}]}";
  }
  HostScene host;
  std::string error;
  if (!AssembleScene(settings, double(a.width) / a.height, host, error)) {
    std::fprintf(stderr, "%s\n", error.c_str());
    return 1;
  }

  RENDER_ENGINE_INTERFACE* engine = CreateRenderEngine();
  engine->Initialize(host.TextureDirectory().string().c_str(), "", "bump", "mask", "", "");
  unsigned int frameWidth = std::min<unsigned int>(a.width, MaximumFrameSide);
  unsigned int frameHeight = std::min<unsigned int>(a.height, MaximumFrameSide);
  engine->ResizeClientArea(&frameWidth, &frameHeight);
  RENDER_TO_FILE_INTERFACE& file = *engine->GetRenderToFileInterface();
  file.SetRenderToFile(true);
  file.SetRenderToFileResolution(short(a.width), short(a.height));
  // A BMP is written after each pass in a few milliseconds.
  const std::string output = (folder / "picture.bmp").string();
  file.SetRenderToFileName(output.c_str());

  ENVIRONMENT_3D_VIEW& view = host.View();
  Clock::time_point start = Clock::now();
  engine->UpdateFrame(&host.Project(), &view, &host.Graph(), &host.Lights(), host.HorizonNode(),
                      host.HorizonMaterialID(), view.GetViewMaterialSet(), host.Project().GetFrameTag());
  const double updateSeconds = Seconds(start);
  const RECT frame = {0, 0, int32_t(frameWidth), int32_t(frameHeight)};
  const auto render = [&] {
    const Clock::time_point begin = Clock::now();
    const double processorBegin = ProcessorSeconds();
    engine->RenderFrame(&host.Project(), &view, &host.Graph(), frame, false);
    return Timing{Seconds(begin), ProcessorSeconds() - processorBegin};
  };

  std::printf("scene=%s triangles=%zu workers=%lu width=%d height=%d update_s=%.3f", a.scene.c_str(),
              size_t(host.TriangleCount()), GetProcessorCount(), a.width, a.height, updateSeconds);
  host.Options().SetPathTracing(true);
  const double pixels = double(a.width) * a.height;
  const int most = *std::max_element(a.passes.begin(), a.passes.end());
  std::vector<double> passStart(size_t(most) + 2, 0.0);
  Clock::time_point begin;
  platform::MessageWindow passes([&](unsigned message, WPARAM, LPARAM pass) {
    if (message == PassAnnounced && pass >= 1 && pass <= most) passStart[size_t(pass)] = Seconds(begin);
  });
  file.SetRenderToFilePathTracingProgressWindowParams(&passes, PassAnnounced, 0);
  file.SetRenderToFileNumberPathTracingPasses(most);
  begin = Clock::now();
  const Timing t = render();
  passStart[size_t(most) + 1] = t.wall;
  for (int count : a.passes) {
    const double seconds = passStart[size_t(count) + 1];
    std::printf(" passes_%d_s=%.3f paths_per_s_%d=%.0f", count, seconds, count, pixels * count / seconds);
  }
  std::printf(" passes_%d_cpu_s=%.3f", most, t.processor);
  // Ambient occlusion darkens the ambient term of custom lighting only.
  if (a.frames) {
    host.Options().SetPathTracing(false);
    host.Options().SetCustomLighting(true);
    host.Options().SetAmbientOcclusion(false);
    const Timing plain = render();
    host.Options().SetAmbientOcclusion(true);
    const Timing occluded = render();
    std::printf(
        " frame_s=%.3f frame_ao_s=%.3f ao_ratio=%.2f frame_cpu_s=%.3f frame_ao_cpu_s=%.3f ao_cpu_ratio=%.2f",
        plain.wall, occluded.wall, occluded.wall / plain.wall, plain.processor, occluded.processor,
        occluded.processor / plain.processor);
  }
  std::printf("\n");

  engine->ShutDown();
  engine->Release();
  std::filesystem::remove_all(folder);
  return 0;
}
