// Blends a traced block into the frame buffer and shows it.
#pragma once

#include <cstdint>

#include "pipeline/RenderThreadData.h"
#include "host/SceneRecords.h"
#include "platform/WindowsTypes.h"

namespace Gdiplus {
class Bitmap;
}
class RENDER_PROGRESS_INTERFACE;

// Blends the block's `samples` (down each column, then the next column)
// into the running mean `frameHDRBuffer` of a frame buffer `frameWidth`
// wide, writes the bytes into `frameBitmap`, then tells `renderProgress`
// and steps the cube-map progress bar. `keepBackgroundAlpha`: coverage
// goes into alpha, as a picture file with background alpha wants. True
// when the progress interface was content; without a frame buffer the
// block is done all the same. The caller holds the frame-buffer lock.
bool FinishBlock(const SWRT_RENDER_THREAD_DATA& data, const SCENE_VERTEX_XYZW* samples,
                 Gdiplus::Bitmap* frameBitmap, SCENE_VERTEX_XYZW* frameHDRBuffer, uint32_t frameWidth,
                 bool keepBackgroundAlpha, RENDER_PROGRESS_INTERFACE* renderProgress,
                 HWND cubeMapProgressBar);
