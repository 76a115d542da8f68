#include <gtest/gtest.h>

#include <cmath>

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

std::string ErrorOf(std::vector<std::string> arguments) {
  RenderSettings settings;
  std::string error;
  EXPECT_FALSE(ParseOptions(arguments, settings, error));
  return error;
}

TEST(RenderOptions, EveryOptionInBothSpellings) {
  const RenderSettings s =
      Parse({"house.glb",     "-o",          "out.tif", "--width=1920",   "--height",
             "1080",          "--antialias", "3",       "--path-tracing", "--passes=50",
             "--checkpoints", "--alpha",     "--eye",   "1,2.5,-3",       "--target=0,0,0",
             "--fov",         "35.5",        "-q",      "--scene",        "s.json"});
  EXPECT_EQ(s.model, "house.glb");
  EXPECT_EQ(s.output, "out.tif");
  EXPECT_EQ(s.width, 1920);
  EXPECT_EQ(s.height, 1080);
  EXPECT_EQ(s.antialias, 3);
  EXPECT_TRUE(s.pathTracing && s.checkpoints && s.alpha && s.quiet);
  EXPECT_FALSE(s.cubeMap);
  EXPECT_EQ(s.passes, 50);
  ASSERT_TRUE(s.eye && s.target && s.fieldOfView);
  EXPECT_FLOAT_EQ(+s.eye->y, 2.5f);
  EXPECT_FLOAT_EQ(+s.eye->z, -3.0f);
  EXPECT_FLOAT_EQ(*s.fieldOfView, 35.5f);
  EXPECT_EQ(s.sceneFile, "s.json");
  EXPECT_TRUE(Parse({"--help"}).help);
  EXPECT_TRUE(Parse({"--version"}).version);
  EXPECT_TRUE(Parse({}).model.empty());
  EXPECT_TRUE(Parse({"--soft-shadows"}).softShadows);
  EXPECT_FALSE(Parse({}).softShadows);
}

TEST(RenderOptions, BadOptionsSayWhy) {
  EXPECT_EQ(ErrorOf({"--colour"}), "unknown option '--colour'");
  EXPECT_EQ(ErrorOf({"--width"}), "option '--width' needs a value");
  EXPECT_EQ(ErrorOf({"--width", "0"}), "option '--width' needs a whole number from 1 to 32767, not '0'");
  EXPECT_EQ(ErrorOf({"--height=40000"}),
            "option '--height' needs a whole number from 1 to 32767, not '40000'");
  EXPECT_EQ(ErrorOf({"--passes", "ten"}),
            "option '--passes' needs a whole number from 1 to 1000000, not 'ten'");
  EXPECT_EQ(ErrorOf({"--antialias", "5"}).rfind("option '--antialias' needs a level from 0", 0), 0u);
  EXPECT_EQ(ErrorOf({"--eye", "1,2"}), "option '--eye' needs three numbers X,Y,Z, not '1,2'");
  EXPECT_EQ(ErrorOf({"--eye", "1,2,3,4"}), "option '--eye' needs three numbers X,Y,Z, not '1,2,3,4'");
  EXPECT_EQ(ErrorOf({"--fov", "180"}),
            "option '--fov' needs an angle in degrees above 0 and below 180, not '180'");
  EXPECT_EQ(ErrorOf({"--alpha=yes"}), "option '--alpha' takes no value");
  EXPECT_EQ(ErrorOf({"a.obj", "b.obj"}), "more than one model given ('a.obj' and 'b.obj')");
  EXPECT_EQ(ErrorOf({"-o", std::string(260, 'x')}), "output name longer than 259 characters");
}

TEST(RenderOptions, TimeLimitAndPassesFromCommandLineOrSceneFile) {
  EXPECT_EQ(ErrorOf({"--time", "0"}), "option '--time' needs a number of seconds above 0, not '0'");
  EXPECT_EQ(ErrorOf({"--time=soon"}), "option '--time' needs a number of seconds above 0, not 'soon'");
  // A time alone leaves the passes open; passes alone keep no time limit.
  RenderJob job = MakeJob(Parse({"--time", "90.5"}));
  EXPECT_EQ(job.passes, UnlimitedPasses);
  EXPECT_EQ(job.timeLimit, 90.5);
  job = MakeJob(Parse({"--time", "90.5", "--passes", "10"}));
  EXPECT_EQ(job.passes, 10);
  job = MakeJob(Parse({}));
  EXPECT_EQ(job.passes, DefaultPasses);
  EXPECT_EQ(job.timeLimit, 0.0);

  // The scene file's keys count where the command line is silent.
  TestFolder folder;
  const std::string scene = folder.Write("s.json", R"({"passes": 12, "time": 30})").string();
  RenderSettings settings = Parse({"--scene", scene, "--passes", "5"});
  std::string error;
  ASSERT_TRUE(TakeSceneRenderLimits(settings, error)) << error;
  EXPECT_EQ(settings.passes, 5);
  EXPECT_EQ(settings.timeLimit, 30.0);
  // The faces of a cube map run their passes one after the other.
  settings = Parse({"--scene", scene, "--cube-map"});
  EXPECT_FALSE(TakeSceneRenderLimits(settings, error));
  EXPECT_EQ(error, "a time limit does not work with --cube-map");
}

TEST(RenderOptions, OutputNamesFromModelOrDemoAndCubeFaces) {
  EXPECT_EQ(OutputName(Parse({})), "brindlex-demo.png");
  EXPECT_EQ(OutputName(Parse({"models/house.glb"})), "house.png");
  EXPECT_EQ(OutputName(Parse({"--scene", "a/street.json"})), "street.png");
  EXPECT_EQ(OutputName(Parse({"house.glb", "-o", "x.jpg"})), "x.jpg");
  const auto faces = CubeMapNames("out/view.png");
  const std::array<std::string, 6> expected = {"out/view_px.png", "out/view_nx.png", "out/view_pz.png",
                                               "out/view_nz.png", "out/view_py.png", "out/view_ny.png"};
  EXPECT_EQ(faces, expected);
  EXPECT_EQ(CubeMapNames("plain")[3], "plain_nz");
}

}  // namespace

TEST(RenderOptions, PhotonsSuitAnInteriorAndTheSceneFileStillDecides) {
  RenderSettings settings = Parse({"--photons"});
  ASSERT_TRUE(settings.photons);
  HostScene host;
  std::string error;
  ASSERT_TRUE(AssembleScene(settings, 4.0 / 3.0, host, error)) << error;
  const MODE_RENDER_OPTIONS& o = host.Options();
  EXPECT_TRUE(o.DoPhotonMapping() && o.DoIndirectLighting());
  EXPECT_EQ(o.GetPhotonDirectLightingContribution(), 0.0f);
  EXPECT_EQ(o.GetPhotonLevel(), InteriorPhotonLevel);
  EXPECT_EQ(o.GetNumberOfIndirectBounces(), InteriorBounces);
  SCENE_VERTEX_XYZ min, max;
  ASSERT_TRUE(host.WorldBounds(min, max));
  const double diagonal = std::hypot(max.x - min.x, max.y - min.y, max.z - min.z);
  EXPECT_NEAR(o.GetPhotonRadius(), 0.02 * diagonal, 1e-4 * diagonal);

  // A radius in the scene file wins; turning the maps off there does not.
  TestFolder folder;
  settings.sceneFile =
      folder.Write("s.json", R"({"renderOptions": {"GetPhotonRadius": 7, "DoPhotonMapping": false}})")
          .string();
  HostScene fromFile;
  ASSERT_TRUE(AssembleScene(settings, 4.0 / 3.0, fromFile, error)) << error;
  EXPECT_EQ(fromFile.Options().GetPhotonRadius(), 7.0f);
  EXPECT_TRUE(fromFile.Options().DoPhotonMapping());
}
