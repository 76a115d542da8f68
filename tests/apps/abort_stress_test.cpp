// An abort at any moment of any work leaves the engine idle and whole.
#include <gtest/gtest.h>

#include "AbortStress.h"
#include "AppTestFiles.h"
#include "DemoScene.h"

TEST(AbortStress, EveryStopOfTheDemoHouseComesBackToTheSamePicture) {
  TestFolder folder;
  HostScene host;
  BuildDemoScene(host);
  host.FrameAll(4.0 / 3.0);
  AbortStress stress(host, 64, 48, folder.path);
  stress.TakeReference();
  // Seeded, so that a failure names a run that can be repeated.
  std::mt19937 random(20261123);
  std::uniform_int_distribution<int> delay(0, 40000);  // microseconds, across a whole small frame
  int stopped = 0;
  for (int run = 0; run < 32; ++run) {
    const AbortStress::Work work = AbortStress::AllWork[run % 4];
    const auto wait = std::chrono::microseconds(delay(random));
    double abortToIdle = -1.0;
    std::string failure;
    ASSERT_TRUE(stress.StopOnce(work, wait, abortToIdle, failure))
        << "run " << run << ", work " << int(work) << ", after " << wait.count() << " us: " << failure;
    if (abortToIdle >= 0.0) ++stopped;
  }
  // Ray-traced and path-traced screen frames only end when stopped, so at
  // least those runs were real aborts.
  EXPECT_GE(stopped, 8);
}
