// Fog and mist on finished colours.
#include "shading/FogAndMist.h"

#include <cmath>

#include "host/BrindlexViewModel.h"
#include "shading/ShadingLevels.h"

namespace {
// Each channel becomes (1 - share) * channel + share, in doubles.
void BlendTowardWhite(double share, SCENE_VERTEX_XYZW& color) {
  color.x = static_cast<float>((1.0 - share) * color.x + share);
  color.y = static_cast<float>((1.0 - share) * color.y + share);
  color.z = static_cast<float>((1.0 - share) * color.z + share);
}

// Mist ends at a height of at least 6 model units, so that a scene set up
// with no mist height still has a visible layer.
float MistHeight(const MODE_RENDER_OPTIONS& options) {
  const float height = std::fabs(options.GetMistOffset());
  return height < 6.0f ? 6.0f : height;
}
}  // namespace

void ApplyMissFog(const MODE_RENDER_OPTIONS& options, SCENE_VERTEX_XYZW& color) {
  if (options.GetFogLevel() > 0) BlendTowardWhite(options.GetFogLevel() / 100.0, color);
}

float HitFogFactor(const MODE_RENDER_OPTIONS& options, double distance, float nearDistance,
                   float farDistance) {
  const float range = farDistance - nearDistance;
  float fog = static_cast<float>((distance - nearDistance) / range);
  // Near and far planes that coincide leave 0 / 0 for a hit on them; such a
  // hit counts as near, with no fog, rather than spreading not-a-number.
  if (!(fog > 0.0f)) fog = 0.0f;
  if (fog > 1.0f) fog = 1.0f;
  return fog * PercentLevel(options.GetFogLevel());
}

void ApplyFog(float fog, SCENE_VERTEX_XYZW& color) {
  BlendTowardWhite(fog, color);
}

void ApplyMist(const MODE_RENDER_OPTIONS& options, const SCENE_VERTEX_XYZ_64& point,
               SCENE_VERTEX_XYZW& color) {
  if (!(options.GetMistLevel() > 0)) return;
  const float height = MistHeight(options);
  const double z = point.z;
  if (!(height >= z)) return;
  float amount = static_cast<float>((height - z) / height * 2.0);
  if (amount > 1.0f) amount = 1.0f;
  BlendTowardWhite(options.GetMistLevel() / 100.0 * amount, color);
}
