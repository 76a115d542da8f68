// The command line of brindlex-render.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "host/SceneRecords.h"

struct RenderSettings {
  std::string model;      // empty: the built-in demo scene, unless a scene file names models
  std::string sceneFile;  // --scene
  std::string output;     // -o; empty: OutputName decides
  std::optional<int> width, height;
  std::optional<unsigned short> antialias;
  bool pathTracing = false;
  bool photons = false;      // photon mapping for indirect light
  bool softShadows = false;  // --soft-shadows
  std::optional<int> passes;
  std::optional<double> timeLimit;  // --time, seconds
  bool checkpoints = false;
  bool alpha = false;
  bool cubeMap = false;
  std::string hdr;  // --hdr: an OpenEXR picture beside the output
  // In the coordinates of the model file.
  std::optional<SCENE_VERTEX_XYZ> eye, target;
  std::optional<float> fieldOfView;     // vertical, degrees
  std::optional<double> importTimeout;  // seconds
  bool quiet = false;
  bool mpi = false;  // --mpi: one process of a render farm under mpirun
  bool help = false;
  bool version = false;
};

// The output size when nothing sets it.
constexpr int DefaultWidth = 800;
constexpr int DefaultHeight = 600;
// Path-tracing passes when --passes is not given: enough for a picture
// whose noise no longer draws the eye, on an ordinary machine in minutes.
constexpr int DefaultPasses = 32;
// Narrower views make the projection degenerate; wider ones are no view.
constexpr float MinimumFieldOfView = 0.1f, MaximumFieldOfView = 179.0f;
// Passes when a time limit is given and no number of passes: the time
// alone ends the render.
constexpr int UnlimitedPasses = 2147483647;
// The picture encoders take no side above 16384, and the engine keeps file
// names in 260 characters with the terminating zero.
constexpr int MaximumPictureSide = 16384;
constexpr size_t MaximumOutputNameLength = 259;

// Fills `settings` from the arguments (without the program name). False with
// a one-line reason in `error` for anything it cannot take.
bool ParseOptions(const std::vector<std::string>& arguments, RenderSettings& settings, std::string& error);

std::string UsageText();

// -o, or the model's (or scene file's) name with ".png" in the current
// folder, or "brindlex-demo.png".
std::string OutputName(const RenderSettings& settings);

// The six files of a cube map, in the engine's face order: world +x, -x,
// +z, -z, +y, -y. "view.png" gives "view_px.png", "view_nx.png",
// "view_pz.png", "view_nz.png", "view_py.png" and "view_ny.png".
std::array<std::string, 6> CubeMapNames(const std::string& output);
