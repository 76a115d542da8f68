// What reading a model in a watched child process costs over reading it in
// the program itself: the fork, the scene's trip through the pipe as
// Assimp's binary format, and reading it back. Same reader settings and
// post-processing on both sides.
#include <assimp/postprocess.h>
#include <assimp/scene.h>
#include <benchmark/benchmark.h>

#include <assimp/Importer.hpp>

#include "ImportGuard.h"

namespace {

constexpr unsigned int Steps = aiProcess_Triangulate | aiProcess_GenSmoothNormals |
                               aiProcess_CalcTangentSpace | aiProcess_JoinIdenticalVertices |
                               aiProcess_SortByPType | aiProcess_GenUVCoords | aiProcess_TransformUVCoords |
                               aiProcess_ValidateDataStructure;

const char* const Models[] = {
    "/usr/share/assimp/models/IFC/AC14-FZK-Haus.ifc",
    "/usr/share/assimp/models/glTF2/2CylinderEngine-glTF-Binary/2CylinderEngine.glb"};

void InProcess(benchmark::State& state) {
  for (auto _ : state) {
    Assimp::Importer importer;
    const aiScene* scene = importer.ReadFile(Models[state.range(0)], Steps);
    if (!scene) state.SkipWithError("not read");
    benchmark::DoNotOptimize(scene);
  }
}

void InWatchedChild(benchmark::State& state) {
  for (auto _ : state) {
    ReadModel model;
    std::string error;
    if (!ReadModelGuarded(
            Models[state.range(0)], [](Assimp::Importer&) {}, Steps, {}, model, error))
      state.SkipWithError(error.c_str());
    benchmark::DoNotOptimize(model.scene);
  }
}

// Alternating, so that the shared machine's load falls on both alike.
BENCHMARK(InProcess)->Arg(0)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(InWatchedChild)->Arg(0)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(InProcess)->Arg(1)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(InWatchedChild)->Arg(1)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace
