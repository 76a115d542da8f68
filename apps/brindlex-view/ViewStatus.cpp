#include "ViewStatus.h"

#include <algorithm>
#include <cstdio>

namespace {

std::string Seconds(double seconds) {
  char text[32];
  if (seconds < 1.0)
    std::snprintf(text, sizeof text, "%.0f ms", seconds * 1000.0);
  else
    std::snprintf(text, sizeof text, "%.2f s", seconds);
  return text;
}

}  // namespace

ViewStatus::Event ViewStatus::Receive(const platform::PostedMessage& message, double now) {
  switch (message.message) {
    case UpdateDoneMessage:
      updated = true;
      updateKind = static_cast<unsigned>(message.wParam);
      updateSeconds = static_cast<double>(message.lParam) / 1e6;
      return Event::None;
    case FrameStartedMessage:
      request = message.wParam;
      blocksPerPass = static_cast<unsigned long>(message.lParam);
      blocksDone = 0;
      passes = 0;
      started = true;
      frameComplete = false;
      passStart = now;
      return Event::None;
    case PBM_STEPIT:
      if (!started || blocksPerPass == 0) return Event::None;
      if (++blocksDone % blocksPerPass != 0) return Event::None;
      ++passes;
      passSeconds = now - passStart;
      passStart = now;
      return Event::PassComplete;
    case FrameDoneMessage:
      // A late message of a frame that a newer one replaced says nothing
      // about the frame on screen.
      if (!started || message.wParam != request) return Event::None;
      frameComplete = true;
      frameSeconds = static_cast<double>(message.lParam) / 1e6;
      return Event::FrameComplete;
    default:
      return Event::None;
  }
}

std::string ViewStatus::Title(const RenderModes& modes) const {
  std::string title = modes.pathTracing ? "path tracing" : "ray tracing";
  if (modes.photons) title += ", photons";
  if (modes.softShadows) title += ", soft shadows";
  title += " | ";
  // Of the pass under way; a ray-traced frame is one pass, and stays at
  // 100% from its last block until the frame is painted whole.
  const unsigned long inPass = blocksPerPass == 0  ? 0
                               : modes.pathTracing ? blocksDone % blocksPerPass
                                                   : std::min(blocksDone, blocksPerPass);
  const unsigned percent = blocksPerPass ? static_cast<unsigned>(inPass * 100 / blocksPerPass) : 0;
  if (!started)
    title += "loading";
  else if (modes.pathTracing && passes > 0)
    title += "pass " + std::to_string(passes + 1) + " " + std::to_string(percent) + "%, " +
             Seconds(passSeconds) + " a pass";
  else if (frameComplete)
    title += "frame " + Seconds(frameSeconds);
  else
    title += (modes.pathTracing ? "pass 1 " : "rendering ") + std::to_string(percent) + "%";
  if (updated) title += " | UpdateFrame " + Seconds(updateSeconds) + " (" + UpdateKindName(updateKind) + ")";
  return title;
}
