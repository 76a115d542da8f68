// brindlex-render --mpi: one picture rendered by many processes under
// mpirun. Rank 0 coordinates, every other rank renders. See docs/farm.md.
#pragma once

#include <string>

#include "Options.h"

// Runs this process's part of the farm; the exit code, and for anything
// but success a one-line message (empty when another process reports it).
int RunFarm(const RenderSettings& settings, std::string& message);
