// The software ray-tracing render engine: the one class behind the factory.
// Its operations live in the folders of the subsystems that own them.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "CriticalSection.h"
#include "RenderEngineBase.h"
#include "Semaphore.h"
#include "Thread.h"
#include "KDTree.h"
#include "LightTable.h"
#include "RayIntersection.h"
#include "RenderThreadData.h"
#include "SWMaterialEntry.h"
#include "SWMeshTable.h"
#include "SWPhotonMap.h"
#include "SWShadowMap.h"

class MATERIAL_3D_NODE;
struct SWTexture;
struct SWRT_SHOOT_PHOTONS_THREAD_DATA;

// Creates one engine with reference count 1; null when memory is short.
extern "C" RENDER_ENGINE_INTERFACE* CreateRenderEngine();

enum RT_JOB_CLASS : uint16_t {
  RT_JOB_RENDER = 0,         // SWRT_RENDER_THREAD_DATA
  RT_JOB_KDTREE_BUILD = 1,   // KDBuildJob
  RT_JOB_SHOOT_PHOTONS = 2,  // SWRT_SHOOT_PHOTONS_THREAD_DATA
};

#pragma pack(push, 1)
// An entry of the work queue. The queue owns the payload until the worker
// that pops it deletes it.
struct WorkItem {
  uint16_t jobClass = 0;
  void* payload = nullptr;
};
#pragma pack(pop)
static_assert(sizeof(WorkItem) == 10);

struct RenderThreadRecord {
  std::unique_ptr<platform::Thread> thread;
  uint32_t threadId = 0;
};

class RT_RENDER_ENGINE;

// Traces pixel `index` of a block into `color`; false on an abort. `abort`
// is the block's flag, shared by every thread that traces the block.
using PixelTracer = bool (*)(RT_RENDER_ENGINE* engine, SWRT_RENDER_THREAD_DATA* data, unsigned int index,
                             SCENE_VERTEX_XYZW& color, std::atomic<bool>& abort);

// What a helper thread that shares a block needs.
struct RaytraceBlockThreadData {
  uint32_t threadId = 0;
  RT_RENDER_ENGINE* engine = nullptr;
  SWRT_RENDER_THREAD_DATA block;
  std::atomic<uint32_t>* pixelCounter = nullptr;
  SCENE_VERTEX_XYZW* samples = nullptr;
  std::atomic<bool>* abort = nullptr;
  PixelTracer tracer = nullptr;
};

class RT_RENDER_ENGINE : public RT_RENDER_ENGINE_BASE, public RENDER_PROGRESS_INTERFACE {
 public:
  RT_RENDER_ENGINE();
  ~RT_RENDER_ENGINE() override;

  // Lifecycle and queries.
  void Initialize(const char* textureDirectory, const char* colorMapFolder, const char* bumpMapFolder,
                  const char* maskMapFolder, const char* fifthFolder, const char* sixthFolder) override;
  void ShutDown() override;
  void ShutDownModel() override;
  int QueryRenderer(int key) const override;
  unsigned int GetProcessorCount() override;

  // Scene update and frames.
  void UpdateFrame(ENVIRONMENT_3D_PROJECT* project, ENVIRONMENT_3D_VIEW* view, SCENE_GRAPH* scene,
                   SCENE_LIGHTS* lights, const SCENE_GRAPH_NODE_INTERFACE* horizonNode,
                   const char* horizonMaterialID, unsigned int flags, int64_t frameTag) override;
  unsigned int RenderFrame(ENVIRONMENT_3D_PROJECT* project, ENVIRONMENT_3D_VIEW* view, SCENE_GRAPH* scene,
                           const RECT& rect, bool forceScreen) override;
  void SetAlternateLightInstance(SCENE_LIGHT_INSTANCE* instance) override;

  // RENDER_PROGRESS_INTERFACE
  void DisplayBeginProgress(unsigned long color, unsigned int x, unsigned int y, unsigned int frameX,
                            unsigned int frameY, unsigned int width, unsigned int height) override;
  bool DisplayEndProgress(Gdiplus::Bitmap* bitmap, unsigned int x, unsigned int y, unsigned int frameX,
                          unsigned int frameY, unsigned int width, unsigned int height) override;

  // Worker threads and the work queue.
  static unsigned long InitializeSoftwareRaytraceThread(void* engine);
  unsigned long SoftwareRaytraceThread();
  static unsigned long RaytraceBlockThread(void* data);
  void WaitForCompletion();
  void ClearWorkToDo();

 // ---- Scene ingestion: materials, lights, meshes (src/scene) ----

  // ---- end of scene ingestion ----

  // ---- Ray queries and photon store (src/accel, src/photons) ----
  // The nearest hit of both trees; true if any triangle was hit.
  bool IntersectSWGeometry(const SCENE_VERTEX_XYZ_64& origin, const SCENE_VERTEX_XYZ_64& direction,
                           const SCENE_VERTEX_XYZ_64& inverseDirection, SWRayIntersectionResult& result) const;
  // ---- end of ray queries ----

  // ---- Textures (src/textures) ----

  // ---- end of textures ----

  // ---- Frame pipeline (src/pipeline) ----

  // ---- end of frame pipeline ----

 private:
  friend class EngineTestAccess;
  friend class SceneTestAccess;
  friend class AccelTestAccess;
  friend class TextureTestAccess;
  friend class PipelineTestAccess;

  void StartWorkerThreads();
  void StopWorkerThreads();
  void DestroySemaphores();
  void RunWorkItem(const WorkItem& item, bool& abort);
  void RunRenderJob(SWRT_RENDER_THREAD_DATA& data, bool& abort);
  bool RenderJobCanRun(const SWRT_RENDER_THREAD_DATA& data) const;
  void RaiseDoneSemaphoreForGood();
  // Traces every pixel of a block into `samples`, lending the processors of
  // idle workers to helper threads in the tail of a batch. False on abort.
  bool TraceBlockPixels(SWRT_RENDER_THREAD_DATA* data, SCENE_VERTEX_XYZW* samples, PixelTracer tracer);

 protected:
  KDTree* kdTrees = nullptr;  // two: ordinary and rotate-to-camera geometry
  SWPhotonMap* directPhotonMap = nullptr;
  SWPhotonMap* indirectPhotonMap = nullptr;
  std::map<uint32_t, MATERIAL_3D_NODE*> materialRoots;
  SWMeshTable* meshTables = nullptr;  // two, as kdTrees
  SCENE_VERTEX_XYZ_64 sceneMin;
  SCENE_VERTEX_XYZ_64 sceneMax;
  RTLightTable* lightTable = nullptr;
  RTRendererLight* defaultLights = nullptr;  // two
  RTRendererLight* headlight = nullptr;
  RTRendererLight* alternateLight = nullptr;
  uint32_t maximumRayDepth = 8;
  uint32_t maximumReflectionDepth = 4;
  std::vector<SWTexture*> textures;
  std::map<std::string, uint32_t> opaqueTextureIndex;
  std::map<std::string, uint32_t> transparentTextureIndex;
  std::map<std::string, uint32_t> normalMapTextureIndex;
  uint32_t backgroundTexture = 0xFFFFFFFF;
  std::vector<SWMaterialEntry> swMaterials;
  std::map<const MATERIAL_3D_NODE*, uint32_t> materialIndexByNode;
  std::deque<WorkItem> workQueue;
  platform::CriticalSection queueLock;
  std::vector<RenderThreadRecord> renderThreads;
  platform::Semaphore* wakeSemaphore = nullptr;
  platform::Semaphore* doneSemaphore = nullptr;
  platform::Semaphore* coreTokenSemaphore = nullptr;
  // A hint that a token may be there; stale values only cost a chance.
  std::atomic<bool> idleCoreAvailable{true};
  std::vector<SWShadowMap*> shadowMapsSingle;
  std::vector<SWCubeShadowMap*> shadowMapsCube;
  std::map<int32_t, int32_t> shadowMapIndexSingle;
  std::map<int32_t, int32_t> shadowMapIndexCube;
  std::vector<SWPhoton> directPhotons;
  std::vector<SWPhoton> indirectPhotons;
  std::set<int32_t> dirtyShadowLights;
  int64_t lastFrameTag = 0;
};
