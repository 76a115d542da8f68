// Threads with operating-system ids and an adjustable priority, and the
// clock that the engine's timings read.
#pragma once

#include <cstdint>
#include <memory>
#include <pthread.h>

namespace platform {

// The calling thread's id; unique among the threads alive at one time.
uint32_t GetCurrentThreadId();

// Milliseconds since an arbitrary start; wraps after about 49.7 days.
uint32_t GetTickCount();

class Thread {
 public:
  using StartRoutine = unsigned long (*)(void*);

  // Starts `routine(argument)` at once with the default stack size. Null
  // when the thread could not be made.
  static std::unique_ptr<Thread> Create(StartRoutine routine, void* argument);

  // Joins the thread if nobody has, so that no thread outlives its handle.
  ~Thread();
  Thread(const Thread&) = delete;
  Thread& operator=(const Thread&) = delete;

  uint32_t Id() const { return id; }
  // -1 is one step below normal, 0 normal. Only lowering is asked of this
  // platform, which an unprivileged process may always do.
  bool SetPriority(int priority);
  // Waits without limit for the thread to end; its result, if it ran.
  unsigned long Join();
  bool Joinable() const { return !joined; }

 private:
  Thread() = default;
  struct Start;
  static void* Run(void* start);

  pthread_t handle{};
  uint32_t id = 0;
  bool joined = false;
  unsigned long result = 0;
};

}  // namespace platform
