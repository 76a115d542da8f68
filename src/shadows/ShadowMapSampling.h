// Reading a variance shadow map: bilinear look-ups in a flat map or one face
// of a cube, the choice of a cube face by direction, and the one-sided
// Chebyshev bound that turns a filtered pixel into a visibility. None of
// them holds state; any thread may call them.
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "shadows/SWShadowMap.h"
#include "host/SceneRecords.h"

// Bilinear look-up at texture coordinates (u, v) of a flat map. Pixels
// beyond an edge wrap round to the opposite one. `pixel` is left alone for
// a map without pixels or a coordinate that is not a finite number.
void SampleShadowMap(const SWShadowMap* map, float u, float v, SW_PIXEL_G64R64F& pixel);
// The same within one face of a cube map, where pixels beyond an edge clamp
// to it.
void SampleCubeShadowMapFace(const SWCubeShadowMap* map, int face, float u, float v, SW_PIXEL_G64R64F& pixel);
// The face that `direction` (light to point, y negated) points into, and the
// look-up there. A map that is not square with six faces leaves `pixel`
// alone.
void SampleCubeShadowMap(const SWCubeShadowMap* map, const SCENE_VERTEX_XYZ_64& direction,
                         SW_PIXEL_G64R64F& pixel);

// The share of light that reaches a point at `pointDepth` behind a filtered
// pixel: 1.0 unless the point lies beyond the pixel's mean depth, and then
// the bound variance / (variance + difference^2), with the variance raised
// to `smallestVariance`.
double ShadowMapVisibility(const SW_PIXEL_G64R64F& pixel, double pointDepth, double smallestVariance);

// Depth is normalised to 0..1 in a flat map and a distance in world units
// in a cube map, hence two floors under the variance.
constexpr double SmallestFlatMapVariance = 0.0001;
constexpr double SmallestCubeMapVariance = 10.0;

// The map that `number` has in one index and its vector, or null when the
// entry is missing, its row is out of range, or the map has no pixels.
template <typename Map>
Map* FindUsableShadowMap(const std::map<int32_t, int32_t>& index, const std::vector<Map*>& maps,
                         int32_t number) {
  const auto entry = index.find(number);
  if (entry == index.end()) return nullptr;
  const int32_t row = entry->second;
  if (row < 0 || size_t(row) >= maps.size() || !maps[row] || !maps[row]->pixels) return nullptr;
  return maps[row];
}

// The engine's shadow maps of both kinds and their indexes by light number,
// read together.
struct ShadowMapTables {
  const std::map<int32_t, int32_t>& indexSingle;
  const std::vector<SWShadowMap*>& single;
  const std::map<int32_t, int32_t>& indexCube;
  const std::vector<SWCubeShadowMap*>& cube;
};

// The mean of `count` pixels whose sum is `sum`, recomputed from the
// pixels one by one when the sum overflowed: pixels that saw nothing hold
// the largest double, and a few of them overflow any plain sum.
SW_PIXEL_G64R64F MeanOfShadowMapPixels(const SW_PIXEL_G64R64F* pixels, int count);
