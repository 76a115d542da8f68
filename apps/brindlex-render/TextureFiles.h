// Turning the pictures a model refers to into files the engine reads: the
// engine decodes PNG, JPEG, BMP and TIFF; models also use TGA, GIF and PCX,
// which are decoded here and kept as PNG in the cache folder.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

// The cache folder's subfolder `name`, made if need be. Where the cache
// cannot be written, a folder of this user's in the temporary folder, and a
// warning saying so.
std::filesystem::path WritableCacheFolder(const std::string& name, std::vector<std::string>& warnings);

// Decodes a PCX picture (8-bit palette, or 24-bit in three planes; run-length
// coded) into 8-bit red, green, blue, alpha. False for anything else.
bool DecodePcx(const std::vector<uint8_t>& file, int& width, int& height, std::vector<uint8_t>& rgba);

class TexturePictures {
 public:
  explicit TexturePictures(std::vector<std::string>& warnings) : warnings(warnings) {}

  // The file the engine should read for the picture `file`: the file itself,
  // a PNG made from it, or empty; a warning names each file that cannot be
  // used, and why. A missing file keeps its name. Each file is looked at once.
  std::filesystem::path Usable(const std::filesystem::path& file);

 private:
  std::filesystem::path Check(const std::filesystem::path& file);
  std::filesystem::path Convert(const std::filesystem::path& file, const std::vector<uint8_t>& bytes,
                                std::string& reason);

  std::vector<std::string>& warnings;
  std::map<std::filesystem::path, std::filesystem::path> seen;
};
