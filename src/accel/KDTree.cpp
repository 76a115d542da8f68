#include "KDTree.h"

#include <limits>

void KDTree::Clear() {
  leafTriangles.clear();
  nodes.clear();
  const float largest = std::numeric_limits<float>::max();
  boundsMin = {largest, largest, largest};
  boundsMax = {-largest, -largest, -largest};
}
