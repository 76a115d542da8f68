#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <sstream>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "host/brindlexutil.h"

TEST(DebugLog, LinesStayWholeWithEightWritersAtOnce) {
  std::ostringstream target;
  debugOS.attach(&target);
  const int writers = 8, linesEach = 500;
  std::vector<std::thread> threads;
  for (int w = 0; w < writers; ++w)
    threads.emplace_back([w] {
      for (int i = 0; i < linesEach; ++i)
        // Several insertions per line, as the engine's log lines are made.
        debugOS << w << " - Software Raytrace Thread Identifier = " << i << " of " << 2.5 << std::endl;
    });
  for (auto& thread : threads) thread.join();
  debugOS.attach(nullptr);

  std::istringstream lines(target.str());
  std::vector<int> next(writers, 0);
  int count = 0;
  for (std::string line; std::getline(lines, line); ++count) {
    int writer = -1, index = -1, end = 0;
    std::sscanf(line.c_str(), "%d - Software Raytrace Thread Identifier = %d of 2.5%n", &writer, &index,
                &end);
    ASSERT_TRUE(end == int(line.size()) && writer >= 0 && writer < writers) << "torn line: " << line;
    EXPECT_EQ(index, next[writer]++);  // each writer's lines keep their order
  }
  EXPECT_EQ(count, writers * linesEach);
}

TEST(DebugLog, PartialLineWaitsForItsEndAndDetachedLinesAreDropped) {
  std::ostringstream target;
  debugOS.attach(&target);
  debugOS << "UpdateFrame Time = " << 0.25;
  EXPECT_EQ(target.str(), "");
  debugOS << " seconds" << std::endl;
  EXPECT_EQ(target.str(), "UpdateFrame Time = 0.25 seconds\n");
  debugOS.attach(nullptr);
  debugOS << "lost" << std::endl;
  EXPECT_EQ(target.str(), "UpdateFrame Time = 0.25 seconds\n");

  debugOS.attach(&target);
  OutputCatchToLog(true, ".\\BrindlexViewRTRenderEngine", 120, "KDTree::Intersect", true);
  OutputCatchToLog(false, "file", 1, "nothing", true);
  debugOS.attach(nullptr);
  EXPECT_EQ(target.str(),
            "UpdateFrame Time = 0.25 seconds\n"
            "Exception caught in KDTree::Intersect at .\\BrindlexViewRTRenderEngine (120)\n");
}

TEST(DebugLog, OpenAppendsToAFile) {
  const std::string path = ::testing::TempDir() + "brindlex_util_log_" + std::to_string(getpid()) + ".txt";
  std::remove(path.c_str());
  for (const char* line : {"first", "second"}) {
    ASSERT_TRUE(debugOS.open(path.c_str()));
    debugOS << line << std::endl;
    debugOS.close();
  }
  EXPECT_FALSE(debugOS.is_open());
  std::ifstream in(path);
  std::stringstream text;
  text << in.rdbuf();
  EXPECT_EQ(text.str(), "first\nsecond\n");
  EXPECT_FALSE(debugOS.open("/nonexistent-folder/log.txt"));
  std::remove(path.c_str());
}

TEST(FileNames, ExtensionsFoldersAndExistence) {
  EXPECT_EQ(std::tuple(IsBMPFile("a/picture.BMP"), IsTIFFile("scan.TIFF"), IsPNGFile("png")),
            std::tuple(1, 1, 0));
  EXPECT_EQ(std::tuple(IsTIFFile("scan.tiff.jpg"), IsBMPFile(nullptr)), std::tuple(0, 0));
  char folder[32] = "textures", empty[4] = "";
  AppendBackSlash(folder);
  AppendBackSlash(folder);
  AppendBackSlash(empty);
  EXPECT_STREQ(folder, "textures/");
  EXPECT_STREQ(empty, "");

  const std::string path = ::testing::TempDir() + "brindlex_exists_" + std::to_string(getpid()) + ".txt";
  std::ofstream(path) << "x";
  EXPECT_TRUE(FileExists(path.c_str()));
  EXPECT_FALSE(FileExists(::testing::TempDir().c_str()));  // a folder is not a file
  std::remove(path.c_str());
  EXPECT_FALSE(FileExists(path.c_str()));
  EXPECT_FALSE(FileExists(nullptr));
}
