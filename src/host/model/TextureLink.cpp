#include "host/TextureLink.h"

#include <algorithm>
#include <cmath>

bool TEXTURE_LINK::SetTextureMappingType(int type) {
  if (type < SV_PLANAR_MAPPING || type > SV_MESH_UV_MAPPING) return false;
  mappingType = static_cast<SV_TEXTURE_MAPPING_TYPE>(type);
  return true;
}

void TEXTURE_LINK::SetLevel(float& field, float level) {
  if (!std::isnan(level)) field = std::clamp(level, 0.0f, 100.0f);
}
