#include <gtest/gtest.h>

#include <sstream>

#include "Progress.h"

namespace {

TEST(RenderProgress, LinesAndDurations) {
  EXPECT_EQ(ProgressDisplay::FormatDuration(0.4), "0:00");
  EXPECT_EQ(ProgressDisplay::FormatDuration(75), "1:15");
  EXPECT_EQ(ProgressDisplay::FormatDuration(3600 + 61), "1:01:01");
  // 30 of 120 blocks in 10 s: 90 more take 30 s.
  EXPECT_EQ(ProgressDisplay::FormatLine(30, 120, 0, 1, 10), "blocks 30/120  elapsed 0:10  left 0:30");
  // 15 of 8 passes of 10 blocks in 15 s: 10 s a pass. A limit of 32 s runs
  // out in pass 4, which ends at 40 s; a limit of 200 s after the 8 passes.
  EXPECT_EQ(ProgressDisplay::FormatLine(15, 80, 2, 8, 15, 32),
            "blocks 15/80  pass 2/8  10.0 s/pass  elapsed 0:15  left 0:25");
  EXPECT_EQ(ProgressDisplay::FormatLine(15, 80, 2, 8, 15, 200),
            "blocks 15/80  pass 2/8  10.0 s/pass  elapsed 0:15  left 1:05");
}

// What the display writes for a render of `passes` passes of 10 blocks,
// one second a block.
std::string Shown(ProgressDisplay::Style style, int passes, bool passMessages) {
  std::ostringstream out;
  double now = 100.0;
  ProgressDisplay progress(out, style, passes, [&now] { return now; });
  platform::Window* window = progress.Window();
  window->PostMessage(PBM_SETRANGE, 0, MAKELPARAM(0, 10));
  window->PostMessage(PBM_SETSTEP, 1, 0);
  window->PostMessage(PBM_SETPOS, 0, 0);
  for (int pass = 1; pass <= passes; ++pass) {
    if (passMessages) window->PostMessage(ProgressDisplay::PassMessage, 0, pass);
    for (int block = 0; block < 10; ++block) now += 1.0, window->PostMessage(PBM_STEPIT, 0, 0);
  }
  progress.Finish();
  return out.str();
}

TEST(RenderProgress, MessagesDriveTheDisplay) {
  const std::string lines = Shown(ProgressDisplay::Style::Lines, 1, false);
  // A line at the start and at each tenth; the last says all is done.
  EXPECT_EQ(lines.substr(0, lines.find('\n')), "blocks 0/10  elapsed 0:00");
  EXPECT_NE(lines.find("blocks 5/10  elapsed 0:05  left 0:05\n"), std::string::npos);
  EXPECT_EQ(lines.substr(lines.rfind("blocks")), "blocks 10/10  elapsed 0:10  left 0:00\n");

  const std::string passes = Shown(ProgressDisplay::Style::Lines, 3, true);
  EXPECT_NE(passes.find("blocks 10/30  pass 2/3  10.0 s/pass  elapsed 0:10  left 0:20\n"), std::string::npos);
  EXPECT_EQ(passes.substr(passes.rfind("blocks")),
            "blocks 30/30  pass 3/3  10.0 s/pass  elapsed 0:30  left 0:00\n");

  EXPECT_EQ(Shown(ProgressDisplay::Style::Quiet, 2, true), "");
}

}  // namespace
