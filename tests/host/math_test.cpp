#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <random>
#include <tuple>

#include "host/BrindlexViewMath.h"

namespace {

using V3 = SCENE_VERTEX_XYZ_64;

void ExpectNear(const V3& actual, const V3& expected, double tolerance = 1e-9) {
  EXPECT_NEAR(actual.x, expected.x, tolerance);
  EXPECT_NEAR(actual.y, expected.y, tolerance);
  EXPECT_NEAR(actual.z, expected.z, tolerance);
}

V3 Through(const SCENE_MATRIX_64& m, V3 p) {
  TransformPoint3D(&m, &p, &p);
  return p;
}

V3 Unit(V3 v) {
  GetUnitVector(&v, &v);
  return v;
}

SCENE_CAMERA_INFO Camera(SCENE_VERTEX_XYZ eye, SCENE_VERTEX_XYZ lookAt, float fov = 60, float height = 10,
                         float roll = 0) {
  return SCENE_CAMERA_INFO{eye, lookAt, fov, height, roll};
}

// The 3 x 3 determinant of the upper part.
double Determinant33(const SCENE_MATRIX_64& m) {
  auto e = [&m](int r, int c) { return m.m[c * 4 + r]; };
  return e(0, 0) * (e(1, 1) * e(2, 2) - e(1, 2) * e(2, 1)) -
         e(0, 1) * (e(1, 0) * e(2, 2) - e(1, 2) * e(2, 0)) +
         e(0, 2) * (e(1, 0) * e(2, 1) - e(1, 1) * e(2, 0));
}

}  // namespace

// A zero vector stays zero when made unit; a not-a-number stays one.
TEST(Vectors, UnitOfZeroIsZero) {
  ExpectNear(Unit({3, 0, 4}), {0.6, 0, 0.8});
  ExpectNear(Unit({0, 0, 0}), {0, 0, 0});
  EXPECT_TRUE(std::isnan(Unit({NAN, 0, 0}).x));
}

TEST(Matrices, InverseTimesMatrixIsIdentityAndSingularIsRefused) {
  std::mt19937 random(7);
  std::uniform_real_distribution<double> element(-1.0, 1.0);
  for (int trial = 0; trial < 20; ++trial) {
    SCENE_MATRIX_64 m, inverse;
    // Random entries on a strong diagonal: general, well conditioned, with a
    // bottom row that is not (0, 0, 0, 1).
    for (int i = 0; i < 16; ++i) m.m[i] = element(random) + (i % 5 == 0 ? 4.0 : 0.0);
    ASSERT_TRUE(GetInverseMatrix(&m, &inverse));
    MatrixMultiply(&m, &inverse);
    for (int i = 0; i < 16; ++i) EXPECT_NEAR(inverse.m[i], i % 5 == 0 ? 1.0 : 0.0, 1e-12);
  }
  SCENE_MATRIX_64 singular, untouched;
  GetIdentityMatrix(&singular);
  singular.m[5] = 0.0;  // y is flattened
  GetIdentityMatrix(&untouched);
  untouched.m[3] = 42.0;
  EXPECT_FALSE(GetInverseMatrix(&singular, &untouched));
  EXPECT_EQ(untouched.m[3], 42.0);

  // A view far from the origin, as of a model in millimetres, is no less
  // invertible for its large translation: the inverse moves back.
  SCENE_MATRIX_64 far, back;
  const SCENE_VERTEX_XYZ_64 offset{25000.0, -40000.0, 1.0e6};
  CalculateTranslationMatrix(&offset, &far);
  ASSERT_TRUE(GetInverseMatrix(&far, &back));
  EXPECT_EQ(std::tuple(back.m[12], back.m[13], back.m[14]), std::tuple(-25000.0, 40000.0, -1.0e6));
  // Nor is the projection of a flat floor seen face on, whose near and far
  // planes lie close together: unprojecting a pixel needs its inverse.
  SCENE_MATRIX_64 thin, thinInverse;
  ASSERT_TRUE(CalculatePerspectiveProjectionMatrixFOVRH(&thin, 0.1, 1.0, 99.999, 100.001));
  EXPECT_TRUE(GetInverseMatrix(&thin, &thinInverse));
}

TEST(Transforms, ProductOrderPointsDirectionsAndHomogeneous) {
  // A quarter turn about z applied first, then a move by (10, 20, 30):
  // (1, 2, 3) turns to (-2, 1, 3) and moves to (8, 21, 33).
  SCENE_MATRIX move{}, turn{};
  move.m[0] = move.m[5] = move.m[10] = move.m[15] = turn.m[10] = turn.m[15] = 1;
  move.m[12] = 10, move.m[13] = 20, move.m[14] = 30, turn.m[1] = 1, turn.m[4] = -1;
  MatrixMultiply(&move, &turn);
  SCENE_VERTEX_XYZ p{1, 2, 3};
  TransformPoint3D(&turn, &p, &p);
  EXPECT_EQ(std::tuple(p.x, p.y, p.z), std::tuple(8.0f, 21.0f, 33.0f));
  EXPECT_EQ(move.m[0], 1.0f);  // the outer side is left as it was

  const V3 offset{10, 20, 30};
  SCENE_MATRIX_64 m;
  CalculateTranslationMatrix(&offset, &m);
  m.m[0] = 0, m.m[1] = 1, m.m[4] = -1, m.m[5] = 0;
  V3 direction{1, 2, 3};
  TransformPoint3D_M33(&m, &direction, &direction);
  ExpectNear(direction, {-2, 1, 3});
  SCENE_VERTEX_XYZW_64 q{1, 2, 3, 0.5};
  TransformPoint4D(&m, &q, &q);
  ExpectNear({q.x, q.y, q.z}, {3, 11, 18});
  EXPECT_EQ(q.w, 0.5);
}

TEST(Transforms, SceneVertexKeepsNormalsPerpendicularAndUnit) {
  // Stretch x by 2 and move by 1 in x. A surface through (1, 1, 0) with
  // normal (1, 1, 0) / sqrt 2 and tangent (1, -1, 0) / sqrt 2: the tangent
  // becomes (2, -1, 0) / sqrt 5 and the normal (1, 2, 0) / sqrt 5.
  SCENE_MATRIX m;
  GetIdentityMatrix(&m);
  m.m[0] = 2.0f;
  m.m[12] = 1.0f;
  const float r = 1.0f / std::sqrt(2.0f), s = 1.0f / std::sqrt(5.0f);
  SCENE_VERTEX v{{1, 1, 0}, {r, r, 0}, 0.25f, 0.75f, {r, -r, 0}};
  TransformSceneVertex(&m, &v, &v);
  EXPECT_EQ(std::tuple(v.position.x, v.position.y, v.u, v.v), std::tuple(3.0f, 1.0f, 0.25f, 0.75f));
  ExpectNear({v.normal.x, v.normal.y, v.normal.z}, {s, 2 * s, 0}, 1e-6);
  ExpectNear({v.tangent.x, v.tangent.y, v.tangent.z}, {2 * s, -s, 0}, 1e-6);

  // A mirror in x: a normal facing +x now faces -x, the outside of the
  // mirrored surface. A mesh without tangents keeps its not-a-number.
  GetIdentityMatrix(&m);
  m.m[0] = -1.0f;
  SCENE_VERTEX w{{0, 0, 0}, {1, 0, 0}, 0, 0, {NAN, NAN, NAN}};
  TransformSceneVertex(&m, &w, &w);
  EXPECT_FLOAT_EQ(w.normal.x, -1.0f);
  EXPECT_TRUE(std::isnan(w.tangent.x));
}

TEST(Camera, ModelViewLooksAtTargetWithWorldUpAsScreenUp) {
  // Host eye (0, 10, 2) is world (0, -10, 2): the camera looks along world +y.
  const SCENE_CAMERA_INFO camera = Camera({0, 10, 2}, {0, 0, 2});
  SCENE_MATRIX_64 view;
  CalculateModelViewMatrix(&view, &camera);
  ExpectNear(Through(view, {0, -10, 2}), {0, 0, 0});
  ExpectNear(Through(view, {0, 0, 2}), {0, 0, -10});
  ExpectNear(Through(view, {0, -10, 3}), {0, 1, 0});  // world up is screen up
  ExpectNear(Through(view, {1, -10, 2}), {1, 0, 0});  // world +x is right
  EXPECT_NEAR(Determinant33(view), 1.0, 1e-12);

  // Rolled by 90 degrees the camera banks right: world up now shows to the left.
  const SCENE_CAMERA_INFO rolled = Camera({0, 10, 2}, {0, 0, 2}, 60, 10, 90);
  CalculateModelViewMatrix(&view, &rolled);
  ExpectNear(Through(view, {0, -10, 3}), {-1, 0, 0});

  // Straight down, +y takes the part of up.
  const SCENE_CAMERA_INFO down = Camera({0, 0, 10}, {0, 0, 0});
  CalculateModelViewMatrix(&view, &down);
  ExpectNear(Through(view, {0, 0, 0}), {0, 0, -10});
  ExpectNear(Through(view, {0, 1, 10}), {0, 1, 0});
}

TEST(Camera, NearAndFarEncloseTheBox) {
  const SCENE_VERTEX_XYZ min{-1, -1, -1}, max{1, 1, 1}, eye{0, -10, 0}, look{0, 0, 0};
  float near = 0, far = 0;
  GetNearAndFarClippingPlaneDistance(&min, &max, &eye, &look, near, far);
  // Corners lie at depths 9 and 11 along +y; the margin is small.
  EXPECT_TRUE(near > 8.9f && near < 9.0f && far > 11.0f && far < 11.1f) << near << " " << far;
  // From inside the box near stays positive, far reaches the far face.
  const SCENE_VERTEX_XYZ inside{0, 0, 0}, ahead{0, 1, 0};
  GetNearAndFarClippingPlaneDistance(&min, &max, &inside, &ahead, near, far);
  EXPECT_TRUE(far > 1.0f && near > 0.0f && near < far * 0.001f) << near << " " << far;
}

namespace {

const SCENE_VERTEX_XYZ BoxMin{-1, -1, -1}, kBoxMax{1, 1, 1};

// Where a world point lands on the screen: x right from the viewport's left,
// y down from its top, z 0 on the near plane and 1 on the far one.
V3 ToScreen(const SCENE_MATRIX_64& view, const SCENE_MATRIX_64& projection, const int* viewport, V3 p) {
  SCENE_VERTEX_XYZW_64 h{p.x, p.y, p.z, 1.0};
  TransformPoint4D(&view, &h, &h);
  TransformPoint4D(&projection, &h, &h);
  return {viewport[0] + (h.x / h.w + 1) / 2 * viewport[2], viewport[1] + (1 - h.y / h.w) / 2 * viewport[3],
          h.z / h.w};
}

V3 Unproject(V3 screen, const SCENE_MATRIX_64& view, const SCENE_MATRIX_64& projection, const int* viewport) {
  V3 out;
  EXPECT_TRUE(UnprojectFromScreen(&screen, &view, &projection, viewport, &out));
  return out;
}

}  // namespace

TEST(Camera, UnprojectingViewportCornersGivesNearPlaneCorners) {
  const int viewport[4] = {10, 20, 640, 480};
  const SCENE_CAMERA_INFO camera = Camera({0, 10, 0}, {0, 0, 0}, 60, 10);
  const SCENE_VERTEX_XYZ eye{0, -10, 0}, look{0, 0, 0};  // the camera in world coordinates
  float near = 0, far = 0;
  GetNearAndFarClippingPlaneDistance(&BoxMin, &kBoxMax, &eye, &look, near, far);
  SCENE_MATRIX_64 identity, projection;
  GetIdentityMatrix(&identity);

  CalculateProjectionMatrix(&projection, viewport, &camera, 0, BoxMin, kBoxMax, false);
  const double halfHeight = near * std::tan(30.0 * std::numbers::pi / 180.0),
               halfWidth = halfHeight * 4.0 / 3.0;
  ExpectNear(Unproject({10, 20, 0}, identity, projection, viewport), {-halfWidth, halfHeight, -near}, 1e-5);
  ExpectNear(Unproject({650, 500, 0}, identity, projection, viewport), {halfWidth, -halfHeight, -near}, 1e-5);
  ExpectNear(Unproject({330, 260, 1}, identity, projection, viewport), {0, 0, -far}, 1e-4);

  CalculateProjectionMatrix(&projection, viewport, &camera, 1, BoxMin, kBoxMax, false);
  ExpectNear(Unproject({10, 20, 0}, identity, projection, viewport), {-5.0 * 4 / 3, 5, -near}, 1e-5);
  ExpectNear(Unproject({650, 500, 0}, identity, projection, viewport), {5.0 * 4 / 3, -5, -near}, 1e-5);

  // With the horizon on, the view starts one unit from the eye.
  CalculateProjectionMatrix(&projection, viewport, &camera, 0, BoxMin, kBoxMax, true);
  EXPECT_NEAR(Unproject({10, 20, 0}, identity, projection, viewport).z, -1.0, 1e-9);
}

TEST(Camera, LightProjectionsFrameTheLight) {
  // A spot light with a half-angle of 30 degrees: the map spans exactly its cone.
  const int viewport[4] = {0, 0, 256, 256};
  const SCENE_CAMERA_INFO spot = Camera({0, 0, 10}, {0, 0, 0}, 0, 0);
  const double width = std::tan(30.0 * std::numbers::pi / 180.0) * 10.0 * 2.0;
  SCENE_MATRIX_64 projection, view;
  CalculateProjectionMatrix(&projection, viewport, &spot, 0, width, BoxMin, kBoxMax, false);
  EXPECT_NEAR(projection.m[5], 1.0 / std::tan(30.0 * std::numbers::pi / 180.0), 1e-9);
  EXPECT_NEAR(projection.m[0], projection.m[5], 1e-9);

  // A direct light's camera knows no size of view: the parallel view takes in
  // the whole box, touching it on at least one side.
  const SCENE_CAMERA_INFO sun = Camera({-5, 5, 10}, {0, 0, 0}, 0, 0);
  CalculateModelViewMatrix(&view, &sun);
  CalculateProjectionMatrix(&projection, viewport, &sun, 1, BoxMin, kBoxMax, false);
  SCENE_VERTEX_XYZ corners[8];
  InitializeCubePointArrayFromCubeMinMaxPts(corners, &BoxMin, &kBoxMax);
  double widest = 0;
  for (const SCENE_VERTEX_XYZ& c : corners) {
    const V3 s = ToScreen(view, projection, viewport, {c.x, c.y, c.z});
    EXPECT_TRUE(s.x >= -1e-9 && s.x <= 256 + 1e-9 && s.y >= -1e-9 && s.y <= 256 + 1e-9);
    EXPECT_TRUE(s.z > 0 && s.z < 1);
    widest = std::max({widest, std::fabs(s.x - 128), std::fabs(s.y - 128)});
  }
  EXPECT_NEAR(widest, 128, 1e-6);
}

namespace {

// The face, u and v that the cube shadow map's look-up gives a direction.
std::tuple<unsigned, double, double> CubeLookUp(const V3& d) {
  const double ax = std::fabs(d.x), ay = std::fabs(d.y), az = std::fabs(d.z);
  if (ax >= ay && ax >= az)
    return {d.x > 0 ? 0 : 1, ((d.x > 0 ? -d.z : d.z) / ax + 1) / 2, (1 - d.y / ax) / 2};
  if (ay >= az) return {d.y > 0 ? 2 : 3, (d.x / ay + 1) / 2, ((d.y > 0 ? d.z : -d.z) / ay + 1) / 2};
  return {d.z > 0 ? 4 : 5, ((d.z > 0 ? d.x : -d.x) / az + 1) / 2, (1 - d.y / az) / 2};
}

}  // namespace

TEST(Camera, CubeFacesLookAlongTheirAxesAndAreRotations) {
  const V3 position{1, 2, 3};
  const V3 pictureAxes[6] = {{1, 0, 0}, {-1, 0, 0}, {0, 0, 1}, {0, 0, -1}, {0, 1, 0}, {0, -1, 0}};
  const V3 shadowAxes[6] = {{1, 0, 0}, {-1, 0, 0}, {0, -1, 0}, {0, 1, 0}, {0, 0, 1}, {0, 0, -1}};
  for (bool picture : {true, false}) {
    for (unsigned face = 0; face < 6; ++face) {
      const V3& a = (picture ? pictureAxes : shadowAxes)[face];
      SCENE_MATRIX_64 view;
      CalculateModelViewMatrixForEnvironmentalMap(face, position, &view, picture);
      ExpectNear(Through(view, position), {0, 0, 0});
      ExpectNear(Through(view, {position.x + a.x, position.y + a.y, position.z + a.z}), {0, 0, -1});
      EXPECT_NEAR(Determinant33(view), 1.0, 1e-12);
      // A picture's side faces stand upright.
      if (picture && a.z == 0) ExpectNear(Through(view, {position.x, position.y, position.z + 1}), {0, 1, 0});
      if (picture) continue;
      // The ray through a shadow face's point (u, v) of its right-angled
      // view, screen y down, is the direction that the cube look-up (whose
      // y is the world's negated) sends to that face at u, v.
      SCENE_MATRIX_64 eyeToWorld;
      ASSERT_TRUE(GetInverseMatrix(&view, &eyeToWorld));
      for (const auto& [u, v] : {std::pair{0.1, 0.3}, {0.8, 0.6}}) {
        V3 ray{2 * u - 1, 1 - 2 * v, -1};
        TransformPoint3D_M33(&eyeToWorld, &ray, &ray);
        const auto [lookedUp, lu, lv] = CubeLookUp({ray.x, -ray.y, ray.z});
        EXPECT_EQ(lookedUp, face);
        EXPECT_NEAR(lu, u, 1e-9);
        EXPECT_NEAR(lv, v, 1e-9);
      }
    }
  }
  SCENE_MATRIX_64 first, beyond;
  CalculateModelViewMatrixForEnvironmentalMap(0, position, &first, true);
  CalculateModelViewMatrixForEnvironmentalMap(9, position, &beyond, true);
  for (int i = 0; i < 16; ++i) EXPECT_EQ(first.m[i], beyond.m[i]);
}

namespace {

// The world direction of a billboard's front (local -y) when a node placed by
// `parent` (translation and parents' turns) is turned by the library.
V3 FrontAfterTurn(const SCENE_MATRIX& view, const SCENE_MATRIX& parent, int projectionType, bool upright) {
  SCENE_MATRIX toEye = parent, turn, world;
  MatrixMultiply(&view, &toEye);
  CalculateRotateToCameraMatrix(&toEye, &turn, projectionType, upright);
  world = turn;
  MatrixMultiply(&parent, &world);  // the view and its inverse cancel
  SCENE_VERTEX_XYZ base{0, 0, 0}, tip{0, -1, 0};
  TransformPoint3D(&world, &base, &base);
  TransformPoint3D(&world, &tip, &tip);
  return {tip.x - base.x, tip.y - base.y, tip.z - base.z};
}

}  // namespace

TEST(RotateToCamera, FrontTurnsTowardTheViewer) {
  // World eye (0, -10, 3) looking down at the origin; the billboard stands
  // off the axis at (6, 0, 0) under a parent turned 40 degrees about z.
  const SCENE_CAMERA_INFO camera = Camera({0, 10, 3}, {0, 0, 0});
  SCENE_MATRIX view, parent;
  CalculateModelViewMatrix(&view, &camera);
  GetIdentityMatrix(&parent);
  const float c = std::cos(40.0f * std::numbers::pi / 180.0f),
              s = std::sin(40.0f * std::numbers::pi / 180.0f);
  parent.m[0] = c, parent.m[1] = s, parent.m[4] = -s, parent.m[5] = c, parent.m[12] = 6;

  // Upright, as the engine turns them. Perspective, and the light pass's
  // type 0: towards the eye; parallel: against the view direction, wherever
  // the billboard stands.
  for (int type : {0, 2}) ExpectNear(FrontAfterTurn(view, parent, type, true), Unit({-6, -10, 0}), 1e-5);
  ExpectNear(FrontAfterTurn(view, parent, 1, true), {0, -1, 0}, 1e-5);
}
