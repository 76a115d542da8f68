// The conversation of a render farm: what the render processes (ranks 1 to
// N-1) and the coordinator (rank 0) say to each other over MPI. Records are
// sent as bytes; every process runs the same program on the same kind of
// machine, so they need no conversion.
#pragma once

#include <cstdint>

namespace farm {

constexpr int Coordinator = 0;
// Side of the square tiles that the coordinator deals out: the engine's own
// block size, so a tile costs what a block costs in a single process.
constexpr uint32_t TileSize = 32;

enum Tag : int {
  HelloTag = 1,  // render process -> coordinator: the scene is loaded (Hello)
  RequestTag,    // render process -> coordinator: a pass or a tile, please (Request)
  SamplesTag,    // render process -> coordinator: SampleHeader, then the samples
  HeartbeatTag,  // render process -> coordinator: still alive, no content
  LeaveTag,      // render process -> coordinator: stopping early, no content
  FinishTag,     // coordinator -> render process: the picture is done (Finish)
  ReplyTagBase,  // coordinator -> render process: Reply, on the tag the request named
};

struct Hello {
  int32_t loaded;  // 0: the scene could not be assembled, `error` says why
  uint32_t triangles;
  // What the coordinator needs of the render options to blend and tone-map.
  uint8_t pathTracing, customLighting, toneMapping, gamma;
  float toneMappingLevel;
  char error[256];
};

enum class RequestKind : uint32_t { Pass, Tile };
struct Request {
  RequestKind kind;
  uint32_t pass;     // the pass whose tile is wanted
  int32_t replyTag;  // where the answer goes
};

enum class ReplyKind : uint32_t { Pass, Tile, Nothing, Finished };
struct Reply {
  ReplyKind kind;
  uint32_t pass;
  uint32_t x, y;  // of a tile
};

struct SampleHeader {
  uint32_t x, y, width, height, pass;
};

struct Finish {
  // Render processes that were lost: when there are any, nobody may wait
  // for them in MPI_Finalize.
  uint32_t ranksLost;
};

}  // namespace farm
