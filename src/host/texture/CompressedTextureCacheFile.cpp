// Cache files of block-compressed pyramids. Layout, all numbers unsigned
// 32-bit little-endian:
//
//   offset  size  field
//        0     4  magic "BXCT"
//        4     4  layout version, 1
//        8     4  block kind: 1 for BC1 (8-byte blocks), 2 for BC2 (16-byte)
//       12     8  last-write time of the source picture: low, then high half
//       20     4  level count n, 1 to 32
//       24    8n  width and height of each level, level 0 first
//        …        the blocks of level 0, then of level 1, and so on: for a
//                 level of w x h texels, ceil(h / 4) rows of ceil(w / 4)
//                 blocks, each block as SW_BC_TEXTURE describes it
//      end     8  FNV-1a 64-bit hash of every byte before it
//
// Level 0 is at most 8192 texels on a side, and each next level is half the
// one before it, in integers, with 1 for a side that would become 0. A file
// whose size, hash or sizes disagree with this is refused, so a cut or
// damaged file is a miss, never a wrong texture.
#include <cstdio>
#include <cstring>
#include <new>
#include <vector>

#include "host/BrindlexTexture.h"
#include "platform/Gdi.h"
#include "host/texture/PictureCodecs.h"

namespace {

constexpr uint8_t Magic[4] = {'B', 'X', 'C', 'T'};
constexpr uint32_t Version = 1;
constexpr uint32_t Bc1 = 1, kBc2 = 2;
constexpr uint32_t MaxLevels = 32;
constexpr uint32_t MaxSide = 8192;
constexpr size_t HeaderBytes = 24;
constexpr size_t HashBytes = 8;

uint32_t BlockBytes(uint32_t kind) {
  return kind == Bc1 ? 8 : 16;
}

uint64_t BlocksOf(uint32_t width, uint32_t height) {
  return uint64_t{(width + 3) / 4} * ((height + 3) / 4);
}

uint64_t Fnv1a(const uint8_t* data, size_t size) {
  uint64_t hash = 0xcbf29ce484222325;
  for (size_t i = 0; i < size; ++i) hash = (hash ^ data[i]) * 0x100000001b3;
  return hash;
}

uint32_t GetU32(const uint8_t* p) {
  return uint32_t{p[0]} | uint32_t{p[1]} << 8 | uint32_t{p[2]} << 16 | uint32_t{p[3]} << 24;
}

void PutU32(std::vector<uint8_t>& out, uint32_t v) {
  for (int i = 0; i < 4; ++i) out.push_back(static_cast<uint8_t>(v >> (8 * i)));
}

void PutU64(std::vector<uint8_t>& out, uint64_t v) {
  PutU32(out, static_cast<uint32_t>(v));
  PutU32(out, static_cast<uint32_t>(v >> 32));
}

// True when the sizes form a pyramid that the cache may hold.
bool ValidSizes(const uint32_t (*sizes)[2], uint32_t levelCount) {
  if (levelCount == 0 || levelCount > MaxLevels) return false;
  if (sizes[0][0] == 0 || sizes[0][1] == 0 || sizes[0][0] > MaxSide || sizes[0][1] > MaxSide) return false;
  for (uint32_t i = 1; i < levelCount; ++i)
    for (int side = 0; side < 2; ++side) {
      const uint32_t half = sizes[i - 1][side] / 2;
      if (sizes[i][side] != (half == 0 ? 1 : half)) return false;
    }
  return true;
}

// Allocates the levels and copies their blocks from `blocks`; null when
// memory is short.
SW_BC_TEXTURE* RestoreLevels(const uint32_t (*sizes)[2], uint32_t levelCount, uint32_t kind,
                             const uint8_t* blocks) {
  SW_BC_TEXTURE* levels = new (std::nothrow) SW_BC_TEXTURE[levelCount]();
  if (!levels) return nullptr;
  for (uint32_t i = 0; i < levelCount; ++i) {
    SW_BC_TEXTURE& level = levels[i];
    level.width = sizes[i][0];
    level.height = sizes[i][1];
    level.blocksPerRow = (level.width + 3) / 4;
    const size_t count = static_cast<size_t>(BlocksOf(level.width, level.height));
    void* target = nullptr;
    if (kind == Bc1)
      target = level.bc1Blocks = new (std::nothrow) uint8_t[count][8];
    else
      target = level.bc2Blocks = new (std::nothrow) uint8_t[count][16];
    if (!target) {
      DeleteCompressedTextureArray(levels, levelCount);
      return nullptr;
    }
    const size_t bytes = count * BlockBytes(kind);
    std::memcpy(target, blocks, bytes);
    blocks += bytes;
  }
  return levels;
}

}  // namespace

bool ReadCompressedTextureArrayFile(const char* file, const FILETIME* sourceTime, SW_BC_TEXTURE** levels,
                                    unsigned int* levelCount) {
  if (!file || !sourceTime || !levels || !levelCount) return false;
  std::vector<uint8_t> contents;
  // No valid file reaches 1 GiB: 8192 x 8192 texels of BC2 are 64 MiB.
  if (!picture::ReadWholeFile(file, contents, HeaderBytes + HashBytes, uint64_t{1} << 30)) return false;
  const uint8_t* p = contents.data();
  const size_t hashAt = contents.size() - HashBytes;
  const uint64_t storedHash = uint64_t{GetU32(p + hashAt)} | uint64_t{GetU32(p + hashAt + 4)} << 32;
  if (std::memcmp(p, Magic, 4) != 0 || GetU32(p + 4) != Version || Fnv1a(p, hashAt) != storedHash)
    return false;
  const uint32_t kind = GetU32(p + 8);
  if (kind != Bc1 && kind != kBc2) return false;
  if (GetU32(p + 12) != sourceTime->dwLowDateTime || GetU32(p + 16) != sourceTime->dwHighDateTime)
    return false;

  const uint32_t count = GetU32(p + 20);
  if (count == 0 || count > MaxLevels || hashAt < HeaderBytes + size_t{8} * count) return false;
  uint32_t sizes[MaxLevels][2];
  uint64_t blockBytes = 0;
  for (uint32_t i = 0; i < count; ++i) {
    sizes[i][0] = GetU32(p + HeaderBytes + 8 * i);
    sizes[i][1] = GetU32(p + HeaderBytes + 8 * i + 4);
  }
  if (!ValidSizes(sizes, count)) return false;
  for (uint32_t i = 0; i < count; ++i) blockBytes += BlocksOf(sizes[i][0], sizes[i][1]) * BlockBytes(kind);
  const size_t blocksAt = HeaderBytes + size_t{8} * count;
  if (hashAt - blocksAt != blockBytes) return false;

  SW_BC_TEXTURE* restored = RestoreLevels(sizes, count, kind, p + blocksAt);
  if (!restored) return false;
  *levels = restored;
  *levelCount = count;
  return true;
}

bool WriteCompressedTextureArrayFile(const char* file, const FILETIME* sourceTime,
                                     const SW_BC_TEXTURE* levels, unsigned int levelCount) {
  if (!file || !sourceTime || !levels || levelCount == 0 || levelCount > MaxLevels) return false;
  const uint32_t kind = levels[0].bc2Blocks ? kBc2 : Bc1;
  uint32_t sizes[MaxLevels][2];
  for (uint32_t i = 0; i < levelCount; ++i) {
    const SW_BC_TEXTURE level = levels[i];
    const bool kindMatches = kind == kBc2 ? level.bc2Blocks != nullptr : level.bc1Blocks != nullptr;
    if (!kindMatches || level.blocksPerRow != (level.width + 3) / 4) return false;
    sizes[i][0] = level.width;
    sizes[i][1] = level.height;
  }
  if (!ValidSizes(sizes, levelCount)) return false;

  std::vector<uint8_t> out(Magic, Magic + 4);
  PutU32(out, Version);
  PutU32(out, kind);
  PutU32(out, sourceTime->dwLowDateTime);
  PutU32(out, sourceTime->dwHighDateTime);
  PutU32(out, levelCount);
  for (uint32_t i = 0; i < levelCount; ++i) PutU32(out, sizes[i][0]), PutU32(out, sizes[i][1]);
  for (uint32_t i = 0; i < levelCount; ++i) {
    const SW_BC_TEXTURE level = levels[i];
    const uint8_t* blocks = kind == kBc2 ? *level.bc2Blocks : *level.bc1Blocks;
    out.insert(out.end(), blocks, blocks + BlocksOf(level.width, level.height) * BlockBytes(kind));
  }
  PutU64(out, Fnv1a(out.data(), out.size()));

  return platform::WriteFileThroughTemporary(file, false, [&out](const char* temporary) {
    std::FILE* f = std::fopen(temporary, "wb");
    if (!f) return false;
    const bool written = std::fwrite(out.data(), 1, out.size(), f) == out.size();
    return std::fclose(f) == 0 && written;
  });
}

void DeleteCompressedTextureArray(SW_BC_TEXTURE* levels, unsigned int levelCount) {
  if (!levels) return;
  for (unsigned int i = 0; i < levelCount; ++i) {
    delete[] levels[i].bc1Blocks;
    delete[] levels[i].bc2Blocks;
  }
  delete[] levels;
}
