// Split selection: the exact surface-area sweep over a node's sorted events.
// Every event is a candidate by itself, with the counters as they stand when
// the sweep reaches it; all arithmetic is single precision.
#include <cfloat>
#include <cmath>

#include "accel/KDTreeBuild.h"

uint32_t KDMaxDepth(size_t triangleCount) {
  // ln 0 has no integer part; an empty root is a leaf before the depth is
  // looked at, so 0 serves.
  if (triangleCount == 0) return 0;
  const double depth = 8.0 + 1.3 * std::log(double(triangleCount));
  return depth >= 20.0 ? 20u : uint32_t(depth);
}

float KDSurfaceArea(const float boxMin[3], const float boxMax[3]) {
  const float dx = std::fabs(boxMax[0] - boxMin[0]);
  const float dy = std::fabs(boxMax[1] - boxMin[1]);
  const float dz = std::fabs(boxMax[2] - boxMin[2]);
  return 2.0f * (dx * dy + dy * dz + dz * dx);
}

namespace {

// The per-axis state of the sweep.
struct SweepAxis {
  float nLeft = 0;
  float nRight = 0;
  float sum = 0;      // the two other extents added
  float product = 0;  // and multiplied
  float parentArea = 0;
  float lastPosition = FLT_MAX;
  uint32_t lastTriangle = 0;
  uint32_t lastType = 0;
};

class SplitSweep {
 public:
  SplitSweep(const KDBuildNode& node, const KDTree& tree, float n) : node(node), tree(tree) {
    float size[3];
    for (int a = 0; a < 3; ++a) size[a] = node.boxMax[a] - node.boxMin[a];
    for (int a = 0; a < 3; ++a) {
      SweepAxis& s = axes[a];
      const int b = (a + 1) % 3, c = (a + 2) % 3;
      s.nRight = n;
      s.sum = size[b] + size[c];
      s.product = size[b] * size[c];
      s.parentArea = 2.0f * (s.product + size[a] * s.sum);
    }
  }

  bool InBox(uint32_t a, float p) const { return node.boxMin[a] <= p && p <= node.boxMax[a]; }

  // Areas are not divided by the parent's: with the engine's costs this is
  // parentArea + areaLeft * nLeft + areaRight * nRight.
  float PlaneCost(uint32_t a, float p, float nLeft, float nRight) const {
    const SweepAxis& s = axes[a];
    const float areaLeft = 2.0f * (s.product + (p - node.boxMin[a]) * s.sum);
    const float areaRight = 2.0f * (s.product + (node.boxMax[a] - p) * s.sum);
    return s.parentArea * tree.traversalCost + areaLeft * Side(nLeft) + areaRight * Side(nRight);
  }

  // The first of equal costs stays.
  void Offer(uint32_t a, float p, float cost, uint32_t type, uint32_t triangle) {
    if (!(best.cost > cost)) return;
    best = KDSplit{a, p, cost, type, triangle};
    found = true;
  }

  SweepAxis axes[3];
  KDSplit best{0, 0.0f, FLT_MAX, 0, 0};
  bool found = false;

 private:
  float Side(float m) const { return m != 0.0f ? tree.leafBaseCost + m * tree.triangleCost : tree.emptyCost; }

  const KDBuildNode& node;
  const KDTree& tree;
};

}  // namespace

bool FindBestSplit(const KDBuildNode& node, const KDTree& tree, KDSplit& best) {
  const float n = float(node.triangleList.size());
  SplitSweep sweep(node, tree, n);
  for (const KDEvent& event : node.events) {
    const uint32_t a = event.axis;
    if (a > 2) continue;
    SweepAxis& s = sweep.axes[a];
    const float p = event.position;
    const uint32_t type = uint32_t(event.type);
    s.lastPosition = p;
    s.lastTriangle = event.triangle;
    s.lastType = type;
    // An end is tried after its triangle has left the right side, a planar
    // while it is still there, a start before it has joined the left.
    if (type == KD_EVENT_END) s.nRight -= 1.0f;
    if (sweep.InBox(a, p)) sweep.Offer(a, p, sweep.PlaneCost(a, p, s.nLeft, s.nRight), type, event.triangle);
    if (type == KD_EVENT_PLANAR) {
      s.nRight -= 1.0f;
      s.nLeft += 1.0f;
    } else if (type == KD_EVENT_START) {
      s.nLeft += 1.0f;
    }
  }
  // The last plane of each axis once more, with everything on its left.
  for (uint32_t a = 0; a < 3; ++a) {
    const SweepAxis& s = sweep.axes[a];
    if (s.lastPosition == FLT_MAX || !sweep.InBox(a, s.lastPosition)) continue;
    sweep.Offer(a, s.lastPosition, sweep.PlaneCost(a, s.lastPosition, n, 0.0f), s.lastType, s.lastTriangle);
  }
  best = sweep.best;
  return sweep.found;
}
