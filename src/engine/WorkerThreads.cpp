// The pool of worker threads and the one FIFO work queue they serve.
//
// Sleeping is done by semaphores only. A wake of `wakeSemaphore` is answered
// by exactly one post of `doneSemaphore` when the woken worker falls idle
// again, whichever worker ran which entry: that is what lets a producer wait
// for a batch by counting.
#include <new>

#include "host/BrindlexViewModel.h"
#include "engine/BrindlexViewRTRenderEngine.h"
#include "pipeline/DistributedJob.h"
#include "accel/KDTree.h"
#include "photons/ShootPhotonsThreadData.h"
#include "shadows/ShadowMapTiles.h"
#include "host/brindlexutil.h"

namespace {
constexpr long SemaphoreMaximum = 0x7FFFFFFF;

// Once a worker has gone, nothing may hang on the done semaphore: raise it
// as far as its maximum lets it.
void RaiseForGood(platform::Semaphore& semaphore) {
  long previous = 0;
  if (!semaphore.Release(1, &previous)) return;
  for (;;) {
    if (semaphore.Release(SemaphoreMaximum - (previous + 1))) return;
    if (!semaphore.Release(1, &previous)) return;
  }
}

bool IsRaytraceKind(uint16_t kind) {
  return kind == RT_WORK_RAYTRACE_BLOCK || kind > RT_WORK_DISTRIBUTED;
}

bool IsFilterKind(uint16_t kind) {
  return kind == RT_WORK_SHADOWMAP_FILTER || kind >= RT_WORK_CUBE_SHADOWMAP_FILTER;
}
}  // namespace

void RT_RENDER_ENGINE::StartWorkerThreads() {
  unsigned long count = ::GetProcessorCount();
  for (unsigned long i = 0; i < count; ++i) {
    std::unique_ptr<platform::Thread> thread =
        platform::Thread::Create(&InitializeSoftwareRaytraceThread, this);
    if (!thread) {
      debugOS << "ERROR::RT_RENDER_ENGINE failed to create software raytracing thread " << i << std::endl;
      continue;
    }
    thread->SetPriority(-1);
    uint32_t id = thread->Id();
    debugOS << i << " - Software Raytrace Thread Identifier = " << id << std::endl;
    renderThreads.push_back({std::move(thread), id});
    // Each worker reaches its first idle state before the next one starts.
    if (doneSemaphore) doneSemaphore->Wait();
  }
}

void RT_RENDER_ENGINE::StopWorkerThreads() {
  engineFlags.Set(ShuttingDown);
  if (wakeSemaphore)
    for (RenderThreadRecord& record : renderThreads)
      if (record.thread) wakeSemaphore->Release(1);
  for (size_t i = 0; i < renderThreads.size(); ++i) {
    RenderThreadRecord& record = renderThreads[i];
    if (!record.thread) continue;
    record.thread->Join();
    record.thread.reset();
    debugOS << i << " - Software Raytrace ShutDown Thread Identifier = " << record.threadId << std::endl;
    record.threadId = 0;
  }
  renderThreads.clear();
  engineFlags.Clear(ShuttingDown);
}

unsigned long RT_RENDER_ENGINE::InitializeSoftwareRaytraceThread(void* engine) {
  if (!engine) return 0;
  return static_cast<RT_RENDER_ENGINE*>(engine)->SoftwareRaytraceThread();
}

unsigned long RT_RENDER_ENGINE::SoftwareRaytraceThread() {
  if (!wakeSemaphore || !doneSemaphore) return 0;
  bool finished = false;
  while (!finished) {
    bool empty = false;
    bool abort = false;
    while (!empty && !finished && !abort) {
      if (engineFlags.IsSet(ShuttingDown)) {
        finished = true;
        continue;
      }
      WorkItem item;
      bool popped = false;
      queueLock.Enter();
      if (workQueue.empty()) {
        empty = true;
      } else {
        item = workQueue.front();
        workQueue.pop_front();
        popped = true;
      }
      queueLock.Leave();
      if (popped) RunWorkItem(item, abort);
    }
    if ((empty || abort) && !finished) {
      idleCoreAvailable = true;
      coreTokenSemaphore->Release(1);
      doneSemaphore->Release(1);
      wakeSemaphore->Wait();
      // While this processor is lent to a block, its token is away: wait
      // until the block gives it back.
      coreTokenSemaphore->Wait();
      idleCoreAvailable = false;
      if (distributedServer) distributedServer->NotifyDistributedWorkerActive();
    }
  }
  RaiseForGood(*doneSemaphore);
  return 0;
}

// Deletes the payload of a job of a known class. An unknown class's payload
// has an unknown type, so it stays with whoever queued it.
static void DeletePayload(const WorkItem& item) {
  switch (item.jobClass) {
    case RT_JOB_RENDER:
      delete static_cast<SWRT_RENDER_THREAD_DATA*>(item.payload);
      break;
    case RT_JOB_KDTREE_BUILD:
      delete static_cast<KDBuildJob*>(item.payload);
      break;
    case RT_JOB_SHOOT_PHOTONS:
      delete static_cast<SWRT_SHOOT_PHOTONS_THREAD_DATA*>(item.payload);
      break;
    default:
      break;
  }
}

void RT_RENDER_ENGINE::RunWorkItem(const WorkItem& item, bool& abort) {
  if (!item.payload) return;
  switch (item.jobClass) {
    case RT_JOB_RENDER:
      RunRenderJob(*static_cast<SWRT_RENDER_THREAD_DATA*>(item.payload), abort);
      break;
    case RT_JOB_KDTREE_BUILD: {
      // The job's own abort poll decides whether the node is built. A dropped
      // job still ends in this worker's one post of doneSemaphore, so the
      // build's count comes out.
      KDBuildJob* job = static_cast<KDBuildJob*>(item.payload);
      const bool dropped = job->shouldAbort && job->shouldAbort(job->abortContext);
      if (!dropped && job->tree) KDTree::BuildStep(job, workQueue, queueLock, wakeSemaphore);
      break;
    }
    case RT_JOB_SHOOT_PHOTONS:
      ShootSWPhotonsThread(*static_cast<SWRT_SHOOT_PHOTONS_THREAD_DATA*>(item.payload), abort);
      break;
    default:
      return;
  }
  DeletePayload(item);
}

void RT_RENDER_ENGINE::RunRenderJob(SWRT_RENDER_THREAD_DATA& data, bool& abort) {
  const uint16_t kind = data.workKind;
  if (IsRaytraceKind(kind)) {
    if (!kdTrees) return;
    if (ShouldAbort()) {
      abort = true;
      return;
    }
    // A block that failed while nobody asks to abort costs only itself.
    if (!RaytraceBlock(&data, nullptr, 0) && ShouldAbort()) abort = true;
    return;
  }
  const std::function<bool()> shouldAbort = [this] { return ShouldAbort(); };
  if (kind == RT_WORK_DISTRIBUTED) {
    if (distributedServer && kdTrees)
      RunDistributedJob(*this, *distributedServer, data, frameWidth, frameHeight, shouldAbort, abort);
    return;
  }
  const ShadowMapTileSources sources{
      {shadowMapIndexSingle, shadowMapsSingle, shadowMapIndexCube, shadowMapsCube},
      lightTable,
      defaultLights,
      kdTrees != nullptr,
      cubeMapProgressBar};
  if (!ShadowMapJobCanRun(data, sources)) return;
  if (IsFilterKind(kind))
    FilterShadowMapTile(data, sources, shouldAbort, abort);
  else
    RenderShadowMapTile(*this, data, sources, shouldAbort, abort);
}

void QueueRenderJobs(const std::vector<SWRT_RENDER_THREAD_DATA>& jobs, std::deque<WorkItem>& queue,
                     platform::CriticalSection& lock) {
  platform::CriticalSectionGuard guard(lock);
  for (const SWRT_RENDER_THREAD_DATA& job : jobs) {
    auto* data = new (std::nothrow) SWRT_RENDER_THREAD_DATA(job);
    if (data) queue.push_back({RT_JOB_RENDER, data});
  }
}

void RT_RENDER_ENGINE::WaitForCompletion() {
  unsigned int n = GetProcessorCount();
  for (unsigned int i = 0; i < n; ++i)
    if (renderThreads[i].thread) wakeSemaphore->Release(1);
  for (unsigned int i = 0; i < n; ++i)
    if (renderThreads[i].thread) doneSemaphore->Wait();
  ClearWorkToDo();
}

void RT_RENDER_ENGINE::ClearWorkToDo() {
  platform::CriticalSectionGuard guard(queueLock);
  while (!workQueue.empty()) {
    DeletePayload(workQueue.front());
    workQueue.pop_front();
  }
}
