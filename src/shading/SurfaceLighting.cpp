// The light that reaches the first ray's point of a shading group: the
// project's lights with the headlight, or the two default lights, and the
// photon maps where the options ask for them.
#include "host/BrindlexViewModel.h"
#include "engine/BrindlexViewRTRenderEngine.h"
#include "scene/LightTable.h"
#include "shading/ShadingGroup.h"

namespace {
// Photons gathered by the default lighting under cover, and how far.
constexpr double CoverGatherRadius = 24.0;
constexpr uint64_t CoverGatherPhotons = 500;
}  // namespace

void GatherSurfaceLight(ShadingGroup& group, const ShadingSources& sources,
                        const SCENE_VERTEX_XYZ& diffuseColor, const SCENE_VERTEX_XYZ& specularColor,
                        SCENE_VERTEX_XYZ& diffuseSum, SCENE_VERTEX_XYZ& specularSum) {
  const MODE_RENDER_OPTIONS& options = *group.options;
  const SCENE_VERTEX_XYZ_64 point = group.HitPoint(0);
  const SCENE_VERTEX_XYZ_64 normal = group.ShadingNormal(0, group.textureScale);
  const SCENE_VERTEX_XYZ_64 direction = group.samples[0]->direction;
  const auto addLight = [&](const RTRendererLight* light, SCENE_VERTEX_XYZ& diffuse,
                            SCENE_VERTEX_XYZ& specular) {
    group.engine->AddLightContributionToPixel(light, &options, nullptr, point, normal, direction,
                                              diffuseColor, specularColor, group.depth, diffuse, specular);
  };

  const SWPhotonMap* directPhotonMap = sources.directPhotonMap;
  const SWPhotonMap* indirectPhotonMap = sources.indirectPhotonMap;
  const RTRendererLight* defaultLights = sources.defaultLights;
  if (sources.lightTable && sources.headlight && options.DoCustomLighting()) {
    SCENE_VERTEX_XYZ directDiffuse = {0.0f, 0.0f, 0.0f}, directSpecular = {0.0f, 0.0f, 0.0f};
    SCENE_VERTEX_XYZ_64 photonDirect = {0.0, 0.0, 0.0}, photonIndirect = {0.0, 0.0, 0.0};
    const float contribution = options.GetPhotonDirectLightingContribution();
    // Photons that stand in for all direct light leave the lights unasked,
    // highlights included.
    if (!(options.DoPhotonMapping() && contribution >= 100)) {
      for (const RTRendererLight* light : sources.lightTable->lights)
        addLight(light, directDiffuse, directSpecular);
      addLight(sources.headlight, directDiffuse, directSpecular);
    }
    double directWeight = 1.0, photonWeight = 0.0;
    if (options.DoPhotonMapping()) {
      const uint64_t maxPhotons = uint64_t{options.GetPhotonSampleLevel()} * 10 + 100;
      const double radius = options.GetPhotonRadius();
      if (directPhotonMap && contribution > 0)
        photonDirect = directPhotonMap->GatherPhotons(point, radius, *sources.directPhotons, normal,
                                                      diffuseColor, maxPhotons);
      if (indirectPhotonMap && options.DoIndirectLighting())
        photonIndirect = indirectPhotonMap->GatherPhotons(point, radius, *sources.indirectPhotons, normal,
                                                          diffuseColor, maxPhotons);
      directWeight = (100.0 - contribution) * 0.01;
      photonWeight = contribution * 0.01;
    }
    diffuseSum = {
        static_cast<float>(directDiffuse.x * directWeight + photonDirect.x * photonWeight + photonIndirect.x),
        static_cast<float>(directDiffuse.y * directWeight + photonDirect.y * photonWeight + photonIndirect.y),
        static_cast<float>(directDiffuse.z * directWeight + photonDirect.z * photonWeight +
                           photonIndirect.z)};
    specularSum = directSpecular;
  } else if (defaultLights && !options.DoCustomLighting()) {
    addLight(&defaultLights[0], diffuseSum, specularSum);
    addLight(&defaultLights[1], diffuseSum, specularSum);
    // Under a roof the default lights leave rooms dark; bounced photons
    // light them.
    if (indirectPhotonMap && sources.cameraUnderCover) {
      const SCENE_VERTEX_XYZ_64 bounced = indirectPhotonMap->GatherPhotons(
          point, CoverGatherRadius, *sources.indirectPhotons, normal, diffuseColor, CoverGatherPhotons);
      diffuseSum = {static_cast<float>(diffuseSum.x + bounced.x),
                    static_cast<float>(diffuseSum.y + bounced.y),
                    static_cast<float>(diffuseSum.z + bounced.z)};
    }
  }
}
