// One row of the path-tracing table: a whole building through
// brindlex-render's scene assembly and the engine's file path, as a user
// renders it. Prints the scene update's time, the time of each number of
// path-tracing passes with paths per second (pixels x passes / seconds), and
// an ordinary ray-traced frame with and without ambient occlusion. The
// workers are as many as the processors the process may use: run it under
// `taskset -c 0` for one.
//
//   path_trace_compare demo|MODEL [--scale S] [--passes 16,64] [--width W] [--height H]
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

#include "BrindlexViewRTRenderEngine.h"
#include "RenderJob.h"
#include "SceneAssembly.h"
#include "brindlexutil.h"

namespace {

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
};

bool Parse(int argc, char** argv, Arguments& a) {
  if (argc < 2) return false;
  a.scene = argv[1];
  for (int i = 2; i + 1 < argc; i += 2) {
    const std::string name = argv[i], value = argv[i + 1];
    if (name == "--scale") {
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
  for (int passes : a.passes) {
    file.SetRenderToFileNumberPathTracingPasses(passes);
    const Timing t = render();
    std::printf(" passes_%d_s=%.3f paths_per_s_%d=%.0f passes_%d_cpu_s=%.3f", passes, t.wall, passes,
                pixels * passes / t.wall, passes, t.processor);
  }
  // Ambient occlusion darkens the ambient term of custom lighting only.
  host.Options().SetPathTracing(false);
  host.Options().SetCustomLighting(true);
  host.Options().SetAmbientOcclusion(false);
  const Timing plain = render();
  host.Options().SetAmbientOcclusion(true);
  const Timing occluded = render();
  std::printf(
      " frame_s=%.3f frame_ao_s=%.3f ao_ratio=%.2f frame_cpu_s=%.3f frame_ao_cpu_s=%.3f ao_cpu_ratio=%.2f\n",
      plain.wall, occluded.wall, occluded.wall / plain.wall, plain.processor, occluded.processor,
      occluded.processor / plain.processor);

  engine->ShutDown();
  engine->Release();
  std::filesystem::remove_all(folder);
  return 0;
}
