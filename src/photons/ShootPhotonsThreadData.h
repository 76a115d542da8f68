// One worker's share of photon shooting, as a work-queue payload.
#pragma once

#include <cstdint>
#include <vector>

class ENVIRONMENT_3D_VIEW;
class MODE_RENDER_OPTIONS;
class RT_RANDOM_NUMBER_GENERATOR;

struct SWRT_SHOOT_PHOTONS_THREAD_DATA {
  ENVIRONMENT_3D_VIEW* view = nullptr;
  const MODE_RENDER_OPTIONS* options = nullptr;
  uint32_t* directCount = nullptr;    // next free row of directPhotons, shared
  uint32_t* indirectCount = nullptr;  // next free row of indirectPhotons, shared
  uint32_t directLimit = 0;
  uint32_t indirectLimit = 0;
  uint32_t* shotCount = nullptr;  // photons that reached a surface, shared
  const std::vector<uint32_t>* lightIndices = nullptr;
  RT_RANDOM_NUMBER_GENERATOR* generator = nullptr;
};
