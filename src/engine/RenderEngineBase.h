// Everything of the engine that does not depend on ray tracing: reference
// count, flags, frame buffer, render-to-file settings, model notifications.
#pragma once

#include <atomic>
#include <cstdint>
#include <set>
#include <string>

#include "platform/CriticalSection.h"
#include "engine/EngineFlags.h"
#include "engine/RenderEngineInterfaces.h"

class RT_RENDER_ENGINE_BASE : public RENDER_ENGINE_INTERFACE,
                              public RENDERER_SCENE_GRAPH_INTERFACE,
                              public RENDERER_HIGHLIGHT_INTERFACE,
                              public RENDER_TO_FILE_INTERFACE {
 public:
  static constexpr size_t RenderToFileNameSize = 260;

  RT_RENDER_ENGINE_BASE();
  ~RT_RENDER_ENGINE_BASE() override;
  RT_RENDER_ENGINE_BASE(const RT_RENDER_ENGINE_BASE&) = delete;
  RT_RENDER_ENGINE_BASE& operator=(const RT_RENDER_ENGINE_BASE&) = delete;

  // RENDER_ENGINE_INTERFACE
  unsigned long AddRef() override;
  unsigned long Release() override;
  void Initialize(const char* textureDirectory, const char* colorMapFolder, const char* bumpMapFolder,
                  const char* maskMapFolder, const char* fifthFolder, const char* sixthFolder) override;
  void ShutDown() override;
  bool InitializeRendererWindow(HWND window, HINSTANCE instance) override;
  void ShutDownRendererWindow() override;
  void SetRenderProgressInterface(RENDER_PROGRESS_INTERFACE* progress) override;
  void SetRenderDistributedServerInterface(RENDER_DISTRIBUTED_SERVER_INTERFACE* server) override;
  RENDERER_DEVICE_DRIVER_INTERFACE* GetRendererDeviceDriverInterface() override { return nullptr; }
  const RENDERER_DEVICE_DRIVER_INTERFACE* GetRendererDeviceDriverInterface() const override {
    return nullptr;
  }
  RENDERER_SCENE_GRAPH_INTERFACE* GetRendererSceneGraphInterface() override { return this; }
  const RENDERER_SCENE_GRAPH_INTERFACE* GetRendererSceneGraphInterface() const override { return this; }
  RENDER_TO_FILE_INTERFACE* GetRenderToFileInterface() override { return this; }
  const RENDER_TO_FILE_INTERFACE* GetRenderToFileInterface() const override { return this; }
  RENDERER_LOCATE_INTERFACE* GetRendererLocateInterface() override { return nullptr; }
  const RENDERER_LOCATE_INTERFACE* GetRendererLocateInterface() const override { return nullptr; }
  RENDERER_HIGHLIGHT_INTERFACE* GetRendererHighlightInterface() override { return this; }
  const RENDERER_HIGHLIGHT_INTERFACE* GetRendererHighlightInterface() const override { return this; }
  void CreateRenderToAnotherWindowInterface(HWND) override {}
  void ReleaseRenderToAnotherWindowInterface(HWND) override {}
  RENDER_TO_ANOTHER_WINDOW_INTERFACE* GetRenderToAnotherWindowInterface(HWND) override { return nullptr; }
  unsigned int RepaintScreen(const RECT& rect) override;
  void GetFrameImage(ATL::CImage& image, ENVIRONMENT_3D_PROJECT* project, ENVIRONMENT_3D_VIEW* view) override;
  int QueryRenderer(int key) const override;
  void ShutDownModel() override;
  void ModifyAllMaterialTypes() override;
  void ModifyMaterialType(const char* material) override;
  void ModifyMaterialType(unsigned int tree, const char* material) override;
  void ModifyAutoHorizon() override;
  void ModifyMaterialVisibility(const char* material) override;
  void ModifyLightVisibility() override {}
  void ModifyBackground() override;
  void RemoveLightInstance(int id) override;
  void ModifyLightInstance(SCENE_LIGHT_INSTANCE* instance) override;
  void RemoveIndirectLightInstance(int) override {}
  void ModifyIndirectLightInstance(SCENE_INDIRECT_LIGHT_INSTANCE*) override {}
  bool DoesRendererNeedToResizeClientArea(WPARAM wParam, LPARAM lParam) const override;
  void ResizeClientArea(unsigned int* width, unsigned int* height) override;
  void SetShouldAbortRenderFunction(ShouldAbortRenderFunction function, void* context) override;
  void MaterialPointersInvalid() override;
  void SetTextureDirectory(const char* directory) override;
  void LockSWFrameBuffer() override;
  void UnLockSWFrameBuffer() override;
  unsigned int GetProcessorCount() override;

  // RENDERER_SCENE_GRAPH_INTERFACE
  bool CreateSceneGraphNode(SCENE_GRAPH_NODE_INTERFACE* node) override;
  bool AttachNode(SCENE_GRAPH_NODE_INTERFACE* parent, SCENE_GRAPH_NODE_INTERFACE* node) override;
  void DetachNode(SCENE_GRAPH_NODE_INTERFACE* node, bool destroy) override;
  void SetModelTransform(const char* node, SCENE_MATRIX* transform) override;
  void SetMaterialID(const char*, const char*) override {}

  // RENDERER_HIGHLIGHT_INTERFACE: this engine draws no highlight.
  void RenderHighlightFrame(ENVIRONMENT_3D_PROJECT*, ENVIRONMENT_3D_VIEW*, ENVIRONMENT_3D*, const RECT&,
                            const SCENE_MATRIX*, RENDER_GEOMETRY_3D_VECTOR*,
                            const RENDER_GEOMETRY_3D_VECTOR*) override {}

  // RENDER_TO_FILE_INTERFACE
  void SetRenderToFile(bool on) override;
  void SetRenderToFileResolution(short width, short height) override;
  void SetRenderToFileName(const char* name) override;
  void SetRenderToFileBitmap(bool on) override;
  void SetRenderToFileBackgroundAlpha(bool on) override;
  void SetRenderToFileCubeMap(bool on) override;
  void SetRenderToFileCubeMapNames(const std::string* names) override;
  void SetRenderToFileCubeMapProgressBar(HWND progressBar) override;
  void SetRenderToFileNumberPathTracingPasses(int passes) override;
  void SetRenderToFilePathTracingProgressWindowParams(HWND window, unsigned int message,
                                                      uint64_t param) override;
  void SetRenderToFileSavePathTracingCheckpoints(bool on) override;
  int QueryRenderToFile(int key) const override;
  void SetRenderToFileHDRName(const char* name) override;

 protected:
  // Sets the running mean from the 8-bit picture, after a resize.
  void ReadBitmapIntoHDR();
  bool ShouldAbort() const { return shouldAbortFunction && shouldAbortFunction(shouldAbortContext); }

  std::atomic<uint32_t> referenceCount{1};
  platform::CriticalSection frameBufferLock;
  EngineFlags engineFlags;
  ShouldAbortRenderFunction shouldAbortFunction = nullptr;
  void* shouldAbortContext = nullptr;
  RENDER_PROGRESS_INTERFACE* renderProgress = nullptr;
  RENDER_DISTRIBUTED_SERVER_INTERFACE* distributedServer = nullptr;
  int32_t renderToFileStatus = 0;
  int16_t renderToFileWidth = 256;
  int16_t renderToFileHeight = 256;
  HWND cubeMapProgressBar = nullptr;
  char renderToFileName[RenderToFileNameSize] = {};
  std::string cubeMapNames[6];
  int32_t numberOfPathTracingPasses = 1000;
  HWND pathTracingProgressWindow = nullptr;
  uint32_t pathTracingProgressMessage = 0;
  uint64_t pathTracingProgressParam = 0;
  bool savePathTracingCheckpoints = false;
  std::string renderToFileHDRName;  // an OpenEXR picture beside the file
  std::string textureDirectory;
  std::string colorMapFolder;
  std::string bumpMapFolder;
  std::string maskMapFolder;
  std::string fifthFolder;  // stored for the host; nothing reads it
  std::string sixthFolder;  // stored for the host; nothing reads it
  uint32_t frameWidth = 0;
  uint32_t frameHeight = 0;
  Gdiplus::Bitmap* frameBitmap = nullptr;
  SCENE_VERTEX_XYZW* frameHDRBuffer = nullptr;
  HWND rendererWindow = nullptr;
  std::set<int32_t> removedLights;
  std::set<int32_t> modifiedLights;
};
