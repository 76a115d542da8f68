#include "accel/CompareRayHits.h"

namespace {

int Order(uint32_t a, uint32_t b) {
  return a < b ? -1 : a > b ? 1 : 0;
}

}  // namespace

int CompareRayHits(const void* a, const void* b) {
  const PixelRayHit& first = *static_cast<const PixelRayHit*>(a);
  const PixelRayHit& second = *static_cast<const PixelRayHit*>(b);
  if (first.hit != second.hit) return first.hit ? 1 : -1;
  if (!first.hit) return 0;
  const SWRayIntersectionResult x = first.result;
  const SWRayIntersectionResult y = second.result;
  if (int order = Order(x.treeIndex, y.treeIndex)) return order;
  if (int order = Order(x.instanceIndex, y.instanceIndex)) return order;
  return Order(x.triangleIndex, y.triangleIndex);
}
