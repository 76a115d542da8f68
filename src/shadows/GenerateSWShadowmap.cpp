// Which map a light gets, and whether the one it has can be drawn over:
// a map of the right size keeps its row, any other is replaced. Drawing
// itself is the framing of the light's type.
#include <new>

#include "host/BrindlexViewModel.h"
#include "engine/BrindlexViewRTRenderEngine.h"
#include "shadows/SWShadowMap.h"
#include "host/RenderOptions.h"
#include "shadows/ShadowMapGeometry.h"

namespace {
constexpr int32_t SmallMapSize = 256;  // point, spot and area lights
constexpr int32_t DirectMapSize = 1024;
constexpr int32_t CubeFaces = 6;

bool HasSize(const SWShadowMap& map, int32_t size) {
  return map.width == size && map.height == size;
}
bool HasSize(const SWCubeShadowMap& map, int32_t size) {
  return map.width == size && map.height == size && map.faces == CubeFaces;
}
SWShadowMap* MakeMap(SWShadowMap*, int32_t size) {
  return new (std::nothrow) SWShadowMap(size, size);
}
SWCubeShadowMap* MakeMap(SWCubeShadowMap*, int32_t size) {
  return new (std::nothrow) SWCubeShadowMap(size, size, CubeFaces);
}

// The map that `number` is to be drawn into: its old one if that has the
// wanted size, else a new one in the first free row. Null when memory is
// short; the light then goes without a map.
template <typename Map>
Map* SettleShadowMapRow(std::map<int32_t, int32_t>& index, std::vector<Map*>& maps, int32_t number,
                        int32_t size) {
  if (const auto entry = index.find(number); entry != index.end()) {
    const int32_t row = entry->second;
    if (row >= 0 && size_t(row) < maps.size() && maps[row]) {
      if (HasSize(*maps[row], size)) return maps[row];
      delete maps[row];
      maps[row] = nullptr;
    }
    index.erase(entry);
  }
  Map* map = MakeMap(static_cast<Map*>(nullptr), size);
  if (map && !map->pixels) {
    delete map;
    map = nullptr;
  }
  if (!map) return nullptr;
  size_t row = 0;
  while (row < maps.size() && maps[row]) ++row;
  if (row == maps.size())
    maps.push_back(map);
  else
    maps[row] = map;
  index[number] = static_cast<int32_t>(row);
  return map;
}
}  // namespace

void RT_RENDER_ENGINE::GenerateSWShadowmap(int lightNumber, ENVIRONMENT_3D_VIEW* view,
                                           SCENE_GRAPH* sceneGraph, const MODE_RENDER_OPTIONS* options) {
  if (!dirtyShadowLights.count(lightNumber)) return;
  if (!view || !sceneGraph || !options || !lightTable || !defaultLights) return;
  const RTRendererLight* light =
      FindShadowMapLight(lightTable, defaultLights, lightNumber, options->DoCustomLighting());
  if (light && (light->definition.flags & LightCastsShadows)) {
    switch (light->definition.type) {
      case 0:
        if (SettleShadowMapRow(shadowMapIndexCube, shadowMapsCube, lightNumber, SmallMapSize))
          RenderSWPointShadowmap(lightNumber, view, sceneGraph, options);
        break;
      case 1:
        if (SettleShadowMapRow(shadowMapIndexSingle, shadowMapsSingle, lightNumber, SmallMapSize))
          RenderSWSpotShadowmap(lightNumber, view, sceneGraph, options);
        break;
      case 2:
        if (SettleShadowMapRow(shadowMapIndexSingle, shadowMapsSingle, lightNumber, DirectMapSize))
          RenderSWDirectShadowmap(lightNumber, view, sceneGraph, options);
        break;
      case 3:
        if (SettleShadowMapRow(shadowMapIndexSingle, shadowMapsSingle, lightNumber, SmallMapSize))
          RenderSWAreaShadowmap(lightNumber, view, sceneGraph, options);
        break;
      default:
        break;  // a type without a map draws nothing
    }
  }
  // An aborted map is incomplete: the light stays dirty and is drawn again.
  if (ShouldAbort()) return;
  dirtyShadowLights.erase(lightNumber);
}
