// From the view's camera to the blocks of a frame: the camera as the
// workers need it, and the blocks of a picture, middle first.
#include "pipeline/FrameSetUp.h"

#include <cmath>

#include "pipeline/BlockOrder.h"
#include "host/BrindlexViewMath.h"
#include "host/BrindlexViewModel.h"

namespace {
constexpr uint32_t BlockSize = 32;
constexpr double QuarterTurn = 1.5707963267948966;

// Where cube face `face` looks; only the clipping distances use it.
SCENE_VERTEX_XYZ CubeFaceDirection(int face) {
  switch (face) {
    case 1:
      return {-1.0f, 0.0f, 0.0f};
    case 2:
      return {0.0f, 0.0f, 1.0f};
    case 3:
      return {0.0f, 0.0f, -1.0f};
    case 4:
      return {0.0f, 1.0f, 0.0f};
    case 5:
      return {0.0f, -1.0f, 0.0f};
    default:
      return {1.0f, 0.0f, 0.0f};
  }
}

int64_t RectWidth(const RECT& rect) {
  return int64_t{rect.right} - rect.left;
}
int64_t RectHeight(const RECT& rect) {
  return int64_t{rect.bottom} - rect.top;
}

// One side of a block: 32, cut at the tile's far edge and then at the
// frame buffer's.
int64_t BlockSide(int64_t viewStart, int64_t tileEnd, int64_t frameStart, int64_t frameSize) {
  int64_t side = BlockSize;
  if (viewStart + side > tileEnd) side = tileEnd - viewStart;
  if (frameStart + side > frameSize) side = frameSize - frameStart;
  return side;
}
}  // namespace

bool SetUpFrameCamera(ENVIRONMENT_3D_VIEW* view, SCENE_GRAPH* scene, const RECT& viewRect,
                      const RECT& tileRect, const MODE_RENDER_OPTIONS* options, SCENE_VERTEX_XYZ* cubeEye,
                      int cubeFace, uint32_t frameWidth, uint32_t frameHeight, bool autoHorizon,
                      SWRT_RENDER_THREAD_DATA& frame) {
  if (!view || !options) return false;
  VIEW_FILE_STATE* fileState = view->GetViewFileState();
  if (!fileState || !fileState->GetCameraInfo()) return false;
  SCENE_GRAPH_NODE_INTERFACE* root = scene ? scene->GetSceneGraphNode(SCENE_GRAPH::RootNodeName) : nullptr;
  if (!root) return false;
  if (RectWidth(tileRect) > frameWidth || RectHeight(tileRect) > frameHeight) return false;
  // An empty view has no pixels to step across.
  if (RectWidth(viewRect) <= 0 || RectHeight(viewRect) <= 0) return false;

  frame = SWRT_RENDER_THREAD_DATA();
  frame.samples = 1;
  if (options->DoAntiAliasing() && !options->DoPathTracing())
    frame.samples = static_cast<uint32_t>(std::pow(2.0, options->GetAntialiasingLevel()));
  const int viewport[4] = {viewRect.left, viewRect.top, static_cast<int>(RectWidth(viewRect)),
                           static_cast<int>(RectHeight(viewRect))};
  SCENE_VERTEX_XYZ min{}, max{};
  root->GetNodeBounds(&min, &max, true);

  SCENE_CAMERA_INFO camera = *fileState->GetCameraInfo();
  SCENE_MATRIX_64 modelView;
  if (cubeEye) {
    const SCENE_VERTEX_XYZ direction = CubeFaceDirection(cubeFace);
    camera.eye = *cubeEye;
    camera.lookAt = {cubeEye->x + direction.x, cubeEye->y + direction.y, cubeEye->z + direction.z};
    SCENE_VERTEX_XYZ_64 eye;
    ConvertSceneVertexXYZToSceneVertexXYZ64(cubeEye, &eye);
    CalculateModelViewMatrixForEnvironmentalMap(static_cast<unsigned int>(cubeFace), eye, &modelView, true);
  } else {
    CalculateModelViewMatrix(&modelView, &camera);
  }
  SCENE_VERTEX_XYZ eye = camera.eye, lookAt = camera.lookAt;
  if (!cubeEye) {
    // The camera record has y of the opposite sign to the world.
    eye.y = -eye.y;
    lookAt.y = -lookAt.y;
  }
  float nearDistance = 0.0f, farDistance = 0.0f;
  GetNearAndFarClippingPlaneDistance(&min, &max, &eye, &lookAt, nearDistance, farDistance);
  if (autoHorizon) nearDistance = 1.0f;

  SCENE_MATRIX_64 projection;
  if (cubeEye)
    CalculatePerspectiveProjectionMatrixFOVRH(
        &projection, QuarterTurn, double(viewport[2]) / double(viewport[3]), nearDistance, farDistance);
  else
    CalculateProjectionMatrix(&projection, viewport, &camera, view->GetProjectionType(), min, max,
                              autoHorizon);
  GetInverseMatrix(&modelView, &frame.eyeToWorld);

  // The picture's corners on the near plane in eye space; a pixel's
  // position is planeOrigin plus its column and row times the steps.
  SCENE_MATRIX_64 identity;
  GetIdentityMatrix(&identity);
  const SCENE_VERTEX_XYZ_64 topLeft = {double(viewport[0]), double(viewport[1]), 0.0};
  const SCENE_VERTEX_XYZ_64 bottomRight = {double(viewport[0] + viewport[2]),
                                           double(viewport[1] + viewport[3]), 0.0};
  SCENE_VERTEX_XYZ_64 planeEnd;
  UnprojectFromScreen(&topLeft, &identity, &projection, viewport, &frame.planeOrigin);
  UnprojectFromScreen(&bottomRight, &identity, &projection, viewport, &planeEnd);
  frame.stepX = (planeEnd.x - frame.planeOrigin.x) / viewport[2];
  frame.stepY = (planeEnd.y - frame.planeOrigin.y) / viewport[3];

  frame.viewWidth = static_cast<uint32_t>(viewport[2]);
  frame.viewHeight = static_cast<uint32_t>(viewport[3]);
  frame.view = view;
  frame.options = options;
  frame.nearDistance = nearDistance;
  frame.farDistance = farDistance;
  return true;
}

std::vector<SWRT_RENDER_THREAD_DATA> FrameBlocks(const SWRT_RENDER_THREAD_DATA& frame, const RECT& tileRect,
                                                 uint32_t frameWidth, uint32_t frameHeight) {
  std::vector<SWRT_RENDER_THREAD_DATA> blocks;
  const int64_t tileWidth = RectWidth(tileRect), tileHeight = RectHeight(tileRect);
  if (tileWidth <= 0 || tileHeight <= 0) return blocks;
  const uint32_t blocksX = static_cast<uint32_t>((tileWidth + BlockSize - 1) / BlockSize);
  const uint32_t blocksY = static_cast<uint32_t>((tileHeight + BlockSize - 1) / BlockSize);
  for (const BlockCoordinate& block : BlocksFromTheMiddle(blocksX, blocksY)) {
    const int64_t frameX = int64_t{BlockSize} * block.column, frameY = int64_t{BlockSize} * block.row;
    const int64_t x = frameX + tileRect.left, y = frameY + tileRect.top;
    const int64_t width = BlockSide(x, tileRect.right, frameX, frameWidth);
    const int64_t height = BlockSide(y, tileRect.bottom, frameY, frameHeight);
    if (width <= 0 || height <= 0) continue;
    SWRT_RENDER_THREAD_DATA& data = blocks.emplace_back(frame);
    data.workKind = RT_WORK_RAYTRACE_BLOCK;
    data.x = static_cast<uint32_t>(x);
    data.y = static_cast<uint32_t>(y);
    data.frameX = static_cast<uint32_t>(frameX);
    data.frameY = static_cast<uint32_t>(frameY);
    data.width = static_cast<uint32_t>(width);
    data.height = static_cast<uint32_t>(height);
  }
  return blocks;
}
