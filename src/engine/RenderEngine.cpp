// Creation, initialisation and shutdown of the ray-tracing engine.
#include <algorithm>
#include <new>

#include "host/BrindlexViewModel.h"
#include "engine/BrindlexViewRTRenderEngine.h"
#include "accel/KDTree.h"
#include "scene/LightTable.h"
#include "scene/SWMeshTable.h"
#include "textures/SWTexture.h"
#include "host/brindlexutil.h"
#include "shadows/SWShadowMap.h"

namespace {
constexpr char DefaultMaterialTag = 58;

template <typename T>
void DeleteAndClear(T*& pointer) {
  delete pointer;
  pointer = nullptr;
}

template <typename T>
void DeleteArrayAndClear(T*& pointer) {
  delete[] pointer;
  pointer = nullptr;
}
}  // namespace

extern "C" RENDER_ENGINE_INTERFACE* CreateRenderEngine() {
  return new (std::nothrow) RT_RENDER_ENGINE();
}

RT_RENDER_ENGINE::RT_RENDER_ENGINE() {
  renderProgress = this;
  ResetSceneBounds(sceneMin, sceneMax);
}

RT_RENDER_ENGINE::~RT_RENDER_ENGINE() {
  RT_RENDER_ENGINE::ShutDown();
}

void RT_RENDER_ENGINE::Initialize(const char* a, const char* b, const char* c, const char* d, const char* e,
                                  const char* f) {
  RT_RENDER_ENGINE_BASE::Initialize(a, b, c, d, e, f);
  // A second Initialize without ShutDown only takes the new folders: the
  // tables and workers of the first are still there.
  if (kdTrees || !renderThreads.empty()) return;

  kdTrees = new (std::nothrow) KDTree[2];
  directPhotonMap = new (std::nothrow) SWPhotonMap();
  indirectPhotonMap = new (std::nothrow) SWPhotonMap();

  MATERIAL_3D_NODE* defaultMaterial = new (std::nothrow) MATERIAL_3D_NODE(nullptr, DefaultMaterialTag);
  if (defaultMaterial) {
    defaultMaterial->SetThisNodesID("*");
    defaultMaterial->SetShouldThisNodeUseDefault(false, false);
    delete materialRoots[0];
    materialRoots[0] = defaultMaterial;
  }

  meshTables = new (std::nothrow) SWMeshTable[2];
  lightTable = new (std::nothrow) RTLightTable();

  defaultLights = new (std::nothrow) RTRendererLight[2]();
  headlight = new (std::nothrow) RTRendererLight();
  if (headlight) {
    headlight->number = 0;
    headlight->definition.type = 0;
    headlight->definition.color = 0xFFFFFF;
    headlight->definition.flags = LightDiffuse;
  }
  alternateLight = new (std::nothrow) RTRendererLight();

  doneSemaphore = new (std::nothrow) platform::Semaphore(0, 0x7FFFFFFF);
  wakeSemaphore = new (std::nothrow) platform::Semaphore(0, 0x7FFFFFFF);
  coreTokenSemaphore = new (std::nothrow) platform::Semaphore(0, static_cast<long>(::GetProcessorCount()));
  idleCoreAvailable = true;

  StartWorkerThreads();
}

void RT_RENDER_ENGINE::ShutDown() {
  StopWorkerThreads();
  DeleteAndClear(doneSemaphore);
  DeleteAndClear(wakeSemaphore);
  DeleteAndClear(coreTokenSemaphore);
  ShutDownRendererWindow();
  ShutDownModel();

  DeleteAndClear(indirectPhotonMap);
  DeleteAndClear(directPhotonMap);
  DeleteArrayAndClear(kdTrees);
  DeleteAndClear(alternateLight);
  DeleteAndClear(headlight);
  DeleteArrayAndClear(defaultLights);
  DeleteAndClear(lightTable);
  DeleteArrayAndClear(meshTables);
  lastFrameTag = 0;

  RT_RENDER_ENGINE_BASE::ShutDown();
}

void RT_RENDER_ENGINE::ShutDownModel() {
  directPhotons.clear();
  indirectPhotons.clear();
  if (kdTrees) kdTrees[0].Clear();
  if (lightTable) lightTable->Clear();
  if (meshTables) meshTables[0].Clear();

  for (auto& root : materialRoots) DeleteAndClear(root.second);

  for (SWTexture* texture : textures) delete texture;
  textures.clear();
  for (SWShadowMap* map : shadowMapsSingle) delete map;
  shadowMapsSingle.clear();
  for (SWCubeShadowMap* map : shadowMapsCube) delete map;
  shadowMapsCube.clear();
  shadowMapIndexSingle.clear();
  shadowMapIndexCube.clear();

  swMaterials.clear();
  materialIndexByNode.clear();
  opaqueTextureIndex.clear();
  transparentTextureIndex.clear();
  normalMapTextureIndex.clear();
  backgroundTexture = 0xFFFFFFFF;
  dirtyShadowLights.clear();

  ResetSceneBounds(sceneMin, sceneMax);
  RT_RENDER_ENGINE_BASE::ShutDownModel();
}

int RT_RENDER_ENGINE::QueryRenderer(int key) const {
  switch (key) {
    case 0:
    case 18:
    case 20:
    case 22:
      return 1;
    case 6:
      return engineFlags.IsSet(FrameReady) ? 1 : 0;
    default:
      return 0;
  }
}

unsigned int RT_RENDER_ENGINE::GetProcessorCount() {
  unsigned int count = RT_RENDER_ENGINE_BASE::GetProcessorCount();
  return std::min(count, static_cast<unsigned int>(renderThreads.size()));
}
