// Fingerprints of what a kd-tree build and walk produce, to compare two
// versions of the engine: one hash of the tree's shape (planes, and each
// leaf's triangle numbers in order, read from the root down, lower child
// first, so that the numbering of nodes, which depends on the timing of the
// workers, plays no part) and one of every byte of the hit records of camera
// and random rays. Equal lines before and after a change mean the change
// kept every tree and every hit. The build's wall and processor time go to
// the error stream, and so do the rays per second of one thread, by the
// wall clock and by the thread's processor time (which a machine shared with
// other work disturbs far less); with
// DIGEST_BUILD_ONLY set only the build is measured.
//
//   tree_digest <triangle count | model file[@scale]>...
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <cstring>
#include <string>
#include <vector>

#include "BenchScenes.h"

namespace {

struct Hash {
  uint64_t value = 1469598103934665603ull;
  void Add(const void* data, size_t size) {
    const auto* bytes = static_cast<const unsigned char*>(data);
    for (size_t i = 0; i < size; ++i) value = (value ^ bytes[i]) * 1099511628211ull;
  }
  void Add(uint32_t word) { Add(&word, sizeof word); }
};

uint64_t ShapeHash(const KDTree& tree) {
  Hash hash;
  if (tree.nodes.empty()) return hash.value;
  std::vector<uint32_t> stack{0};
  while (!stack.empty()) {
    const KDNode node = tree.nodes[stack.back()];
    stack.pop_back();
    hash.Add(node.childAndAxis & 3);
    if ((node.childAndAxis & 3) == 3) {
      hash.Add(node.splitOrCount);
      const uint32_t first = node.childAndAxis >> 2;
      for (uint32_t i = 0; i < node.splitOrCount; ++i) hash.Add(tree.leafTriangles[first + i]);
      continue;
    }
    hash.Add(node.splitOrCount);
    stack.push_back((node.childAndAxis >> 2) + 1);
    stack.push_back(node.childAndAxis >> 2);
  }
  return hash.value;
}

double ThreadSeconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return now.tv_sec + 1e-9 * now.tv_nsec;
}

// Traces the rays, one thread, and hashes every hit record; `rate` gets
// the rays per second of the tracing alone, `cpuRate` the rays per second
// of the thread's processor time.
uint64_t HitHash(RT_RENDER_ENGINE* engine, const std::vector<bench::Ray>& rays, size_t& hits, double& rate,
                 double& cpuRate) {
  std::vector<SWRayIntersectionResult> results(rays.size());
  std::vector<uint8_t> hitFlags(rays.size());
  const auto start = std::chrono::steady_clock::now();
  const double cpuStart = ThreadSeconds();
  for (size_t i = 0; i < rays.size(); ++i)
    hitFlags[i] = engine->IntersectSWGeometry(rays[i].origin, rays[i].direction, rays[i].inverse, results[i]);
  cpuRate = rays.size() / (ThreadSeconds() - cpuStart);
  rate = rays.size() / std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  Hash hash;
  hits = 0;
  for (size_t i = 0; i < rays.size(); ++i) {
    hits += hitFlags[i];
    hash.Add(uint32_t(hitFlags[i]));
    hash.Add(&results[i], sizeof results[i]);
  }
  return hash.value;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: %s <triangle count | model file[@scale]>...\n", argv[0]);
    return 2;
  }
  for (int arg = 1; arg < argc; ++arg) {
    AccelTestEngine* engine = new AccelTestEngine();
    engine->Initialize(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
    AccelTestEngine& access = *engine;
    if (!bench::LoadScene(argv[arg], access.Tables()[0])) {
      std::fprintf(stderr, "cannot read %s\n", argv[arg]);
      return 1;
    }
    const auto wall = std::chrono::steady_clock::now();
    const std::clock_t cpu = std::clock();
    access.BuildTree(0);
    // Timing goes to the error stream, so that the fingerprint lines of two
    // runs compare as they are.
    std::fprintf(stderr, "scene=%s build_s=%.3f build_cpu_s=%.3f\n", argv[arg],
                 std::chrono::duration<double>(std::chrono::steady_clock::now() - wall).count(),
                 double(std::clock() - cpu) / CLOCKS_PER_SEC);
    if (std::getenv("DIGEST_BUILD_ONLY")) {
      engine->Release();
      continue;
    }
    const KDTree& tree = access.Trees()[0];
    size_t cameraHits = 0, randomHits = 0;
    double cameraRate = 0, randomRate = 0, cameraCpuRate = 0, randomCpuRate = 0;
    const uint64_t camera =
        HitHash(engine, bench::CameraRays(tree, 512, 384), cameraHits, cameraRate, cameraCpuRate);
    const uint64_t random =
        HitHash(engine, bench::RandomRays(tree, 200000), randomHits, randomRate, randomCpuRate);
    std::fprintf(stderr, "scene=%s cam_rps=%.0f rnd_rps=%.0f cam_cpu_rps=%.0f rnd_cpu_rps=%.0f\n", argv[arg],
                 cameraRate, randomRate, cameraCpuRate, randomCpuRate);
    std::printf("scene=%s nodes=%zu shape=%016llx camera=%016llx/%zu random=%016llx/%zu\n", argv[arg],
                tree.nodes.size(), (unsigned long long)ShapeHash(tree), (unsigned long long)camera,
                cameraHits, (unsigned long long)random, randomHits);
    engine->Release();
  }
  return 0;
}
