#include "RandomNumberGenerator.h"

#include <cerrno>
#include <sys/random.h>

#include "BrindlexViewMath.h"

int rand_s(unsigned int* value) {
  if (!value) return EINVAL;
  *value = 0;
  unsigned int drawn = 0;
  for (;;) {
    // Four bytes from the kernel's pool never come back short once the pool
    // is ready; a signal that arrives first only asks for a retry.
    const ssize_t got = getrandom(&drawn, sizeof drawn, 0);
    if (got == static_cast<ssize_t>(sizeof drawn)) break;
    if (got < 0 && errno == EINTR) continue;
    return got < 0 ? errno : EIO;
  }
  *value = drawn;
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
