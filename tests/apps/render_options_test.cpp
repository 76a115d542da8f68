#include <gtest/gtest.h>

#include "Options.h"
#include "Progress.h"

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
}

TEST(RenderOptions, BadOptionsSayWhy) {
  EXPECT_EQ(ErrorOf({"--colour"}), "unknown option '--colour'");
  EXPECT_EQ(ErrorOf({"--width"}), "option '--width' needs a value");
  EXPECT_EQ(ErrorOf({"--width", "0"}), "option '--width' needs a whole number from 1 to 16384, not '0'");
  EXPECT_EQ(ErrorOf({"--height=40000"}),
            "option '--height' needs a whole number from 1 to 16384, not '40000'");
  EXPECT_EQ(ErrorOf({"--width", "16385"}),
            "option '--width' needs a whole number from 1 to 16384, not '16385'");
  EXPECT_EQ(ErrorOf({"--passes", "ten"}),
            "option '--passes' needs a whole number from 1 to 1000000, not 'ten'");
  EXPECT_EQ(ErrorOf({"--antialias", "5"}).rfind("option '--antialias' needs a level from 0", 0), 0u);
  EXPECT_EQ(ErrorOf({"--eye", "1,2"}), "option '--eye' needs three numbers X,Y,Z, not '1,2'");
  EXPECT_EQ(ErrorOf({"--eye", "1,2,3,4"}), "option '--eye' needs three numbers X,Y,Z, not '1,2,3,4'");
  // Too narrow a view makes the projection degenerate; hexadecimal is no
  // number a user types.
  for (const char* fov : {"180", "1e-30", "0x20", "0.09"})
    EXPECT_EQ(ErrorOf({"--fov", fov}),
              std::string("option '--fov' needs an angle in degrees from 0.1 to 179, not '") + fov + "'");
  EXPECT_EQ(ErrorOf({"--eye", "0x1p3,0,0"}), "option '--eye' needs three numbers X,Y,Z, not '0x1p3,0,0'");
  EXPECT_EQ(ErrorOf({"--alpha=yes"}), "option '--alpha' takes no value");
  EXPECT_EQ(ErrorOf({"a.obj", "b.obj"}), "more than one model given ('a.obj' and 'b.obj')");
  EXPECT_EQ(ErrorOf({"-o", std::string(260, 'x')}), "output name longer than 259 characters");
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
