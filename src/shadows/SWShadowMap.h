// Variance shadow maps: each pixel holds a depth and its square.
#pragma once

#include <cstdint>

#pragma pack(push, 1)
struct SW_PIXEL_G64R64F {
  double depthSquared = 0.0;
  double depth = 0.0;
};
#pragma pack(pop)

// A flat map: pixel (x, y) is pixels[y * width + x].
struct SWShadowMap {
  SW_PIXEL_G64R64F* pixels = nullptr;
  int32_t width = 0;
  int32_t height = 0;

  SWShadowMap() = default;
  SWShadowMap(int32_t width, int32_t height);
  ~SWShadowMap() { delete[] pixels; }
  SWShadowMap(const SWShadowMap& other);
  SWShadowMap& operator=(const SWShadowMap& other);
};

// Six faces: pixel (x, y) of face f is pixels[f * width * height + y * width + x].
struct SWCubeShadowMap {
  SW_PIXEL_G64R64F* pixels = nullptr;
  int32_t width = 0;
  int32_t height = 0;
  int32_t faces = 0;

  SWCubeShadowMap() = default;
  SWCubeShadowMap(int32_t width, int32_t height, int32_t faces);
  ~SWCubeShadowMap() { delete[] pixels; }
  SWCubeShadowMap(const SWCubeShadowMap& other);
  SWCubeShadowMap& operator=(const SWCubeShadowMap& other);
};

// Posted to the render-to-file progress bar while a scene update draws
// shadow maps, so that a host can show that phase too. The light message
// starts a light's map: wParam the number of tiles it takes (rays and
// filter), lParam the light's number. The tile message follows each tile
// that is done.
constexpr unsigned int RT_SHADOW_MAP_LIGHT_MESSAGE = 0x0480;
constexpr unsigned int RT_SHADOW_MAP_TILE_MESSAGE = 0x0481;
