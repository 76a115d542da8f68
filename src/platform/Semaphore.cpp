#include "platform/Semaphore.h"

namespace platform {

Semaphore::Semaphore(long initialCount, long maximumCount) : count(initialCount), maximum(maximumCount) {}

bool Semaphore::Release(long add, long* previous) {
  std::lock_guard<std::mutex> lock(mutex);
  if (add < 1 || count > maximum - add) return false;
  if (previous) *previous = count;
  count += add;
  // Notify while holding the lock: a waiter that takes the count may destroy
  // the semaphore at once, so nothing may touch it after the lock is gone.
  if (add == 1)
    available.notify_one();
  else
    available.notify_all();
  return true;
}

void Semaphore::Wait() {
  std::unique_lock<std::mutex> lock(mutex);
  available.wait(lock, [this] { return count > 0; });
  --count;
}

bool Semaphore::TryWait() {
  std::lock_guard<std::mutex> lock(mutex);
  if (count == 0) return false;
  --count;
  return true;
}

long Semaphore::Count() const {
  std::lock_guard<std::mutex> lock(mutex);
  return count;
}

}  // namespace platform
