// Build time of a kd-tree over generated tables of 10k, 100k and 1M
// triangles, on the engine's own workers.
#include <benchmark/benchmark.h>

#include <cmath>
#include <memory>

#include "AccelTestAccess.h"

namespace {

// A rolling terrain of `triangles` triangles (two per grid cell) with a
// scatter of small loose triangles above it, a mix of a connected surface
// and clutter like a building model's.
SWMeshTable GeneratedTable(size_t triangles) {
  SWMeshTable table;
  SWMesh terrain, clutter;
  const size_t loose = triangles / 10;
  const uint32_t side = uint32_t(std::sqrt(double(triangles - loose) / 2.0));
  for (uint32_t y = 0; y <= side; ++y)
    for (uint32_t x = 0; x <= side; ++x) {
      SCENE_VERTEX v{};
      v.position = {float(x), float(y), 3.0f * std::sin(x * 0.05f) * std::cos(y * 0.07f)};
      terrain.vertices.push_back(v);
    }
  for (uint32_t y = 0; y < side; ++y)
    for (uint32_t x = 0; x < side; ++x) {
      const uint32_t a = y * (side + 1) + x, b = a + 1, c = a + side + 1, d = c + 1;
      terrain.indices.insert(terrain.indices.end(), {a, b, d, a, d, c});
    }
  uint32_t state = 12345;
  const auto next = [&state](float range) {
    state = state * 1664525u + 1013904223u;
    return range * float(state >> 8) / float(1u << 24);
  };
  for (size_t i = 0; i < triangles - 2 * size_t(side) * side; ++i) {
    const float x = next(float(side)), y = next(float(side)), z = 4.0f + next(20.0f);
    for (int corner = 0; corner < 3; ++corner) {
      SCENE_VERTEX v{};
      v.position = {x + next(1.0f), y + next(1.0f), z + next(1.0f)};
      clutter.indices.push_back(uint32_t(clutter.vertices.size()));
      clutter.vertices.push_back(v);
    }
  }
  table.meshes = {terrain, clutter};
  table.instances = {{0, 0, 0}, {1, 0, 0}};
  return table;
}

struct Engine {
  Engine() {
    engine = new AccelTestEngine();
    engine->Initialize(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
    access = engine;
  }
  AccelTestEngine* engine;
  AccelTestEngine* access;  // the engine itself, by the name the code reads
};

void BM_KDTreeBuild(benchmark::State& state) {
  // Never destroyed: an engine shut down during static destruction would
  // write its log lines after the log stream itself is gone.
  static Engine& engine = *new Engine();
  const SWMeshTable table = GeneratedTable(size_t(state.range(0)));
  KDTree tree;
  for (auto _ : state) {
    engine.access->Build(tree, table);
    benchmark::DoNotOptimize(tree.nodes.data());
  }
  state.counters["triangles"] = double(tree.triangles.size());
  state.counters["nodes"] = double(tree.nodes.size());
  state.counters["leafEntries"] = double(tree.leafTriangles.size());
}

}  // namespace

BENCHMARK(BM_KDTreeBuild)
    ->Arg(10000)
    ->Arg(100000)
    ->Arg(1000000)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
