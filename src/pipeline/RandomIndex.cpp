// Picking a row of a table at random, as photon shooting picks its light.
#include "pipeline/RandomNumberGenerator.h"

uint32_t RT_RANDOM_NUMBER_GENERATOR::RandomIndex(uint32_t n) {
  if (useSystemRandom) {
    unsigned int drawn = 0;
    rand_s(&drawn);
    // The top value maps to n itself; the caller turns that row into 0.
    return static_cast<uint32_t>(drawn / 4294967295.0 * n);
  }
  const uint32_t drawn = static_cast<uint32_t>(generator());
  return n == 0 ? 0 : drawn % n;
}
