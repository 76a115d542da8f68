// Drawing one light's shadow map: a camera at the light, the
// rotate-to-camera geometry turned towards it, tiles of rays on the
// workers, then the 5 x 5 filter into a copy. The four light types differ
// only in how they frame the map; a point light draws six faces of a cube
// and mends the seams between them.
#include <algorithm>
#include <vector>
#include <new>
#include <numbers>

#include "host/BrindlexViewMath.h"
#include "host/BrindlexViewModel.h"
#include "engine/BrindlexViewRTRenderEngine.h"
#include "accel/KDTree.h"
#include "scene/SWMeshTable.h"
#include "shadows/CubeShadowMapSeams.h"
#include "platform/Gdi.h"
#include "host/RenderOptions.h"
#include "shadows/ShadowMapGeometry.h"
#include "shadows/ShadowMapSampling.h"

namespace {
constexpr uint32_t TileSide = 32;
constexpr double QuarterTurn = 1.5707963267948966;
// A point light's far plane lies this far beyond the farthest corner of
// the scene, so that it is never below this for a scene of size zero.
constexpr float PointLightFarMargin = 100.0f;
constexpr float PointLightNear = 1.0f;
constexpr int PerspectiveProjection = 0;
constexpr int ParallelProjection = 1;

SCENE_VERTEX_XYZ HostFromWorld(const SCENE_VERTEX_XYZ& world) {
  return {world.x, -world.y, world.z};
}

// What every tile of a map has in common.
// The tiles of a map of `faces` faces, rays and filter together.
WPARAM TileCount(int width, int height, int faces) {
  const WPARAM across = (width + TileSide - 1) / TileSide, down = (height + TileSide - 1) / TileSide;
  return across * down * WPARAM(faces) * 2;
}

SWRT_RENDER_THREAD_DATA TileTemplate(ENVIRONMENT_3D_VIEW* view, const MODE_RENDER_OPTIONS* options,
                                     int lightNumber, int width, int height) {
  SWRT_RENDER_THREAD_DATA tile;
  tile.samples = 1;
  tile.viewWidth = static_cast<uint32_t>(width);
  tile.viewHeight = static_cast<uint32_t>(height);
  tile.view = view;
  tile.options = options;
  tile.shadowLightId = static_cast<uint32_t>(lightNumber);
  return tile;
}

// The tiles of a map of width x height, columns of tiles outermost, each
// with every kind of `kinds` in turn.
std::vector<SWRT_RENDER_THREAD_DATA> MapTiles(const SWRT_RENDER_THREAD_DATA& tile, int width, int height,
                                              std::initializer_list<uint16_t> kinds) {
  std::vector<SWRT_RENDER_THREAD_DATA> tiles;
  for (uint32_t x = 0; x < uint32_t(width); x += TileSide)
    for (uint32_t y = 0; y < uint32_t(height); y += TileSide)
      for (uint16_t kind : kinds) {
        SWRT_RENDER_THREAD_DATA& data = tiles.emplace_back(tile);
        data.workKind = kind;
        data.x = data.frameX = x;
        data.y = data.frameY = y;
        data.width = std::min(TileSide, uint32_t(width) - x);
        data.height = std::min(TileSide, uint32_t(height) - y);
      }
  return tiles;
}
}  // namespace

void RT_RENDER_ENGINE::TraceShadowMapView(SCENE_GRAPH_NODE_INTERFACE* root, const SCENE_MATRIX_64& lightView,
                                          const SCENE_MATRIX_64& lightProjection, int projectionType,
                                          SWRT_RENDER_THREAD_DATA tile) {
  GetInverseMatrix(&lightView, &tile.eyeToWorld);
  SCENE_MATRIX narrowView;
  ConvertSceneMatrix64ToSceneMatrix(&lightView, &narrowView);
  // The map's corners on the near plane in eye space, as a picture's are.
  const int viewport[4] = {0, 0, int(tile.viewWidth), int(tile.viewHeight)};
  SCENE_MATRIX_64 identity;
  GetIdentityMatrix(&identity);
  const SCENE_VERTEX_XYZ_64 topLeft{0.0, 0.0, 0.0};
  const SCENE_VERTEX_XYZ_64 bottomRight{double(viewport[2]), double(viewport[3]), 0.0};
  SCENE_VERTEX_XYZ_64 planeEnd;
  UnprojectFromScreen(&topLeft, &identity, &lightProjection, viewport, &tile.planeOrigin);
  UnprojectFromScreen(&bottomRight, &identity, &lightProjection, viewport, &planeEnd);
  tile.stepX = (planeEnd.x - tile.planeOrigin.x) / viewport[2];
  tile.stepY = (planeEnd.y - tile.planeOrigin.y) / viewport[3];

  // Only the tree of rotate-to-camera geometry is rebuilt; the tree of all
  // else is shared with the picture. No tile may run during the rebuild,
  // which the wait at the end of each view ensures.
  kdTrees[1].Clear();
  meshTables[1].Clear();
  BuildGeometryPass(1, tile.view, root, nullptr, nullptr, &narrowView, &projectionType);
  QueueRenderJobs(MapTiles(tile, int(tile.viewWidth), int(tile.viewHeight), {tile.workKind}), workQueue,
                  queueLock);
  WaitForCompletion();
}

void RT_RENDER_ENGINE::RenderSWPointShadowmap(int lightNumber, ENVIRONMENT_3D_VIEW* view,
                                              SCENE_GRAPH* sceneGraph, const MODE_RENDER_OPTIONS* options) {
  if (!kdTrees || !meshTables || !lightTable || !defaultLights || !view || !sceneGraph || !options) return;
  SCENE_GRAPH_NODE_INTERFACE* root = sceneGraph->GetSceneGraphNode(SCENE_GRAPH::RootNodeName);
  VIEW_FILE_STATE* fileState = view->GetViewFileState();
  if (!root || !fileState || !fileState->GetCameraInfo()) return;
  const RTRendererLight* light =
      FindShadowMapLight(lightTable, defaultLights, lightNumber, options->DoCustomLighting());
  if (!light || !(light->definition.flags & LightCastsShadows)) return;
  SWCubeShadowMap* map = FindUsableShadowMap(shadowMapIndexCube, shadowMapsCube, lightNumber);
  if (!map) return;

  SCENE_VERTEX_XYZ rootMin{}, rootMax{};
  root->GetNodeBounds(&rootMin, &rootMax, true);
  SCENE_VERTEX_XYZ corners[8];
  InitializeCubePointArrayFromCubeMinMaxPts(corners, &rootMin, &rootMax);
  float farthest = 0.0f;
  for (const SCENE_VERTEX_XYZ& corner : corners)
    farthest = std::max(farthest, Distance(&light->definition.position, &corner));
  SCENE_MATRIX_64 lightProjection;
  CalculatePerspectiveProjectionMatrixFOVRH(&lightProjection, QuarterTurn, double(map->width) / map->height,
                                            PointLightNear, farthest + PointLightFarMargin);

  SCENE_VERTEX_XYZ_64 position;
  ConvertSceneVertexXYZToSceneVertexXYZ64(&light->definition.position, &position);
  if (cubeMapProgressBar)
    PostMessageA(cubeMapProgressBar, RT_SHADOW_MAP_LIGHT_MESSAGE, TileCount(map->width, map->height, 6),
                 lightNumber);
  SWRT_RENDER_THREAD_DATA tile = TileTemplate(view, options, lightNumber, map->width, map->height);
  tile.cubeShadowMap = map;
  for (int face = 0; face < 6; ++face) {
    if (ShouldAbort()) return;  // the map stays partial and the light dirty
    SCENE_MATRIX_64 lightView;
    CalculateModelViewMatrixForEnvironmentalMap(unsigned(face), position, &lightView, false);
    tile.workKind = uint16_t(RT_WORK_CUBE_SHADOWMAP_FACE + face);
    TraceShadowMapView(root, lightView, lightProjection, PerspectiveProjection, tile);
  }

  SWCubeShadowMap filtered(*map);
  if (!filtered.pixels) return;
  tile.cubeShadowMap = &filtered;
  const uint16_t filter = RT_WORK_CUBE_SHADOWMAP_FILTER;
  QueueRenderJobs(MapTiles(tile, map->width, map->height,
                           {filter, uint16_t(filter + 1), uint16_t(filter + 2), uint16_t(filter + 3),
                            uint16_t(filter + 4), uint16_t(filter + 5)}),
                  workQueue, queueLock);
  WaitForCompletion();
  *map = filtered;
  MendCubeShadowMapSeams(*map, filtered);
  *map = filtered;
}

void RT_RENDER_ENGINE::RenderSWSpotShadowmap(int lightNumber, ENVIRONMENT_3D_VIEW* view,
                                             SCENE_GRAPH* sceneGraph, const MODE_RENDER_OPTIONS* options) {
  RenderSWFlatShadowmap(lightNumber, view, sceneGraph, options, 1);
}

void RT_RENDER_ENGINE::RenderSWDirectShadowmap(int lightNumber, ENVIRONMENT_3D_VIEW* view,
                                               SCENE_GRAPH* sceneGraph, const MODE_RENDER_OPTIONS* options) {
  RenderSWFlatShadowmap(lightNumber, view, sceneGraph, options, 2);
}

void RT_RENDER_ENGINE::RenderSWAreaShadowmap(int lightNumber, ENVIRONMENT_3D_VIEW* view,
                                             SCENE_GRAPH* sceneGraph, const MODE_RENDER_OPTIONS* options) {
  RenderSWFlatShadowmap(lightNumber, view, sceneGraph, options, 3);
}

// Spot and area lights look from the light (an area light from the apex
// behind it) at their target through the cone of their half-angle; a
// direct light looks at the middle of the scene from a diagonal's length
// against its direction, in a parallel view of the whole scene.
void RT_RENDER_ENGINE::RenderSWFlatShadowmap(int lightNumber, ENVIRONMENT_3D_VIEW* view,
                                             SCENE_GRAPH* sceneGraph, const MODE_RENDER_OPTIONS* options,
                                             int lightType) {
  if (!kdTrees || !meshTables || !lightTable || !defaultLights || !view || !sceneGraph || !options) return;
  SCENE_GRAPH_NODE_INTERFACE* root = sceneGraph->GetSceneGraphNode(SCENE_GRAPH::RootNodeName);
  VIEW_FILE_STATE* fileState = view->GetViewFileState();
  if (!root || !fileState || !fileState->GetCameraInfo()) return;
  RTRendererLight* light =
      FindShadowMapLight(lightTable, defaultLights, lightNumber, options->DoCustomLighting());
  if (!light || !(light->definition.flags & LightCastsShadows)) return;
  SWShadowMap* map = FindUsableShadowMap(shadowMapIndexSingle, shadowMapsSingle, lightNumber);
  if (!map) return;

  SCENE_VERTEX_XYZ rootMin{}, rootMax{};
  root->GetNodeBounds(&rootMin, &rootMax, true);
  SCENE_LIGHT_DEFINITION& definition = light->definition;
  const bool direct = lightType == 2;
  SCENE_CAMERA_INFO camera{};
  if (!direct) camera = *fileState->GetCameraInfo();
  SCENE_VERTEX_XYZ eye = definition.position, lookedAt = definition.target;
  if (direct) {
    lookedAt = root->GetNodeCenter(nullptr, true);
    const SCENE_VERTEX_XYZ along{definition.target.x - definition.position.x,
                                 definition.target.y - definition.position.y,
                                 definition.target.z - definition.position.z};
    SCENE_VERTEX_XYZ back;
    Get3DVectorOfLength(&along, Distance(&rootMin, &rootMax), &back);
    eye = {lookedAt.x - back.x, lookedAt.y - back.y, lookedAt.z - back.z};
    // The light keeps its direction from its new place.
    definition.position = eye;
    definition.target = lookedAt;
  } else if (lightType == 3) {
    const SCENE_VERTEX_XYZ_64 back = AreaLightBack(definition);
    const double reach = AreaLightReach(definition);
    eye = {static_cast<float>(definition.position.x + back.x * reach),
           static_cast<float>(definition.position.y + back.y * reach),
           static_cast<float>(definition.position.z + back.z * reach)};
  }
  // Near and far are asked for in the world, where the scene box is.
  float nearDistance = 0.0f, farDistance = 0.0f;
  GetNearAndFarClippingPlaneDistance(&rootMin, &rootMax, &eye, &lookedAt, nearDistance, farDistance);
  camera.eye = HostFromWorld(eye);
  camera.lookAt = HostFromWorld(lookedAt);

  const int viewport[4] = {0, 0, map->width, map->height};
  SCENE_MATRIX_64 lightView, lightProjection;
  if (direct) {
    CalculateProjectionMatrix(&lightProjection, viewport, &camera, ParallelProjection, rootMin, rootMax,
                              false);
  } else {
    // The cone's width at the distance of the target.
    const double size =
        std::tan(2.0 * definition.angle * std::numbers::pi / 180.0 / 2.0) * Distance(&lookedAt, &eye) * 2.0;
    CalculateProjectionMatrix(&lightProjection, viewport, &camera, PerspectiveProjection, size, rootMin,
                              rootMax, false);
  }
  CalculateModelViewMatrix(&lightView, &camera);
  light->shadowNear = nearDistance;
  light->shadowFar = farDistance;
  light->shadowView = lightView;
  light->shadowProjection = lightProjection;

  if (cubeMapProgressBar)
    PostMessageA(cubeMapProgressBar, RT_SHADOW_MAP_LIGHT_MESSAGE, TileCount(map->width, map->height, 1),
                 lightNumber);
  SWRT_RENDER_THREAD_DATA tile = TileTemplate(view, options, lightNumber, map->width, map->height);
  tile.shadowMap = map;
  tile.workKind = direct ? RT_WORK_SHADOWMAP_PARALLEL : RT_WORK_SHADOWMAP_PERSPECTIVE;
  TraceShadowMapView(root, lightView, lightProjection, direct ? ParallelProjection : PerspectiveProjection,
                     tile);
  if (ShouldAbort()) return;

  SWShadowMap filtered(*map);
  if (!filtered.pixels) return;
  tile.shadowMap = &filtered;
  QueueRenderJobs(MapTiles(tile, map->width, map->height, {RT_WORK_SHADOWMAP_FILTER}), workQueue, queueLock);
  WaitForCompletion();
  *map = filtered;
}
