// From a ray hit back to the triangle's vertices and material. Every check
// guards a reader on a worker thread against an index that a damaged or
// partly built table would let run out of range.
#include "host/BrindlexViewMath.h"
#include "scene/SWMeshTable.h"

SWHitSurfaceStatus ResolveHitSurface(const SWMeshTable* meshTables,
                                     const std::vector<SWMaterialEntry>& materials,
                                     const SWRayIntersectionResult& hit, SWHitSurface& surface) {
  const uint32_t treeIndex = hit.treeIndex;
  const uint32_t instanceIndex = hit.instanceIndex;
  const uint64_t triangleIndex = hit.triangleIndex;
  if (!meshTables || treeIndex >= 2) return SWHitSurfaceStatus::NoSurface;
  const SWMeshTable& table = meshTables[treeIndex];
  if (instanceIndex >= table.instances.size()) return SWHitSurfaceStatus::NoSurface;

  const SWMeshInstance instance = table.instances[instanceIndex];
  if (instance.meshIndex >= table.meshes.size() || instance.materialIndex >= materials.size())
    return SWHitSurfaceStatus::NoSurface;
  const SWMaterialEntry& material = materials[instance.materialIndex];
  if (!material.material) return SWHitSurfaceStatus::NoSurface;

  const SWMesh& mesh = table.meshes[instance.meshIndex];
  // In 64 bits, so that a huge triangle index cannot wrap into range.
  if (3 * triangleIndex + 2 >= mesh.indices.size()) return SWHitSurfaceStatus::NoSurface;
  surface.material = &material;

  const uint32_t* corners = &mesh.indices[3 * triangleIndex];
  for (int i = 0; i < 3; ++i)
    if (corners[i] >= mesh.vertices.size()) return SWHitSurfaceStatus::VertexOutOfRange;

  const bool transformed = instance.transformIndex != 0 && instance.transformIndex < table.transforms.size();
  for (int i = 0; i < 3; ++i) {
    const SCENE_VERTEX& stored = mesh.vertices[corners[i]];
    if (transformed)
      TransformSceneVertex(&table.transforms[instance.transformIndex], &stored, &surface.vertices[i]);
    else
      surface.vertices[i] = stored;
  }
  return SWHitSurfaceStatus::Resolved;
}
