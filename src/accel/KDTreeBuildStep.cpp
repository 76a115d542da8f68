// One node of a kd-tree build, run by a worker: a leaf, or a split whose two
// children go back on the queue. The build lock is held only while the
// shared arrays change; sweep, partition and clipping run on the job's own
// data.
#include <atomic>
#include <bit>
#include <new>

#include "engine/BrindlexViewRTRenderEngine.h"
#include "accel/KDTreeBuild.h"

namespace {

bool JobIsComplete(const KDBuildJob& job) {
  return job.buildStack && job.clipPolygonsA && job.clipPolygonsB && job.triangleSides && job.meshTable &&
         job.jobCount && job.jobsFinished && job.recordsFilled && job.buildLock && job.tree;
}

template <typename Map>
auto* FindForThread(Map* map, uint32_t thread) {
  auto found = map->find(thread);
  return found == map->end() ? nullptr : &found->second;
}

bool FindThreadScratch(const KDBuildJob& job, KDThreadScratch& scratch) {
  // A thread's identifier never changes, and asking the system costs a
  // system call; every job of a build asks, so each thread asks once.
  thread_local const uint32_t thread = platform::GetCurrentThreadId();
  scratch.polygonA = FindForThread(job.clipPolygonsA, thread);
  scratch.polygonB = FindForThread(job.clipPolygonsB, thread);
  scratch.triangleSides = FindForThread(job.triangleSides, thread);
  return scratch.polygonA && scratch.polygonB && scratch.triangleSides;
}

// Takes the most recently pushed node, which need not be the one whose push
// queued this job: every job takes one node, and the counts match.
bool PopBuildNode(const KDBuildJob& job, KDBuildNode& node) {
  platform::CriticalSectionGuard guard(*job.buildLock);
  std::deque<KDBuildNode>& stack = *job.buildStack;
  if (stack.empty()) return false;
  node = std::move(stack.back());
  stack.pop_back();
  return node.node < job.tree->nodes.size();
}

// True for the leaf that ends the build: every job issued has run, and as
// only a split issues jobs, none will be; and the records that the walk's
// copy reads are filled.
bool MakeLeaf(const KDBuildJob& job, const KDBuildNode& node) {
  KDTree& tree = *job.tree;
  platform::CriticalSectionGuard guard(*job.buildLock);
  const uint32_t first = uint32_t(tree.leafTriangles.size());
  tree.leafTriangles.insert(tree.leafTriangles.end(), node.triangleList.begin(), node.triangleList.end());
  tree.nodes[node.node] = KDNode{first * 4 | 3u, uint32_t(node.triangleList.size())};
  const bool last = ++*job.jobsFinished == std::atomic_ref<uint32_t>(*job.jobCount).load();
  return last && *job.recordsFilled;
}

void SetUpChild(const KDBuildNode& parent, KDBuildNode& child) {
  child.depth = parent.depth + 1;
  for (int a = 0; a < 3; ++a) {
    child.boxMin[a] = parent.boxMin[a];
    child.boxMax[a] = parent.boxMax[a];
  }
}

// Writes the inner node, appends its two children and pushes them, all
// under one hold of the lock, which both workers take for every node. The
// partition has not read the children's node numbers, which depend on the
// timing of the workers anyway. The count goes up before the wakes that it
// counts, so that the driver never sees its posts catch up with a count
// that is about to grow.
void PushSplit(const KDBuildJob& job, const KDBuildNode& node, const KDSplit& split, KDBuildNode& left,
               KDBuildNode& right) {
  KDTree& tree = *job.tree;
  platform::CriticalSectionGuard guard(*job.buildLock);
  const uint32_t first = uint32_t(tree.nodes.size());
  tree.nodes[node.node] = KDNode{first * 4 | split.axis, std::bit_cast<uint32_t>(split.position)};
  tree.nodes.push_back(KDNode{});
  tree.nodes.push_back(KDNode{});
  left.node = first;
  right.node = first + 1;
  job.buildStack->push_back(std::move(left));
  job.buildStack->push_back(std::move(right));
  std::atomic_ref<uint32_t>(*job.jobCount).fetch_add(2);
  ++*job.jobsFinished;
}

// A failed allocation queues a null payload, which the worker skips; its
// node then stays on the stack and dies with it. Both entries go on under
// one hold of the lock, which the workers contend for.
void QueueChildJobs(const KDBuildJob& job, std::deque<WorkItem>& workQueue,
                    platform::CriticalSection& queueLock) {
  KDBuildJob* copies[2] = {new (std::nothrow) KDBuildJob(job), new (std::nothrow) KDBuildJob(job)};
  platform::CriticalSectionGuard guard(queueLock);
  for (KDBuildJob* copy : copies) workQueue.push_back(WorkItem{RT_JOB_KDTREE_BUILD, copy});
}

// The build's job holds one triangle side map for each worker.
size_t WorkerCount(const KDBuildJob& job) {
  return job.triangleSides->size();
}

// The first splits run while other workers have no node yet: at depth d
// there are at most 2^d jobs for them. A node big enough to pay for a thread
// then lends an idle worker's processor to itself.
bool HasIdleWorker(const KDBuildJob& job, const KDBuildNode& node) {
  constexpr size_t WorthAThread = 65536;
  return node.depth < 32 && (size_t(1) << node.depth) < WorkerCount(job) &&
         KDEventCount(node) >= WorthAThread;
}

}  // namespace

void KDTree::BuildStep(KDBuildJob* job, std::deque<WorkItem>& workQueue, platform::CriticalSection& queueLock,
                       platform::Semaphore* wakeSemaphore) {
  if (!job || !wakeSemaphore || !JobIsComplete(*job)) return;
  KDThreadScratch scratch;
  if (!FindThreadScratch(*job, scratch)) return;
  KDBuildNode node;
  if (!PopBuildNode(*job, node)) return;

  // The last leaf's worker ends the build at once: the driver would
  // start only once the workers had answered every wake that piled up
  // while they were busy, which they do on both processors at the same
  // time, handing the queue lock and semaphore words to and fro.
  const size_t workers = WorkerCount(*job);
  const KDTree& tree = *job->tree;
  if (KDIsLeafAnyway(node, job->maxDepth)) {
    if (MakeLeaf(*job, node)) job->tree->FinishBuild(workers);
    return;
  }
  const float area = KDSurfaceArea(node.boxMin, node.boxMax);
  KDSplit split;
  const bool found = FindBestSplit(node, tree, split);
  const float leafCost = area * (tree.leafBaseCost + float(node.triangleList.size()) * tree.triangleCost);
  // An equal cost splits.
  if (!found || split.cost > leafCost) {
    if (MakeLeaf(*job, node)) job->tree->FinishBuild(workers);
    return;
  }

  KDBuildNode left, right;
  SetUpChild(node, left);
  SetUpChild(node, right);
  left.boxMax[split.axis] = split.position;
  right.boxMin[split.axis] = split.position;
  PartitionNode(node, split, tree, scratch, HasIdleWorker(*job, node), left, right, job->maxDepth);

  PushSplit(*job, node, split, left, right);
  QueueChildJobs(*job, workQueue, queueLock);
  wakeSemaphore->Release(2);
}
