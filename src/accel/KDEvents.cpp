// Event lists of the kd-tree build: their order, and the events of a
// triangle clipped to a box.
#include <algorithm>

#include "accel/KDTreeBuild.h"

namespace {
// A comparison that the sort and merge templates can inline.
struct EventOrder {
  bool operator()(const KDEvent& a, const KDEvent& b) const { return KDEventLess(a, b); }
};
}  // namespace

namespace {

// Below this a comparison sort beats the passes over the buckets.
constexpr size_t RadixMinimum = 512;
constexpr unsigned DigitBits = 12;
constexpr size_t Buckets = size_t(1) << DigitBits;
// The key has 32 + 2 + 2 bits: three digits of 12.
constexpr unsigned Digits = 3;

// Least significant digit first, each pass stable, so events of equal key
// keep their order exactly as the merge sort kept it. Keys are made once;
// a digit in which all keys agree costs no pass.
void RadixSortEvents(KDEventList& events) {
  const size_t n = events.size();
  std::vector<uint64_t> keys(n), keysOut(n);
  KDEventList out(n);
  std::vector<uint32_t> counts(Digits * Buckets, 0);
  for (size_t i = 0; i < n; ++i) {
    const uint64_t key = KDEventKey(events[i]);
    keys[i] = key;
    for (unsigned d = 0; d < Digits; ++d) ++counts[d * Buckets + ((key >> (d * DigitBits)) & (Buckets - 1))];
  }
  for (unsigned d = 0; d < Digits; ++d) {
    uint32_t* count = counts.data() + d * Buckets;
    const unsigned shift = d * DigitBits;
    if (count[(keys[0] >> shift) & (Buckets - 1)] == n) continue;
    uint32_t offset = 0;
    for (size_t b = 0; b < Buckets; ++b) {
      const uint32_t c = count[b];
      count[b] = offset;
      offset += c;
    }
    for (size_t i = 0; i < n; ++i) {
      const uint32_t at = count[(keys[i] >> shift) & (Buckets - 1)]++;
      keysOut[at] = keys[i];
      out[at] = events[i];
    }
    keys.swap(keysOut);
    events.swap(out);
  }
}

// The 36-bit key above the event's place in the list: 64-bit numbers that
// are all different and order exactly as the stable sort by key does.
constexpr unsigned PlaceBits = 28;

void SmallSortEvents(KDEventList& events) {
  const size_t n = events.size();
  // Small lists are the common case; their scratch lives on the stack.
  constexpr size_t Inline = RadixMinimum;
  uint64_t packed[Inline];
  KDEvent sorted[Inline];
  for (size_t i = 0; i < n; ++i) packed[i] = KDEventKey(events[i]) << PlaceBits | i;
  std::sort(packed, packed + n);
  for (size_t i = 0; i < n; ++i) sorted[i] = events[packed[i] & ((uint64_t(1) << PlaceBits) - 1)];
  std::copy(sorted, sorted + n, events.begin());
}

}  // namespace

void SortEvents(KDEventList& events) {
  if (events.size() < 2) return;
  if (events.size() < RadixMinimum) {
    SmallSortEvents(events);
  } else if (events.size() <= UINT32_MAX) {
    RadixSortEvents(events);
  } else {
    std::stable_sort(events.begin(), events.end(), EventOrder());
  }
}

void MergeEvents(KDEventList& into, const KDEventList& fresh) {
  if (fresh.empty()) return;
  // From the back, in place: the larger of the two tails goes last, and on
  // equality the fresh event, so that the older one stays first. Events of
  // `into` below the first fresh one never move.
  size_t a = into.size(), b = fresh.size();
  into.resize(a + b);
  size_t out = a + b;
  uint64_t keyB = KDEventKey(fresh[b - 1]);
  while (b > 0) {
    if (a > 0 && KDEventKey(into[a - 1]) > keyB) {
      into[--out] = into[--a];
    } else {
      into[--out] = fresh[--b];
      if (b > 0) keyB = KDEventKey(fresh[b - 1]);
    }
  }
}

namespace {

float Coordinate(const SCENE_VERTEX_XYZ& p, uint32_t axis) {
  return axis == 0 ? p.x : axis == 1 ? p.y : p.z;
}

void SetCoordinate(SCENE_VERTEX_XYZ& p, uint32_t axis, float value) {
  if (axis == 0)
    p.x = value;
  else if (axis == 1)
    p.y = value;
  else
    p.z = value;
}

// Writes over the polygon's slots from the front; the vector grows only when
// it runs out of them, so the scratch never shrinks during a build.
void Output(std::vector<SCENE_VERTEX_XYZ>& polygon, uint32_t& count, const SCENE_VERTEX_XYZ& vertex) {
  if (count < polygon.size())
    polygon[count] = vertex;
  else
    polygon.push_back(vertex);
  ++count;
}

// Sutherland-Hodgman against the plane `value` on `axis`, keeping the
// greater side when `side` is 1 and the lesser when it is -1. A vertex on
// the plane is inside. Returns the output count.
uint32_t ClipPolygon(const std::vector<SCENE_VERTEX_XYZ>& in, uint32_t n, std::vector<SCENE_VERTEX_XYZ>& out,
                     uint32_t axis, float value, float side) {
  uint32_t count = 0;
  for (uint32_t i = 0; i < n; ++i) {
    const SCENE_VERTEX_XYZ p = in[i];
    const SCENE_VERTEX_XYZ q = in[(i + 1) % n];
    const float pAxis = Coordinate(p, axis), qAxis = Coordinate(q, axis);
    const bool inP = (pAxis - value) * side >= 0.0f;
    const bool inQ = (qAxis - value) * side >= 0.0f;
    if (inP != inQ) {
      const float t = (value - pAxis) / (qAxis - pAxis);
      SCENE_VERTEX_XYZ crossing{p.x + (q.x - p.x) * t, p.y + (q.y - p.y) * t, p.z + (q.z - p.z) * t};
      // Exactly on the plane, so that event positions match split positions.
      SetCoordinate(crossing, axis, value);
      Output(out, count, crossing);
    }
    if (inQ) Output(out, count, q);
  }
  return count;
}

}  // namespace

bool ClipTriangleToBox(const SCENE_VERTEX_XYZ corners[3], const float boxMin[3], const float boxMax[3],
                       std::vector<SCENE_VERTEX_XYZ>& polygonA, std::vector<SCENE_VERTEX_XYZ>& polygonB,
                       float lo[3], float hi[3]) {
  if (polygonA.size() < 3) polygonA.resize(3);
  std::copy(corners, corners + 3, polygonA.begin());
  uint32_t countA = 3;
  for (uint32_t axis = 0; axis < 3; ++axis) {
    const uint32_t countB = ClipPolygon(polygonA, countA, polygonB, axis, boxMin[axis], 1.0f);
    countA = ClipPolygon(polygonB, countB, polygonA, axis, boxMax[axis], -1.0f);
  }
  if (countA == 0) return false;
  for (uint32_t axis = 0; axis < 3; ++axis) {
    lo[axis] = hi[axis] = Coordinate(polygonA[0], axis);
    for (uint32_t i = 1; i < countA; ++i) {
      const float value = Coordinate(polygonA[i], axis);
      if (value < lo[axis]) lo[axis] = value;
      if (value > hi[axis]) hi[axis] = value;
    }
  }
  return true;
}

void AppendBoxEvents(uint32_t triangle, const float lo[3], const float hi[3], KDEventList& events) {
  for (uint32_t axis = 0; axis < 3; ++axis) {
    if (lo[axis] == hi[axis]) {
      events.push_back(KDEvent{KD_EVENT_PLANAR, lo[axis], triangle, axis});
    } else {
      events.push_back(KDEvent{KD_EVENT_START, lo[axis], triangle, axis});
      events.push_back(KDEvent{KD_EVENT_END, hi[axis], triangle, axis});
    }
  }
}

void AddTriangleEvents(const KDTree& tree, const SWMeshTable& table, uint32_t triangle, const float boxMin[3],
                       const float boxMax[3], std::vector<SCENE_VERTEX_XYZ>& polygonA,
                       std::vector<SCENE_VERTEX_XYZ>& polygonB, KDEventList& events) {
  if (triangle >= tree.triangles.size()) return;
  const SWTriangle& record = tree.triangles[triangle];
  SCENE_VERTEX_XYZ corners[3];
  if (!GetTriangleCorners(table, record.instanceIndex, record.triangleIndex, corners)) return;
  float lo[3], hi[3];
  if (ClipTriangleToBox(corners, boxMin, boxMax, polygonA, polygonB, lo, hi))
    AppendBoxEvents(triangle, lo, hi, events);
}
