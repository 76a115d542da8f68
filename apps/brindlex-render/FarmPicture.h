// The whole picture of a render farm on its coordinator: the running mean
// of all passes and its 8-bit form, blended from the tiles that the render
// processes send exactly as a single engine blends its blocks, and saved as
// the engine saves its render to file.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "FarmTiles.h"
#include "host/RenderOptions.h"
#include "host/SceneRecords.h"

namespace Gdiplus {
class Bitmap;
}

class FarmPicture {
 public:
  // `options` steers the tone map; `keepAlpha` is the render to file's
  // transparent background.
  FarmPicture(uint32_t width, uint32_t height, const MODE_RENDER_OPTIONS& options, bool keepAlpha);
  ~FarmPicture();
  FarmPicture(const FarmPicture&) = delete;
  FarmPicture& operator=(const FarmPicture&) = delete;

  // False when there was no memory for a picture of this size.
  bool Valid() const;
  // Blends the samples of `tile` in pass `pass` into the running mean and
  // writes its pixels. The samples run down each column of the tile, then
  // on to the next column, as the engine hands them over.
  void Blend(const FarmTile& tile, uint64_t pass, const SCENE_VERTEX_XYZW* samples);
  // Writes the picture; 0 when saved, else the engine's status of a render
  // to file (1: not written, 2: no memory).
  int Save(const std::string& name);

  const SCENE_VERTEX_XYZW& Mean(uint32_t x, uint32_t y) const { return mean[size_t(y) * width + x]; }
  // Blue, green, red and alpha of pixel (x, y).
  uint32_t Pixel(uint32_t x, uint32_t y);

 private:
  uint32_t width, height;
  MODE_RENDER_OPTIONS options;
  bool keepAlpha;
  std::vector<SCENE_VERTEX_XYZW> mean;
  std::unique_ptr<Gdiplus::Bitmap> bitmap;
};
