// Counts of the once-per-group work of surface shading, kept per thread.
// An increment costs nothing next to a shading, and the counts let a test
// see that a group of rays on one triangle reads its material and samples
// its texture once, not once per ray.
#pragma once

#include <cstdint>

struct ShadingCounters {
  uint64_t surfaces = 0;        // material evaluations of visible surfaces
  uint64_t textureSamples = 0;  // colour-texture lookups for a surface
};

// The counters of the calling thread.
ShadingCounters& ThreadShadingCounters();
