// One row of the texture table: a mip pyramid, level 0 the largest, held
// either as images or as block-compressed levels from the texture cache.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

class Brindlex_CImage;
struct SW_BC_TEXTURE;

struct SWTexture {
  std::string name;  // the full path it was loaded for
  uint32_t levelCount = 0;
  Brindlex_CImage* levels = nullptr;          // array of levelCount, or null
  SW_BC_TEXTURE* compressedLevels = nullptr;  // array of levelCount, or null

  SWTexture() = default;
  ~SWTexture();
  SWTexture(const SWTexture&) = delete;
  SWTexture& operator=(const SWTexture&) = delete;

  // Deletes both pyramids; the name stays.
  void Clear();
  bool HasImage() const { return levelCount != 0 && (levels || compressedLevels); }
};

// The record of row `slot` of `textures`, made if the row is null; null for
// a slot out of range or when memory is short.
SWTexture* TextureRecordForLoad(std::vector<SWTexture*>& textures, unsigned int slot);
