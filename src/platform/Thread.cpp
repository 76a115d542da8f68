#include "platform/Thread.h"

#include <cerrno>
#include <new>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include "platform/Semaphore.h"

namespace platform {

uint32_t GetCurrentThreadId() {
  return static_cast<uint32_t>(syscall(SYS_gettid));
}

uint32_t GetTickCount() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  uint64_t ms = static_cast<uint64_t>(now.tv_sec) * 1000u + static_cast<uint64_t>(now.tv_nsec) / 1000000u;
  return static_cast<uint32_t>(ms);
}

// Handed to the new thread, which reports its id before it runs the routine,
// so that Create can return a thread whose id is known.
struct Thread::Start {
  StartRoutine routine;
  void* argument;
  uint32_t id = 0;
  Semaphore started{0, 1};
};

void* Thread::Run(void* opaque) {
  Start* start = static_cast<Start*>(opaque);
  StartRoutine routine = start->routine;
  void* argument = start->argument;
  start->id = GetCurrentThreadId();
  start->started.Release();
  // `start` belongs to Create from here on and may already be gone.
  unsigned long result = routine(argument);
  return reinterpret_cast<void*>(static_cast<uintptr_t>(result));
}

std::unique_ptr<Thread> Thread::Create(StartRoutine routine, void* argument) {
  if (!routine) return nullptr;
  // Out of memory gives no thread, as a failed start does, rather than an
  // exception on the thread that asked.
  std::unique_ptr<Thread> thread(new (std::nothrow) Thread());
  if (!thread) return nullptr;
  Start start{routine, argument};
  if (pthread_create(&thread->handle, nullptr, &Thread::Run, &start) != 0) {
    thread->joined = true;  // nothing to join
    return nullptr;
  }
  start.started.Wait();
  thread->id = start.id;
  return thread;
}

Thread::~Thread() {
  if (!joined) Join();
}

bool Thread::SetPriority(int priority) {
  // On Linux a thread's nice value is its own; higher is lower priority.
  errno = 0;
  int current = getpriority(PRIO_PROCESS, id);
  if (errno != 0) return false;
  return setpriority(PRIO_PROCESS, id, current - priority) == 0;
}

unsigned long Thread::Join() {
  if (!joined) {
    void* value = nullptr;
    pthread_join(handle, &value);
    result = static_cast<unsigned long>(reinterpret_cast<uintptr_t>(value));
    joined = true;
  }
  return result;
}

}  // namespace platform
