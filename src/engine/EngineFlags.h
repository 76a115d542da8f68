// The engine's status word. Bits are set and cleared with atomic OR and AND;
// reads need no ordering, since each bit is a hint that the next stage polls.
#pragma once

#include <atomic>
#include <cstdint>

enum ENGINE_FLAG : uint32_t {
  RebuildScene = 0x1,
  FrameReady = 0x2,
  ShuttingDown = 0x4,
  RenderToFile = 0x8,
  RenderToFileComplete = 0x10,
  AutoHorizon = 0x20,
  CameraUnderCover = 0x40,
  DefaultLightShadows = 0x80,
  LightsSynced = 0x100,
  RenderToCubeMap = 0x200,
  AlternateLightActive = 0x400,
  BackgroundAlpha = 0x800,
  RenderToFileBitmap = 0x1000,
};

class EngineFlags {
 public:
  void Set(uint32_t bits) { word.fetch_or(bits, std::memory_order_relaxed); }
  void Clear(uint32_t bits) { word.fetch_and(~bits, std::memory_order_relaxed); }
  void Assign(uint32_t bits, bool on) { on ? Set(bits) : Clear(bits); }
  bool IsSet(uint32_t bits) const { return (word.load(std::memory_order_relaxed) & bits) != 0; }
  uint32_t Value() const { return word.load(std::memory_order_relaxed); }

 private:
  std::atomic<uint32_t> word{0};
};
