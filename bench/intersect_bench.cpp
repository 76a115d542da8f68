// Rays per second of IntersectSWGeometry: camera rays and random incoherent
// rays, on one thread and on as many threads as the engine has workers.
#include <benchmark/benchmark.h>

#include <map>
#include <mutex>
#include <memory>

#include "BenchScenes.h"
#include "host/brindlexutil.h"

namespace {

// One engine per scene, its tree built once by its own workers.
struct BenchScene {
  explicit BenchScene(int64_t triangles) {
    engine = new AccelTestEngine();
    engine->Initialize(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
    access = engine;
    if (triangles > 0) {
      bench::GenerateTown(size_t(triangles), access->Tables()[0]);
    } else if (!bench::LoadModel(BRINDLEX_BENCH_MODEL, access->Tables()[0])) {
      bench::GenerateTown(10000, access->Tables()[0]);
    }
    access->BuildTree(0);
    camera = bench::CameraRays(access->Trees()[0], 512, 384);
    random = bench::RandomRays(access->Trees()[0], 200000);
  }
  ~BenchScene() { engine->Release(); }

  AccelTestEngine* engine;
  AccelTestEngine* access;  // the engine itself, by the name the code reads
  std::vector<bench::Ray> camera, random;
};

// The scenes live until the process ends and are never destroyed: an engine
// that shuts down writes to the log, which may be gone by then.
BenchScene& Scene(int64_t triangles) {
  static auto& scenes = *new std::map<int64_t, std::unique_ptr<BenchScene>>();
  static std::mutex lock;
  std::lock_guard<std::mutex> guard(lock);
  auto& scene = scenes[triangles];
  if (!scene) scene = std::make_unique<BenchScene>(triangles);
  return *scene;
}

void Trace(benchmark::State& state, bool cameraRays) {
  BenchScene& scene = Scene(state.range(0));
  const std::vector<bench::Ray>& rays = cameraRays ? scene.camera : scene.random;
  const size_t begin = rays.size() * state.thread_index() / state.threads();
  const size_t end = rays.size() * (state.thread_index() + 1) / state.threads();
  size_t hits = 0;
  for (auto _ : state) {
    for (size_t i = begin; i < end; ++i) {
      SWRayIntersectionResult result{};
      hits += scene.engine->IntersectSWGeometry(rays[i].origin, rays[i].direction, rays[i].inverse, result);
    }
  }
  benchmark::DoNotOptimize(hits);
  state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(end - begin));
  state.counters["triangles"] =
      benchmark::Counter(double(scene.access->Trees()[0].triangles.size()), benchmark::Counter::kAvgThreads);
}

void BM_CameraRays(benchmark::State& state) {
  Trace(state, true);
}
void BM_RandomRays(benchmark::State& state) {
  Trace(state, false);
}

// Scenes: generated towns of 100k and 1M triangles, and the model file (0).
void Arguments(benchmark::internal::Benchmark* b) {
  const int workers = int(::GetProcessorCount());
  for (int64_t triangles : {int64_t(100000), int64_t(1000000), int64_t(0)}) b->Arg(triangles);
  b->Threads(1);
  if (workers > 1) b->Threads(workers);
  b->UseRealTime()->Unit(benchmark::kMillisecond);
}

}  // namespace

BENCHMARK(BM_CameraRays)->Apply(Arguments);
BENCHMARK(BM_RandomRays)->Apply(Arguments);
