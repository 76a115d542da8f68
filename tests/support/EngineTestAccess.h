// Reaches the engine's internals that tests check but hosts never see.
#pragma once

#include "engine/BrindlexViewRTRenderEngine.h"
#include "accel/KDTree.h"
#include "scene/LightTable.h"
#include "scene/SWMeshTable.h"
#include "shadows/SWShadowMap.h"

class EngineTestAccess {
 public:
  explicit EngineTestAccess(RT_RENDER_ENGINE* engine) : engine(engine) {}

  EngineFlags& Flags() { return engine->engineFlags; }
  std::map<uint32_t, MATERIAL_3D_NODE*>& MaterialRoots() { return engine->materialRoots; }
  size_t WorkerCount() const { return engine->renderThreads.size(); }
  long CoreTokens() const { return engine->coreTokenSemaphore->Count(); }
  long WakeCount() const { return engine->wakeSemaphore->Count(); }
  KDTree& Tree(int i) { return engine->kdTrees[i]; }
  SWMeshTable& MeshTable(int i) { return engine->meshTables[i]; }
  RTLightTable& Lights() { return *engine->lightTable; }
  int64_t LastFrameTag() const { return engine->lastFrameTag; }
  std::vector<SWTexture*>& Textures() { return engine->textures; }
  uint32_t BackgroundTexture() const { return engine->backgroundTexture; }
  std::vector<SWMaterialEntry>& SWMaterials() { return engine->swMaterials; }
  std::vector<SWShadowMap*>& ShadowMapsSingle() { return engine->shadowMapsSingle; }
  std::map<int32_t, int32_t>& ShadowMapIndexSingle() { return engine->shadowMapIndexSingle; }
  std::set<int32_t>& DirtyShadowLights() { return engine->dirtyShadowLights; }
  const std::vector<SWPhoton>& Photons(bool direct) const {
    return direct ? engine->directPhotons : engine->indirectPhotons;
  }
  std::vector<SWPhoton>& PhotonList(bool direct) {
    return direct ? engine->directPhotons : engine->indirectPhotons;
  }
  const SWPhotonMap& PhotonMap(bool direct) const {
    return direct ? *engine->directPhotonMap : *engine->indirectPhotonMap;
  }
  std::vector<SWCubeShadowMap*>& ShadowMapsCube() { return engine->shadowMapsCube; }
  std::map<int32_t, int32_t>& ShadowMapIndexCube() { return engine->shadowMapIndexCube; }

  // Pushes a batch under the queue lock, as a producer does.
  void Push(const std::vector<WorkItem>& items) {
    platform::CriticalSectionGuard guard(engine->queueLock);
    for (const WorkItem& item : items) engine->workQueue.push_back(item);
  }
  size_t QueueLength() {
    platform::CriticalSectionGuard guard(engine->queueLock);
    return engine->workQueue.size();
  }
  void WaitForCompletion() { engine->WaitForCompletion(); }

 private:
  RT_RENDER_ENGINE* engine;
};
