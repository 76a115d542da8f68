#include "PhotonSettings.h"

#include <cmath>

void UseInteriorPhotonMapping(HostScene& host) {
  MODE_RENDER_OPTIONS& options = host.Options();
  options.SetPhotonMapping(true);
  options.SetIndirectLighting(true);
  options.SetPhotonDirectLightingContribution(0.0f);
  options.SetPhotonLevel(InteriorPhotonLevel);
  options.SetNumberOfIndirectBounces(InteriorBounces);
  SCENE_VERTEX_XYZ min, max;
  if (!host.WorldBounds(min, max)) return;
  const double diagonal =
      std::sqrt(double(max.x - min.x) * (max.x - min.x) + double(max.y - min.y) * (max.y - min.y) +
                double(max.z - min.z) * (max.z - min.z));
  if (diagonal > 0.0 && std::isfinite(diagonal))
    options.SetPhotonRadius(static_cast<float>(diagonal * InteriorRadiusShare));
}
