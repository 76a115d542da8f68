// Event lists of the kd-tree build: their order, and the events of a
// triangle clipped to a box.
#include <algorithm>
#include <memory>

#include "accel/KDParallel.h"
#include "accel/KDTreeBuild.h"

namespace {

// A comparison by key that the sort and merge templates can inline.
struct EventOrder {
  template <typename Event>
  bool operator()(const Event& a, const Event& b) const {
    return KDEventKey(a) < KDEventKey(b);
  }
};

// The 36-bit key above the event's place in the list: 64-bit numbers that
// are all different and order exactly as the stable sort by key does, so
// that only the words move while sorting and each event moves once. A
// packed event has its key in the same bits, so it is sorted as it stands.
constexpr unsigned PlaceBits = KDPackedKeyShift;
constexpr unsigned KeyBits = 36;
constexpr uint64_t PlaceMask = (uint64_t(1) << PlaceBits) - 1;

template <typename Event>
uint64_t PackedKey(const Event& event, size_t place) {
  return KDEventKey(event) << PlaceBits | place;
}

uint64_t WordOf(uint64_t word) {
  return word;
}
uint64_t WordOf(KDPackedEvent event) {
  return event.word;
}

// Least significant digit first over the key bits only, each pass stable,
// so words of equal key stay in the order they came. A digit in which all
// keys agree costs no pass. Returns the array that holds the result.
template <unsigned DigitBits, typename Word>
Word* RadixSortWords(Word* words, Word* spare, size_t n) {
  constexpr unsigned Digits = (KeyBits + DigitBits - 1) / DigitBits;
  constexpr size_t Buckets = size_t(1) << DigitBits;
  // At most 48 KiB, on the stack: workers have the system's default stack.
  uint32_t counts[Digits * Buckets] = {};
  for (size_t i = 0; i < n; ++i)
    for (unsigned d = 0; d < Digits; ++d)
      ++counts[d * Buckets + ((WordOf(words[i]) >> (PlaceBits + d * DigitBits)) & (Buckets - 1))];
  for (unsigned d = 0; d < Digits; ++d) {
    uint32_t* count = counts + d * Buckets;
    const unsigned shift = PlaceBits + d * DigitBits;
    if (count[(WordOf(words[0]) >> shift) & (Buckets - 1)] == n) continue;
    uint32_t offset = 0;
    for (size_t b = 0; b < Buckets; ++b) {
      const uint32_t c = count[b];
      count[b] = offset;
      offset += c;
    }
    for (size_t i = 0; i < n; ++i) spare[count[(WordOf(words[i]) >> shift) & (Buckets - 1)]++] = words[i];
    std::swap(words, spare);
  }
  return words;
}

// Below this many events a comparison sort beats the passes over the
// buckets; below the next, digits of 8 bits keep the bucket counts small.
constexpr size_t RadixMinimum = 64;
constexpr size_t WideDigitMinimum = 8192;

template <typename Word>
Word* RadixSort(Word* words, Word* spare, size_t n) {
  return n < WideDigitMinimum ? RadixSortWords<8>(words, spare, n) : RadixSortWords<12>(words, spare, n);
}

// Sorts the words and then moves each event once to its place in `sorted`.
template <typename Event>
void SortByWords(const KDList<Event>& events, uint64_t* words, uint64_t* spare, Event* sorted) {
  const size_t n = events.size();
  for (size_t i = 0; i < n; ++i) words[i] = PackedKey(events[i], i);
  if (n < RadixMinimum)
    std::sort(words, words + n);
  else
    words = RadixSort(words, spare, n);
  for (size_t i = 0; i < n; ++i) sorted[i] = events[words[i] & PlaceMask];
}

}  // namespace

template <typename Event>
void SortEvents(KDList<Event>& events) {
  const size_t n = events.size();
  if (n < 2) return;
  // Small lists are the common case; their scratch lives on the stack.
  constexpr size_t Inline = 512;
  if constexpr (std::is_same_v<Event, KDPackedEvent>) {
    // Packed events need no words of their own from the radix sort on.
    if (n >= RadixMinimum) {
      if (n <= Inline) {
        KDPackedEvent spare[Inline];
        if (RadixSort(events.data(), spare, n) == spare) std::copy(spare, spare + n, events.begin());
      } else {
        KDPackedEventList spare(n);
        if (RadixSort(events.data(), spare.data(), n) == spare.data()) events.swap(spare);
      }
      return;
    }
  }
  if (n <= Inline) {
    uint64_t words[Inline], spare[Inline];
    Event sorted[Inline];
    SortByWords(events, words, spare, sorted);
    std::copy(sorted, sorted + n, events.begin());
  } else if (n <= PlaceMask) {
    // Every word is written before it is read: no zeroing pass.
    std::unique_ptr<uint64_t[]> words(new uint64_t[n]), spare(new uint64_t[n]);
    KDList<Event> sorted(n);
    SortByWords(events, words.get(), spare.get(), sorted.data());
    events.swap(sorted);
  } else {
    std::stable_sort(events.begin(), events.end(), EventOrder());
  }
}

namespace {

// The sort in parts: one stable pass over the pieces by the key's top 12
// bits, each thread moving its share of the places to offsets that put
// the shares of lower threads first within a bucket, as one thread would.
// The buckets are then dealt out to the threads in runs of about equal
// length, and each thread sorts its run bucket by bucket, by the lower 24
// bits, the only ones that differ within a bucket.
constexpr unsigned TopDigitBits = 12;
constexpr unsigned LowBits = KeyBits - TopDigitBits;
constexpr size_t TopBuckets = size_t(1) << TopDigitBits;

uint32_t TopDigit(KDPackedEvent event) {
  return uint32_t(event.word >> (PlaceBits + LowBits));
}

// Calls `visit` on the events at places [begin, end) of the pieces read
// one after another.
template <typename Event, typename Visit>
void VisitPlaces(const std::vector<KDEventPiece<Event>>& pieces, size_t begin, size_t end, Visit visit) {
  for (const KDEventPiece<Event>& piece : pieces) {
    if (begin < piece.count) {
      const size_t to = std::min(end, piece.count);
      for (const Event* e = piece.events + begin; e != piece.events + to; ++e) visit(*e);
      if (end <= piece.count) return;
      begin = piece.count;
    }
    begin -= piece.count;
    end -= piece.count;
  }
}

// Turns each thread's counts into its first place in each bucket: the
// buckets in order, and within a bucket the threads in order.
void TopOffsets(std::vector<uint32_t>& counts, size_t parts) {
  uint32_t offset = 0;
  for (size_t b = 0; b < TopBuckets; ++b)
    for (size_t t = 0; t < parts; ++t) {
      const uint32_t c = counts[t * TopBuckets + b];
      counts[t * TopBuckets + b] = offset;
      offset += c;
    }
}

// The first bucket of each thread's run, and the end: the first bucket
// that starts at or past its equal share of the places.
std::vector<size_t> BucketRuns(const std::vector<uint32_t>& starts, size_t parts, size_t n) {
  std::vector<size_t> runs(parts + 1, TopBuckets);
  runs[0] = 0;
  for (size_t t = 1; t < parts; ++t) {
    size_t b = runs[t - 1];
    while (b < TopBuckets && starts[b] < n * t / parts) ++b;
    runs[t] = b;
  }
  return runs;
}

// One bucket's events by their lower bits: the top digit, the same for
// all, costs no pass.
void SortBucket(KDPackedEvent* events, KDPackedEvent* spare, size_t n) {
  if (n < RadixMinimum)
    std::stable_sort(events, events + n, EventOrder());
  else if (RadixSort(events, spare, n) != events)
    std::copy_n(spare, n, events);
}

void SortInParts(const std::vector<KDEventPiece<KDPackedEvent>>& pieces, size_t parts, size_t n,
                 KDPackedEventList& out, std::vector<KDPackedEventList>& spares) {
  std::vector<uint32_t> counts(parts * TopBuckets, 0);
  RunParts(parts, [&](size_t t) {
    uint32_t* count = counts.data() + t * TopBuckets;
    VisitPlaces(pieces, n * t / parts, n * (t + 1) / parts, [&](KDPackedEvent e) { ++count[TopDigit(e)]; });
  });
  TopOffsets(counts, parts);
  RunParts(parts, [&](size_t t) {
    uint32_t place[TopBuckets];
    std::copy_n(counts.data() + t * TopBuckets, TopBuckets, place);
    VisitPlaces(pieces, n * t / parts, n * (t + 1) / parts,
                [&](KDPackedEvent e) { out[place[TopDigit(e)]++] = e; });
  });
  // The first thread's offsets are where the buckets start.
  counts.resize(TopBuckets + 1);
  counts[TopBuckets] = uint32_t(n);
  const std::vector<size_t> runs = BucketRuns(counts, parts, n);
  RunParts(parts, [&](size_t t) {
    KDPackedEventList& spare = spares[t];
    spare.resize(counts[runs[t + 1]] - counts[runs[t]]);
    for (size_t b = runs[t]; b < runs[t + 1]; ++b)
      SortBucket(out.data() + counts[b], spare.data(), counts[b + 1] - counts[b]);
  });
}

}  // namespace

template <typename Event>
void SortPiecesInParts(const std::vector<KDEventPiece<Event>>& pieces, std::vector<KDList<Event>>& spares,
                       KDList<Event>& out) {
  size_t n = 0;
  for (const KDEventPiece<Event>& piece : pieces) n += piece.count;
  out.resize(n);
  // Offsets are 32-bit, and lists of events that do not pack are rare
  // enough to be put in order by one thread.
  if constexpr (std::is_same_v<Event, KDPackedEvent>) {
    const size_t parts = std::min(spares.size(), n / RadixMinimum);
    if (parts > 1 && n < (size_t(1) << 32)) return SortInParts(pieces, parts, n, out, spares);
  }
  size_t at = 0;
  for (const KDEventPiece<Event>& piece : pieces)
    at = std::copy_n(piece.events, piece.count, out.data() + at) - out.data();
  SortEvents(out);
}

namespace {

template <uint32_t Axis>
float Coordinate(const SCENE_VERTEX_XYZ& p) {
  if constexpr (Axis == 0) return p.x;
  if constexpr (Axis == 1) return p.y;
  return p.z;
}

// Each plane turns a polygon of n vertices into at most 1.5 n (every vertex
// inside, plus one crossing per change of side), so six planes take a
// triangle to at most 28 vertices, whatever rounding does to its shape.
constexpr uint32_t MaxClipVertices = 32;

// A polygon in scratch storage, read from `first` on: a plane that keeps
// every vertex would only move the first vertex to the end, so it turns the
// start instead of copying. The directed edges stay the same, and with them
// every later crossing and the result.
struct ClipPolygon {
  SCENE_VERTEX_XYZ* vertices;
  uint32_t count;
  uint32_t first;
};

// Sutherland-Hodgman against the plane `value` on `Axis`, keeping the
// greater side or the lesser. A vertex on the plane is inside. Writes the
// result to `out` unless every vertex is kept.
template <uint32_t Axis, bool KeepGreater>
void ClipAgainstPlane(ClipPolygon& polygon, SCENE_VERTEX_XYZ*& out, float value) {
  const uint32_t n = polygon.count;
  // Marks by storage place, which the test of all vertices may read in any
  // order.
  bool inside[MaxClipVertices];
  bool all = true;
  for (uint32_t r = 0; r < n; ++r) {
    const float d = Coordinate<Axis>(polygon.vertices[r]) - value;
    inside[r] = KeepGreater ? d >= 0.0f : d <= 0.0f;
    all &= inside[r];
  }
  if (all) {
    polygon.first = polygon.first + 1 < n ? polygon.first + 1 : 0;
    return;
  }
  // The edges in polygon order, from the first vertex on: p at storage
  // place r, q at the next place round.
  uint32_t count = 0;
  for (uint32_t i = 0, r = polygon.first; i < n; ++i) {
    const uint32_t s = r + 1 < n ? r + 1 : 0;
    const SCENE_VERTEX_XYZ& p = polygon.vertices[r];
    const SCENE_VERTEX_XYZ& q = polygon.vertices[s];
    const bool inP = inside[r], inQ = inside[s];
    r = s;
    if (inP != inQ) {
      const float pAxis = Coordinate<Axis>(p), qAxis = Coordinate<Axis>(q);
      const float t = (value - pAxis) / (qAxis - pAxis);
      SCENE_VERTEX_XYZ crossing{p.x + (q.x - p.x) * t, p.y + (q.y - p.y) * t, p.z + (q.z - p.z) * t};
      // Exactly on the plane, so that event positions match split positions.
      if constexpr (Axis == 0) crossing.x = value;
      if constexpr (Axis == 1) crossing.y = value;
      if constexpr (Axis == 2) crossing.z = value;
      out[count++] = crossing;
    }
    if (inQ) out[count++] = q;
  }
  std::swap(polygon.vertices, out);
  polygon.count = count;
  polygon.first = 0;
}

template <uint32_t Axis>
void ClipToSlab(ClipPolygon& polygon, SCENE_VERTEX_XYZ*& spare, const float boxMin[3],
                const float boxMax[3]) {
  if (polygon.count) ClipAgainstPlane<Axis, true>(polygon, spare, boxMin[Axis]);
  if (polygon.count) ClipAgainstPlane<Axis, false>(polygon, spare, boxMax[Axis]);
}

// Read in polygon order, from the first vertex round to the one before it:
// which of -0 and +0 is kept depends on the order.
template <uint32_t Axis>
inline __attribute__((always_inline)) void PolygonRange(const ClipPolygon& polygon, float lo[3],
                                                        float hi[3]) {
  const SCENE_VERTEX_XYZ* v = polygon.vertices;
  float low = Coordinate<Axis>(v[polygon.first]), high = low;
  for (uint32_t i = 1, r = polygon.first + 1; i < polygon.count; ++i, ++r) {
    const float value = Coordinate<Axis>(v[r < polygon.count ? r : r - polygon.count]);
    if (value < low) low = value;
    if (value > high) high = value;
  }
  lo[Axis] = low;
  hi[Axis] = high;
}

// The range of a triangle that lies wholly in the box, as the clip would
// give it: with the clip's own inside test passing for every corner and
// plane, no plane changes the polygon, and its six turns of the start bring
// the first corner back to the front, so the range is read in the same
// order (which matters for -0 beside +0). False, and nothing written,
// otherwise.
bool CornersRange(const SCENE_VERTEX_XYZ corners[3], const float boxMin[3], const float boxMax[3],
                  float lo[3], float hi[3]) {
  for (int i = 0; i < 3; ++i) {
    const float p[3] = {corners[i].x, corners[i].y, corners[i].z};
    for (int a = 0; a < 3; ++a)
      if (!(p[a] - boxMin[a] >= 0.0f && p[a] - boxMax[a] <= 0.0f)) return false;
  }
  ClipPolygon polygon{const_cast<SCENE_VERTEX_XYZ*>(corners), 3, 0};
  PolygonRange<0>(polygon, lo, hi);
  PolygonRange<1>(polygon, lo, hi);
  PolygonRange<2>(polygon, lo, hi);
  return true;
}

}  // namespace

bool ClipTriangleToBox(const SCENE_VERTEX_XYZ corners[3], const float boxMin[3], const float boxMax[3],
                       std::vector<SCENE_VERTEX_XYZ>& polygonA, std::vector<SCENE_VERTEX_XYZ>& polygonB,
                       float lo[3], float hi[3]) {
  // Sized once for the largest polygon, so no clip ever grows them.
  if (polygonA.size() < MaxClipVertices) polygonA.resize(MaxClipVertices);
  if (polygonB.size() < MaxClipVertices) polygonB.resize(MaxClipVertices);
  std::copy(corners, corners + 3, polygonA.begin());
  ClipPolygon polygon{polygonA.data(), 3, 0};
  SCENE_VERTEX_XYZ* spare = polygonB.data();
  ClipToSlab<0>(polygon, spare, boxMin, boxMax);
  ClipToSlab<1>(polygon, spare, boxMin, boxMax);
  ClipToSlab<2>(polygon, spare, boxMin, boxMax);
  if (polygon.count == 0) return false;
  PolygonRange<0>(polygon, lo, hi);
  PolygonRange<1>(polygon, lo, hi);
  PolygonRange<2>(polygon, lo, hi);
  return true;
}

template <typename Event>
void AppendBoxEvents(uint32_t triangle, const float lo[3], const float hi[3], KDList<Event>& events) {
  for (uint32_t axis = 0; axis < 3; ++axis) {
    if (lo[axis] == hi[axis]) {
      events.push_back(KDMakeEvent<Event>(KD_EVENT_PLANAR, lo[axis], triangle, axis));
    } else {
      events.push_back(KDMakeEvent<Event>(KD_EVENT_START, lo[axis], triangle, axis));
      events.push_back(KDMakeEvent<Event>(KD_EVENT_END, hi[axis], triangle, axis));
    }
  }
}

template <typename Event>
void AddTriangleEvents(KDTree& tree, const SWMeshTable& table, uint32_t triangle, uint32_t instance,
                       uint32_t meshTriangle, const float boxMin[3], const float boxMax[3],
                       std::vector<SCENE_VERTEX_XYZ>& polygonA, std::vector<SCENE_VERTEX_XYZ>& polygonB,
                       KDList<Event>& events) {
  if (triangle >= tree.buildCorners.size()) return;
  KDTriangleCorners& corners = tree.buildCorners[triangle];
  corners.valid = GetTriangleCorners(table, instance, meshTriangle, corners.corner);
  if (!corners.valid) return;
  float lo[3], hi[3];
  if (CornersRange(corners.corner, boxMin, boxMax, lo, hi) ||
      ClipTriangleToBox(corners.corner, boxMin, boxMax, polygonA, polygonB, lo, hi))
    AppendBoxEvents(triangle, lo, hi, events);
}

// Both record types, for the build and its tests.
#define KD_EVENT_LIST_FUNCTIONS(Event)                                                                       \
  template void SortEvents(KDList<Event>&);                                                                  \
  template void SortPiecesInParts(const std::vector<KDEventPiece<Event>>&, std::vector<KDList<Event>>&,      \
                                  KDList<Event>&);                                                           \
  template void AppendBoxEvents(uint32_t, const float[3], const float[3], KDList<Event>&);                   \
  template void AddTriangleEvents(KDTree&, const SWMeshTable&, uint32_t, uint32_t, uint32_t, const float[3], \
                                  const float[3], std::vector<SCENE_VERTEX_XYZ>&,                            \
                                  std::vector<SCENE_VERTEX_XYZ>&, KDList<Event>&);
KD_EVENT_LIST_FUNCTIONS(KDEvent)
KD_EVENT_LIST_FUNCTIONS(KDPackedEvent)
