#include "platform/SpinWait.h"

#include <sched.h>

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#endif

namespace platform {

bool SpinningCanHelp() {
  static const bool canHelp = [] {
    cpu_set_t set;
    CPU_ZERO(&set);
    // When the set cannot be read, the process is taken to have one
    // processor, where waiting by sleeping alone is always right.
    return sched_getaffinity(0, sizeof set, &set) == 0 && CPU_COUNT(&set) > 1;
  }();
  return canHelp;
}

void SpinPause() {
#if defined(__x86_64__) || defined(__i386__)
  _mm_pause();
#endif
}

}  // namespace platform
