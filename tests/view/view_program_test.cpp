// brindlex-view itself, on a display of its own: Xvfb, started here.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <regex>
#include <sstream>
#include <thread>

#include "../apps/AppTestFiles.h"
#include "host/BrindlexTexture.h"
#include "platform/CImage.h"

namespace {

bool Installed(const char* program) {
  return std::system((std::string("command -v ") + program + " >/dev/null 2>&1").c_str()) == 0;
}

// A child process with its output in a file.
struct Child {
  pid_t pid = -1;
  // Runs `arguments` with DISPLAY set to `display` (unset when empty).
  Child(const std::vector<std::string>& arguments, const std::string& display, const std::string& output) {
    pid = fork();
    if (pid != 0) return;
    const int fd = open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    dup2(fd, 1), dup2(fd, 2);
    unsetenv("WAYLAND_DISPLAY"), unsetenv("SDL_VIDEODRIVER");
    setenv("LSAN_OPTIONS", "print_suppressions=0:suppressions=" BRINDLEX_VIEW_LEAK_SUPPRESSIONS, 1);
    if (display.empty())
      unsetenv("DISPLAY");
    else
      setenv("DISPLAY", display.c_str(), 1);
    std::vector<char*> argv;
    for (const auto& a : arguments) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    execvp(argv[0], argv.data());
    _exit(127);
  }
  // The exit code, or -1 when it did not end in time (it is then killed).
  int Wait(std::chrono::seconds limit = std::chrono::seconds(180)) {
    const auto end = std::chrono::steady_clock::now() + limit;
    int status = 0;
    while (waitpid(pid, &status, WNOHANG) == 0) {
      if (std::chrono::steady_clock::now() > end) {
        kill(pid, SIGKILL);
        waitpid(pid, &status, 0);
        return -1;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    pid = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  ~Child() {
    if (pid > 0) kill(pid, SIGKILL), waitpid(pid, nullptr, 0);
  }
};

std::string Read(const std::filesystem::path& file) {
  std::ifstream in(file);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

int Count(const std::string& text, const std::string& part) {
  int n = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++n;
  return n;
}

// An X server for the tests of this program, on a display number it picks.
class ViewProgram : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    if (!Installed("Xvfb")) return;
    int fds[2];
    if (pipe(fds) != 0) return;
    server = fork();
    if (server == 0) {
      close(fds[0]);
      const std::string fd = std::to_string(fds[1]);
      execlp("Xvfb", "Xvfb", "-displayfd", fd.c_str(), "-screen", "0", "640x480x24", "-nolisten", "tcp",
             static_cast<char*>(nullptr));
      _exit(127);
    }
    close(fds[1]);
    // Xvfb writes the number and a newline once it is ready, and fails if
    // nobody reads the whole line.
    std::string number;
    char c;
    while (read(fds[0], &c, 1) == 1 && c != '\n') number += c;
    close(fds[0]);
    char name[32];
    std::snprintf(name, sizeof name, ":%d", std::atoi(number.c_str()));
    if (!number.empty()) display = name;
  }
  static void TearDownTestSuite() {
    if (server > 0) kill(server, SIGTERM), waitpid(server, nullptr, 0);
    server = -1;
  }
  void SetUp() override {
    if (display.empty()) GTEST_SKIP() << "Xvfb is not installed or did not start: no display to test on";
  }
  static inline pid_t server = -1;
  static inline std::string display;
};

struct Shot {
  ATL::CImage image;
  // Red, green, blue of a pixel.
  std::array<int, 3> At(int x, int y) const {
    const auto* p =
        static_cast<const uint8_t*>(image.GetBits()) + y * image.GetPitch() + x * image.GetBPP() / 8;
    return {p[2], p[1], p[0]};
  }
};

// The demo at 320 x 240: sky above, lawn below, the pavilion's wooden floor
// and grey roof in the middle.
void ExpectDemoHouse(const Shot& shot) {
  ASSERT_EQ(shot.image.GetWidth(), 320);
  ASSERT_EQ(shot.image.GetHeight(), 240);
  const auto sky = shot.At(160, 5), lawn = shot.At(20, 230), roof = shot.At(160, 82);
  EXPECT_GT(sky[2], sky[0] + 60) << "sky";
  EXPECT_GT(lawn[1], lawn[0] + 60) << "lawn";
  EXPECT_GT(lawn[1], lawn[2] + 60) << "lawn";
  EXPECT_GT(roof[0], 100) << "roof";
  EXPECT_LT(std::abs(roof[0] - roof[2]), 30) << "roof";
  int wood = 0;
  for (int y = 130; y < 170; ++y)
    for (int x = 100; x < 220; ++x) {
      const auto c = shot.At(x, y);
      wood += c[0] > 120 && c[0] > c[1] && c[1] > c[2];
    }
  EXPECT_GT(wood, 120 * 40 / 4) << "floor";
}

TEST_F(ViewProgram, ShowsTheDemoHouseAndADragTurnsTheCameraWithoutRebuildingTheModel) {
  TestFolder folder;
  const auto before = folder.path / "before.png", after = folder.path / "after.png";
  const auto log = folder.path / "view.log", output = folder.path / "out.txt";
  // With one sample a pixel, as sanitizer builds run it too.
  const std::vector<std::string> view320 = {
      BRINDLEX_VIEW_PROGRAM, "--width", "320", "--height", "240", "--antialias", "0", "--screenshot"};
  std::vector<std::string> arguments = view320;
  arguments.insert(arguments.end(), {before.string(), "--exit-after-frame"});
  Child first(arguments, display, output.string());
  ASSERT_EQ(first.Wait(), 0) << Read(output);
  EXPECT_EQ(Read(output), "");
  Shot a, b;
  ASSERT_TRUE(LoadCImageTextureFromFile(before.c_str(), a.image));
  ExpectDemoHouse(a);

  if (!Installed("xdotool")) GTEST_SKIP() << "xdotool is not installed: no mouse to drag with";
  arguments = view320;
  arguments.insert(arguments.end(), {after.string(), "--log", log.string()});
  Child view(arguments, display, output.string());
  auto waitForLog = [&](const std::string& text, int count) {
    for (int i = 0; i < 1800; ++i, std::this_thread::sleep_for(std::chrono::milliseconds(100)))
      if (Count(Read(log), text) >= count) return true;
    return false;
  };
  ASSERT_TRUE(waitForLog("view: frame complete", 1)) << Read(log);
  // The window of this process, looked up once: an earlier process's id
  // may be handed out again.
  const std::string x = "DISPLAY=" + display + " xdotool ";
  std::string window;
  if (FILE* found = popen(
          (x + "search --sync --pid " + std::to_string(view.pid) + " --name brindlex-view").c_str(), "r")) {
    char line[64] = "";
    if (std::fgets(line, sizeof line, found)) window = std::to_string(std::strtoul(line, nullptr, 10));
    pclose(found);
  }
  ASSERT_FALSE(window.empty()) << Read(output);
  ASSERT_EQ(std::system((x + "windowfocus --sync " + window + " mousemove --window " + window +
                         " 40 50 mousedown 1 mousemove --window " + window + " 60 55 mousemove --window " +
                         window + " 80 60 mouseup 1")
                            .c_str()),
            0)
      << Read(output);
  ASSERT_TRUE(waitForLog("view: frame complete", 2)) << Read(log);
  // The program may close its window between the key's press and release,
  // so xdotool's own result says nothing; that the program ends does.
  ASSERT_NE(std::system((x + "key --window " + window + " q 2>/dev/null").c_str()), -1);
  ASSERT_EQ(view.Wait(), 0) << Read(output);

  // The picture turned: most of it changed.
  ASSERT_TRUE(LoadCImageTextureFromFile(after.c_str(), b.image));
  ASSERT_EQ(b.image.GetWidth(), 320);
  int changed = 0;
  for (int y = 0; y < 240; ++y)
    for (int x = 0; x < 320; ++x) {
      const auto p = a.At(x, y), q = b.At(x, y);
      changed += std::abs(p[0] - q[0]) + std::abs(p[1] - q[1]) + std::abs(p[2] - q[2]) > 60;
    }
  EXPECT_GT(changed, 320 * 240 / 10);

  // The log: one model build at the start, then camera moves only, as no
  // tree is rebuilt (how long each took depends on the machine's load, so
  // it is not compared). Every UpdateFrame wrote its own timing line too.
  const std::string lines = Read(log);
  const std::regex update("view: UpdateFrame after a ([a-z ]+): ([0-9.e+-]+) ms");
  std::vector<std::pair<std::string, double>> updates;
  for (auto it = std::sregex_iterator(lines.begin(), lines.end(), update); it != std::sregex_iterator(); ++it)
    updates.emplace_back((*it)[1], std::stod((*it)[2]));
  ASSERT_GE(updates.size(), 2u) << lines;
  EXPECT_EQ(updates[0].first, "model change");
  for (size_t i = 1; i < updates.size(); ++i) EXPECT_EQ(updates[i].first, "camera move") << lines;
  EXPECT_EQ(Count(lines, "UpdateFrame Time = "), static_cast<int>(updates.size()));
  EXPECT_EQ(Count(lines, "view: input to complete picture: "), 1);
}

TEST(ViewProgramWithoutDisplay, SaysSoInOneLine) {
  TestFolder folder;
  const auto output = folder.path / "out.txt";
  Child view({BRINDLEX_VIEW_PROGRAM}, "", output.string());
  EXPECT_EQ(view.Wait(), 2);
  EXPECT_EQ(Read(output),
            "brindlex-view: no display to open a window on (neither DISPLAY nor WAYLAND_DISPLAY is set)\n");
}

}  // namespace
