// brindlex-view itself, on a display of its own: Xvfb, started here.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <memory>
#include <regex>
#include <thread>

#include "../apps/AppTestFiles.h"

namespace {

bool Installed(const char* program) {
  return std::system((std::string("command -v ") + program + " >/dev/null 2>&1").c_str()) == 0;
}

// The command that runs brindlex-view with `arguments` on `display` (none
// when empty), its output in `output`; stopped after three minutes.
std::string View(const std::string& arguments, const std::string& display,
                 const std::filesystem::path& output) {
  return "env -u WAYLAND_DISPLAY -u SDL_VIDEODRIVER " +
         (display.empty() ? "-u DISPLAY" : "DISPLAY=" + display) +
         " LSAN_OPTIONS=print_suppressions=0:suppressions=" BRINDLEX_VIEW_LEAK_SUPPRESSIONS
         " timeout -k 5 180 '" BRINDLEX_VIEW_PROGRAM "' " +
         arguments + " >'" + output.string() + "' 2>&1";
}

int ExitCode(int status) {
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
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
    // The shell's process becomes the server's; Xvfb writes its display
    // number once it is ready.
    server = popen("echo $$; exec Xvfb -displayfd 1 -screen 0 640x480x24 -nolisten tcp 2>/dev/null", "r");
    int number = -1;
    if (server && std::fscanf(server, "%d %d", &serverProcess, &number) == 2)
      display = ":" + std::to_string(number);
  }
  static void TearDownTestSuite() {
    if (serverProcess > 0) kill(serverProcess, SIGTERM);
    if (server) pclose(server);
    server = nullptr, serverProcess = -1;
  }
  void SetUp() override {
    if (display.empty()) GTEST_SKIP() << "Xvfb is not installed or did not start: no display to test on";
  }
  static inline FILE* server = nullptr;
  static inline pid_t serverProcess = -1;
  static inline std::string display;
};

// The demo at 320 x 240: sky above, lawn below, the pavilion's wooden floor
// and grey roof in the middle.
void ExpectDemoHouse(const Picture& shot) {
  ASSERT_EQ(shot.image.GetWidth(), 320);
  ASSERT_EQ(shot.image.GetHeight(), 240);
  // Blue, green, red.
  const uint8_t *sky = shot.At(160, 5), *lawn = shot.At(20, 230), *roof = shot.At(160, 82);
  EXPECT_GT(sky[0], sky[2] + 60) << "sky";
  EXPECT_GT(lawn[1], lawn[2] + 60) << "lawn";
  EXPECT_GT(lawn[1], lawn[0] + 60) << "lawn";
  EXPECT_GT(roof[2], 100) << "roof";
  EXPECT_LT(std::abs(roof[2] - roof[0]), 30) << "roof";
  int wood = 0;
  for (int y = 130; y < 170; ++y)
    for (int x = 100; x < 220; ++x) {
      const uint8_t* c = shot.At(x, y);
      wood += c[2] > 120 && c[2] > c[1] && c[1] > c[0];
    }
  EXPECT_GT(wood, 120 * 40 / 4) << "floor";
}

TEST_F(ViewProgram, ShowsTheDemoHouseAndADragTurnsTheCameraWithoutRebuildingTheModel) {
  TestFolder folder;
  const auto before = folder.path / "before.png", after = folder.path / "after.png";
  const auto log = folder.path / "view.log", output = folder.path / "out.txt";
  // With one sample a pixel, as sanitizer builds run it too.
  const std::string view320 = "--width 320 --height 240 --antialias 0 --screenshot ";
  ASSERT_EQ(
      ExitCode(std::system(View(view320 + before.string() + " --exit-after-frame", display, output).c_str())),
      0)
      << folder.Read(output);
  EXPECT_EQ(folder.Read(output), "");
  Picture a, b;
  ASSERT_TRUE(a.Load(before));
  ExpectDemoHouse(a);

  if (!Installed("xdotool")) GTEST_SKIP() << "xdotool is not installed: no mouse to drag with";
  // Running while the mouse drags; closing the pipe waits for its end.
  std::unique_ptr<FILE, int (*)(FILE*)> view(
      popen(View(view320 + after.string() + " --log " + log.string(), display, output).c_str(), "r"), pclose);
  ASSERT_NE(view, nullptr);
  auto waitForLog = [&](const std::string& text, int count) {
    for (int i = 0; i < 1800; ++i, std::this_thread::sleep_for(std::chrono::milliseconds(100)))
      if (Count(folder.Read(log), text) >= count) return true;
    return false;
  };
  ASSERT_TRUE(waitForLog("view: frame complete", 1)) << folder.Read(log);
  // The window, looked up once: the first run's is gone.
  const std::string x = "DISPLAY=" + display + " xdotool ";
  std::string window;
  if (FILE* found = popen((x + "search --sync --name brindlex-view").c_str(), "r")) {
    char line[64] = "";
    if (std::fgets(line, sizeof line, found)) window = std::to_string(std::strtoul(line, nullptr, 10));
    pclose(found);
  }
  ASSERT_FALSE(window.empty()) << folder.Read(output);
  ASSERT_EQ(std::system((x + "windowfocus --sync " + window + " mousemove --window " + window +
                         " 40 50 mousedown 1 mousemove --window " + window + " 60 55 mousemove --window " +
                         window + " 80 60 mouseup 1")
                            .c_str()),
            0)
      << folder.Read(output);
  ASSERT_TRUE(waitForLog("view: frame complete", 2)) << folder.Read(log);
  // The program may close its window between the key's press and release,
  // so xdotool's own result says nothing; that the program ends does.
  ASSERT_NE(std::system((x + "key --window " + window + " q 2>/dev/null").c_str()), -1);
  ASSERT_EQ(ExitCode(pclose(view.release())), 0) << folder.Read(output);

  // The picture turned: most of it changed.
  ASSERT_TRUE(b.Load(after));
  ASSERT_EQ(b.image.GetWidth(), 320);
  int changed = 0;
  for (int y = 0; y < 240; ++y)
    for (int x = 0; x < 320; ++x) {
      const uint8_t *p = a.At(x, y), *q = b.At(x, y);
      changed += std::abs(p[0] - q[0]) + std::abs(p[1] - q[1]) + std::abs(p[2] - q[2]) > 60;
    }
  EXPECT_GT(changed, 320 * 240 / 10);

  // The log: one model build at the start, then camera moves only, as no
  // tree is rebuilt (how long each took depends on the machine's load, so
  // it is not compared).
  const std::string lines = folder.Read(log);
  const std::regex update("view: UpdateFrame after a ([a-z ]+): [0-9.e+-]+ ms");
  std::vector<std::string> updates;
  for (auto it = std::sregex_iterator(lines.begin(), lines.end(), update); it != std::sregex_iterator(); ++it)
    updates.push_back((*it)[1]);
  ASSERT_GE(updates.size(), 2u) << lines;
  std::vector<std::string> expected(updates.size(), "camera move");
  expected[0] = "model change";
  EXPECT_EQ(updates, expected) << lines;
}

TEST(ViewProgramWithoutDisplay, SaysSoInOneLine) {
  TestFolder folder;
  const auto output = folder.path / "out.txt";
  EXPECT_EQ(ExitCode(std::system(View("", "", output).c_str())), 2);
  EXPECT_EQ(folder.Read(output),
            "brindlex-view: no display to open a window on (neither DISPLAY nor WAYLAND_DISPLAY is set)\n");
}

}  // namespace
