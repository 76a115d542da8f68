#include <gtest/gtest.h>

#include "TestDoubles.h"

#include "RenderScene.h"
#include "ShadingTestAccess.h"

namespace {

// Bytes blue, green, red, alpha of four picture columns.
constexpr uint32_t Columns[4] = {0xFFFF0000u, 0xFF00FF00u, 0xFF0000FFu, 0xFF808080u};
const SCENE_VERTEX_XYZ_64 Down = {0, 0, -1};

// A 20 x 20 quad "Surface" in the plane z = 0 under a wall "Wall" at
// z = -2, and a ceiling "Sky" at z = 8, all three unlit unless a test
// says otherwise; rays start at z = 5.
class Surface : public ::testing::Test {
 protected:
  void Build(const std::function<void(TEXTURE_LINK&)>& surface) {
    surfaceMaterial = scene.Material("Surface", surface);
    scene.Material("Wall", [](TEXTURE_LINK& l) { l.SetColor(0x00000080); });  // red 128
    scene.Material("Sky", [](TEXTURE_LINK& l) { l.SetColor(0x00800000); });   // blue 128
    scene.Quad("Surface", {-10, -10, 0}, {10, -10, 0}, {10, 10, 0}, {-10, 10, 0});
    scene.Quad("Wall", {-10, -10, -2}, {10, -10, -2}, {10, 10, -2}, {-10, 10, -2});
    scene.Quad("Sky", {-10, -10, 8}, {-10, 10, 8}, {10, 10, 8}, {10, -10, 8});
    scene.Options().SetLighting(false);
    scene.Options().SetBackgroundColor(0);
    scene.Update();
  }
  SCENE_VERTEX_XYZW Shade(double x = 0, double y = 0, uint32_t depth = 0) {
    PixelRaySample sample = CameraRay({x, y, 5}, Down);
    access.ShadeGroup(scene.View(), scene.Options(), &sample, 1, 1.0f, 100.0f, depth);
    return sample.color;
  }

  // A white point light with highlights at (0, 0, 4), under custom lighting.
  void AddBulb() {
    SCENE_LIGHT_DEFINITION bulb{};
    bulb.type = 0;
    bulb.position = {0, 0, 4};
    bulb.color = 0x00FFFFFF;
    bulb.flags = LightEnabled | LightDiffuse | LightSpecular;
    bulb.intensity = 10;
    scene.Lights()->AddLightInstance(scene.Lights()->AddLightDefinition(bulb), nullptr);
    scene.Options().SetLighting(true);
    scene.Options().SetCustomLighting(true);
    scene.Update();
  }
  // New settings for the surface, and an update that takes them.
  void Restyle(const std::function<void(TEXTURE_LINK&)>& surface) {
    RenderScene::Restyle(surfaceMaterial, surface);
    scene.Update();
  }

  RenderScene scene{8, 8};
  ShadingTestAccess access{scene.engine};
  MATERIAL_3D_NODE* surfaceMaterial = nullptr;
};

const float Half = 128 / 255.0f;

}  // namespace

TEST_F(Surface, SixteenRaysOnOneTriangleShareOneEvaluation) {
  const std::string picture = scene.Picture("columns.png", 4, 4, [](int x, int) { return Columns[x]; });
  Build([&](TEXTURE_LINK& l) { l.SetTextureLinkFullFileName(picture.c_str()); });
  for (bool lit : {false, true}) {
    scene.Options().SetLighting(lit);
    // 16 rays over the first triangle, on texels of all four columns; the
    // first lies at the middle of column 0.
    PixelRaySample samples[16];
    for (int i = 0; i < 16; ++i) samples[i] = CameraRay({-7.5 + (i % 4) * 5, -9.0 + (i / 4) * 0.1, 5}, Down);
    const ShadingCounters before = ShadingTestAccess::Counters();
    access.ShadeGroup(scene.View(), scene.Options(), samples, 16);
    EXPECT_EQ(ShadingTestAccess::Counters().surfaces - before.surfaces, 1u);
    EXPECT_EQ(ShadingTestAccess::Counters().textureSamples - before.textureSamples, 1u);
    if (!lit) ExpectColor(samples[0].color, 1, 0, 0, 1);  // unlit: the texel itself
    for (const PixelRaySample& sample : samples) {
      const SCENE_VERTEX_XYZW a = sample.color, b = samples[0].color;
      EXPECT_TRUE(a.x == b.x && a.y == b.y && a.z == b.z && a.w == b.w);
    }
  }
}

TEST_F(Surface, OpacityTransparencyAndVisibility) {
  Build([](TEXTURE_LINK& l) {
    l.SetColor(0x0000FF00);  // green
    l.SetOpacityLevel(50);
  });
  ExpectColor(Shade(), 0.5f * Half, 0.5f, 0, 0.5f);
  // At the depth limit no ray continues: the local colour with its alpha.
  ExpectColor(Shade(0, 0, 8), 0, 1, 0, 0.5f);
}

TEST_F(Surface, AlphaOneTracesNothingAndJustBelowTracesOne) {
  Build([](TEXTURE_LINK& l) { l.SetColor(0x0000FF00); });
  ExpectColor(Shade(), 0, 1, 0, 1, 0);
  scene.Options().SetFaceOpacityLevel(99.9f);
  const SCENE_VERTEX_XYZW seeThrough = Shade();
  EXPECT_GT(seeThrough.x, 0.0f);  // a trace of the red wall
  EXPECT_LT(seeThrough.y, 1.0f);
}

TEST_F(Surface, InvisibleMaterialShowsWhatIsBehindWithAlphaZero) {
  // A hidden material takes its meshes out of the scene; hidden after the
  // update, the surface is hit and has to show what lies behind it.
  Build([](TEXTURE_LINK&) {});
  access.MaterialNode("Surface")->SetVisible(false);
  ExpectColor(Shade(), Half, 0, 0, 0);
}

TEST_F(Surface, MirrorReplacesTheSurfaceAndKeepsItsAlpha) {
  Build([](TEXTURE_LINK& l) {
    l.SetReflecting(true);
    l.SetReflectivityLevel(100);
  });
  ExpectColor(Shade(), 0, 0, Half, 1);  // the blue ceiling, straight back up
  scene.Options().SetReflections(false);
  ExpectColor(Shade(), 1, 1, 1, 1);
  scene.Options().SetReflections(true);
  // The mirror takes fog at its own distance (5 of 1 to 11: 0.4); what it
  // shows takes none.
  scene.Options().SetFogLevel(100);
  PixelRaySample sample = CameraRay({0, 0, 5}, Down);
  access.ShadeGroup(scene.View(), scene.Options(), &sample, 1, 1.0f, 11.0f);
  ExpectColor(sample.color, 0.4f, 0.4f, Half * 0.6f + 0.4f, 1);
}

TEST_F(Surface, BrightLightIsClampedBeforeTheBlend) {
  Build([](TEXTURE_LINK& l) {
    l.SetEmissiveLevel(100);
    l.SetDiffuseLevel(0);
    l.SetSpecularLevel(0);
    l.SetOpacityLevel(50);
  });
  scene.Options().SetLighting(true);
  scene.Options().SetCustomLighting(true);
  scene.Options().SetAmbientLightLevel(1.0f);
  // Ambient 1 + emissive 1 = 2, clamped to 1, half over the wall.
  ExpectColor(Shade(0, 0, 8), 1, 1, 1, 0.5f);
  scene.Options().SetLighting(false);
  ExpectColor(Shade(), 0.5f + 0.5f * Half, 0.5f, 0.5f, 0.5f);
}

TEST_F(Surface, PhotonsThatStandInForAllDirectLightLeaveTheLightsOut) {
  Build([](TEXTURE_LINK& l) { l.SetAmbientLevel(50); });
  AddBulb();
  MODE_RENDER_OPTIONS& options = scene.Options();
  options.SetAmbientLightLevel(0.5f);
  const SCENE_VERTEX_XYZW lit = Shade();
  EXPECT_GT(lit.x, 0.25f);  // more than the ambient term alone
  options.SetPhotonMapping(true);
  options.SetPhotonDirectLightingContribution(100);
  // The photon maps hold nothing yet: ambient 0.5 x 0.5 is all that is left.
  ExpectColor(Shade(), 0.25f, 0.25f, 0.25f, 1);
}

TEST_F(Surface, TexturesTintAllButTheHighlightAndOverrideDropsTheirAlpha) {
  const std::string black = scene.Picture("black.png", 2, 2, [](int, int) { return 0xFF000000u; });
  Build([&](TEXTURE_LINK& l) {
    l.SetTextureLinkFullFileName(black.c_str());
    l.SetSpecularLevel(100);
  });
  // Black with alpha 128.
  AddBulb();
  const uint32_t row = access.MaterialRow("Surface")->textureIndex;
  access.ReplaceTexture(row, 2, 2, [](int, int) { return 0x80000000u; });
  const SCENE_VERTEX_XYZW textured = Shade(0, 0, 8);  // no continuation: local colour
  EXPECT_NEAR(textured.w, 128 / 255.0f, 1e-6f);
  EXPECT_GT(textured.x, 0.0f);  // only the highlight is left on black

  Restyle([](TEXTURE_LINK& l) {
    l.SetColor(0);
    l.SetSpecularLevel(100);
  });
  const SCENE_VERTEX_XYZW plain = Shade(0, 0, 8);
  EXPECT_FLOAT_EQ(plain.x, textured.x);
  EXPECT_FLOAT_EQ(plain.w, 1.0f);

  Restyle([&](TEXTURE_LINK& l) {
    l.SetTextureLinkFullFileName(black.c_str());
    l.SetOverrideTextureWithColor(true);
    l.SetColor(0x0000FF00);
  });
  access.ReplaceTexture(access.MaterialRow("Surface")->textureIndex, 2, 2,
                        [](int, int) { return 0x80000000u; });
  scene.Options().SetLighting(false);
  ExpectColor(Shade(), 0, 1, 0, 1);
}
