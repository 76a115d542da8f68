// Projections, clipping distances and the way back from the screen.
#include "host/BrindlexViewMath.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

namespace {

// Near never comes closer than this fraction of far, so that a view from
// inside the scene keeps a usable depth range.
constexpr float NearFractionOfFar = 1e-4f;
// Clipping distances are pushed out by this share of the box's depth plus a
// fixed amount, so that the box's nearest and farthest surfaces stay inside.
constexpr double DepthMargin = 0.005;
constexpr double FixedMargin = 0.001;
// A perspective view that frames a box from close by opens no wider than
// this (89 degrees each side of the axis).
const double WidestHalfAngleTangent = std::tan(89.0 * std::numbers::pi / 180.0);
constexpr int ParallelProjection = 1;

SCENE_VERTEX_XYZ WorldFromHost(const SCENE_VERTEX_XYZ& host) {
  return {host.x, -host.y, host.z};
}

// How much of eye space the view must take in for the box to be seen whole:
// for a parallel view the half height, for a perspective view the tangent of
// the half angle, both measured so that the viewport's width fits as well.
double FramingOfBox(const SCENE_CAMERA_INFO& camera, const SCENE_VERTEX_XYZ& min, const SCENE_VERTEX_XYZ& max,
                    double aspect, bool perspective) {
  SCENE_MATRIX_64 view;
  CalculateModelViewMatrix(&view, &camera);
  SCENE_VERTEX_XYZ corners[8];
  InitializeCubePointArrayFromCubeMinMaxPts(corners, &min, &max);
  double needed = 0.0;
  for (const SCENE_VERTEX_XYZ& corner : corners) {
    SCENE_VERTEX_XYZ_64 p;
    ConvertSceneVertexXYZToSceneVertexXYZ64(&corner, &p);
    TransformPoint3D(&view, &p, &p);
    const double extent = std::max(std::fabs(p.y), std::fabs(p.x) / aspect);
    if (!perspective) {
      needed = std::max(needed, extent);
    } else if (p.z < 0.0) {  // corners behind the eye cannot be shown
      needed = std::max(needed, extent / -p.z);
    }
  }
  return perspective ? std::min(needed, WidestHalfAngleTangent) : needed;
}

void Orthographic(SCENE_MATRIX_64* out, double halfHeight, double aspect, double near, double far) {
  GetIdentityMatrix(out);
  out->m[0] = 1.0 / (halfHeight * aspect);
  out->m[5] = 1.0 / halfHeight;
  out->m[10] = -1.0 / (far - near);
  out->m[14] = -near / (far - near);
}

// Both overloads of CalculateProjectionMatrix; `viewWidth` not above 0 means
// that the camera's own size of view applies.
void ProjectView(SCENE_MATRIX_64* out, const int* viewport, const SCENE_CAMERA_INFO* camera,
                 int projectionType, double viewWidth, const SCENE_VERTEX_XYZ& min,
                 const SCENE_VERTEX_XYZ& max, bool autoHorizon) {
  if (!out || !viewport || !camera) return;
  if (viewport[2] <= 0 || viewport[3] <= 0) {
    GetIdentityMatrix(out);  // an empty picture has no shape to project onto
    return;
  }
  const double aspect = static_cast<double>(viewport[2]) / viewport[3];
  const SCENE_VERTEX_XYZ eye = WorldFromHost(camera->eye), lookAt = WorldFromHost(camera->lookAt);
  float near = 0.0f, far = 0.0f;
  GetNearAndFarClippingPlaneDistance(&min, &max, &eye, &lookAt, near, far);
  // The horizon runs up to the viewer, so the view starts one unit from the
  // eye, as the ray set-up does with the same flag.
  if (autoHorizon) near = 1.0f;
  if (far <= near) far = near + 1.0f;

  if (projectionType == ParallelProjection) {
    double halfHeight = viewWidth > 0.0                 ? viewWidth / 2.0 / aspect
                        : camera->parallelHeight > 0.0f ? camera->parallelHeight / 2.0
                                                        : FramingOfBox(*camera, min, max, aspect, false);
    // A box with no extent across the view is shown one unit tall.
    if (!(halfHeight > 0.0)) halfHeight = 0.5;
    Orthographic(out, halfHeight, aspect, near, far);
    return;
  }
  const double distance = Distance(&eye, &lookAt);
  double tangent = 0.0;
  if (viewWidth > 0.0 && distance > 0.0) {
    tangent = viewWidth / 2.0 / distance / aspect;
  } else if (camera->fieldOfView > 0.0f && camera->fieldOfView < 180.0f) {
    tangent = std::tan(camera->fieldOfView * std::numbers::pi / 360.0);
  } else {
    tangent = FramingOfBox(*camera, min, max, aspect, true);
  }
  // Nothing of the box in front of the eye: a right angle.
  if (!(tangent > 0.0)) tangent = 1.0;
  CalculatePerspectiveProjectionMatrixFOVRH(out, 2.0 * std::atan(tangent), aspect, near, far);
}

}  // namespace

bool CalculatePerspectiveProjectionMatrixFOVRH(SCENE_MATRIX_64* out, double fov, double aspect, double near,
                                               double far) {
  if (!out) return false;
  GetIdentityMatrix(out);
  if (!(fov > 0.0 && fov < std::numbers::pi && aspect > 0.0 && near > 0.0 && far > near)) return false;
  const double yScale = 1.0 / std::tan(fov / 2.0);
  out->m[0] = yScale / aspect;
  out->m[5] = yScale;
  out->m[10] = far / (near - far);
  out->m[11] = -1.0;
  out->m[14] = near * far / (near - far);
  out->m[15] = 0.0;
  return true;
}

void CalculateProjectionMatrix(SCENE_MATRIX_64* out, const int* viewport, const SCENE_CAMERA_INFO* camera,
                               int projectionType, const SCENE_VERTEX_XYZ& min, const SCENE_VERTEX_XYZ& max,
                               bool autoHorizon) {
  ProjectView(out, viewport, camera, projectionType, 0.0, min, max, autoHorizon);
}

void CalculateProjectionMatrix(SCENE_MATRIX_64* out, const int* viewport, const SCENE_CAMERA_INFO* camera,
                               int projectionType, double viewWidth, const SCENE_VERTEX_XYZ& min,
                               const SCENE_VERTEX_XYZ& max, bool autoHorizon) {
  ProjectView(out, viewport, camera, projectionType, viewWidth, min, max, autoHorizon);
}

void GetNearAndFarClippingPlaneDistance(const SCENE_VERTEX_XYZ* min, const SCENE_VERTEX_XYZ* max,
                                        const SCENE_VERTEX_XYZ* eye, const SCENE_VERTEX_XYZ* lookAt,
                                        float& near, float& far) {
  if (!min || !max || !eye || !lookAt) return;
  SCENE_VERTEX_XYZ_64 from, to, direction;
  ConvertSceneVertexXYZToSceneVertexXYZ64(eye, &from);
  ConvertSceneVertexXYZToSceneVertexXYZ64(lookAt, &to);
  direction = SCENE_VERTEX_XYZ_64{to.x - from.x, to.y - from.y, to.z - from.z};
  GetUnitVector(&direction, &direction);
  const bool alongView = Magnitude(&direction) > 0.5;

  SCENE_VERTEX_XYZ corners[8];
  InitializeCubePointArrayFromCubeMinMaxPts(corners, min, max);
  double nearest = std::numeric_limits<double>::max(), farthest = -nearest, farthestCorner = 0.0;
  for (const SCENE_VERTEX_XYZ& corner : corners) {
    const SCENE_VERTEX_XYZ_64 offset{corner.x - from.x, corner.y - from.y, corner.z - from.z};
    const double depth = alongView ? DotProduct(&offset, &direction) : Magnitude(&offset);
    nearest = std::min(nearest, depth);
    farthest = std::max(farthest, depth);
    farthestCorner = std::max(farthestCorner, Magnitude(&offset));
  }
  // A box wholly behind the eye shows nothing; the range then reaches as far
  // as the scene does, so that it stays a valid one.
  if (farthest <= 0.0) {
    nearest = 0.0;
    farthest = farthestCorner;
  }
  const double margin = DepthMargin * (farthest - nearest) + FixedMargin;
  far = static_cast<float>(farthest + margin);
  near = std::max(static_cast<float>(nearest - margin), far * NearFractionOfFar);
}

bool UnprojectFromScreen(const SCENE_VERTEX_XYZ_64* screen, const SCENE_MATRIX_64* modelView,
                         const SCENE_MATRIX_64* projection, const int* viewport, SCENE_VERTEX_XYZ_64* out) {
  if (!screen || !modelView || !projection || !viewport || !out) return false;
  const SCENE_VERTEX_XYZ_64 point = *screen;
  *out = SCENE_VERTEX_XYZ_64{0, 0, 0};
  if (viewport[2] <= 0 || viewport[3] <= 0) return false;
  SCENE_MATRIX_64 toScreen = *modelView, fromScreen;
  MatrixMultiply(projection, &toScreen);
  if (!GetInverseMatrix(&toScreen, &fromScreen)) return false;
  // Screen y runs down the picture, clip y up.
  const SCENE_VERTEX_XYZW_64 clip{2.0 * (point.x - viewport[0]) / viewport[2] - 1.0,
                                  1.0 - 2.0 * (point.y - viewport[1]) / viewport[3], point.z, 1.0};
  SCENE_VERTEX_XYZW_64 result;
  TransformPoint4D(&fromScreen, &clip, &result);
  if (result.w == 0.0 || !std::isfinite(result.w)) return false;
  *out = SCENE_VERTEX_XYZ_64{result.x / result.w, result.y / result.w, result.z / result.w};
  return true;
}
