// Partition of a split node: triangles and events go to the side they lie
// on, in list order, so that neither child needs sorting; only triangles on
// both sides are clipped again and their new events sorted and merged in.
#include "accel/KDTreeBuild.h"

namespace {

// Values of a triangle's entry in the thread's side vector.
enum TriangleSide : uint32_t {
  BothSides = 0,  // or not yet known
  LeftOnly = 1,
  RightOnly = 2,
};

bool IsWinner(const KDEvent& event, const KDSplit& split) {
  return event.triangle == split.eventTriangle && uint32_t(event.type) == split.eventType &&
         event.position == split.position;
}

// Walks the split axis's events: before the winning event, starts and planars
// go left; from it on, planars and ends go right. The winner itself goes
// right only if it is planar.
void ShareTriangles(const KDBuildNode& parent, const KDSplit& split, std::vector<uint32_t>& sides,
                    KDBuildNode& left, KDBuildNode& right) {
  for (uint32_t triangle : parent.triangleList) sides[triangle] = BothSides;
  bool passed = false;
  for (const KDEvent& event : parent.events) {
    if (event.axis != split.axis) continue;
    const uint32_t triangle = event.triangle;
    const int32_t type = event.type;
    if (!passed) {
      if (IsWinner(event, split)) {
        passed = true;
        if (type != KD_EVENT_PLANAR) continue;
        right.triangleList.push_back(triangle);
        sides[triangle] = RightOnly;
      } else if (type != KD_EVENT_END) {
        left.triangleList.push_back(triangle);
        sides[triangle] = LeftOnly;
      }
    } else if (type != KD_EVENT_START) {
      right.triangleList.push_back(triangle);
      sides[triangle] = sides[triangle] != BothSides ? BothSides : RightOnly;
    }
  }
}

// Events of one-sided triangles move in order; those of triangles on both
// sides die with the parent. The right child takes over the parent's storage.
void ShareEvents(KDBuildNode& parent, const std::vector<uint32_t>& sides, KDBuildNode& left,
                 KDBuildNode& right) {
  KDEventList& events = parent.events;
  size_t kept = 0;
  for (size_t i = 0; i < events.size(); ++i) {
    const KDEvent event = events[i];
    const uint32_t side = sides[event.triangle];
    if (side == LeftOnly)
      left.events.push_back(event);
    else if (side == RightOnly)
      events[kept++] = event;
  }
  events.resize(kept);
  right.events.swap(events);
}

}  // namespace

void PartitionNode(KDBuildNode& parent, const KDSplit& split, const KDTree& tree, const SWMeshTable& table,
                   const KDThreadScratch& scratch, KDBuildNode& left, KDBuildNode& right) {
  std::vector<uint32_t>& sides = *scratch.triangleSides;
  ShareTriangles(parent, split, sides, left, right);
  ShareEvents(parent, sides, left, right);

  // A triangle that the clip finds outside a child stays in its list without
  // events there.
  KDEventList newLeft, newRight;
  for (uint32_t triangle : parent.triangleList) {
    if (sides[triangle] != BothSides) continue;
    AddTriangleEvents(tree, table, triangle, left.boxMin, left.boxMax, *scratch.polygonA, *scratch.polygonB,
                      newLeft);
    AddTriangleEvents(tree, table, triangle, right.boxMin, right.boxMax, *scratch.polygonA, *scratch.polygonB,
                      newRight);
  }
  SortEvents(newLeft);
  SortEvents(newRight);
  MergeEvents(left.events, newLeft);
  MergeEvents(right.events, newRight);
}
