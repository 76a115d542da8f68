// The pieces of a kd-tree build that the driver and the per-node step share:
// event lists, clipping, split selection and partition.
#pragma once

#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <vector>

#include "accel/KDTree.h"

// The scratch of the thread running a step: two clip polygons and one side
// mark per triangle, made once per build.
struct KDThreadScratch {
  std::vector<SCENE_VERTEX_XYZ>* polygonA = nullptr;
  std::vector<SCENE_VERTEX_XYZ>* polygonB = nullptr;
  std::vector<uint8_t>* triangleSides = nullptr;
};

// --- Event lists ------------------------------------------------------------

// One number that orders events as the lists need: position, then axis,
// then type. Positions compare as floats do, so -0 equals +0; a NaN, which
// has no place among numbers, sorts after +infinity so that sorting stays a
// strict order whatever the input.
inline uint64_t KDEventKey(const KDEvent& event) {
  const float position = event.position;
  uint32_t ordered = 0xFFFFFFFFu;
  if (position == position) {
    // Flipping the sign bit of positives and all bits of negatives makes the
    // unsigned order the numeric one; zero of either sign becomes +0 first.
    const uint32_t bits = position == 0.0f ? 0u : std::bit_cast<uint32_t>(position);
    ordered = (bits & 0x80000000u) ? ~bits : (bits | 0x80000000u);
  }
  return (uint64_t(ordered) << 4) | (uint64_t(event.axis & 3u) << 2) | uint64_t(uint32_t(event.type) & 3u);
}

// The fields of either record, so that one piece of code serves both.
constexpr unsigned KDPackedKeyShift = 28;
constexpr uint64_t KDPackedNegativeZero = uint64_t(1) << 27;
constexpr uint32_t KDPackedTriangleMask = uint32_t(KDPackedTriangleLimit - 1);

inline uint64_t KDEventKey(KDPackedEvent event) {
  return event.word >> KDPackedKeyShift;
}
inline int32_t KDTypeOf(const KDEvent& event) {
  return event.type;
}
inline int32_t KDTypeOf(KDPackedEvent event) {
  return int32_t(event.word >> KDPackedKeyShift & 3u);
}
inline uint32_t KDAxisOf(const KDEvent& event) {
  return event.axis;
}
inline uint32_t KDAxisOf(KDPackedEvent event) {
  return uint32_t(event.word >> (KDPackedKeyShift + 2) & 3u);
}
inline uint32_t KDTriangleOf(const KDEvent& event) {
  return event.triangle;
}
inline uint32_t KDTriangleOf(KDPackedEvent event) {
  return uint32_t(event.word) & KDPackedTriangleMask;
}
inline float KDPositionOf(const KDEvent& event) {
  return event.position;
}
// The key's ordered number turned back: every number but zero has its own,
// and bit 27 gives zero its sign. All NaNs share one key and come back as
// the NaN 0x7FFFFFFF, which no one can tell from the one that went in: a
// NaN position fails every comparison (so it is never in a box, never a
// candidate, never the winner, and never equal to a split), and the list
// order reads only the key.
inline float KDPositionOf(KDPackedEvent event) {
  const uint32_t ordered = uint32_t(event.word >> 32);
  const uint32_t bits = (ordered & 0x80000000u) ? ordered ^ 0x80000000u : ~ordered;
  return std::bit_cast<float>(bits | uint32_t((event.word & KDPackedNegativeZero) >> 27) << 31);
}

template <typename Event>
Event KDMakeEvent(int32_t type, float position, uint32_t triangle, uint32_t axis);
template <>
inline KDEvent KDMakeEvent<KDEvent>(int32_t type, float position, uint32_t triangle, uint32_t axis) {
  return KDEvent{type, position, triangle, axis};
}
// Keeps the low two bits of type and axis (those the key keeps) and of the
// triangle the bits below KDPackedTriangleLimit.
template <>
inline KDPackedEvent KDMakeEvent<KDPackedEvent>(int32_t type, float position, uint32_t triangle,
                                                uint32_t axis) {
  const uint64_t negativeZero = position == 0.0f && std::signbit(position) ? KDPackedNegativeZero : 0;
  return KDPackedEvent{KDEventKey(KDEvent{type, position, triangle, axis}) << KDPackedKeyShift |
                       negativeZero | (triangle & KDPackedTriangleMask)};
}

// The node's list of one record type.
template <typename Event>
KDList<Event>& KDEventsOf(KDBuildNode& node) {
  if constexpr (std::is_same_v<Event, KDPackedEvent>)
    return node.packedEvents;
  else
    return node.events;
}
template <typename Event>
const KDList<Event>& KDEventsOf(const KDBuildNode& node) {
  return KDEventsOf<Event>(const_cast<KDBuildNode&>(node));
}
// Whether the node's events are in its packed list: a build uses one of the
// two lists for all its nodes, the packed one whenever it holds events.
inline bool KDUsesPackedEvents(const KDBuildNode& node) {
  return !node.packedEvents.empty();
}
// The node's events in whichever list the build uses.
inline size_t KDEventCount(const KDBuildNode& node) {
  return node.events.size() + node.packedEvents.size();
}

// Sorts into list order; equal events keep their order.
template <typename Event>
void SortEvents(KDList<Event>& events);
// A run of events in a list that is read with others in turn.
template <typename Event>
struct KDEventPiece {
  const Event* events;
  size_t count;
};
// Sorts the events of `pieces`, read one after another, into list order in
// `out`, on as many threads as there are `spares`; events of one key keep
// the order they are read in. The spares are scratch, one per thread, and
// may be the lists that the pieces lie in: they are written only after
// every piece has been read.
template <typename Event>
void SortPiecesInParts(const std::vector<KDEventPiece<Event>>& pieces, std::vector<KDList<Event>>& spares,
                       KDList<Event>& out);

// Builds of fewer triangles than this, and than KDPackedTriangleLimit, keep
// their events packed; the rest keep 16-byte records. It starts at
// KDPackedTriangleLimit; tests lower it to build one scene both ways.
void KDLimitPackedEvents(size_t triangles);

// --- Clipping ---------------------------------------------------------------

// Clips a triangle to a box in single precision (Sutherland-Hodgman, axis by
// axis, lower plane then upper plane). On overlap, `lo` and `hi` receive the
// box of what is left and the result is true. The polygons are scratch; they
// grow when needed and never shrink.
bool ClipTriangleToBox(const SCENE_VERTEX_XYZ corners[3], const float boxMin[3], const float boxMax[3],
                       std::vector<SCENE_VERTEX_XYZ>& polygonA, std::vector<SCENE_VERTEX_XYZ>& polygonB,
                       float lo[3], float hi[3]);
// Per axis, a planar event where lo equals hi, else a start at lo and an end
// at hi.
template <typename Event>
void AppendBoxEvents(uint32_t triangle, const float lo[3], const float hi[3], KDList<Event>& events);
// Reads the corners of triangle `meshTriangle` of instance `instance`, the
// tree's triangle `triangle`, into the tree's build scratch, then clips them
// to the box and appends the events. A triangle with an index out of range,
// or one that lies outside the box, adds none.
template <typename Event>
void AddTriangleEvents(KDTree& tree, const SWMeshTable& table, uint32_t triangle, uint32_t instance,
                       uint32_t meshTriangle, const float boxMin[3], const float boxMax[3],
                       std::vector<SCENE_VERTEX_XYZ>& polygonA, std::vector<SCENE_VERTEX_XYZ>& polygonB,
                       KDList<Event>& events);

// --- Split selection --------------------------------------------------------

// Deepest level of a tree over `triangleCount` triangles: 8 + 1.3 ln N,
// truncated, at most 20.
uint32_t KDMaxDepth(size_t triangleCount);
// 2 (dx dy + dy dz + dz dx) of the absolute extents, in single precision.
float KDSurfaceArea(const float boxMin[3], const float boxMax[3]);
// Whether the node is a leaf before any plane is looked at: no triangles, the
// deepest level, or a box of surface area 6 or less.
bool KDIsLeafAnyway(const KDBuildNode& node, uint32_t maxDepth);
// The cheapest plane of the node by the exact surface-area sweep over its
// events (the packed list if it holds any, else `events`). False when no
// event gave a candidate.
bool FindBestSplit(const KDBuildNode& node, const KDTree& tree, KDSplit& best);

// --- Partition --------------------------------------------------------------

// Shares the parent's triangles and events out to the two children, whose
// node, depth and box are set. The children's events go to the list of the
// parent's kind (packed if the parent's packed list holds any). Triangles
// on both sides are clipped again to each child's box, and their new events
// are merged in, so that both children's lists come out sorted. The parent's events are used up.
// With `twoThreads` the right child's events are made on a helper thread
// while the calling thread makes the left child's. A child that
// KDIsLeafAnyway finds a leaf at `maxDepth` gets its triangles and no
// events.
void PartitionNode(KDBuildNode& parent, const KDSplit& split, const KDTree& tree,
                   const KDThreadScratch& scratch, bool twoThreads, KDBuildNode& left, KDBuildNode& right,
                   uint32_t maxDepth);
