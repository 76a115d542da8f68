#include "shadows/SWShadowMap.h"

#include <algorithm>
#include <new>

namespace {
// Allocates `count` zeroed pixels; null for a count below 1 or no memory.
SW_PIXEL_G64R64F* AllocatePixels(int64_t count) {
  if (count < 1) return nullptr;
  return new (std::nothrow) SW_PIXEL_G64R64F[static_cast<size_t>(count)]();
}

SW_PIXEL_G64R64F* CopyPixels(const SW_PIXEL_G64R64F* source, int64_t count) {
  SW_PIXEL_G64R64F* pixels = source ? AllocatePixels(count) : nullptr;
  if (pixels) std::copy(source, source + count, pixels);
  return pixels;
}
}  // namespace

SWShadowMap::SWShadowMap(int32_t w, int32_t h) {
  if (w >= 1 && h >= 1) pixels = AllocatePixels(int64_t(w) * h);
  if (pixels) width = w, height = h;
}

SWShadowMap::SWShadowMap(const SWShadowMap& other) {
  *this = other;
}

SWShadowMap& SWShadowMap::operator=(const SWShadowMap& other) {
  if (this == &other) return *this;
  delete[] pixels;
  pixels = CopyPixels(other.pixels, int64_t(other.width) * other.height);
  width = pixels ? other.width : 0;
  height = pixels ? other.height : 0;
  return *this;
}

SWCubeShadowMap::SWCubeShadowMap(int32_t w, int32_t h, int32_t f) {
  if (w >= 1 && h >= 1 && f >= 1) pixels = AllocatePixels(int64_t(w) * h * f);
  if (pixels) width = w, height = h, faces = f;
}

SWCubeShadowMap::SWCubeShadowMap(const SWCubeShadowMap& other) {
  *this = other;
}

SWCubeShadowMap& SWCubeShadowMap::operator=(const SWCubeShadowMap& other) {
  if (this == &other) return *this;
  delete[] pixels;
  pixels = CopyPixels(other.pixels, int64_t(other.width) * other.height * other.faces);
  width = pixels ? other.width : 0;
  height = pixels ? other.height : 0;
  faces = pixels ? other.faces : 0;
  return *this;
}
