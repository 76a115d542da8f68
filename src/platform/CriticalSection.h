// A lock that the thread holding it may enter again.
#pragma once

#include <mutex>

namespace platform {

class CriticalSection {
 public:
  void Enter() { mutex.lock(); }
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
