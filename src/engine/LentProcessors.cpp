// Splitting a block among helper threads on processors lent by idle workers.
//
// In the tail of a batch the queue has nothing left to share, and the last
// blocks would run on one processor each while others sleep. An idle worker
// leaves its token in `coreTokenSemaphore`; the owner of a block takes such
// tokens and starts short-lived helpers that take pixels from a shared
// counter. Every pixel is traced exactly once: the owner and its helpers
// each take the next pixel by one atomic increment.
#include <memory>
#include <new>

#include "engine/BrindlexViewRTRenderEngine.h"
#include "platform/Semaphore.h"

namespace {
// Traces pixels taken from the shared counter until none is left.
void TraceSharedPixels(RaytraceBlockThreadData& helper, uint32_t total) {
  for (;;) {
    uint32_t index = helper.pixelCounter->fetch_add(1) + 1;
    if (index >= total || *helper.abort) return;
    if (!helper.tracer(helper.engine, &helper.block, index, helper.samples[index], *helper.abort)) {
      *helper.abort = true;
      return;
    }
  }
}
}  // namespace

unsigned long RT_RENDER_ENGINE::RaytraceBlockThread(void* data) {
  auto* helper = static_cast<RaytraceBlockThreadData*>(data);
  if (!helper) return 0;
  helper->threadId = platform::GetCurrentThreadId();
  TraceSharedPixels(*helper, helper->block.width * helper->block.height);
  return 0;
}

bool TraceBlockPixels(RT_RENDER_ENGINE* engine, const LentProcessors& lent, SWRT_RENDER_THREAD_DATA* data,
                      SCENE_VERTEX_XYZW* samples, PixelTracer tracer) {
  const uint32_t total = data->width * data->height;
  const unsigned int n = lent.processors;
  platform::Semaphore* coreTokenSemaphore = lent.tokens;
  std::atomic<bool>& idleCoreAvailable = lent.idleHint;
  std::atomic<uint32_t> pixelCounter{0};
  std::atomic<bool> abort{false};
  std::unique_ptr<RaytraceBlockThreadData[]> helperData;
  std::unique_ptr<std::unique_ptr<platform::Thread>[]> helperThreads;
  uint16_t helpers = 0;
  bool canLend = true;

  for (uint32_t i = 0; i < total;) {
    if (canLend && idleCoreAvailable && helpers + 1u < n && coreTokenSemaphore) {
      bool tookToken = false;
      while (helpers < n && coreTokenSemaphore->TryWait()) {
        tookToken = true;
        if (!helperData) {
          // Out of memory on a worker must not end the process: the block
          // is then traced by its owner alone.
          helperData.reset(new (std::nothrow) RaytraceBlockThreadData[n]);
          helperThreads.reset(new (std::nothrow) std::unique_ptr<platform::Thread>[n]);
          if (!helperData || !helperThreads) {
            helperData.reset();
            helperThreads.reset();
            coreTokenSemaphore->Release(1);
            canLend = false;
            break;
          }
        }
        // Only the block's first running helper sets the counter up (a
        // helper that could not start leaves it to the next one): later
        // ones join a counter that running helpers already use.
        if (helpers == 0) pixelCounter = i;
        RaytraceBlockThreadData& helper = helperData[helpers];
        helper = {0, engine, *data, &pixelCounter, samples, &abort, tracer};
        helperThreads[helpers] = platform::Thread::Create(&RT_RENDER_ENGINE::RaytraceBlockThread, &helper);
        if (!helperThreads[helpers]) {
          coreTokenSemaphore->Release(1);  // no thread to lend it to
          break;
        }
        ++helpers;
      }
      if (!tookToken) idleCoreAvailable = false;
    }
    if (!tracer(engine, data, i, samples[i], abort)) {
      abort = true;
      break;
    }
    i = helpers == 0 ? i + 1 : pixelCounter.fetch_add(1) + 1;
  }

  // Every helper ends before its token goes back to the worker that lent it.
  for (uint16_t h = 0; h < helpers; ++h) {
    helperThreads[h]->Join();
    helperThreads[h].reset();
    coreTokenSemaphore->Release(1);
  }
  return !abort;
}
