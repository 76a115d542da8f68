#include <gtest/gtest.h>

#include "TestDoubles.h"

#include "RenderScene.h"

namespace {

const float Half = 128 / 255.0f;

// Surface styles; unlit, a material shows its colour.
void Green(TEXTURE_LINK& l) {
  l.SetColor(0x0000FF00);
}
void HalfGreen(TEXTURE_LINK& l) {
  Green(l);
  l.SetOpacityLevel(50);
}
void Mirror(TEXTURE_LINK& l) {
  l.SetReflecting(true);
  l.SetReflectivityLevel(100);
}
void BrightPane(TEXTURE_LINK& l) {
  l.SetEmissiveLevel(100);
  l.SetDiffuseLevel(0);
  l.SetSpecularLevel(0);
  l.SetOpacityLevel(50);
}

// A SurfaceScene under a blue (128) ceiling "Sky" at z = 8, lighting off
// unless an ambient level is given; the ray shaded at `depth`, with fog
// from 1 to `farDistance`.
struct Rule {
  const char* name;
  void (*surface)(TEXTURE_LINK&);
  SCENE_VERTEX_XYZW expected;
  bool hidden = false, reflections = true;
  uint32_t depth = 0;
  float faceOpacity = 100, fog = 0, farDistance = 100, ambient = -1;
};
const Rule Rules[] = {
    {"half opaque: half of the wall behind", HalfGreen, {0.5f * Half, 0.5f, 0, 0.5f}},
    {"at the depth limit: the local colour and alpha", HalfGreen, {0, 1, 0, 0.5f}, false, true, 8},
    {"alpha just below 1 traces the wall", Green, {0.001f * Half, 0.999f, 0, 0.999f}, false, true, 0, 99.9f},
    {"hidden after the update: what lies behind, alpha 0", Green, {Half, 0, 0, 0}, true},
    {"mirror: the ceiling, with the surface's alpha", Mirror, {0, 0, Half, 1}},
    {"mirror with reflections off", Mirror, {1, 1, 1, 1}, false, false},
    // Fog from 1 to 11 at the mirror's distance 5 is 0.4; what it shows
    // takes none of its own.
    {"mirror in fog", Mirror, {0.4f, 0.4f, Half * 0.6f + 0.4f, 1}, false, true, 0, 100, 100, 11},
    // Ambient 1 + emissive 1 = 2, clamped to 1 before the blend at half.
    {"bright light is clamped before the blend", BrightPane, {1, 1, 1, 0.5f}, false, true, 8, 100, 0, 100, 1},
    {"unlit half-clear pane over the wall", BrightPane, {0.5f + 0.5f * Half, 0.5f, 0.5f, 0.5f}},
};

}  // namespace

TEST(SurfaceRules, TransparencyVisibilityMirrorsFogAndClamp) {
  for (const Rule& rule : Rules) {
    SCOPED_TRACE(rule.name);
    SurfaceScene scene(rule.surface);
    scene.Material("Sky", [](TEXTURE_LINK& l) { l.SetColor(0x00800000); });
    scene.Quad("Sky", {-20, -20, 8}, {-20, 20, 8}, {20, 20, 8}, {20, -20, 8});
    MODE_RENDER_OPTIONS& options = scene.Options();
    options.SetLighting(false);
    scene.Update();
    if (rule.hidden) ShadingTestAccess(scene.engine).MaterialNode("Surface")->SetVisible(false);
    options.SetFaceOpacityLevel(rule.faceOpacity);
    options.SetReflections(rule.reflections);
    options.SetFogLevel(rule.fog);
    if (rule.ambient >= 0) {
      options.SetLighting(true);
      options.SetCustomLighting(true);
      options.SetAmbientLightLevel(rule.ambient);
    }
    const SCENE_VERTEX_XYZW& e = rule.expected;
    ExpectColor(scene.Shade(0, 0, rule.depth, rule.farDistance), e.x, e.y, e.z, e.w, 1e-5f);
  }
}

TEST(SurfaceRules, SixteenRaysOnOneTriangleShareOneEvaluation) {
  // Picture columns red, green, blue, grey (bytes blue, green, red, alpha).
  static constexpr uint32_t Columns[4] = {0xFFFF0000u, 0xFF00FF00u, 0xFF0000FFu, 0xFF808080u};
  SurfaceScene scene([](TEXTURE_LINK&) {});
  const std::string picture = scene.Picture("columns.png", 4, 4, [](int x, int) { return Columns[x]; });
  RenderScene::Restyle(scene.surface,
                       [&](TEXTURE_LINK& l) { l.SetTextureLinkFullFileName(picture.c_str()); });
  scene.Update();
  for (bool lit : {false, true}) {
    scene.Options().SetLighting(lit);
    // 16 rays on the first triangle, over texels of all four columns; the
    // first at the middle of column 0.
    PixelRaySample samples[16];
    for (int i = 0; i < 16; ++i)
      samples[i] = CameraRay({-15.0 + (i % 4) * 10, -18.0 + (i / 4) * 0.1, 5}, {0, 0, -1});
    const ShadingCounters before = ShadingTestAccess::Counters();
    ShadingTestAccess(scene.engine).ShadeGroup(scene.View(), scene.Options(), samples, 16);
    EXPECT_EQ(ShadingTestAccess::Counters().surfaces - before.surfaces, 1u);
    EXPECT_EQ(ShadingTestAccess::Counters().textureSamples - before.textureSamples, 1u);
    if (!lit) ExpectColor(samples[0].color, 1, 0, 0, 1);
    for (const PixelRaySample& sample : samples) {
      const SCENE_VERTEX_XYZW a = sample.color, b = samples[0].color;
      EXPECT_TRUE(a.x == b.x && a.y == b.y && a.z == b.z && a.w == b.w);
    }
  }
}
