// One light at one surface point: dispatch on the light's type.
#include <iterator>

#include "engine/BrindlexViewRTRenderEngine.h"
#include "scene/LightTable.h"

void RT_RENDER_ENGINE::AddLightContributionToPixel(
    const RTRendererLight* light, const MODE_RENDER_OPTIONS* options, RT_RANDOM_NUMBER_GENERATOR* generator,
    const SCENE_VERTEX_XYZ_64& point, const SCENE_VERTEX_XYZ_64& normal,
    const SCENE_VERTEX_XYZ_64& rayDirection, const SCENE_VERTEX_XYZ& diffuseColor,
    const SCENE_VERTEX_XYZ& specularColor, uint32_t depth, SCENE_VERTEX_XYZ& diffuseSum,
    SCENE_VERTEX_XYZ& specularSum) const {
  if (!light) return;
  using Contribution = void (RT_RENDER_ENGINE::*)(
      const RTRendererLight*, const MODE_RENDER_OPTIONS*, RT_RANDOM_NUMBER_GENERATOR*,
      const SCENE_VERTEX_XYZ_64&, const SCENE_VERTEX_XYZ_64&, const SCENE_VERTEX_XYZ_64&,
      const SCENE_VERTEX_XYZ&, const SCENE_VERTEX_XYZ&, uint32_t, SCENE_VERTEX_XYZ&, SCENE_VERTEX_XYZ&) const;
  // Indexed by type; any other type adds no light.
  static constexpr Contribution byType[] = {&RT_RENDER_ENGINE::AddPointLightContributionToPixel,
                                            &RT_RENDER_ENGINE::AddSpotLightContributionToPixel,
                                            &RT_RENDER_ENGINE::AddDirectLightContributionToPixel,
                                            &RT_RENDER_ENGINE::AddAreaLightContributionToPixel};
  const uint16_t type = light->definition.type;
  if (type >= std::size(byType)) return;
  (this->*byType[type])(light, options, generator, point, normal, rayDirection, diffuseColor, specularColor,
                        depth, diffuseSum, specularSum);
}
