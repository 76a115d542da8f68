#include <gtest/gtest.h>

#include <cmath>

#include "RenderScene.h"

namespace {

SCENE_VERTEX_XYZ_64 P(double x, double y, double z) {
  return {x, y, z};
}

// A white diffuse light of intensity 10 that casts shadows.
RTRendererLight MakeLight(uint16_t type, SCENE_VERTEX_XYZ position) {
  RTRendererLight light{};
  light.definition.type = type;
  light.definition.position = position;
  light.definition.color = 0x00FFFFFF;
  light.definition.flags = LightEnabled | LightDiffuse | LightCastsShadows;
  light.definition.intensity = 10;
  return light;
}

// A floor of half-size 10 at height 0 and, above it, one object per case:
// a box from (-1, -1, 2) to (1, 1, 4) (its top and bottom), level plates of
// half-size 1.5 at height 5 of several opacities, a glass plate over an
// opaque one, and cut-out plates.
class ShadowSceneTest : public ::testing::Test {
 protected:
  void SetUp() override {
    // Uniform pictures whose every byte, alpha included, is 175 or 176.
    scene.Picture("lace175.png", 2, 2, [](int, int) { return 0xAFAFAFAFu; });
    scene.Picture("lace176.png", 2, 2, [](int, int) { return 0xB0B0B0B0u; });
    const struct {
      const char* name;
      float opacity, x, y, z, half;
      const char* picture = nullptr;
    } plates[] = {{"Floor", 100, 0, 0, 0, 10},
                  {"BoxBottom", 100, 0, 0, 2, 1},
                  {"BoxTop", 100, 0, 0, 4, 1},
                  {"Glass50", 50, 5, 5, 5, 1.5f},
                  {"Glass68.9", 68.9f, -5, 5, 5, 1.5f},
                  {"Glass69", 69, -5, -5, 5, 1.5f},
                  {"StackGlass", 50, 5, -5, 5, 1.5f},
                  {"StackWall", 100, 5, -5, 7, 1.5f},
                  {"Lace175", 100, 0, 8, 5, 1.5f, "lace175.png"},
                  {"Lace176", 100, 0, -8, 5, 1.5f, "lace176.png"},
                  {"Ghost", 100, 8, 0, 5, 1.5f, "missing.png"}};
    for (const auto& p : plates) {
      // A transparent texture when a picture is given.
      scene.Material(p.name, [&](TEXTURE_LINK& link) {
        link.SetOpacityLevel(p.opacity);
        if (p.picture) link.SetTextureLinkFullFileName(p.picture), link.SetTransparent(true);
      });
      const float x0 = p.x - p.half, x1 = p.x + p.half, y0 = p.y - p.half, y1 = p.y + p.half;
      scene.Quad(p.name, {x0, y0, p.z}, {x1, y0, p.z}, {x1, y1, p.z}, {x0, y1, p.z});
    }
    scene.Update();
    options.SetCustomLighting(true);
    options.SetRayTracedSoftShadows(false);
  }
  // Whether the way straight up from (x, y, 0) to height 10 is blocked.
  bool BlockedAbove(double x, double y, uint32_t depth = 0) {
    return engine->IsPointInShadow(P(x, y, 10), P(x, y, 0), depth);
  }

  RenderScene scene{4, 4};
  RT_RENDER_ENGINE* engine = scene.engine;
  MODE_RENDER_OPTIONS options;
};

}  // namespace

TEST_F(ShadowSceneTest, BoxCastsAHardShadowWhereGeometryPutsIt) {
  // From a light at height 10 the box's top edge x = 1 at height 4 falls
  // on the floor at x = 1 * 10 / (10 - 4) = 1.667.
  RTRendererLight light = MakeLight(0, {0, 0, 10});
  for (double x : {0.0, 1.6, 1.75}) {
    SCENE_VERTEX_XYZ diffuse{}, specular{};
    engine->AddPointLightContributionToPixel(&light, &options, nullptr, P(x, 0, 0), {0, 0, 1}, {0, 0, -1},
                                             {1, 1, 1}, {1, 1, 1}, 0, diffuse, specular);
    const float expected = x < 1.667 ? 0.0f : float(10.0 / std::sqrt(x * x + 100.0));
    EXPECT_FLOAT_EQ(diffuse.x, expected) << x;
  }
  EXPECT_TRUE(engine->IsPointInDirectShadow(P(0, 0, 1), P(0.9, 0.9, 0), 0));
  EXPECT_FALSE(engine->IsPointInDirectShadow(P(0, 0, 1), P(1.1, 0, 0), 0));

  // The bottom of the box is 2 from the floor and 1.999 from the ray's
  // start: a target at the box counts as behind it, one short of it not.
  EXPECT_TRUE(engine->IsPointInShadow(P(0, 0, 2), P(0, 0, 0), 0));
  EXPECT_FALSE(engine->IsPointInShadow(P(0, 0, 1.99), P(0, 0, 0), 0));
}

TEST_F(ShadowSceneTest, OpacityAndTexelAlphaDecideWhatBlocks) {
  EXPECT_FALSE(BlockedAbove(5, 5));      // 50 percent
  EXPECT_FALSE(BlockedAbove(-5, 5));     // 68.9
  EXPECT_TRUE(BlockedAbove(-5, -5));     // 69
  EXPECT_FALSE(BlockedAbove(0, 8));      // alpha 175/255, below 0.69
  EXPECT_TRUE(BlockedAbove(0, -8));      // alpha 176/255
  EXPECT_TRUE(BlockedAbove(8, 0));       // cut-out without a picture
  EXPECT_FALSE(BlockedAbove(3.6, 3.6));  // nothing over it at all

  // Glass over a wall: stepped through below the engine's depth limit of
  // 8 surfaces, and at the limit the glass ends the search with the point lit.
  const uint32_t limit = 8;
  EXPECT_TRUE(BlockedAbove(5, -5, limit - 1));
  EXPECT_FALSE(BlockedAbove(5, -5, limit));
}

TEST_F(ShadowSceneTest, EachShadowSettingPicksItsTest) {
  // Under the box from a light at height 10: 0 where the ray is cast, 1 where no test is made.
  const RTRendererLight light = MakeLight(0, {0, 0, 10});
  const struct {
    bool custom, display, soft;
    double visibility;
  } rows[] = {{true, true, false, 0},     // the hard ray
              {true, true, true, 0},      // soft shadows, no map yet: still the ray
              {true, false, false, 1},    // shadows hidden
              {false, false, false, 0}};  // default lighting shadows regardless
  for (const auto& r : rows) {
    options.SetCustomLighting(r.custom);
    options.SetDisplayShadows(r.display);
    options.SetRayTracedSoftShadows(r.soft);
    EXPECT_EQ(
        engine->GetLightVisibilityThroughShadow(&light, &options, nullptr, P(0, 0, 10), P(0, 0, 0), 0, 0),
        r.visibility);
  }
}

TEST_F(ShadowSceneTest, AmbientOcclusionIsTheDistanceToABlockerWithinOne) {
  // Straight up from 0.5 under the box, 0.001 already covered; then too far covered.
  const SCENE_VERTEX_XYZ_64 up = P(0, 0, 1), inverse = InverseDirection(up);
  EXPECT_NEAR(engine->GetAmbientOcclusionFactorForRay(P(0, 0, 1.5), up, inverse, 0.001), 0.501, 1e-9);
  EXPECT_EQ(engine->GetAmbientOcclusionFactorForRay(P(0, 0, 1.5), up, inverse, 0.501), 1.0);
  // Rays from the upper half of the cube made unit give min(0.5 / cos, 1) there, of mean
  // 0.8473 and deviation 0.168: 200 calls of 10 rays are held within 5 deviations.
  double sum = 0.0;
  for (int i = 0; i < 200; ++i) sum += engine->GetAmbientOcclusionFactor(P(0, 0, 1.5), up);
  EXPECT_NEAR(sum / 200, 0.8473, 5 * 0.168 / std::sqrt(2000.0));
  EXPECT_EQ(engine->GetAmbientOcclusionFactor(P(3.6, 3.6, 0), up), 1.0);  // nothing within 1
}
