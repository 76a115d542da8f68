// A counting semaphore with a maximum, as the engine's work queue needs it:
// a release reports the count it found and fails, changing nothing, when
// the new count would pass the maximum.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace platform {

class Semaphore {
 public:
  // The count lives in 32 bits: a larger maximum is taken as 0xFFFFFFFF.
  Semaphore(long initialCount, long maximumCount);
  // Waits until no release is still waking a sleeper.
  ~Semaphore();
  Semaphore(const Semaphore&) = delete;
  Semaphore& operator=(const Semaphore&) = delete;

  // Adds `count` (at least 1). On success `previous`, when given, receives
  // the count before the release.
  bool Release(long count = 1, long* previous = nullptr);
  // Waits without limit until a count is there, and takes it.
  void Wait();
  // Waits without limit until `count` counts are there, and takes them all
  // at once: the same as `count` waits in a row, but releases that leave
  // fewer wake no one. At most one thread at a time may wait this way
  // (others may wait for one count meanwhile).
  void WaitFor(long count);
  // Takes a count only if one is there now.
  bool TryWait();
  long Count() const;

 private:
  bool TakeOrSleep(uint64_t count, uint64_t asleep);
  bool TakeAndWake(uint64_t count, uint64_t asleep);

  // One word, so that a release sees in the same step whether anyone
  // sleeps: bits 0-31 the count, 32-46 the waiters sleeping for one count,
  // bit 47 set while a waiter sleeps for `wanted` counts, 48-63 the
  // releases still waking them. Releases and waits that find no sleeper to
  // wake and a count to take never touch the mutex.
  std::atomic<uint64_t> state;
  // The counts the waiter of bit 47 sleeps for; written under the mutex
  // before the bit is set.
  std::atomic<uint64_t> wanted{0};
  std::mutex mutex;
  std::condition_variable available;
  std::condition_variable enough;
  const long maximum;
};

}  // namespace platform
