#include "platform/Semaphore.h"

#include <algorithm>
#include <thread>

#include "platform/SpinWait.h"

namespace platform {

namespace {

constexpr uint64_t CountMask = 0xFFFFFFFFull;
constexpr uint64_t OneSleeper = 1ull << 32;
constexpr uint64_t SleeperMask = 0xFFFFull << 32;
constexpr uint64_t OneWaker = 1ull << 48;

long CountOf(uint64_t state) {
  return long(state & CountMask);
}

}  // namespace

Semaphore::Semaphore(long initialCount, long maximumCount)
    : state(uint64_t(std::clamp<long>(initialCount, 0, long(CountMask)))),
      maximum(std::min<long>(maximumCount, long(CountMask))) {}

Semaphore::~Semaphore() {
  // A waiter may take a count and destroy the semaphore while the release
  // that gave it is still notifying under the mutex.
  while (state.load(std::memory_order_acquire) >= OneWaker) std::this_thread::yield();
}

bool Semaphore::Release(long add, long* previous) {
  uint64_t seen = state.load(std::memory_order_relaxed);
  uint64_t next = 0;
  do {
    const long count = CountOf(seen);
    if (add < 1 || count > maximum - add) return false;
    next = seen + uint64_t(add);
    // A sleeper can only be woken under the mutex; the waker mark keeps the
    // semaphore alive until that is done.
    if (seen & SleeperMask) next += OneWaker;
  } while (!state.compare_exchange_weak(seen, next, std::memory_order_acq_rel, std::memory_order_relaxed));
  if (previous) *previous = CountOf(seen);
  if (!(seen & SleeperMask)) return true;
  {
    // Taking the mutex orders the notify after the sleeper's wait began: it
    // counted itself in under the mutex and releases it only by waiting.
    std::lock_guard<std::mutex> lock(mutex);
    if (add == 1)
      available.notify_one();
    else
      available.notify_all();
  }
  state.fetch_sub(OneWaker, std::memory_order_release);
  return true;
}

// Takes a count if there is one. Otherwise, with `sleep`, counts the caller
// among the sleepers in the same step, so that a release either leaves a
// count this caller sees or finds it asleep and wakes it.
bool Semaphore::TakeOrSleep(bool sleep) {
  uint64_t seen = state.load(std::memory_order_relaxed);
  for (;;) {
    if (CountOf(seen) > 0) {
      if (state.compare_exchange_weak(seen, seen - 1, std::memory_order_acq_rel, std::memory_order_relaxed))
        return true;
    } else if (!sleep) {
      return false;
    } else if (state.compare_exchange_weak(seen, seen + OneSleeper, std::memory_order_acq_rel,
                                           std::memory_order_relaxed)) {
      return false;
    }
  }
}

// A woken sleeper takes a count and leaves the sleepers in one step.
bool Semaphore::TakeAndWake() {
  uint64_t seen = state.load(std::memory_order_relaxed);
  while (CountOf(seen) > 0) {
    if (state.compare_exchange_weak(seen, seen - 1 - OneSleeper, std::memory_order_acq_rel,
                                    std::memory_order_relaxed))
      return true;
  }
  return false;
}

void Semaphore::Wait() {
  // A count that another processor is about to release is better waited for
  // a few microseconds than asleep: a sleeper costs its releaser the mutex
  // and a system call, and itself two switches of threads. The driver of a
  // build, which takes one post per answered wake, meets that all the time
  // while the workers answer the wakes that piled up during the build.
  if (SpinUntil([this] { return TakeOrSleep(false); })) return;
  std::unique_lock<std::mutex> lock(mutex);
  if (TakeOrSleep(true)) return;
  available.wait(lock, [this] { return TakeAndWake(); });
}

bool Semaphore::TryWait() {
  return TakeOrSleep(false);
}

long Semaphore::Count() const {
  return CountOf(state.load(std::memory_order_acquire));
}

}  // namespace platform
