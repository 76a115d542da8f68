#include "accel/KDTree.h"

#include <limits>

void KDTree::Clear() {
  leafTriangles.clear();
  triangles.clear();
  nodes.clear();
  walkLayout.Clear();
  ResetBounds();
}

void KDTree::ResetBounds() {
  const float largest = std::numeric_limits<float>::max();
  boundsMin = {largest, largest, largest};
  boundsMax = {-largest, -largest, -largest};
}
