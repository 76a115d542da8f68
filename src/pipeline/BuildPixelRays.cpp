// The rays of one pixel: fixed antialiasing patterns, or one jittered ray
// in path tracing, each with the rays through its neighbours in x and y.
#include <algorithm>
#include <cmath>

#include "host/BrindlexViewMath.h"
#include "engine/BrindlexViewRTRenderEngine.h"
#include "pipeline/RandomNumberGenerator.h"

namespace {
constexpr int ParallelProjection = 1;

struct SampleOffset {
  double x, y;
};

// Offsets from the pixel's centre, in pixels; every row count has its own
// table, taken in order.
constexpr SampleOffset OneSample[] = {{0.0, 0.0}};
constexpr SampleOffset TwoSamples[] = {{-0.25, -0.25}, {0.25, 0.25}};
constexpr SampleOffset FourSamples[] = {{-0.1, -0.4}, {0.4, -0.1}, {-0.4, 0.1}, {0.1, 0.4}};
constexpr SampleOffset EightSamples[] = {{-0.1, -0.4}, {0.4, -0.3}, {-0.4, -0.2}, {0.1, -0.1},
                                         {-0.1, 0.1},  {0.4, 0.2},  {-0.4, 0.3},  {0.1, 0.4}};
constexpr SampleOffset SixteenSamples[] = {{-0.3, -0.4}, {-0.1, -0.3}, {-0.4, -0.2}, {-0.2, -0.1},
                                           {0.2, -0.4},  {0.4, -0.3},  {0.1, -0.2},  {0.3, -0.1},
                                           {-0.3, 0.1},  {-0.1, 0.2},  {-0.4, 0.3},  {-0.2, 0.4},
                                           {0.2, 0.1},   {0.4, 0.2},   {0.1, 0.3},   {0.3, 0.4}};

// A count that has no table is raised to the next one that has.
unsigned int SupportedSampleCount(unsigned int samples) {
  samples = std::min(samples, MaximumPixelRays);
  if (samples <= 1) return 1;
  if (samples == 2) return 2;
  if (samples <= 4) return 4;
  if (samples <= 8) return 8;
  return 16;
}

const SampleOffset* SampleTable(unsigned int count) {
  switch (count) {
    case 1:
      return OneSample;
    case 2:
      return TwoSamples;
    case 4:
      return FourSamples;
    case 8:
      return EightSamples;
    default:
      return SixteenSamples;
  }
}

SCENE_VERTEX_XYZ_64 Minus(const SCENE_VERTEX_XYZ_64& a, const SCENE_VERTEX_XYZ_64& b) {
  return {a.x - b.x, a.y - b.y, a.z - b.z};
}

SCENE_VERTEX_XYZ_64 UnitVector(const SCENE_VERTEX_XYZ_64& v) {
  SCENE_VERTEX_XYZ_64 unit;
  GetUnitVector(&v, &unit);
  return unit;
}

SCENE_VERTEX_XYZ_64 ToWorld(const SCENE_MATRIX_64* eyeToWorld, const SCENE_VERTEX_XYZ_64& eyePoint) {
  SCENE_VERTEX_XYZ_64 world;
  TransformPoint3D(eyeToWorld, &eyePoint, &world);
  return world;
}

// The ray from the eye-space start `start` through `through`, in the world.
void WorldRay(const SCENE_MATRIX_64* eyeToWorld, const SCENE_VERTEX_XYZ_64& start,
              const SCENE_VERTEX_XYZ_64& through, SCENE_VERTEX_XYZ_64& origin,
              SCENE_VERTEX_XYZ_64& direction) {
  origin = ToWorld(eyeToWorld, start);
  direction = UnitVector(Minus(ToWorld(eyeToWorld, through), origin));
}
}  // namespace

void RT_RENDER_ENGINE::BuildPixelRays(PixelRaySet& rays, unsigned int x, unsigned int y, unsigned int samples,
                                      const SCENE_VERTEX_XYZ_64* planeOrigin, double stepX, double stepY,
                                      const SCENE_MATRIX_64* eyeToWorld, int projectionType,
                                      unsigned int viewWidth, unsigned int viewHeight, bool randomize) {
  rays.count = SupportedSampleCount(samples);
  if (!planeOrigin || !eyeToWorld) {
    rays.count = 0;  // no camera, no rays
    return;
  }
  // Path tracing asks for one ray per pixel and pass, so the one-ray table
  // is the base of its jitter.
  const SampleOffset* table = SampleTable(randomize ? 1 : rays.count);
  const double centreX = x + 0.5, centreY = y + 0.5;
  for (unsigned int i = 0; i < rays.count; ++i) {
    double sx = centreX + table[randomize ? 0 : i].x;
    double sy = centreY + table[randomize ? 0 : i].y;
    if (randomize) {
      RT_RANDOM_NUMBER_GENERATOR random(true, 0);
      sx += random.RandomUnit() - 0.5;
      sy += random.RandomUnit() - 0.5;
    }
    const SCENE_VERTEX_XYZ_64 p = {planeOrigin->x + sx * stepX, planeOrigin->y + sy * stepY, planeOrigin->z};
    const SCENE_VERTEX_XYZ_64 px = {p.x + stepX, p.y, p.z};
    const SCENE_VERTEX_XYZ_64 py = {p.x, p.y + stepY, p.z};
    SCENE_VERTEX_XYZ_64 s, sxStart, syStart;
    if (projectionType == ParallelProjection) {
      // All rays look along -z, from one unit in front of the plane.
      s = {p.x, p.y, p.z + 1.0};
      sxStart = {px.x, px.y, 0.0};
      syStart = {py.x, py.y, 0.0};
    } else {
      // From the eye at the origin; the ray starts one unit before the plane.
      const SCENE_VERTEX_XYZ_64 toPlane = UnitVector(p);
      s = Minus(p, toPlane);
      sxStart = syStart = {0.0, 0.0, 0.0};
    }
    PixelRaySample& ray = rays.rays[i];
    ray = PixelRaySample();
    ray.flags = PixelRayDifferentialsValid;
    ray.pixelX = sx;
    ray.pixelY = sy;
    WorldRay(eyeToWorld, s, p, ray.origin, ray.direction);
    WorldRay(eyeToWorld, sxStart, px, ray.xOrigin, ray.xDirection);
    WorldRay(eyeToWorld, syStart, py, ray.yOrigin, ray.yDirection);
    ray.inverseDirection = InverseDirection(ray.direction);
    ray.viewWidth = static_cast<float>(viewWidth);
    ray.viewHeight = static_cast<float>(viewHeight);
  }
}
