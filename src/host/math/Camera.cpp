// View matrices: world to eye for a camera and for the faces of a cube.
#include "host/BrindlexViewMath.h"

#include <cmath>
#include <numbers>
#include "host/Numbers.h"

namespace {

// The view whose eye-space axes are `right`, `up` and -`forward` (unit and
// perpendicular, in world coordinates), with the eye at `eye`. Its rows are
// those axes, so that it turns world directions into eye space.
void ViewFromAxes(const SCENE_VERTEX_XYZ_64& eye, const SCENE_VERTEX_XYZ_64& right,
                  const SCENE_VERTEX_XYZ_64& up, const SCENE_VERTEX_XYZ_64& forward, SCENE_MATRIX_64* out) {
  const SCENE_VERTEX_XYZ_64 back{-forward.x, -forward.y, -forward.z};
  const SCENE_VERTEX_XYZ_64* rows[3] = {&right, &up, &back};
  GetIdentityMatrix(out);
  for (int row = 0; row < 3; ++row) {
    out->m[row] = rows[row]->x;
    out->m[4 + row] = rows[row]->y;
    out->m[8 + row] = rows[row]->z;
    out->m[12 + row] = -DotProduct(rows[row], &eye);
  }
}

SCENE_VERTEX_XYZ_64 WorldFromHost(const SCENE_VERTEX_XYZ& host) {
  return {host.x, -static_cast<double>(host.y), host.z};
}

// Right and up of a camera looking along `forward`, before roll.
void UprightAxes(const SCENE_VERTEX_XYZ_64& forward, SCENE_VERTEX_XYZ_64* right, SCENE_VERTEX_XYZ_64* up) {
  const SCENE_VERTEX_XYZ_64 worldUp{0, 0, 1}, fallbackUp{0, 1, 0};
  CrossProduct(&forward, &worldUp, right);
  // Looking straight up or down there is no horizon to keep level; +y then
  // plays the part of up, as on a plan.
  if (Magnitude(right) <= NearZero) CrossProduct(&forward, &fallbackUp, right);
  GetUnitVector(right, right);
  CrossProduct(right, &forward, up);
}

}  // namespace

void CalculateModelViewMatrix(SCENE_MATRIX_64* out, const SCENE_CAMERA_INFO* camera) {
  if (!out || !camera) return;
  const SCENE_VERTEX_XYZ_64 eye = WorldFromHost(camera->eye), lookAt = WorldFromHost(camera->lookAt);
  SCENE_VERTEX_XYZ_64 forward{lookAt.x - eye.x, lookAt.y - eye.y, lookAt.z - eye.z};
  // A camera that looks at its own eye has no direction; it looks along world
  // +y, level, which is the host's default front view.
  if (Magnitude(&forward) <= NearZero) forward = SCENE_VERTEX_XYZ_64{0, 1, 0};
  GetUnitVector(&forward, &forward);

  SCENE_VERTEX_XYZ_64 right, up;
  UprightAxes(forward, &right, &up);
  // Roll turns right and up about the view direction by the right-hand rule
  // around `forward`: positive roll lowers the right side of the camera.
  const double angle = camera->roll * std::numbers::pi / 180.0, c = std::cos(angle), s = std::sin(angle);
  const SCENE_VERTEX_XYZ_64 rolledRight{right.x * c - up.x * s, right.y * c - up.y * s,
                                        right.z * c - up.z * s};
  const SCENE_VERTEX_XYZ_64 rolledUp{up.x * c + right.x * s, up.y * c + right.y * s, up.z * c + right.z * s};
  ViewFromAxes(eye, rolledRight, rolledUp, forward, out);
}

void CalculateModelViewMatrix(SCENE_MATRIX* out, const SCENE_CAMERA_INFO* camera) {
  if (!out || !camera) return;
  SCENE_MATRIX_64 wide;
  CalculateModelViewMatrix(&wide, camera);
  ConvertSceneMatrix64ToSceneMatrix(&wide, out);
}

void CalculateModelViewMatrixForEnvironmentalMap(unsigned int face, const SCENE_VERTEX_XYZ_64& position,
                                                 SCENE_MATRIX_64* out, bool cubeMapPicture) {
  if (!out) return;
  struct FaceAxes {
    SCENE_VERTEX_XYZ_64 forward, right, up;
  };
  // A picture's faces: side faces stand upright under world +z; the faces
  // above and below are the views of a viewer who tilts the head from face 0.
  static constexpr FaceAxes PictureFaces[6] = {
      {{1, 0, 0}, {0, -1, 0}, {0, 0, 1}},  {{-1, 0, 0}, {0, 1, 0}, {0, 0, 1}},
      {{0, 0, 1}, {0, -1, 0}, {-1, 0, 0}}, {{0, 0, -1}, {0, -1, 0}, {1, 0, 0}},
      {{0, 1, 0}, {1, 0, 0}, {0, 0, 1}},   {{0, -1, 0}, {-1, 0, 0}, {0, 0, 1}},
  };
  // A shadow cube's faces, read off the cube look-up: the world ray
  // forward + (2u - 1) right + (1 - 2v) up, once its y is negated, is the
  // direction that the look-up sends to face f at u, v. The ray through pixel
  // (x, y) of a 90-degree square face is that one, u growing with x and v
  // with y as the screen convention of this library has them.
  static constexpr FaceAxes ShadowFaces[6] = {
      {{1, 0, 0}, {0, 0, -1}, {0, -1, 0}}, {{-1, 0, 0}, {0, 0, 1}, {0, -1, 0}},
      {{0, -1, 0}, {1, 0, 0}, {0, 0, -1}}, {{0, 1, 0}, {1, 0, 0}, {0, 0, 1}},
      {{0, 0, 1}, {1, 0, 0}, {0, -1, 0}},  {{0, 0, -1}, {-1, 0, 0}, {0, -1, 0}},
  };
  // Faces above 5 are face 0, as the callers' table of face directions has it.
  const FaceAxes& axes = (cubeMapPicture ? PictureFaces : ShadowFaces)[face > 5 ? 0 : face];
  ViewFromAxes(position, axes.right, axes.up, axes.forward, out);
}
