// The engine's flattened copy of the host's scene graph: distinct meshes,
// per-instance transforms and one placement record per instance.
#pragma once

#include <cstdint>
#include <vector>

#include "host/SceneRecords.h"
#include "accel/RayIntersection.h"
#include "scene/SWMaterialEntry.h"

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

// Sets the scene box to its empty state: the largest double as minimum and
// its negative as maximum, so that the first vertex sets both.
void ResetSceneBounds(SCENE_VERTEX_XYZ_64& boundsMin, SCENE_VERTEX_XYZ_64& boundsMax);

// How far a ray hit leads back to its surface.
enum class SWHitSurfaceStatus : uint8_t {
  Resolved,
  // Tree, instance, mesh, material row or triangle is out of range, or the
  // row has no material: there is no surface.
  NoSurface,
  // Instance and material are known, but a vertex index of the triangle is
  // out of range; `material` is set, `vertices` are not.
  VertexOutOfRange,
};

// The surface a hit lies on, as every reader of a hit needs it.
struct SWHitSurface {
  const SWMaterialEntry* material = nullptr;  // its material is not null
  SCENE_VERTEX vertices[3];                   // world space, in triangle order
};

// Follows `hit` back to its material row of `materials` and the world-space
// vertices of its triangle in `meshTables` (two, as the trees).
SWHitSurfaceStatus ResolveHitSurface(const SWMeshTable* meshTables,
                                     const std::vector<SWMaterialEntry>& materials,
                                     const SWRayIntersectionResult& hit, SWHitSurface& surface);
