#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <vector>

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

// A message of the engine, posted `seconds` after the one before.
struct Post {
  unsigned message;
  WPARAM wParam;
  LPARAM lParam;
  double seconds;
};

// What the display writes for `posts`, followed by those of a render of
// `passes` passes of 10 blocks, one second a block.
std::string Shown(ProgressDisplay::Style style, int passes, bool passMessages, std::vector<Post> posts = {}) {
  posts.insert(posts.end(),
               {{PBM_SETRANGE, 0, MAKELPARAM(0, 10), 0}, {PBM_SETSTEP, 1, 0, 0}, {PBM_SETPOS, 0, 0, 0}});
  for (int pass = 1; pass <= passes; ++pass) {
    if (passMessages) posts.push_back({ProgressDisplay::PassMessage, 0, pass, 0});
    posts.insert(posts.end(), 10, {PBM_STEPIT, 0, 0, 1.0});
  }
  std::ostringstream out;
  double now = 100.0;
  ProgressDisplay progress(out, style, passes, [&now] { return now; });
  for (const Post& p : posts) now += p.seconds, progress.Window()->PostMessage(p.message, p.wParam, p.lParam);
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

  // The terminal line is rewritten in place and ended once.
  const std::string terminal = Shown(ProgressDisplay::Style::Terminal, 1, false);
  EXPECT_EQ(terminal.front(), '\r');
  EXPECT_EQ(terminal.back(), '\n');
  EXPECT_EQ(std::count(terminal.begin(), terminal.end(), '\n'), 1);

  EXPECT_EQ(Shown(ProgressDisplay::Style::Quiet, 2, true), "");
}

TEST(RenderProgress, ThePhotonsAndTheShadowMapsHaveLinesOfTheirOwnBeforeTheBlocks) {
  // 1000 of 2000 photons stored in 5 s, then the blocks' own range.
  std::vector<Post> photons = {{PBM_SETRANGE32, 0, 2000, 0}};
  for (int stored = 100; stored <= 1000; stored += 100)
    photons.push_back({PBM_SETPOS, WPARAM(stored), 0, 0.5});
  for (const auto style : {ProgressDisplay::Style::Lines, ProgressDisplay::Style::Terminal}) {
    const std::string text = Shown(style, 1, false, photons);
    const size_t last = text.rfind("photons 1000/2000  elapsed 0:05");
    ASSERT_NE(last, std::string::npos) << text;
    EXPECT_GT(text.find("blocks 1/10"), text.find('\n', last));
    if (style == ProgressDisplay::Style::Lines) {
      // A line at the start and at each new tenth of the whole.
      EXPECT_EQ(text.substr(0, text.find('\n')), "photons 0/2000  elapsed 0:00");
      EXPECT_NE(text.find("photons 400/2000  elapsed 0:02\n"), std::string::npos);
      EXPECT_EQ(std::count(text.begin(), text.begin() + text.find("blocks 0/10"), '\n'), 6) << text;
    }
  }
  // Two maps of 3 and 2 tiles: a line for each finished map.
  EXPECT_EQ(ProgressDisplay::FormatMapLine(2, 30, 128), "shadow maps: light 2  tiles 30/128");
  std::vector<Post> maps = {{RT_SHADOW_MAP_LIGHT_MESSAGE, 3, 7, 0}};
  maps.insert(maps.end(), 3, {RT_SHADOW_MAP_TILE_MESSAGE, 0, 0, 0});
  maps.push_back({RT_SHADOW_MAP_LIGHT_MESSAGE, 2, 7, 0});
  maps.insert(maps.end(), 2, {RT_SHADOW_MAP_TILE_MESSAGE, 0, 0, 0});
  const std::string text = Shown(ProgressDisplay::Style::Lines, 1, false, maps);
  EXPECT_EQ(text.substr(0, text.find("blocks 0/10")),
            "shadow maps: light 1  tiles 3/3\nshadow maps: light 2  tiles 2/2\n");
}

}  // namespace
