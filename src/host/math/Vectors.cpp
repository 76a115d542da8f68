// Vector operations of both precisions. Each is one template over the record
// type, so that float records are computed in float and double ones in double.
#include "host/BrindlexViewMath.h"

#include <cmath>

namespace {

template <typename V>
auto Dot(const V& a, const V& b) {
  return a.x * b.x + a.y * b.y + a.z * b.z;
}

template <typename V>
void Cross(const V& a, const V& b, V* out) {
  // Through a temporary, since `out` may be `a` or `b`.
  const V result{a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
  *out = result;
}

template <typename V>
auto Length(const V& v) {
  return std::sqrt(Dot(v, v));
}

template <typename V>
auto Between(const V& a, const V& b) {
  const V d{a.x - b.x, a.y - b.y, a.z - b.z};
  return Length(d);
}

template <typename V>
void Unit(const V& in, V* out) {
  const auto length = Length(in);
  // Only an exact zero is kept as it is; a not-a-number passes through the
  // division and stays visible to callers that test for it.
  if (length == 0) {
    *out = V{0, 0, 0};
    return;
  }
  *out = V{in.x / length, in.y / length, in.z / length};
}

}  // namespace

float DotProduct(const SCENE_VERTEX_XYZ* a, const SCENE_VERTEX_XYZ* b) {
  return a && b ? Dot(*a, *b) : 0.0f;
}
double DotProduct(const SCENE_VERTEX_XYZ_64* a, const SCENE_VERTEX_XYZ_64* b) {
  return a && b ? Dot(*a, *b) : 0.0;
}

void CrossProduct(const SCENE_VERTEX_XYZ* a, const SCENE_VERTEX_XYZ* b, SCENE_VERTEX_XYZ* out) {
  if (a && b && out) Cross(*a, *b, out);
}
void CrossProduct(const SCENE_VERTEX_XYZ_64* a, const SCENE_VERTEX_XYZ_64* b, SCENE_VERTEX_XYZ_64* out) {
  if (a && b && out) Cross(*a, *b, out);
}

float Magnitude(const SCENE_VERTEX_XYZ* v) {
  return v ? Length(*v) : 0.0f;
}
double Magnitude(const SCENE_VERTEX_XYZ_64* v) {
  return v ? Length(*v) : 0.0;
}

float Distance(const SCENE_VERTEX_XYZ* a, const SCENE_VERTEX_XYZ* b) {
  return a && b ? Between(*a, *b) : 0.0f;
}
double Distance(const SCENE_VERTEX_XYZ_64* a, const SCENE_VERTEX_XYZ_64* b) {
  return a && b ? Between(*a, *b) : 0.0;
}

void GetUnitVector(const SCENE_VERTEX_XYZ* in, SCENE_VERTEX_XYZ* out) {
  if (in && out) Unit(*in, out);
}
void GetUnitVector(const SCENE_VERTEX_XYZ_64* in, SCENE_VERTEX_XYZ_64* out) {
  if (in && out) Unit(*in, out);
}

void Get3DVectorOfLength(const SCENE_VERTEX_XYZ* in, double length, SCENE_VERTEX_XYZ* out) {
  if (!in || !out) return;
  // In double, so that a long vector made from a short one loses nothing
  // before the final rounding.
  SCENE_VERTEX_XYZ_64 direction;
  ConvertSceneVertexXYZToSceneVertexXYZ64(in, &direction);
  Unit(direction, &direction);
  const SCENE_VERTEX_XYZ_64 scaled{direction.x * length, direction.y * length, direction.z * length};
  ConvertSceneVertexXYZ64ToSceneVertexXYZ(&scaled, out);
}

void ConvertSceneVertexXYZToSceneVertexXYZ64(const SCENE_VERTEX_XYZ* in, SCENE_VERTEX_XYZ_64* out) {
  if (in && out) *out = SCENE_VERTEX_XYZ_64{in->x, in->y, in->z};
}

void ConvertSceneVertexXYZ64ToSceneVertexXYZ(const SCENE_VERTEX_XYZ_64* in, SCENE_VERTEX_XYZ* out) {
  if (in && out) {
    *out = SCENE_VERTEX_XYZ{static_cast<float>(in->x), static_cast<float>(in->y), static_cast<float>(in->z)};
  }
}

void InitializeCubePointArrayFromCubeMinMaxPts(SCENE_VERTEX_XYZ* corners, const SCENE_VERTEX_XYZ* min,
                                               const SCENE_VERTEX_XYZ* max) {
  if (!corners || !min || !max) return;
  // Copies first: `corners` may hold min or max.
  const SCENE_VERTEX_XYZ low = *min, high = *max;
  for (int i = 0; i < 8; ++i) {
    corners[i] =
        SCENE_VERTEX_XYZ{(i & 1) ? high.x : low.x, (i & 2) ? high.y : low.y, (i & 4) ? high.z : low.z};
  }
}
