// The kd-tree build driver. It prepares the root on the calling thread,
// queues it as the first job, and then waits by counting: every wake of a
// worker is answered by one post of doneSemaphore, and every job released a
// wake, so when the posts reach the job count no worker is awake and the
// tree is finished.
#include <algorithm>
#include <atomic>
#include <numeric>

#include "host/BrindlexViewMath.h"
#include "engine/BrindlexViewRTRenderEngine.h"
#include "accel/KDParallel.h"
#include "accel/KDTreeBuild.h"

namespace {

// The abort poll of a build; a true answer is remembered. The helpers that
// make the root's events ask it too, as the workers do.
class AbortPoll {
 public:
  AbortPoll(bool (*function)(void*), void* context) : function(function), context(context) {}
  // Asks the function and says whether it answered true just now.
  bool Ask() {
    const bool answer = function && function(context);
    if (answer) aborted = true;
    return answer;
  }
  // Asks the function and says whether any answer so far was true.
  bool AskSticky() {
    Ask();
    return aborted;
  }
  // Whether any answer so far was true, without asking again.
  bool Aborted() const { return aborted; }

 private:
  bool (*function)(void*);
  void* context;
  std::atomic<bool> aborted{false};
};

void Grow(SCENE_VERTEX_XYZ& boundsMin, SCENE_VERTEX_XYZ& boundsMax, const SCENE_VERTEX_XYZ& p) {
  if (p.x < boundsMin.x) boundsMin.x = p.x;
  if (p.y < boundsMin.y) boundsMin.y = p.y;
  if (p.z < boundsMin.z) boundsMin.z = p.z;
  if (p.x > boundsMax.x) boundsMax.x = p.x;
  if (p.y > boundsMax.y) boundsMax.y = p.y;
  if (p.z > boundsMax.z) boundsMax.z = p.z;
}

// The box grows over every vertex of the mesh, used by a triangle or not.
void GrowOverInstance(const SWMeshTable& table, const SWMesh& mesh, const SWMeshInstance& instance,
                      SCENE_VERTEX_XYZ& boundsMin, SCENE_VERTEX_XYZ& boundsMax) {
  const SCENE_MATRIX* transform = GetInstanceTransform(table, instance);
  for (const SCENE_VERTEX& vertex : mesh.vertices) {
    SCENE_VERTEX_XYZ p = vertex.position;
    if (transform) TransformPoint3D(transform, &p, &p);
    Grow(boundsMin, boundsMax, p);
  }
}

bool IsWorker(const std::vector<RenderThreadRecord>& renderThreads) {
  const uint32_t self = platform::GetCurrentThreadId();
  for (const RenderThreadRecord& thread : renderThreads)
    if (thread.threadId == self) return true;
  return false;
}

void CopyBox(const SCENE_VERTEX_XYZ& from, float to[3]) {
  to[0] = from.x;
  to[1] = from.y;
  to[2] = from.z;
}

// Entries left on the queue can only be build jobs dropped by an abort, as
// nothing else is queued while a build waits; their records are deleted. An
// entry of any other class has a payload of a type unknown here and is only
// removed.
void DiscardQueue(std::deque<WorkItem>& workQueue, platform::CriticalSection& queueLock) {
  platform::CriticalSectionGuard guard(queueLock);
  for (const WorkItem& item : workQueue)
    if (item.jobClass == RT_JOB_KDTREE_BUILD) delete static_cast<KDBuildJob*>(item.payload);
  workQueue.clear();
}

// Fewer triangles than this per helper are not worth a thread.
constexpr size_t TrianglesPerPart = 16384;

// Where each instance's triangles begin in the tree's numbering, and how
// many it has; the last entry of `first` is the total.
struct InstanceRuns {
  std::vector<size_t> first;
  std::vector<size_t> count;
};

InstanceRuns CountInstanceRuns(const SWMeshTable& table, size_t total) {
  InstanceRuns runs;
  size_t filled = 0;
  for (const SWMeshInstance& instance : table.instances) {
    const SWMesh* mesh = GetInstanceMesh(table, instance);
    const size_t count = mesh ? std::min(mesh->indices.size() / 3, total - filled) : 0;
    runs.first.push_back(filled);
    runs.count.push_back(count);
    filled += count;
  }
  runs.first.push_back(filled);
  return runs;
}

// Fills the records in [begin, end), asking `shouldAbort` after each
// instance's part; false on an abort.
bool FillRecords(KDTree& tree, const SWMeshTable& table, const InstanceRuns& runs, size_t begin, size_t end,
                 AbortPoll& abort) {
  for (uint32_t i = 0; i < runs.count.size(); ++i) {
    const size_t from = std::max(begin, runs.first[i]);
    const size_t to = std::min(end, runs.first[i] + runs.count[i]);
    if (from >= to) continue;
    FillInstanceTriangles(table, i, tree.triangles.data() + from, to - from, from - runs.first[i]);
    if (abort.AskSticky()) return false;
  }
  return true;
}

// The tree's triangle records, shared out in pieces while they are made.
// Sizing them (the vector zero-fills 85 bytes per triangle, a fresh page at
// every 48 triangles) is one thread's work; the root's events do not read
// the records, so the other threads make their events meanwhile. Nor do
// the jobs read them: they are filled while the root job runs alone.
class RootRecords {
 public:
  RootRecords(KDTree& tree, const SWMeshTable& table, const InstanceRuns& runs)
      : tree(tree), table(table), runs(runs) {}
  // The others are let go even when the allocation fails: they find no
  // records to fill, and the exception goes on once all have ended.
  void Size(size_t total) {
    struct LetGo {
      std::atomic<bool>& sized;
      ~LetGo() {
        sized.store(true, std::memory_order_release);
        sized.notify_all();
      }
    } letGo{sized};
    tree.triangles.assign(total, SWTriangle{});
  }
  // Fills pieces until every piece that begins before `upTo` is taken, or
  // an abort comes; false on an abort.
  bool Fill(AbortPoll& abort, size_t upTo = SIZE_MAX) {
    sized.wait(false, std::memory_order_acquire);
    const size_t total = tree.triangles.size();
    for (size_t begin = next.load(std::memory_order_relaxed); begin < std::min(total, upTo);) {
      if (!next.compare_exchange_weak(begin, begin + TrianglesPerPart, std::memory_order_relaxed)) continue;
      if (!FillRecords(tree, table, runs, begin, std::min(total, begin + TrianglesPerPart), abort))
        return false;
      begin = next.load(std::memory_order_relaxed);
    }
    return !abort.Aborted();
  }

 private:
  KDTree& tree;
  const SWMeshTable& table;
  const InstanceRuns& runs;
  std::atomic<bool> sized{false};
  std::atomic<size_t> next{0};
};

// The events of the triangles in [begin, end), clipped to the root's box,
// from the mesh table itself. False on an abort.
template <typename Event>
bool AddRootEvents(KDTree& tree, const SWMeshTable& table, const InstanceRuns& runs, size_t begin, size_t end,
                   const KDBuildNode& root, std::vector<SCENE_VERTEX_XYZ>& a,
                   std::vector<SCENE_VERTEX_XYZ>& b, KDList<Event>& events, AbortPoll& abort) {
  for (uint32_t i = 0; i < runs.count.size(); ++i) {
    const size_t from = std::max(begin, runs.first[i]);
    const size_t to = std::min(end, runs.first[i] + runs.count[i]);
    for (size_t n = from; n < to; ++n) {
      AddTriangleEvents(tree, table, uint32_t(n), i, uint32_t(n - runs.first[i]), root.boxMin, root.boxMax, a,
                        b, events);
      if (abort.AskSticky()) return false;
    }
  }
  return true;
}

// Where a piece of TrianglesPerPart triangles left its events.
struct RootPiece {
  size_t list = 0;
  size_t from = 0;
  size_t count = 0;
};

// The root's events on `parts` threads, each with polygons and a list of its
// own. The first thread sizes the records first; all take pieces of the
// triangle list in order, so the threads end their events together however
// long the sizing took. Every thread asks `shouldAbort` after each instance
// and each triangle, and all stop once one has seen an abort.
template <typename Event>
std::vector<KDEventPiece<Event>> MakeRootLists(KDTree& tree, const SWMeshTable& table, KDBuildNode& root,
                                               const InstanceRuns& runs, RootRecords& records,
                                               std::vector<KDList<Event>>& lists,
                                               const std::vector<SCENE_VERTEX_XYZ>& polygonA,
                                               const std::vector<SCENE_VERTEX_XYZ>& polygonB,
                                               AbortPoll& abort) {
  const size_t total = root.triangleList.size();
  std::vector<RootPiece> made((total + TrianglesPerPart - 1) / TrianglesPerPart);
  std::atomic<size_t> next{0};
  RunParts(lists.size(), [&](size_t part) {
    if (part == 0) records.Size(total);
    std::vector<SCENE_VERTEX_XYZ> a = polygonA, b = polygonB;
    KDList<Event>& events = lists[part];
    // Six events is the most a triangle makes; untouched slots cost no
    // memory, and the list never moves while its pieces are noted.
    events.reserve(total * 6);
    for (bool going = true; going;) {
      const size_t begin = next.fetch_add(TrianglesPerPart, std::memory_order_relaxed);
      if (begin >= total) break;
      const size_t end = std::min(total, begin + TrianglesPerPart), from = events.size();
      std::iota(root.triangleList.begin() + begin, root.triangleList.begin() + end, uint32_t(begin));
      going = AddRootEvents(tree, table, runs, begin, end, root, a, b, events, abort);
      made[begin / TrianglesPerPart] = RootPiece{part, from, events.size() - from};
    }
    // Three fifths of the records are filled here, the rest while the root
    // job sweeps alone: all of them there would last into the root's
    // partition on two threads, which then shares a processor with them.
    records.Fill(abort, total / 5 * 3);
  });
  std::vector<KDEventPiece<Event>> pieces;
  for (const RootPiece& piece : made)
    pieces.push_back(KDEventPiece<Event>{lists[piece.list].data() + piece.from, piece.count});
  return pieces;
}

// What the root's preparation leaves for the time when the root job runs
// alone and the other processors would idle: the records to fill and the
// threads' lists to give back.
class RootLeftovers {
 public:
  RootLeftovers(KDTree& tree, const SWMeshTable& table, size_t total)
      : runs(CountInstanceRuns(table, total)), records(tree, table, runs) {}
  // True once every record is filled: not after an abort.
  bool Finish(AbortPoll& abort) {
    decltype(lists)().swap(lists);
    decltype(packedLists)().swap(packedLists);
    return records.Fill(abort);
  }
  template <typename Event>
  std::vector<KDList<Event>>& Lists() {
    if constexpr (std::is_same_v<Event, KDPackedEvent>)
      return packedLists;
    else
      return lists;
  }

  const InstanceRuns runs;
  RootRecords records;

 private:
  std::vector<KDEventList> lists;
  std::vector<KDPackedEventList> packedLists;
};

// The root's events in list order. The pieces of the lists are sorted in
// triangle order, so the events of one key come out in triangle order,
// whichever thread made them: the list that sorting the whole list in
// triangle order gives.
template <typename Event>
void MakeRootEvents(KDTree& tree, const SWMeshTable& table, KDBuildNode& root, size_t parts,
                    RootLeftovers& leftovers, const std::vector<SCENE_VERTEX_XYZ>& polygonA,
                    const std::vector<SCENE_VERTEX_XYZ>& polygonB, AbortPoll& abort) {
  std::vector<KDList<Event>>& lists = leftovers.Lists<Event>();
  lists.resize(parts);
  const std::vector<KDEventPiece<Event>> pieces =
      MakeRootLists(tree, table, root, leftovers.runs, leftovers.records, lists, polygonA, polygonB, abort);
  KDList<Event>& events = KDEventsOf<Event>(root);
  // The one poll before the list is put in order.
  if (!abort.AskSticky() && parts == 1) {
    events.swap(lists[0]);
    SortEvents(events);
  } else if (!abort.Aborted()) {
    // The lists, read by the first pass only, are the other passes'
    // scratch: memory their threads have already touched.
    SortPiecesInParts(pieces, lists, events);
  }
}

// Builds of fewer triangles than this pack their events.
std::atomic<size_t> packedEventLimit{KDPackedTriangleLimit};

// The root: every triangle number in order, the records sized, its events
// from the triangle clipped to the tree's box, sorted unless aborted. The
// workers sleep while this runs, so it takes as many threads as there are
// workers. The events are packed when every triangle number fits.
void PrepareRoot(KDTree& tree, const SWMeshTable& table, size_t total, size_t threads, KDBuildNode& root,
                 RootLeftovers& leftovers, std::vector<SCENE_VERTEX_XYZ>& polygonA,
                 std::vector<SCENE_VERTEX_XYZ>& polygonB, AbortPoll& abort) {
  abort.Ask();
  root.triangleList.resize(total);
  // Every entry is written before the jobs read it, so it is not zeroed.
  tree.buildCorners.resize(total);
  const size_t parts = std::max<size_t>(1, std::min(threads, total / TrianglesPerPart));
  if (total < std::min(packedEventLimit.load(std::memory_order_relaxed), KDPackedTriangleLimit))
    MakeRootEvents<KDPackedEvent>(tree, table, root, parts, leftovers, polygonA, polygonB, abort);
  else
    MakeRootEvents<KDEvent>(tree, table, root, parts, leftovers, polygonA, polygonB, abort);
}

// Queues the root job, finishes the root's leftovers, and waits until the
// posts of doneSemaphore reach the job count. The build's shared state
// lives here and outlives every job.
void RunJobs(KDTree& tree, const SWMeshTable& table, std::deque<KDBuildNode>& buildStack,
             const std::vector<SCENE_VERTEX_XYZ>& polygonA, const std::vector<SCENE_VERTEX_XYZ>& polygonB,
             uint32_t maxDepth, std::deque<WorkItem>& workQueue, platform::CriticalSection& queueLock,
             const std::vector<RenderThreadRecord>& renderThreads, platform::Semaphore* wakeSemaphore,
             platform::Semaphore* doneSemaphore, RootLeftovers& leftovers, AbortPoll& abort,
             bool (*shouldAbort)(void*), void* abortContext) {
  platform::CriticalSection buildLock;
  uint32_t jobCount = 1;
  uint32_t jobsFinished = 0;
  bool recordsFilled = false;
  uint32_t jobsDone = 0;
  KDPolygonMap clipPolygonsA, clipPolygonsB;
  KDTriangleSideMap triangleSides;
  for (const RenderThreadRecord& thread : renderThreads) {
    clipPolygonsA[thread.threadId] = polygonA;
    clipPolygonsB[thread.threadId] = polygonB;
    triangleSides[thread.threadId].assign(tree.triangles.size(), 0);
  }

  KDBuildJob* job = new KDBuildJob();
  job->buildStack = &buildStack;
  job->clipPolygonsA = &clipPolygonsA;
  job->clipPolygonsB = &clipPolygonsB;
  job->triangleSides = &triangleSides;
  job->meshTable = &table;
  job->maxDepth = maxDepth;
  job->jobCount = &jobCount;
  job->jobsFinished = &jobsFinished;
  job->recordsFilled = &recordsFilled;
  job->buildLock = &buildLock;
  job->tree = &tree;
  job->shouldAbort = shouldAbort;
  job->abortContext = abortContext;
  {
    platform::CriticalSectionGuard guard(queueLock);
    workQueue.push_back(WorkItem{RT_JOB_KDTREE_BUILD, job});
  }
  wakeSemaphore->Release(1);
  // The walk's copy reads the records, so a job ends the build only once
  // they are all filled; a build whose last leaf came sooner is ended by
  // the driver.
  const bool filled = leftovers.Finish(abort);
  {
    platform::CriticalSectionGuard guard(buildLock);
    recordsFilled = filled;
  }

  // The count grows before the wakes it counts, and every wake is answered
  // by one post: at least the difference is still to come. The driver
  // sleeps until that many posts are there, so the workers answering the
  // wakes piled up during the build post without waking it, and it takes
  // neither a processor nor the queue lock from them.
  for (;;) {
    uint32_t issued = 0;
    {
      platform::CriticalSectionGuard guard(queueLock);
      issued = std::atomic_ref<uint32_t>(jobCount).load();
    }
    if (jobsDone == issued) break;
    doneSemaphore->WaitFor(long(issued - jobsDone));
    jobsDone = issued;
  }
  DiscardQueue(workQueue, queueLock);
}

}  // namespace

void KDTree::Build(const SWMeshTable* meshTable, std::deque<WorkItem>& workQueue,
                   platform::CriticalSection& queueLock, const std::vector<RenderThreadRecord>& renderThreads,
                   platform::Semaphore* wakeSemaphore, platform::Semaphore* doneSemaphore,
                   bool (*shouldAbort)(void*), void* abortContext) {
  if (!meshTable) return;
  const SWMeshTable& table = *meshTable;
  AbortPoll abort(shouldAbort, abortContext);
  if (abort.Ask()) return;
  leafTriangles.clear();
  nodes.clear();
  walkLayout.Clear();
  ResetBounds();

  size_t total = 0;
  for (const SWMeshInstance& instance : table.instances) {
    if (const SWMesh* mesh = GetInstanceMesh(table, instance)) {
      total += mesh->indices.size() / 3;
      GrowOverInstance(table, *mesh, instance, boundsMin, boundsMax);
    }
    if (abort.AskSticky()) break;
  }

  nodes.push_back(KDNode{});
  std::deque<KDBuildNode> buildStack(1);
  CopyBox(boundsMin, buildStack.back().boxMin);
  CopyBox(boundsMax, buildStack.back().boxMax);
  std::vector<SCENE_VERTEX_XYZ> polygonA(3, SCENE_VERTEX_XYZ{0, 0, 0});
  std::vector<SCENE_VERTEX_XYZ> polygonB(3, SCENE_VERTEX_XYZ{0, 0, 0});
  RootLeftovers leftovers(*this, table, total);
  PrepareRoot(*this, table, total, renderThreads.size(), buildStack.back(), leftovers, polygonA, polygonB,
              abort);
  const uint32_t maxDepth = KDMaxDepth(total);

  // Without workers or semaphores nothing could run the jobs, and a worker
  // that waited for its own queue would wait for ever: in both cases the tree
  // stays absent rather than the build hanging.
  const bool canRun = wakeSemaphore && doneSemaphore && !renderThreads.empty() && !IsWorker(renderThreads);
  if (!abort.AskSticky() && canRun)
    RunJobs(*this, table, buildStack, polygonA, polygonB, maxDepth, workQueue, queueLock, renderThreads,
            wakeSemaphore, doneSemaphore, leftovers, abort, shouldAbort, abortContext);
  else
    leftovers.Finish(abort);
  if (abort.Ask() || !canRun) {
    decltype(buildCorners)().swap(buildCorners);
    leafTriangles.clear();
    nodes.clear();
    walkLayout.Clear();
    return;
  }
  // The last job ends the build, unless a job was dropped or found no node.
  if (!walkLayout.Matches(*this)) FinishBuild(renderThreads.size());
}

void KDTree::FinishBuild(size_t workers) {
  decltype(buildCorners)().swap(buildCorners);
  // Processors that the workers leave idle now lay out the walk's copy of a
  // tree big enough to pay for a thread.
  constexpr size_t NodesWorthAThread = 16384;
  walkLayout.Make(*this, nodes.size() >= NodesWorthAThread ? workers : 1);
}

void KDLimitPackedEvents(size_t triangles) {
  packedEventLimit.store(triangles, std::memory_order_relaxed);
}
