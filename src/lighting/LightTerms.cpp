#include "lighting/LightTerms.h"

#include <cmath>

#include "host/RenderOptions.h"
#include "lighting/VectorOps.h"

using namespace vector64;

namespace {
constexpr double PhongExponent = 32.0;

// The colour the light gives for `flag`: black when the light lacks it.
SCENE_VERTEX_XYZ LightColor(const SCENE_LIGHT_DEFINITION& light, uint16_t flag) {
  if (!(light.flags & flag)) return {0.0f, 0.0f, 0.0f};
  const auto channel = [&](int shift) {
    const float byte = static_cast<float>((light.color >> shift) & 0xFFu);
    return static_cast<float>(byte / 255.0);
  };
  return {channel(0), channel(8), channel(16)};
}

// sum += (light * surface) * factor, channel by channel in float.
void AddColor(const SCENE_VERTEX_XYZ& light, const SCENE_VERTEX_XYZ& surface, float factor,
              SCENE_VERTEX_XYZ& sum) {
  sum.x += light.x * surface.x * factor;
  sum.y += light.y * surface.y * factor;
  sum.z += light.z * surface.z * factor;
}
}  // namespace

bool LightMayShine(const RTRendererLight* light, const MODE_RENDER_OPTIONS* options, uint16_t type) {
  if (!light || !options) return false;
  const SCENE_LIGHT_DEFINITION& definition = light->definition;
  if (definition.type != type || !(definition.flags & LightEnabled)) return false;
  return !((definition.flags & LightIsSymbol) && options->DisableSymbolLights());
}

double SpecularFactor(const SCENE_VERTEX_XYZ_64& towardLight, const SCENE_VERTEX_XYZ_64& normal,
                      const SCENE_VERTEX_XYZ_64& rayDirection) {
  const double s = 2.0 * Dot(Scale(towardLight, -1.0), normal);
  const SCENE_VERTEX_XYZ_64 mirrored = UnitOf(Add(Scale(normal, s), towardLight));
  const double specular = Dot(rayDirection, mirrored);
  return specular < 0.0 ? 0.0 : specular;
}

double LightIntensity(const SCENE_LIGHT_DEFINITION& light) {
  return light.intensity / 10.0;
}

double FalloffAttenuation(const SCENE_LIGHT_DEFINITION& light, double d2) {
  if (!(light.flags & LightHasFalloff)) return 1.0;
  const double start2 = light.falloffStart * light.falloffStart;
  if (d2 <= start2) return 1.0;
  const double over = d2 - start2;
  const double end2 = light.falloffEnd * light.falloffEnd;
  double a = 1.0 - over * (1.0 / end2);
  if (a < 0.0) a = 0.0;
  return over > end2 ? 0.0 : a * a;
}

void AccumulateLight(const SCENE_LIGHT_DEFINITION& light, const LightTerm& term,
                     const SCENE_VERTEX_XYZ& diffuseColor, const SCENE_VERTEX_XYZ& specularColor,
                     SCENE_VERTEX_XYZ& diffuseSum, SCENE_VERTEX_XYZ& specularSum) {
  const float fd = static_cast<float>(term.lambert * term.visibility * term.intensity * term.attenuation);
  AddColor(LightColor(light, LightDiffuse), diffuseColor, fd, diffuseSum);
  const float fs = static_cast<float>(std::pow(term.specular, PhongExponent) * term.visibility *
                                      term.intensity * term.attenuation);
  AddColor(LightColor(light, LightSpecular), specularColor, fs, specularSum);
}
