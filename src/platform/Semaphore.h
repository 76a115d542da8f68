// A counting semaphore with a maximum, as the engine's work queue needs it:
// a release reports the count it found and fails, changing nothing, when
// the new count would pass the maximum.
#pragma once

#include <condition_variable>
#include <mutex>

namespace platform {

class Semaphore {
 public:
  Semaphore(long initialCount, long maximumCount);
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
  mutable std::mutex mutex;
  std::condition_variable available;
  long count;
  const long maximum;
};

}  // namespace platform
