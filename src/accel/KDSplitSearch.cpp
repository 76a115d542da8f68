// Split selection: the exact surface-area sweep over a node's sorted events.
// Every event is a candidate by itself, with the counters as they stand when
// the sweep reaches it; all arithmetic is single precision.
#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "accel/KDTreeBuild.h"

// Eight events at a time where the processor has 256-bit integer vectors;
// chosen when the program runs, so the package still runs on any x86-64.
#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#define KD_WIDE_SWEEP 1
#include <immintrin.h>
#endif

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

// What the pass over the events finds: the cheapest event, the first of
// equal costs, and the last event of each axis (SIZE_MAX for none).
struct SweepBest {
  float cost = FLT_MAX;
  size_t event = SIZE_MAX;
  size_t lastEvent[3] = {SIZE_MAX, SIZE_MAX, SIZE_MAX};
};

template <typename Costs, typename Counts, typename Event>
void SweepEvents(const Event* events, size_t count, const SweepAxis axes[3], const Costs& costs,
                 Counts counts, SweepBest& best) {
  for (size_t i = 0; i < count; ++i) {
    const Event& event = events[i];
    const uint32_t a = KDAxisOf(event);
    if (a > 2) continue;
    best.lastEvent[a] = i;
    const SweepAxis& s = axes[a];
    const float p = KDPositionOf(event);
    const int32_t type = KDTypeOf(event);
    // An end is tried after its triangle has left the right side, a planar
    // while it is still there, a start before it has joined the left. The
    // counts stay whole numbers, so adding 0 changes nothing.
    float nLeft, nRight;
    counts.At(a, type, nLeft, nRight);
    if (s.InBox(p)) {
      const float cost = costs(s, p, nLeft, nRight);
      if (best.cost > cost) {
        best.cost = cost;
        best.event = i;
      }
    }
    counts.Pass(a, type);
  }
}

#ifdef KD_WIDE_SWEEP
// Type, position and axis of eight events in list order, one per lane.
__attribute__((target("avx2"))) inline void LoadEight(const KDEvent* at, __m256i& type, __m256& p,
                                                      __m256i& axis) {
  static_assert(sizeof(KDEvent) == 16 && offsetof(KDEvent, type) == 0 && offsetof(KDEvent, position) == 4 &&
                offsetof(KDEvent, axis) == 12);
  const __m256i* words = reinterpret_cast<const __m256i*>(at);
  const __m256i v0 = _mm256_loadu_si256(words), v1 = _mm256_loadu_si256(words + 1);
  const __m256i v2 = _mm256_loadu_si256(words + 2), v3 = _mm256_loadu_si256(words + 3);
  const __m256i t0 = _mm256_unpacklo_epi32(v0, v1), t1 = _mm256_unpacklo_epi32(v2, v3);
  const __m256i t2 = _mm256_unpackhi_epi32(v0, v1), t3 = _mm256_unpackhi_epi32(v2, v3);
  // The transpose leaves the events in lane order 0 2 4 6 1 3 5 7.
  const __m256i listOrder = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
  type = _mm256_permutevar8x32_epi32(_mm256_unpacklo_epi64(t0, t1), listOrder);
  p = _mm256_permutevar8x32_ps(_mm256_castsi256_ps(_mm256_unpackhi_epi64(t0, t1)), listOrder);
  axis = _mm256_permutevar8x32_epi32(_mm256_unpackhi_epi64(t2, t3), listOrder);
}

// The same from packed events, decoded as KDPositionOf, KDTypeOf and
// KDAxisOf do.
__attribute__((target("avx2"))) inline void LoadEight(const KDPackedEvent* at, __m256i& type, __m256& p,
                                                      __m256i& axis) {
  static_assert(sizeof(KDPackedEvent) == 8 && KDPackedKeyShift == 28 && KDPackedNegativeZero == 1u << 27);
  const __m256 v0 = _mm256_loadu_ps(reinterpret_cast<const float*>(at));
  const __m256 v1 = _mm256_loadu_ps(reinterpret_cast<const float*>(at + 4));
  // Low and high halves of the words, in lane order 0 1 4 5 2 3 6 7.
  const __m256i listOrder = _mm256_setr_epi32(0, 1, 4, 5, 2, 3, 6, 7);
  const __m256i low =
      _mm256_permutevar8x32_epi32(_mm256_castps_si256(_mm256_shuffle_ps(v0, v1, 0x88)), listOrder);
  const __m256i ordered =
      _mm256_permutevar8x32_epi32(_mm256_castps_si256(_mm256_shuffle_ps(v0, v1, 0xDD)), listOrder);
  // A set top bit marks a positive number, whose sign bit alone was
  // flipped; the others had all their bits flipped.
  const __m256i signBit = _mm256_set1_epi32(int32_t(0x80000000u));
  const __m256i flipped =
      _mm256_or_si256(_mm256_xor_si256(_mm256_srai_epi32(ordered, 31), _mm256_set1_epi32(-1)), signBit);
  const __m256i negativeZero = _mm256_and_si256(_mm256_slli_epi32(low, 4), signBit);
  p = _mm256_castsi256_ps(_mm256_or_si256(_mm256_xor_si256(ordered, flipped), negativeZero));
  type = _mm256_and_si256(_mm256_srli_epi32(low, 28), _mm256_set1_epi32(3));
  axis = _mm256_srli_epi32(low, 30);
}

// Below 2^24 every count, and every step FloatCounts takes, is a whole
// number that a float holds exactly, so integer counts converted to floats
// are FloatCounts' floats to the bit: nodes of fewer triangles and events
// than this, the root of a million triangles among them, can be swept
// eight events at a time.
constexpr size_t WideSweepLimit = size_t(1) << 24;

// The sweep eight events at a time, for the engine's costs and counts below
// WideSweepLimit. Each lane computes its event's counts and cost with the
// same single-precision operations in the same order as SweepEvents (this
// function may use AVX2 but not FMA, so nothing is contracted), and keeps
// the first of its own equal costs; the lanes are then reduced to the least
// cost, and of equal costs the earliest event, which is the event the
// sweep in list order keeps. Inside a block of eight each axis's counts are
// 4-bit fields of one word (a block adds at most 8 to each), summed over the
// lanes before each one.
template <typename Event>
__attribute__((target("avx2"))) void SweepEightAtATime(const Event* events, size_t count,
                                                       const SweepAxis axes[3], int32_t n, SweepBest& best) {
  // The last block is read from a copy filled up with events of no axis,
  // which every lane passes over.
  Event tail[8];
  for (Event& event : tail) event = KDMakeEvent<Event>(KD_EVENT_START, 0.0f, 0, 3);
  std::copy(events + count / 8 * 8, events + count, tail);
  // Per axis, in lanes 0 to 2, for picking by each lane's axis.
  float tables[5][8] = {};
  for (int a = 0; a < 3; ++a) {
    tables[0][a] = axes[a].boxMin;
    tables[1][a] = axes[a].boxMax;
    tables[2][a] = axes[a].sum;
    tables[3][a] = axes[a].product;
    tables[4][a] = axes[a].parentArea;
  }
  const __m256 boxMin = _mm256_loadu_ps(tables[0]), boxMax = _mm256_loadu_ps(tables[1]);
  const __m256 sum = _mm256_loadu_ps(tables[2]), product = _mm256_loadu_ps(tables[3]);
  const __m256 parentArea = _mm256_loadu_ps(tables[4]), two = _mm256_set1_ps(2.0f);
  const __m256i lastLane = _mm256_set1_epi32(7), eight = _mm256_set1_epi32(8), field = _mm256_set1_epi32(0xF);
  const __m256i joinedTotals = _mm256_setr_epi32(0, 8, 16, 32, 32, 32, 32, 32);
  const __m256i goneTotals = _mm256_setr_epi32(4, 12, 20, 32, 32, 32, 32, 32);
  const __m256i end = _mm256_set1_epi32(KD_EVENT_END), planar = _mm256_set1_epi32(KD_EVENT_PLANAR);
  const __m256i start = _mm256_set1_epi32(KD_EVENT_START), all = _mm256_set1_epi32(n);
  const __m256i axis0 = _mm256_setzero_si256(), axis1 = _mm256_set1_epi32(1), axis2 = _mm256_set1_epi32(2);
  __m256i baseJoined = _mm256_setzero_si256(), baseGone = _mm256_setzero_si256();
  __m256i index = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7), bestIndex = _mm256_set1_epi32(-1);
  __m256i lastOf[3] = {bestIndex, bestIndex, bestIndex};
  __m256 bestCost = _mm256_set1_ps(FLT_MAX);
  for (size_t i = 0; i < count; i += 8) {
    __m256i type, axis;
    __m256 p;
    LoadEight(i + 8 <= count ? events + i : tail, type, p, axis);

    const __m256i isEnd = _mm256_cmpeq_epi32(type, end), isPlanar = _mm256_cmpeq_epi32(type, planar);
    const __m256i isStart = _mm256_cmpeq_epi32(type, start);
    const __m256i onAxis[3] = {_mm256_cmpeq_epi32(axis, axis0), _mm256_cmpeq_epi32(axis, axis1),
                               _mm256_cmpeq_epi32(axis, axis2)};
    const __m256i valid = _mm256_or_si256(_mm256_or_si256(onAxis[0], onAxis[1]), onAxis[2]);
    for (int a = 0; a < 3; ++a)
      lastOf[a] = _mm256_castps_si256(_mm256_blendv_ps(
          _mm256_castsi256_ps(lastOf[a]), _mm256_castsi256_ps(index), _mm256_castsi256_ps(onAxis[a])));
    const __m256i joins = _mm256_srli_epi32(_mm256_or_si256(isPlanar, isStart), 31);
    const __m256i leaves = _mm256_srli_epi32(_mm256_or_si256(isEnd, isPlanar), 31);
    const __m256i axisShift = _mm256_slli_epi32(axis, 3);
    const __m256i step = _mm256_and_si256(
        _mm256_sllv_epi32(_mm256_or_si256(joins, _mm256_slli_epi32(leaves, 4)), axisShift), valid);
    // Sums up to and including each lane: within each half, then the lower
    // half's total carried into the upper.
    __m256i upTo = _mm256_add_epi32(step, _mm256_slli_si256(step, 4));
    upTo = _mm256_add_epi32(upTo, _mm256_slli_si256(upTo, 8));
    upTo = _mm256_add_epi32(upTo, _mm256_shuffle_epi32(_mm256_permute2x128_si256(upTo, upTo, 0x08), 0xFF));
    const __m256i own = _mm256_srlv_epi32(_mm256_sub_epi32(upTo, step), axisShift);
    const __m256i nLeft =
        _mm256_add_epi32(_mm256_permutevar8x32_epi32(baseJoined, axis), _mm256_and_si256(own, field));
    const __m256i goneBefore = _mm256_add_epi32(_mm256_permutevar8x32_epi32(baseGone, axis),
                                                _mm256_and_si256(_mm256_srli_epi32(own, 4), field));
    const __m256i nRight = _mm256_sub_epi32(_mm256_sub_epi32(all, goneBefore), _mm256_srli_epi32(isEnd, 31));
    const __m256i total = _mm256_permutevar8x32_epi32(upTo, lastLane);
    baseJoined =
        _mm256_add_epi32(baseJoined, _mm256_and_si256(_mm256_srlv_epi32(total, joinedTotals), field));
    baseGone = _mm256_add_epi32(baseGone, _mm256_and_si256(_mm256_srlv_epi32(total, goneTotals), field));

    const __m256 lo = _mm256_permutevar8x32_ps(boxMin, axis), hi = _mm256_permutevar8x32_ps(boxMax, axis);
    const __m256 s = _mm256_permutevar8x32_ps(sum, axis), prod = _mm256_permutevar8x32_ps(product, axis);
    const __m256 inBox = _mm256_and_ps(_mm256_cmp_ps(p, lo, _CMP_GE_OQ), _mm256_cmp_ps(p, hi, _CMP_LE_OQ));
    const __m256 areaLeft = _mm256_mul_ps(two, _mm256_add_ps(prod, _mm256_mul_ps(_mm256_sub_ps(p, lo), s)));
    const __m256 areaRight = _mm256_mul_ps(two, _mm256_add_ps(prod, _mm256_mul_ps(_mm256_sub_ps(hi, p), s)));
    const __m256 cost = _mm256_add_ps(_mm256_add_ps(_mm256_permutevar8x32_ps(parentArea, axis),
                                                    _mm256_mul_ps(areaLeft, _mm256_cvtepi32_ps(nLeft))),
                                      _mm256_mul_ps(areaRight, _mm256_cvtepi32_ps(nRight)));
    const __m256 better = _mm256_and_ps(_mm256_and_ps(inBox, _mm256_castsi256_ps(valid)),
                                        _mm256_cmp_ps(cost, bestCost, _CMP_LT_OQ));
    bestCost = _mm256_blendv_ps(bestCost, cost, better);
    bestIndex = _mm256_castps_si256(
        _mm256_blendv_ps(_mm256_castsi256_ps(bestIndex), _mm256_castsi256_ps(index), better));
    index = _mm256_add_epi32(index, eight);
  }
  alignas(32) float laneCost[8];
  alignas(32) int32_t laneIndex[8], laneLast[3][8];
  _mm256_store_ps(laneCost, bestCost);
  _mm256_store_si256(reinterpret_cast<__m256i*>(laneIndex), bestIndex);
  for (int a = 0; a < 3; ++a) _mm256_store_si256(reinterpret_cast<__m256i*>(laneLast[a]), lastOf[a]);
  for (int lane = 0; lane < 8; ++lane) {
    if (laneIndex[lane] < 0) continue;
    const size_t event = size_t(laneIndex[lane]);
    if (laneCost[lane] < best.cost || (laneCost[lane] == best.cost && event < best.event)) {
      best.cost = laneCost[lane];
      best.event = event;
    }
  }
  for (int a = 0; a < 3; ++a) {
    const int32_t last = *std::max_element(laneLast[a], laneLast[a] + 8);
    if (last >= 0) best.lastEvent[a] = size_t(last);
  }
}

bool HasWideSweep() {
  static const bool has = __builtin_cpu_supports("avx2");
  return has;
}
#endif

template <typename Event, typename Costs, typename Counts>
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
  const Event* events = KDEventsOf<Event>(node).data();
  const size_t count = KDEventsOf<Event>(node).size();
  SweepBest found;
  bool wide = false;
#ifdef KD_WIDE_SWEEP
  if constexpr (std::is_same_v<Costs, EngineCosts>) {
    wide = node.triangleList.size() < WideSweepLimit && count < WideSweepLimit && HasWideSweep();
    if (wide) SweepEightAtATime(events, count, axes, int32_t(node.triangleList.size()), found);
  }
#endif
  if (!wide) SweepEvents(events, count, axes, costs, counts, found);
  float bestCost = found.cost;
  size_t bestEvent = found.event;
  if (bestEvent != SIZE_MAX) {
    const Event& event = events[bestEvent];
    best = KDSplit{KDAxisOf(event), KDPositionOf(event), bestCost, uint32_t(KDTypeOf(event)),
                   KDTriangleOf(event)};
  }
  // The last plane of each axis once more, with everything on its left. A
  // last event at the largest float reads as no event.
  const size_t* lastEvent = found.lastEvent;
  for (uint32_t a = 0; a < 3; ++a) {
    const SweepAxis& s = axes[a];
    if (lastEvent[a] == SIZE_MAX) continue;
    const Event& event = events[lastEvent[a]];
    const float p = KDPositionOf(event);
    if (p == FLT_MAX || !s.InBox(p)) continue;
    const float cost = costs(s, p, n, 0.0f);
    if (!(bestCost > cost)) continue;
    bestCost = cost;
    bestEvent = lastEvent[a];
    best = KDSplit{a, p, cost, uint32_t(KDTypeOf(event)), KDTriangleOf(event)};
  }
  return bestEvent != SIZE_MAX;
}

template <typename Event, typename Costs>
bool Sweep(const KDBuildNode& node, const Costs& costs, KDSplit& best) {
  const size_t n = node.triangleList.size();
  // Every count is bounded by the events of its axis.
  if (n < PackedCounts::Limit && KDEventsOf<Event>(node).size() < PackedCounts::Limit)
    return Sweep<Event>(node, costs, PackedCounts(n), best);
  return Sweep<Event>(node, costs, FloatCounts(float(n)), best);
}

template <typename Costs>
bool Sweep(const KDBuildNode& node, const Costs& costs, KDSplit& best) {
  if (KDUsesPackedEvents(node)) return Sweep<KDPackedEvent>(node, costs, best);
  return Sweep<KDEvent>(node, costs, best);
}

}  // namespace

bool FindBestSplit(const KDBuildNode& node, const KDTree& tree, KDSplit& best) {
  best = KDSplit{0, 0.0f, FLT_MAX, 0, 0};
  if (tree.traversalCost == 1.0f && tree.emptyCost == 0.0f && tree.leafBaseCost == 0.0f &&
      tree.triangleCost == 1.0f)
    return Sweep(node, EngineCosts(), best);
  return Sweep(node, AnyCosts{tree}, best);
}
