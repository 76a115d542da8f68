// What the coordinator of a render farm deals out: the tiles of a picture,
// pass after pass, to render processes that ask for them, and what it does
// when one of them is lost. No messages here, only the bookkeeping, so that
// it can be reasoned about (and tested) without a cluster.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <vector>

// A rectangle of the picture in pixels; right and bottom edges are cut at
// the picture's.
struct FarmTile {
  uint32_t x, y, width, height;
};

// The tiles of `size` pixels that cover a picture, in the order in which a
// single process traces its blocks: from the middle outward. A render
// process's engine cuts the edge tiles the same way.
std::vector<FarmTile> FarmTiles(uint32_t width, uint32_t height, uint32_t size);

// Tiles are dealt for at most two passes at a time: the oldest one that is
// not complete, and the next, so that no render process waits for the last
// tiles of a pass. Results of the newer pass are held back by the caller
// until the older one is complete and saved.
class TileDealer {
 public:
  enum class Answer {
    Deal,      // `tile` of `pass` (a tile request) or `pass` (a pass request)
    Nothing,   // nothing more in the pass asked about: go on with another
    Wait,      // nothing now, but maybe later: ask again when things change
    Finished,  // the picture is done (or stopped): nothing more at all
  };
  struct Deal {
    Answer answer = Answer::Wait;
    uint32_t tile = 0, pass = 0;
  };

  // Passes are numbered from 1; `lastPass` is 1 for ray tracing.
  TileDealer(size_t tileCount, uint32_t lastPass);

  // The pass a render process should trace next: the oldest one with tiles
  // left to deal.
  Deal NextPass() const;
  // A tile of `pass` for render process `rank`. Nothing when the pass has
  // no tile left to deal and another pass has; Wait when no pass has, until
  // the pass is complete or a lost process's tiles come back.
  Deal NextTile(int rank, uint32_t pass);
  // The samples of `tile` in `pass` arrived. False when they are not wanted:
  // an unknown tile, a pass that is not being dealt, or a second copy.
  bool Receive(uint32_t tile, uint32_t pass);
  // Every tile that `rank` was given and did not return goes back to the
  // front of its pass, to be dealt again first.
  void Lose(int rank);
  // Ctrl-C: nothing more is dealt; the pass in progress is never complete.
  void Stop();
  // The time is up: the pass in progress is the last one.
  void LimitReached();

  // All passes up to this one have every tile.
  uint32_t CompletePasses() const { return complete; }
  uint32_t LastPass() const { return lastPass; }
  bool Finished() const { return complete >= lastPass; }
  size_t TileCount() const { return tileCount; }
  // Tiles dealt to `rank` and not yet returned.
  size_t Outstanding(int rank) const;

 private:
  struct PassState {
    std::deque<uint32_t> toDeal;
    std::map<uint32_t, int> outstanding;  // tile -> rank
    std::vector<bool> received;
    size_t receivedCount = 0;
  };
  // The newest pass that may be dealt now.
  uint32_t OpenLimit() const;
  PassState& Open(uint32_t pass);
  bool HasTilesToDeal(uint32_t pass) const;

  size_t tileCount;
  uint32_t lastPass;
  uint32_t complete = 0;
  std::map<uint32_t, PassState> passes;
};
