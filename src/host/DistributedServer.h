// A host object that deals out the tiles of a frame among several renderers
// and collects what they traced.
#pragma once

#include <cstdint>

#include "host/SceneRecords.h"

// The renderer calls these by their place in the table, and the table has
// no destructor. The destructor is therefore protected and not virtual: the
// renderer never deletes a server, and nobody can delete one through this
// interface.
class RENDER_DISTRIBUTED_SERVER_INTERFACE {
 public:
  // How many threads this server allows.
  virtual unsigned int GetDistributedThreadCount() = 0;
  virtual void BeginDistributedFrame(unsigned int threadCount, uint64_t pass) = 0;
  // Also called after an aborted frame.
  virtual void EndDistributedFrame() = 0;
  // A worker woke from idle or is about to trace a tile.
  virtual void NotifyDistributedWorkerActive() = 0;
  // The pass to trace next in a render to file.
  virtual unsigned short GetDistributedPass() = 0;
  virtual void EndDistributedJob() = 0;
  virtual void BeginDistributedJob() = 0;
  // False when no tile is left.
  virtual bool GetNextDistributedTile(unsigned int* x, unsigned int* y, unsigned short* size,
                                      unsigned short* pass, unsigned short* passCount) = 0;
  virtual void SubmitDistributedTile(SCENE_VERTEX_XYZW* samples, unsigned int x, unsigned int y,
                                     unsigned short size, unsigned short pass, unsigned short passCount,
                                     unsigned int width, unsigned int height) = 0;
  // True just before a tile is traced, false when it is done.
  virtual void SetDistributedTileTracing(bool tracing) = 0;

 protected:
  ~RENDER_DISTRIBUTED_SERVER_INTERFACE() = default;
};
