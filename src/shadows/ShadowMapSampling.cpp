#include "shadows/ShadowMapSampling.h"

#include <algorithm>
#include <cmath>

namespace {
constexpr double Huge = 1.7976931348623157e308;

// Where a texture coordinate falls between two pixels of a row of `size`.
struct Tap {
  int64_t first, second;  // may lie beyond the edges; the caller folds them in
  float weight;           // of `second`
};

// Rounded to single precision where the look-up's arithmetic is, so that
// a coordinate of c / size lands exactly between pixels c - 1 and c. False
// for a coordinate that is not a finite number.
bool TapOf(float coordinate, int32_t size, Tap& tap) {
  const float p = coordinate * static_cast<float>(size);
  if (!std::isfinite(p)) return false;
  double f;
  if (coordinate > 0.0f) {
    f = static_cast<double>(p) - 0.5;
    tap.first = static_cast<int64_t>(f);
    tap.second = tap.first + 1;
  } else {
    f = static_cast<double>(p) + 0.5;
    tap.first = static_cast<int64_t>(f);
    tap.second = tap.first - 1;
  }
  tap.weight = static_cast<float>(std::fabs(f - static_cast<double>(tap.first)));
  return true;
}

int64_t Wrap(int64_t i, int32_t size) {
  const int64_t r = i % size;
  return r < 0 ? r + size : r;
}

int64_t Clamp(int64_t i, int32_t size) {
  return i < 0 ? 0 : i >= size ? size - 1 : i;
}

// The four-pixel blend; `at(i, j)` folds the indices into the map. A tap
// of weight 0 is left out, so that a pixel holding infinity cannot turn
// the sum into not-a-number through 0 * infinity.
template <typename PixelAt>
void Blend(const Tap& tx, const Tap& ty, PixelAt at, SW_PIXEL_G64R64F& pixel) {
  const double wx = tx.weight, wy = ty.weight;
  const struct {
    int64_t i, j;
    double weight;
  } corners[4] = {{tx.first, ty.first, (1.0 - wx) * (1.0 - wy)},
                  {tx.first, ty.second, (1.0 - wx) * wy},
                  {tx.second, ty.first, wx * (1.0 - wy)},
                  {tx.second, ty.second, wx * wy}};
  SW_PIXEL_G64R64F sum{0.0, 0.0};
  for (const auto& corner : corners) {
    if (corner.weight == 0.0) continue;
    const SW_PIXEL_G64R64F& p = at(corner.i, corner.j);
    sum.depthSquared += p.depthSquared * corner.weight;
    sum.depth += p.depth * corner.weight;
  }
  pixel = sum;
}

// Face and coordinates of a direction; false for the zero vector, which
// points nowhere.
bool CubeFaceOf(const SCENE_VERTEX_XYZ_64& d, int& face, double& u, double& v) {
  const double ax = std::fabs(d.x), ay = std::fabs(d.y), az = std::fabs(d.z);
  if (ax >= ay && ax >= az) {
    if (!(ax > 0.0)) return false;
    face = d.x > 0.0 ? 0 : 1;
    u = ((d.x > 0.0 ? -d.z : d.z) / ax + 1.0) / 2.0;
    v = (-d.y / ax + 1.0) / 2.0;
  } else if (ay >= az) {
    face = d.y > 0.0 ? 2 : 3;
    u = (d.x / ay + 1.0) / 2.0;
    v = ((d.y > 0.0 ? d.z : -d.z) / ay + 1.0) / 2.0;
  } else {
    face = d.z > 0.0 ? 4 : 5;
    u = ((d.z > 0.0 ? d.x : -d.x) / az + 1.0) / 2.0;
    v = (-d.y / az + 1.0) / 2.0;
  }
  return true;
}

}  // namespace

void SampleShadowMap(const SWShadowMap* map, float u, float v, SW_PIXEL_G64R64F& pixel) {
  if (!map || !map->pixels || map->width < 1 || map->height < 1) return;
  Tap tx, ty;
  if (!TapOf(u, map->width, tx) || !TapOf(v, map->height, ty)) return;
  const int32_t w = map->width, h = map->height;
  Blend(
      tx, ty,
      [&](int64_t i, int64_t j) -> const SW_PIXEL_G64R64F& {
        return map->pixels[Wrap(j, h) * w + Wrap(i, w)];
      },
      pixel);
}

void SampleCubeShadowMapFace(const SWCubeShadowMap* map, int face, float u, float v,
                             SW_PIXEL_G64R64F& pixel) {
  if (!map || !map->pixels || map->width < 1 || map->height < 1 || face < 0 || face >= map->faces) return;
  Tap tx, ty;
  if (!TapOf(u, map->width, tx) || !TapOf(v, map->height, ty)) return;
  const int32_t w = map->width, h = map->height;
  const SW_PIXEL_G64R64F* facePixels = map->pixels + int64_t(face) * w * h;
  Blend(
      tx, ty,
      [&](int64_t i, int64_t j) -> const SW_PIXEL_G64R64F& {
        return facePixels[Clamp(j, h) * w + Clamp(i, w)];
      },
      pixel);
}

void SampleCubeShadowMap(const SWCubeShadowMap* map, const SCENE_VERTEX_XYZ_64& direction,
                         SW_PIXEL_G64R64F& pixel) {
  if (!map || map->width != map->height || map->faces != 6) return;
  int face = 0;
  double u = 0.0, v = 0.0;
  if (!CubeFaceOf(direction, face, u, v)) return;
  SampleCubeShadowMapFace(map, face, static_cast<float>(u), static_cast<float>(v), pixel);
}

double ShadowMapVisibility(const SW_PIXEL_G64R64F& pixel, double pointDepth, double smallestVariance) {
  if (!(pointDepth > pixel.depth)) return 1.0;
  double variance = pixel.depthSquared - pixel.depth * pixel.depth;
  // A mean square that overflowed leaves an infinite or undefined variance;
  // the bound tends to 1 as the variance grows, so that is the answer.
  if (std::isnan(variance) || std::isinf(variance)) return 1.0;
  if (variance < smallestVariance) variance = smallestVariance;
  const double difference = std::fabs(pixel.depth - pointDepth);
  return variance / (variance + difference * difference);
}

SW_PIXEL_G64R64F MeanOfShadowMapPixels(const SW_PIXEL_G64R64F* pixels, int count) {
  SW_PIXEL_G64R64F mean{0.0, 0.0};
  if (!pixels || count < 1) return mean;
  for (int i = 0; i < count; ++i) {
    mean.depthSquared += pixels[i].depthSquared;
    mean.depth += pixels[i].depth;
  }
  mean.depthSquared /= count;
  mean.depth /= count;
  if (std::isfinite(mean.depth) && std::isfinite(mean.depthSquared)) return mean;
  // Each share first, then the sum, so that no intermediate passes the
  // largest double; the rounding of the shares may still carry the sum a
  // step beyond the largest input, which no mean can pass. A square that
  // was infinite to begin with stays infinite.
  SW_PIXEL_G64R64F largest{-Huge, -Huge};
  mean = {0.0, 0.0};
  for (int i = 0; i < count; ++i) {
    mean.depthSquared += pixels[i].depthSquared / count;
    mean.depth += pixels[i].depth / count;
    largest.depthSquared = std::max(largest.depthSquared, pixels[i].depthSquared);
    largest.depth = std::max(largest.depth, pixels[i].depth);
  }
  mean.depthSquared = std::min(mean.depthSquared, largest.depthSquared);
  mean.depth = std::min(mean.depth, largest.depth);
  return mean;
}
