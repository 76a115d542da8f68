// OpenEXR pictures read back with OpenEXR itself, for the tests of what the
// engine and the program write.
#pragma once

#include <ImfRgbaFile.h>

#include <exception>
#include <string>
#include <vector>

struct HDRPicture {
  int width = 0, height = 0;
  std::vector<Imf::Rgba> pixels;  // rows top first
};

// Empty when the file can't be read.
inline HDRPicture ReadHDRPicture(const std::string& path) {
  HDRPicture picture;
  try {
    Imf::RgbaInputFile file(path.c_str());
    const Imath::Box2i window = file.dataWindow();
    picture.width = window.max.x - window.min.x + 1;
    picture.height = window.max.y - window.min.y + 1;
    picture.pixels.resize(size_t(picture.width) * picture.height);
    file.setFrameBuffer(picture.pixels.data() - window.min.x - size_t(window.min.y) * picture.width, 1,
                        size_t(picture.width));
    file.readPixels(window.min.y, window.max.y);
  } catch (const std::exception&) {
    picture = {};
  }
  return picture;
}
