#include <gtest/gtest.h>
#include <signal.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <vector>

#include "BrindlexTexture.h"
#include "CImage.h"

#include "AppTestFiles.h"
#include "HDRPictures.h"

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
  EXPECT_EQ(run.output, "brindlex-render: " + lines + ": holds no triangles (only points or lines)\n");

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

TEST(RenderProgram, OnlyARegularFileOrANewNameTakesThePicture) {
  TestFolder folder;
  const std::string model = "--quiet --width 16 --height 16 '" + TriangleModel(folder).string() + "' -o ";
  auto Run = [&](const std::filesystem::path& output) {
    return Program(model + "'" + output.string() + "'");
  };
  // Each refused before anything is read, left as it was, exit code 2.
  const auto missing = folder.path / "no-such-folder" / "out.png";
  ProgramRun run = Run(missing);
  EXPECT_EQ(run.code, 2);
  EXPECT_EQ(run.output, "brindlex-render: " + missing.string() + ": cannot write in folder '" +
                            missing.parent_path().string() + "': No such file or directory\n");
  const auto pipe = folder.path / "pipe.png";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0644), 0);
  run = Run(pipe);
  EXPECT_EQ(run.code, 2);
  EXPECT_EQ(run.output, "brindlex-render: " + pipe.string() +
                            ": is a named pipe; only a regular file is replaced by a picture\n");
  EXPECT_TRUE(std::filesystem::is_fifo(pipe));
  const auto kept = folder.Write("kept.png", "old");
  std::filesystem::permissions(kept, std::filesystem::perms::owner_read);
  run = Run(kept);
  EXPECT_EQ(run.code, 2);
  EXPECT_EQ(run.output, "brindlex-render: " + kept.string() + ": is read-only; it is kept as it is\n");
  EXPECT_EQ(std::filesystem::file_size(kept), 3u);
  // A link is written through, and stays a link; a new file's mode is what
  // the user's mask lets through.
  const auto link = folder.path / "link.png", target = folder.path / "target.png";
  std::filesystem::create_symlink("target.png", link);
  const mode_t mask = umask(027);
  run = Run(link);
  umask(mask);
  EXPECT_EQ(run.code, 0) << run.output;
  EXPECT_TRUE(std::filesystem::is_symlink(link));
  ASSERT_TRUE(std::filesystem::is_regular_file(target));
  struct stat info;
  ASSERT_EQ(stat(target.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0640u);
  // The longest name a folder takes, and a temporary file of a killed run
  // beside it, which is cleared away; one a living writer holds is not.
  const auto longest = folder.path / (std::string(251, 'n') + ".png");
  const auto abandoned = folder.Write(longest.filename().string().substr(0, 248) + ".a1B2c3", "half");
  const auto held = folder.Write(longest.filename().string().substr(0, 248) + ".d4E5f6", "half");
  const int holder = open(held.c_str(), O_RDONLY);
  ASSERT_EQ(flock(holder, LOCK_EX), 0);
  // The engine takes names of up to 259 characters, path included: from
  // inside the folder.
  const auto cwd = std::filesystem::current_path();
  std::filesystem::current_path(folder.path);
  run = Run(longest.filename());
  std::filesystem::current_path(cwd);
  close(holder);
  EXPECT_EQ(run.code, 0) << run.output;
  EXPECT_TRUE(std::filesystem::is_regular_file(longest));
  EXPECT_FALSE(std::filesystem::exists(abandoned));
  EXPECT_TRUE(std::filesystem::exists(held));
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

TEST(RenderProgram, HDRPictureBesideTheToneMappedOne) {
  TestFolder folder;
  folder.Write("lamp.obj", "mtllib lamp.mtl\nv -1 0 -1\nv 1 0 -1\nv 0 0 1\nusemtl Lamp\nf 1 2 3\n");
  folder.Write("lamp.mtl", "newmtl Lamp\nKd 1 1 1\n");
  const auto scene = folder.Write(
      "scene.json",
      R"({"models": ["lamp.obj"], "materials": {"Lamp": {"emissive": 100, "color": "#FFFFFF"}}})");
  const auto png = folder.path / "lamp.png", exr = folder.path / "lamp.exr";
  ProgramRun run = Program("--quiet --alpha --width 40 --height 40 --scene '" + scene.string() + "' -o '" +
                           png.string() + "' --hdr '" + exr.string() + "'");
  ASSERT_EQ(run.code, 0) << run.output;
  const HDRPicture picture40 = ReadHDRPicture(exr.string());
  ASSERT_EQ(picture40.width, 40);
  ASSERT_EQ(picture40.height, 40);
  const std::vector<Imf::Rgba>& hdr = picture40.pixels;
  Picture picture;
  ASSERT_TRUE(picture.Load(png));
  ASSERT_EQ(picture.image.GetBPP(), 32);
  // Without a tone map a byte is the value times 255, cut, and 255 from 1
  // on; half floats keep 11 bits, so a byte may be one off.
  for (int y = 0; y < 40; ++y)
    for (int x = 0; x < 40; ++x) {
      const Imf::Rgba value = hdr[size_t(y) * 40 + x];
      const float channels[4] = {value.b, value.g, value.r, value.a};
      for (int c = 0; c < 4; ++c) {
        const double expected = std::min(255.0, std::floor(double(channels[c]) * 255.0));
        ASSERT_NEAR(picture.At(x, y)[c], expected, 1.0) << x << "," << y << " channel " << c;
      }
    }
  // The background keeps its alpha of 0, the lamp covers the middle.
  EXPECT_EQ(float(hdr[0].a), 0.0f);
  EXPECT_EQ(float(hdr[20 * 40 + 20].a), 1.0f);

  // "-o" with ".exr" writes the HDR picture alone.
  const auto only = folder.path / "only.exr";
  run = Program("--quiet --width 20 --height 10 --scene '" + scene.string() + "' -o '" + only.string() + "'");
  ASSERT_EQ(run.code, 0) << run.output;
  const HDRPicture alone = ReadHDRPicture(only.string());
  ASSERT_EQ(alone.pixels.size(), 200u);
  EXPECT_EQ(float(alone.pixels[0].a), 1.0f);  // no --alpha: opaque

  // The path tracer does not clamp: the lamp is brighter than white, which
  // only the HDR picture keeps.
  const auto traced = folder.path / "traced.exr";
  run = Program("--quiet --path-tracing --passes 2 --width 20 --height 20 --scene '" + scene.string() +
                "' -o '" + traced.string() + "'");
  ASSERT_EQ(run.code, 0) << run.output;
  float brightest = 0.0f;
  for (const Imf::Rgba& value : ReadHDRPicture(traced.string()).pixels)
    brightest = std::max({brightest, float(value.r), float(value.g), float(value.b)});
  if (brightest == 0.0f) GTEST_SKIP() << "this build has no path tracer: its passes stay black";
  EXPECT_GT(brightest, 1.0f);

  run = Program("--hdr '" + (folder.path / "lamp.tif").string() + "'");
  EXPECT_EQ(run.code, 2);
  EXPECT_NE(run.output.find("needs a file name ending in .exr"), std::string::npos) << run.output;
}
