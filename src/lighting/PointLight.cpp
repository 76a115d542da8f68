// A point light: shines equally in all directions from its position.
#include "engine/BrindlexViewRTRenderEngine.h"
#include "lighting/LightTerms.h"
#include "lighting/VectorOps.h"

using namespace vector64;

void RT_RENDER_ENGINE::AddPointLightContributionToPixel(
    const RTRendererLight* light, const MODE_RENDER_OPTIONS* options, RT_RANDOM_NUMBER_GENERATOR* generator,
    const SCENE_VERTEX_XYZ_64& point, const SCENE_VERTEX_XYZ_64& normal,
    const SCENE_VERTEX_XYZ_64& rayDirection, const SCENE_VERTEX_XYZ& diffuseColor,
    const SCENE_VERTEX_XYZ& specularColor, uint32_t depth, SCENE_VERTEX_XYZ& diffuseSum,
    SCENE_VERTEX_XYZ& specularSum) const {
  if (!LightMayShine(light, options, 0)) return;
  const SCENE_LIGHT_DEFINITION& definition = light->definition;
  const SCENE_VERTEX_XYZ_64 centre = Widen(definition.position);
  const SCENE_VERTEX_XYZ_64 toLight = Subtract(centre, point);
  const double distance = Length(toLight);
  const SCENE_VERTEX_XYZ_64 direction = UnitOf(toLight);

  LightTerm term{};
  term.lambert = Dot(normal, direction);
  if (!(term.lambert > 0.0)) return;
  term.visibility =
      GetLightVisibilityThroughShadow(light, options, generator, centre, point, depth, distance);
  if (!(term.visibility > 0.0)) return;

  term.specular = SpecularFactor(direction, normal, rayDirection);
  term.attenuation = FalloffAttenuation(definition, distance * distance);
  term.intensity = LightIntensity(definition);
  AccumulateLight(definition, term, diffuseColor, specularColor, diffuseSum, specularSum);
}
