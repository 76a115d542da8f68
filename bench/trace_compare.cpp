// One row of the traversal table: build time and memory of kdTrees[0] over a
// scene, rays per second of IntersectSWGeometry, and, where Embree 3 is
// installed, the same triangles and rays through rtcIntersect1 with the share
// of rays on which both name the same nearest triangle. Rates are given by
// the wall clock and by the tracing threads' processor time: on a machine
// shared with other work the second is the one that compares.
//
//   trace_compare <triangle count | model file[@scale]>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <thread>
#include <vector>

#include "BenchScenes.h"
#include "host/brindlexutil.h"

#ifdef BRINDLEX_BENCH_EMBREE
#include <embree3/rtcore.h>
#endif

namespace {

using Clock = std::chrono::steady_clock;

double Seconds(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

double ThreadSeconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return now.tv_sec + 1e-9 * now.tv_nsec;
}

// Rays per second of the wall clock and of the tracing threads' processor
// time (per processor).
struct Rates {
  double wall = 0.0;
  double processor = 0.0;
};

double PeakMegabytes() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss / 1024.0;
}

// What a ray hit, as instance and triangle; instance 0xFFFFFFFF for a miss.
struct Named {
  uint32_t instance = 0xFFFFFFFF;
  uint32_t triangle = 0;
  bool operator==(const Named& other) const = default;
};

// Rays per second of IntersectSWGeometry on `threads` threads, and what each ray hit.
Rates TraceOurs(RT_RENDER_ENGINE* engine, const std::vector<bench::Ray>& rays, unsigned threads,
                std::vector<Named>& named) {
  named.assign(rays.size(), Named{});
  std::vector<double> processorSeconds(threads);
  const auto slice = [&](unsigned thread, size_t begin, size_t end) {
    const double start = ThreadSeconds();
    for (size_t i = begin; i < end; ++i) {
      SWRayIntersectionResult r{};
      if (engine->IntersectSWGeometry(rays[i].origin, rays[i].direction, rays[i].inverse, r))
        named[i] = {r.instanceIndex, r.triangleIndex};
    }
    processorSeconds[thread] = ThreadSeconds() - start;
  };
  const Clock::time_point start = Clock::now();
  std::vector<std::thread> workers;
  for (unsigned t = 0; t < threads; ++t)
    workers.emplace_back(slice, t, rays.size() * t / threads, rays.size() * (t + 1) / threads);
  for (std::thread& worker : workers) worker.join();
  const double wall = Seconds(start);
  double processor = 0.0;
  for (double seconds : processorSeconds) processor += seconds;
  return {rays.size() / wall, threads * rays.size() / processor};
}

// The best of three runs: the machine may be shared, and the fastest run is
// the one least disturbed.
template <typename Trace>
Rates BestOfThree(Trace trace) {
  Rates best;
  for (int run = 0; run < 3; ++run) {
    const Rates rates = trace();
    best.wall = std::max(best.wall, rates.wall);
    best.processor = std::max(best.processor, rates.processor);
  }
  return best;
}

double Agreement(const std::vector<Named>& a, const std::vector<Named>& b) {
  size_t same = 0;
  for (size_t i = 0; i < a.size(); ++i) same += a[i] == b[i];
  return double(same) / a.size();
}

#ifdef BRINDLEX_BENCH_EMBREE
// The tree's triangles in its numbering, as one Embree triangle mesh in world
// space: primitive n is the tree's triangle n.
struct EmbreeScene {
  EmbreeScene(const KDTree& tree, const SWMeshTable& table) {
    device = rtcNewDevice(nullptr);
    scene = rtcNewScene(device);
    RTCGeometry mesh = rtcNewGeometry(device, RTC_GEOMETRY_TYPE_TRIANGLE);
    const size_t count = tree.triangles.size();
    float* vertices = static_cast<float*>(rtcSetNewGeometryBuffer(
        mesh, RTC_BUFFER_TYPE_VERTEX, 0, RTC_FORMAT_FLOAT3, 3 * sizeof(float), 3 * count));
    unsigned* indices = static_cast<unsigned*>(rtcSetNewGeometryBuffer(
        mesh, RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT3, 3 * sizeof(unsigned), count));
    for (size_t n = 0; n < count; ++n) {
      const SWTriangle record = tree.triangles[n];
      names.push_back({record.instanceIndex, record.triangleIndex});
      SCENE_VERTEX_XYZ corners[3] = {};
      GetTriangleCorners(table, record.instanceIndex, record.triangleIndex, corners);
      for (int k = 0; k < 3; ++k) {
        vertices[9 * n + 3 * k] = corners[k].x;
        vertices[9 * n + 3 * k + 1] = corners[k].y;
        vertices[9 * n + 3 * k + 2] = corners[k].z;
        indices[3 * n + k] = unsigned(3 * n + k);
      }
    }
    rtcCommitGeometry(mesh);
    rtcAttachGeometry(scene, mesh);
    rtcReleaseGeometry(mesh);
    const Clock::time_point start = Clock::now();
    rtcCommitScene(scene);
    buildSeconds = Seconds(start);
  }
  ~EmbreeScene() {
    rtcReleaseScene(scene);
    rtcReleaseDevice(device);
  }

  // Rays per second of rtcIntersect1 on one thread; hits nearer than 1e-6
  // do not count, as in the engine.
  Rates Trace(const std::vector<bench::Ray>& rays, std::vector<Named>& named) {
    named.assign(rays.size(), Named{});
    RTCIntersectContext context;
    rtcInitIntersectContext(&context);
    const Clock::time_point start = Clock::now();
    const double processorStart = ThreadSeconds();
    for (size_t i = 0; i < rays.size(); ++i) {
      RTCRayHit hit{};
      hit.ray.org_x = float(rays[i].origin.x);
      hit.ray.org_y = float(rays[i].origin.y);
      hit.ray.org_z = float(rays[i].origin.z);
      hit.ray.dir_x = float(rays[i].direction.x);
      hit.ray.dir_y = float(rays[i].direction.y);
      hit.ray.dir_z = float(rays[i].direction.z);
      hit.ray.tnear = 1e-6f;
      hit.ray.tfar = INFINITY;
      hit.ray.mask = 0xFFFFFFFF;
      hit.hit.geomID = RTC_INVALID_GEOMETRY_ID;
      rtcIntersect1(scene, &context, &hit);
      if (hit.hit.geomID != RTC_INVALID_GEOMETRY_ID) named[i] = names[hit.hit.primID];
    }
    const double processor = ThreadSeconds() - processorStart;
    return {rays.size() / Seconds(start), rays.size() / processor};
  }

  RTCDevice device;
  RTCScene scene;
  std::vector<Named> names;
  double buildSeconds = 0.0;
};
#endif

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: %s <triangle count | model file[@scale]>\n", argv[0]);
    return 2;
  }
  AccelTestEngine* engine = new AccelTestEngine();
  engine->Initialize(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
  AccelTestEngine& access = *engine;
  SWMeshTable& table = access.Tables()[0];
  const std::string scene = argv[1];
  if (!bench::LoadScene(scene, table)) {
    std::fprintf(stderr, "cannot read %s\n", scene.c_str());
    return 1;
  }
  Clock::time_point start = Clock::now();
  const std::clock_t buildClock = std::clock();
  access.BuildTree(0);
  const double buildSeconds = Seconds(start);
  const double buildProcessorSeconds = double(std::clock() - buildClock) / CLOCKS_PER_SEC;
  const KDTree& tree = access.Trees()[0];
  const double treeMegabytes = (tree.nodes.size() * sizeof(KDNode) + tree.leafTriangles.size() * 4 +
                                tree.triangles.size() * sizeof(SWTriangle)) /
                               1048576.0;
  const double peakMegabytes = PeakMegabytes();
  // The build already made the walk layout; making it once more times that
  // part of the build alone.
  start = Clock::now();
  KDWalkLayout layout;
  layout.Make(tree);
  const double layoutSeconds = Seconds(start);
  const double layoutMegabytes = tree.WalkLayout().Bytes() / 1048576.0;
  layout.Clear();

  const std::vector<bench::Ray> camera = bench::CameraRays(tree, 1024, 768);
  const std::vector<bench::Ray> random = bench::RandomRays(tree, 500000);
  std::vector<Named> oursCamera, oursRandom, scratch;
  const unsigned workers = unsigned(::GetProcessorCount());
  const Rates cameraRate = BestOfThree([&] { return TraceOurs(engine, camera, 1, oursCamera); });
  const Rates randomRate = BestOfThree([&] { return TraceOurs(engine, random, 1, oursRandom); });
  const Rates cameraRateAll = BestOfThree([&] { return TraceOurs(engine, camera, workers, scratch); });
  const Rates randomRateAll = BestOfThree([&] { return TraceOurs(engine, random, workers, scratch); });

  std::printf(
      "scene=%s triangles=%zu nodes=%zu build_s=%.3f build_cpu_s=%.3f tree_MB=%.1f peak_MB=%.1f "
      "layout_s=%.3f layout_MB=%.1f "
      "cam_rps=%.0f rnd_rps=%.0f cam_cpu_rps=%.0f rnd_cpu_rps=%.0f threads=%u cam_rps_all=%.0f "
      "rnd_rps_all=%.0f",
      scene.c_str(), tree.triangles.size(), tree.nodes.size(), buildSeconds, buildProcessorSeconds,
      treeMegabytes, peakMegabytes, layoutSeconds, layoutMegabytes, cameraRate.wall, randomRate.wall,
      cameraRate.processor, randomRate.processor, workers, cameraRateAll.wall, randomRateAll.wall);
#ifdef BRINDLEX_BENCH_EMBREE
  {
    EmbreeScene embree(tree, table);
    std::vector<Named> embreeCamera, embreeRandom;
    const Rates embreeCameraRate = BestOfThree([&] { return embree.Trace(camera, embreeCamera); });
    const Rates embreeRandomRate = BestOfThree([&] { return embree.Trace(random, embreeRandom); });
    std::printf(
        " embree_build_s=%.3f embree_cam_rps=%.0f embree_rnd_rps=%.0f embree_cam_cpu_rps=%.0f "
        "embree_rnd_cpu_rps=%.0f agree_cam=%.5f agree_rnd=%.5f",
        embree.buildSeconds, embreeCameraRate.wall, embreeRandomRate.wall, embreeCameraRate.processor,
        embreeRandomRate.processor, Agreement(oursCamera, embreeCamera), Agreement(oursRandom, embreeRandom));
  }
#endif
  std::printf("\n");
  engine->Release();
  return 0;
}
