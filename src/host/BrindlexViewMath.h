// Vectors, matrices and cameras of the host: the mathematics that both the
// scene model and the render engine share.
//
// Conventions, fixed for every function below:
//
// * Matrices are column-major (see SceneRecords.h): element (row r, column c)
//   is m[c * 4 + r], a point p maps to M p, and the translation sits in
//   elements 12, 13 and 14. So a matrix whose elements 0-2, 4-6 and 8-10 hold
//   three axes T, B, N sends (x, y, z) to x T + y B + z N.
// * The engine's world is right-handed and z-up. The host's camera record
//   (SCENE_CAMERA_INFO) holds eye and lookAt with y of the opposite sign:
//   world = (x, -y, z). Only the functions that take a SCENE_CAMERA_INFO make
//   that change; every other position here is a world position.
// * Eye space: the eye at the origin looks along -z, +x is right on the
//   screen, +y is up on the screen.
// * Screen space (viewports and UnprojectFromScreen): x grows to the right
//   from the viewport's left edge, y grows DOWNWARD from its top edge, z is 0
//   on the near plane and 1 on the far plane. A viewport is four ints: left,
//   top, width, height. So screen (left, top, 0) is the top-left corner of the
//   picture on the near plane, and a picture is walked row by row from there
//   with a negative step in eye-space y.
// * Projection matrices map eye space to clip space with x and y in -1 to 1
//   (y up) and z in 0 to 1 from the near to the far plane, w = -z for a
//   perspective view and 1 for a parallel one.
// * A camera (SCENE_CAMERA_INFO): fieldOfView is the vertical angle of a
//   perspective view in degrees, parallelHeight the world height that a
//   parallel view shows, roll a turn about the view direction in degrees,
//   positive banking the camera to the right (clockwise as seen from behind
//   it, the way an aircraft rolls). The world's up is +z; when the camera
//   looks straight up or down it uses +y instead.
// * Projection types: 1 is a parallel view; every other value is a
//   perspective view.
//
// Output pointers may equal input pointers everywhere. Null pointers are
// tolerated: a function then writes nothing and returns 0 or false.
#pragma once

#include "host/SceneRecords.h"

// --- Vectors ---------------------------------------------------------------

float DotProduct(const SCENE_VERTEX_XYZ* a, const SCENE_VERTEX_XYZ* b);
double DotProduct(const SCENE_VERTEX_XYZ_64* a, const SCENE_VERTEX_XYZ_64* b);
// out = a x b.
void CrossProduct(const SCENE_VERTEX_XYZ* a, const SCENE_VERTEX_XYZ* b, SCENE_VERTEX_XYZ* out);
void CrossProduct(const SCENE_VERTEX_XYZ_64* a, const SCENE_VERTEX_XYZ_64* b, SCENE_VERTEX_XYZ_64* out);
float Magnitude(const SCENE_VERTEX_XYZ* v);
double Magnitude(const SCENE_VERTEX_XYZ_64* v);
float Distance(const SCENE_VERTEX_XYZ* a, const SCENE_VERTEX_XYZ* b);
double Distance(const SCENE_VERTEX_XYZ_64* a, const SCENE_VERTEX_XYZ_64* b);
// The vector scaled to length 1. A zero vector stays zero (callers do not
// test for it first), and a vector with a not-a-number stays not-a-number.
void GetUnitVector(const SCENE_VERTEX_XYZ* in, SCENE_VERTEX_XYZ* out);
void GetUnitVector(const SCENE_VERTEX_XYZ_64* in, SCENE_VERTEX_XYZ_64* out);
// The same direction with the given length; a zero vector stays zero.
void Get3DVectorOfLength(const SCENE_VERTEX_XYZ* in, double length, SCENE_VERTEX_XYZ* out);

void ConvertSceneVertexXYZToSceneVertexXYZ64(const SCENE_VERTEX_XYZ* in, SCENE_VERTEX_XYZ_64* out);
void ConvertSceneVertexXYZ64ToSceneVertexXYZ(const SCENE_VERTEX_XYZ_64* in, SCENE_VERTEX_XYZ* out);

// The 8 corners of the box: corner i takes x from max when bit 0 of i is set,
// y when bit 1 is set, z when bit 2 is set, and from min otherwise.
void InitializeCubePointArrayFromCubeMinMaxPts(SCENE_VERTEX_XYZ* corners, const SCENE_VERTEX_XYZ* min,
                                               const SCENE_VERTEX_XYZ* max);

// --- Matrices --------------------------------------------------------------

void GetIdentityMatrix(SCENE_MATRIX* out);
void GetIdentityMatrix(SCENE_MATRIX_64* out);
// General 4 x 4 inverse. False, with `out` untouched, for a singular matrix.
bool GetInverseMatrix(const SCENE_MATRIX* in, SCENE_MATRIX* out);
bool GetInverseMatrix(const SCENE_MATRIX_64* in, SCENE_MATRIX_64* out);
// b = a * b: `a` is the accumulated (outer) side, `b` the local (inner) side,
// so the result applies b first. `a` is not changed.
void MatrixMultiply(const SCENE_MATRIX* a, SCENE_MATRIX* b);
void MatrixMultiply(const SCENE_MATRIX_64* a, SCENE_MATRIX_64* b);
void ConvertSceneMatrix64ToSceneMatrix(const SCENE_MATRIX_64* in, SCENE_MATRIX* out);
// The identity with `translation` in elements 12 to 14.
void CalculateTranslationMatrix(const SCENE_VERTEX_XYZ_64* translation, SCENE_MATRIX_64* out);

// --- Transforms ------------------------------------------------------------

// A point through the affine part of the matrix (upper 3 x 3 and
// translation). The bottom row is not read: transforms of points carry no
// perspective, and TransformPoint4D is the homogeneous form.
void TransformPoint3D(const SCENE_MATRIX* m, const SCENE_VERTEX_XYZ* in, SCENE_VERTEX_XYZ* out);
void TransformPoint3D(const SCENE_MATRIX_64* m, const SCENE_VERTEX_XYZ_64* in, SCENE_VERTEX_XYZ_64* out);
// A direction through the upper 3 x 3 only.
void TransformPoint3D_M33(const SCENE_MATRIX_64* m, const SCENE_VERTEX_XYZ_64* in, SCENE_VERTEX_XYZ_64* out);
// out = M (x, y, z, w), no division.
void TransformPoint4D(const SCENE_MATRIX_64* m, const SCENE_VERTEX_XYZW_64* in, SCENE_VERTEX_XYZW_64* out);
// A mesh vertex under a model matrix. The position takes the whole affine
// transform. The tangent lies in the surface and goes through the upper 3 x 3.
// The normal goes through the inverse transpose of the upper 3 x 3, so that it
// stays perpendicular to the surface under non-uniform scale and points out of
// a mirrored surface too. Normal and tangent keep their input length, so unit
// vectors stay unit, and a not-a-number (a mesh without tangents) stays one.
// u and v are copied.
void TransformSceneVertex(const SCENE_MATRIX* m, const SCENE_VERTEX* in, SCENE_VERTEX* out);

// --- Cameras ---------------------------------------------------------------

// World to eye for the camera (see the conventions at the top).
void CalculateModelViewMatrix(SCENE_MATRIX* out, const SCENE_CAMERA_INFO* camera);
void CalculateModelViewMatrix(SCENE_MATRIX_64* out, const SCENE_CAMERA_INFO* camera);

// World to eye for one face of a cube around the world position `position`;
// a face above 5 is face 0. The last argument chooses between two layouts:
//
// * true, a cube-map picture: faces 0 to 5 look along world +x, -x, +z, -z,
//   +y, -y. The four side faces keep world +z as screen up; the face looking
//   up (+z) is what a viewer sees tilting the head back from face 0, so its
//   screen up is -x, and the face looking down (-z) has screen up +x.
// * false, a shadow cube: face f holds the directions that the cube shadow
//   map look-up sends to its face f. That look-up works in host coordinates
//   (world y negated) with faces +x, -x, +y, -y, +z, -z, so in the world the
//   faces look along +x, -x, -y, +y, +z, -z, and each face is turned so that
//   the ray through the centre of pixel (x, y) of a square face is the
//   direction that the look-up finds at u = (x + 0.5) / size,
//   v = (y + 0.5) / size.
//
// Both layouts are proper rotations that tile the whole sphere.
void CalculateModelViewMatrixForEnvironmentalMap(unsigned int face, const SCENE_VERTEX_XYZ_64& position,
                                                 SCENE_MATRIX_64* out, bool cubeMapPicture);

// Right-handed perspective projection: `fov` is the vertical angle in
// radians, `aspect` width / height. False, with the identity written, unless
// 0 < fov < pi, aspect > 0 and 0 < near < far.
bool CalculatePerspectiveProjectionMatrixFOVRH(SCENE_MATRIX_64* out, double fov, double aspect, double near,
                                               double far);

// The projection of the camera's view onto `viewport` (left, top, width,
// height). Near and far come from GetNearAndFarClippingPlaneDistance for the
// world box min-max seen from the camera; with `autoHorizon` near is 1.0, as
// the horizon reaches to the eye. Projection type 1 is parallel: it shows
// parallelHeight of the world from top to bottom and as much across as the
// viewport's shape allows. Any other type is a perspective view with the
// camera's vertical fieldOfView. A camera without the size of its view
// (parallelHeight not above 0, or fieldOfView outside 0 to 180 degrees)
// frames the whole box instead, as a light's camera does. An empty viewport
// gives the identity.
void CalculateProjectionMatrix(SCENE_MATRIX_64* out, const int* viewport, const SCENE_CAMERA_INFO* camera,
                               int projectionType, const SCENE_VERTEX_XYZ& min, const SCENE_VERTEX_XYZ& max,
                               bool autoHorizon);
// A light's projection: `viewWidth` is the width of the view across the
// point looked at. A perspective view takes the angle that spans that width
// at the distance from the eye to lookAt (a spot light's cone); a parallel
// view is that wide. A `viewWidth` not above 0, or a perspective camera whose
// eye is its lookAt, falls back to the overload above.
void CalculateProjectionMatrix(SCENE_MATRIX_64* out, const int* viewport, const SCENE_CAMERA_INFO* camera,
                               int projectionType, double viewWidth, const SCENE_VERTEX_XYZ& min,
                               const SCENE_VERTEX_XYZ& max, bool autoHorizon);

// Near and far distances along the view from `eye` towards `lookAt` (both
// world positions) that enclose the 8 corners of the box min-max, widened by
// 0.5% of the box's depth plus 0.001 so that surfaces on the box's faces lie
// strictly inside. Near stays positive: when the eye is inside or beyond the
// box it is far / 10000. A box wholly behind the eye keeps far at the distance
// to its farthest corner; with eye equal to lookAt distances are taken in all
// directions.
void GetNearAndFarClippingPlaneDistance(const SCENE_VERTEX_XYZ* min, const SCENE_VERTEX_XYZ* max,
                                        const SCENE_VERTEX_XYZ* eye, const SCENE_VERTEX_XYZ* lookAt,
                                        float& near, float& far);

// Screen point to the space that `modelView` maps from, through the inverse of
// projection x modelView and the viewport. With the identity as `modelView`
// and screen z 0 this is the point on the near plane in eye space. False, with
// `out` zeroed, when the matrices are singular or the viewport is empty.
bool UnprojectFromScreen(const SCENE_VERTEX_XYZ_64* screen, const SCENE_MATRIX_64* modelView,
                         const SCENE_MATRIX_64* projection, const int* viewport, SCENE_VERTEX_XYZ_64* out);

// Rotate-to-camera geometry (billboards such as cut-out trees) is modelled
// with its front facing local -y: drawn in the local x-z plane, with local z
// up, as a z-up modeller's front view shows it. `toEye` maps the node's local
// origin (its translation applied, its own rotation not) into eye space. The
// result `out` is a rotation in that local frame, to be applied after the
// node's translation and before its own rotation, that turns the front to the
// viewer: for a perspective view (any projection type but 1) towards the eye
// at the eye-space origin, for a parallel view along eye-space +z. With
// `upright` true it turns only about local z, so that a tree stays standing;
// when the viewer is straight above or below, it leaves the geometry as it is.
// With `upright` false the front faces the viewer exactly, local z kept as
// near to up as it goes.
void CalculateRotateToCameraMatrix(const SCENE_MATRIX* toEye, SCENE_MATRIX* out, int projectionType,
                                   bool upright);
