// One rectangle of work on the queue: a picture block, a shadow-map tile or
// a share of a distributed frame, told apart by its work kind.
#pragma once

#include <cstdint>

#include "host/SceneRecords.h"
#include "platform/WindowsTypes.h"

class ENVIRONMENT_3D_VIEW;
class MODE_RENDER_OPTIONS;

enum RT_WORK_KIND : uint16_t {
  RT_WORK_RAYTRACE_BLOCK = 0,
  RT_WORK_SHADOWMAP_PERSPECTIVE = 1,
  RT_WORK_SHADOWMAP_FILTER = 2,
  RT_WORK_SHADOWMAP_PARALLEL = 3,
  RT_WORK_CUBE_SHADOWMAP_FACE = 4,     // 4 to 9: face workKind - 4
  RT_WORK_CUBE_SHADOWMAP_FILTER = 10,  // 10 to 15: face workKind - 10
  RT_WORK_DISTRIBUTED = 16,
};

struct SWShadowMap;
struct SWCubeShadowMap;

#pragma pack(push, 1)
struct SWRT_RENDER_THREAD_DATA {
  uint16_t workKind = 0;
  uint32_t x = 0, y = 0;            // first pixel in view coordinates
  uint32_t frameX = 0, frameY = 0;  // first pixel in the frame buffer
  uint32_t width = 0, height = 0;
  uint32_t viewWidth = 0, viewHeight = 0;
  uint32_t samples = 0;
  uint64_t passNumber = 0;
  SCENE_VERTEX_XYZ_64 planeOrigin{};
  double stepX = 0.0, stepY = 0.0;
  SCENE_MATRIX_64 eyeToWorld{};
  ENVIRONMENT_3D_VIEW* view = nullptr;
  const MODE_RENDER_OPTIONS* options = nullptr;
  float nearDistance = 0.0f, farDistance = 0.0f;
  uint32_t shadowLightId = 0;
  SWShadowMap* shadowMap = nullptr;
  SWCubeShadowMap* cubeShadowMap = nullptr;
  RECT tileRect{};
};
#pragma pack(pop)
