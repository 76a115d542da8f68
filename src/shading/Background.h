// What a ray that hits nothing shows: the background colour or picture,
// with fog and mist on camera rays.
#pragma once

#include <cstdint>
#include <vector>

#include "pipeline/PixelRays.h"
#include "host/SceneRecords.h"

class ENVIRONMENT_3D_VIEW;
class MODE_RENDER_OPTIONS;
class RT_RENDER_ENGINE;
struct SWTexture;

// The background picture is row `row` of `textures`, sampled through
// `engine`; a row out of range or without an image means none.
struct BackgroundPicture {
  const RT_RENDER_ENGINE& engine;
  const std::vector<SWTexture*>& textures;
  uint32_t row;

  // The picture at the sample's pixel into `color`: fixed to the screen, or
  // a panorama turning with the camera. False when the options, the picture
  // or the camera do not allow one.
  bool Sample(ENVIRONMENT_3D_VIEW* view, const MODE_RENDER_OPTIONS& options, const PixelRaySample& sample,
              SCENE_VERTEX_XYZW& color) const;
  // The picture, else the background colour, at the sample's pixel; fog
  // and mist at `farDistance` when `depth` is 0. The caller sets alpha.
  SCENE_VERTEX_XYZW MissColor(ENVIRONMENT_3D_VIEW* view, const MODE_RENDER_OPTIONS& options,
                              const PixelRaySample& sample, uint32_t depth, float farDistance) const;
  // Every sample of a missed group takes the first one's background, alpha 0.
  void ShadeMiss(ENVIRONMENT_3D_VIEW* view, const MODE_RENDER_OPTIONS& options,
                 PixelRaySample* const* samples, uint32_t count, uint32_t depth, float farDistance) const;
};
