// What both shaders need to start a ray that continues a path from a
// surface: the sample it belongs to and the mirror direction.
#pragma once

#include "pipeline/PixelRays.h"
#include "lighting/VectorOps.h"

// A mirror ray parallel to an axis gets the largest float, held in a
// double, as the inverse of that component.
constexpr double ContinuationLargestInverse = 3.4028234663852886e38;

// A continuation ray belongs to the pixel of the ray it continues, so that
// it finds the background where that pixel shows it.
inline PixelRaySample ContinuationOf(const PixelRaySample& sample) {
  PixelRaySample next;
  next.pixelX = sample.pixelX;
  next.pixelY = sample.pixelY;
  next.viewWidth = sample.viewWidth;
  next.viewHeight = sample.viewHeight;
  return next;
}

// `d` mirrored about the unit normal `n`, made unit again.
inline SCENE_VERTEX_XYZ_64 MirrorDirection(const SCENE_VERTEX_XYZ_64& d, const SCENE_VERTEX_XYZ_64& n) {
  using namespace vector64;
  return UnitOf(Subtract(d, Scale(n, 2 * Dot(d, n))));
}
