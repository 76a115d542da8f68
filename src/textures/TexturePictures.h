// Picture steps of texture loading: pictures here are images of 8, 24 or 32
// bits per pixel in the layout of ATL::CImage.
#pragma once

#include "platform/CImage.h"

// The largest side of a texture level that the engine asks for.
constexpr int TextureSideLimit = 8192;

inline bool IsTextureDepth(int bitsPerPixel) {
  return bitsPerPixel == 8 || bitsPerPixel == 24 || bitsPerPixel == 32;
}

// `target` becomes `source` with its rows in the opposite order, so that
// row 0 holds the picture's bottom row. False for a missing bitmap or
// another depth.
bool FlipPicture(const ATL::CImage& source, ATL::CImage& target);

// Makes `target` at width x height and the depth of `source`, and stretches
// all of `source` into it with StretchBlt (nearest neighbour, no filter).
// `target` must hold no bitmap.
bool StretchPicture(const ATL::CImage& source, ATL::CImage& target, int width, int height);

// `target` becomes a grey copy of `source`, at the same size and depth:
// colour bytes become their integer mean, alpha stays.
bool MakeGreyPicture(const ATL::CImage& source, ATL::CImage& target);
