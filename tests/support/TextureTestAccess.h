// Reaches the engine's texture table and its private loaders for tests.
#pragma once

#include "engine/BrindlexViewRTRenderEngine.h"
#include "textures/SWTexture.h"

class TextureTestAccess {
 public:
  explicit TextureTestAccess(RT_RENDER_ENGINE* engine) : engine(engine) {}

  std::vector<SWTexture*>& Textures() { return engine->textures; }
  SWTexture* Row(unsigned int slot) {
    return slot < engine->textures.size() ? engine->textures[slot] : nullptr;
  }
  bool LoadSWTexture(unsigned int slot, const char* path, bool transparent, const char* maskPath) {
    return engine->LoadSWTexture(slot, path, transparent, maskPath);
  }
  bool LoadSWNormalHeightMapTexture(unsigned int slot, const char* colorPath, const char* heightPath) {
    return engine->LoadSWNormalHeightMapTexture(slot, colorPath, heightPath);
  }

 private:
  RT_RENDER_ENGINE* engine;
};

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <string>

#include "host/BrindlexTexture.h"

// A folder of its own for each test, which is also the temporary folder
// (and so holds the texture cache) for the length of the test.
class TextureFolder {
 public:
  TextureFolder() {
    std::string pattern = testing::TempDir() + "textures-XXXXXX";
    if (mkdtemp(pattern.data())) path = pattern + "/";
    setenv("TMPDIR", path.c_str(), 1);
  }
  ~TextureFolder() {
    unsetenv("TMPDIR");
    std::filesystem::remove_all(path);
  }
  std::string File(const std::string& name) const { return path + name; }

  // Writes a PNG of width x height whose byte `c` of pixel (x, y), y
  // counted from the top, is pixel(x, y, c).
  std::string Picture(const std::string& name, int width, int height, int bitsPerPixel,
                      const std::function<uint8_t(int x, int y, int c)>& pixel) const {
    ATL::CImage image;
    EXPECT_NE(image.Create(width, height, bitsPerPixel), 0);
    const platform::PixelSurface s = image.Surface();
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < width; ++x)
        for (int c = 0; c < bitsPerPixel / 8; ++c) s.Row(y)[x * bitsPerPixel / 8 + c] = pixel(x, y, c);
    EXPECT_TRUE(SavePictureFile(File(name).c_str(), s, PictureFileFormat::Png));
    return File(name);
  }

 private:
  std::string path;
};
