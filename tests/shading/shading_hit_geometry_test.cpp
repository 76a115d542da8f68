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
void ExpectVector(const SCENE_VERTEX_XYZ_64& v, double x, double y, double z) {
  EXPECT_TRUE(std::abs(v.x - x) < 1e-9 && std::abs(v.y - y) < 1e-9 && std::abs(v.z - z) < 1e-9)
      << v.x << " " << v.y << " " << v.z;
}

// The triangle (0,0,0), (2,0,0), (0,2,0) in the plane z = 0, mapped with
// u = x / 2 and v = y / 2.
const SCENE_VERTEX A = Corner(0, 0, 0, 0, 0), B = Corner(2, 0, 0, 1, 0), C = Corner(0, 2, 0, 0, 1);

}  // namespace

TEST(HitGeometry, IntersectionNormalWithReliefAndSides) {
  ExpectVector(CalculateTriangleNormal(A, C, B), 0, 0, -1);  // the winding sets the side
  RT_RENDER_ENGINE engine;
  ShadingTestAccess access(&engine);
  // A texel (bytes blue, green, red) tilted to (1, -1, 1).
  const uint32_t tilted = access.AddTexture(1, 1, [](int, int) { return 0xFFFF00FFu; });
  const SCENE_VERTEX_XYZ_64 down = {0, 0, -1}, up = {0, 0, 1};
  // p = (1, -1, 1 * 0.1 / 1.1); T = x, N = z, B = T x N = -y, so the
  // tilted normal is (1, 1, 1/11) made unit.
  const double k = 1 / std::sqrt(2.0 + 1.0 / 121.0);
  const SCENE_VERTEX NoTangent = Corner(0, 0, 0, 0, 0, {0, 0, 1}, {NaN, 0, 0});
  const struct {
    const char* name;
    SCENE_VERTEX a;
    SCENE_VERTEX_XYZ_64 ray;
    bool bump;
    double depth;
    uint32_t map;
    SCENE_VERTEX_XYZ_64 expected;
  } cases[] = {
      {"bump mapping off", A, down, false, 1, tilted, {0, 0, 1}},
      {"no relief depth", A, down, true, 0, tilted, {0, 0, 1}},
      {"tilted", A, down, true, 1, tilted, {k, k, k / 11}},
      {"from behind, turned round, relief included", A, up, true, 1, tilted, {-k, -k, -k / 11}},
      {"no tangents: the vertex normals still shade", NoTangent, down, true, 1, tilted, {0, 0, 1}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    SCENE_VERTEX_XYZ_64 n{};
    engine.CalculateIntersectionNormal(c.a, B, C, 0.25, 0.25, 0.5, c.ray, {0, 0, 1}, c.bump, c.depth, c.map,
                                       0.5, 0.5, 0, 0, 0, 0, n);
    ExpectVector(n, c.expected.x, c.expected.y, c.expected.z);
  }
}

TEST(HitGeometry, RayDifferentialsOfAViewStraightDown) {
  // The ray hits (0.5, 0.5, 0) straight down, the next pixels' rays 0.1
  // further along x and y: u = x / 2 and v = y / 2 step by 0.05. A
  // triangle shrunk to a point has nothing to solve: one texel each way.
  for (const bool point : {false, true}) {
    const auto at = [&](const SCENE_VERTEX& c) { return point ? Corner(1, 1, 0, c.u, c.v) : c; };
    SCENE_VERTEX_XYZ_64 dPdx{}, dPdy{};
    double dudx = -9, dudy = -9, dvdx = -9, dvdy = -9;
    CalculateRayDifferentials(at(A), at(B), at(C), {0, 0, 1}, {0.6, 0.5, 5}, {0, 0, -1}, {0.5, 0.6, 5},
                              {0, 0, -1}, {0.5, 0.5, 0}, dPdx, dPdy, dudx, dudy, dvdx, dvdy);
    ExpectVector(dPdx, 0.1, 0, 0);
    ExpectVector(dPdy, 0, 0.1, 0);
    const double step = point ? 1 : 0.05;
    EXPECT_TRUE(std::abs(dudx - step) < 1e-9 && dvdx == 0 && dudy == 0 && std::abs(dvdy - step) < 1e-9);
  }
}
