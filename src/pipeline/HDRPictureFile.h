// The running mean of a render to file as a high-dynamic-range picture:
// the linear values before any tone map, as users who composite want them.
#pragma once

#include <cstdint>

#include "host/SceneRecords.h"

// Writes `width` x `height` values of `mean` (top row first) as an OpenEXR
// picture to a temporary file beside `name`, which then takes the name. The
// alpha is the mean's own when the background keeps its alpha, else 1, as
// the 8-bit picture has 255. False when the picture could not be written.
bool SaveHDRPicture(const char* name, const SCENE_VERTEX_XYZW* mean, uint32_t width, uint32_t height,
                    bool keepAlpha);
