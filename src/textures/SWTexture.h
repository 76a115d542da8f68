// One row of the texture table: a mip pyramid, level 0 the largest.
#pragma once

#include <cstdint>
#include <string>

class Brindlex_CImage;

struct SWTexture {
  std::string name;  // the full path it was loaded for
  uint32_t levelCount = 0;
  Brindlex_CImage* levels = nullptr;  // array of levelCount, or null

  SWTexture() = default;
  ~SWTexture();
  SWTexture(const SWTexture&) = delete;
  SWTexture& operator=(const SWTexture&) = delete;
};
