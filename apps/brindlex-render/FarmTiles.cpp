#include "FarmTiles.h"

#include <algorithm>

#include "pipeline/BlockOrder.h"

std::vector<FarmTile> FarmTiles(uint32_t width, uint32_t height, uint32_t size) {
  std::vector<FarmTile> tiles;
  if (width == 0 || height == 0 || size == 0) return tiles;
  const uint32_t columns = (width + size - 1) / size, rows = (height + size - 1) / size;
  for (const BlockCoordinate& block : BlocksFromTheMiddle(columns, rows)) {
    const uint32_t x = block.column * size, y = block.row * size;
    tiles.push_back({x, y, std::min(size, width - x), std::min(size, height - y)});
  }
  return tiles;
}

TileDealer::TileDealer(size_t tileCount, uint32_t lastPass) : tileCount(tileCount), lastPass(lastPass) {
  // A picture without tiles has nothing to wait for.
  if (tileCount == 0) complete = lastPass;
}

uint32_t TileDealer::OpenLimit() const {
  return std::min(lastPass, complete + 2);
}

TileDealer::PassState& TileDealer::Open(uint32_t pass) {
  auto [entry, added] = passes.try_emplace(pass);
  if (added) {
    for (uint32_t tile = 0; tile < tileCount; ++tile) entry->second.toDeal.push_back(tile);
    entry->second.received.assign(tileCount, false);
  }
  return entry->second;
}

bool TileDealer::HasTilesToDeal(uint32_t pass) const {
  const auto entry = passes.find(pass);
  // A pass not opened yet still has all its tiles.
  return entry == passes.end() || !entry->second.toDeal.empty();
}

TileDealer::Deal TileDealer::NextPass() const {
  if (Finished()) return {Answer::Finished};
  for (uint32_t pass = complete + 1; pass <= OpenLimit(); ++pass)
    if (HasTilesToDeal(pass)) return {Answer::Deal, 0, pass};
  return {Answer::Wait};
}

TileDealer::Deal TileDealer::NextTile(int rank, uint32_t pass) {
  if (Finished()) return {Answer::Finished};
  if (pass <= complete || pass > OpenLimit()) return {Answer::Nothing};
  PassState& state = Open(pass);
  if (!state.toDeal.empty()) {
    const uint32_t tile = state.toDeal.front();
    state.toDeal.pop_front();
    state.outstanding[tile] = rank;
    return {Answer::Deal, tile, pass};
  }
  for (uint32_t other = complete + 1; other <= OpenLimit(); ++other)
    if (other != pass && HasTilesToDeal(other)) return {Answer::Nothing};
  return {Answer::Wait};
}

bool TileDealer::Receive(uint32_t tile, uint32_t pass) {
  if (tile >= tileCount || pass <= complete || pass > OpenLimit()) return false;
  const auto entry = passes.find(pass);
  if (entry == passes.end()) return false;
  PassState& state = entry->second;
  // Only a tile that is out can come back: a lost process's tiles are back
  // on the deck, and whatever it still sends is not taken.
  if (state.received[tile] || !state.outstanding.erase(tile)) return false;
  state.received[tile] = true;
  ++state.receivedCount;
  while (complete < lastPass) {
    const auto next = passes.find(complete + 1);
    if (next == passes.end() || next->second.receivedCount < tileCount) break;
    passes.erase(next);
    ++complete;
  }
  return true;
}

void TileDealer::Lose(int rank) {
  for (auto& [pass, state] : passes) {
    std::vector<uint32_t> lost;
    for (const auto& [tile, owner] : state.outstanding)
      if (owner == rank) lost.push_back(tile);
    // Back to the front, in their old order, so that they are dealt first.
    for (auto tile = lost.rbegin(); tile != lost.rend(); ++tile) {
      state.outstanding.erase(*tile);
      state.toDeal.push_front(*tile);
    }
  }
}

void TileDealer::Stop() {
  lastPass = complete;
  passes.clear();
}

void TileDealer::LimitReached() {
  lastPass = std::min(lastPass, complete + 1);
  passes.erase(passes.upper_bound(lastPass), passes.end());
}

size_t TileDealer::Outstanding(int rank) const {
  size_t count = 0;
  for (const auto& [pass, state] : passes)
    for (const auto& [tile, owner] : state.outstanding) count += owner == rank;
  return count;
}
