// A fresh folder for the files a test writes, named after the test and
// removed at the end.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

class TestFolder {
 public:
  TestFolder() {
    const auto* test = ::testing::UnitTest::GetInstance()->current_test_info();
    path = std::filesystem::temp_directory_path() / (std::string("brindlex-") + test->test_suite_name() +
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
  std::string Read(const std::string& name) const {
    std::ifstream in(path / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }

  std::filesystem::path path;
};
