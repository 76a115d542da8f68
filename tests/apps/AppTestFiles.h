// What the program tests share: a fresh folder for the files a test writes,
// removed at the end; the pictures and text the programs leave in it; points.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include <unistd.h>

#include "host/BrindlexTexture.h"
#include "host/BrindlexViewMath.h"
#include "platform/CImage.h"

class TestFolder {
 public:
  TestFolder() {
    const auto* test = ::testing::UnitTest::GetInstance()->current_test_info();
    path = std::filesystem::temp_directory_path() / (std::string("brindlex-apps-") + test->test_suite_name() +
                                                     "-" + test->name() + "-" + std::to_string(::getpid()));
    std::filesystem::remove_all(path);
    std::filesystem::create_directories(path);
  }
  ~TestFolder() { std::filesystem::remove_all(path); }

  std::filesystem::path Write(const std::string& name, const std::string& text) const {
    const auto file = path / name;
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << text;
    return file;
  }

  std::filesystem::path path;
};

inline std::string ReadText(const std::filesystem::path& file) {
  std::ifstream in(file);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

// A picture file, decoded; empty when it cannot be read.
struct Picture {
  ATL::CImage image;
  bool Load(const std::filesystem::path& file) { return LoadCImageTextureFromFile(file.c_str(), image); }
  // Blue, green, red (and alpha) of a pixel, top row first.
  const uint8_t* At(int x, int y) const {
    return static_cast<const uint8_t*>(image.GetBits()) + y * image.GetPitch() + x * image.GetBPP() / 8;
  }
};

inline void ExpectPoint(const SCENE_VERTEX_XYZ& p, float x, float y, float z, float tolerance = 1e-4f) {
  EXPECT_NEAR(p.x, x, tolerance);
  EXPECT_NEAR(p.y, y, tolerance);
  EXPECT_NEAR(p.z, z, tolerance);
}
