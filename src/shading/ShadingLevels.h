// How shading reads the host's levels and colours: percentages become
// factors and packed colours become channels, each divided in doubles and
// held as 32-bit floats, so that their rounding is the same everywhere.
#pragma once

#include "host/SceneRecords.h"

inline float PercentLevel(double percent) {
  return static_cast<float>(percent / 100.0);
}

inline float ColorChannel(unsigned long rgb, int shift) {
  return static_cast<float>(((rgb >> shift) & 0xFF) / 255.0);
}

// Red in the low byte, then green, then blue; the top byte is not read.
inline SCENE_VERTEX_XYZ ColorFromRGB(unsigned long rgb) {
  return {ColorChannel(rgb, 0), ColorChannel(rgb, 8), ColorChannel(rgb, 16)};
}
