// Model files of any format that Assimp reads, as host scene geometry,
// materials, lights and camera.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "HostScene.h"
#include "ImportGuard.h"

// Which way is up in a model file, when the scene file says so.
enum class UpAxis { FromFile, X, Y, Z };

struct ModelPlacement {
  UpAxis up = UpAxis::FromFile;
  // Applied in the scene's file coordinates, after the up conversion of the
  // model into them: scale about the origin, then move.
  SCENE_VERTEX_XYZ translate{0.0f, 0.0f, 0.0f};
  float scale = 1.0f;
  // Metres in one unit of the file, when the scene file says; otherwise
  // the file's own record, or the metre.
  std::optional<double> metresPerUnit;
};

// A camera found in a model file, in world coordinates.
struct ModelCamera {
  SCENE_VERTEX_XYZ eye, target;
  float fieldOfView;  // vertical, degrees
};

struct ImportedModel {
  SCENE_GRAPH_NODE* root = nullptr;  // owned by the scene graph
  SCENE_MATRIX fileToWorld;          // the unit and up conversion
  double worldPerFileUnit = 1.0;
  unsigned long triangles = 0;
  int lights = 0;
  std::optional<ModelCamera> camera;
  // Things a user should know about a model that was read: left-out
  // vertices, a reader that reported errors. One line each.
  std::vector<std::string> warnings;
};

// Reads `file` and places it under the scene's root in a group of its own,
// whose matrix converts the file's up axis to the world's z; the first model
// of a scene sets the scene's file coordinates (HostScene::FileToWorld) with
// it. False with a one-line reason for a file that is missing, unreadable,
// not understood, or holds no triangles.
bool ImportModel(const std::filesystem::path& file, const ModelPlacement& placement, HostScene& scene,
                 ImportedModel& result, std::string& error, const ImportLimits& limits = {});

// The matrix that turns a file whose up is axis `up` (0, 1, 2 for x, y, z,
// of sign `upSign`) and whose right is axis `right` (of sign `rightSign`)
// into the world, where up is +z and right is +x. A y-up file maps (x, y, z)
// to (x, -z, y): its front, +z, faces the world's -y.
SCENE_MATRIX AxisConversion(int up, int upSign, int right, int rightSign);
