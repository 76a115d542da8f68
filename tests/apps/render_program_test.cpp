#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>

#include "BrindlexTexture.h"
#include "CImage.h"

#include "AppTestFiles.h"

namespace {

struct ProgramRun {
  int code;
  std::string output;  // standard error and output together
};

ProgramRun Program(const std::string& arguments) {
  const std::string command = std::string("'") + BRINDLEX_RENDER_PROGRAM + "' " + arguments + " 2>&1";
  FILE* pipe = popen(command.c_str(), "r");
  ProgramRun run{-1, ""};
  if (!pipe) return run;
  char buffer[512];
  while (size_t n = fread(buffer, 1, sizeof buffer, pipe)) run.output.append(buffer, n);
  const int status = pclose(pipe);
  run.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return run;
}

TEST(RenderProgram, BadInputEndsInOneLineAndExitCode2) {
  TestFolder folder;
  const std::string missing = (folder.path / "missing.obj").string();
  ProgramRun run = Program("'" + missing + "'");
  EXPECT_EQ(run.code, 2);
  EXPECT_EQ(run.output, "brindlex-render: " + missing + ": no such file\n");

  const std::string lines = folder.Write("lines.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nl 1 2 3\n").string();
  run = Program("'" + lines + "'");
  EXPECT_EQ(run.code, 2);
  EXPECT_EQ(run.output.rfind("brindlex-render: " + lines + ": ", 0), 0u) << run.output;
  EXPECT_EQ(std::count(run.output.begin(), run.output.end(), '\n'), 1);

  run = Program("--nope");
  EXPECT_EQ(run.code, 2);
  EXPECT_EQ(run.output, "brindlex-render: unknown option '--nope' (see --help)\n");

  const std::string scene = folder.Write("scene.json", R"({"camera": {"zoom": 2}})").string();
  run = Program("--scene '" + scene + "'");
  EXPECT_EQ(run.code, 2);
  EXPECT_EQ(run.output, "brindlex-render: " + scene + ": unknown key 'camera.zoom'\n");

  run = Program("--scene '" + (folder.path / "none.json").string() + "'");
  EXPECT_EQ(run.code, 2);
  EXPECT_NE(run.output.find("none.json: No such file or directory"), std::string::npos) << run.output;
}

TEST(RenderProgram, HelpAndVersion) {
  ProgramRun run = Program("--help");
  EXPECT_EQ(run.code, 0);
  EXPECT_EQ(run.output.rfind("Usage: brindlex-render [MODEL] [options]", 0), 0u);
  run = Program("--version");
  EXPECT_EQ(run.code, 0);
  EXPECT_EQ(run.output.rfind("brindlex-render ", 0), 0u);
}

}  // namespace

namespace {

// A picture the program wrote, decoded; empty when it can't be read.
struct Picture {
  ATL::CImage image;
  bool Load(const std::filesystem::path& file) { return LoadCImageTextureFromFile(file.c_str(), image); }
  // Blue, green, red, alpha of a pixel, top row first.
  const uint8_t* At(int x, int y) {
    return static_cast<const uint8_t*>(image.GetBits()) + y * image.GetPitch() + x * image.GetBPP() / 8;
  }
};

// One triangle in the middle of the view, far from the picture's corners.
std::filesystem::path TriangleModel(const TestFolder& folder) {
  return folder.Write("triangle.obj", "v -1 0 -1\nv 1 0 -1\nv 0 0 1\nf 1 2 3\n");
}

}  // namespace

TEST(RenderProgram, TheDemoRendersASkyOverAGround) {
  TestFolder folder;
  const auto output = folder.path / "demo.png";
  ProgramRun run = Program("--quiet --width 96 --height 64 -o '" + output.string() + "'");
  ASSERT_EQ(run.code, 0) << run.output;
  Picture picture;
  ASSERT_TRUE(picture.Load(output));
  EXPECT_EQ(picture.image.GetWidth(), 96);
  EXPECT_EQ(picture.image.GetHeight(), 64);
  // The demo's camera looks at the house from above the ground: the top row
  // is blue sky, the bottom row green ground.
  const uint8_t* sky = picture.At(48, 0);
  EXPECT_GT(sky[0], sky[2]);
  const uint8_t* ground = picture.At(2, 63);
  EXPECT_GT(ground[1], ground[0]);
  EXPECT_GT(ground[1], ground[2]);
}

TEST(RenderProgram, AlphaKeepsTheBackgroundTransparent) {
  TestFolder folder;
  const auto model = TriangleModel(folder);
  const auto clear = folder.path / "clear.png", opaque = folder.path / "opaque.png";
  ASSERT_EQ(
      Program("--quiet --alpha --width 40 --height 40 '" + model.string() + "' -o '" + clear.string() + "'")
          .code,
      0);
  ASSERT_EQ(
      Program("--quiet --width 40 --height 40 '" + model.string() + "' -o '" + opaque.string() + "'").code,
      0);
  Picture withAlpha, without;
  ASSERT_TRUE(withAlpha.Load(clear));
  ASSERT_TRUE(without.Load(opaque));
  ASSERT_EQ(withAlpha.image.GetBPP(), 32);
  EXPECT_EQ(withAlpha.At(0, 0)[3], 0);      // a corner sees only background
  EXPECT_EQ(withAlpha.At(20, 20)[3], 255);  // the middle sees the triangle
  if (without.image.GetBPP() == 32) {
    EXPECT_EQ(without.At(0, 0)[3], 255);
  }
}

TEST(RenderProgram, AnUnwritablePictureEndsWithExitCode1) {
  TestFolder folder;
  const auto output = folder.path / "no-such-folder" / "out.png";
  ProgramRun run = Program("--quiet --width 16 --height 16 '" + TriangleModel(folder).string() + "' -o '" +
                           output.string() + "'");
  EXPECT_EQ(run.code, 1);
  EXPECT_EQ(run.output, "brindlex-render: " + output.string() + ": the picture could not be written\n");
}

TEST(RenderProgram, ATimeLimitEndsPathTracingAfterAWholePass) {
  TestFolder folder;
  const auto output = folder.path / "timed.png";
  // Without the limit a million passes would run.
  ProgramRun run = Program("--quiet --path-tracing --passes 1000000 --time 0.5 --width 48 --height 32 '" +
                           TriangleModel(folder).string() + "' -o '" + output.string() + "'");
  EXPECT_EQ(run.code, 0);
  EXPECT_EQ(run.output, "");
  Picture picture;
  ASSERT_TRUE(picture.Load(output));
  EXPECT_EQ(picture.image.GetWidth(), 48);
  run = Program("--time 5 --cube-map");
  EXPECT_EQ(run.code, 2);
  EXPECT_EQ(run.output, "brindlex-render: a time limit does not work with --cube-map\n");
}

TEST(RenderProgram, CtrlCLeavesTheLastCompletePicture) {
  TestFolder folder;
  const auto output = folder.path / "long.png";
  const std::string model = TriangleModel(folder).string(), name = output.string();
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    execl(BRINDLEX_RENDER_PROGRAM, BRINDLEX_RENDER_PROGRAM, "--quiet", "--path-tracing", "--passes",
          "1000000", "--width", "48", "--height", "32", model.c_str(), "-o", name.c_str(),
          static_cast<char*>(nullptr));
    _exit(99);
  }
  // Wait for the first complete pass on disk, let more passes come, stop.
  for (int i = 0; i < 600 && !std::filesystem::exists(output); ++i) usleep(50000);
  usleep(300000);
  kill(child, SIGINT);
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 130);
  Picture picture;
  ASSERT_TRUE(picture.Load(output));
  EXPECT_EQ(picture.image.GetWidth(), 48);
  EXPECT_EQ(picture.image.GetHeight(), 32);
  // Nothing half-written is left beside it.
  int files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(folder.path)) files += entry.is_regular_file();
  EXPECT_EQ(files, 2);  // the model and the picture
}
