// Points, directions and mesh vertices through matrices.
#include "host/BrindlexViewMath.h"

#include <cmath>

namespace {

// x * column 0 + y * column 1 + z * column 2 (+ column 3 for a point).
template <typename M, typename V>
void Apply(const M& m, const V& in, bool withTranslation, V* out) {
  const auto x = in.x, y = in.y, z = in.z;
  const auto w = withTranslation ? 1 : 0;
  *out = V{m.m[0] * x + m.m[4] * y + m.m[8] * z + m.m[12] * w,
           m.m[1] * x + m.m[5] * y + m.m[9] * z + m.m[13] * w,
           m.m[2] * x + m.m[6] * y + m.m[10] * z + m.m[14] * w};
}

// The cofactor matrix of the upper 3 x 3, with the sign of its determinant:
// the inverse transpose up to a positive factor. Unlike the inverse it exists
// for every matrix, and the factor does not matter because normals are scaled
// back to their length afterwards.
SCENE_MATRIX_64 NormalMatrix(const SCENE_MATRIX& m) {
  auto e = [&m](int row, int column) { return static_cast<double>(m.m[column * 4 + row]); };
  SCENE_MATRIX_64 n{};
  for (int row = 0; row < 3; ++row) {
    for (int column = 0; column < 3; ++column) {
      const int r1 = (row + 1) % 3, r2 = (row + 2) % 3, c1 = (column + 1) % 3, c2 = (column + 2) % 3;
      n.m[column * 4 + row] = e(r1, c1) * e(r2, c2) - e(r1, c2) * e(r2, c1);
    }
  }
  const double det = e(0, 0) * n.m[0] + e(0, 1) * n.m[4] + e(0, 2) * n.m[8];
  if (det < 0) {
    for (double& v : n.m) v = -v;
  }
  return n;
}

// A direction through the upper 3 x 3 of `m`, scaled back to the length it had.
SCENE_VERTEX_XYZ TurnKeepingLength(const SCENE_MATRIX_64& m, const SCENE_VERTEX_XYZ& in) {
  SCENE_VERTEX_XYZ_64 v;
  ConvertSceneVertexXYZToSceneVertexXYZ64(&in, &v);
  const double length = Magnitude(&v);
  Apply(m, v, false, &v);
  const double turned = Magnitude(&v);
  // A zero or not-a-number result is kept as it is: there is no direction to
  // scale, and a missing tangent must stay recognisable.
  if (turned > 0 && std::isfinite(turned)) {
    const double factor = length / turned;
    v = SCENE_VERTEX_XYZ_64{v.x * factor, v.y * factor, v.z * factor};
  }
  SCENE_VERTEX_XYZ out;
  ConvertSceneVertexXYZ64ToSceneVertexXYZ(&v, &out);
  return out;
}

SCENE_MATRIX_64 Widen(const SCENE_MATRIX& m) {
  SCENE_MATRIX_64 wide;
  for (int i = 0; i < 16; ++i) wide.m[i] = m.m[i];
  return wide;
}

}  // namespace

void TransformPoint3D(const SCENE_MATRIX* m, const SCENE_VERTEX_XYZ* in, SCENE_VERTEX_XYZ* out) {
  if (m && in && out) Apply(*m, *in, true, out);
}
void TransformPoint3D(const SCENE_MATRIX_64* m, const SCENE_VERTEX_XYZ_64* in, SCENE_VERTEX_XYZ_64* out) {
  if (m && in && out) Apply(*m, *in, true, out);
}

void TransformPoint3D_M33(const SCENE_MATRIX_64* m, const SCENE_VERTEX_XYZ_64* in, SCENE_VERTEX_XYZ_64* out) {
  if (m && in && out) Apply(*m, *in, false, out);
}

void TransformPoint4D(const SCENE_MATRIX_64* m, const SCENE_VERTEX_XYZW_64* in, SCENE_VERTEX_XYZW_64* out) {
  if (!m || !in || !out) return;
  const double v[4] = {in->x, in->y, in->z, in->w};
  double r[4];
  for (int row = 0; row < 4; ++row) {
    r[row] = m->m[row] * v[0] + m->m[4 + row] * v[1] + m->m[8 + row] * v[2] + m->m[12 + row] * v[3];
  }
  *out = SCENE_VERTEX_XYZW_64{r[0], r[1], r[2], r[3]};
}

void TransformSceneVertex(const SCENE_MATRIX* m, const SCENE_VERTEX* in, SCENE_VERTEX* out) {
  if (!m || !in || !out) return;
  SCENE_VERTEX result = *in;
  TransformPoint3D(m, &in->position, &result.position);
  result.normal = TurnKeepingLength(NormalMatrix(*m), in->normal);
  result.tangent = TurnKeepingLength(Widen(*m), in->tangent);
  *out = result;
}
