// A spot light: a cone from its position towards its target, optionally
// fading over the outer part of its half-angle.
#include <cmath>
#include <numbers>

#include "engine/BrindlexViewRTRenderEngine.h"
#include "lighting/LightTerms.h"
#include "lighting/VectorOps.h"

using namespace vector64;

namespace {
// The soft rim covers this share of the half-angle, at its outer side.
constexpr double SoftEdgeShare = 0.55;
}  // namespace

void RT_RENDER_ENGINE::AddSpotLightContributionToPixel(
    const RTRendererLight* light, const MODE_RENDER_OPTIONS* options, RT_RANDOM_NUMBER_GENERATOR* generator,
    const SCENE_VERTEX_XYZ_64& point, const SCENE_VERTEX_XYZ_64& normal,
    const SCENE_VERTEX_XYZ_64& rayDirection, const SCENE_VERTEX_XYZ& diffuseColor,
    const SCENE_VERTEX_XYZ& specularColor, uint32_t depth, SCENE_VERTEX_XYZ& diffuseSum,
    SCENE_VERTEX_XYZ& specularSum) const {
  if (!LightMayShine(light, options, 1)) return;
  const SCENE_LIGHT_DEFINITION& definition = light->definition;
  const SCENE_VERTEX_XYZ_64 centre = Widen(definition.position);
  const SCENE_VERTEX_XYZ_64 toLight = Subtract(centre, point);
  const SCENE_VERTEX_XYZ_64 axis = UnitOf(Subtract(centre, Widen(definition.target)));
  // Falloff is measured along the axis, not straight to the light.
  const double axial = Dot(toLight, axis);
  const double distance = Length(toLight);
  const SCENE_VERTEX_XYZ_64 direction = UnitOf(toLight);

  LightTerm term{};
  term.lambert = Dot(normal, direction);
  if (!(term.lambert > 0.0)) return;
  const double cone = Dot(direction, axis);
  const double halfAngle = definition.angle * std::numbers::pi / 180.0;
  const double cosOuter = std::cos(halfAngle);
  if (!(cone > cosOuter)) return;
  term.visibility =
      GetLightVisibilityThroughShadow(light, options, generator, centre, point, depth, distance);
  if (!(term.visibility > 0.0)) return;

  const double edge = (definition.flags & LightSoftEdge) ? halfAngle * SoftEdgeShare : 0.0;
  const double cosInner = std::cos(halfAngle - edge);
  term.attenuation = FalloffAttenuation(definition, axial * axial);
  if (cosInner > cone) term.attenuation *= (cone - cosOuter) / (cosInner - cosOuter);

  term.specular = SpecularFactor(direction, normal, rayDirection);
  term.intensity = LightIntensity(definition);
  AccumulateLight(definition, term, diffuseColor, specularColor, diffuseSum, specularSum);
}
