// The turn that makes rotate-to-camera geometry (billboards) face the viewer.
#include "host/BrindlexViewMath.h"
#include "host/Numbers.h"

namespace {

constexpr int ParallelProjection = 1;

// The direction from the local origin to the viewer, in eye space.
SCENE_VERTEX_XYZ_64 TowardViewer(const SCENE_MATRIX& toEye, int projectionType) {
  // A parallel view has its viewer infinitely far along eye-space +z; a
  // perspective one has the eye at the origin of eye space.
  if (projectionType == ParallelProjection) return {0, 0, 1};
  return {-static_cast<double>(toEye.m[12]), -static_cast<double>(toEye.m[13]),
          -static_cast<double>(toEye.m[14])};
}

// Eye-space directions back into the local frame: the inverse of the linear
// part of `toEye`, which also undoes any scale of the parents.
bool EyeToLocal(const SCENE_MATRIX& toEye, SCENE_MATRIX_64* out) {
  SCENE_MATRIX_64 turn;
  GetIdentityMatrix(&turn);
  for (int column = 0; column < 3; ++column) {
    for (int row = 0; row < 3; ++row) turn.m[column * 4 + row] = toEye.m[column * 4 + row];
  }
  return GetInverseMatrix(&turn, out);
}

void SetColumn(SCENE_MATRIX* m, int column, const SCENE_VERTEX_XYZ_64& v) {
  m->m[column * 4] = static_cast<float>(v.x);
  m->m[column * 4 + 1] = static_cast<float>(v.y);
  m->m[column * 4 + 2] = static_cast<float>(v.z);
}

}  // namespace

void CalculateRotateToCameraMatrix(const SCENE_MATRIX* toEye, SCENE_MATRIX* out, int projectionType,
                                   bool upright) {
  if (!toEye || !out) return;
  const SCENE_MATRIX source = *toEye;  // `out` may be `toEye`
  GetIdentityMatrix(out);
  SCENE_MATRIX_64 eyeToLocal;
  if (!EyeToLocal(source, &eyeToLocal)) return;  // a flattened node: nothing to turn

  SCENE_VERTEX_XYZ_64 front = TowardViewer(source, projectionType);
  TransformPoint3D_M33(&eyeToLocal, &front, &front);
  if (upright) front.z = 0.0;  // turn about local z only
  // Seen from straight above or below, an upright billboard has no side to
  // turn to; and a viewer at the origin itself has no direction.
  if (Magnitude(&front) <= NearZero) return;
  GetUnitVector(&front, &front);

  // Local -y goes to `front`, local z stays as near to up as it can, and x
  // completes a right-handed frame.
  const SCENE_VERTEX_XYZ_64 y{-front.x, -front.y, -front.z};
  SCENE_VERTEX_XYZ_64 z{-front.z * front.x, -front.z * front.y, 1.0 - front.z * front.z};
  if (Magnitude(&z) <= NearZero) {
    // Facing straight up or down: the geometry tips over about local x.
    z = SCENE_VERTEX_XYZ_64{0, front.z > 0 ? 1.0 : -1.0, 0};
  }
  GetUnitVector(&z, &z);
  SCENE_VERTEX_XYZ_64 x;
  CrossProduct(&y, &z, &x);
  SetColumn(out, 0, x);
  SetColumn(out, 1, y);
  SetColumn(out, 2, z);
}
