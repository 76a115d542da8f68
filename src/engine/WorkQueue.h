// The records of the engine's work queue: what a queue entry is, which job
// kind its payload belongs to, the worker threads that pop them, and what a
// helper thread that shares a block needs.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <vector>

#include "pipeline/RenderThreadData.h"
#include "host/SceneRecords.h"
#include "platform/CriticalSection.h"
#include "platform/Thread.h"

class RT_RENDER_ENGINE;

enum RT_JOB_CLASS : uint16_t {
  RT_JOB_RENDER = 0,         // SWRT_RENDER_THREAD_DATA
  RT_JOB_KDTREE_BUILD = 1,   // KDBuildJob
  RT_JOB_SHOOT_PHOTONS = 2,  // SWRT_SHOOT_PHOTONS_THREAD_DATA
};

#pragma pack(push, 1)
// An entry of the work queue. The queue owns the payload until the worker
// that pops it deletes it.
struct WorkItem {
  uint16_t jobClass = 0;
  void* payload = nullptr;
};
#pragma pack(pop)
static_assert(sizeof(WorkItem) == 10);

struct RenderThreadRecord {
  std::unique_ptr<platform::Thread> thread;
  uint32_t threadId = 0;
};

// Traces pixel `index` of a block into `color`; false on an abort. `abort`
// is the block's flag, shared by every thread that traces the block.
using PixelTracer = bool (*)(RT_RENDER_ENGINE* engine, SWRT_RENDER_THREAD_DATA* data, unsigned int index,
                             SCENE_VERTEX_XYZW& color, std::atomic<bool>& abort);

// What a helper thread that shares a block needs.
struct RaytraceBlockThreadData {
  uint32_t threadId = 0;
  RT_RENDER_ENGINE* engine = nullptr;
  SWRT_RENDER_THREAD_DATA block;
  std::atomic<uint32_t>* pixelCounter = nullptr;
  SCENE_VERTEX_XYZW* samples = nullptr;
  std::atomic<bool>* abort = nullptr;
  PixelTracer tracer = nullptr;
};

namespace platform {
class Semaphore;
}

// The processors that idle workers lend to a block: the semaphore that holds
// their tokens, a hint that a token may be there (a stale hint only costs a
// chance), and how many processors there are.
struct LentProcessors {
  platform::Semaphore* tokens = nullptr;
  std::atomic<bool>& idleHint;
  unsigned int processors = 0;
};

// Traces every pixel of a block into `samples` through `tracer`, lending
// the processors of idle workers to helper threads in the tail of a batch.
// False on abort.
bool TraceBlockPixels(RT_RENDER_ENGINE* engine, const LentProcessors& lent, SWRT_RENDER_THREAD_DATA* data,
                      SCENE_VERTEX_XYZW* samples, PixelTracer tracer);

// Copies each job onto `queue` under `lock`, in order. A job that can't be
// allocated is left out: its pixels keep what they held.
void QueueRenderJobs(const std::vector<SWRT_RENDER_THREAD_DATA>& jobs, std::deque<WorkItem>& queue,
                     platform::CriticalSection& lock);
