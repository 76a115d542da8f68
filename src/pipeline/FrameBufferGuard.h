// Holds the frame-buffer lock for a scope through the engine's virtual
// LockSWFrameBuffer and UnLockSWFrameBuffer, which a host may extend.
#pragma once

#include "engine/RenderEngineBase.h"

class FrameBufferGuard {
 public:
  explicit FrameBufferGuard(RT_RENDER_ENGINE_BASE& engine) : engine(engine) { engine.LockSWFrameBuffer(); }
  ~FrameBufferGuard() { engine.UnLockSWFrameBuffer(); }
  FrameBufferGuard(const FrameBufferGuard&) = delete;
  FrameBufferGuard& operator=(const FrameBufferGuard&) = delete;

 private:
  RT_RENDER_ENGINE_BASE& engine;
};
