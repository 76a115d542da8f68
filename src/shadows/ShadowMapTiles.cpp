// The work kinds that fill a shadow map on the workers: a tile of rays from
// the light, and a tile of the 5 x 5 filter that turns depths into means
// and mean squares. Both collect a tile in a local array and write it to
// the map in one go, so an abort leaves the map's pixels as they were.
#include <algorithm>
#include <vector>

#include "shadows/ShadowMapTiles.h"

#include "engine/BrindlexViewRTRenderEngine.h"
#include "platform/Gdi.h"
#include "host/RenderOptions.h"
#include "shadows/ShadowMapGeometry.h"
#include "shadows/ShadowMapSampling.h"

namespace {
// One tile is at most 32 x 32 pixels.
constexpr uint32_t TilePixels = 1024;
constexpr int FilterReach = 2;  // taps on each side of the pixel

bool IsRenderKind(uint16_t kind) {
  return kind == RT_WORK_SHADOWMAP_PERSPECTIVE || kind == RT_WORK_SHADOWMAP_PARALLEL ||
         (kind >= RT_WORK_CUBE_SHADOWMAP_FACE && kind < RT_WORK_CUBE_SHADOWMAP_FACE + 6);
}

bool IsCubeKind(uint16_t kind) {
  return kind >= RT_WORK_CUBE_SHADOWMAP_FACE && kind < RT_WORK_DISTRIBUTED;
}

int FaceOf(uint16_t kind) {
  return kind >= RT_WORK_CUBE_SHADOWMAP_FILTER ? kind - RT_WORK_CUBE_SHADOWMAP_FILTER
                                               : kind - RT_WORK_CUBE_SHADOWMAP_FACE;
}

// Where a tile's results go: the flat map, or one face of the cube.
struct TileTarget {
  SW_PIXEL_G64R64F* pixels = nullptr;
  int64_t width = 0, height = 0;
};

TileTarget TargetOf(const SWRT_RENDER_THREAD_DATA& data) {
  if (IsCubeKind(data.workKind)) {
    const SWCubeShadowMap& map = *data.cubeShadowMap;
    const int face = FaceOf(data.workKind);
    if (face >= map.faces) return {};
    return {map.pixels + int64_t(face) * map.width * map.height, map.width, map.height};
  }
  return {data.shadowMap->pixels, data.shadowMap->width, data.shadowMap->height};
}

// Copies a tile's local results into the target, in the order they were
// made: columns outermost. Pixels that fall outside the target are dropped.
void StoreTile(const SWRT_RENDER_THREAD_DATA& data, const SW_PIXEL_G64R64F* local, uint32_t count) {
  const TileTarget target = TargetOf(data);
  if (!target.pixels) return;
  uint32_t i = 0;
  for (uint32_t dx = 0; dx < data.width && i < count; ++dx)
    for (uint32_t dy = 0; dy < data.height && i < count; ++dy, ++i) {
      const int64_t x = int64_t{data.frameX} + dx, y = int64_t{data.frameY} + dy;
      if (x < target.width && y < target.height) target.pixels[y * target.width + x] = local[i];
    }
}

// The taps that one filter tile reads, each looked up once: neighbouring
// pixels share 20 of their 25 taps, and a tap is the same look-up whichever
// pixel asks for it. Tap (c, r) lies at texture coordinates (c / width,
// r / width), so it falls between pixels c - 1 and c; the filter as a whole
// thus weighs a 6 x 6 window.
class FilterTaps {
 public:
  template <typename Sample>
  FilterTaps(const SWRT_RENDER_THREAD_DATA& data, int32_t width, int32_t height, Sample sample)
      : width(width), height(height) {
    if (data.width == 0 || data.height == 0 || width < 1 || height < 1) return;
    // The columns and rows that the tile reaches before its pixel limit.
    const int64_t spanX = std::min<int64_t>(data.width, (TilePixels + data.height - 1) / data.height);
    const int64_t spanY = std::min<int64_t>(data.height, TilePixels);
    x0 = Column(int64_t{data.x} - FilterReach);
    y0 = Row(int64_t{data.y} - FilterReach);
    columns = Column(int64_t{data.x} + spanX - 1 + FilterReach) - x0 + 1;
    rows = Row(int64_t{data.y} + spanY - 1 + FilterReach) - y0 + 1;
    taps.resize(size_t(columns * rows));
    for (int64_t c = 0; c < columns; ++c) {
      const float u = static_cast<float>(x0 + c) / static_cast<float>(width);
      for (int64_t r = 0; r < rows; ++r) {
        // The maps are square: rows are divided by the width as well.
        const float v = static_cast<float>(y0 + r) / static_cast<float>(width);
        SW_PIXEL_G64R64F& tap = taps[size_t(c * rows + r)];
        tap = SW_PIXEL_G64R64F{0.0, 0.0};
        sample(u, v, tap);
      }
    }
  }

  // The mean of the 25 taps around (px, py), the neighbours' coordinates
  // limited to the map so that the edge pixel repeats.
  SW_PIXEL_G64R64F Filter(int64_t px, int64_t py) const {
    SW_PIXEL_G64R64F window[25];
    int n = 0;
    for (int dx = -FilterReach; dx <= FilterReach; ++dx) {
      const int64_t c = Column(px + dx) - x0;
      for (int dy = -FilterReach; dy <= FilterReach; ++dy)
        window[n++] = taps[size_t(c * rows + Row(py + dy) - y0)];
    }
    return MeanOfShadowMapPixels(window, n);
  }

 private:
  int64_t Column(int64_t c) const { return std::clamp<int64_t>(c, 0, width - 1); }
  int64_t Row(int64_t r) const { return std::clamp<int64_t>(r, 0, height - 1); }

  int64_t width, height;
  int64_t x0 = 0, y0 = 0, columns = 0, rows = 0;
  std::vector<SW_PIXEL_G64R64F> taps;
};
}  // namespace

RTRendererLight* FindShadowMapLight(RTLightTable* lightTable, RTRendererLight* defaultLights, int32_t number,
                                    bool customLighting) {
  if (customLighting) return lightTable ? lightTable->FindLight(number) : nullptr;
  // There are two default lights.
  return defaultLights && (number == 0 || number == 1) ? &defaultLights[number] : nullptr;
}

bool ShadowMapJobCanRun(const SWRT_RENDER_THREAD_DATA& data, const ShadowMapTileSources& sources) {
  const uint16_t kind = data.workKind;
  const bool cube = IsCubeKind(kind);
  const bool hasTarget =
      cube ? data.cubeShadowMap && data.cubeShadowMap->pixels : data.shadowMap && data.shadowMap->pixels;
  if (!hasTarget) return false;
  if (IsRenderKind(kind))
    return data.view && data.options && sources.hasTrees && sources.lightTable && sources.defaultLights &&
           data.samples == 1;
  const int32_t number = static_cast<int32_t>(data.shadowLightId);
  const ShadowMapTables& maps = sources.maps;
  return cube ? FindUsableShadowMap(maps.indexCube, maps.cube, number) != nullptr
              : FindUsableShadowMap(maps.indexSingle, maps.single, number) != nullptr;
}

void RenderShadowMapTile(const RT_RENDER_ENGINE& engine, const SWRT_RENDER_THREAD_DATA& data,
                         const ShadowMapTileSources& sources, const std::function<bool()>& shouldAbort,
                         bool& abort) {
  const RTRendererLight* light =
      FindShadowMapLight(sources.lightTable, sources.defaultLights, int32_t(data.shadowLightId),
                         data.options->DoCustomLighting());
  const int projection = data.workKind == RT_WORK_SHADOWMAP_PARALLEL ? 1 : 0;
  SW_PIXEL_G64R64F local[TilePixels];
  PixelRaySet rays;
  uint32_t i = 0;
  for (uint32_t px = data.x; px < data.x + data.width && i < TilePixels && !abort; ++px)
    for (uint32_t py = data.y; py < data.y + data.height && i < TilePixels && !abort; ++py, ++i) {
      RT_RENDER_ENGINE::BuildPixelRays(rays, px, py, data.samples, &data.planeOrigin, data.stepX, data.stepY,
                                       &data.eyeToWorld, projection, data.viewWidth, data.viewHeight, false);
      PixelRaySample& ray = rays.rays[0];
      SWRayIntersectionResult result{};
      const bool hit = engine.IntersectSWGeometry(ray.origin, ray.direction, ray.inverseDirection, result);
      engine.ProcessShadowmapPixel(hit, result, ray, local[i], false, 0.0, light, 0, 0);
      if (shouldAbort()) abort = true;
    }
  if (abort) return;
  StoreTile(data, local, i);
  if (sources.progressBar) PostMessageA(sources.progressBar, RT_SHADOW_MAP_TILE_MESSAGE, 0, 0);
}

void FilterShadowMapTile(const SWRT_RENDER_THREAD_DATA& data, const ShadowMapTileSources& sources,
                         const std::function<bool()>& shouldAbort, bool& abort) {
  const int32_t number = static_cast<int32_t>(data.shadowLightId);
  const bool cube = IsCubeKind(data.workKind);
  const SWShadowMap* flat =
      cube ? nullptr : FindUsableShadowMap(sources.maps.indexSingle, sources.maps.single, number);
  const SWCubeShadowMap* source =
      cube ? FindUsableShadowMap(sources.maps.indexCube, sources.maps.cube, number) : nullptr;
  const int face = FaceOf(data.workKind);
  const int32_t width = cube ? source->width : flat->width, height = cube ? source->height : flat->height;
  const FilterTaps taps =
      cube ? FilterTaps(data, width, height,
                        [&](float u, float v, SW_PIXEL_G64R64F& tap) {
                          SampleCubeShadowMapFace(source, face, u, v, tap);
                        })
           : FilterTaps(data, width, height,
                        [&](float u, float v, SW_PIXEL_G64R64F& tap) { SampleShadowMap(flat, u, v, tap); });
  SW_PIXEL_G64R64F local[TilePixels];
  uint32_t i = 0;
  for (uint32_t px = data.x; px < data.x + data.width && i < TilePixels && !abort; ++px)
    for (uint32_t py = data.y; py < data.y + data.height && i < TilePixels && !abort; ++py, ++i) {
      local[i] = taps.Filter(px, py);
      if (shouldAbort()) abort = true;
    }
  if (abort) return;
  StoreTile(data, local, i);
  if (sources.progressBar) PostMessageA(sources.progressBar, RT_SHADOW_MAP_TILE_MESSAGE, 0, 0);
}
