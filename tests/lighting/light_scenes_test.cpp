#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <functional>
#include <numbers>

#include "RenderScene.h"

namespace {

using Options = std::function<void(MODE_RENDER_OPTIONS&)>;
constexpr uint16_t Lit = LightEnabled | LightDiffuse | LightSpecular;

// A white light of `type` aimed at the origin; an area light's opening is
// 2 x 1 across its position.
SCENE_LIGHT_DEFINITION Light(uint16_t type, SCENE_VERTEX_XYZ at, uint16_t flags = Lit, int16_t intensity = 10,
                             double angle = 0, double falloffStart = 0, double falloffEnd = 0,
                             uint32_t color = 0x00FFFFFF) {
  return {0,         type,  at,           {0, 0, 0},  color,     flags,
          intensity, angle, falloffStart, falloffEnd, {1, 0, 0}, {0, 0.5f, 0}};
}
double Cos(double degrees) {
  return std::cos(degrees * std::numbers::pi / 180.0);
}
double Phong(double cosine) {
  return std::pow(cosine, 32.0);
}
std::array<double, 3> Grey(double v) {
  return {v, v, v};
}

// One light over the white floor of a SurfaceScene, a small blocker at
// z = 2 over x = 1.75..2.25, y = -0.5..0.5, and the floor point (x, y)
// seen from straight above: normal and ray on the z axis. The floor's
// diffuse and specular levels are 50 and 25, ambient 0 unless the row's
// options change it; the expected colours are worked from Lambert, Phong
// with exponent 32, intensity in tenths and the falloff quadratic in the
// squared distance.
struct LitScene {
  const char* name;
  SCENE_LIGHT_DEFINITION light;  // intensity 0: no light of the project's own
  double x, y;
  std::array<double, 3> expected;
  Options options = nullptr;
  bool optionsAfterUpdate = false;
  float ambientLevel = 0;
  float diffuseLevel = 50;
  bool blackTexture = false;  // on the floor, alpha 128
  bool overrideTexture = false;
  double alpha = 1;
};

const SCENE_LIGHT_DEFINITION None = Light(0, {0, 0, 4}, Lit, 0);
const double Side = 0.5 * 0.8 + 0.25 * Phong(0.8);  // from (0, 0, 4) to (3, 0, 0): cosine 0.8
const double Tan20 = 4 * std::tan(20 * std::numbers::pi / 180),
             Tan10 = 4 * std::tan(10 * std::numbers::pi / 180);
const double Spot20 = 0.5 * Cos(20) + 0.25 * Phong(Cos(20));
const double Oblique = 4 / std::sqrt(41.0);  // from (4, 0, 4) to (0, 3, 0)

const LitScene Scenes[] = {
    {"point overhead: Lambert 1 and the mirror ray into the eye", Light(0, {0, 0, 4}), 0, 0, Grey(0.75)},
    {"point aside", Light(0, {0, 0, 4}), 3, 0, Grey(Side)},
    // d2 = 25 is 16 past the start radius 3: (1 - 16/25)^2.
    {"falloff", Light(0, {0, 0, 4}, Lit | LightHasFalloff, 10, 0, 3, 5), 3, 0, Grey(Side * 0.1296)},
    {"coloured light", Light(0, {0, 0, 4}, Lit, 10, 0, 0, 0, 0x00FF8000), 0, 0, {0, 0.75 * 128 / 255, 0.75}},
    {"diffuse-only light: no highlight", Light(0, {0, 0, 4}, LightEnabled | LightDiffuse), 0, 0, Grey(0.5)},
    {"switched-off light", Light(0, {0, 0, 4}, LightDiffuse | LightSpecular), 0, 0, Grey(0)},
    {"symbol light with symbols hidden", Light(0, {0, 0, 4}, Lit | LightIsSymbol), 0, 0, Grey(0),
     [](MODE_RENDER_OPTIONS& o) { o.SetDisableSymbolLights(true); }},
    {"light below the surface: no highlight either", Light(0, {0, 0, -1}), 0, 0, Grey(0)},
    {"spot inside its cone", Light(1, {0, 0, 4}, Lit, 10, 30), Tan20, 0, Grey(Spot20)},
    {"spot outside its cone", Light(1, {0, 0, 4}, Lit, 10, 30), 4 * std::tan(31 * std::numbers::pi / 180), 0,
     Grey(0)},
    // The rim is the outer 55 percent of the half-angle: full light within
    // 13.5 degrees, then a ramp in the cosine down to 0 at 30.
    {"soft spot within the rim", Light(1, {0, 0, 4}, Lit | LightSoftEdge, 10, 30), Tan10, 0,
     Grey(0.5 * Cos(10) + 0.25 * Phong(Cos(10)))},
    {"soft spot on the rim", Light(1, {0, 0, 4}, Lit | LightSoftEdge, 10, 30), Tan20, 0,
     Grey(Spot20*(Cos(20) - Cos(30)) / (Cos(13.5) - Cos(30)))},
    {"direct light: no falloff, though asked, and the same far from its position",
     Light(2, {3, 0, 4}, Lit | LightHasFalloff, 15, 0, 1, 1), -5, 3, Grey(1.5 * Side)},
    // The opening at height 4 with a 45 degree half-angle puts the virtual
    // point 1 above it, so the lit floor is the opening scaled by 5:
    // |x| <= 5, |y| <= 2.5. Diffuse towards the virtual point (0, 0, 5),
    // the highlight towards the centre.
    {"area light through its opening", Light(3, {0, 0, 4}, Lit, 10, 45), 0, 2.25,
     Grey(0.5 * 5 / std::sqrt(30.0625) + 0.25 * Phong(4 / std::sqrt(21.0625)))},
    {"area light past the long side", Light(3, {0, 0, 4}, Lit, 10, 45), 5.5, 0, Grey(0)},
    // The rim is 45 percent of the shorter half-extent, 0.225: the line
    // crosses the opening 0.45 off its middle, 0.05 from the edge.
    {"area light's soft rim", Light(3, {0, 0, 4}, Lit | LightSoftEdge, 10, 45), 0, 2.25,
     Grey((0.5 * 5 / std::sqrt(30.0625) + 0.25 * Phong(4 / std::sqrt(21.0625))) * 0.05 / 0.225)},
    {"shadowed by the blocker", Light(0, {4, 0, 4}, Lit | LightCastsShadows), 0, 0, Grey(0)},
    {"beside the shadow", Light(0, {4, 0, 4}, Lit | LightCastsShadows), 0, 3,
     Grey(0.5 * Oblique + 0.25 * Phong(Oblique))},
    {"a light that casts no shadow", Light(0, {4, 0, 4}), 0, 0, Grey(0.5 * std::sqrt(0.5) + 0.25 / 65536)},
    {"ambient: the floor's level times the light level", None, 0, 0, Grey(0.2),
     [](MODE_RENDER_OPTIONS& o) { o.SetAmbientLightLevel(0.5f); }, false, 40},
    {"headlight at the eye (0, 0, 10), diffuse only", None, 0, 0, Grey(0.5),
     [](MODE_RENDER_OPTIONS& o) { o.SetHeadlight(true); }},
    // Ambient 0.5 x 0.3; the light at the eye, 0.7, and the direct light
    // from (-50, -50, 100), 2.0, neither with a highlight.
    {"default lights", Light(0, {0, 0, 4}), 0, 0, Grey(0.15 + 0.2 * (0.7 + 2.0 * 100 / std::sqrt(15000.0))),
     [](MODE_RENDER_OPTIONS& o) { o.SetCustomLighting(false); }, false, 50, 20},
    {"a black texture tints all but the highlight, its alpha kept", Light(0, {0, 0, 4}), 0, 0, Grey(0.25),
     nullptr, false, 0, 50, true, false, 128 / 255.0},
    {"the material colour overriding the texture", Light(0, {0, 0, 4}), 0, 0, Grey(0.75), nullptr, false, 0,
     50, true, true},
    {"bright light is clamped to 1", Light(0, {0, 0, 4}, Lit, 30), 0, 0, Grey(1)},
    // The photon maps of the last update are empty: only ambient is left.
    {"photons standing in for all direct light", Light(0, {0, 0, 4}), 0, 0, Grey(0.2),
     [](MODE_RENDER_OPTIONS& o) {
       o.SetAmbientLightLevel(0.5f);
       o.SetPhotonMapping(true);
       o.SetPhotonDirectLightingContribution(100);
     },
     true, 40},
};

}  // namespace

TEST(LightScenes, HandWorkedColoursOfOneLitPoint) {
  for (const LitScene& s : Scenes) {
    SCOPED_TRACE(s.name);
    SurfaceScene scene([&](TEXTURE_LINK& l) {
      l.SetColor(0x00FFFFFF);
      l.SetAmbientLevel(s.ambientLevel);
      l.SetDiffuseLevel(s.diffuseLevel);
      l.SetSpecularLevel(25);
      l.SetEmissiveLevel(0);
      if (s.blackTexture) l.SetTextureLinkFullFileName("black.png");
      l.SetOverrideTextureWithColor(s.overrideTexture);
    });
    scene.Picture("black.png", 2, 2, [](int, int) { return 0x80000000u; });
    scene.Material("Blocker", [](TEXTURE_LINK&) {});
    scene.Quad("Blocker", {1.75f, -0.5f, 2}, {2.25f, -0.5f, 2}, {2.25f, 0.5f, 2}, {1.75f, 0.5f, 2});
    if (s.light.intensity != 0) {
      SCENE_LIGHT_DEFINITION light = s.light;
      scene.Lights()->AddLightInstance(scene.Lights()->AddLightDefinition(light), nullptr);
    }
    MODE_RENDER_OPTIONS& options = scene.Options();
    options.SetCustomLighting(true);
    options.SetAmbientLightLevel(0);
    options.SetRayTracedSoftShadows(false);  // a hard shadow ray
    if (s.options && !s.optionsAfterUpdate) s.options(options);
    scene.Update();
    if (s.options && s.optionsAfterUpdate) s.options(options);
    // A texture's row is shaded at the depth limit: nothing behind shows.
    const SCENE_VERTEX_XYZW c = scene.Shade(s.x, s.y, s.blackTexture ? 8 : 0);
    EXPECT_NEAR(c.x, s.expected[0], 2e-6);
    EXPECT_NEAR(c.y, s.expected[1], 2e-6);
    EXPECT_NEAR(c.z, s.expected[2], 2e-6);
    EXPECT_NEAR(c.w, s.alpha, 2e-6);
  }
}
