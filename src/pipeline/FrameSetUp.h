// The camera of a frame and its blocks, worked out from the view and the
// frame buffer's size alone, so any caller can check them without an engine.
#pragma once

#include <cstdint>
#include <vector>

#include "pipeline/RenderThreadData.h"
#include "host/SceneRecords.h"
#include "platform/WindowsTypes.h"

class ENVIRONMENT_3D_VIEW;
class MODE_RENDER_OPTIONS;
class SCENE_GRAPH;

// The camera of a frame into `frame`, the record every block copies: the
// near plane's origin and steps, eye-to-world matrix, samples and clipping
// distances. `cubeEye` null means the view's own camera; otherwise the eye
// of cube face `cubeFace` in world coordinates. `autoHorizon` puts the near
// plane at 1. False when the view has no camera, the scene no root, the
// tile does not fit a frame buffer of frameWidth x frameHeight or the view
// is empty.
bool SetUpFrameCamera(ENVIRONMENT_3D_VIEW* view, SCENE_GRAPH* scene, const RECT& viewRect,
                      const RECT& tileRect, const MODE_RENDER_OPTIONS* options, SCENE_VERTEX_XYZ* cubeEye,
                      int cubeFace, uint32_t frameWidth, uint32_t frameHeight, bool autoHorizon,
                      SWRT_RENDER_THREAD_DATA& frame);

// The blocks of `tileRect` in the order they are traced, middle first: 32
// pixels a side, cut at the tile's far edges and at the frame buffer's.
// Each is a copy of `frame` with its place filled in.
std::vector<SWRT_RENDER_THREAD_DATA> FrameBlocks(const SWRT_RENDER_THREAD_DATA& frame, const RECT& tileRect,
                                                 uint32_t frameWidth, uint32_t frameHeight);
