// Split selection: the exact surface-area sweep over a node's sorted events.
// Every event is a candidate by itself, with the counters as they stand when
// the sweep reaches it; all arithmetic is single precision.
#include <cfloat>
#include <cmath>
#include <cstdint>

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

bool KDIsLeafAnyway(const KDBuildNode& node, uint32_t maxDepth) {
  return node.triangleList.empty() || node.depth >= maxDepth ||
         !(double(KDSurfaceArea(node.boxMin, node.boxMax)) > 6.0);
}

namespace {

// The per-axis state of the sweep that does not change while it runs.
struct SweepAxis {
  float boxMin = 0;
  float boxMax = 0;
  float sum = 0;      // the two other extents added
  float product = 0;  // and multiplied
  float parentArea = 0;

  bool InBox(float p) const { return boxMin <= p && p <= boxMax; }
  float AreaLeft(float p) const { return 2.0f * (product + (p - boxMin) * sum); }
  float AreaRight(float p) const { return 2.0f * (product + (boxMax - p) * sum); }
};

// The cost of a plane with any costs the tree might carry. Areas are not
// divided by the parent's.
struct AnyCosts {
  const KDTree& tree;
  float Side(float m) const { return m != 0.0f ? tree.leafBaseCost + m * tree.triangleCost : tree.emptyCost; }
  float operator()(const SweepAxis& s, float p, float nLeft, float nRight) const {
    return s.parentArea * tree.traversalCost + s.AreaLeft(p) * Side(nLeft) + s.AreaRight(p) * Side(nRight);
  }
};

// The same with the engine's costs (traversal 1, empty 0, leaf base 0,
// triangle 1), for which each factor above is exactly the count itself:
// parentArea + areaLeft * nLeft + areaRight * nRight, to the last bit.
struct EngineCosts {
  float operator()(const SweepAxis& s, float p, float nLeft, float nRight) const {
    return s.parentArea + s.AreaLeft(p) * nLeft + s.AreaRight(p) * nRight;
  }
};

// The triangle counts on each side, per axis, as single-precision numbers
// that the sweep adds to and takes from one at a time.
class FloatCounts {
 public:
  explicit FloatCounts(float n) : nRight{n, n, n} {}
  // The counts with which the event is tried.
  void At(uint32_t a, int32_t type, float& left, float& right) {
    nRight[a] -= float(type == KD_EVENT_END);
    left = nLeft[a];
    right = nRight[a];
  }
  // The counts once the sweep has passed the event.
  void Pass(uint32_t a, int32_t type) {
    nRight[a] -= float(type == KD_EVENT_PLANAR);
    nLeft[a] += float(type == KD_EVENT_PLANAR || type == KD_EVENT_START);
  }

 private:
  float nLeft[3] = {0, 0, 0};
  float nRight[3];
};

// The same counts kept as integers, the three axes side by side in one
// 64-bit word each, so that an event adds to a register instead of waiting
// on the store of the previous event's count. Below 2^21 every count and
// every step of the float version is a whole number that a float holds
// exactly, so both give the same floats to the bit.
class PackedCounts {
 public:
  static constexpr unsigned FieldBits = 21;
  static constexpr size_t Limit = size_t(1) << FieldBits;
  explicit PackedCounts(size_t n) : n(int64_t(n)) {}
  void At(uint32_t a, int32_t type, float& left, float& right) const {
    const unsigned shift = a * FieldBits;
    left = float((onLeft >> shift) & FieldMask);
    right = float(n - int64_t((goneRight >> shift) & FieldMask) - int64_t(type == KD_EVENT_END));
  }
  void Pass(uint32_t a, int32_t type) {
    const unsigned shift = a * FieldBits;
    onLeft += uint64_t(type == KD_EVENT_PLANAR || type == KD_EVENT_START) << shift;
    goneRight += uint64_t(type == KD_EVENT_END || type == KD_EVENT_PLANAR) << shift;
  }

 private:
  static constexpr uint64_t FieldMask = Limit - 1;
  int64_t n;
  uint64_t onLeft = 0;     // starts and planars passed: the left side
  uint64_t goneRight = 0;  // ends and planars passed: gone from the right side
};

template <typename Costs, typename Counts>
bool Sweep(const KDBuildNode& node, const Costs& costs, Counts counts, KDSplit& best) {
  const float n = float(node.triangleList.size());
  SweepAxis axes[3];
  float size[3];
  for (int a = 0; a < 3; ++a) size[a] = node.boxMax[a] - node.boxMin[a];
  for (int a = 0; a < 3; ++a) {
    SweepAxis& s = axes[a];
    const int b = (a + 1) % 3, c = (a + 2) % 3;
    s.boxMin = node.boxMin[a];
    s.boxMax = node.boxMax[a];
    s.sum = size[b] + size[c];
    s.product = size[b] * size[c];
    s.parentArea = 2.0f * (s.product + size[a] * s.sum);
  }
  const KDEvent* events = node.events.data();
  const size_t count = node.events.size();
  size_t lastEvent[3] = {SIZE_MAX, SIZE_MAX, SIZE_MAX};
  // The first of equal costs stays.
  float bestCost = FLT_MAX;
  size_t bestEvent = SIZE_MAX;
  for (size_t i = 0; i < count; ++i) {
    const KDEvent& event = events[i];
    const uint32_t a = event.axis;
    if (a > 2) continue;
    const SweepAxis& s = axes[a];
    const float p = event.position;
    const int32_t type = event.type;
    lastEvent[a] = i;
    // An end is tried after its triangle has left the right side, a planar
    // while it is still there, a start before it has joined the left. The
    // counts stay whole numbers, so adding 0 changes nothing.
    float nLeft, nRight;
    counts.At(a, type, nLeft, nRight);
    if (s.InBox(p)) {
      const float cost = costs(s, p, nLeft, nRight);
      if (bestCost > cost) {
        bestCost = cost;
        bestEvent = i;
      }
    }
    counts.Pass(a, type);
  }
  if (bestEvent != SIZE_MAX) {
    const KDEvent& event = events[bestEvent];
    best = KDSplit{event.axis, event.position, bestCost, uint32_t(event.type), event.triangle};
  }
  // The last plane of each axis once more, with everything on its left. A
  // last event at the largest float reads as no event.
  for (uint32_t a = 0; a < 3; ++a) {
    const SweepAxis& s = axes[a];
    if (lastEvent[a] == SIZE_MAX) continue;
    const KDEvent& event = events[lastEvent[a]];
    const float p = event.position;
    if (p == FLT_MAX || !s.InBox(p)) continue;
    const float cost = costs(s, p, n, 0.0f);
    if (!(bestCost > cost)) continue;
    bestCost = cost;
    bestEvent = lastEvent[a];
    best = KDSplit{a, p, cost, uint32_t(event.type), event.triangle};
  }
  return bestEvent != SIZE_MAX;
}

template <typename Costs>
bool Sweep(const KDBuildNode& node, const Costs& costs, KDSplit& best) {
  const size_t n = node.triangleList.size();
  // Every count is bounded by the events of its axis.
  if (n < PackedCounts::Limit && node.events.size() < PackedCounts::Limit)
    return Sweep(node, costs, PackedCounts(n), best);
  return Sweep(node, costs, FloatCounts(float(n)), best);
}

}  // namespace

bool FindBestSplit(const KDBuildNode& node, const KDTree& tree, KDSplit& best) {
  best = KDSplit{0, 0.0f, FLT_MAX, 0, 0};
  if (tree.traversalCost == 1.0f && tree.emptyCost == 0.0f && tree.leafBaseCost == 0.0f &&
      tree.triangleCost == 1.0f)
    return Sweep(node, EngineCosts(), best);
  return Sweep(node, AnyCosts{tree}, best);
}
