#include <gtest/gtest.h>

#include <cmath>

#include "TestDoubles.h"

#include "pipeline/RandomNumberGenerator.h"
#include "RenderScene.h"
#include "ShadingTestAccess.h"

namespace {

const float Half = 128 / 255.0f;
const SCENE_VERTEX_XYZW Green = {0, 1, 0, 1}, Red = {Half, 0, 0, 1}, Blue = {0, 0, Half, 1},
                        Clear = {0, 0, 0, 0};

// Shows its colour under any light, all of it emissive (or none); a
// mirror too with a reflectivity.
void Glow(TEXTURE_LINK& l, unsigned long rgb, float reflectivity = 0, float emissive = 100) {
  l.SetColor(rgb);
  l.SetAmbientLevel(0);
  l.SetDiffuseLevel(0);
  l.SetSpecularLevel(0);
  l.SetEmissiveLevel(emissive);
  l.SetReflecting(reflectivity > 0);
  l.SetReflectivityLevel(reflectivity);
}
bool Same(const SCENE_VERTEX_XYZW& a, const SCENE_VERTEX_XYZW& b) {
  return a.x == b.x && a.y == b.y && a.z == b.z && a.w == b.w;
}

// Under rays from (0, 0, 5) straight down: "Surface", 20 x 20 at z = 0;
// "Wall", glowing red, 2 below it; "Sky", glowing blue, a mirror with
// `skyReflectivity`, at z = 8 and so wide that a bounce off the surface
// all but never misses it; and `panes` clear panes from z = 1 up, 0.25
// apart. Custom lighting without lights: what a path shows is glow alone,
// and no update draws the default lights' shadow map.
class PathTraceTest : public ::testing::Test {
 protected:
  using Style = std::function<void(TEXTURE_LINK&)>;
  void Build(const Style& surface, float skyReflectivity = 0, int panes = 0) {
    surfaceMaterial = scene.Material("Surface", surface);
    scene.Material("Wall", [](TEXTURE_LINK& l) { Glow(l, 0x00000080); });
    scene.Material("Sky", [&](TEXTURE_LINK& l) { Glow(l, 0x00800000, skyReflectivity); });
    scene.Material("Pane", [](TEXTURE_LINK& l) { l.SetOpacityLevel(0); });
    scene.Quad("Surface", {-10, -10, 0}, {10, -10, 0}, {10, 10, 0}, {-10, 10, 0});
    scene.Quad("Wall", {-10, -10, -2}, {10, -10, -2}, {10, 10, -2}, {-10, 10, -2});
    scene.Quad("Sky", {-1000, -1000, 8}, {-1000, 1000, 8}, {1000, 1000, 8}, {1000, -1000, 8});
    for (float z = 1; z < 1 + 0.25f * float(panes); z += 0.25f)
      scene.Quad("Pane", {-10, -10, z}, {10, -10, z}, {10, 10, z}, {-10, 10, z});
    scene.Options().SetBackgroundColor(0);
    scene.Options().SetCustomLighting(true);
    scene.Update();
  }
  SCENE_VERTEX_XYZW Trace() {
    const PixelRaySample sample = CameraRay({0, 0, 5}, {0, 0, -1});
    SWRayIntersectionResult result{};
    const bool hit =
        scene.engine->IntersectSWGeometry(sample.origin, sample.direction, sample.inverseDirection, result);
    bool abort = false;
    return scene.engine->PathTrace(scene.View(), &scene.Options(), hit, result, sample, seeded, 1.0f, 100.0f,
                                   0, 0, abort);
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
      {50, 100, 100, Blue, Green, 0.5}, {0, 100, 100, Blue, Green, 0}, {0, 0, 100, Red, Red, 1},
      {0, 30, 100, Green, Red, 0.3},    {0, 0, 30, Red, Clear, 0.3},  // the view's face opacity thins the
                                                                      // wall too: past it, uncovered black
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.reflectivity << " " << c.opacity << " " << c.faceOpacity);
    RenderScene::Restyle(surfaceMaterial, [&](TEXTURE_LINK& l) {
      Glow(l, 0x0000FF00, c.reflectivity);
      l.SetOpacityLevel(c.opacity);
    });
    scene.Update();
    scene.Options().SetFaceOpacityLevel(c.faceOpacity);
    // Every path comes back as `color` or `other`; `color` within five
    // standard deviations of its chance.
    const int paths = 2000;
    int matching = 0;
    for (int i = 0; i < paths; ++i) {
      const SCENE_VERTEX_XYZW color = Trace();
      EXPECT_TRUE(Same(color, c.color) || Same(color, c.other))
          << color.x << " " << color.z << " " << color.w;
      matching += Same(color, c.color);
    }
    EXPECT_NEAR(matching, c.chance * paths, 5.0 * std::sqrt(paths * c.chance * (1 - c.chance)));
  }
}

TEST_F(PathTraceTest, DepthAndBounceLimitsEndPaths) {
  // Surface and sky mirror each other: the path ends on the first mirror
  // the limit refuses.
  Build([](TEXTURE_LINK& l) { Glow(l, 0x0000FF00, 100); }, 100);
  const std::pair<unsigned short, SCENE_VERTEX_XYZW> cases[] = {{0, Blue}, {1, Blue}, {2, Green}, {3, Blue}};
  for (const auto& [limit, color] : cases) {
    scene.Options().SetNumberOfIndirectBounces(limit);
    EXPECT_TRUE(Same(Trace(), color)) << limit;
  }
  scene.Options().SetReflections(false);
  EXPECT_TRUE(Same(Trace(), Green));
}

TEST_F(PathTraceTest, OneDiffuseBounceAddsTheSkyWeighedByTheCosine) {
  // A white surface with no light of its own: whatever it shows came by
  // the bounce. Drawn with a cosine density and weighed by the cosine
  // again, the sky comes back at E[cos] = 2/3 of its colour, with variance
  // E[cos^2] - 4/9 = 1/18. Two clear panes over the surface, passed on the
  // way in and out, take nothing from the bounce limit.
  Build([](TEXTURE_LINK& l) { Glow(l, 0x00FFFFFF, 0, 0); }, 0, 2);
  const std::tuple<bool, unsigned short, double> cases[] = {
      {true, 0, 0.0}, {false, 1, 0.0}, {true, 1, 2.0 / 3}};
  for (const auto& [indirect, limit, expected] : cases) {
    SCOPED_TRACE(testing::Message() << indirect << " " << limit);
    scene.Options().SetIndirectLighting(indirect);
    scene.Options().SetNumberOfIndirectBounces(limit);
    scene.Options().SetLighting(false);  // not consulted
    const int paths = 3000;
    double sum = 0;
    for (int i = 0; i < paths; ++i) {
      const SCENE_VERTEX_XYZW color = Trace();
      EXPECT_TRUE(color.x == 0.0f && color.w == 1.0f);
      sum += color.z / Half;
    }
    EXPECT_NEAR(sum / paths, expected, 5.0 * std::sqrt(1.0 / 18.0 / paths));
  }
}
