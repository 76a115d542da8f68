// Reading a model file in a child process, so that a file that makes the
// model reader hang, abort or eat all memory ends in a message instead of
// taking the program with it.
#pragma once

#include <assimp/Importer.hpp>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

struct aiScene;

// What the child learns about the file beyond the scene itself, which the
// transfer between the processes does not carry.
struct ImportFacts {
  // Axes as the file records them: 0, 1, 2 for x, y, z.
  int upAxis = 1, upSign = 1, rightAxis = 0, rightSign = 1;
  bool gltf = false, collada = false;
  // Metres in one unit of the file, when the file says.
  std::optional<double> metresPerUnit;
  // Vertices with a coordinate that is not a finite number, and the
  // triangles that used them: both left out.
  unsigned long badVertices = 0, droppedTriangles = 0;
  // Meshes whose normals were unusable (zero or not finite) and were made anew.
  unsigned long remadeNormals = 0;
  // Errors the reader logged although it produced a scene: a sign of a
  // model read only in part.
  std::vector<std::string> readerErrors;
};

struct ImportLimits {
  double seconds = 300.0;
  // 0: half of the machine's memory.
  uint64_t bytes = 0;
  // Read in this process, unwatched: for the fuzzer, which must see the
  // reader's own crashes, hangs and leaks.
  bool inProcess = false;
};

// A model read by the child, as the parent holds it.
struct ReadModel {
  std::unique_ptr<Assimp::Importer> importer;
  const aiScene* scene = nullptr;  // owned by `importer`
  ImportFacts facts;
};

// Reads `file` in a child process held to `limits`: `configure` sets the
// reader's properties, then the file is read, its bad vertices and normals
// are dealt with, and the post-processing `steps` run. False with a
// one-line reason for anything that fails.
bool ReadModelGuarded(const std::filesystem::path& file,
                      const std::function<void(Assimp::Importer&)>& configure, unsigned int steps,
                      const ImportLimits& limits, ReadModel& model, std::string& error);

// The memory limit that `limits` stands for on this machine.
uint64_t ImportMemoryLimit(const ImportLimits& limits);
