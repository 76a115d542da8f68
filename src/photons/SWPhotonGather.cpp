#include <algorithm>
#include <bit>
#include <cmath>

#include "host/BrindlexViewMath.h"
#include "photons/SWPhotonMap.h"

namespace {

bool FartherFirst(const GatherEntry& a, const GatherEntry& b) {
  return a.distance < b.distance;
}

struct PendingNode {
  uint32_t row;
  uint32_t depth;
};

}  // namespace

bool SWPhotonMap::CubeOverlapsBounds(const SCENE_VERTEX_XYZ_64& point, double radius) const {
  for (uint32_t axis = 0; axis < 3; ++axis) {
    const double c = Coordinate(point, axis);
    if (!(c - radius <= boundsMax[axis] && c + radius >= boundsMin[axis])) return false;
  }
  return true;
}

void SWPhotonMap::SearchLeaf(const SWPhotonNode& leaf, const SCENE_VERTEX_XYZ_64& point, double radius,
                             const std::vector<SWPhoton>& photons, const SCENE_VERTEX_XYZ_64& normal,
                             uint64_t maxPhotons, std::vector<GatherEntry>& heap) const {
  const uint64_t first = leaf.first >> 2;
  const uint64_t end = std::min<uint64_t>(first + leaf.second, entries.size());
  for (uint64_t i = first; i < end; ++i) {
    const SWPhotonEntry& entry = entries[i];
    const SCENE_VERTEX_XYZ_64 position = entry.position;
    const double distance = Distance(&position, &point);
    if (radius < distance) continue;
    const uint32_t row = entry.photonRow;
    if (row >= photons.size()) continue;
    const SCENE_VERTEX_XYZ_64 direction = photons[row].direction;
    const SCENE_VERTEX_XYZ_64 incoming = {-direction.x, -direction.y, -direction.z};
    const double cosine = DotProduct(&normal, &incoming);
    if (!(cosine > 0.0)) continue;
    if (heap.size() < maxPhotons) {
      heap.push_back({distance, cosine, row});
      std::push_heap(heap.begin(), heap.end(), FartherFirst);
    } else if (!heap.empty() && heap.front().distance > distance) {
      // With maxPhotons 0 the heap stays empty and nothing is kept.
      std::pop_heap(heap.begin(), heap.end(), FartherFirst);
      heap.back() = {distance, cosine, row};
      std::push_heap(heap.begin(), heap.end(), FartherFirst);
    }
  }
}

SCENE_VERTEX_XYZ_64 SWPhotonMap::GatherPhotons(const SCENE_VERTEX_XYZ_64& point, double radius,
                                               const std::vector<SWPhoton>& photons,
                                               const SCENE_VERTEX_XYZ_64& normal,
                                               const SCENE_VERTEX_XYZ& diffuseColor,
                                               uint64_t maxPhotons) const {
  SCENE_VERTEX_XYZ_64 result = {0.0, 0.0, 0.0};
  if (nodes.empty() || !CubeOverlapsBounds(point, radius)) return result;

  // One heap per thread, kept between gathers, so that a gather does not
  // allocate once the heap has grown to the largest maxPhotons asked for.
  thread_local std::vector<GatherEntry> heap;
  heap.clear();

  // Build makes inner nodes only above depth maxDepth, so at most maxDepth far
  // nodes wait at once. A node that claims to be deeper comes from a tree not
  // made by Build and is left out, which also ends any cycle.
  PendingNode pending[maxDepth];
  uint32_t pendingCount = 0;
  PendingNode current = {0, 0};
  for (;;) {
    const SWPhotonNode node = nodes[current.row];
    const uint32_t child = node.first >> 2;
    if ((node.first & 3) == 3) {
      SearchLeaf(node, point, radius, photons, normal, maxPhotons, heap);
    } else if (current.depth < maxDepth && child + 1 < nodes.size()) {
      const uint32_t axis = node.first & 3;
      const double split = std::bit_cast<float>(node.second);
      const double c = Coordinate(point, axis);
      const uint32_t nearChild = split >= c ? child : child + 1;
      const uint32_t farChild = split >= c ? child + 1 : child;
      if (radius >= std::fabs(split - c)) pending[pendingCount++] = {farChild, current.depth + 1};
      current = {nearChild, current.depth + 1};
      continue;
    }
    if (pendingCount == 0) break;
    current = pending[--pendingCount];
  }

  const double diffuse[3] = {diffuseColor.x, diffuseColor.y, diffuseColor.z};
  while (!heap.empty()) {
    std::pop_heap(heap.begin(), heap.end(), FartherFirst);
    const GatherEntry kept = heap.back();
    heap.pop_back();
    if (kept.photonRow >= photons.size()) continue;
    const double weight = kept.cosine * ((radius - kept.distance) / radius);
    const SCENE_VERTEX_XYZ_64 energy = photons[kept.photonRow].energy;
    result.x += energy.x * diffuse[0] * weight;
    result.y += energy.y * diffuse[1] * weight;
    result.z += energy.z * diffuse[2] * weight;
  }
  return result;
}
