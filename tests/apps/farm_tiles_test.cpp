// The coordinator's bookkeeping of a render farm: which tile goes where,
// pass by pass, and how the picture is blended from what comes back.
#include <gtest/gtest.h>

#include <vector>

#include "FarmPicture.h"
#include "FarmTiles.h"

namespace {
using Answer = TileDealer::Answer;

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
  const std::vector<FarmTile> row = FarmTiles(33, 1, 32);
  ASSERT_EQ(row.size(), 2u);
  EXPECT_EQ(row[0].width, 32u);
  EXPECT_EQ(row[1].x, 32u);
  EXPECT_EQ(row[1].width, 1u);
  EXPECT_TRUE(FarmTiles(0, 10, 32).empty());
}

TEST(TileDealer, RayTracingDealsEveryTileOnceAndWaitsForTheLast) {
  TileDealer dealer(3, 1);
  EXPECT_EQ(dealer.NextPass().answer, Answer::Deal);
  EXPECT_EQ(dealer.NextPass().pass, 1u);
  std::vector<uint32_t> dealt;
  for (int rank : {1, 2, 1}) {
    const TileDealer::Deal deal = dealer.NextTile(rank, 1);
    ASSERT_EQ(deal.answer, Answer::Deal);
    dealt.push_back(deal.tile);
  }
  EXPECT_EQ(dealt, (std::vector<uint32_t>{0, 1, 2}));
  // One pass only: the last tiles may still come back to be dealt again.
  EXPECT_EQ(dealer.NextTile(2, 1).answer, Answer::Wait);
  EXPECT_EQ(dealer.NextPass().answer, Answer::Wait);
  EXPECT_EQ(dealer.Outstanding(1), 2u);
  EXPECT_TRUE(dealer.Receive(1, 1));
  EXPECT_FALSE(dealer.Receive(1, 1)) << "a second copy";
  EXPECT_FALSE(dealer.Receive(7, 1)) << "no such tile";
  EXPECT_FALSE(dealer.Receive(0, 2)) << "no such pass";
  EXPECT_TRUE(dealer.Receive(0, 1));
  EXPECT_FALSE(dealer.Finished());
  EXPECT_TRUE(dealer.Receive(2, 1));
  EXPECT_TRUE(dealer.Finished());
  EXPECT_EQ(dealer.CompletePasses(), 1u);
  EXPECT_EQ(dealer.NextTile(1, 1).answer, Answer::Finished);
  EXPECT_EQ(dealer.NextPass().answer, Answer::Finished);
}

TEST(TileDealer, ALostRanksTilesAreDealtAgainFirst) {
  TileDealer dealer(4, 1);
  ASSERT_EQ(dealer.NextTile(1, 1).tile, 0u);
  ASSERT_EQ(dealer.NextTile(2, 1).tile, 1u);
  ASSERT_EQ(dealer.NextTile(1, 1).tile, 2u);
  dealer.Lose(1);
  EXPECT_EQ(dealer.Outstanding(1), 0u);
  EXPECT_FALSE(dealer.Receive(0, 1)) << "the lost rank's late samples";
  EXPECT_EQ(dealer.NextTile(2, 1).tile, 0u);
  EXPECT_EQ(dealer.NextTile(2, 1).tile, 2u);
  EXPECT_EQ(dealer.NextTile(2, 1).tile, 3u);
  for (uint32_t tile : {0u, 1u, 2u, 3u}) EXPECT_TRUE(dealer.Receive(tile, 1));
  EXPECT_TRUE(dealer.Finished());
}

TEST(TileDealer, PathTracingDealsTwoPassesAtMostAndStopsOnTime) {
  TileDealer dealer(2, 5);
  for (uint32_t tile : {0u, 1u}) EXPECT_EQ(dealer.NextTile(1, 1).tile, tile);
  // Pass 1 is dealt: a rank asking for it moves on to pass 2.
  EXPECT_EQ(dealer.NextTile(2, 1).answer, Answer::Nothing);
  EXPECT_EQ(dealer.NextPass().pass, 2u);
  for (uint32_t tile : {0u, 1u}) EXPECT_EQ(dealer.NextTile(2, 2).tile, tile);
  // Pass 3 waits until pass 1 is complete.
  EXPECT_EQ(dealer.NextPass().answer, Answer::Wait);
  EXPECT_EQ(dealer.NextTile(2, 3).answer, Answer::Nothing);
  EXPECT_TRUE(dealer.Receive(0, 2));
  EXPECT_TRUE(dealer.Receive(1, 2));
  EXPECT_EQ(dealer.CompletePasses(), 0u) << "pass 2 is in, pass 1 is not";
  EXPECT_TRUE(dealer.Receive(0, 1));
  EXPECT_TRUE(dealer.Receive(1, 1));
  EXPECT_EQ(dealer.CompletePasses(), 2u);
  EXPECT_EQ(dealer.NextPass().pass, 3u);
  EXPECT_EQ(dealer.NextTile(1, 3).tile, 0u);
  EXPECT_EQ(dealer.NextTile(1, 4).tile, 0u);
  // The limit comes during pass 3: pass 3 is finished, pass 4 is not.
  dealer.LimitReached();
  EXPECT_EQ(dealer.LastPass(), 3u);
  EXPECT_FALSE(dealer.Receive(0, 4));
  EXPECT_EQ(dealer.NextTile(2, 4).answer, Answer::Nothing);
  EXPECT_EQ(dealer.NextTile(2, 3).tile, 1u);
  EXPECT_TRUE(dealer.Receive(0, 3));
  EXPECT_TRUE(dealer.Receive(1, 3));
  EXPECT_TRUE(dealer.Finished());
  EXPECT_EQ(dealer.CompletePasses(), 3u);
}

TEST(TileDealer, StopLeavesThePassInProgressIncomplete) {
  TileDealer dealer(2, 10);
  dealer.NextTile(1, 1);
  dealer.Stop();
  EXPECT_TRUE(dealer.Finished());
  EXPECT_EQ(dealer.CompletePasses(), 0u);
  EXPECT_FALSE(dealer.Receive(0, 1));
  EXPECT_EQ(dealer.NextPass().answer, Answer::Finished);
}

TEST(FarmPicture, BlendsColumnByColumnIntoTheRunningMean) {
  MODE_RENDER_OPTIONS options;
  options.SetCustomLighting(false);  // no tone map: bytes are value x 255, truncated
  FarmPicture picture(4, 3, options, false);
  ASSERT_TRUE(picture.Valid());
  // A tile of 2 x 3 at (1, 0): sample k lies in column k / 3, row k % 3.
  const FarmTile tile = {1, 0, 2, 3};
  std::vector<SCENE_VERTEX_XYZW> first(6), second(6);
  for (int k = 0; k < 6; ++k) {
    first[k] = {0.25f, 0.0f, 0.0f, 1.0f};
    second[k] = {0.75f, 0.125f * float(k), 0.0f, 1.0f};
  }
  picture.Blend(tile, 1, first.data());
  EXPECT_FLOAT_EQ(picture.Mean(1, 0).x, 0.25f);
  picture.Blend(tile, 2, second.data());
  // Pass 2 weighs the new sample by 1/2: red (0.25 + 0.75) / 2.
  EXPECT_FLOAT_EQ(picture.Mean(2, 1).x, 0.5f);
  // Column 1, row 1 is sample 4: green 0.5 / 2.
  EXPECT_FLOAT_EQ(picture.Mean(2, 1).y, 0.25f);
  EXPECT_FLOAT_EQ(picture.Mean(1, 2).y, 0.125f);  // sample 2
  // Blue 0, green 0.25 x 255 = 63, red 0.5 x 255 = 127 by truncation, alpha 255.
  EXPECT_EQ(picture.Pixel(2, 1), 0xFF7F3F00u);
  EXPECT_FLOAT_EQ(picture.Mean(0, 0).x, 0.0f) << "outside the tile";
}

}  // namespace
