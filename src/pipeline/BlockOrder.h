// The order in which the blocks of a picture are traced: from the middle
// outward, ring by ring, since the middle is where the eye looks first.
#pragma once

#include <cstdint>
#include <vector>

struct BlockCoordinate {
  uint32_t column, row;
};

// Every block of a grid `blocksX` wide and `blocksY` high, once each: the
// centre block, then each square ring around it clockwise from its top left
// corner (rows count downward), without the blocks outside the grid.
std::vector<BlockCoordinate> BlocksFromTheMiddle(uint32_t blocksX, uint32_t blocksY);
