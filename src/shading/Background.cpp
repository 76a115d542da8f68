// What a ray that hits nothing shows: a plain colour, a picture fixed to
// the screen, or a panorama that turns with the camera; then fog and mist.
#include "shading/Background.h"

#include <cmath>
#include <numbers>

#include "host/BrindlexViewMath.h"
#include "host/BrindlexViewModel.h"
#include "engine/BrindlexViewRTRenderEngine.h"
#include "shading/FogAndMist.h"
#include "shading/HitGeometry.h"
#include "textures/SWTexture.h"
#include "shading/ShadingLevels.h"

namespace {
// The screen shows one sixth of a panorama's width.
constexpr float PanoramaScaleU = 0.16666667f;

// The camera's heading in percent of a full turn, from the +x axis; the
// length of the view vector includes its pitch.
double PanoramaTurn(const SCENE_CAMERA_INFO& camera) {
  const SCENE_VERTEX_XYZ position = camera.eye, target = camera.lookAt;
  const SCENE_VERTEX_XYZ view = {target.x - position.x, target.y - position.y, target.z - position.z};
  const float length = Magnitude(&view);
  // A camera whose target is its own position has no heading; it keeps the
  // panorama where a camera looking along +x would.
  if (!(length > 0.0f)) return 0.0;
  float angle = static_cast<float>(acosf(view.x / length) * 180.0f / std::numbers::pi);
  if (view.y > 0) angle = -angle;
  return angle / 3.6;
}

const SCENE_CAMERA_INFO* ViewCamera(ENVIRONMENT_3D_VIEW* view) {
  VIEW_FILE_STATE* state = view ? view->GetViewFileState() : nullptr;
  return state ? state->GetCameraInfo() : nullptr;
}
}  // namespace

bool BackgroundPicture::Sample(ENVIRONMENT_3D_VIEW* view, const MODE_RENDER_OPTIONS& options,
                               const PixelRaySample& sample, SCENE_VERTEX_XYZW& color) const {
  if (!options.UseBackgroundTexture()) return false;
  if (row >= textures.size() || !textures[row] || !textures[row]->HasImage()) return false;
  const SCENE_CAMERA_INFO* camera = ViewCamera(view);
  if (!camera) return false;

  const float scaleV = 1.0f;
  float scaleU = 1.0f;
  float offsetU = static_cast<float>(-options.GetBackgroundImageXOffset() / 100.0);
  const float offsetV = static_cast<float>(-options.GetBackgroundImageYOffset() / 100.0);
  if (options.IsBackgroundTexturePanoramic()) {
    scaleU = PanoramaScaleU;
    offsetU = static_cast<float>(-(options.GetBackgroundImageXOffset() + PanoramaTurn(*camera)) / 100.0);
  }
  // The picture's v runs up from the bottom of the view.
  float u = static_cast<float>(sample.pixelX / sample.viewWidth);
  float v = static_cast<float>((sample.viewHeight - sample.pixelY) / sample.viewHeight);
  u = u * scaleU + offsetU;
  v = v * scaleV + offsetV;
  engine.SampleSWTexture(row, u, v, 0.0f, 0.0f, 0.0f, 0.0f, color);
  return true;
}

SCENE_VERTEX_XYZW BackgroundPicture::MissColor(ENVIRONMENT_3D_VIEW* view, const MODE_RENDER_OPTIONS& options,
                                               const PixelRaySample& sample, uint32_t depth,
                                               float farDistance) const {
  SCENE_VERTEX_XYZW color = sample.color;
  if (!Sample(view, options, sample, color)) {
    const SCENE_VERTEX_XYZ background = ColorFromRGB(options.GetBackgroundColor());
    color = {background.x, background.y, background.z, color.w};
  }
  if (depth == 0) {
    ApplyMissFog(options, color);
    ApplyMist(options, GetPointOnRay(sample.origin, sample.direction, farDistance), color);
  }
  return color;
}

void BackgroundPicture::ShadeMiss(ENVIRONMENT_3D_VIEW* view, const MODE_RENDER_OPTIONS& options,
                                  PixelRaySample* const* samples, uint32_t count, uint32_t depth,
                                  float farDistance) const {
  PixelRaySample& first = *samples[0];
  SCENE_VERTEX_XYZW color = MissColor(view, options, first, depth, farDistance);
  // A background keeps no alpha of its own: the pixel is uncovered there.
  color.w = 0.0f;
  for (uint32_t i = 0; i < count; ++i) samples[i]->color = color;
}
