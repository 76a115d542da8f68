// Scene files: JSON that names the models and sets camera, lights, render
// options, background, horizon, rotate-to-camera nodes and materials. The
// format is described in docs/scene-format.md.
#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "HostScene.h"
#include "ModelImport.h"

struct SceneModel {
  std::filesystem::path file;
  ModelPlacement placement;
};

// Material settings that a scene file changes; what it leaves out stays.
struct MaterialSettings {
  std::optional<unsigned long> color;
  std::optional<std::filesystem::path> texture;
  std::optional<float> opacity, reflectivity, ambient, diffuse, specular, emissive, relief;
  std::optional<bool> transparent, reflecting, overrideTextureWithColor, scaled, visible;
  std::optional<int> mapping;
};

struct SceneCamera {
  std::optional<SCENE_VERTEX_XYZ> eye, target;  // file coordinates
  std::optional<float> fieldOfView, parallelHeight, roll;
  std::optional<int> projection;
};

struct SceneHorizon {
  bool enabled = true;
  MaterialSettings material;
  std::optional<float> height, size;
};

struct SceneDescription {
  std::vector<SceneModel> models;
  SceneCamera camera;
  // Definitions in file coordinates.
  std::vector<SCENE_LIGHT_DEFINITION> lights;
  // Render options and background, checked and ready to apply in order.
  std::vector<std::function<void(MODE_RENDER_OPTIONS&)>> options;
  std::optional<SceneHorizon> horizon;
  std::vector<std::string> rotateToCamera;
  std::vector<std::pair<std::string, MaterialSettings>> materials;
  // Path-tracing passes, and the time limit in seconds.
  std::optional<int> passes;
  std::optional<double> timeLimit;
};

// Reads and checks a scene file. Relative file names in it are taken from
// the scene file's folder. False with a one-line reason that names the key,
// for anything it does not know or of the wrong type.
bool ReadSceneFile(const std::filesystem::path& file, SceneDescription& scene, std::string& error);
bool ParseScene(const std::string& text, const std::filesystem::path& folder, SceneDescription& scene,
                std::string& error);

// Puts everything but the models into `host`, whose models are loaded. False
// with a reason for names that match no node or material.
bool ApplyScene(const SceneDescription& scene, HostScene& host, std::string& error);

// Changes `link` as the settings say.
void ApplyMaterialSettings(const MaterialSettings& settings, const HostScene& host, TEXTURE_LINK& link);
