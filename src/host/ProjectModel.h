// A project as the renderer sees it: its scene, lights, material trees and
// horizon, and the views that look at it with their camera and render
// options.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/MaterialTree.h"
#include "host/RenderOptions.h"
#include "host/SceneGraph.h"
#include "host/SceneLights.h"

// Only named by the renderer's interfaces; never used by this library.
class ENVIRONMENT_3D;
class RENDER_GEOMETRY_3D_VECTOR;

class BRINDLEXVIEW_PROJECT_INTERFACE;

// What a view file remembers: the camera.
class VIEW_FILE_STATE {
 public:
  VIEW_FILE_STATE();
  SCENE_CAMERA_INFO* GetCameraInfo() { return &camera; }
  const SCENE_CAMERA_INFO* GetCameraInfo() const { return &camera; }
  void SetCameraInfo(const SCENE_CAMERA_INFO& info) { camera = info; }

 private:
  SCENE_CAMERA_INFO camera;
};

class ENVIRONMENT_3D_VIEW {
 public:
  enum PROJECTION_TYPE : int { PerspectiveProjection = 0, ParallelProjection = 1 };

  VIEW_FILE_STATE* GetViewFileState() { return &fileState; }
  // Copies this view's render options into `options`. Render options belong
  // to a view, so that two views of one project can draw differently; the
  // project is accepted for hosts that keep project-wide settings.
  void GetCurrentRenderOptions(BRINDLEXVIEW_PROJECT_INTERFACE* project, MODE_RENDER_OPTIONS& options) const;
  MODE_RENDER_OPTIONS& GetRenderOptions() { return renderOptions; }
  void SetRenderOptions(const MODE_RENDER_OPTIONS& options) { renderOptions = options; }
  int GetProjectionType() const { return projectionType; }
  void SetProjectionType(int type) { projectionType = type; }
  // False: the view draws with its own material set (GetViewMaterialSet).
  bool ShareProjectMaterials() const { return shareProjectMaterials; }
  void SetShareProjectMaterials(bool share) { shareProjectMaterials = share; }
  // The number of this view's own material set in the project; the host
  // hands it to the renderer as the material option.
  unsigned int GetViewMaterialSet() const { return materialSet; }
  void SetViewMaterialSet(unsigned int set) { materialSet = set; }

 private:
  VIEW_FILE_STATE fileState;
  MODE_RENDER_OPTIONS renderOptions;
  int projectionType = PerspectiveProjection;
  bool shareProjectMaterials = true;
  unsigned int materialSet = 0;
};

// The ground plane that a project can draw under its scene.
class PROJECT_HORIZON {
 public:
  PROJECT_HORIZON() : horizonNode("Horizon") {}
  bool RenderAutoHorizon() const { return autoHorizon; }
  void SetRenderAutoHorizon(bool on) { autoHorizon = on; }
  // The horizon's mesh, in host coordinates (y of the opposite sign to the
  // renderer's world).
  SCENE_GRAPH_NODE* GetHorizonNode() { return &horizonNode; }
  // Null when the horizon has no material.
  const char* GetHorizonMaterialID() const { return materialID.empty() ? nullptr : materialID.c_str(); }
  void SetHorizonMaterialID(const char* id) { materialID = id ? id : ""; }

 private:
  bool autoHorizon = false;
  SCENE_GRAPH_NODE horizonNode;
  std::string materialID;
};

class BRINDLEXVIEW_PROJECT_INTERFACE {
 public:
  virtual ~BRINDLEXVIEW_PROJECT_INTERFACE() = default;
  virtual const char* GetProjectName() const = 0;
  virtual void SetProjectName(const char* name) = 0;
  virtual SCENE_GRAPH* GetSceneGraph() = 0;
  virtual SCENE_LIGHTS* GetSceneLights() = 0;
  virtual unsigned int GetNumberOfViews() const = 0;
  // Null when `index` is out of range.
  virtual ENVIRONMENT_3D_VIEW* GetView(unsigned int index) = 0;
  virtual ENVIRONMENT_3D_VIEW* AddView() = 0;
  virtual bool RemoveView(unsigned int index) = 0;
  // Changes with every ModifyProject; the host hands it to the renderer as
  // the frame tag, which rebuilds its model when the tag differs.
  virtual int64_t GetFrameTag() const = 0;
  virtual void ModifyProject() = 0;
};

// A map of material tree roots by key, as the renderer receives it.
using MATERIAL_ROOT_MAP = std::map<unsigned int, MATERIAL_3D_NODE*>;

// The project. Material trees are kept by key; key 0 is the project's main
// tree. A view that does not share the project's materials draws with its
// own set of trees, which stand in for the project's trees of the same keys.
//
// Roots and horizon are lent out by GetMaterialRoots and GetProjectHorizon
// until the matching release. While they are lent, operations that would
// delete or replace them refuse (answer false or null), so the borrowed
// pointers stay valid. None of this is thread-safe: one thread edits and
// renders.
class ENVIRONMENT_3D_PROJECT : public BRINDLEXVIEW_PROJECT_INTERFACE {
 public:
  // A project starts with one view, so that it can be drawn at once.
  ENVIRONMENT_3D_PROJECT();
  ENVIRONMENT_3D_PROJECT(const ENVIRONMENT_3D_PROJECT&) = delete;
  ENVIRONMENT_3D_PROJECT& operator=(const ENVIRONMENT_3D_PROJECT&) = delete;
  ~ENVIRONMENT_3D_PROJECT() override;

  const char* GetProjectName() const override { return name.c_str(); }
  void SetProjectName(const char* name) override { this->name = name ? name : ""; }
  SCENE_GRAPH* GetSceneGraph() override { return &sceneGraph; }
  SCENE_LIGHTS* GetSceneLights() override { return &lights; }
  unsigned int GetNumberOfViews() const override { return static_cast<unsigned int>(views.size()); }
  ENVIRONMENT_3D_VIEW* GetView(unsigned int index) override;
  ENVIRONMENT_3D_VIEW* AddView() override;
  bool RemoveView(unsigned int index) override;
  int64_t GetFrameTag() const override { return frameTag; }
  void ModifyProject() override { ++frameTag; }

  // Fills `roots` (emptied first) with the roots to draw with: the
  // project's, and with `viewOwnMaterials` those of the view material set
  // `materialOption` over them. The roots stay owned by the project.
  virtual void GetMaterialRoots(bool viewOwnMaterials, unsigned int materialOption, MATERIAL_ROOT_MAP& roots);
  virtual void ReleaseMaterialRoots();
  // Null when there is no tree under `key`.
  virtual MATERIAL_3D_NODE* GetMaterialRoot(unsigned int key) const;
  // Takes ownership of `root` and puts it under `key`, deleting the tree
  // there before; null just deletes it. False while the roots are lent, and
  // for a node that lies inside a tree or is held here already; then `root`
  // stays where it was.
  virtual bool SetMaterialRoot(unsigned int key, MATERIAL_3D_NODE* root);
  virtual MATERIAL_3D_NODE* GetViewMaterialRoot(unsigned int set, unsigned int key) const;
  virtual bool SetViewMaterialRoot(unsigned int set, unsigned int key, MATERIAL_3D_NODE* root);
  virtual unsigned int GetNumberOfMaterialRoots() const;
  virtual bool AreMaterialRootsLent() const { return materialLoans > 0; }
  // Writes every tree, the view sets' too; false on a null or failed stream.
  virtual bool SaveMaterials(std::ostream* out) const;
  // Replaces every tree by what SaveMaterials wrote. On damaged input, or
  // while the roots are lent, nothing changes and the result is false.
  virtual bool LoadMaterials(std::istream* in);
  // The horizon, created when there is none yet.
  virtual PROJECT_HORIZON* CreateProjectHorizon();
  // False while the horizon is lent.
  virtual bool DeleteProjectHorizon();
  virtual bool IsProjectHorizonLent() const { return horizonLoans > 0; }
  // A new tree under `key` with a root of id "*" that defines its own
  // material, or the tree already there. Null while the roots are lent and
  // there is no tree yet.
  virtual MATERIAL_3D_NODE* CreateMaterialRoot(unsigned int key);
  // Deletes every tree of the project and of all view sets; false while lent.
  virtual bool ClearMaterials();
  // Deletes a view's own material set; false while lent or when it has none.
  virtual bool RemoveViewMaterialSet(unsigned int set);
  // The horizon, or null; lent until ReleaseProjectHorizon, which the
  // caller makes after every call, null or not.
  virtual PROJECT_HORIZON* GetProjectHorizon();
  virtual void ReleaseProjectHorizon();

 private:
  using OwnedRoots = std::map<unsigned int, std::unique_ptr<MATERIAL_3D_NODE>>;

  static bool SetRoot(OwnedRoots& roots, unsigned int key, MATERIAL_3D_NODE* root);

  std::string name;
  SCENE_GRAPH sceneGraph;
  SCENE_LIGHTS lights;
  std::vector<std::unique_ptr<ENVIRONMENT_3D_VIEW>> views;
  int64_t frameTag = 1;
  OwnedRoots projectRoots;
  std::map<unsigned int, OwnedRoots> viewRoots;
  unsigned int materialLoans = 0;
  std::unique_ptr<PROJECT_HORIZON> horizon;
  unsigned int horizonLoans = 0;
};
