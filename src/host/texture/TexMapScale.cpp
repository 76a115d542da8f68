#include <cstdint>

#include "host/BrindlexTexture.h"

namespace {

// The power of two nearest to `size` on a logarithmic scale: a picture is
// then never stretched or shrunk by more than a factor of the square root
// of 2 on a side, which keeps both detail and memory close to the source.
// 300 becomes 256 (a factor of 1.17 down rather than 1.71 up), 400 becomes
// 512. Sizes below 1 count as 1.
int NearestPowerOfTwo(int size, int largest) {
  if (size <= 1) return 1;
  int64_t lower = 1;
  while (lower * 2 <= size) lower *= 2;
  // Between lower and 2 * lower the geometric middle is lower * sqrt(2):
  // size is above it exactly when size^2 > 2 * lower^2.
  const int64_t nearest = int64_t{size} * size > 2 * lower * lower ? lower * 2 : lower;
  return static_cast<int>(nearest < largest ? nearest : largest);
}

}  // namespace

void TexMapScalePow2(int width, int height, int limit, int& outWidth, int& outHeight) {
  // The largest power of two within the limit; a limit below 1 allows 1.
  int largest = 1;
  while (largest <= limit / 2) largest *= 2;
  outWidth = NearestPowerOfTwo(width, largest);
  outHeight = NearestPowerOfTwo(height, largest);
}
