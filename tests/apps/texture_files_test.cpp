// Texture pictures of models: formats the engine does not read become PNG
// copies, and every picture that cannot be used is named with a reason.
#include <gtest/gtest.h>
#include <stdlib.h>

#include "AppTestFiles.h"
#include "TextureFiles.h"

namespace {

std::string Bytes(std::initializer_list<int> values) {
  std::string text;
  for (int v : values) text.push_back(static_cast<char>(v));
  return text;
}

// The cache and the temporary folder inside the test's folder.
struct CacheInFolder {
  explicit CacheInFolder(const std::filesystem::path& cache, const std::filesystem::path& temporary) {
    setenv("XDG_CACHE_HOME", cache.c_str(), 1);
    setenv("TMPDIR", temporary.c_str(), 1);
  }
  ~CacheInFolder() { unsetenv("XDG_CACHE_HOME"), unsetenv("TMPDIR"); }
};

// Blue, green and red of the first `count` pixels of the top row.
std::vector<int> Pixels(const std::filesystem::path& file, int count) {
  Picture picture;
  std::vector<int> bytes;
  for (int x = 0; x < count && picture.Load(file); ++x)
    bytes.insert(bytes.end(), picture.At(x, 0), picture.At(x, 0) + 3);
  return bytes;
}

TEST(TextureFiles, TgaAndPcxBecomePngCopies) {
  TestFolder folder;
  CacheInFolder cache(folder.path / "cache", folder.path);
  // 2 x 1, uncompressed true colour, top row first: red, then
  // blue-green (blue 255, green 128). Pixels are blue, green, red.
  const auto tga = folder.Write("two.tga", Bytes({0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2, 0, 1, 0, 24, 0x20}) +
                                               Bytes({0, 0, 255, 255, 128, 0}));
  // 3 x 1 of 8-bit palette, 4 bytes a line, run-length coded: two of colour
  // 1, one of colour 197 (above 0xC0, so written as a run of one), padding.
  std::string pcx(128, '\0');
  pcx[0] = 0x0A, pcx[1] = 5, pcx[2] = 1, pcx[3] = 8, pcx[8] = 2, pcx[65] = 1, pcx[66] = 4;
  pcx += Bytes({0xC2, 1, 0xC1, 197, 2, 0x0C});
  std::string palette(768, '\0');
  palette[3] = 10, palette[4] = 20, palette[5] = 30;
  palette[197 * 3] = 7, palette[197 * 3 + 1] = 8, palette[197 * 3 + 2] = 9;
  const auto pcxFile = folder.Write("three.pcx", pcx + palette);

  std::vector<std::string> warnings;
  TexturePictures pictures(warnings);
  const auto fromTga = pictures.Usable(tga), fromPcx = pictures.Usable(pcxFile);
  EXPECT_TRUE(warnings.empty()) << warnings.front();
  EXPECT_EQ(fromTga.extension(), ".png");
  EXPECT_EQ(fromTga.parent_path(), folder.path / "cache" / "brindlex-render" / "converted");
  EXPECT_EQ(Pixels(fromTga, 2), (std::vector<int>{0, 0, 255, 255, 128, 0}));
  EXPECT_EQ(Pixels(fromPcx, 3), (std::vector<int>{30, 20, 10, 30, 20, 10, 9, 8, 7}));
}

TEST(TextureFiles, EveryUnusablePictureIsNamedWithAReason) {
  TestFolder folder;
  // The cache folder's place is taken by a file: the copies go to the
  // temporary folder, with a warning.
  const auto blocked = folder.Write("blocked", "");
  CacheInFolder cache(blocked, folder.path);
  // A PNG header of 16384 x 16384 in a 45-byte file.
  const std::string png = Bytes({0x89, 'P', 'N', 'G',  13, 10, 26, 10,   0,   0,   0,   13, 'I', 'H', 'D',
                                 'R',  0,   0,   0x40, 0,  0,  0,  0x40, 0,   8,   6,   0,  0,   0,   0,
                                 0,    0,   0,   0,    0,  0,  0,  'I',  'E', 'N', 'D', 0,  0,   0,   0});
  ASSERT_EQ(png.size(), 45u);
  const auto bomb = folder.Write("bomb.png", png), text = folder.Write("notes.gif", "no picture");
  const auto tga =
      folder.Write("one.tga", Bytes({0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 1, 0, 24, 0x20, 1, 2, 3}));
  const auto missing = folder.path / "missing.jpg";

  std::vector<std::string> warnings;
  TexturePictures pictures(warnings);
  EXPECT_TRUE(pictures.Usable(bomb).empty());
  EXPECT_TRUE(pictures.Usable(text).empty());
  EXPECT_EQ(pictures.Usable(missing), missing);
  EXPECT_EQ(pictures.Usable(missing), missing);  // said once
  // The engine finds a missing name under another picture extension.
  folder.Write("other.jpg", "x");
  EXPECT_EQ(pictures.Usable(folder.path / "other.png"), folder.path / "other.png");
  const auto copy = pictures.Usable(tga);
  const auto fallback = folder.path / ("brindlex-render-" + std::to_string(getuid())) / "converted";
  EXPECT_EQ(copy.parent_path(), fallback);
  EXPECT_EQ(Pixels(copy, 1), (std::vector<int>{1, 2, 3}));
  const std::vector<std::string> expected = {
      "texture " + bomb.string() +
          " cannot be loaded: claims 16384 x 16384 pixels, more than its 45 bytes can hold",
      "texture " + text.string() + " cannot be loaded: not a picture format this program reads",
      "texture " + missing.string() + " cannot be loaded: no such file",
      "cache folder " + (blocked / "brindlex-render" / "converted").string() + " cannot be written; using " +
          fallback.string()};
  EXPECT_EQ(warnings, expected);
}

}  // namespace
