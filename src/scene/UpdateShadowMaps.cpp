// Which lights hold shadow maps. With default lighting only the second
// default light has one; with custom lighting every qualifying light, or
// the nearest eight of them and light 0. Only dirty lights are drawn, so a
// camera move redraws none.
#include <algorithm>
#include <map>
#include <vector>

#include "host/BrindlexViewMath.h"
#include "host/BrindlexViewModel.h"
#include "engine/BrindlexViewRTRenderEngine.h"
#include "scene/LightTable.h"
#include "shadows/SWShadowMap.h"

namespace {
constexpr size_t NearestLightCount = 8;

template <typename Map>
void DeleteMapRow(std::vector<Map*>& maps, int32_t row) {
  if (row >= 0 && size_t(row) < maps.size() && maps[row]) {
    delete maps[row];
    maps[row] = nullptr;
  }
}

template <typename Map>
void DeleteAllMaps(std::vector<Map*>& maps, std::map<int32_t, int32_t>& index, std::set<int32_t>& dirty) {
  for (Map* map : maps) delete map;
  maps.clear();
  for (const auto& entry : index) dirty.insert(entry.first);
  index.clear();
}

bool Qualifies(const RTRendererLight* light, const MODE_RENDER_OPTIONS& options) {
  if (!light) return false;
  const uint16_t flags = light->definition.flags;
  if (!(flags & LightEnabled) || !(flags & LightCastsShadows)) return false;
  return !((flags & LightIsSymbol) && options.DisableSymbolLights());
}

// The rows of the nearest lights; a light exactly as far as the farthest
// chosen one does not displace it, so ties keep the earlier rows.
std::vector<size_t> NearestRows(const std::map<size_t, double>& distances) {
  std::vector<size_t> chosen;
  double farthest = 0.0;
  for (const auto& [row, distance] : distances) {
    if (chosen.size() < NearestLightCount) {
      chosen.push_back(row);
      farthest = std::max(farthest, distance);
      continue;
    }
    if (!(farthest > distance)) continue;
    for (size_t& held : chosen)
      if (distances.at(held) == farthest) {
        held = row;
        break;
      }
    farthest = 0.0;
    for (size_t held : chosen) farthest = std::max(farthest, distances.at(held));
  }
  return chosen;
}
}  // namespace

bool RT_RENDER_ENGINE::UpdateShadowMaps(ENVIRONMENT_3D_VIEW* view, SCENE_GRAPH* sceneGraph,
                                        const MODE_RENDER_OPTIONS& options, const SCENE_CAMERA_INFO& camera,
                                        bool& aborted) {
  const bool custom = options.DoCustomLighting();
  const bool wanted = !aborted && options.DisplayFaces() && options.DoLighting() && lightTable &&
                      defaultLights &&
                      !(custom && (!options.DisplayShadows() || !options.DoRayTracedSoftShadows()));
  if (!wanted) {
    DeleteAllMaps(shadowMapsSingle, shadowMapIndexSingle, dirtyShadowLights);
    DeleteAllMaps(shadowMapsCube, shadowMapIndexCube, dirtyShadowLights);
    return false;
  }

  if (!custom) {
    if (!engineFlags.IsSet(DefaultLightShadows)) {
      dirtyShadowLights.insert(int32_t{defaultLights[1].number});
      DeleteAllMaps(shadowMapsSingle, shadowMapIndexSingle, dirtyShadowLights);
      DeleteAllMaps(shadowMapsCube, shadowMapIndexCube, dirtyShadowLights);
      engineFlags.Set(DefaultLightShadows);
    }
    GenerateSWShadowmap(defaultLights[1].number, view, sceneGraph, &options);
    return true;
  }

  if (engineFlags.IsSet(DefaultLightShadows)) {
    dirtyShadowLights.insert(int32_t{defaultLights[1].number});
    engineFlags.Clear(DefaultLightShadows);
  }
  // A dirty light loses its map; its number stays dirty until it is redrawn.
  for (int32_t number : dirtyShadowLights) {
    if (auto single = shadowMapIndexSingle.find(number); single != shadowMapIndexSingle.end()) {
      DeleteMapRow(shadowMapsSingle, single->second);
      shadowMapIndexSingle.erase(single);
    } else if (auto cube = shadowMapIndexCube.find(number); cube != shadowMapIndexCube.end()) {
      DeleteMapRow(shadowMapsCube, cube->second);
      shadowMapIndexCube.erase(cube);
    }
  }

  const std::vector<RTRendererLight*>& lights = lightTable->lights;
  if (options.ShouldCalculateAllShadows()) {
    bool drawn = false;
    for (size_t row = 0; row < lights.size() && !aborted; ++row) {
      if (Qualifies(lights[row], options)) {
        drawn = true;
        GenerateSWShadowmap(lights[row]->number, view, sceneGraph, &options);
      }
      aborted = ShouldAbort() || aborted;
    }
    return drawn;
  }

  std::map<size_t, double> distances;
  for (size_t row = 0; row < lights.size(); ++row)
    if (Qualifies(lights[row], options))
      distances[row] = Distance(&lights[row]->definition.position, &camera.eye);
  const std::vector<size_t> chosen = NearestRows(distances);
  std::set<int32_t> chosenNumbers;
  for (size_t row : chosen) chosenNumbers.insert(int32_t{lights[row]->number});

  auto dropUnchosen = [&](auto& maps, std::map<int32_t, int32_t>& index) {
    for (auto entry = index.begin(); entry != index.end();) {
      const int32_t number = entry->first;
      if (number == 0 || chosenNumbers.count(number)) {
        ++entry;
        continue;
      }
      DeleteMapRow(maps, entry->second);
      dirtyShadowLights.insert(number);
      entry = index.erase(entry);
    }
  };
  dropUnchosen(shadowMapsSingle, shadowMapIndexSingle);
  dropUnchosen(shadowMapsCube, shadowMapIndexCube);
  GenerateSWShadowmap(0, view, sceneGraph, &options);
  aborted = ShouldAbort() || aborted;
  for (size_t row : chosen) {
    if (aborted) break;
    GenerateSWShadowmap(lights[row]->number, view, sceneGraph, &options);
    aborted = ShouldAbort() || aborted;
  }
  return true;
}
