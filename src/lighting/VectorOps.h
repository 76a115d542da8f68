// Double-precision vector arithmetic of the shadow, lighting and occlusion
// code, which works on positions and directions in world space.
#pragma once

#include <cmath>

#include "host/BrindlexViewMath.h"
#include "accel/RayIntersection.h"
#include "host/SceneRecords.h"

// In a namespace of their own: the short names would clash with helpers
// that other files keep to themselves.
namespace vector64 {

inline SCENE_VERTEX_XYZ_64 Add(const SCENE_VERTEX_XYZ_64& a, const SCENE_VERTEX_XYZ_64& b) {
  return {a.x + b.x, a.y + b.y, a.z + b.z};
}

inline SCENE_VERTEX_XYZ_64 Subtract(const SCENE_VERTEX_XYZ_64& a, const SCENE_VERTEX_XYZ_64& b) {
  return {a.x - b.x, a.y - b.y, a.z - b.z};
}

inline SCENE_VERTEX_XYZ_64 Scale(const SCENE_VERTEX_XYZ_64& v, double s) {
  return {v.x * s, v.y * s, v.z * s};
}

inline SCENE_VERTEX_XYZ_64 Widen(const SCENE_VERTEX_XYZ& v) {
  SCENE_VERTEX_XYZ_64 wide;
  ConvertSceneVertexXYZToSceneVertexXYZ64(&v, &wide);
  return wide;
}

inline SCENE_VERTEX_XYZ_64 UnitOf(const SCENE_VERTEX_XYZ_64& v) {
  SCENE_VERTEX_XYZ_64 unit;
  GetUnitVector(&v, &unit);
  return unit;
}

inline double Dot(const SCENE_VERTEX_XYZ_64& a, const SCENE_VERTEX_XYZ_64& b) {
  return DotProduct(&a, &b);
}

inline double Length(const SCENE_VERTEX_XYZ_64& v) {
  return Magnitude(&v);
}

using ::InverseDirection;

}  // namespace vector64
