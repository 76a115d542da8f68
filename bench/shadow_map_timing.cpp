// Time to draw the shadow maps of one spot light, one point light (six
// faces) and one direct light over a real building, and, for scale, the
// 2.1 million rays framed as the direct map is (about what its million
// pixels cast: two or more rays each where they meet the building) through
// the same tree on one thread. Workers follow the processors the process may use:
// run under `taskset -c 0` for one worker.
//
//   shadow_map_timing MODEL [repeats]
//
// The model is imported in centimetres (scaled by 100 from a metre file).
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "host/BrindlexViewMath.h"
#include "engine/BrindlexViewRTRenderEngine.h"
#include "EngineTestAccess.h"
#include "HostScene.h"
#include "ModelImport.h"

namespace {
using Clock = std::chrono::steady_clock;
constexpr float Centimetres = 100.0f;

double Seconds(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

SCENE_LIGHT_DEFINITION Light(uint16_t type, SCENE_VERTEX_XYZ position, SCENE_VERTEX_XYZ target) {
  SCENE_LIGHT_DEFINITION light{};
  light.type = type;
  light.position = position;
  light.target = target;
  light.color = 0x00FFFFFF;
  light.flags = LightEnabled | LightCastsShadows | LightDiffuse;
  light.intensity = 10;
  light.angle = 40.0;
  return light;
}
}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: shadow_map_timing MODEL [repeats]\n");
    return 2;
  }
  const int repeats = argc > 2 ? std::max(1, std::atoi(argv[2])) : 3;
  HostScene host;
  ImportedModel model;
  std::string error;
  ModelPlacement placement;
  placement.scale = Centimetres;
  if (!ImportModel(argv[1], placement, host, model, error)) {
    std::fprintf(stderr, "%s\n", error.c_str());
    return 1;
  }
  SCENE_VERTEX_XYZ low{}, high{};
  host.Root()->GetNodeBounds(&low, &high, true);
  const SCENE_VERTEX_XYZ centre{(low.x + high.x) / 2, (low.y + high.y) / 2, (low.z + high.z) / 2};
  const float height = high.z - low.z, width = high.x - low.x;
  // World lights: a spot above one corner looking at the middle, a point
  // light over the roof, and a sun from the south-west.
  SCENE_MATRIX identity;
  GetIdentityMatrix(&identity);
  host.AddWorldLight(Light(1, {low.x, low.y, high.z + height}, centre), identity);
  host.AddWorldLight(Light(0, {centre.x + width / 4, centre.y, high.z + height / 4}, centre), identity);
  host.AddWorldLight(Light(2, {centre.x - 50, centre.y - 50, centre.z + 100}, centre), identity);
  host.Options().SetCustomLighting(true);
  host.Options().SetDisplayShadows(true);
  host.Options().SetRayTracedSoftShadows(true);
  SCENE_CAMERA_INFO camera{{centre.x - 2 * width, -(centre.y - 2 * width), centre.z + height},
                           {centre.x, -centre.y, centre.z},
                           45,
                           0,
                           0};
  host.View().GetViewFileState()->SetCameraInfo(camera);

  auto* engine = static_cast<RT_RENDER_ENGINE*>(CreateRenderEngine());
  engine->Initialize("", "", "", "", "", "");
  EngineTestAccess access(engine);
  engine->UpdateFrame(&host.Project(), &host.View(), &host.Graph(), &host.Lights(), nullptr, nullptr, 0, 1);
  std::printf("model %s: %lu triangles, %zu workers\n", argv[1], model.triangles, access.WorkerCount());

  const char* names[3] = {"spot 256x256", "point 6x256x256", "direct 1024x1024"};
  MODE_RENDER_OPTIONS options;
  host.View().GetCurrentRenderOptions(&host.Project(), options);
  for (int light = 0; light < 3; ++light) {
    std::vector<double> times;
    for (int r = 0; r < repeats; ++r) {
      access.DirtyShadowLights().insert(light);
      const Clock::time_point start = Clock::now();
      engine->GenerateSWShadowmap(light, &host.View(), &host.Graph(), &options);
      times.push_back(Seconds(start));
    }
    std::sort(times.begin(), times.end());
    std::printf("%-18s median %.3f s (min %.3f)\n", names[light], times[times.size() / 2], times.front());
  }

  // 1448 x 1448 camera rays (2.1 million) on this thread, in a parallel
  // view along the sun's direction over the scene's box, as the direct map
  // frames it; each covered map pixel costs at least two rays.
  const int side = 1448;
  const SCENE_VERTEX_XYZ_64 sunFrom{centre.x - 50.0, centre.y - 50.0, centre.z + 100.0};
  SCENE_VERTEX_XYZ_64 forward{centre.x - sunFrom.x, centre.y - sunFrom.y, centre.z - sunFrom.z}, right, up;
  GetUnitVector(&forward, &forward);
  const SCENE_VERTEX_XYZ_64 zAxis{0, 0, 1};
  CrossProduct(&forward, &zAxis, &right);
  GetUnitVector(&right, &right);
  CrossProduct(&right, &forward, &up);
  const double diagonal = Distance(&low, &high), half = diagonal / 2.0;
  std::vector<double> times;
  size_t hits = 0;
  for (int r = 0; r < repeats; ++r) {
    hits = 0;
    const Clock::time_point start = Clock::now();
    for (int y = 0; y < side; ++y)
      for (int x = 0; x < side; ++x) {
        const double s = (2.0 * (x + 0.5) / side - 1) * half, t = (1 - 2.0 * (y + 0.5) / side) * half;
        const SCENE_VERTEX_XYZ_64 origin{centre.x - forward.x * diagonal + right.x * s + up.x * t,
                                         centre.y - forward.y * diagonal + right.y * s + up.y * t,
                                         centre.z - forward.z * diagonal + right.z * s + up.z * t};
        SWRayIntersectionResult result{};
        hits += engine->IntersectSWGeometry(origin, forward, InverseDirection(forward), result);
      }
    times.push_back(Seconds(start));
  }
  std::sort(times.begin(), times.end());
  std::printf("%-18s median %.3f s (min %.3f), %.0f%% hit\n", "camera rays 2.1M", times[times.size() / 2],
              times.front(), 100.0 * hits / (double(side) * side));
  engine->Release();
  return 0;
}
