// Partition of a split node: triangles and events go to the side they lie
// on, in list order, so that neither child needs sorting; only triangles on
// both sides are clipped again and their new events sorted and merged in.
#include "accel/KDParallel.h"
#include "accel/KDTreeBuild.h"

namespace {

// Values of a triangle's entry in the thread's side vector.
enum TriangleSide : uint8_t {
  BothSides = 0,  // or not yet known
  LeftOnly = 1,
  RightOnly = 2,
};

template <typename Event>
bool IsWinner(const Event& event, const KDSplit& split) {
  return KDTriangleOf(event) == split.eventTriangle && uint32_t(KDTypeOf(event)) == split.eventType &&
         KDPositionOf(event) == split.position;
}

// Walks the split axis's events: before the winning event, starts and planars
// go left; from it on, planars and ends go right. The winner itself goes
// right only if it is planar. Returns how many triangles went to both sides.
template <typename Event>
size_t ShareTriangles(const KDBuildNode& parent, const KDSplit& split, std::vector<uint8_t>& sides,
                      KDBuildNode& left, KDBuildNode& right) {
  for (uint32_t triangle : parent.triangleList) sides[triangle] = BothSides;
  // Neither child can have more triangles than the parent: one allocation
  // each instead of a growing list.
  left.triangleList.reserve(parent.triangleList.size());
  right.triangleList.reserve(parent.triangleList.size());
  size_t shared = 0;
  bool passed = false;
  for (const Event& event : KDEventsOf<Event>(parent)) {
    if (KDAxisOf(event) != split.axis) continue;
    const uint32_t triangle = KDTriangleOf(event);
    const int32_t type = KDTypeOf(event);
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
      shared += sides[triangle] != BothSides;
      sides[triangle] = sides[triangle] != BothSides ? BothSides : RightOnly;
    }
  }
  return shared;
}

// Writes one child's list as the pass over the parent's reaches its events,
// merging in the sorted fresh events of the triangles it shares. A fresh
// event goes before the first inherited event that is greater, so on
// equality the inherited one stays first. The pass hands every parent
// event to the list, which keeps only its own: a fresh event let out before
// an event of the other side still lands before the next event of its own,
// which is no less. So the side decides no branch, only how far the list
// moves on.
template <typename Event>
class ChildList {
 public:
  // The list is sized for every parent event, all fresh ones and one slot
  // that takes what is written but not kept, and cut back at the end; its
  // allocator leaves the slots unset.
  ChildList(const KDList<Event>& fresh, size_t parentEvents, KDList<Event>& list)
      : next(fresh.data()), end(fresh.data() + fresh.size()), list(list) {
    list.resize(parentEvents + fresh.size() + 1);
    out = list.data();
    Load();
  }
  // Lets out the fresh events that go before an event of key `key`.
  void Reach(uint64_t key) {
    while (nextKey < key) {
      *out++ = *next++;
      Load();
    }
  }
  void Put(const Event& event, bool kept) {
    *out = event;
    out += kept;
  }
  void Finish() {
    while (next != end) *out++ = *next++;
    list.resize(out - list.data());
  }

 private:
  // Past the last fresh event, a key above every key.
  void Load() { nextKey = next != end ? KDEventKey(*next) : UINT64_MAX; }

  const Event* next;
  const Event* end;
  uint64_t nextKey = 0;
  KDList<Event>& list;
  Event* out = nullptr;
};

// One pass over the parent's events fills the left child's list, the
// right's, or both.
template <bool Left, bool Right, typename Event>
void ShareEvents(const KDList<Event>& events, const std::vector<uint8_t>& sides, ChildList<Event>* left,
                 ChildList<Event>* right) {
  for (const Event& event : events) {
    const uint8_t side = sides[KDTriangleOf(event)];
    const uint64_t key = KDEventKey(event);
    if (Left) {
      left->Reach(key);
      left->Put(event, side == LeftOnly);
    }
    if (Right) {
      right->Reach(key);
      right->Put(event, side == RightOnly);
    }
  }
  if (Left) left->Finish();
  if (Right) right->Finish();
}

// A child's part of the partition: its box, and the events made anew for
// it.
template <typename Event>
struct ChildEvents {
  const KDBuildNode* child;
  KDList<Event>* fresh;
};

// The partition's short-lived lists, kept by each thread from one node to
// the next, so that a node neither allocates nor faults in new memory for
// them. A list that grew past KeptBytes is let go after its node: workers
// outlive the build and should not go on holding a big node's lists.
constexpr size_t KeptBytes = size_t(1) << 20;

KDList<uint32_t>& ThreadPicked() {
  thread_local KDList<uint32_t> picked;
  return picked;
}
template <typename Event>
KDList<Event>* ThreadFresh() {
  thread_local KDList<Event> fresh[2];
  return fresh;
}

template <typename List>
void Done(List& list) {
  list.clear();
  if (list.capacity() * sizeof(list[0]) > KeptBytes) List().swap(list);
}

// The triangles on both sides, clipped again to each child's box, each clip
// starting from the whole triangle; their new events, sorted. A triangle
// that the clip finds outside a child stays in its list without events
// there.
template <typename Event>
void ClipSharedTriangles(const KDBuildNode& parent, const std::vector<uint8_t>& sides, const KDTree& tree,
                         std::vector<SCENE_VERTEX_XYZ>& polygonA, std::vector<SCENE_VERTEX_XYZ>& polygonB,
                         size_t shared, ChildEvents<Event>* children, size_t count) {
  // Six events is the most a triangle makes.
  for (size_t c = 0; c < count; ++c) {
    children[c].fresh->clear();
    children[c].fresh->reserve(6 * shared);
  }
  // The shared triangles' corners lie scattered over the scratch, and
  // waiting for each was the partition's costliest load: they are picked out
  // first, in list order, so that each one's corners are asked for a few
  // clips ahead.
  const auto& all = tree.buildCorners;
  auto& picked = ThreadPicked();
  picked.resize(parent.triangleList.size());
  size_t pickedCount = 0;
  for (uint32_t triangle : parent.triangleList) {
    picked[pickedCount] = triangle;
    pickedCount += sides[triangle] == BothSides && triangle < all.size();
  }
  constexpr size_t Ahead = 8;
  for (size_t k = 0; k < pickedCount; ++k) {
    if (k + Ahead < pickedCount) {
      const char* next = reinterpret_cast<const char*>(&all[picked[k + Ahead]]);
      __builtin_prefetch(next);
      __builtin_prefetch(next + sizeof(KDTriangleCorners) - 1);
    }
    const uint32_t triangle = picked[k];
    const KDTriangleCorners& corners = all[triangle];
    if (!corners.valid) continue;
    for (size_t c = 0; c < count; ++c) {
      float lo[3], hi[3];
      if (ClipTriangleToBox(corners.corner, children[c].child->boxMin, children[c].child->boxMax, polygonA,
                            polygonB, lo, hi))
        AppendBoxEvents(triangle, lo, hi, *children[c].fresh);
    }
  }
  Done(picked);
  for (size_t c = 0; c < count; ++c) SortEvents(*children[c].fresh);
}

// One child's fresh events and list, on the calling thread and with its
// scratch.
template <typename Event>
void MakeChildEvents(const KDBuildNode& parent, const std::vector<uint8_t>& sides, const KDTree& tree,
                     std::vector<SCENE_VERTEX_XYZ>& polygonA, std::vector<SCENE_VERTEX_XYZ>& polygonB,
                     size_t shared, bool isRight, KDBuildNode& node) {
  const KDList<Event>& events = KDEventsOf<Event>(parent);
  ChildEvents<Event> child{&node, &ThreadFresh<Event>()[0]};
  ClipSharedTriangles(parent, sides, tree, polygonA, polygonB, shared, &child, 1);
  ChildList<Event> list(*child.fresh, events.size(), KDEventsOf<Event>(node));
  if (isRight)
    ShareEvents<false, true, Event>(events, sides, nullptr, &list);
  else
    ShareEvents<true, false, Event>(events, sides, &list, nullptr);
  Done(*child.fresh);
}

template <typename Event>
void Partition(const KDBuildNode& parent, const KDSplit& split, const KDTree& tree,
               const KDThreadScratch& scratch, bool twoThreads, KDBuildNode& left, KDBuildNode& right,
               uint32_t maxDepth) {
  std::vector<uint8_t>& sides = *scratch.triangleSides;
  const size_t shared = ShareTriangles<Event>(parent, split, sides, left, right);
  // A child that will be a leaf whatever its events say never reads them:
  // they are not made.
  const bool needed[2] = {!KDIsLeafAnyway(left, maxDepth), !KDIsLeafAnyway(right, maxDepth)};
  if (needed[0] && needed[1] && twoThreads) {
    // The children share only what both read; the helper clips with
    // polygons of its own.
    RunParts(2, [&](size_t c) {
      std::vector<SCENE_VERTEX_XYZ> ownA, ownB;
      MakeChildEvents<Event>(parent, sides, tree, c ? ownA : *scratch.polygonA, c ? ownB : *scratch.polygonB,
                             shared, c, c ? right : left);
    });
  } else if (needed[0] && needed[1]) {
    const KDList<Event>& events = KDEventsOf<Event>(parent);
    KDList<Event>* fresh = ThreadFresh<Event>();
    ChildEvents<Event> children[2] = {{&left, &fresh[0]}, {&right, &fresh[1]}};
    ClipSharedTriangles(parent, sides, tree, *scratch.polygonA, *scratch.polygonB, shared, children, 2);
    ChildList<Event> leftList(fresh[0], events.size(), KDEventsOf<Event>(left));
    ChildList<Event> rightList(fresh[1], events.size(), KDEventsOf<Event>(right));
    ShareEvents<true, true>(events, sides, &leftList, &rightList);
    Done(fresh[0]);
    Done(fresh[1]);
  } else if (needed[0] || needed[1]) {
    const size_t c = needed[0] ? 0 : 1;
    MakeChildEvents<Event>(parent, sides, tree, *scratch.polygonA, *scratch.polygonB, shared, c,
                           c ? right : left);
  }
}

}  // namespace

void PartitionNode(KDBuildNode& parent, const KDSplit& split, const KDTree& tree,
                   const KDThreadScratch& scratch, bool twoThreads, KDBuildNode& left, KDBuildNode& right,
                   uint32_t maxDepth) {
  if (KDUsesPackedEvents(parent))
    Partition<KDPackedEvent>(parent, split, tree, scratch, twoThreads, left, right, maxDepth);
  else
    Partition<KDEvent>(parent, split, tree, scratch, twoThreads, left, right, maxDepth);
  KDEventList().swap(parent.events);
  KDPackedEventList().swap(parent.packedEvents);
}
