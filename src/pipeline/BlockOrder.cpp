#include "pipeline/BlockOrder.h"

#include <cstddef>
#include <utility>

namespace {
// The middle block of a row of `count`; of an even count the one left of
// the middle.
int64_t CentreOf(uint32_t count) {
  const int64_t centre = static_cast<int64_t>(count / 2.0);
  return count % 2 == 0 ? centre - 1 : centre;
}

class BlockList {
 public:
  BlockList(uint32_t blocksX, uint32_t blocksY) : blocksX(blocksX), blocksY(blocksY) {
    blocks.reserve(static_cast<size_t>(blocksX) * blocksY);
  }
  void Add(int64_t column, int64_t row) {
    if (column >= 0 && row >= 0 && column < blocksX && row < blocksY)
      blocks.push_back({static_cast<uint32_t>(column), static_cast<uint32_t>(row)});
  }
  size_t Size() const { return blocks.size(); }
  std::vector<BlockCoordinate> Take() { return std::move(blocks); }

 private:
  int64_t blocksX, blocksY;
  std::vector<BlockCoordinate> blocks;
};
}  // namespace

std::vector<BlockCoordinate> BlocksFromTheMiddle(uint32_t blocksX, uint32_t blocksY) {
  const size_t total = static_cast<size_t>(blocksX) * blocksY;
  BlockList list(blocksX, blocksY);
  if (total == 0) return list.Take();
  const int64_t cx = CentreOf(blocksX), cy = CentreOf(blocksY);
  list.Add(cx, cy);
  for (int64_t r = 1; list.Size() < total; ++r) {
    if (cy - r >= 0)
      for (int64_t c = cx - r; c <= cx + r; ++c) list.Add(c, cy - r);
    if (cx + r < blocksX)
      for (int64_t row = cy - r + 1; row < cy + r; ++row) list.Add(cx + r, row);
    if (cy + r < blocksY)
      for (int64_t c = cx + r; c >= cx - r; --c) list.Add(c, cy + r);
    if (cx - r >= 0)
      for (int64_t row = cy + r - 1; row > cy - r; --row) list.Add(cx - r, row);
  }
  return list.Take();
}
