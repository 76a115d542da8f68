#include <gtest/gtest.h>

#include <cmath>

#include "TestDoubles.h"

#include "pipeline/RandomNumberGenerator.h"
#include "RenderScene.h"
#include "shading/SampleCosineHemisphere.h"
#include "ShadingTestAccess.h"

namespace {

const float Half = 128 / 255.0f;
const SCENE_VERTEX_XYZW Green = {0, 1, 0, 1}, Red = {Half, 0, 0, 1}, Blue = {0, 0, Half, 1},
                        Clear = {0, 0, 0, 0};

// Shows exactly its colour under any light: all emissive.
void Glow(TEXTURE_LINK& l, unsigned long rgb) {
  l.SetColor(rgb);
  l.SetAmbientLevel(0);
  l.SetDiffuseLevel(0);
  l.SetSpecularLevel(0);
  l.SetEmissiveLevel(100);
}
void GlowingMirror(TEXTURE_LINK& l, unsigned long rgb, float reflectivity = 100) {
  Glow(l, rgb);
  l.SetReflecting(true);
  l.SetReflectivityLevel(reflectivity);
}
bool Same(const SCENE_VERTEX_XYZW& a, const SCENE_VERTEX_XYZW& b) {
  return a.x == b.x && a.y == b.y && a.z == b.z && a.w == b.w;
}
// Five standard deviations of a count of `n` events of chance `p`.
double FiveSigma(int n, double p) {
  return 5.0 * std::sqrt(n * p * (1 - p));
}

// Under rays from (0, 0, 5) straight down: "Surface", 20 x 20 at z = 0;
// "Wall", glowing red, 2 below it; "Sky", glowing blue unless said
// otherwise, at z = 8 and so wide that a bounce off the surface all but
// never misses it; and `panes` clear panes from z = 1 up, 0.25 apart.
class PathTraceTest : public ::testing::Test {
 protected:
  using Style = std::function<void(TEXTURE_LINK&)>;
  void Build(
      const Style& surface, const Style& sky = [](TEXTURE_LINK& l) { Glow(l, 0x00800000); }, int panes = 0) {
    surfaceMaterial = scene.Material("Surface", surface);
    scene.Material("Wall", [](TEXTURE_LINK& l) { Glow(l, 0x00000080); });
    scene.Material("Sky", sky);
    scene.Material("Pane", [](TEXTURE_LINK& l) { l.SetOpacityLevel(0); });
    scene.Quad("Surface", {-10, -10, 0}, {10, -10, 0}, {10, 10, 0}, {-10, 10, 0});
    scene.Quad("Wall", {-10, -10, -2}, {10, -10, -2}, {10, 10, -2}, {-10, 10, -2});
    scene.Quad("Sky", {-1000, -1000, 8}, {-1000, 1000, 8}, {1000, 1000, 8}, {1000, -1000, 8});
    for (int i = 0; i < panes; ++i) {
      const float z = 1.0f + 0.25f * float(i);
      scene.Quad("Pane", {-10, -10, z}, {10, -10, z}, {10, 10, z}, {-10, 10, z});
    }
    scene.Options().SetBackgroundColor(0);
    // Custom lighting without lights: what a path shows is glow alone, and
    // no update draws the default lights' shadow map.
    scene.Options().SetCustomLighting(true);
    scene.Update();
  }
  void Restyle(const Style& surface) {
    RenderScene::Restyle(surfaceMaterial, surface);
    scene.Update();
  }
  SCENE_VERTEX_XYZW Trace(uint32_t depth = 0, SCENE_VERTEX_XYZ_64 origin = {0, 0, 5},
                          SCENE_VERTEX_XYZ_64 direction = {0, 0, -1}) {
    const PixelRaySample sample = CameraRay(origin, direction);
    SWRayIntersectionResult result{};
    const bool hit =
        scene.engine->IntersectSWGeometry(sample.origin, sample.direction, sample.inverseDirection, result);
    bool abort = false;
    return scene.engine->PathTrace(scene.View(), &scene.Options(), hit, result, sample, seeded, 1.0f, 100.0f,
                                   0, depth, abort);
  }
  // How many of `paths` paths come back as exactly `color`; every path must
  // come back as `color` or as `other`.
  int Count(int paths, const SCENE_VERTEX_XYZW& color, const SCENE_VERTEX_XYZW& other) {
    int matching = 0;
    for (int i = 0; i < paths; ++i) {
      const SCENE_VERTEX_XYZW c = Trace();
      EXPECT_TRUE(Same(c, color) || Same(c, other)) << c.x << " " << c.y << " " << c.z << " " << c.w;
      matching += Same(c, color);
    }
    return matching;
  }

  RenderScene scene{8, 8};
  MATERIAL_3D_NODE* surfaceMaterial = nullptr;
  RT_RANDOM_NUMBER_GENERATOR seeded{false, 2026};
};

}  // namespace

TEST_F(PathTraceTest, MirrorsAndClearSurfacesChooseAsOftenAsTheirLevelsSay) {
  Build([](TEXTURE_LINK&) {});
  const struct {
    float reflectivity, opacity, faceOpacity;
    SCENE_VERTEX_XYZW color, other;
    double chance;  // of `color`
  } cases[] = {
      {50, 100, 100, Blue, Green, 0.5},
      {99.5f, 100, 100, Blue, Green, 1},
      {0, 100, 100, Blue, Green, 0},
      {0, 0, 100, Red, Red, 1},
      {0, 30, 100, Green, Red, 0.3},
      {0, 0, 30, Red, Clear, 0.3},  // the view's face opacity thins the wall too: past it, uncovered black
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.reflectivity << " " << c.opacity << " " << c.faceOpacity);
    Restyle([&](TEXTURE_LINK& l) {
      GlowingMirror(l, 0x0000FF00, c.reflectivity);
      l.SetReflecting(c.reflectivity > 0);
      l.SetOpacityLevel(c.opacity);
    });
    scene.Options().SetFaceOpacityLevel(c.faceOpacity);
    const int paths = 2000;
    EXPECT_NEAR(Count(paths, c.color, c.other), c.chance * paths, FiveSigma(paths, c.chance));
  }
}

TEST_F(PathTraceTest, PassingThroughEndsAtTheDepthLimitInTransparentBlack) {
  // Seven clear panes and a clear surface: a camera ray passes them at
  // depths 0 to 7 and shades the wall at depth 8. A ray that starts at
  // depth 1 meets the last of them at depth 8, where it may not pass.
  Build([](TEXTURE_LINK& l) { l.SetOpacityLevel(0); }, [](TEXTURE_LINK& l) { Glow(l, 0x00800000); }, 7);
  EXPECT_TRUE(Same(Trace(), Red));
  EXPECT_TRUE(Same(Trace(1), Clear));
}

TEST_F(PathTraceTest, MirrorBouncesStopAtTheBounceLimitButTheFirstAlwaysHappens) {
  Build([](TEXTURE_LINK& l) { GlowingMirror(l, 0x0000FF00); },
        [](TEXTURE_LINK& l) { GlowingMirror(l, 0x00800000); });
  // Surface and sky mirror each other: the path ends on the first mirror
  // the limit refuses.
  const struct {
    unsigned short limit;
    SCENE_VERTEX_XYZW color;
  } cases[] = {{0, Blue}, {1, Blue}, {2, Green}, {3, Blue}};
  for (const auto& c : cases) {
    scene.Options().SetNumberOfIndirectBounces(c.limit);
    EXPECT_TRUE(Same(Trace(), c.color)) << c.limit;
  }
  scene.Options().SetReflections(false);
  EXPECT_TRUE(Same(Trace(), Green));
}

TEST_F(PathTraceTest, OneDiffuseBounceAddsTheSkyWeighedByTheCosine) {
  // A surface with no light of its own: whatever it shows came by the
  // bounce. Drawn with a cosine density and weighed by the cosine again,
  // the sky comes back at E[cos] = 2/3 of its colour, with variance
  // E[cos^2] - 4/9 = 1/18.
  const struct {
    bool indirect;
    unsigned short limit;
    double expected;
  } cases[] = {{true, 0, 0.0}, {false, 1, 0.0}, {true, 1, 2.0 / 3.0}};
  // Two clear panes over the surface, passed on the way in and out, take
  // nothing from the bounce limit.
  Build(
      [](TEXTURE_LINK& l) {
        l.SetAmbientLevel(0);
        l.SetDiffuseLevel(0);
        l.SetSpecularLevel(0);
      },
      [](TEXTURE_LINK& l) { Glow(l, 0x00800000); }, 2);
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.indirect << " " << c.limit);
    scene.Options().SetIndirectLighting(c.indirect);
    scene.Options().SetNumberOfIndirectBounces(c.limit);
    scene.Options().SetLighting(false);  // not consulted
    const int paths = 3000;
    double sum = 0;
    for (int i = 0; i < paths; ++i) {
      const SCENE_VERTEX_XYZW color = Trace();
      EXPECT_EQ(color.x, 0.0f);
      EXPECT_EQ(color.w, 1.0f);
      sum += color.z / Half;
    }
    EXPECT_NEAR(sum / paths, c.expected, 5.0 * std::sqrt(1.0 / 18.0 / paths));
  }
}

TEST_F(PathTraceTest, MissesTakeFogOnlyOnTheCameraRayAndLightIsNotClamped) {
  Build([](TEXTURE_LINK& l) {
    l.SetAmbientLevel(100);
    l.SetEmissiveLevel(100);
    l.SetDiffuseLevel(0);
    l.SetSpecularLevel(0);
  });
  scene.Options().SetBackgroundColor(0x00404040);
  scene.Options().SetFogLevel(100);
  const float grey = 64 / 255.0f;
  ExpectColor(Trace(0, {0, 0, 9}, {0, 0, 1}), 1, 1, 1, 0);  // over the sky, looking up
  ExpectColor(Trace(1, {0, 0, 9}, {0, 0, 1}), grey, grey, grey, 0);
  // A hit takes no fog; ambient light 3 and emissive 1 on white make 4.
  scene.Options().SetCustomLighting(true);
  scene.Options().SetAmbientLightLevel(3.0f);
  ExpectColor(Trace(), 4, 4, 4, 1);
}

TEST(SampleCosineHemisphere, TurnsTheFirstDrawsAboutTheNormal) {
  // The first two draws of MT19937 seeded with 5489, 0.8147237 and
  // 0.1354770, give sin(theta) = sqrt(0.8147237), phi = 0.8512243, and so
  // weights u = 0.5948817, n = 0.4304373, v = 0.6788516; about +z the axes
  // are u = -y and v = -x, about +x they are u = -z and v = -y.
  const struct {
    SCENE_VERTEX_XYZ_64 normal, expected;
  } cases[] = {{{0, 0, 1}, {-0.6788516, -0.5948817, 0.4304373}},
               {{1, 0, 0}, {0.4304373, -0.6788516, -0.5948817}}};
  for (const auto& c : cases) {
    RT_RANDOM_NUMBER_GENERATOR generator(false, 5489);
    const SCENE_VERTEX_XYZ_64 d = SampleCosineHemisphere(generator, c.normal);
    EXPECT_NEAR(d.x, c.expected.x, 1e-6);
    EXPECT_NEAR(d.y, c.expected.y, 1e-6);
    EXPECT_NEAR(d.z, c.expected.z, 1e-6);
  }
}
