// From a frame's camera to work on the queue: the blocks of a picture, or
// a distributed frame's shares, and the wait until they are done.
#include <vector>

#include "engine/BrindlexViewRTRenderEngine.h"
#include "host/DistributedServer.h"
#include "pipeline/FrameSetUp.h"

void RT_RENDER_ENGINE::TraceRays(ENVIRONMENT_3D_VIEW* view, SCENE_GRAPH* scene, const RECT& viewRect,
                                 const RECT& tileRect, const MODE_RENDER_OPTIONS* options, uint64_t pass,
                                 SCENE_VERTEX_XYZ* cubeEye, int cubeFace) {
  if (!((frameBitmap && frameHDRBuffer) || distributedServer)) return;
  if (!kdTrees || !meshTables) return;
  SWRT_RENDER_THREAD_DATA frame;
  if (!SetUpFrameCamera(view, scene, viewRect, tileRect, options, cubeEye, cubeFace, frameWidth, frameHeight,
                        engineFlags.IsSet(AutoHorizon), frame))
    return;
  frame.passNumber = pass;
  std::vector<SWRT_RENDER_THREAD_DATA> blocks;
  if (distributedServer) {
    // One share per processor; each asks the server for tiles.
    const unsigned int shares = GetProcessorCount();
    distributedServer->BeginDistributedFrame(shares, frame.passNumber);
    frame.workKind = RT_WORK_DISTRIBUTED;
    frame.tileRect = tileRect;
    blocks.assign(shares, frame);
  } else {
    blocks = FrameBlocks(frame, tileRect, frameWidth, frameHeight);
  }
  if (!ShouldAbort()) {
    QueueRenderJobs(blocks, workQueue, queueLock);
    WaitForCompletion();
  }
  if (distributedServer) distributedServer->EndDistributedFrame();
}
