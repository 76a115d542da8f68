#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

#include "host/BrindlexTexture.h"
#include "LightingTestAccess.h"
#include "pipeline/RandomNumberGenerator.h"
#include "SceneTestAccess.h"
#include "accel/KDTree.h"
#include "scene/LightTable.h"
#include "scene/SWMeshTable.h"
#include "shadows/SWShadowMap.h"

using namespace lighting_test;
using namespace scene_test;

namespace {

// A floor of half-size 10 at height 0 and, above it, one object per case:
// a box from (-1, -1, 2) to (1, 1, 4), level plates of half-size 1.5 at
// height 5 of several opacities, a glass plate over an opaque one, cut-out
// plates, low plates at height 0.5 and a wall at x = 9.5.
class ShadowSceneTest : public ::testing::Test {
 protected:
  void SetUp() override {
    // Test programs run side by side: one folder per test and process.
    folder = ::testing::TempDir() + "shadow_rays_" +
             ::testing::UnitTest::GetInstance()->current_test_info()->name() + "_" +
             std::to_string(getpid()) + "/";
    ASSERT_EQ(std::system(("mkdir -p " + folder).c_str()), 0);
    WritePicture("lace175.png", 175);
    WritePicture("lace176.png", 176);
    engine->Initialize(folder.c_str(), "", "", "", nullptr, nullptr);
    materials = project.CreateMaterialRoot(0);
    view->GetViewFileState()->SetCameraInfo({{0, -20, 10}, {0, 0, 0}, 45, 10, 0});

    Add("Floor", 100, QuadsNode("floor", {LevelSquare(10, 0)}));
    Add("Box", 100, BoxNode("box", {-1, -1, 2}, {1, 1, 4}));
    Add("Glass50", 50, Plate(5, 5, 5));
    Add("Glass68.9", 68.9f, Plate(-5, 5, 5));
    Add("Glass69", 69, Plate(-5, -5, 5));
    Add("StackGlass", 50, Plate(5, -5, 5));
    Add("StackWall", 100, Plate(5, -5, 7));
    Add("Lace175", 100, Plate(0, 8, 5), "lace175.png");
    Add("Lace176", 100, Plate(0, -8, 5), "lace176.png");
    Add("Ghost", 100, Plate(8, 0, 5), "missing.png");
    Add("Veil", 50, Plate(-8, 0, 0.5f));
    Add("Roof", 100, Plate(-8, -8, 0.5f));
    Add("Wall", 100, QuadsNode("wall", {{{9.5f, -2, 0}, {9.5f, 2, 0}, {9.5f, 2, 3}, {9.5f, -2, 3}}}));
    engine->UpdateFrame(&project, view, project.GetSceneGraph(), project.GetSceneLights(), nullptr, nullptr,
                        0, 1);

    options.SetCustomLighting(true);
    options.SetDisplayShadows(true);
    options.SetRayTracedSoftShadows(false);
  }
  void TearDown() override {
    engine->Release();
    std::system(("rm -rf " + folder).c_str());
  }

  // A uniform picture whose every byte, alpha included, is `value`.
  void WritePicture(const char* name, uint8_t value) {
    std::vector<uint8_t> pixels(2 * 2 * 4, value);
    platform::PixelSurface surface{2, 2, 32, pixels.data(), 8};
    ASSERT_TRUE(SavePictureFile((folder + name).c_str(), surface, PictureFileFormat::Png));
  }
  static SCENE_GRAPH_NODE* Plate(float x, float y, float z) {
    return QuadsNode("plate", {{{x - 1.5f, y - 1.5f, z},
                                {x + 1.5f, y - 1.5f, z},
                                {x + 1.5f, y + 1.5f, z},
                                {x - 1.5f, y + 1.5f, z}}});
  }
  // A transparent texture when `picture` is given.
  void Add(const char* material, float opacity, SCENE_GRAPH_NODE* node, const char* picture = nullptr) {
    TEXTURE_LINK link;
    link.SetOpacityLevel(opacity);
    if (picture) {
      link.SetTextureLinkFullFileName(picture);
      link.SetTransparent(true);
    }
    Material(materials, material)->SetTextureLink(&link);
    Group(root, material, material)->AddChildNode(node);
  }
  // Whether the way straight up from (x, y, 0) to height 10 is blocked.
  bool BlockedAbove(double x, double y, uint32_t depth = 0) {
    return engine->IsPointInShadow(P(x, y, 10), P(x, y, 0), depth);
  }
  double Visibility(const RTRendererLight& light, SCENE_VERTEX_XYZ_64 point,
                    RT_RANDOM_NUMBER_GENERATOR* generator = nullptr) {
    const SCENE_VERTEX_XYZ_64 at = Widen(light.definition.position);
    return engine->GetLightVisibilityThroughShadow(&light, &options, generator, at, point, 0, 0.0);
  }
  static SCENE_VERTEX_XYZ_64 Widen(SCENE_VERTEX_XYZ v) { return {v.x, v.y, v.z}; }

  std::string folder;
  RT_RENDER_ENGINE* engine = static_cast<RT_RENDER_ENGINE*>(CreateRenderEngine());
  ENVIRONMENT_3D_PROJECT project;
  ENVIRONMENT_3D_VIEW* view = project.GetView(0);
  SCENE_GRAPH_NODE_INTERFACE* root = project.GetSceneGraph()->GetSceneGraphNode("Scene Graph Root");
  MATERIAL_3D_NODE* materials = nullptr;
  MODE_RENDER_OPTIONS options;
};

}  // namespace

TEST_F(ShadowSceneTest, BoxCastsAHardShadowWhereGeometryPutsIt) {
  // From a light at height 10 the box's top edge x = 1 at height 4 falls
  // on the floor at x = 1 * 10 / (10 - 4) = 1.667.
  RTRendererLight light = MakeLight(0, {0, 0, 10}, {}, LightCastsShadows);
  SCENE_VERTEX_XYZ diffuse{}, specular{};
  for (double x : {0.0, 1.6, 1.75}) {
    diffuse = {0, 0, 0};
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

  // Glass over a wall: stepped through below the depth limit, and at the
  // limit the glass ends the search with the point lit.
  const uint32_t limit = LightingTestAccess(engine).MaximumRayDepth();
  EXPECT_TRUE(BlockedAbove(5, -5, limit - 1));
  EXPECT_FALSE(BlockedAbove(5, -5, limit));
}

TEST_F(ShadowSceneTest, VisibilityChoosesBetweenNoTestARayAndASample) {
  RTRendererLight light = MakeLight(0, {0, 0, 10}, {}, LightCastsShadows);
  const SCENE_VERTEX_XYZ_64 underBox = P(0, 0, 0);
  EXPECT_EQ(Visibility(light, underBox), 0.0);
  EXPECT_EQ(engine->GetLightVisibilityThroughShadow(&light, nullptr, nullptr, P(0, 0, 10), underBox, 0, 0),
            1.0);
  options.SetRayTracedSoftShadows(true);  // no map yet: still the ray
  EXPECT_EQ(Visibility(light, underBox), 0.0);
  options.SetDisplayShadows(false);
  EXPECT_EQ(Visibility(light, underBox), 1.0);
  options.SetCustomLighting(false);  // default lighting shadows regardless
  EXPECT_EQ(Visibility(light, underBox), 0.0);
  light.definition.flags &= ~LightCastsShadows;
  EXPECT_EQ(Visibility(light, underBox), 1.0);

  // Sampling: the light becomes a sphere of radius 6, of which the box
  // hides only part from the point under it.
  light.definition.flags |= LightCastsShadows;
  options.SetPathTracing(true);
  RT_RANDOM_NUMBER_GENERATOR generator(false, 1);
  double lit = 0.0;
  for (int i = 0; i < 200; ++i) lit += Visibility(light, underBox, &generator);
  EXPECT_GT(lit, 0.0);
  EXPECT_LT(lit, 200.0);
  // A direct light has no shape here; its own function samples a narrow
  // cone, which the box fills.
  RTRendererLight sun = MakeLight(2, {0, 0, 10}, {0, 0, 0}, LightCastsShadows);
  EXPECT_EQ(Visibility(sun, underBox, &generator), 1.0);
  EXPECT_EQ(
      engine->GetDirectLightVisibilityThroughShadow(&sun, &options, &generator, P(0, 0, 1), underBox, 0, 0),
      0.0);
}

TEST_F(ShadowSceneTest, AmbientOcclusionIsOneInTheOpenAndLessNearGeometry) {
  const SCENE_VERTEX_XYZ_64 up = P(0, 0, 1);
  EXPECT_EQ(engine->GetAmbientOcclusionFactor(P(8, 8, 0), up), 1.0);
  EXPECT_EQ(engine->GetAmbientOcclusionFactor(P(-8, 0, 0), up), 1.0);  // the veil lets light by
  // Ten random rays a call, so a single call may miss a blocker that most
  // rays meet: the mean of 200 calls is held to the openness expected of
  // directions drawn from the upper half of the cube, within 5 standard
  // deviations. Per ray a roof 0.5 up gives min(0.5 / cos, 1), of mean
  // 0.8473 and deviation 0.168; a wall 0.05 to the side gives
  // min(0.05 / dx, 1) towards it and 1 away from it, of mean 0.5877 and
  // deviation 0.440. Under the roof no ray comes less far than 0.5.
  const int calls = 200;
  const auto meanOpenness = [&](SCENE_VERTEX_XYZ_64 point, double least) {
    double sum = 0.0;
    for (int i = 0; i < calls; ++i) {
      const double factor = engine->GetAmbientOcclusionFactor(point, up);
      EXPECT_GE(factor, least);
      sum += factor;
    }
    return sum / calls;
  };
  const double rays = 10.0 * calls;
  EXPECT_NEAR(meanOpenness(P(-8, -8, 0), 0.5), 0.8473, 5 * 0.168 / std::sqrt(rays));
  EXPECT_NEAR(meanOpenness(P(9.45, 0, 0), 0.0), 0.5877, 5 * 0.440 / std::sqrt(rays));  // floor and wall

  // An opaque blocker 0.25 past the ray's start: the 0.001 offset counts.
  const SCENE_VERTEX_XYZ_64 direction = P(0, 0, 1);
  const SCENE_VERTEX_XYZ_64 inverse = P(1.7976931348623157e308, 1.7976931348623157e308, 1.0);
  EXPECT_NEAR(engine->GetAmbientOcclusionFactorForRay(P(-8, -8, 0.25), direction, inverse, 0.001), 0.251,
              1e-6);
  // The distance already covered counts against the reach of 1.
  EXPECT_NEAR(engine->GetAmbientOcclusionFactorForRay(P(-8, -8, 0.25), direction, inverse, 0.7), 0.95, 1e-6);
  EXPECT_EQ(engine->GetAmbientOcclusionFactorForRay(P(-8, -8, 0.25), direction, inverse, 0.76), 1.0);
}
