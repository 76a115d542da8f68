#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

#include "platform/CriticalSection.h"
#include "platform/Semaphore.h"
#include "platform/Thread.h"

using platform::Semaphore;
using platform::Thread;

// The count before a release of `add`, or -1 when the release is refused.
static long Released(Semaphore& semaphore, long add) {
  long previous = -1;
  return semaphore.Release(add, &previous) ? previous : -1;
}

TEST(Semaphore, ReleaseHonoursMaximumAndReportsPreviousCountAndTryWaitTakesWhatIsThere) {
  Semaphore semaphore(1, 3);
  EXPECT_EQ(Released(semaphore, 1), 1);
  EXPECT_EQ(Released(semaphore, 2), -1);  // 2 + 2 would pass 3
  EXPECT_EQ(Released(semaphore, 1), 2);
  EXPECT_EQ(Released(semaphore, 1), -1);
  // The large maximum of the engine's wake and done semaphores.
  Semaphore wide(0, 0x7FFFFFFF);
  EXPECT_EQ(Released(wide, 1), 0);
  EXPECT_EQ(Released(wide, 0x7FFFFFFF - 1), 1);
  EXPECT_EQ(Released(wide, 1), -1);
  // A zero wait takes only what is there.
  Semaphore two(0, 10);
  EXPECT_FALSE(two.TryWait());
  two.Release(2);
  EXPECT_TRUE(two.TryWait() && two.TryWait());
  EXPECT_FALSE(two.TryWait());
}

TEST(Semaphore, WaitWakesOneWaiterPerCount) {
  Semaphore semaphore(0, 100);
  std::atomic<int> woken{0};
  std::vector<std::thread> waiters;
  for (int i = 0; i < 4; ++i)
    waiters.emplace_back([&] {
      semaphore.Wait();
      ++woken;
    });
  semaphore.Release(3);
  while (woken.load() < 3) std::this_thread::yield();
  EXPECT_EQ(semaphore.Count(), 0);
  semaphore.Release(1);
  for (auto& t : waiters) t.join();
  EXPECT_EQ(woken.load(), 4);
}

// Counts are neither lost nor made up when releases, waits and zero waits
// race: two producers release 200000 in steps of 1 and 2, three consumers
// take exactly that many (one by zero waits), and nothing is left. Then a
// waiter that takes the only count destroys the semaphore at once while its
// release may still be waking it: each round's handshake lives on the heap
// (a sanitizer run reports any touch after the delete).
TEST(Semaphore, RacingReleasesAndWaitsKeepTheCountAndAWaiterMayDestroyAtOnce) {
  Semaphore shared(0, 0x7FFFFFFF);
  std::vector<std::thread> threads;
  for (long step = 1; step <= 2; ++step)
    threads.emplace_back([&shared, step] {
      for (long given = 0; given < 100000; given += step) shared.Release(step);
    });
  threads.emplace_back([&shared] {
    for (int taken = 0; taken < 50000;) taken += shared.TryWait() ? 1 : 0;
  });
  for (int c = 0; c < 2; ++c)
    threads.emplace_back([&shared] {
      for (int taken = 0; taken < 75000; ++taken) shared.Wait();
    });
  for (auto& t : threads) t.join();
  EXPECT_EQ(shared.Count(), 0);
  EXPECT_FALSE(shared.TryWait());
  for (int round = 0; round < 2000; ++round) {
    auto* handshake = new Semaphore(0, 1);
    std::thread giver([handshake] { handshake->Release(); });
    handshake->Wait();
    delete handshake;
    giver.join();
  }
}

// Whether `flag` turns true within five seconds: a wake that never comes
// fails the test instead of hanging it.
static bool TurnsTrue(const std::atomic<bool>& flag) {
  for (int i = 0; i < 5000 && !flag.load(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  return flag.load();
}

// A wait for many counts returns once they are all there, takes exactly
// them, and leaves a waiter for one count its wakes meanwhile. Each row:
// the count at the start, the counts waited for, the step of the releases
// and how many are released in all.
TEST(Semaphore, WaitForTakesAllItsCountsOnlyOnceTheyAreThere) {
  struct Row {
    long initial, wanted, step, released;
  };
  for (const Row row : {Row{0, 5, 1, 7}, Row{3, 5, 1, 4}, Row{0, 1000, 3, 1002}, Row{4, 4, 1, 0}}) {
    Semaphore semaphore(row.initial, 0x7FFFFFFF);
    std::atomic<bool> many{false};
    std::thread waiter([&] {
      semaphore.WaitFor(row.wanted);
      many = true;
    });
    for (long given = 0; given < row.released; given += row.step) {
      if (row.initial + given < row.wanted) {
        std::this_thread::sleep_for(std::chrono::microseconds(50));
        EXPECT_FALSE(many.load()) << row.wanted << " after " << given;
      }
      semaphore.Release(row.step);
    }
    EXPECT_TRUE(TurnsTrue(many)) << row.wanted;
    if (!many) semaphore.Release(row.wanted);
    waiter.join();
    EXPECT_EQ(semaphore.Count(), row.initial + row.released - row.wanted) << row.wanted;
  }
  // A waiter for one count beside a waiter for two: one release wakes it.
  Semaphore semaphore(0, 10);
  std::atomic<bool> many{false}, one{false};
  std::thread forMany([&] {
    semaphore.WaitFor(2);
    many = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(5));
  std::thread forOne([&] {
    semaphore.Wait();
    one = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(5));
  semaphore.Release(1);
  EXPECT_TRUE(TurnsTrue(one));
  EXPECT_FALSE(many.load());
  semaphore.Release(one ? 2 : 3);
  EXPECT_TRUE(TurnsTrue(many));
  forOne.join();
  forMany.join();
  EXPECT_EQ(semaphore.Count(), 0);
}

namespace {
struct ThreadReport {
  Semaphore go{0, 1};
  uint32_t id = 0;
  int nice = 0;
};
unsigned long Report(void* opaque) {
  auto* report = static_cast<ThreadReport*>(opaque);
  report->go.Wait();
  report->id = platform::GetCurrentThreadId();
  report->nice = getpriority(PRIO_PROCESS, 0);
  return 42;
}
}  // namespace

TEST(CriticalSection, ExcludesOtherThreadsAndLetsTheHolderEnterAgain) {
  // Three threads add 1 to a plain counter 100 000 times each, entering the
  // lock twice (once again while holding it) for every step and reading the
  // counter between the two halves of a non-atomic add: a thread let in
  // while another holds the lock loses steps, so only exclusion gives
  // exactly 300 000. Short holds keep most waits in the busy part.
  platform::CriticalSection lock;
  long counter = 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < 3; ++t)
    threads.emplace_back([&] {
      for (int i = 0; i < 100000; ++i) {
        platform::CriticalSectionGuard outer(lock);
        platform::CriticalSectionGuard inner(lock);
        const long seen = counter;
        std::atomic_signal_fence(std::memory_order_seq_cst);
        counter = seen + 1;
      }
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(counter, 300000);
}

TEST(Thread, IdIsKnownAtCreationAndPriorityDropsOneStep) {
  ThreadReport report;
  auto thread = Thread::Create(&Report, &report);
  ASSERT_TRUE(thread);
  const int normal = getpriority(PRIO_PROCESS, 0);
  EXPECT_TRUE(thread->SetPriority(-1));
  report.go.Release();
  EXPECT_EQ(thread->Join(), 42u);
  EXPECT_EQ(report.id, thread->Id());
  EXPECT_NE(report.id, platform::GetCurrentThreadId());
  EXPECT_EQ(report.nice, std::min(normal + 1, 19));  // a higher nice value is a lower priority
}
