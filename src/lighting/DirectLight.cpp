// A direct light: parallel rays from target towards position, like the
// sun, with no falloff. `position` only sets the distance the shadow test is
// told.
#include "engine/BrindlexViewRTRenderEngine.h"
#include "lighting/LightTerms.h"
#include "lighting/VectorOps.h"

using namespace vector64;

void RT_RENDER_ENGINE::AddDirectLightContributionToPixel(
    const RTRendererLight* light, const MODE_RENDER_OPTIONS* options, RT_RANDOM_NUMBER_GENERATOR* generator,
    const SCENE_VERTEX_XYZ_64& point, const SCENE_VERTEX_XYZ_64& normal,
    const SCENE_VERTEX_XYZ_64& rayDirection, const SCENE_VERTEX_XYZ& diffuseColor,
    const SCENE_VERTEX_XYZ& specularColor, uint32_t depth, SCENE_VERTEX_XYZ& diffuseSum,
    SCENE_VERTEX_XYZ& specularSum) const {
  if (!LightMayShine(light, options, 2)) return;
  const SCENE_LIGHT_DEFINITION& definition = light->definition;
  const SCENE_VERTEX_XYZ_64 centre = Widen(definition.position);
  const SCENE_VERTEX_XYZ_64 direction = UnitOf(Subtract(centre, Widen(definition.target)));

  LightTerm term{};
  term.lambert = Dot(normal, direction);
  if (!(term.lambert > 0.0)) return;
  const double distance = Distance(&point, &centre);
  term.visibility =
      GetDirectLightVisibilityThroughShadow(light, options, generator, direction, point, depth, distance);
  if (!(term.visibility > 0.0)) return;

  term.specular = SpecularFactor(direction, normal, rayDirection);
  // This type rounds its intensity to float, and has no attenuation: a
  // factor of exactly 1.0 leaves the products as they are.
  term.intensity = static_cast<float>(LightIntensity(definition));
  term.attenuation = 1.0;
  AccumulateLight(definition, term, diffuseColor, specularColor, diffuseSum, specularSum);
}
