// The host side of a render: the project, its one view, scene graph, material
// tree, lights and horizon that the program assembles and hands to the engine.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "host/BrindlexViewModel.h"

// Positions in the files the program reads (models, scene files, --eye and
// --target) are in the coordinates of the first model file, most often
// y-up. The engine's world is z-up. `fileToWorld` converts one into the
// other; it is the matrix of the first model's root group.
class HostScene {
 public:
  // Vertical field of view of a view that nobody sets up, in degrees.
  static constexpr float DefaultFieldOfView = 45.0f;

  HostScene();
  HostScene(const HostScene&) = delete;
  HostScene& operator=(const HostScene&) = delete;

  ENVIRONMENT_3D_PROJECT& Project() { return project; }
  ENVIRONMENT_3D_VIEW& View() { return *project.GetView(0); }
  MODE_RENDER_OPTIONS& Options() { return View().GetRenderOptions(); }
  SCENE_GRAPH& Graph() { return *project.GetSceneGraph(); }
  SCENE_GRAPH_NODE* Root() { return project.GetSceneGraph()->GetRootNode(); }
  SCENE_LIGHTS& Lights() { return *project.GetSceneLights(); }
  // Key 0 of the project: the one tree that holds every material.
  MATERIAL_3D_NODE& Materials() { return *project.CreateMaterialRoot(0); }

  // A new material node under `parent` (the tree's root when null), with an
  // id made of `name` that no sibling has yet; ':' joins ids into paths, so
  // it never appears in one.
  MATERIAL_3D_NODE* AddMaterial(MATERIAL_3D_NODE* parent, const std::string& name, const TEXTURE_LINK& link);
  // The full id, as a group's material id names it: "House:Glass".
  static std::string MaterialID(const MATERIAL_3D_NODE& material);
  // Every material whose full id, or own id, is `name`.
  std::vector<MATERIAL_3D_NODE*> FindMaterials(const std::string& name);

  // Adds a light; position and target in the definition are in file
  // coordinates: fileToWorld becomes the instance's matrix, and the area
  // axes, which the engine takes as they stand, are turned here.
  int AddLight(SCENE_LIGHT_DEFINITION definition);
  int AddWorldLight(const SCENE_LIGHT_DEFINITION& definition, const SCENE_MATRIX& toWorld);

  // The folder that the engine composes texture paths from.
  const std::filesystem::path& TextureDirectory() const { return textureDirectory; }
  void SetTextureDirectory(const std::filesystem::path& folder);
  // The name under which the engine finds the picture `file`: relative to
  // the texture directory, which may mean climbing out of it.
  std::string TextureName(const std::filesystem::path& file) const;

  const SCENE_MATRIX& FileToWorld() const { return fileToWorld; }
  // World units in one unit of the scene's file coordinates: distances
  // (light falloff, horizon size, mist) scale by it.
  double WorldPerFileUnit() const { return worldPerFileUnit; }
  void SetFileToWorld(const SCENE_MATRIX& matrix, double worldPerUnit = 1.0) {
    fileToWorld = matrix, worldPerFileUnit = worldPerUnit;
  }
  SCENE_VERTEX_XYZ FileToWorldPoint(const SCENE_VERTEX_XYZ& point) const;

  // Box of all active geometry in world coordinates; false when empty.
  bool WorldBounds(SCENE_VERTEX_XYZ& min, SCENE_VERTEX_XYZ& max);
  unsigned long TriangleCount();

  // Camera from world positions; the record keeps y negated.
  void SetCamera(const SCENE_VERTEX_XYZ& eye, const SCENE_VERTEX_XYZ& target, float fieldOfView);
  SCENE_VERTEX_XYZ CameraEye();
  SCENE_VERTEX_XYZ CameraTarget();
  // Looks at the whole model from in front, to the right and above, from
  // far enough for the box to fit a picture of the given aspect (width /
  // height) with a margin, as a viewer's zoom-to-fit does. False without
  // geometry.
  bool FrameAll(double aspect);
  // Where the camera came from, for the user: "zoom to fit", "the model
  // file's camera", ...
  const std::string& CameraSource() const { return cameraSource; }
  void SetCameraSource(const std::string& source) { cameraSource = source; }
  // One line each of what a user should know about the scene.
  std::vector<std::string>& Warnings() { return warnings; }

  // A ground square under the model, of `material`, drawn by the engine as
  // its horizon. `size` is its side in world units.
  void SetHorizon(const std::string& materialID, float height, float size);
  SCENE_GRAPH_NODE_INTERFACE* HorizonNode();
  const char* HorizonMaterialID();

 private:
  ENVIRONMENT_3D_PROJECT project;
  std::filesystem::path textureDirectory;
  SCENE_MATRIX fileToWorld;
  double worldPerFileUnit = 1.0;
  std::string cameraSource;
  std::vector<std::string> warnings;
};

// Where the program keeps the pictures it makes: $XDG_CACHE_HOME, else
// ~/.cache, else the temporary folder, with "brindlex-render" below.
std::filesystem::path CacheFolder();

// Helpers for the records, shared by the importers.
SCENE_MATRIX IdentityMatrix();
// a * b: b applied first.
SCENE_MATRIX Multiply(const SCENE_MATRIX& a, const SCENE_MATRIX& b);
// A colour of 0 to 1 channels as the host keeps it: red in the low byte.
unsigned long PackColor(float red, float green, float blue);
