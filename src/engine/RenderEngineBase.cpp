#include "engine/RenderEngineBase.h"

#include <algorithm>

#include "host/BrindlexViewModel.h"
#include "host/brindlexutil.h"

RT_RENDER_ENGINE_BASE::RT_RENDER_ENGINE_BASE() = default;

RT_RENDER_ENGINE_BASE::~RT_RENDER_ENGINE_BASE() {
  RT_RENDER_ENGINE_BASE::ShutDown();
}

unsigned long RT_RENDER_ENGINE_BASE::AddRef() {
  return referenceCount.fetch_add(1) + 1;
}

unsigned long RT_RENDER_ENGINE_BASE::Release() {
  uint32_t count = referenceCount.fetch_sub(1) - 1;
  if (count == 0) delete this;
  return count;
}

void RT_RENDER_ENGINE_BASE::Initialize(const char* a, const char* b, const char* c, const char* d,
                                       const char* e, const char* f) {
  std::string* folders[] = {&textureDirectory, &colorMapFolder, &bumpMapFolder,
                            &maskMapFolder,    &fifthFolder,    &sixthFolder};
  const char* given[] = {a, b, c, d, e, f};
  for (int i = 0; i < 6; ++i)
    if (given[i]) *folders[i] = given[i];
  engineFlags.Set(RebuildScene);
}

void RT_RENDER_ENGINE_BASE::ShutDown() {
  ShutDownRendererWindow();
  ShutDownModel();
}

void RT_RENDER_ENGINE_BASE::SetRenderProgressInterface(RENDER_PROGRESS_INTERFACE* progress) {
  renderProgress = progress;
}

void RT_RENDER_ENGINE_BASE::SetRenderDistributedServerInterface(RENDER_DISTRIBUTED_SERVER_INTERFACE* server) {
  distributedServer = server;
}

int RT_RENDER_ENGINE_BASE::QueryRenderer(int key) const {
  return key == 6 && engineFlags.IsSet(FrameReady) ? 1 : 0;
}

void RT_RENDER_ENGINE_BASE::ShutDownModel() {
  removedLights.clear();
  modifiedLights.clear();
  engineFlags.Set(RebuildScene);
  engineFlags.Clear(FrameReady | AutoHorizon | DefaultLightShadows | LightsSynced);
}

// The four flag operations: nothing tells them apart but their names.
void RT_RENDER_ENGINE_BASE::ModifyAllMaterialTypes() {
  engineFlags.Set(RebuildScene);
}
void RT_RENDER_ENGINE_BASE::ModifyAutoHorizon() {
  engineFlags.Set(RebuildScene);
}
void RT_RENDER_ENGINE_BASE::ModifyBackground() {
  engineFlags.Set(RebuildScene);
}
void RT_RENDER_ENGINE_BASE::MaterialPointersInvalid() {
  engineFlags.Set(RebuildScene);
}

void RT_RENDER_ENGINE_BASE::ModifyMaterialType(const char* material) {
  ModifyMaterialType(0u, material);
}
void RT_RENDER_ENGINE_BASE::ModifyMaterialType(unsigned int, const char*) {
  engineFlags.Set(RebuildScene);
}
void RT_RENDER_ENGINE_BASE::ModifyMaterialVisibility(const char*) {
  engineFlags.Set(RebuildScene);
}

void RT_RENDER_ENGINE_BASE::RemoveLightInstance(int id) {
  removedLights.insert(id);
}

void RT_RENDER_ENGINE_BASE::ModifyLightInstance(SCENE_LIGHT_INSTANCE* instance) {
  if (instance) modifiedLights.insert(instance->number);
}

void RT_RENDER_ENGINE_BASE::SetShouldAbortRenderFunction(ShouldAbortRenderFunction function, void* context) {
  shouldAbortFunction = function;
  shouldAbortContext = context;
}

void RT_RENDER_ENGINE_BASE::SetTextureDirectory(const char* directory) {
  if (directory) textureDirectory = directory;
}

void RT_RENDER_ENGINE_BASE::LockSWFrameBuffer() {
  frameBufferLock.Enter();
}
void RT_RENDER_ENGINE_BASE::UnLockSWFrameBuffer() {
  frameBufferLock.Leave();
}

unsigned int RT_RENDER_ENGINE_BASE::GetProcessorCount() {
  unsigned int count = static_cast<unsigned int>(::GetProcessorCount());
  if (distributedServer) count = std::min(count, distributedServer->GetDistributedThreadCount());
  return count;
}

bool RT_RENDER_ENGINE_BASE::CreateSceneGraphNode(SCENE_GRAPH_NODE_INTERFACE*) {
  engineFlags.Set(RebuildScene);
  return false;
}

bool RT_RENDER_ENGINE_BASE::AttachNode(SCENE_GRAPH_NODE_INTERFACE*, SCENE_GRAPH_NODE_INTERFACE*) {
  engineFlags.Set(RebuildScene);
  return false;
}

void RT_RENDER_ENGINE_BASE::DetachNode(SCENE_GRAPH_NODE_INTERFACE*, bool) {
  engineFlags.Set(RebuildScene);
}

void RT_RENDER_ENGINE_BASE::SetModelTransform(const char*, SCENE_MATRIX*) {
  engineFlags.Set(RebuildScene);
}
