// One render of a finished host scene into picture files, through the
// engine's public interfaces, and the Ctrl-C that can stop it.
#pragma once

#include <array>
#include <string>

#include "HostScene.h"
#include "Progress.h"

enum ExitCode : int { ExitDone = 0, ExitNotWritten = 1, ExitBadInput = 2 };

struct RenderJob {
  std::string output;
  int width = 0, height = 0;
  // Passes when the view's options ask for path tracing.
  int passes = 1;
  double timeLimit = 0;  // seconds; 0: no limit
  bool checkpoints = false;
  bool alpha = false;
  bool cubeMap = false;
  std::array<std::string, 6> cubeMapNames;
};

// The engine's frame buffer is no larger than this on a side; a bigger
// picture is rendered in tiles of this size.
constexpr unsigned int MaximumFrameSide = 1024;

// SIGINT and SIGTERM from now on ask the render to stop; a second one ends
// the program at once.
void InstallStopHandler();
// The signal that asked to stop, or 0.
int StopSignal();

// Creates an engine, renders and shuts it down. The exit code, and for
// anything but ExitDone a one-line message.
int RunRender(HostScene& host, const RenderJob& job, ProgressDisplay& progress, std::string& message);
