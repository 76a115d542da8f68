// The coordinator's bookkeeping of a render farm: which tile goes where,
// pass by pass, and how the picture is blended from what comes back.
#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "FarmPicture.h"
#include "FarmTiles.h"

namespace {

TEST(FarmTiles, CoverThePictureFromTheMiddleWithCutEdges) {
  // 3 x 3 tiles, listed as the engine lists its blocks: the centre, then
  // the ring clockwise from its top left corner.
  const std::vector<FarmTile> grid = FarmTiles(70, 66, 32);
  const std::vector<std::pair<uint32_t, uint32_t>> order = {{1, 1}, {0, 0}, {1, 0}, {2, 0}, {2, 1},
                                                            {2, 2}, {1, 2}, {0, 2}, {0, 1}};
  ASSERT_EQ(grid.size(), order.size());
  for (size_t i = 0; i < order.size(); ++i) {
    EXPECT_EQ(grid[i].x, order[i].first * 32) << i;
    EXPECT_EQ(grid[i].y, order[i].second * 32) << i;
    EXPECT_EQ(grid[i].width, order[i].first == 2 ? 6u : 32u) << i;
    EXPECT_EQ(grid[i].height, order[i].second == 2 ? 2u : 32u) << i;
  }
  EXPECT_TRUE(FarmTiles(0, 10, 32).empty());
}

// One call of a script to the dealer, as "call[a[:b]]=answer": p NextPass,
// tA:B NextTile(rank A, pass B), rA:B Receive(tile A, pass B), oA
// Outstanding(rank A), c CompletePasses, f Finished, lA Lose(rank A),
// L LimitReached (answering LastPass), s Stop. A deal answers its tile or
// pass; W, N and F are Wait, Nothing and Finished; 1 and 0 true and false.
std::string Call(TileDealer& dealer, char call, unsigned a, unsigned b) {
  const auto answer = [](const TileDealer::Deal& d, uint32_t dealt) -> std::string {
    using A = TileDealer::Answer;
    return d.answer == A::Deal      ? std::to_string(dealt)
           : d.answer == A::Wait    ? "W"
           : d.answer == A::Nothing ? "N"
                                    : "F";
  };
  if (call == 'p') return answer(dealer.NextPass(), dealer.NextPass().pass);
  if (call == 't') {
    const TileDealer::Deal tile = dealer.NextTile(int(a), b);
    return answer(tile, tile.tile);
  }
  if (call == 'r') return std::to_string(dealer.Receive(a, b));
  if (call == 'o') return std::to_string(dealer.Outstanding(int(a)));
  if (call == 'c') return std::to_string(dealer.CompletePasses());
  if (call == 'f') return std::to_string(dealer.Finished());
  if (call == 'l') return dealer.Lose(int(a)), "";
  if (call == 'L') return dealer.LimitReached(), std::to_string(dealer.LastPass());
  if (call == 's') return dealer.Stop(), "";
  return "?";
}

TEST(TileDealer, DealsEveryTileOncePassByPassAndALostRanksTilesAgainFirst) {
  const struct {
    size_t tiles;
    uint32_t passes;
    const char* script;
  } cases[] = {
      // Ray tracing: the last tiles may still come back to be dealt again,
      // so the others wait; copies, unknown tiles and passes are refused.
      {3, 1,
       "p=1 t1:1=0 t2:1=1 t1:1=2 t2:1=W p=W o1=2 r1:1=1 r1:1=0 r7:1=0 r0:2=0 r0:1=1 f=0 r2:1=1 f=1 c=1 "
       "t1:1=F p=F"},
      // Rank 1 is lost holding tiles 0 and 2: they come first, and its late
      // samples are refused.
      {4, 1, "t1:1=0 t2:1=1 t1:1=2 l1= o1=0 r0:1=0 t2:1=0 t2:1=2 t2:1=3 r0:1=1 r1:1=1 r2:1=1 r3:1=1 f=1"},
      // Path tracing deals two passes at most: pass 3 waits for pass 1. The
      // time runs out during pass 3: it is finished, pass 4 is not.
      {2, 5,
       "t1:1=0 t1:1=1 t2:1=N p=2 t2:2=0 t2:2=1 p=W t2:3=N r0:2=1 r1:2=1 c=0 r0:1=1 r1:1=1 c=2 p=3 "
       "t1:3=0 t1:4=0 L=3 r0:4=0 t2:4=N t2:3=1 r0:3=1 r1:3=1 f=1 c=3"},
      // Ctrl-C: the pass in progress is never complete.
      {2, 10, "t1:1=0 s= f=1 c=0 r0:1=0 p=F"},
  };
  for (const auto& c : cases) {
    TileDealer dealer(c.tiles, c.passes);
    std::istringstream script(c.script);
    for (std::string step; script >> step;) {
      unsigned a = 0, b = 0;
      std::sscanf(step.c_str() + 1, "%u:%u", &a, &b);
      EXPECT_EQ(Call(dealer, step[0], a, b), step.substr(step.find('=') + 1)) << step << " in " << c.script;
    }
  }
}

TEST(FarmPicture, BlendsColumnByColumnIntoTheRunningMean) {
  MODE_RENDER_OPTIONS options;
  options.SetCustomLighting(false);  // no tone map: bytes are value x 255, truncated
  FarmPicture picture(4, 3, options, false);
  ASSERT_TRUE(picture.Valid());
  // A tile of 2 x 3 at (1, 0): sample k lies in column k / 3, row k % 3.
  std::vector<SCENE_VERTEX_XYZW> first(6, {0.25f, 0.0f, 0.0f, 1.0f}), second(6);
  for (int k = 0; k < 6; ++k) second[k] = {0.75f, 0.125f * float(k), 0.0f, 1.0f};
  picture.Blend({1, 0, 2, 3}, 1, first.data());
  picture.Blend({1, 0, 2, 3}, 2, second.data());
  // Pass 2 weighs the new sample by 1/2: red (0.25 + 0.75) / 2; column 1,
  // row 1 is sample 4: green 0.5 / 2.
  EXPECT_FLOAT_EQ(picture.Mean(2, 1).x, 0.5f);
  EXPECT_FLOAT_EQ(picture.Mean(2, 1).y, 0.25f);
  EXPECT_FLOAT_EQ(picture.Mean(1, 2).y, 0.125f);  // sample 2
  // Blue 0, green 0.25 x 255 = 63, red 0.5 x 255 = 127 by truncation, alpha 255.
  EXPECT_EQ(picture.Pixel(2, 1), 0xFF7F3F00u);
  EXPECT_FLOAT_EQ(picture.Mean(0, 0).x, 0.0f) << "outside the tile";
}

}  // namespace
