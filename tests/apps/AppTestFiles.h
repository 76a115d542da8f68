// What the program tests share: the pictures the programs leave in a test's
// folder, and points.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "host/BrindlexTexture.h"
#include "host/BrindlexViewMath.h"
#include "platform/CImage.h"

#include "TestFolder.h"

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
