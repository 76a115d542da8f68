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
  // Takes a count only if one is there now.
  bool TryWait();
  long Count() const;

 private:
  bool TakeOrSleep(bool sleep);
  bool TakeAndWake();

  // One word, so that a release sees in the same step whether anyone
  // sleeps: bits 0-31 the count, 32-47 the sleeping waiters, 48-63 the
  // releases still waking them. Releases and waits that find no sleeper
  // and a count to take never touch the mutex.
  std::atomic<uint64_t> state;
  std::mutex mutex;
  std::condition_variable available;
  const long maximum;
};

}  // namespace platform
