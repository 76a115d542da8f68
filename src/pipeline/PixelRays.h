// The rays of one pixel and what each of them hit. A pixel has at most 16
// rays, held on the tracing thread's stack, so no pixel allocates.
#pragma once

#include <cstddef>
#include <cstdint>

#include "accel/RayIntersection.h"
#include "host/SceneRecords.h"

enum PIXEL_RAY_FLAGS : uint16_t {
  PixelRayDifferentialsValid = 0x1,  // xOrigin ... yDirection may be used
};

#pragma pack(push, 1)
// One ray of a pixel, with the rays through the next pixel in x and in y
// that texture filtering takes its footprint from.
struct PixelRaySample {
  uint16_t flags = 0;
  double pixelX = 0.0, pixelY = 0.0;  // sample position in view pixels
  SCENE_VERTEX_XYZ_64 origin{};       // world space
  SCENE_VERTEX_XYZ_64 direction{};    // unit vector
  SCENE_VERTEX_XYZ_64 inverseDirection{};
  SCENE_VERTEX_XYZ_64 xOrigin{}, xDirection{};
  SCENE_VERTEX_XYZ_64 yOrigin{}, yDirection{};
  SCENE_VERTEX_XYZW color{};  // result of shading: red, green, blue, alpha
  float viewWidth = 0.0f, viewHeight = 0.0f;
};

constexpr unsigned int MaximumPixelRays = 16;

struct PixelRaySet {
  uint32_t count = 0;
  PixelRaySample rays[MaximumPixelRays];
};

// What one ray of a pixel hit; `sampleIndex` is its row in the PixelRaySet,
// so that the records can be sorted by hit and still find their ray.
struct PixelRayHit {
  bool hit = false;
  SWRayIntersectionResult result{};
  uint32_t sampleIndex = 0;
};
#pragma pack(pop)

static_assert(sizeof(PixelRaySample) == 210);
static_assert(sizeof(PixelRaySet) == 4 + 16 * 210);
static_assert(sizeof(PixelRayHit) == 41);
