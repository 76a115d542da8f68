// A worker's share of a distributed frame: it asks the server for tiles
// until none is left, traces each like a block and hands the samples back.
#include <memory>
#include <new>

#include "pipeline/DistributedJob.h"

#include "engine/BrindlexViewRTRenderEngine.h"
#include "host/DistributedServer.h"
#include "host/RenderOptions.h"

namespace {
// One side of a tile: `size`, cut at the tile rectangle's far edge and at
// the frame buffer's.
int64_t TileSide(int64_t size, int64_t viewStart, int64_t tileEnd, int64_t offset, int64_t frameSize) {
  int64_t side = size;
  if (viewStart + side > tileEnd) side = tileEnd - viewStart;
  if (offset + side > frameSize) side = frameSize - offset;
  return side;
}
}  // namespace

void RunDistributedJob(RT_RENDER_ENGINE& engine, RENDER_DISTRIBUTED_SERVER_INTERFACE& server,
                       SWRT_RENDER_THREAD_DATA& data, uint32_t frameWidth, uint32_t frameHeight,
                       const std::function<bool()>& shouldAbort, bool& abort) {
  if (!data.options) return;
  const uint64_t framePass = data.passNumber;
  const bool pathTracing = data.options->DoPathTracing();
  std::unique_ptr<SCENE_VERTEX_XYZW[]> tile;
  uint32_t tileCount = 0;
  server.BeginDistributedJob();
  unsigned int x = 0, y = 0;
  unsigned short size = 0, pass = 0, passCount = 0;
  while (server.GetNextDistributedTile(&x, &y, &size, &pass, &passCount)) {
    if (shouldAbort()) {
      abort = true;
      break;
    }
    const int64_t left = int64_t{data.tileRect.left} + x, top = int64_t{data.tileRect.top} + y;
    const int64_t w = TileSide(size, left, data.tileRect.right, x, frameWidth);
    const int64_t h = TileSide(size, top, data.tileRect.bottom, y, frameHeight);
    if (w <= 0 || h <= 0) continue;
    data.frameX = data.frameY = 0;
    data.x = static_cast<uint32_t>(left);
    data.y = static_cast<uint32_t>(top);
    data.width = static_cast<uint32_t>(w);
    data.height = static_cast<uint32_t>(h);
    if (!tile || tileCount != data.width * data.height) {
      tileCount = data.width * data.height;
      tile.reset(new (std::nothrow) SCENE_VERTEX_XYZW[tileCount]());
      // Without memory for the samples the tile is traced into a block
      // buffer of its own and not submitted.
      if (!tile) tileCount = 0;
    }
    server.NotifyDistributedWorkerActive();
    server.SetDistributedTileTracing(true);
    bool traced = false;
    if (pathTracing) {
      if (pass != framePass) {
        server.SetDistributedTileTracing(false);
        break;
      }
      for (uint64_t p = 0; p < passCount; ++p) {
        data.passNumber = p;
        traced = engine.RaytraceBlock(&data, tile.get(), tileCount);
        if (!traced) break;
      }
    } else {
      traced = engine.RaytraceBlock(&data, tile.get(), tileCount);
    }
    server.SetDistributedTileTracing(false);
    if (traced && tile) {
      server.SubmitDistributedTile(tile.get(), data.x, data.y, size, pass, passCount, data.width,
                                   data.height);
    } else if (!traced && shouldAbort()) {
      abort = true;
      break;
    }
  }
  tile.reset();
  server.EndDistributedJob();
}
