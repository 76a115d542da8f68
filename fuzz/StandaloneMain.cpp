// Runs a fuzz target over files, for builds without libFuzzer: the test
// suite replays each target's regression inputs and seeds this way. Each
// argument is a file or a folder of files.
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <vector>

#include "FuzzInput.h"

namespace {

void RunFile(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
}

}  // namespace

int main(int argc, char** argv) {
  int files = 0;
  for (int i = 1; i < argc; ++i) {
    const std::filesystem::path argument(argv[i]);
    if (std::filesystem::is_directory(argument)) {
      for (const auto& entry : std::filesystem::recursive_directory_iterator(argument))
        if (entry.is_regular_file()) RunFile(entry.path()), ++files;
    } else {
      RunFile(argument), ++files;
    }
  }
  std::cout << files << " inputs ran\n";
  return files > 0 ? 0 : 1;
}
