// When the project's lights shoot photon maps.
#pragma once

#include "host/RenderOptions.h"

// Photon mapping is on under custom lighting, and either its indirect light
// or a share of its direct light is asked for.
inline bool CustomLightPhotonsWanted(const MODE_RENDER_OPTIONS& options) {
  return options.DoLighting() && options.DoPhotonMapping() && options.DoCustomLighting() &&
         (options.DoIndirectLighting() || options.GetPhotonDirectLightingContribution() > 0.0);
}
