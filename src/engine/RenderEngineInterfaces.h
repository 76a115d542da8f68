// The abstract interfaces through which a host drives the render engine.
// Virtual operations are declared in their slot order; a host built with
// these headers calls them by slot.
#pragma once

#include <cstdint>
#include <string>

#include "host/SceneRecords.h"
#include "platform/WindowsTypes.h"

namespace ATL {
class CImage;
}
namespace Gdiplus {
class Bitmap;
}

class ENVIRONMENT_3D;
class ENVIRONMENT_3D_PROJECT;
class ENVIRONMENT_3D_VIEW;
class SCENE_GRAPH;
class SCENE_LIGHTS;
class SCENE_GRAPH_NODE_INTERFACE;
class RENDER_DISTRIBUTED_SERVER_INTERFACE;
class RENDER_GEOMETRY_3D_VECTOR;
class RENDERER_DEVICE_DRIVER_INTERFACE;
class RENDERER_LOCATE_INTERFACE;
class RENDER_TO_ANOTHER_WINDOW_INTERFACE;
class RENDERER_SCENE_GRAPH_INTERFACE;
class RENDERER_HIGHLIGHT_INTERFACE;
class RENDER_TO_FILE_INTERFACE;

// Per-block progress drawing. Its destructor comes after the two drawing
// operations, in the third slot.
class RENDER_PROGRESS_INTERFACE {
 public:
  virtual void DisplayBeginProgress(unsigned long color, unsigned int x, unsigned int y, unsigned int frameX,
                                    unsigned int frameY, unsigned int width, unsigned int height) = 0;
  virtual bool DisplayEndProgress(Gdiplus::Bitmap* bitmap, unsigned int x, unsigned int y,
                                  unsigned int frameX, unsigned int frameY, unsigned int width,
                                  unsigned int height) = 0;
  virtual ~RENDER_PROGRESS_INTERFACE() = default;
};

using ShouldAbortRenderFunction = bool (*)(void*);

class RENDER_ENGINE_INTERFACE {
 public:
  virtual ~RENDER_ENGINE_INTERFACE() = default;
  virtual unsigned long AddRef() = 0;
  virtual unsigned long Release() = 0;
  virtual void Initialize(const char* textureDirectory, const char* colorMapFolder, const char* bumpMapFolder,
                          const char* maskMapFolder, const char* fifthFolder, const char* sixthFolder) = 0;
  virtual void ShutDown() = 0;
  virtual bool InitializeRendererWindow(HWND window, HINSTANCE instance) = 0;
  virtual void ShutDownRendererWindow() = 0;
  virtual void SetRenderProgressInterface(RENDER_PROGRESS_INTERFACE* progress) = 0;
  virtual void SetRenderDistributedServerInterface(RENDER_DISTRIBUTED_SERVER_INTERFACE* server) = 0;
  virtual RENDERER_DEVICE_DRIVER_INTERFACE* GetRendererDeviceDriverInterface() = 0;
  virtual const RENDERER_DEVICE_DRIVER_INTERFACE* GetRendererDeviceDriverInterface() const = 0;
  virtual RENDERER_SCENE_GRAPH_INTERFACE* GetRendererSceneGraphInterface() = 0;
  virtual const RENDERER_SCENE_GRAPH_INTERFACE* GetRendererSceneGraphInterface() const = 0;
  virtual RENDER_TO_FILE_INTERFACE* GetRenderToFileInterface() = 0;
  virtual const RENDER_TO_FILE_INTERFACE* GetRenderToFileInterface() const = 0;
  virtual RENDERER_LOCATE_INTERFACE* GetRendererLocateInterface() = 0;
  virtual const RENDERER_LOCATE_INTERFACE* GetRendererLocateInterface() const = 0;
  virtual RENDERER_HIGHLIGHT_INTERFACE* GetRendererHighlightInterface() = 0;
  virtual const RENDERER_HIGHLIGHT_INTERFACE* GetRendererHighlightInterface() const = 0;
  virtual void CreateRenderToAnotherWindowInterface(HWND window) = 0;
  virtual void ReleaseRenderToAnotherWindowInterface(HWND window) = 0;
  virtual RENDER_TO_ANOTHER_WINDOW_INTERFACE* GetRenderToAnotherWindowInterface(HWND window) = 0;
  // Asks a renderer with caches of its own to drop them. This renderer keeps
  // none beyond what UpdateFrame reconciles, so the body is empty.
  virtual void FlushRendererCaches() {}
  virtual void UpdateFrame(ENVIRONMENT_3D_PROJECT* project, ENVIRONMENT_3D_VIEW* view, SCENE_GRAPH* scene,
                           SCENE_LIGHTS* lights, const SCENE_GRAPH_NODE_INTERFACE* horizonNode,
                           const char* horizonMaterialID, unsigned int flags, int64_t frameTag) = 0;
  virtual unsigned int RenderFrame(ENVIRONMENT_3D_PROJECT* project, ENVIRONMENT_3D_VIEW* view,
                                   SCENE_GRAPH* scene, const RECT& rect, bool forceScreen) = 0;
  virtual unsigned int RepaintScreen(const RECT& rect) = 0;
  virtual void GetFrameImage(ATL::CImage& image, ENVIRONMENT_3D_PROJECT* project,
                             ENVIRONMENT_3D_VIEW* view) = 0;
  virtual int QueryRenderer(int key) const = 0;
  virtual void ShutDownModel() = 0;
  virtual void ModifyAllMaterialTypes() = 0;
  virtual void ModifyMaterialType(const char* material) = 0;
  virtual void ModifyMaterialType(unsigned int tree, const char* material) = 0;
  virtual void ModifyAutoHorizon() = 0;
  virtual void ModifyMaterialVisibility(const char* material) = 0;
  virtual void ModifyLightVisibility() = 0;
  virtual void ModifyBackground() = 0;
  virtual void RemoveLightInstance(int id) = 0;
  virtual void ModifyLightInstance(SCENE_LIGHT_INSTANCE* instance) = 0;
  virtual void SetAlternateLightInstance(SCENE_LIGHT_INSTANCE* instance) = 0;
  virtual void RemoveIndirectLightInstance(int id) = 0;
  virtual void ModifyIndirectLightInstance(SCENE_INDIRECT_LIGHT_INSTANCE* instance) = 0;
  virtual bool DoesRendererNeedToResizeClientArea(WPARAM wParam, LPARAM lParam) const = 0;
  virtual void ResizeClientArea(unsigned int* width, unsigned int* height) = 0;
  virtual void SetShouldAbortRenderFunction(ShouldAbortRenderFunction function, void* context) = 0;
  virtual void MaterialPointersInvalid() = 0;
  virtual void SetTextureDirectory(const char* directory) = 0;
  virtual void LockSWFrameBuffer() = 0;
  virtual void UnLockSWFrameBuffer() = 0;
  virtual unsigned int GetProcessorCount() = 0;
};

// Notifications of edits to the host's scene graph.
class RENDERER_SCENE_GRAPH_INTERFACE {
 public:
  virtual ~RENDERER_SCENE_GRAPH_INTERFACE() = default;
  virtual bool CreateSceneGraphNode(SCENE_GRAPH_NODE_INTERFACE* node) = 0;
  virtual bool AttachNode(SCENE_GRAPH_NODE_INTERFACE* parent, SCENE_GRAPH_NODE_INTERFACE* node) = 0;
  virtual void DetachNode(SCENE_GRAPH_NODE_INTERFACE* node, bool destroy) = 0;
  virtual void SetModelTransform(const char* node, SCENE_MATRIX* transform) = 0;
  virtual void SetMaterialID(const char* node, const char* material) = 0;
};

class RENDERER_HIGHLIGHT_INTERFACE {
 public:
  virtual ~RENDERER_HIGHLIGHT_INTERFACE() = default;
  virtual void RenderHighlightFrame(ENVIRONMENT_3D_PROJECT* project, ENVIRONMENT_3D_VIEW* view,
                                    ENVIRONMENT_3D* environment, const RECT& rect,
                                    const SCENE_MATRIX* transform, RENDER_GEOMETRY_3D_VECTOR* geometry,
                                    const RENDER_GEOMETRY_3D_VECTOR* highlighted) = 0;
};

class RENDER_TO_FILE_INTERFACE {
 public:
  virtual ~RENDER_TO_FILE_INTERFACE() = default;
  virtual void SetRenderToFile(bool on) = 0;
  virtual void SetRenderToFileResolution(short width, short height) = 0;
  virtual void SetRenderToFileName(const char* name) = 0;
  virtual void SetRenderToFileBitmap(bool on) = 0;
  virtual void SetRenderToFileBackgroundAlpha(bool on) = 0;
  virtual void SetRenderToFileCubeMap(bool on) = 0;
  virtual void SetRenderToFileCubeMapNames(const std::string* names) = 0;
  virtual void SetRenderToFileCubeMapProgressBar(HWND progressBar) = 0;
  virtual void SetRenderToFileNumberPathTracingPasses(int passes) = 0;
  virtual void SetRenderToFilePathTracingProgressWindowParams(HWND window, unsigned int message,
                                                              uint64_t param) = 0;
  virtual void SetRenderToFileSavePathTracingCheckpoints(bool on) = 0;
  virtual int QueryRenderToFile(int key) const = 0;
  // A second picture of the same render, in high dynamic range, written
  // beside the first after each pass; empty or null: none. Appended, so
  // the operations above keep their slots.
  virtual void SetRenderToFileHDRName(const char* name) = 0;
};

// Creates one engine with reference count 1; null when memory is short. A
// host needs only this header to make one and drive it.
extern "C" RENDER_ENGINE_INTERFACE* CreateRenderEngine();
