// What brindlex-view knows of the frame on screen, from the messages posted
// to its window: which request it answers, how many blocks and passes are
// done, how long frames, passes and updates took. Its title bar says so.
#pragma once

#include <cstdint>
#include <string>

#include "RenderLoop.h"
#include "platform/Window.h"

class ViewStatus {
 public:
  enum class Event { None, PassComplete, FrameComplete };

  // Takes one message, received at `now` seconds; what it completed.
  Event Receive(const platform::PostedMessage& message, double now);

  // "ray tracing, soft shadows | frame 1.25 s | UpdateFrame 2 ms (camera move)"
  std::string Title(const RenderModes& modes) const;

  uint64_t Request() const { return request; }
  int CompletePasses() const { return passes; }
  bool FrameComplete() const { return frameComplete; }
  double FrameSeconds() const { return frameSeconds; }
  double PassSeconds() const { return passSeconds; }

 private:
  uint64_t request = 0;
  unsigned long blocksPerPass = 0, blocksDone = 0;
  int passes = 0;
  bool started = false, frameComplete = false;
  double passStart = 0.0, frameSeconds = 0.0, passSeconds = 0.0;
  bool updated = false;
  unsigned updateKind = 0;
  double updateSeconds = 0.0;
};
