// Photon shooting on a real model: photons stored per second with one and
// with two workers, memory per million stored photons, and the cost of the
// gathers at one shaded point. The model is read with Assimp and scaled by
// `scale` (100 turns a model in metres into centimetres, the unit that the
// engine's fixed constants suit); one point light stands in the roomiest
// enclosed space of the model.
//   photon_compare MODEL [scale] [level] [rounds]
#include <sched.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "BenchScenes.h"
#include "EngineTestAccess.h"
#include "SceneTestAccess.h"

namespace {

using Clock = std::chrono::steady_clock;
double Seconds(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}
// Processor time of the whole process: the workers' shooting, which the
// clock alone can't tell from other programs' time on a shared machine.
double ProcessSeconds() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return now.tv_sec + now.tv_nsec * 1e-9;
}

// Workers start with the affinity of the thread that creates them.
void UseProcessors(int count) {
  cpu_set_t set;
  CPU_ZERO(&set);
  for (int i = 0; i < count; ++i) CPU_SET(i, &set);
  sched_setaffinity(0, sizeof(set), &set);
}

// Vertex normals, which the model file may not carry and which scattering
// photons leave along: the sum of the faces' areas times their normals.
void SmoothNormals(SWMesh& mesh) {
  std::vector<SCENE_VERTEX_XYZ_64> sums(mesh.vertices.size(), {0, 0, 0});
  for (size_t i = 0; i + 2 < mesh.indices.size(); i += 3) {
    const SCENE_VERTEX_XYZ a = mesh.vertices[mesh.indices[i]].position,
                           b = mesh.vertices[mesh.indices[i + 1]].position,
                           c = mesh.vertices[mesh.indices[i + 2]].position;
    const SCENE_VERTEX_XYZ_64 e1 = {double(b.x) - a.x, double(b.y) - a.y, double(b.z) - a.z},
                              e2 = {double(c.x) - a.x, double(c.y) - a.y, double(c.z) - a.z};
    const SCENE_VERTEX_XYZ_64 n = {e1.y * e2.z - e1.z * e2.y, e1.z * e2.x - e1.x * e2.z,
                                   e1.x * e2.y - e1.y * e2.x};
    for (int k = 0; k < 3; ++k) {
      SCENE_VERTEX_XYZ_64& sum = sums[mesh.indices[i + k]];
      sum = {sum.x + n.x, sum.y + n.y, sum.z + n.z};
    }
  }
  for (size_t v = 0; v < sums.size(); ++v) {
    const double length = std::sqrt(sums[v].x * sums[v].x + sums[v].y * sums[v].y + sums[v].z * sums[v].z);
    if (length > 0)
      mesh.vertices[v].normal = {float(sums[v].x / length), float(sums[v].y / length),
                                 float(sums[v].z / length)};
  }
}

// The scene tables of the test engine, and the build of a tree over one.
class PhotonBenchEngine : public SceneTestEngine {
 public:
  void BuildTree(int row) {
    kdTrees[row].Build(&meshTables[row], workQueue, queueLock, renderThreads, wakeSemaphore, doneSemaphore,
                       nullptr, nullptr);
  }
};

struct Bench {
  PhotonBenchEngine* engine = new PhotonBenchEngine();
  ENVIRONMENT_3D_PROJECT project;
  MATERIAL_3D_NODE* root = scene_test::MaterialRoot();
  MODE_RENDER_OPTIONS options;

  Bench(const std::string& model, float scale, unsigned short level, int processors) {
    UseProcessors(processors);
    engine->Initialize(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
    SceneTestEngine& scene = *engine;
    SWMeshTable& table = scene.MeshTable(0);
    if (!bench::LoadModel(model, table))
      std::exit((std::fprintf(stderr, "cannot read %s\n", model.c_str()), 1));
    SCENE_VERTEX_XYZ_64& low = scene.SceneBox(0);
    SCENE_VERTEX_XYZ_64& high = scene.SceneBox(1);
    low = {1e300, 1e300, 1e300};
    high = {-1e300, -1e300, -1e300};
    for (SWMesh& mesh : table.meshes)
      for (SCENE_VERTEX& v : mesh.vertices) {
        v.position = {v.position.x * scale, v.position.y * scale, v.position.z * scale};
        low = {std::min(low.x, double(v.position.x)), std::min(low.y, double(v.position.y)),
               std::min(low.z, double(v.position.z))};
        high = {std::max(high.x, double(v.position.x)), std::max(high.y, double(v.position.y)),
                std::max(high.z, double(v.position.z))};
      }
    for (SWMesh& mesh : table.meshes) SmoothNormals(mesh);
    engine->BuildTree(0);
    // Walls and floors that throw back 60% of the light.
    MATERIAL_3D_NODE* material = scene_test::Material(root, "Wall");
    TEXTURE_LINK link;
    link.SetDiffuseLevel(60);
    material->SetTextureLink(&link);
    scene.SWMaterials().push_back({material, 0xFFFFFFFF, 0xFFFFFFFF});

    RTRendererLight bulb;
    bulb.number = 1;
    bulb.definition.type = 0;
    bulb.definition.color = 0x00FFFFFF;
    bulb.definition.flags = LightEnabled | LightDiffuse;
    bulb.definition.intensity = 10;
    bulb.definition.position = EnclosedPoint(low, high);
    EngineTestAccess(engine).Lights().InsertOrUpdateLight(&bulb);

    options.SetCustomLighting(true);
    options.SetPhotonMapping(true);
    options.SetIndirectLighting(true);
    options.SetPhotonLevel(level);
    // Three bounces, as brindlex-render's --photons sets: without any the
    // indirect list never fills, and the jobs run on until they give up.
    options.SetNumberOfIndirectBounces(3);
  }
  ~Bench() {
    engine->Release();
    delete root;
  }

  // The middle of the roomiest enclosed space found on a grid over the
  // scene box: of the points from which rays along all six axes meet
  // geometry, the one where the box those six hits span is largest. A
  // light there stands in a room, not inside a wall or a cupboard.
  SCENE_VERTEX_XYZ EnclosedPoint(const SCENE_VERTEX_XYZ_64& low, const SCENE_VERTEX_XYZ_64& high) {
    const int steps = 24;
    double best = -1e300;
    SCENE_VERTEX_XYZ chosen = {float((low.x + high.x) / 2), float((low.y + high.y) / 2),
                               float((low.z + high.z) / 2)};
    for (int i = 1; i < steps; ++i)
      for (int j = 1; j < steps; ++j)
        for (int k = 1; k < steps; ++k) {
          const SCENE_VERTEX_XYZ_64 p = {low.x + (high.x - low.x) * i / steps,
                                         low.y + (high.y - low.y) * j / steps,
                                         low.z + (high.z - low.z) * k / steps};
          // The volume of the box that the six hits span, in logarithms.
          double roominess = 0.0;
          bool enclosed = true;
          for (int axis = 0; axis < 6 && enclosed; ++axis) {
            SCENE_VERTEX_XYZ_64 d = {0, 0, 0};
            (&d.x)[axis / 2] = axis % 2 ? -1.0 : 1.0;
            SWRayIntersectionResult hit{};
            enclosed = engine->IntersectSWGeometry(p, d, InverseDirection(d), hit) && hit.distance > 1.0;
            if (enclosed) roominess += std::log(hit.distance);
          }
          if (enclosed && roominess > best) best = roominess, chosen = {float(p.x), float(p.y), float(p.z)};
        }
    std::fprintf(stderr, "box %g %g %g to %g %g %g; light at %g %g %g, roominess %g\n", low.x, low.y, low.z,
                 high.x, high.y, high.z, chosen.x, chosen.y, chosen.z, best);
    return chosen;
  }

  // Stored photons per second of one shooting: the whole run less the
  // build of the two maps, which is timed again on its own. `processor`
  // gets the processor microseconds per stored photon, measured alike.
  double ShootRate(size_t& stored, double& processor) {
    EngineTestAccess access(engine);
    Clock::time_point start = Clock::now();
    double processorStart = ProcessSeconds();
    engine->GenerateSWPhotonMap(project.GetView(0), &options);
    const double whole = Seconds(start), wholeProcessor = ProcessSeconds() - processorStart;
    SWPhotonMap scratch;
    start = Clock::now();
    processorStart = ProcessSeconds();
    scratch.Build(access.Photons(true));
    scratch.Build(access.Photons(false));
    const double build = Seconds(start), buildProcessor = ProcessSeconds() - processorStart;
    stored = 0;
    for (bool direct : {true, false})
      for (const SWPhoton& photon : access.Photons(direct)) {
        const SCENE_VERTEX_XYZ_64 d = photon.direction;
        stored += d.x != 0 || d.y != 0 || d.z != 0;
      }
    processor = (wholeProcessor - buildProcessor) / stored * 1e6;
    return stored / (whole - build);
  }
};

double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return std::fprintf(stderr, "usage: %s MODEL [scale] [level] [rounds]\n", argv[0]), 2;
  const float scale = argc > 2 ? std::stof(argv[2]) : 100.0f;
  const unsigned short level = argc > 3 ? static_cast<unsigned short>(std::stoi(argv[3])) : 5;
  const int rounds = argc > 4 ? std::stoi(argv[4]) : 3;
  Bench one(argv[1], scale, level, 1);
  Bench two(argv[1], scale, level, 2);
  UseProcessors(2);
  std::vector<double> rateOne, rateTwo, ratios, processorOne, processorTwo;
  size_t stored = 0;
  for (int round = 0; round < rounds; ++round) {  // alternating, so both see the same load
    double processor = 0.0;
    rateOne.push_back(one.ShootRate(stored, processor));
    processorOne.push_back(processor);
    rateTwo.push_back(two.ShootRate(stored, processor));
    processorTwo.push_back(processor);
    ratios.push_back(rateTwo.back() / rateOne.back());
    std::fprintf(stderr, "round %d: %.0f and %.0f photons/s\n", round, rateOne.back(), rateTwo.back());
  }

  EngineTestAccess access(two.engine);
  const SWPhotonMap& directMap = access.PhotonMap(true);
  const SWPhotonMap& indirectMap = access.PhotonMap(false);
  size_t bytes = 0;
  for (bool direct : {true, false}) {
    const SWPhotonMap& map = access.PhotonMap(direct);
    bytes += access.Photons(direct).capacity() * sizeof(SWPhoton) +
             map.entries.capacity() * sizeof(SWPhotonEntry) + map.nodes.capacity() * sizeof(SWPhotonNode);
  }

  // Gathers where photons lie, facing the way they came, as a shaded point
  // on a lit surface would; radius 2% of the diagonal, as --photons sets.
  const SCENE_VERTEX_XYZ_64 low = two.engine->SceneBox(0),
                            high = two.engine->SceneBox(1);
  const double radius = 0.02 * Distance(&low, &high);
  const std::vector<SWPhoton>& indirect = access.Photons(false);
  const std::vector<SWPhoton>& direct = access.Photons(true);
  std::mt19937 random(7);
  const int points = 2000;
  std::vector<SWPhoton> at(points);
  for (SWPhoton& photon : at) photon = indirect[random() % indirect.size()];
  // How many photons of each list lie within the radius of a point, on
  // average: what a gather walks through before its heap keeps 200.
  double inReach = 0.0;
  for (int i = 0; i < 50; ++i)
    for (const std::vector<SWPhoton>* list : {&direct, &indirect})
      for (const SWPhoton& photon : *list) {
        const SCENE_VERTEX_XYZ_64 p = photon.position, q = at[i].position;
        inReach += Distance(&p, &q) <= radius ? 1.0 / 100 : 0.0;
      }
  double sink = 0.0;
  // Processor time of this thread: a gather runs on one thread, and the
  // shared machine's other work does not count against it.
  const auto threadSeconds = [] {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return now.tv_sec + now.tv_nsec * 1e-9;
  };
  const auto gatherTime = [&](bool both) {
    const double start = threadSeconds();
    for (const SWPhoton& photon : at) {
      const SCENE_VERTEX_XYZ_64 d = photon.direction;
      const SCENE_VERTEX_XYZ_64 normal = {-d.x, -d.y, -d.z};
      sink += indirectMap.GatherPhotons(photon.position, radius, indirect, normal, {0.6f, 0.6f, 0.6f}, 200).x;
      if (both)
        sink += directMap.GatherPhotons(photon.position, radius, direct, normal, {0.6f, 0.6f, 0.6f}, 200).x;
    }
    return (threadSeconds() - start) / points * 1e6;
  };
  std::vector<double> indirectOnly, bothMaps;
  for (int round = 0; round < 3; ++round)
    indirectOnly.push_back(gatherTime(false)), bothMaps.push_back(gatherTime(true));

  std::printf(
      "model=%s scale=%g triangles=%zu level=%u stored=%zu rate_1=%.0f rate_2=%.0f ratio_median=%.2f "
      "cpu_us_per_photon_1=%.2f cpu_us_per_photon_2=%.2f "
      "MB_per_million=%.1f radius=%.1f in_reach=%.0f gather_indirect_cpu_us=%.1f gather_both_cpu_us=%.1f "
      "sink=%g\n",
      argv[1], scale, two.engine->Tree(0).triangles.size(), level, stored, Median(rateOne),
      Median(rateTwo), Median(ratios), Median(processorOne), Median(processorTwo),
      bytes / 1048576.0 / (stored / 1e6), radius, inReach, Median(indirectOnly), Median(bothMaps), sink);
  return 0;
}
