// A worker's share of a distributed frame.
#pragma once

#include <cstdint>
#include <functional>

#include "pipeline/RenderThreadData.h"

class RT_RENDER_ENGINE;
class RENDER_DISTRIBUTED_SERVER_INTERFACE;

// Asks `server` for tiles until none is left, traces each through
// `engine`'s RaytraceBlock (every pass of a path-traced tile) and hands
// the samples back. `data` is the share's record, reused for each tile;
// tiles are cut at the tile rectangle's and the frame buffer's far edges.
// Sets `abort` when `shouldAbort` says so.
void RunDistributedJob(RT_RENDER_ENGINE& engine, RENDER_DISTRIBUTED_SERVER_INTERFACE& server,
                       SWRT_RENDER_THREAD_DATA& data, uint32_t frameWidth, uint32_t frameHeight,
                       const std::function<bool()>& shouldAbort, bool& abort);
