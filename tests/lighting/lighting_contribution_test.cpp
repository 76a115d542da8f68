#include <gtest/gtest.h>

#include <cmath>

#include "host/BrindlexViewModel.h"
#include "engine/BrindlexViewRTRenderEngine.h"
#include "LightingTestAccess.h"
#include "accel/KDTree.h"
#include "scene/LightTable.h"
#include "scene/SWMeshTable.h"
#include "shadows/SWShadowMap.h"

using namespace lighting_test;

namespace {

constexpr double Pi = 3.141592653589793;
double Degrees(double d) {
  return d * Pi / 180.0;
}

// A level floor point lit by one light, seen from straight above; the
// lights here cast no shadow, so visibility is 1.
struct LightingTest : ::testing::Test {
  void SetUp() override { engine->Initialize(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr); }
  void TearDown() override { engine->Release(); }

  // Adds `light` at `point` to sums that start at `start`.
  void Shine(const RTRendererLight& light, SCENE_VERTEX_XYZ_64 point, float start = 0.0f,
             SCENE_VERTEX_XYZ_64 normal = {0, 0, 1}) {
    diffuse = {start, start, start};
    specular = {start, start, start};
    engine->AddLightContributionToPixel(&light, &options, nullptr, point, normal, {0, 0, -1}, {1, 1, 1},
                                        {1, 1, 1}, 0, diffuse, specular);
  }

  RT_RENDER_ENGINE* engine = static_cast<RT_RENDER_ENGINE*>(CreateRenderEngine());
  MODE_RENDER_OPTIONS options;
  SCENE_VERTEX_XYZ diffuse{}, specular{};
};

}  // namespace

TEST_F(LightingTest, PointLightFollowsLambertPhongAndQuadraticFalloff) {
  RTRendererLight light = MakeLight(0, {0, 0, 10}, {}, LightSpecular | LightHasFalloff);
  light.definition.falloffStart = 5.0;
  light.definition.falloffEnd = 20.0;
  // Straight under it: cosine 1, the mirrored ray meets the eye, and
  // d2 = 100 is 75 past the start radius: (1 - 75/400)^2.
  Shine(light, P(0, 0, 0), 0.25f);
  EXPECT_FLOAT_EQ(diffuse.x, 0.25f + 0.66015625f);
  EXPECT_FLOAT_EQ(specular.z, 0.25f + 0.66015625f);
  // Six to the side: cosine 10/sqrt(136), d2 = 136, (1 - 111/400)^2.
  Shine(light, P(6, 0, 0));
  EXPECT_FLOAT_EQ(diffuse.y, float(10.0 / std::sqrt(136.0) * 0.7225 * 0.7225));
  EXPECT_FLOAT_EQ(specular.y, float(std::pow(10.0 / std::sqrt(136.0), 32.0) * 0.7225 * 0.7225));

  // On the start radius exactly there is no attenuation.
  light.definition.falloffStart = 10.0;
  Shine(light, P(0, 0, 0));
  EXPECT_FLOAT_EQ(diffuse.x, 1.0f);
  // Past it with a zero end radius, nothing.
  light.definition.falloffStart = 9.0;
  light.definition.falloffEnd = 0.0;
  Shine(light, P(0, 0, 0), 0.5f);
  EXPECT_EQ(diffuse.x, 0.5f);
  EXPECT_EQ(specular.x, 0.5f);
}

TEST_F(LightingTest, GuardsColoursAndIntensity) {
  RTRendererLight light = MakeLight(0, {0, 0, 10}, {}, LightSpecular);
  light.definition.color = 0x00FF8000;  // red 0, green 128, blue 255
  Shine(light, P(0, 0, 0));
  EXPECT_EQ(diffuse.x, 0.0f);
  EXPECT_FLOAT_EQ(diffuse.y, 128.0f / 255.0f);
  EXPECT_FLOAT_EQ(specular.z, 1.0f);

  light.definition.intensity = -5;  // takes half a unit away
  Shine(light, P(0, 0, 0), 1.0f);
  EXPECT_FLOAT_EQ(diffuse.z, 0.5f);

  const float untouched = 0.125f;
  light.definition.intensity = 10;
  for (auto change : {+[](RTRendererLight& l) { l.definition.flags &= ~LightEnabled; },
                      +[](RTRendererLight& l) { l.definition.flags &= ~(LightDiffuse | LightSpecular); },
                      +[](RTRendererLight& l) { l.definition.flags |= LightIsSymbol; },
                      +[](RTRendererLight& l) { l.definition.type = 7; },
                      +[](RTRendererLight& l) { l.definition.intensity = 0; }}) {
    RTRendererLight changed = light;
    change(changed);
    options.SetDisableSymbolLights(true);
    Shine(changed, P(0, 0, 0), untouched);
    EXPECT_EQ(diffuse.z, untouched);
    EXPECT_EQ(specular.z, untouched);
  }
  // Facing away: no diffuse and no highlight either.
  Shine(light, P(0, 0, 0), untouched, {0, 0, -1});
  EXPECT_EQ(specular.z, untouched);
  // A per-type function turns a light of another type away.
  engine->AddSpotLightContributionToPixel(&light, &options, nullptr, P(0, 0, 0), {0, 0, 1}, {0, 0, -1},
                                          {1, 1, 1}, {1, 1, 1}, 0, diffuse, specular);
  EXPECT_EQ(diffuse.z, untouched);
  engine->AddLightContributionToPixel(nullptr, &options, nullptr, P(0, 0, 0), {0, 0, 1}, {0, 0, -1},
                                      {1, 1, 1}, {1, 1, 1}, 0, diffuse, specular);
  EXPECT_EQ(diffuse.z, untouched);
}

TEST_F(LightingTest, SpotConeAndSoftEdge) {
  RTRendererLight light = MakeLight(1, {0, 0, 10}, {0, 0, 0});
  light.definition.angle = 30.0;
  const auto at = [](double degrees) { return P(10.0 * std::tan(Degrees(degrees)), 0, 0); };
  Shine(light, at(20));
  EXPECT_FLOAT_EQ(diffuse.x, float(std::cos(Degrees(20))));
  Shine(light, at(30.5));
  EXPECT_EQ(diffuse.x, 0.0f);

  // The soft rim is the outer 55 percent of the half-angle: inside 13.5
  // degrees full light, then a ramp in the cosine down to 0 at 30.
  light.definition.flags |= LightSoftEdge;
  Shine(light, at(10));
  EXPECT_FLOAT_EQ(diffuse.x, float(std::cos(Degrees(10))));
  const double c20 = std::cos(Degrees(20)), c30 = std::cos(Degrees(30)), c13 = std::cos(Degrees(13.5));
  Shine(light, at(20));
  EXPECT_FLOAT_EQ(diffuse.x, float(c20 * (c20 - c30) / (c13 - c30)));
  Shine(light, at(29.999));
  EXPECT_NEAR(diffuse.x, 0.0f, 1e-4);

  // Falloff is measured along the axis: a point 6 to the side of the target
  // is as far as the target, 10 along the axis.
  light.definition.flags = (light.definition.flags & ~LightSoftEdge) | LightHasFalloff;
  light.definition.falloffStart = 10.0;
  light.definition.falloffEnd = 20.0;
  Shine(light, P(5, 0, 0));
  EXPECT_FLOAT_EQ(diffuse.x, float(10.0 / std::sqrt(125.0)));
}

TEST_F(LightingTest, DirectLightDependsOnItsDirectionOnly) {
  RTRendererLight light = MakeLight(2, {3, 0, 4}, {0, 0, 0}, LightHasFalloff);
  light.definition.intensity = 15;
  Shine(light, P(0, 0, 0));
  EXPECT_FLOAT_EQ(diffuse.x, 0.8f * 1.5f);  // no falloff, though asked for
  light.definition.position = {300, 0, 400};
  Shine(light, P(40, -7, 0));
  EXPECT_FLOAT_EQ(diffuse.x, 0.8f * 1.5f);
}

TEST_F(LightingTest, AreaLightShinesThroughItsRectangleOnly) {
  // A 4 x 2 opening at height 10 with a 45 degree half-angle: the virtual
  // point is 2 behind it, at height 12, and the lit floor is the opening
  // scaled by 12/2 = 6: |x| <= 12, |y| <= 6.
  RTRendererLight light = MakeLight(3, {0, 0, 10}, {0, 0, 0});
  light.definition.angle = 45.0;
  light.definition.axisU = {2, 0, 0};
  light.definition.axisV = {0, 1, 0};
  Shine(light, P(0, 5.5, 0));
  EXPECT_NEAR(diffuse.x, 12.0 / std::sqrt(5.5 * 5.5 + 144.0), 1e-6);
  Shine(light, P(0, 6.5, 0));
  EXPECT_EQ(diffuse.x, 0.0f);
  Shine(light, P(11.5, 0, 0));
  EXPECT_GT(diffuse.x, 0.0f);
  Shine(light, P(12.5, 0, 0));
  EXPECT_EQ(diffuse.x, 0.0f);

  // The soft rim is 45 percent of the shorter half-extent: 0.45 in y. At
  // y = 4.8 the line crosses the opening 0.8 off centre: (1 - 0.8) / 0.45.
  light.definition.flags |= LightSoftEdge;
  Shine(light, P(0, 4.8, 0));
  EXPECT_NEAR(diffuse.x, 12.0 / std::sqrt(4.8 * 4.8 + 144.0) * 0.2 / 0.45, 1e-5);

  // No angle, or no width: no shape to shine through.
  light.definition.angle = 0.0;
  Shine(light, P(0, 0, 0));
  EXPECT_EQ(diffuse.x, 0.0f);
  light.definition.angle = 45.0;
  light.definition.axisU = {0, 0, 0};
  Shine(light, P(0, 0, 0));
  EXPECT_EQ(diffuse.x, 0.0f);
}
