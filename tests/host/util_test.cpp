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
