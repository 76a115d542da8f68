// What the command line becomes. Its refusals are checked on the program
// itself, in render_program_test.
#include <gtest/gtest.h>

#include <cmath>
#include <tuple>

#include "AppTestFiles.h"
#include "Options.h"
#include "PhotonSettings.h"
#include "Progress.h"
#include "SceneAssembly.h"

namespace {

RenderSettings Parse(std::vector<std::string> arguments) {
  RenderSettings settings;
  std::string error;
  EXPECT_TRUE(ParseOptions(arguments, settings, error)) << error;
  return settings;
}

TEST(RenderOptions, BothSpellingsAndTheNumbersOfAView) {
  const RenderSettings s = Parse({"house.glb", "--width=1920", "--height", "1080", "--passes=50", "--eye",
                                  "1,2.5,-3", "--target=0,0,0", "--fov", "35.5", "--hdr", "view.EXR"});
  EXPECT_EQ(std::tuple(s.model, s.width, s.height, s.passes), std::tuple("house.glb", 1920, 1080, 50));
  ASSERT_TRUE(s.eye && s.target && s.fieldOfView);
  ExpectPoint(*s.eye, 1, 2.5f, -3);
  EXPECT_FLOAT_EQ(*s.fieldOfView, 35.5f);
  EXPECT_EQ(s.hdr, "view.EXR");
}

TEST(RenderOptions, TimeLimitAndPassesFromCommandLineOrSceneFile) {
  // A time alone leaves the passes open; passes alone keep no time limit.
  const RenderJob timed = MakeJob(Parse({"--time", "90.5"})), plain = MakeJob(Parse({}));
  EXPECT_EQ(std::tuple(timed.passes, timed.timeLimit), std::tuple(UnlimitedPasses, 90.5));
  EXPECT_EQ(std::tuple(plain.passes, plain.timeLimit), std::tuple(DefaultPasses, 0.0));
  EXPECT_EQ(MakeJob(Parse({"--time", "90.5", "--passes", "10"})).passes, 10);
  // The scene file's keys count where the command line is silent.
  TestFolder folder;
  RenderSettings settings =
      Parse({"--scene", folder.Write("s.json", R"({"passes": 12, "time": 30})").string(), "--passes", "5"});
  std::string error;
  ASSERT_TRUE(TakeSceneRenderLimits(settings, error)) << error;
  EXPECT_EQ(std::tuple(settings.passes, settings.timeLimit), std::tuple(5, 30.0));
}

TEST(RenderOptions, OutputNamesFromModelOrDemoAndCubeFaces) {
  EXPECT_EQ(OutputName(Parse({})), "brindlex-demo.png");
  EXPECT_EQ(OutputName(Parse({"models/house.glb"})), "house.png");
  EXPECT_EQ(OutputName(Parse({"--scene", "a/street.json"})), "street.png");
  EXPECT_EQ(OutputName(Parse({"house.glb", "-o", "x.jpg"})), "x.jpg");
  EXPECT_EQ(CubeMapNames("out/view.png"),
            (std::array<std::string, 6>{"out/view_px.png", "out/view_nx.png", "out/view_pz.png",
                                        "out/view_nz.png", "out/view_py.png", "out/view_ny.png"}));
  EXPECT_EQ(CubeMapNames("plain")[3], "plain_nz");
}

TEST(RenderOptions, PhotonsAndSoftShadowsOverTheSceneFile) {
  RenderSettings settings = Parse({"--photons"});
  HostScene host;
  std::string error;
  ASSERT_TRUE(AssembleScene(settings, 4.0 / 3.0, host, error)) << error;
  const MODE_RENDER_OPTIONS& o = host.Options();
  EXPECT_TRUE(o.DoPhotonMapping() && o.DoIndirectLighting() && !o.DoRayTracedSoftShadows());
  EXPECT_EQ(
      std::tuple(o.GetPhotonDirectLightingContribution(), o.GetPhotonLevel(), o.GetNumberOfIndirectBounces()),
      std::tuple(0.0f, 5, 3));
  SCENE_VERTEX_XYZ min, max;
  ASSERT_TRUE(host.WorldBounds(min, max));
  const double diagonal = std::hypot(max.x - min.x, max.y - min.y, max.z - min.z);
  EXPECT_NEAR(o.GetPhotonRadius(), 0.02 * diagonal, 1e-4 * diagonal);

  // A radius in the scene file wins; turning the maps off there does not,
  // nor soft shadows against --soft-shadows.
  TestFolder folder;
  settings = Parse({"--photons", "--soft-shadows"});
  settings.sceneFile = folder
                           .Write("s.json", R"({"renderOptions": {"GetPhotonRadius": 7,
      "DoPhotonMapping": false, "softShadows": false}})")
                           .string();
  HostScene fromFile;
  ASSERT_TRUE(AssembleScene(settings, 4.0 / 3.0, fromFile, error)) << error;
  EXPECT_EQ(fromFile.Options().GetPhotonRadius(), 7.0f);
  EXPECT_TRUE(fromFile.Options().DoPhotonMapping() && fromFile.Options().DoRayTracedSoftShadows());
}

}  // namespace
