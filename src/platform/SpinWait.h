// Short busy waits for the engine's locks and semaphores, before they sleep.
#pragma once

namespace platform {

// A busy wait can only end early when the thread it waits for runs on
// another processor at the same time: true when this process may run on
// more than one. Read once, when first asked.
bool SpinningCanHelp();

// Tells the processor that this thread is waiting in a loop (a few dozen
// nanoseconds), which spares the other thread of its core and the memory bus.
void SpinPause();

// The busy part of a wait: asks `ready` up to `attempts` times, with a few
// pauses between, and says whether it answered true. Nothing is tried when
// spinning cannot help.
template <typename Ready>
bool SpinUntil(Ready ready, int attempts) {
  if (!SpinningCanHelp()) return false;
  for (int attempt = 0; attempt < attempts; ++attempt) {
    if (ready()) return true;
    for (int i = 0; i < 4; ++i) SpinPause();
  }
  return false;
}

}  // namespace platform
