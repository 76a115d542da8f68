// brindlex-render itself, run as a user runs it.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <tuple>
#include <vector>

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

std::string Quoted(const std::filesystem::path& path) {
  std::string quoted(1, '\'');  // built in steps: GCC 12 warns wrongly about "'" + string
  return quoted.append(path.string()).append(1, '\'');
}

TEST(RenderProgram, BadInputEndsInOneLineAndExitCode2) {
  TestFolder folder;
  const auto missing = folder.path / "missing.obj", noFolder = folder.path / "no-such-folder" / "out.png";
  const auto lines = folder.Write("lines.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nl 1 2 3\n");
  const auto unknown = folder.Write("unknown.json", R"({"camera": {"zoom": 2}})");
  const auto timed = folder.Write("timed.json", R"({"time": 30})");
  const auto tree = folder.Write("tree.json", R"({"rotateToCamera": ["Tree"]})");
  const auto brass = folder.Write("brass.json", R"({"materials": {"Brass": {"color": "#C0A040"}}})");
  const auto pipe = folder.path / "pipe.png", kept = folder.Write("kept.png", "old");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0644), 0);
  std::filesystem::permissions(kept, std::filesystem::perms::owner_read);
  const std::string fov = "needs an angle in degrees from 0.1 to 179, not '";
  const std::pair<std::string, std::string> cases[] = {
      {"--nope", "unknown option '--nope' (see --help)"},
      {"--width", "option '--width' needs a value (see --help)"},
      {"--width 16385", "option '--width' needs a whole number from 1 to 16384, not '16385'"},
      {"--height=40000", "option '--height' needs a whole number from 1 to 16384, not '40000'"},
      {"--passes ten", "option '--passes' needs a whole number from 1 to 1000000, not 'ten'"},
      {"--antialias 5", "option '--antialias' needs a level from 0"},
      {"--eye 1,2", "option '--eye' needs three numbers X,Y,Z, not '1,2'"},
      // Hexadecimal is no number a user types; too narrow a view makes the
      // projection degenerate.
      {"--eye 0x1p3,0,0", "option '--eye' needs three numbers X,Y,Z, not '0x1p3,0,0'"},
      {"--fov 0x20", "option '--fov' " + fov + "0x20'"},
      {"--fov 0.09", "option '--fov' " + fov + "0.09'"},
      {"--fov 180", "option '--fov' " + fov + "180'"},
      {"--time 0", "option '--time' needs a number of seconds above 0, not '0'"},
      {"--alpha=yes", "option '--alpha' takes no value"},
      {"a.obj b.obj", "more than one model given ('a.obj' and 'b.obj')"},
      {"-o " + std::string(260, 'x'), "output name longer than 259 characters"},
      {"--hdr view.png", "option '--hdr' needs a file name ending in .exr, not 'view.png'"},
      {"--hdr=v.exr --cube-map", "option '--hdr' does not go with --cube-map"},
      {"--time 5 --cube-map", "a time limit does not work with --cube-map\n"},
      {"--scene " + Quoted(timed) + " --cube-map", "a time limit does not work with --cube-map\n"},
      {Quoted(missing), missing.string() + ": no such file\n"},
      {Quoted(lines), lines.string() + ": holds no triangles (only points or lines)\n"},
      {"--scene " + Quoted(unknown), unknown.string() + ": unknown key 'camera.zoom'\n"},
      {"--scene " + Quoted(folder.path / "none.json"), "none.json: No such file or directory\n"},
      {"--scene " + Quoted(tree), "rotateToCamera: no node is named 'Tree'\n"},
      {"--scene " + Quoted(brass), "materials: no material is named 'Brass'\n"},
      // Pictures: refused before anything is read.
      {"-o " + Quoted(noFolder), noFolder.string() + ": cannot write in folder '" +
                                     noFolder.parent_path().string() + "': No such file or directory\n"},
      {"-o " + Quoted(pipe),
       pipe.string() + ": is a named pipe; only a regular file is replaced by a picture\n"},
      {"-o " + Quoted(kept), kept.string() + ": is read-only; it is kept as it is\n"},
  };
  for (const auto& [arguments, message] : cases) {
    const ProgramRun run = Program("--quiet " + arguments);
    EXPECT_EQ(run.code, 2) << arguments;
    EXPECT_EQ(run.output.rfind("brindlex-render: ", 0), 0u) << run.output;
    EXPECT_NE(run.output.find(message), std::string::npos) << run.output;
    EXPECT_EQ(std::count(run.output.begin(), run.output.end(), '\n'), 1) << run.output;
  }
  EXPECT_TRUE(std::filesystem::is_fifo(pipe));
  EXPECT_EQ(std::filesystem::file_size(kept), 3u);

  const ProgramRun help = Program("--help"), version = Program("--version");
  EXPECT_EQ(std::tuple(help.code, help.output.rfind("Usage: brindlex-render [MODEL] [options]", 0)),
            std::tuple(0, 0u));
  EXPECT_EQ(std::tuple(version.code, version.output.rfind("brindlex-render ", 0)), std::tuple(0, 0u));
}

// One triangle in the middle of the view, far from the picture's corners.
std::filesystem::path TriangleModel(const TestFolder& folder) {
  return folder.Write("triangle.obj", "v -1 0 -1\nv 1 0 -1\nv 0 0 1\nf 1 2 3\n");
}

}  // namespace

TEST(RenderProgram, TheDemoShowsASkyOverAGroundAndAlphaKeepsTheBackgroundClear) {
  TestFolder folder;
  const auto demo = folder.path / "demo.png", clear = folder.path / "clear.png";
  ProgramRun run = Program("--quiet --width 96 --height 64 -o " + Quoted(demo));
  ASSERT_EQ(run.code, 0) << run.output;
  Picture picture;
  ASSERT_TRUE(picture.Load(demo));
  EXPECT_EQ(std::tuple(picture.image.GetWidth(), picture.image.GetHeight()), std::tuple(96, 64));
  // The demo's camera looks at the house from above the ground: the top row
  // is blue sky, the bottom row green ground.
  const uint8_t *sky = picture.At(48, 0), *ground = picture.At(2, 63);
  EXPECT_TRUE(sky[0] > sky[2] && ground[1] > ground[0] && ground[1] > ground[2]);

  run = Program("--quiet --alpha --width 40 --height 40 " + Quoted(TriangleModel(folder)) + " -o " +
                Quoted(clear));
  ASSERT_EQ(run.code, 0) << run.output;
  ASSERT_TRUE(picture.Load(clear));
  ASSERT_EQ(picture.image.GetBPP(), 32);
  EXPECT_EQ(picture.At(0, 0)[3], 0);      // a corner sees only background
  EXPECT_EQ(picture.At(20, 20)[3], 255);  // the middle sees the triangle
}

TEST(RenderProgram, APictureGoesThroughALinkAndReplacesAKilledRunsTemporaryFile) {
  TestFolder folder;
  const std::string model = "--quiet --width 16 --height 16 " + Quoted(TriangleModel(folder)) + " -o ";
  // A link is written through, and stays a link; a new file's mode is what
  // the user's mask lets through.
  const auto link = folder.path / "link.png", target = folder.path / "target.png";
  std::filesystem::create_symlink("target.png", link);
  const mode_t mask = umask(027);
  ProgramRun run = Program(model + Quoted(link));
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
  run = Program(model + Quoted(longest.filename()));
  std::filesystem::current_path(cwd);
  close(holder);
  EXPECT_EQ(run.code, 0) << run.output;
  EXPECT_TRUE(std::filesystem::is_regular_file(longest));
  EXPECT_FALSE(std::filesystem::exists(abandoned));
  EXPECT_TRUE(std::filesystem::exists(held));
}

TEST(RenderProgram, ATimeLimitOrCtrlCEndsPathTracingAfterAWholePass) {
  TestFolder folder;
  const auto timed = folder.path / "timed.png", stopped = folder.path / "stopped.png";
  const std::string model = TriangleModel(folder).string();
  // Without the limit a million passes would run.
  ProgramRun run = Program("--quiet --path-tracing --passes 1000000 --time 0.5 --width 48 --height 32 " +
                           Quoted(model) + " -o " + Quoted(timed));
  EXPECT_EQ(std::tuple(run.code, run.output), std::tuple(0, ""));
  Picture picture;
  ASSERT_TRUE(picture.Load(timed));
  EXPECT_EQ(picture.image.GetWidth(), 48);

  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    execl(BRINDLEX_RENDER_PROGRAM, BRINDLEX_RENDER_PROGRAM, "--quiet", "--path-tracing", "--passes",
          "1000000", "--width", "48", "--height", "32", model.c_str(), "-o", stopped.c_str(),
          static_cast<char*>(nullptr));
    _exit(99);
  }
  // Wait for the first complete pass on disk (up to three minutes: sanitizer
  // builds on a busy machine are slow), let more passes come, stop.
  for (int i = 0; i < 3600 && !std::filesystem::exists(stopped); ++i) usleep(50000);
  usleep(300000);
  kill(child, SIGINT);
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 130) << status;
  ASSERT_TRUE(picture.Load(stopped));
  EXPECT_EQ(picture.image.GetHeight(), 32);
  // Nothing half-written is left beside them.
  int files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(folder.path)) files += entry.is_regular_file();
  EXPECT_EQ(files, 3);  // the model and the two pictures
}

TEST(RenderProgram, HDRPictureBesideTheToneMappedOne) {
  TestFolder folder;
  folder.Write("lamp.obj", "mtllib lamp.mtl\nv -1 0 -1\nv 1 0 -1\nv 0 0 1\nusemtl Lamp\nf 1 2 3\n");
  folder.Write("lamp.mtl", "newmtl Lamp\nKd 1 1 1\n");
  const std::string scene = " --scene " + Quoted(folder.Write("scene.json", R"({"models": ["lamp.obj"],
      "materials": {"Lamp": {"emissive": 100, "color": "#FFFFFF"}}})"));
  const auto png = folder.path / "lamp.png", exr = folder.path / "lamp.exr";
  ProgramRun run = Program("--quiet --alpha --width 40 --height 40" + scene + " -o " + Quoted(png) +
                           " --hdr " + Quoted(exr));
  ASSERT_EQ(run.code, 0) << run.output;
  const HDRPicture beside = ReadHDRPicture(exr.string());
  ASSERT_EQ(std::tuple(beside.width, beside.height), std::tuple(40, 40));
  const std::vector<Imf::Rgba>& hdr = beside.pixels;
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
  EXPECT_EQ(std::tuple(float(hdr[0].a), float(hdr[20 * 40 + 20].a)), std::tuple(0.0f, 1.0f));

  // "-o" with ".exr" writes the HDR picture alone, opaque without --alpha;
  // the path tracer does not clamp: the lamp is brighter than white, which
  // only the HDR picture keeps.
  const auto traced = folder.path / "traced.exr";
  run = Program("--quiet --path-tracing --passes 2 --width 20 --height 20" + scene + " -o " + Quoted(traced));
  ASSERT_EQ(run.code, 0) << run.output;
  const HDRPicture alone = ReadHDRPicture(traced.string());
  ASSERT_EQ(alone.pixels.size(), 400u);
  EXPECT_EQ(float(alone.pixels[0].a), 1.0f);
  float brightest = 0.0f;
  for (const Imf::Rgba& value : alone.pixels)
    brightest = std::max({brightest, float(value.r), float(value.g), float(value.b)});
  EXPECT_GT(brightest, 1.0f);
}
