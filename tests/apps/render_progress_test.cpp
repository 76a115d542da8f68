#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "Progress.h"
#include "shadows/SWShadowMap.h"

namespace {

TEST(RenderProgress, LinesAndDurations) {
  EXPECT_EQ(ProgressDisplay::FormatDuration(0.4), "0:00");
  EXPECT_EQ(ProgressDisplay::FormatDuration(75), "1:15");
  EXPECT_EQ(ProgressDisplay::FormatDuration(3600 + 61), "1:01:01");
  // 30 of 120 blocks in 10 s: 90 more take 30 s.
  EXPECT_EQ(ProgressDisplay::FormatLine(30, 120, 0, 1, 10), "blocks 30/120  elapsed 0:10  left 0:30");
  EXPECT_EQ(ProgressDisplay::FormatLine(0, 120, 2, 8, 3), "blocks 0/120  pass 2/8  elapsed 0:03");
  // 15 of 8 passes of 10 blocks in 15 s: 10 s a pass. A limit of 32 s runs
  // out in pass 4, which ends at 40 s; a limit of 200 s after the 8 passes.
  EXPECT_EQ(ProgressDisplay::FormatLine(15, 80, 2, 8, 15, 32),
            "blocks 15/80  pass 2/8  10.0 s/pass  elapsed 0:15  left 0:25");
  EXPECT_EQ(ProgressDisplay::FormatLine(15, 80, 2, 8, 15, 200),
            "blocks 15/80  pass 2/8  10.0 s/pass  elapsed 0:15  left 1:05");
  EXPECT_EQ(ProgressDisplay::FormatLine(15, 10ul * UnlimitedPasses, 2, UnlimitedPasses, 15, 32),
            "blocks 15  pass 2  10.0 s/pass  elapsed 0:15  left 0:25");
  // A pass already past the limit is still the last; a slow pass in m:ss.
  EXPECT_EQ(ProgressDisplay::FormatLine(25, 100, 3, 10, 250, 30),
            "blocks 25/100  pass 3/10  1:40/pass  elapsed 4:10  left 0:50");
}

// Feeds the engine's messages of a render with `passes` passes of 10
// blocks, one second per block.
std::string Render(ProgressDisplay::Style style, int passes, bool withPassMessages) {
  std::ostringstream out;
  double now = 100.0;
  ProgressDisplay progress(out, style, passes, [&now] { return now; });
  platform::Window* window = progress.Window();
  window->PostMessage(PBM_SETRANGE, 0, MAKELPARAM(0, 10));
  window->PostMessage(PBM_SETSTEP, 1, 0);
  window->PostMessage(PBM_SETPOS, 0, 0);
  for (int pass = 1; pass <= passes; ++pass) {
    if (withPassMessages) window->PostMessage(ProgressDisplay::PassMessage, 0, pass);
    for (int block = 0; block < 10; ++block) {
      now += 1.0;
      window->PostMessage(PBM_STEPIT, 0, 0);
    }
  }
  progress.Finish();
  return out.str();
}

TEST(RenderProgress, MessagesDriveTheDisplay) {
  const std::string lines = Render(ProgressDisplay::Style::Lines, 1, false);
  // A line at the start and at each tenth; the last says all is done.
  EXPECT_EQ(lines.substr(0, lines.find('\n')), "blocks 0/10  elapsed 0:00");
  EXPECT_NE(lines.find("blocks 5/10  elapsed 0:05  left 0:05\n"), std::string::npos);
  EXPECT_EQ(lines.substr(lines.rfind("blocks")), "blocks 10/10  elapsed 0:10  left 0:00\n");

  const std::string passes = Render(ProgressDisplay::Style::Lines, 3, true);
  EXPECT_NE(passes.find("blocks 10/30  pass 2/3  10.0 s/pass  elapsed 0:10  left 0:20\n"), std::string::npos);
  EXPECT_EQ(passes.substr(passes.rfind("blocks")),
            "blocks 30/30  pass 3/3  10.0 s/pass  elapsed 0:30  left 0:00\n");

  // The terminal line is rewritten in place and ended once.
  const std::string terminal = Render(ProgressDisplay::Style::Terminal, 1, false);
  EXPECT_EQ(terminal.front(), '\r');
  EXPECT_EQ(terminal.back(), '\n');
  EXPECT_EQ(std::count(terminal.begin(), terminal.end(), '\n'), 1);

  EXPECT_EQ(Render(ProgressDisplay::Style::Quiet, 2, true), "");
}

}  // namespace

TEST(RenderProgress, ThePhotonShootingHasALineOfItsOwnBeforeTheBlocks) {
  for (const auto style : {ProgressDisplay::Style::Lines, ProgressDisplay::Style::Terminal}) {
    std::ostringstream out;
    double now = 100.0;
    ProgressDisplay progress(out, style, 1, [&now] { return now; });
    platform::Window* window = progress.Window();
    window->PostMessage(PBM_SETRANGE32, 0, 2000);
    for (int stored = 100; stored <= 1000; stored += 100) {
      now += 0.5;
      window->PostMessage(PBM_SETPOS, stored, 0);
    }
    // The blocks' own range, position and steps take over.
    window->PostMessage(PBM_SETRANGE, 0, MAKELPARAM(0, 4));
    window->PostMessage(PBM_SETPOS, 0, 0);
    window->PostMessage(PBM_STEPIT, 0, 0);
    progress.Finish();
    const std::string text = out.str();
    const size_t photons = text.rfind("photons 1000/2000  elapsed 0:05");
    ASSERT_NE(photons, std::string::npos) << text;
    EXPECT_NE(text.find('\n', photons), std::string::npos);
    EXPECT_GT(text.find("blocks 1/4"), text.find('\n', photons));
    if (style == ProgressDisplay::Style::Lines) {
      EXPECT_EQ(text.substr(0, text.find('\n')), "photons 0/2000  elapsed 0:00");
      // A line at the start and at each new tenth of the whole.
      EXPECT_NE(text.find("photons 400/2000  elapsed 0:02\n"), std::string::npos);
      size_t lines = 0;
      for (size_t at = text.find("photons"); at != std::string::npos; at = text.find("photons", at + 1))
        ++lines;
      EXPECT_EQ(lines, 6u) << text;
    }
  }
}

TEST(RenderProgress, ShadowMapPhaseShowsLightsAndTiles) {
  EXPECT_EQ(ProgressDisplay::FormatMapLine(2, 30, 128), "shadow maps: light 2  tiles 30/128");
  // Two maps of 3 and 2 tiles, then a frame: a line for each finished map.
  std::ostringstream out;
  ProgressDisplay progress(out, ProgressDisplay::Style::Lines, 1, [] { return 0.0; });
  platform::Window* window = progress.Window();
  for (int tiles : {3, 2}) {
    window->PostMessage(RT_SHADOW_MAP_LIGHT_MESSAGE, tiles, 7);
    for (int i = 0; i < tiles; ++i) window->PostMessage(RT_SHADOW_MAP_TILE_MESSAGE, 0, 0);
  }
  EXPECT_EQ(out.str(), "shadow maps: light 1  tiles 3/3\nshadow maps: light 2  tiles 2/2\n");
  window->PostMessage(PBM_SETRANGE, 0, MAKELPARAM(0, 10));
  EXPECT_NE(out.str().find("blocks 0/10"), std::string::npos);
}
