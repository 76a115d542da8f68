// Mip pyramids of power-of-two levels made from a picture.
#pragma once

#include "platform/CImage.h"
#include "textures/SWTexture.h"

// Replaces the record's levels by a pyramid of `picture`, whose rows are
// already in texture order (bottom row first). On failure the record holds
// no levels. The name is the caller's.
bool BuildTexturePyramid(SWTexture& texture, const ATL::CImage& picture);
