// One worker's share of photon shooting, as a work-queue payload.
#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

class ENVIRONMENT_3D_VIEW;
class MODE_RENDER_OPTIONS;
class RT_RANDOM_NUMBER_GENERATOR;

// The counters are 64 bits wide although the lists hold at most 2^32 rows:
// a counter goes on growing past its limit while the other list fills, and
// must not wrap round onto rows that are already written, nor the shots
// onto a small number that would blow up every photon's energy.
using PhotonCounter = std::atomic<uint64_t>;

struct SWRT_SHOOT_PHOTONS_THREAD_DATA {
  ENVIRONMENT_3D_VIEW* view = nullptr;
  const MODE_RENDER_OPTIONS* options = nullptr;
  PhotonCounter* directCount = nullptr;    // next free row of directPhotons, shared
  PhotonCounter* indirectCount = nullptr;  // next free row of indirectPhotons, shared
  uint32_t directLimit = 0;
  uint32_t indirectLimit = 0;
  PhotonCounter* shotCount = nullptr;  // photons that reached a surface, shared
  const std::vector<uint32_t>* lightIndices = nullptr;
  RT_RANDOM_NUMBER_GENERATOR* generator = nullptr;
};
