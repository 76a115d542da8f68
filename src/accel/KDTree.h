// The kd-tree over the triangles of one mesh table, and the records of its
// parallel build: one work-queue job per node, each split making two more.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <vector>

#include "accel/KDUnsetAllocator.h"
#include "accel/KDWalkLayout.h"
#include "scene/SWTriangle.h"
#include "host/SceneRecords.h"

#pragma pack(push, 1)
// Inner node: low two bits of childAndAxis the split axis, the rest the
// index of the first child; splitOrCount the plane as a float. Leaf: low two
// bits 3, the rest the first entry in leafTriangles; splitOrCount the count.
// The children of an inner node are adjacent, the lower side first.
struct KDNode {
  uint32_t childAndAxis = 0;
  uint32_t splitOrCount = 0;
};

enum KDEventType : int32_t {
  KD_EVENT_END = 0,
  KD_EVENT_PLANAR = 1,
  KD_EVENT_START = 2,
};

// Where a triangle's clipped box begins, ends, or lies flat on one axis.
struct KDEvent {
  int32_t type;  // KDEventType
  float position;
  uint32_t triangle;
  uint32_t axis;
};

// The winning plane of a node, and the event that won it, which the
// partition looks for again.
struct KDSplit {
  uint32_t axis;
  float position;
  float cost;
  uint32_t eventType;
  uint32_t eventTriangle;
};
#pragma pack(pop)

// The same event in one 64-bit word, which builds of fewer than
// KDPackedTriangleLimit triangles use inside the build, so that sorting,
// sweeping and sharing events out move half the bytes: bits 28-63 the list
// order key (KDEventKey), bit 27 set for a position of -0 (the key holds both
// zeros as one, and the winning plane's bits go into the tree), bits 0-26
// the triangle.
struct KDPackedEvent {
  uint64_t word;
};
constexpr size_t KDPackedTriangleLimit = size_t(1) << 27;

// A sorted event list: position, then axis, then type, equal events in the
// order they came. A vector does what a linked list would: events move from
// parent to child in order, and the parent's list dies with its job.
template <typename Event>
using KDList = std::vector<Event, KDUnsetAllocator<Event>>;
using KDEventList = KDList<KDEvent>;
using KDPackedEventList = KDList<KDPackedEvent>;

// A triangle's corners in world space as the build clips them, read once
// from the mesh table; `valid` is 0 when an index is out of range.
struct KDTriangleCorners {
  SCENE_VERTEX_XYZ corner[3];
  uint32_t valid;
};

// The work description of one node. Not packed: it holds containers.
struct KDBuildNode {
  uint32_t node = 0;   // index in nodes
  uint32_t depth = 0;  // root 0
  float boxMin[3] = {0, 0, 0};
  float boxMax[3] = {0, 0, 0};
  std::vector<uint32_t> triangleList;
  KDEventList events;
  // A build uses one of the two lists for all its nodes: packed events when
  // every triangle number fits, `events` otherwise.
  KDPackedEventList packedEvents;
};

// Per-thread scratch of a build, keyed by thread identifier.
using KDPolygonMap = std::map<uint32_t, std::vector<SCENE_VERTEX_XYZ>>;
// A side mark takes one of three values, so a byte holds it: the marks of a
// million triangles then stay in the processor's cache.
using KDTriangleSideMap = std::map<uint32_t, std::vector<uint8_t>>;

struct SWMeshTable;
struct SWRayIntersectionResult;
struct WorkItem;
struct RenderThreadRecord;
struct KDBuildJob;
namespace platform {
class CriticalSection;
class Semaphore;
}  // namespace platform

class KDTree {
 public:
  KDTree() { Clear(); }

  // Empties the tree, its triangle records and its box; the costs stay.
  void Clear();

  // Builds the tree over `meshTable` on the engine's workers, one queue job
  // per node, and returns when it is finished or aborted. Must run on a
  // thread that is not one of the workers. `shouldAbort` may be null.
  void Build(const SWMeshTable* meshTable, std::deque<WorkItem>& workQueue,
             platform::CriticalSection& queueLock, const std::vector<RenderThreadRecord>& renderThreads,
             platform::Semaphore* wakeSemaphore, platform::Semaphore* doneSemaphore,
             bool (*shouldAbort)(void*), void* abortContext);
  // Runs one node of a build on a worker: makes it a leaf, or splits it and
  // queues its two children with a wake for each.
  static void BuildStep(KDBuildJob* job, std::deque<WorkItem>& workQueue,
                        platform::CriticalSection& queueLock, platform::Semaphore* wakeSemaphore);

  // Traversal
  // The nearest triangle on the ray, from both sides, into `result`; false on
  // a miss. A miss before the walk leaves `result` as it was. With
  // `reach`, nodes beyond that distance are not visited: every hit within
  // it is still found, and a hit beyond it may or may not be.
  bool Intersect(const SCENE_VERTEX_XYZ_64& origin, const SCENE_VERTEX_XYZ_64& direction,
                 const SCENE_VERTEX_XYZ_64& inverseDirection, SWRayIntersectionResult& result,
                 const double* reach = nullptr) const;
  // Clips the ray to the tree's box; `startNear`, `startFar` may narrow the
  // start interval. False on a miss or a null direction.
  bool IntersectBounds(const SCENE_VERTEX_XYZ_64& origin, const SCENE_VERTEX_XYZ_64& direction,
                       const SCENE_VERTEX_XYZ_64& inverseDirection, double& tNear, double& tFar,
                       const double* startNear = nullptr, const double* startFar = nullptr) const;
  // Tests the triangles of one leaf; true if one of them improved `result`.
  bool IntersectLeaf(const KDNode& leaf, const SCENE_VERTEX_XYZ_64& origin,
                     const SCENE_VERTEX_XYZ_64& direction, SWRayIntersectionResult& result) const;

  std::vector<uint32_t> leafTriangles;  // one run per leaf
  // One record per triangle number. A vector stands for the double-ended
  // sequence: it is sized once per build and only indexed afterwards.
  std::vector<SWTriangle> triangles;
  std::vector<KDNode> nodes;  // element 0 is the root
  SCENE_VERTEX_XYZ boundsMin{};
  SCENE_VERTEX_XYZ boundsMax{};
  const float traversalCost = 1.0f;
  const float emptyCost = 0.0f;
  const float leafBaseCost = 0.0f;
  const float triangleCost = 1.0f;
  // Scratch of a build, one entry per triangle number, written with the
  // root's events and read-only afterwards; empty outside a build.
  std::vector<KDTriangleCorners, KDUnsetAllocator<KDTriangleCorners>> buildCorners;

  // The walk's own copy of the tree, made at the end of Build; Intersect
  // uses it while it still matches the fields above.
  const KDWalkLayout& WalkLayout() const { return walkLayout; }

 private:
  KDWalkLayout walkLayout;

  // Ends a build whose every job has run: the build's scratch let go and
  // the walk's copy laid out, on up to `workers` threads.
  void FinishBuild(size_t workers);

  // The box's start value: the largest float as minimum, its negative as
  // maximum, so that the first vertex sets both.
  void ResetBounds();
};

inline bool KDWalkLayout::Matches(const KDTree& tree) const {
  return !nodes.empty() && sourceNodes == tree.nodes.data() && sourceNodeCount == tree.nodes.size() &&
         sourceLeafTriangles == tree.leafTriangles.data() &&
         sourceLeafTriangleCount == tree.leafTriangles.size() && sourceTriangles == tree.triangles.data() &&
         sourceTriangleCount == tree.triangles.size();
}

#pragma pack(push, 1)
// One kd-tree node of a build, as a work-queue payload. The pointers lead to
// state of the build driver, which outlives every job; a job owns only this
// record, which the worker deletes after running or dropping it.
struct KDBuildJob {
  std::deque<KDBuildNode>* buildStack = nullptr;  // used as a stack
  KDPolygonMap* clipPolygonsA = nullptr;
  KDPolygonMap* clipPolygonsB = nullptr;
  KDTriangleSideMap* triangleSides = nullptr;
  const SWMeshTable* meshTable = nullptr;
  uint32_t maxDepth = 0;
  uint32_t* jobCount = nullptr;
  uint32_t* jobsFinished = nullptr;     // under buildLock, like jobCount
  const bool* recordsFilled = nullptr;  // under buildLock
  platform::CriticalSection* buildLock = nullptr;
  KDTree* tree = nullptr;
  bool (*shouldAbort)(void*) = nullptr;
  void* abortContext = nullptr;
};
#pragma pack(pop)
