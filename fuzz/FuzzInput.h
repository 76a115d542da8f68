// What the fuzz targets share: the libFuzzer entry point and a scratch file
// for readers that take a path, as the program's own readers do.
#pragma once

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace fuzz {

// A file of this process's own in the temporary folder, rewritten with each
// input. `extension` (".obj") lets readers that go by the name see a format.
// The file is removed when the process ends normally.
inline const std::string& ScratchFile(const std::string& extension = "") {
  struct Scratch {
    std::string path;
    ~Scratch() { std::remove(path.c_str()); }
  };
  static const Scratch scratch{
      (std::filesystem::temp_directory_path() / ("brindlex-fuzz-" + std::to_string(getpid()) + extension))
          .string()};
  return scratch.path;
}

inline bool WriteScratch(const std::string& path, const uint8_t* data, size_t size) {
  FILE* file = std::fopen(path.c_str(), "wb");
  if (!file) return false;
  const bool written = size == 0 || std::fwrite(data, 1, size, file) == size;
  return std::fclose(file) == 0 && written;
}

}  // namespace fuzz
