// The engine's flattened copy of the host's scene graph: distinct meshes,
// per-instance transforms and one placement record per instance.
#pragma once

#include <cstdint>
#include <vector>

#include "SceneRecords.h"

struct SWMesh {
  std::vector<SCENE_VERTEX> vertices;  // world space, or local when the mesh is shared
  std::vector<uint32_t> indices;       // triangle t is indices[3t], [3t+1], [3t+2]
};

#pragma pack(push, 1)
struct SWMeshInstance {
  uint32_t meshIndex;
  uint32_t transformIndex;  // 0: the vertices are already in world space
  uint32_t materialIndex;   // row of swMaterials; 0xFFFFFFFF until assigned
};
#pragma pack(pop)

struct SWMeshTable {
  std::vector<SWMesh> meshes;
  std::vector<SCENE_MATRIX> transforms;  // element 0 is always the identity
  std::vector<SWMeshInstance> instances;

  SWMeshTable() { Clear(); }
  // Empties the table and pushes the identity as transform 0.
  void Clear();
};
