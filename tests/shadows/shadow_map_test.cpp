#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "EngineTestAccess.h"
#include "RenderScene.h"
#include "shadows/ShadowMapSampling.h"

namespace {

constexpr double Huge = 1.7976931348623157e308;

SW_PIXEL_G64R64F Depth(double d) {
  return {d * d, d};
}

// Visibility of a point at depth 0.6 at the centre of column `x`.
double VisibilityAtColumn(const SWShadowMap& map, int x) {
  SW_PIXEL_G64R64F pixel{};
  SampleShadowMap(&map, (x + 0.5f) / map.width, 0.5f, pixel);
  return ShadowMapVisibility(pixel, 0.6, SmallestFlatMapVariance);
}

// The direction that the cube look-up sends to (u, v) of `face`, its face
// table solved for the direction, at s = 2u - 1, t = 2v - 1; the pixel may
// lie beyond the face, on the face's plane extended.
SCENE_VERTEX_XYZ_64 FaceDirection(int face, double x, double y, int size) {
  const double s = 2 * (x + 0.5) / size - 1, t = 2 * (y + 0.5) / size - 1;
  const SCENE_VERTEX_XYZ_64 d[6] = {{1, -t, -s}, {-1, -t, s}, {s, 1, t},
                                    {s, -1, -t}, {s, -t, 1},  {-s, -t, -1}};
  const double length = std::sqrt(d[face].x * d[face].x + d[face].y * d[face].y + d[face].z * d[face].z);
  return {d[face].x / length, d[face].y / length, d[face].z / length};
}
}  // namespace

TEST(ShadowMapLookUp, CubeFaceFollowsTheLargestAxisAndCoordinatesFollowTheFace) {
  // Face f holds depth 100 (f + 1) everywhere except the pixels named below.
  SWCubeShadowMap cube(256, 256, 6);
  for (int f = 0; f < 6; ++f)
    for (int i = 0; i < 256 * 256; ++i) cube.pixels[f * 256 * 256 + i] = Depth(100.0 * (f + 1));
  const struct {
    SCENE_VERTEX_XYZ_64 d;
    int face;
  } faces[] = {{{1, 0.5, 0.2}, 0}, {{-1, 0.5, 0.2}, 1}, {{0.1, 2, -1}, 2}, {{0.1, -2, -1}, 3},
               {{0.1, 0.2, 3}, 4}, {{0.1, 0.2, -3}, 5}, {{1, 1, 0.5}, 0},  {{-1, 1, 1}, 1},
               {{0, 1, 1}, 2},     {{0, 0, -1}, 5},     {{0, -0.0, 1}, 4}};
  for (const auto& c : faces) {
    SW_PIXEL_G64R64F pixel{};
    SampleCubeShadowMap(&cube, c.d, pixel);
    EXPECT_NEAR(pixel.depth, 100.0 * (c.face + 1), 1e-9) << c.d.x << " " << c.d.y << " " << c.d.z;
  }
  // Pixel (10, 200) of face 0 and of face 3, met by the directions that the
  // face table gives for that pixel's centre.
  cube.pixels[0 * 65536 + 200 * 256 + 10] = Depth(7.0);
  cube.pixels[3 * 65536 + 200 * 256 + 10] = Depth(9.0);
  SW_PIXEL_G64R64F pixel{};
  SampleCubeShadowMap(&cube, FaceDirection(0, 10, 200, 256), pixel);
  EXPECT_NEAR(pixel.depth, 7.0, 1e-3);
  SampleCubeShadowMap(&cube, FaceDirection(3, 10, 200, 256), pixel);
  EXPECT_NEAR(pixel.depth, 9.0, 1e-3);
  // The bound with the cube's variance floor of 10: a point 10 behind a
  // blocker at 100 gets 10 / (10 + 100).
  EXPECT_NEAR(ShadowMapVisibility(Depth(100.0), 110.0, SmallestCubeMapVariance), 10.0 / 110.0, 1e-12);
  EXPECT_EQ(ShadowMapVisibility(Depth(100.0), 100.0, SmallestCubeMapVariance), 1.0);
}

namespace {

// A floor at z = 0 and an opaque plate over (-1, -1) to (1, 1) at z = 2,
// under a glass of opacity 50 at z = 5 and a transparent material without
// a texture at z = 6, which the map must look through. Light 7 looks
// straight down from (0, 0, 10), its eye space the world moved down by 10.
class ShadowMapTileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    scene.Options().SetLighting(false);  // no maps of the update's own
    scene.Material("Solid", [](TEXTURE_LINK&) {});
    scene.Material("Glass", [](TEXTURE_LINK& link) { link.SetOpacityLevel(50); });
    scene.Material("Cutout", [](TEXTURE_LINK& link) {
      link.SetTransparent(true);
      link.SetTextureLinkFullFileName("missing.png");
    });
    Square("Solid", 50, 0);
    Square("Solid", 1, 2);
    Square("Glass", 20, 5);
    Square("Cutout", 20, 6);
    scene.Update();

    options.SetCustomLighting(true);
    RTRendererLight light{};
    light.number = 7;
    light.definition.type = 1;
    light.definition.flags = LightEnabled | LightCastsShadows;
    light.definition.position = {0, 0, 10};
    light.shadowNear = Near;
    light.shadowFar = Far;
    GetIdentityMatrix(&light.shadowView);
    light.shadowView.m[14] = -10.0;
    access.Lights().InsertOrUpdateLight(&light);
  }
  void Square(const char* material, float half, float z) {
    scene.Quad(material, {-half, -half, z}, {half, -half, z}, {half, half, z}, {-half, half, z});
  }
  // A tile of the whole 32 x 32 map; the near plane spans +-Tangent.
  SWRT_RENDER_THREAD_DATA* Tile(uint16_t kind, SWShadowMap* target) {
    auto* data = new SWRT_RENDER_THREAD_DATA();
    data->workKind = kind;
    data->width = data->height = data->viewWidth = data->viewHeight = Size;
    data->samples = 1;
    data->planeOrigin = {-Near * Tangent, Near * Tangent, -Near};
    data->stepX = 2 * Near * Tangent / Size;
    data->stepY = -2 * Near * Tangent / Size;
    GetIdentityMatrix(&data->eyeToWorld);
    data->eyeToWorld.m[14] = 10.0;
    data->view = scene.View();
    data->options = &options;
    data->shadowLightId = 7;
    data->shadowMap = target;
    return data;
  }
  void Run(SWRT_RENDER_THREAD_DATA* data) {
    access.Push({{RT_JOB_RENDER, data}});
    access.WaitForCompletion();
  }
  // By hand: the ray through the pixel's centre meets the plate where the
  // plate's z lies within it, and the floor; depth (9 - z) / 10.
  static double ExpectedDepth(int px, int py) {
    const double x = (px + 0.5 - Size / 2.0) / (Size / 2.0) * Tangent;  // per unit of descent
    const double y = (Size / 2.0 - py - 0.5) / (Size / 2.0) * Tangent;
    const bool onPlate = std::fabs(8 * x) <= 1 && std::fabs(8 * y) <= 1;
    return onPlate ? (0.7 + 0.9) / 2 : (0.9 + 1.0) / 2;
  }

  static constexpr int Size = 32;
  static constexpr double Near = 1.0, Far = 11.0, Tangent = 0.25;
  RenderScene scene{4, 4};
  EngineTestAccess access{scene.engine};
  MODE_RENDER_OPTIONS options;
};

}  // namespace

TEST_F(ShadowMapTileTest, TileAndFilterMatchABruteForceOfTheSamePixels) {
  auto* raw = new SWShadowMap(Size, Size);
  access.ShadowMapsSingle().push_back(raw);  // the engine deletes it
  access.ShadowMapIndexSingle()[7] = int32_t(access.ShadowMapsSingle().size() - 1);
  Run(Tile(RT_WORK_SHADOWMAP_PERSPECTIVE, raw));
  std::vector<double> expected(Size * Size);
  for (int y = 0; y < Size; ++y)
    for (int x = 0; x < Size; ++x) {
      expected[y * Size + x] = ExpectedDepth(x, y);
      ASSERT_NEAR(raw->pixels[y * Size + x].depth, expected[y * Size + x], 1e-9) << x << ", " << y;
    }

  // The filter by its definition: 25 taps at the clamped neighbours, each
  // the mean of the 2 x 2 pixels ending there, wrapping at the low edge.
  SWShadowMap filtered(*raw);
  Run(Tile(RT_WORK_SHADOWMAP_FILTER, &filtered));
  const auto at = [&](int x, int y) { return expected[((y + Size) % Size) * Size + (x + Size) % Size]; };
  for (int y = 0; y < Size; ++y)
    for (int x = 0; x < Size; ++x) {
      double mean = 0.0, square = 0.0;
      for (int dx = -2; dx <= 2; ++dx)
        for (int dy = -2; dy <= 2; ++dy) {
          const int cx = std::clamp(x + dx, 0, Size - 1), cy = std::clamp(y + dy, 0, Size - 1);
          for (int i : {cx - 1, cx})
            for (int j : {cy - 1, cy}) {
              mean += at(i, j) / 100.0;
              square += at(i, j) * at(i, j) / 100.0;
            }
        }
      EXPECT_NEAR(filtered.pixels[y * Size + x].depth, mean, 1e-12) << x << ", " << y;
      EXPECT_NEAR(filtered.pixels[y * Size + x].depthSquared, square, 1e-12) << x << ", " << y;
    }
}

TEST_F(ShadowMapTileTest, EmptyPixelsNeitherOverflowNorTurnIntoNotANumber) {
  // A blocker at 0.3 beside pixels that saw nothing.
  auto* map = new SWShadowMap(Size, Size);
  for (int i = 0; i < Size * Size; ++i)
    map->pixels[i] = i % Size < 16 ? SW_PIXEL_G64R64F{Huge, Huge} : Depth(0.3);
  access.ShadowMapsSingle().push_back(map);  // the engine deletes it
  access.ShadowMapIndexSingle()[7] = int32_t(access.ShadowMapsSingle().size() - 1);
  SWShadowMap filtered(*map);
  Run(Tile(RT_WORK_SHADOWMAP_FILTER, &filtered));
  for (int i = 0; i < Size * Size; ++i)
    EXPECT_TRUE(std::isfinite(filtered.pixels[i].depth) && std::isfinite(filtered.pixels[i].depthSquared))
        << i;
  // Lit space wins at the silhouette: the mean of any window that meets an
  // empty pixel lies beyond a point at 0.6. Away from it the blocker holds.
  EXPECT_EQ(VisibilityAtColumn(filtered, 17), 1.0);
  EXPECT_NEAR(VisibilityAtColumn(filtered, 24), 0.0001 / (0.0001 + 0.3 * 0.3), 1e-12);

  EXPECT_EQ(ShadowMapVisibility({Huge, 1e300}, 2e300, SmallestCubeMapVariance), 1.0);
}

TEST_F(ShadowMapTileTest, PixelHoldsTheMiddleOfTheFirstTwoBlockers) {
  // Rays from light 7 (flat depths) and from a point light at (0, 0, 10)
  // (distances), straight down through the plate or past it, and upward.
  RTRendererLight point = *access.Lights().FindLight(7);
  point.definition.type = 0;
  const RTRendererLight* spot = access.Lights().FindLight(7);
  const double half = Huge / 2.0;
  const struct {
    const RTRendererLight* light;
    double x, dz, depth, square;
  } cases[] = {
      {spot, 0.0, -1, 0.8, 0.64},             // plate 0.7, floor 0.9
      {spot, 3.0, -1, 0.95, 0.9025},          // floor 0.9, then the far plane
      {spot, 0.0, 1, Huge, Huge},             // nothing at all
      {&point, 0.0, -1, 9.0, 81.0},           // plate at 8, floor at 10
      {&point, 3.0, -1, 5 + half, HUGE_VAL},  // floor at 10, then open space
      {nullptr, 0.0, -1, Huge, Huge},
  };
  for (const auto& c : cases) {
    PixelRaySample ray;
    ray.origin = {c.x, 0, 10};
    ray.direction = {0, 0, c.dz};
    ray.inverseDirection = InverseDirection(ray.direction);
    SWRayIntersectionResult result{};
    const bool hit =
        scene.engine->IntersectSWGeometry(ray.origin, ray.direction, ray.inverseDirection, result);
    SW_PIXEL_G64R64F pixel{};
    scene.engine->ProcessShadowmapPixel(hit, result, ray, pixel, false, 0.0, c.light, 0, 0);
    EXPECT_NEAR(pixel.depth, c.depth, std::fabs(c.depth) * 1e-12) << c.x << " " << c.dz;
    if (std::isinf(c.square))
      EXPECT_TRUE(std::isinf(pixel.depthSquared));
    else
      EXPECT_NEAR(pixel.depthSquared, c.square, std::fabs(c.square) * 1e-12);
  }
}

TEST_F(ShadowMapTileTest, ALightsMapIsDrawnOnceCleanAndAnAbortKeepsItDirty) {
  // Draws `number`'s map after marking it dirty; true when it is clean after.
  SCENE_GRAPH graph;
  const auto generate = [&](int number, SCENE_GRAPH* in) {
    access.DirtyShadowLights() = {number};
    scene.engine->GenerateSWShadowmap(number, scene.View(), in, &options);
    return access.DirtyShadowLights().empty();
  };
  EXPECT_FALSE(generate(7, nullptr));  // no scene graph: nothing happens
  EXPECT_TRUE(access.ShadowMapsSingle().empty());
  scene.engine->SetShouldAbortRenderFunction([](void*) { return true; }, nullptr);
  EXPECT_FALSE(generate(7, &graph));  // drawn next time
  scene.engine->SetShouldAbortRenderFunction(nullptr, nullptr);
  EXPECT_TRUE(generate(7, &graph));
  ASSERT_EQ(access.ShadowMapsSingle().size(), 1u);
  EXPECT_EQ(access.ShadowMapsSingle()[0]->width, 256);  // a spot light's map
}
