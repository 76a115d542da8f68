// How far the shooting has come, for the host's progress bar: the photons
// stored in both lists, each counted up to its limit, of the two limits.
// The engine posts PBM_SETRANGE32 with the whole before the jobs start and
// PBM_SETPOS with the count as it grows; the blocks of the picture then
// start a range of their own with PBM_SETRANGE.
#pragma once

#include <algorithm>
#include <cstdint>

#include "platform/Gdi.h"
#include "platform/Window.h"

inline uint64_t StoredPhotons(uint64_t direct, uint64_t indirect, uint32_t directLimit,
                              uint32_t indirectLimit) {
  return std::min<uint64_t>(direct, directLimit) + std::min<uint64_t>(indirect, indirectLimit);
}

// One job's reports: a position each time the count has grown by a
// hundredth of the whole since the last one, so that a job posts about a
// hundred messages however many photons it stores.
class PhotonProgress {
 public:
  PhotonProgress(HWND bar, uint32_t directLimit, uint32_t indirectLimit)
      : bar(bar),
        directLimit(directLimit),
        indirectLimit(indirectLimit),
        step(std::max<uint64_t>((uint64_t{directLimit} + indirectLimit) / 100, 1)),
        next(step) {}

  void Report(uint64_t direct, uint64_t indirect) {
    if (!bar) return;
    const uint64_t stored = StoredPhotons(direct, indirect, directLimit, indirectLimit);
    if (stored < next) return;
    PostMessageA(bar, PBM_SETPOS, stored, 0);
    next = stored + step;
  }

 private:
  HWND bar;
  uint32_t directLimit, indirectLimit;
  uint64_t step, next;
};
