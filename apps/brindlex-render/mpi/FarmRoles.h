// The two parts that the processes of a render farm play.
#pragma once

#include <string>

#include "Options.h"
#include "RenderJob.h"

struct FarmOutcome {
  int code = ExitDone;
  std::string message;  // for anything but ExitDone
  // A render process was lost: the survivors must not wait for it in
  // MPI_Finalize, which would never return.
  bool ranksLost = false;
};

// Rank 0: deals out tiles, assembles and saves the picture, shows progress.
FarmOutcome RunCoordinator(const RenderSettings& settings, const RenderJob& job, int ranks);
// Ranks 1 to N-1: load the scene and trace what the coordinator deals out,
// on `threads` worker threads.
FarmOutcome RunRenderRank(const RenderSettings& settings, const RenderJob& job, unsigned threads);
