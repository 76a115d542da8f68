#include "platform/Semaphore.h"

#include <algorithm>
#include <thread>

#include "platform/SpinWait.h"

namespace platform {

namespace {

constexpr uint64_t CountMask = 0xFFFFFFFFull;
constexpr uint64_t OneSleeper = 1ull << 32;
constexpr uint64_t SleeperMask = 0x7FFFull << 32;
constexpr uint64_t ManySleeper = 1ull << 47;
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
  uint64_t seen = state.load(std::memory_order_acquire);
  uint64_t next = 0;
  bool wakeOne = false, wakeMany = false;
  do {
    const long count = CountOf(seen);
    if (add < 1 || count > maximum - add) return false;
    next = seen + uint64_t(add);
    wakeOne = seen & SleeperMask;
    // `wanted` was written before bit 47 was set, and the load that saw the
    // bit acquired it.
    wakeMany = (seen & ManySleeper) && uint64_t(count + add) >= wanted.load(std::memory_order_relaxed);
    // A sleeper can only be woken under the mutex; the waker mark keeps the
    // semaphore alive until that is done.
    if (wakeOne || wakeMany) next += OneWaker;
  } while (!state.compare_exchange_weak(seen, next, std::memory_order_acq_rel, std::memory_order_acquire));
  if (previous) *previous = CountOf(seen);
  if (!wakeOne && !wakeMany) return true;
  {
    // Taking the mutex orders the notify after the sleeper's wait began: it
    // counted itself in under the mutex and releases it only by waiting.
    std::lock_guard<std::mutex> lock(mutex);
    if (wakeOne && add == 1)
      available.notify_one();
    else if (wakeOne)
      available.notify_all();
    if (wakeMany) enough.notify_one();
  }
  state.fetch_sub(OneWaker, std::memory_order_release);
  return true;
}

// Takes `count` counts if they are there. Otherwise, with a sleeper's
// mark `asleep` (0: no sleep), adds the mark in the same step, so that a
// release either leaves counts this caller sees or finds it asleep and
// wakes it.
bool Semaphore::TakeOrSleep(uint64_t count, uint64_t asleep) {
  uint64_t seen = state.load(std::memory_order_relaxed);
  for (;;) {
    const bool there = CountOf(seen) >= long(count);
    if (!there && !asleep) return false;
    if (state.compare_exchange_weak(seen, there ? seen - count : seen + asleep, std::memory_order_acq_rel,
                                    std::memory_order_relaxed))
      return there;
  }
}

// A woken sleeper takes its counts and removes its mark in one step.
bool Semaphore::TakeAndWake(uint64_t count, uint64_t asleep) {
  uint64_t seen = state.load(std::memory_order_relaxed);
  while (CountOf(seen) >= long(count)) {
    if (state.compare_exchange_weak(seen, seen - count - asleep, std::memory_order_acq_rel,
                                    std::memory_order_relaxed))
      return true;
  }
  return false;
}

void Semaphore::Wait() {
  // A count that another processor is about to release is better waited for
  // a few microseconds than asleep: a sleeper costs its releaser the mutex
  // and a system call, and itself two switches of threads. The workers,
  // which wait for a wake and a token after every run of the queue, meet
  // that all the time while they answer the wakes that piled up during a
  // build.
  if (SpinUntil([this] { return TakeOrSleep(1, 0); })) return;
  std::unique_lock<std::mutex> lock(mutex);
  if (TakeOrSleep(1, OneSleeper)) return;
  available.wait(lock, [this] { return TakeAndWake(1, OneSleeper); });
}

void Semaphore::WaitFor(long count) {
  if (count < 1) return;
  if (count == 1) return Wait();
  // No busy part: a waiter for many counts expects to wait long. Bit 47 is
  // clear here: only one thread waits this way, and its last wait cleared it.
  std::unique_lock<std::mutex> lock(mutex);
  wanted.store(uint64_t(count), std::memory_order_relaxed);
  if (TakeOrSleep(uint64_t(count), ManySleeper)) return;
  enough.wait(lock, [this, count] { return TakeAndWake(uint64_t(count), ManySleeper); });
}

bool Semaphore::TryWait() {
  return TakeOrSleep(1, 0);
}

long Semaphore::Count() const {
  return CountOf(state.load(std::memory_order_acquire));
}

}  // namespace platform
