// The work kinds that fill a shadow map on the workers: a tile of rays from
// the light, and a tile of the filter. Each works on the maps and lights it
// is given, so that the job dispatch hands them over explicitly.
#pragma once

#include <functional>

#include "pipeline/RenderThreadData.h"
#include "platform/WindowsTypes.h"
#include "shadows/ShadowMapSampling.h"

class RT_RENDER_ENGINE;
class RTLightTable;
struct RTRendererLight;

// What a shadow-map tile reads of the engine besides its ray queries.
struct ShadowMapTileSources {
  ShadowMapTables maps;
  RTLightTable* lightTable = nullptr;
  RTRendererLight* defaultLights = nullptr;  // two
  bool hasTrees = false;
  // Told of every finished tile, when the host gave one.
  HWND progressBar = nullptr;
};

// Whether a tile has what it needs: its map's pixels, and for a tile of
// rays the view, options, trees and lights; for a filter tile, a usable map
// of its light.
bool ShadowMapJobCanRun(const SWRT_RENDER_THREAD_DATA& data, const ShadowMapTileSources& sources);
// Traces the tile's rays from the light through `engine`'s trees into the
// map. `shouldAbort` is polled after every pixel; an abort leaves the map's
// tile as it was.
void RenderShadowMapTile(const RT_RENDER_ENGINE& engine, const SWRT_RENDER_THREAD_DATA& data,
                         const ShadowMapTileSources& sources, const std::function<bool()>& shouldAbort,
                         bool& abort);
// Filters the tile of the map of its light, with the same abort rule.
void FilterShadowMapTile(const SWRT_RENDER_THREAD_DATA& data, const ShadowMapTileSources& sources,
                         const std::function<bool()>& shouldAbort, bool& abort);
