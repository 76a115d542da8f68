// Geometry of a hit: point, plane normal, texture coordinates and the
// texture footprint from ray differentials.
#include "shading/HitGeometry.h"

#include <cmath>

#include "host/BrindlexViewMath.h"
#include "lighting/VectorOps.h"
#include "host/Numbers.h"

namespace {
double Axis(const SCENE_VERTEX_XYZ_64& v, int axis) {
  return axis == 0 ? v.x : axis == 1 ? v.y : v.z;
}

// Broken meshes carry not-a-number coordinates; they read as 0 so that the
// hit still shades.
double TextureCoordinate(float value) {
  return std::isnan(value) ? 0.0 : static_cast<double>(value);
}

// a - b in 32-bit floats, then widened: the rounding of the stored vertices
// is part of the result.
SCENE_VERTEX_XYZ_64 PositionDifference(const SCENE_VERTEX& a, const SCENE_VERTEX& b) {
  const SCENE_VERTEX_XYZ pa = a.position, pb = b.position;
  const float x = pa.x - pb.x, y = pa.y - pb.y, z = pa.z - pb.z;
  return {x, y, z};
}

// Where the ray (origin, direction) meets the plane dot(normal, x) + d = 0.
// A ray parallel to the plane gives infinities, which the footprint solve
// then rejects.
SCENE_VERTEX_XYZ_64 PointOnPlane(const SCENE_VERTEX_XYZ_64& normal, double d,
                                 const SCENE_VERTEX_XYZ_64& origin, const SCENE_VERTEX_XYZ_64& direction) {
  const double t = -(DotProduct(&normal, &origin) + d) / DotProduct(&normal, &direction);
  return GetPointOnRay(origin, direction, t);
}

// The two axes on which the plane is projected: the pair that drops the
// normal's largest component.
void ProjectionAxes(const SCENE_VERTEX_XYZ_64& n, int& a, int& b) {
  const double x = std::fabs(n.x), y = std::fabs(n.y), z = std::fabs(n.z);
  if (x > y && x > z) {
    a = 1;
    b = 2;
  } else {
    a = 0;
    b = y > z ? 2 : 1;
  }
}

// A frame in the plane from the normal alone, for a triangle whose texture
// coordinates span no area.
void FrameFromNormal(const SCENE_VERTEX_XYZ_64& n, SCENE_VERTEX_XYZ_64& dPdu, SCENE_VERTEX_XYZ_64& dPdv) {
  if (std::fabs(n.x) > std::fabs(n.y)) {
    const double length = std::sqrt(n.x * n.x + n.z * n.z);
    dPdu = {-n.z / length, 0.0, n.x / length};
  } else {
    const double length = std::sqrt(n.y * n.y + n.z * n.z);
    dPdu = {0.0, n.z / length, -n.y / length};
  }
  CrossProduct(&n, &dPdu, &dPdv);
}

// How position changes with u and with v; false for a mapping without area.
bool SurfaceDerivatives(const SCENE_VERTEX& v0, const SCENE_VERTEX& v1, const SCENE_VERTEX& v2,
                        SCENE_VERTEX_XYZ_64& dPdu, SCENE_VERTEX_XYZ_64& dPdv) {
  const double u0 = TextureCoordinate(v0.u), u1 = TextureCoordinate(v1.u), u2 = TextureCoordinate(v2.u);
  const double t0 = TextureCoordinate(v0.v), t1 = TextureCoordinate(v1.v), t2 = TextureCoordinate(v2.v);
  const double du1 = u0 - u2, du2 = u1 - u2, dv1 = t0 - t2, dv2 = t1 - t2;
  const double determinant = du1 * dv2 - dv1 * du2;
  if (std::fabs(determinant) <= NearZero) return false;
  const SCENE_VERTEX_XYZ_64 dp1 = PositionDifference(v0, v2), dp2 = PositionDifference(v1, v2);
  dPdu = {(dv2 * dp1.x - dv1 * dp2.x) / determinant, (dv2 * dp1.y - dv1 * dp2.y) / determinant,
          (dv2 * dp1.z - dv1 * dp2.z) / determinant};
  dPdv = {(du1 * dp2.x - du2 * dp1.x) / determinant, (du1 * dp2.y - du2 * dp1.y) / determinant,
          (du1 * dp2.z - du2 * dp1.z) / determinant};
  return true;
}
}  // namespace

SCENE_VERTEX_XYZ_64 GetPointOnRay(const SCENE_VERTEX_XYZ_64& origin, const SCENE_VERTEX_XYZ_64& direction,
                                  double t) {
  return {origin.x + direction.x * t, origin.y + direction.y * t, origin.z + direction.z * t};
}

SCENE_VERTEX_XYZ_64 CalculateTriangleNormal(const SCENE_VERTEX& v0, const SCENE_VERTEX& v1,
                                            const SCENE_VERTEX& v2) {
  const SCENE_VERTEX_XYZ_64 e1 = PositionDifference(v1, v0), e2 = PositionDifference(v2, v0);
  SCENE_VERTEX_XYZ_64 normal;
  CrossProduct(&e1, &e2, &normal);
  GetUnitVector(&normal, &normal);
  return normal;
}

void InterpolateTextureCoordinates(const SCENE_VERTEX& v0, const SCENE_VERTEX& v1, const SCENE_VERTEX& v2,
                                   double weightB, double weightC, double hitWeight, double& textureU,
                                   double& textureV) {
  textureU = TextureCoordinate(v0.u) * hitWeight + TextureCoordinate(v1.u) * weightB +
             TextureCoordinate(v2.u) * weightC;
  textureV = TextureCoordinate(v0.v) * hitWeight + TextureCoordinate(v1.v) * weightB +
             TextureCoordinate(v2.v) * weightC;
}

bool SolveLinearSystem2x2(const double matrix[4], const double rightSide[2], double& x0, double& x1) {
  const double a = matrix[0], b = matrix[1], c = matrix[2], d = matrix[3];
  const double e = rightSide[0], f = rightSide[1];
  const double det = a * d - b * c;
  if (static_cast<float>(std::fabs(det)) < 1e-5) return false;
  const double inverse = 1.0 / det;
  x0 = (d * e - b * f) * inverse;
  x1 = (a * f - c * e) * inverse;
  return true;
}

void CalculateRayDifferentials(const SCENE_VERTEX& v0, const SCENE_VERTEX& v1, const SCENE_VERTEX& v2,
                               const SCENE_VERTEX_XYZ_64& normal, const SCENE_VERTEX_XYZ_64& xOrigin,
                               const SCENE_VERTEX_XYZ_64& xDirection, const SCENE_VERTEX_XYZ_64& yOrigin,
                               const SCENE_VERTEX_XYZ_64& yDirection, const SCENE_VERTEX_XYZ_64& hitPoint,
                               SCENE_VERTEX_XYZ_64& dPdx, SCENE_VERTEX_XYZ_64& dPdy, double& dudx,
                               double& dudy, double& dvdx, double& dvdy) {
  const double d = -DotProduct(&normal, &hitPoint);
  const SCENE_VERTEX_XYZ_64 px = PointOnPlane(normal, d, xOrigin, xDirection);
  const SCENE_VERTEX_XYZ_64 py = PointOnPlane(normal, d, yOrigin, yDirection);
  dPdx = vector64::Subtract(px, hitPoint);
  dPdy = vector64::Subtract(py, hitPoint);

  int a = 0, b = 0;
  ProjectionAxes(normal, a, b);
  SCENE_VERTEX_XYZ_64 dPdu{}, dPdv{};
  if (!SurfaceDerivatives(v0, v1, v2, dPdu, dPdv)) FrameFromNormal(normal, dPdu, dPdv);

  const double matrix[4] = {Axis(dPdu, a), Axis(dPdv, a), Axis(dPdu, b), Axis(dPdv, b)};
  const double rightX[2] = {Axis(px, a) - Axis(hitPoint, a), Axis(px, b) - Axis(hitPoint, b)};
  const double rightY[2] = {Axis(py, a) - Axis(hitPoint, a), Axis(py, b) - Axis(hitPoint, b)};
  // An unsolvable footprint falls back to one texel step along its own axis.
  if (!SolveLinearSystem2x2(matrix, rightX, dudx, dvdx)) {
    dudx = 1.0;
    dvdx = 0.0;
  }
  if (!SolveLinearSystem2x2(matrix, rightY, dudy, dvdy)) {
    dudy = 0.0;
    dvdy = 1.0;
  }
}
