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

// How often a wait asks before it sleeps: with the pauses between, a few
// microseconds, about as long as the engine holds a lock.
constexpr int SpinAttempts = 64;

// The busy part of a wait: asks `ready` once, and when spinning can help up
// to SpinAttempts times in all, with a few pauses between; says whether it
// answered true.
template <typename Ready>
bool SpinUntil(Ready ready) {
  if (ready()) return true;
  if (!SpinningCanHelp()) return false;
  for (int attempt = 1; attempt < SpinAttempts; ++attempt) {
    for (int i = 0; i < 4; ++i) SpinPause();
    if (ready()) return true;
  }
  return false;
}

}  // namespace platform
