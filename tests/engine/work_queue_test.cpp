#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <new>
#include <vector>

#include "engine/BrindlexViewRTRenderEngine.h"
#include "EngineTestAccess.h"

namespace {

// Out of memory on demand: while armed on a thread, the n-th allocation of
// that thread in the form the engine uses where it can do without the
// memory, `new (std::nothrow)`, fails.
thread_local bool allocationArmed = false;
thread_local int allocationsBeforeFailure = 0;
thread_local bool allocationFailed = false;

bool FailThisAllocation() {
  if (!allocationArmed || allocationFailed || allocationsBeforeFailure-- != 0) return false;
  return allocationFailed = true;
}

}  // namespace

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  if (FailThisAllocation()) return nullptr;
  try {
    return ::operator new(size);
  } catch (...) {
    return nullptr;
  }
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  if (FailThisAllocation()) return nullptr;
  try {
    return ::operator new[](size);
  } catch (...) {
    return nullptr;
  }
}

namespace {

struct EngineFixture : ::testing::Test {
  void SetUp() override {
    engine = static_cast<RT_RENDER_ENGINE*>(CreateRenderEngine());
    engine->Initialize(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
    access = std::make_unique<EngineTestAccess>(engine);
    workers = engine->GetProcessorCount();
  }
  void TearDown() override { engine->Release(); }

  RT_RENDER_ENGINE* engine = nullptr;
  std::unique_ptr<EngineTestAccess> access;
  unsigned int workers = 0;
};

// Kd-tree jobs without a tree only ask their own abort function, which
// makes them a clean way to see each job run.
struct JobLedger {
  std::vector<std::atomic<int>> runs;
  explicit JobLedger(size_t count) : runs(count) {}
};
struct JobTicket {
  JobLedger* ledger;
  size_t index;
};

bool CountRun(void* context) {
  auto* ticket = static_cast<JobTicket*>(context);
  ticket->ledger->runs[ticket->index].fetch_add(1);
  return false;
}

}  // namespace

TEST_F(EngineFixture, TenThousandJobsInBatchesRunExactlyOnce) {
  for (int round = 0; round < 20; ++round)
    access->WaitForCompletion();  // an empty queue wakes and returns all
  EXPECT_EQ(access->WakeCount(), 0);
  const size_t total = 10000, batch = 1000;
  JobLedger ledger(total);
  std::vector<JobTicket> tickets(total);
  for (size_t start = 0; start < total; start += batch) {
    std::vector<WorkItem> items;
    for (size_t i = start; i < start + batch; ++i) {
      tickets[i] = {&ledger, i};
      auto* job = new KDBuildJob();
      job->shouldAbort = &CountRun;
      job->abortContext = &tickets[i];
      items.push_back({RT_JOB_KDTREE_BUILD, job});
    }
    access->Push(items);
    access->WaitForCompletion();
    EXPECT_EQ(access->QueueLength(), 0u);
  }
  for (size_t i = 0; i < total; ++i) ASSERT_EQ(ledger.runs[i].load(), 1) << "job " << i;
  EXPECT_EQ(access->CoreTokens(), long(workers));
}

namespace {
struct PixelLedger {
  std::vector<std::atomic<int>> traced;
  explicit PixelLedger(size_t count) : traced(count) {}
};
PixelLedger* ledger = nullptr;

// The block's owner stops failing allocations once it traces, so only the
// lending of processors before its first pixel runs out of memory.
bool TracePixelDisarmed(RT_RENDER_ENGINE*, SWRT_RENDER_THREAD_DATA*, unsigned int index, SCENE_VERTEX_XYZW&,
                        std::atomic<bool>&) {
  allocationArmed = false;
  ledger->traced[index].fetch_add(1);
  return true;
}
}  // namespace

TEST_F(EngineFixture, OutOfMemoryWhileLendingLeavesTheBlockToItsOwner) {
  if (workers < 2) GTEST_SKIP() << "no processor can be lent";
  SWRT_RENDER_THREAD_DATA block;
  block.width = 16;
  block.height = 16;
  // Each allocation that lending makes fails in turn, until one round
  // lends without any failing.
  for (int failing = 0;; ++failing) {
    ASSERT_LT(failing, 16);
    PixelLedger pixelLedger(256);
    ledger = &pixelLedger;
    std::vector<SCENE_VERTEX_XYZW> samples(256);
    allocationsBeforeFailure = failing;
    allocationFailed = false;
    allocationArmed = true;
    bool traced = false;
    EXPECT_NO_THROW(traced = access->TraceBlockPixels(&block, samples.data(), &TracePixelDisarmed))
        << "allocation " << failing;
    allocationArmed = false;
    EXPECT_TRUE(traced) << "allocation " << failing;
    for (unsigned i = 0; i < 256; ++i) ASSERT_EQ(pixelLedger.traced[i].load(), 1) << i;
    EXPECT_EQ(access->CoreTokens(), long(workers));
    ledger = nullptr;
    access->WaitForCompletion();  // the idle workers offer their processors again
    if (!allocationFailed) {
      EXPECT_GE(failing, 2) << "the two arrays of the helpers were not allocated here";
      break;
    }
  }
}
