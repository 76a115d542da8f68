// High-dynamic-range pictures: linear colour written as OpenEXR, half floats
// in the channels R, G, B and A, ZIP-compressed scan lines.
#include <strings.h>

#include <ImfRgbaFile.h>

#include <cstdio>
#include <cstring>
#include <exception>
#include <new>
#include <vector>

#include "host/BrindlexTexture.h"

bool IsEXRFile(const char* name) {
  if (!name) return false;
  const size_t length = std::strlen(name);
  return length >= 4 && strcasecmp(name + length - 4, ".exr") == 0;
}

bool SaveHDRPictureFile(const char* path, const float* rgba, int width, int height) {
  if (!path || !rgba || width <= 0 || height <= 0) return false;
  try {
    // Half floats hold the values as they are: above 1, and negative ones
    // too; what lies beyond the half range becomes infinite.
    std::vector<Imf::Rgba> pixels(static_cast<size_t>(width) * static_cast<size_t>(height));
    for (size_t i = 0; i < pixels.size(); ++i)
      pixels[i] = Imf::Rgba(rgba[4 * i], rgba[4 * i + 1], rgba[4 * i + 2], rgba[4 * i + 3]);
    {
      Imf::RgbaOutputFile file(path, width, height, Imf::WRITE_RGBA);
      file.setFrameBuffer(pixels.data(), 1, static_cast<size_t>(width));
      file.writePixels(height);
    }
    return true;
  } catch (const std::exception&) {
    // OpenEXR reports every failure, full disks included, by exception; a
    // part-written file is of no use to anyone.
    std::remove(path);
    return false;
  }
}
