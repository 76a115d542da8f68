// A lock that the thread holding it may enter again.
#pragma once

#include <mutex>

#include "platform/SpinWait.h"

namespace platform {

class CriticalSection {
 public:
  // The engine holds its locks for a few dozen instructions (a queue entry
  // taken, a node appended), so a thread that finds one taken by a thread
  // running on another processor does better to try again for a few
  // microseconds than to sleep at once: sleeping and being woken cost a
  // system call on each side and two switches of threads. Only a longer
  // wait sleeps.
  void Enter() {
    if (SpinUntil([this] { return mutex.try_lock(); })) return;
    mutex.lock();
  }
  void Leave() { mutex.unlock(); }

 private:
  std::recursive_mutex mutex;
};

// Holds a critical section for the length of a scope.
class CriticalSectionGuard {
 public:
  explicit CriticalSectionGuard(CriticalSection& section) : section(section) { section.Enter(); }
  ~CriticalSectionGuard() { section.Leave(); }
  CriticalSectionGuard(const CriticalSectionGuard&) = delete;
  CriticalSectionGuard& operator=(const CriticalSectionGuard&) = delete;

 private:
  CriticalSection& section;
};

}  // namespace platform
