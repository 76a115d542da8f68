#include "photons/SWPhotonMap.h"

#include <algorithm>
#include <bit>
#include <limits>

void SWPhotonMap::Clear() {
  entries.clear();
  nodes.clear();
  for (int axis = 0; axis < 3; ++axis) boundsMin[axis] = boundsMax[axis] = 0.0f;
}

void SWPhotonMap::ResetBounds() {
  const float largest = std::numeric_limits<float>::max();
  for (int axis = 0; axis < 3; ++axis) {
    boundsMin[axis] = largest;
    boundsMax[axis] = -largest;
  }
}

void SWPhotonMap::Build(const std::vector<SWPhoton>& photons) {
  nodes.clear();
  entries.resize(photons.size());
  if (photons.empty()) return;
  nodes.push_back({0, 0});
  ResetBounds();
  for (uint32_t row = 0; row < photons.size(); ++row) {
    const SCENE_VERTEX_XYZ_64 position = photons[row].position;
    entries[row] = {row, position};
    for (uint32_t axis = 0; axis < 3; ++axis) {
      // Rounding is monotone, so comparing before or after it picks the same float.
      const double c = Coordinate(position, axis);
      if (c < boundsMin[axis]) boundsMin[axis] = static_cast<float>(c);
      if (c > boundsMax[axis]) boundsMax[axis] = static_cast<float>(c);
    }
  }
  std::vector<BuildTask> stack{{0, 0, static_cast<uint32_t>(photons.size()), 0}};
  while (!stack.empty()) {
    const BuildTask task = stack.back();
    stack.pop_back();
    if (task.depth >= maxDepth || task.count <= maxLeafSize) {
      nodes[task.node] = {task.firstEntry * 4 + 3, task.count};
      continue;
    }
    SplitTask(task, stack);
  }
}

// The axis of the largest extent of the task's box, in floats. A later axis
// takes over only when strictly larger, and a zero extent never counts.
uint32_t SWPhotonMap::SplitAxis(const BuildTask& task) const {
  float lo[3], hi[3];
  if (task.node == 0) {
    std::copy(boundsMin, boundsMin + 3, lo);
    std::copy(boundsMax, boundsMax + 3, hi);
  } else {
    std::fill(lo, lo + 3, std::numeric_limits<float>::max());
    std::fill(hi, hi + 3, -std::numeric_limits<float>::max());
    for (uint32_t i = task.firstEntry; i < task.firstEntry + task.count; ++i) {
      const SCENE_VERTEX_XYZ_64 position = entries[i].position;
      for (uint32_t axis = 0; axis < 3; ++axis) {
        const double c = Coordinate(position, axis);
        if (c < lo[axis]) lo[axis] = static_cast<float>(c);
        if (c > hi[axis]) hi[axis] = static_cast<float>(c);
      }
    }
  }
  uint32_t best = 0;
  float bestExtent = 0.0f;
  for (uint32_t axis = 0; axis < 3; ++axis) {
    const float extent = hi[axis] - lo[axis];
    if (extent > bestExtent) {
      bestExtent = extent;
      best = axis;
    }
  }
  return best;
}

void SWPhotonMap::SplitTask(const BuildTask& task, std::vector<BuildTask>& stack) {
  const uint32_t axis = SplitAxis(task);
  const auto less = [axis](const SWPhotonEntry& a, const SWPhotonEntry& b) {
    return Coordinate(a.position, axis) < Coordinate(b.position, axis);
  };
  const uint32_t leftCount = task.count / 2;
  const uint32_t middle = task.firstEntry + leftCount;
  SWPhotonEntry* first = entries.data() + task.firstEntry;
  SWPhotonEntry* end = first + task.count;
  // Equal to sorting the whole range, up to the order of equal coordinates:
  // a child that splits again reorders its entries on its own axis, so only a
  // child that becomes a leaf needs its part in full order.
  std::nth_element(first, entries.data() + middle, end, less);
  const uint32_t childDepth = task.depth + 1;
  const uint32_t rightCount = task.count - leftCount;
  if (childDepth >= maxDepth || leftCount <= maxLeafSize) std::sort(first, entries.data() + middle, less);
  if (childDepth >= maxDepth || rightCount <= maxLeafSize) std::sort(entries.data() + middle, end, less);

  const uint32_t firstChild = static_cast<uint32_t>(nodes.size());
  nodes.push_back({0, 0});
  nodes.push_back({0, 0});
  const float split = static_cast<float>(Coordinate(entries[middle].position, axis));
  nodes[task.node] = {firstChild * 4 + axis, std::bit_cast<uint32_t>(split)};
  stack.push_back({firstChild, task.firstEntry, leftCount, childDepth});
  stack.push_back({firstChild + 1, middle, rightCount, childDepth});
}
