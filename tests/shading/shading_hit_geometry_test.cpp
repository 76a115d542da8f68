#include <cmath>
#include <gtest/gtest.h>
#include <limits>

#include "shading/HitGeometry.h"
#include "ShadingTestAccess.h"

namespace {

constexpr float NaN = std::numeric_limits<float>::quiet_NaN();

SCENE_VERTEX Corner(float x, float y, float z, float u, float v, SCENE_VERTEX_XYZ normal = {0, 0, 1},
                    SCENE_VERTEX_XYZ tangent = {1, 0, 0}) {
  return {{x, y, z}, normal, u, v, tangent};
}

void ExpectVector(const SCENE_VERTEX_XYZ_64& actual, double x, double y, double z, double tolerance = 1e-12) {
  const SCENE_VERTEX_XYZ_64 v = actual;
  EXPECT_NEAR(v.x, x, tolerance);
  EXPECT_NEAR(v.y, y, tolerance);
  EXPECT_NEAR(v.z, z, tolerance);
}

// The triangle (0,0,0), (2,0,0), (0,2,0) in the plane z = 0, mapped with
// u = x / 2 and v = y / 2; the main ray hits (0.5, 0.5, 0) straight down
// and the neighbouring pixels' rays start 0.1 further along x and y.
struct Footprint {
  SCENE_VERTEX_XYZ_64 dPdx{}, dPdy{};
  double dudx = -9, dudy = -9, dvdx = -9, dvdy = -9;
};
Footprint Differentials(const SCENE_VERTEX& a, const SCENE_VERTEX& b, const SCENE_VERTEX& c) {
  Footprint f;
  const SCENE_VERTEX_XYZ_64 down = {0, 0, -1};
  CalculateRayDifferentials(a, b, c, {0, 0, 1}, {0.6, 0.5, 5}, down, {0.5, 0.6, 5}, down, {0.5, 0.5, 0},
                            f.dPdx, f.dPdy, f.dudx, f.dudy, f.dvdx, f.dvdy);
  return f;
}

}  // namespace

TEST(HitGeometry, PointNormalAndCoordinates) {
  ExpectVector(GetPointOnRay({1, 2, 3}, {0, 0.6, -0.8}, 5), 1, 5, -1);

  const SCENE_VERTEX a = Corner(0, 0, 0, 0, 0), b = Corner(2, 0, 0, 1, 0), c = Corner(0, 2, 0, 0, 1);
  ExpectVector(CalculateTriangleNormal(a, b, c), 0, 0, 1);
  ExpectVector(CalculateTriangleNormal(a, c, b), 0, 0, -1);  // the winding sets the side

  double u = 0, v = 0;
  InterpolateTextureCoordinates(a, b, c, 0.25, 0.5, 0.25, u, v);
  EXPECT_DOUBLE_EQ(u, 0.25);
  EXPECT_DOUBLE_EQ(v, 0.5);
  // A broken coordinate reads as 0 rather than spoiling the hit.
  InterpolateTextureCoordinates(Corner(0, 0, 0, NaN, 1), b, Corner(0, 2, 0, 0, NaN), 0.5, 0.25, 0.25, u, v);
  EXPECT_DOUBLE_EQ(u, 0.5);
  EXPECT_DOUBLE_EQ(v, 0.25);
}

TEST(HitGeometry, RayDifferentialsAndTheirFallbacks) {
  const SCENE_VERTEX a = Corner(0, 0, 0, 0, 0), b = Corner(2, 0, 0, 1, 0), c = Corner(0, 2, 0, 0, 1);
  Footprint f = Differentials(a, b, c);
  ExpectVector(f.dPdx, 0.1, 0, 0);
  ExpectVector(f.dPdy, 0, 0.1, 0);
  EXPECT_NEAR(f.dudx, 0.05, 1e-9);
  EXPECT_NEAR(f.dvdx, 0.0, 1e-9);
  EXPECT_NEAR(f.dudy, 0.0, 1e-9);
  EXPECT_NEAR(f.dvdy, 0.05, 1e-9);

  // One u and v everywhere: the frame comes from the normal (0, 0, 1),
  // dPdu = (0, 1, 0) and dPdv = n x dPdu = (-1, 0, 0), solved on x and y.
  f = Differentials(Corner(0, 0, 0, 0.3f, 0.3f), Corner(2, 0, 0, 0.3f, 0.3f), Corner(0, 2, 0, 0.3f, 0.3f));
  EXPECT_NEAR(f.dudx, 0.0, 1e-9);
  EXPECT_NEAR(f.dvdx, -0.1, 1e-9);
  EXPECT_NEAR(f.dudy, 0.1, 1e-9);
  EXPECT_NEAR(f.dvdy, 0.0, 1e-9);

  // A triangle shrunk to a point has no derivatives to solve against.
  const SCENE_VERTEX p = Corner(1, 1, 0, 0, 0);
  f = Differentials(p, Corner(1, 1, 0, 1, 0), Corner(1, 1, 0, 0, 1));
  EXPECT_EQ(f.dudx, 1.0);
  EXPECT_EQ(f.dvdx, 0.0);
  EXPECT_EQ(f.dudy, 0.0);
  EXPECT_EQ(f.dvdy, 1.0);

  double x0 = 7, x1 = 7;
  const double singular[4] = {1, 2, 2, 4 + 1e-6}, right[2] = {1, 1};
  EXPECT_FALSE(SolveLinearSystem2x2(singular, right, x0, x1));
  EXPECT_EQ(x0, 7);
  const double matrix[4] = {2, 1, 1, 3}, side[2] = {5, 10};
  ASSERT_TRUE(SolveLinearSystem2x2(matrix, side, x0, x1));
  EXPECT_DOUBLE_EQ(x0, 1.0);
  EXPECT_DOUBLE_EQ(x1, 3.0);
}

TEST(HitGeometry, IntersectionNormalWithReliefAndSides) {
  RT_RENDER_ENGINE engine;
  ShadingTestAccess access(&engine);
  // Texels (bytes) blue, green, red: a map tilted to (1, -1, 1), and a
  // flat one as the relief maps store it (127, 127, 255).
  const uint32_t tilted = access.AddTexture(1, 1, [](int, int) { return 0xFFFF00FFu; });
  const uint32_t flat = access.AddTexture(1, 1, [](int, int) { return 0xFF7F7FFFu; });
  const SCENE_VERTEX a = Corner(0, 0, 0, 0, 0), b = Corner(2, 0, 0, 1, 0), c = Corner(0, 2, 0, 0, 1);
  const SCENE_VERTEX_XYZ_64 down = {0, 0, -1}, up = {0, 0, 1}, front = {0, 0, 1};
  const auto normal = [&](const SCENE_VERTEX& v0, const SCENE_VERTEX_XYZ_64& ray, bool bump, double depth,
                          uint32_t map) {
    SCENE_VERTEX_XYZ_64 n{};
    engine.CalculateIntersectionNormal(v0, b, c, 0.25, 0.25, 0.5, ray, front, bump, depth, map, 0.5, 0.5, 0,
                                       0, 0, 0, n);
    return n;
  };

  ExpectVector(normal(a, down, false, 1.0, tilted), 0, 0, 1);  // bump mapping off
  ExpectVector(normal(a, down, true, 0.0, tilted), 0, 0, 1);   // no relief depth
  ExpectVector(normal(a, down, true, 1.0, 99), 0, 0, 1);       // no such map
  // p = (1, -1, 1 * 0.1 / 1.1); T = x, N = z, B = T x N = -y, so the
  // normal is (1, 1, 1/11) made unit.
  const double length = std::sqrt(2.0 + 1.0 / 121.0);
  ExpectVector(normal(a, down, true, 1.0, tilted), 1 / length, 1 / length, 1 / 11.0 / length);
  // From behind, turned round, relief included.
  ExpectVector(normal(a, up, true, 1.0, tilted), -1 / length, -1 / length, -1 / 11.0 / length);
  // The stored flat texel tilts by about 1/255 only.
  ExpectVector(normal(a, down, true, 1.0, flat), 0, 0, 1, 0.05);
  // Without tangents the vertex normals still shade.
  const SCENE_VERTEX untangled = Corner(0, 0, 0, 0, 0, {0, 0, 1}, {NaN, 0, 0});
  ExpectVector(normal(untangled, down, true, 1.0, tilted), 0, 0, 1);

  // Smooth normals leaning so far that the interpolated one faces away from
  // a grazing ray: the plane's side decides, and it is the front.
  const SCENE_VERTEX leaning = Corner(0, 0, 0, 0, 0, {0.6f, 0, 0.8f});
  SCENE_VERTEX_XYZ_64 n{};
  engine.CalculateIntersectionNormal(leaning, leaning, leaning, 0.25, 0.25, 0.5, {0.99, 0, -0.141}, front,
                                     false, 0, 0, 0, 0, 0, 0, 0, 0, n);
  ExpectVector(n, 0.6, 0, 0.8, 1e-6);
}
