#include "pipeline/RandomNumberGenerator.h"

#include <pthread.h>
#include <sys/random.h>

#include <atomic>
#include <cerrno>
#include <cstddef>

#include "host/BrindlexViewMath.h"

namespace {
// One system call per draw made the kernel the renderer's main cost: a
// path-traced or occluded pixel draws dozens of numbers. Each thread takes
// the kernel's bytes in blocks instead and hands them out one by one. 1 KiB
// per thread keeps the call's cost far below a nanosecond per draw.
constexpr size_t BufferedDraws = 256;

// Raised in the child of a fork: the buffers it inherited are its
// parent's, and two processes must not hand out the same numbers.
std::atomic<unsigned> forkGeneration{0};

void OnForkChild() {
  forkGeneration.fetch_add(1, std::memory_order_relaxed);
}

struct SystemRandomBuffer {
  unsigned int values[BufferedDraws];
  size_t next = BufferedDraws;  // empty until the first draw
  unsigned generation = 0;

  // 0, or the errno of a failed call; the buffer then stays empty.
  int Refill() {
    static const int registered = pthread_atfork(nullptr, nullptr, OnForkChild);
    (void)registered;
    unsigned char* bytes = reinterpret_cast<unsigned char*>(values);
    size_t filled = 0;
    while (filled < sizeof values) {
      // Reads above 256 bytes may come back short when a signal arrives;
      // the rest is asked for again.
      const ssize_t got = getrandom(bytes + filled, sizeof values - filled, 0);
      if (got > 0) {
        filled += static_cast<size_t>(got);
      } else if (got < 0 && errno != EINTR) {
        return errno;
      } else if (got == 0) {
        return EIO;
      }
    }
    next = 0;
    generation = forkGeneration.load(std::memory_order_relaxed);
    return 0;
  }
};

thread_local SystemRandomBuffer systemRandom;
}  // namespace

int rand_s(unsigned int* value) {
  if (!value) return EINVAL;
  *value = 0;
  SystemRandomBuffer& buffer = systemRandom;
  if (buffer.next == BufferedDraws || buffer.generation != forkGeneration.load(std::memory_order_relaxed)) {
    if (const int error = buffer.Refill()) return error;
  }
  *value = buffer.values[buffer.next++];
  return 0;
}

RT_RANDOM_NUMBER_GENERATOR::RT_RANDOM_NUMBER_GENERATOR(bool useSystemRandom, unsigned int seed)
    : useSystemRandom(useSystemRandom) {
  if (!useSystemRandom) generator.seed(seed);
}

double RT_RANDOM_NUMBER_GENERATOR::RandomUnit() {
  uint32_t value = 0;
  if (useSystemRandom) {
    // A failed draw of the secure source gives 0: the sample then sits at
    // the edge of its range instead of stopping the render.
    unsigned int drawn = 0;
    rand_s(&drawn);
    value = drawn;
  } else {
    value = static_cast<uint32_t>(generator() % 0xFFFFFFFFu);
  }
  return value / 4294967295.0;
}

SCENE_VERTEX_XYZ_64 RT_RANDOM_NUMBER_GENERATOR::RandomUnitVector() {
  // Three statements, so that the draws are made in x, y, z order.
  SCENE_VERTEX_XYZ_64 cubePoint;
  cubePoint.x = (RandomUnit() - 0.5) * 2.0;
  cubePoint.y = (RandomUnit() - 0.5) * 2.0;
  cubePoint.z = (RandomUnit() - 0.5) * 2.0;
  SCENE_VERTEX_XYZ_64 unit;
  GetUnitVector(&cubePoint, &unit);
  return unit;
}
