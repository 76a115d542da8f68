#include "scene/SWTriangle.h"

#include <algorithm>
#include <cmath>

#include "host/BrindlexViewMath.h"
#include "host/Numbers.h"

namespace {

double Component(const SCENE_VERTEX_XYZ_64& v, uint32_t axis) {
  return axis == 0 ? v.x : axis == 1 ? v.y : v.z;
}

SCENE_VERTEX_XYZ_64 Difference(const SCENE_VERTEX_XYZ_64& a, const SCENE_VERTEX_XYZ_64& b) {
  return {a.x - b.x, a.y - b.y, a.z - b.z};
}

// The axis of the largest normal component; on a tie the later axis wins.
uint32_t DominantAxis(const SCENE_VERTEX_XYZ_64& n) {
  const double x = std::fabs(n.x), y = std::fabs(n.y), z = std::fabs(n.z);
  if (x > y) return x > z ? 0 : 2;
  return y > z ? 1 : 2;
}

}  // namespace

void ComputeSWTriangle(const SCENE_VERTEX_XYZ_64& a, const SCENE_VERTEX_XYZ_64& b,
                       const SCENE_VERTEX_XYZ_64& c, SWTriangle& triangle) {
  const SCENE_VERTEX_XYZ_64 e1 = Difference(c, a);
  const SCENE_VERTEX_XYZ_64 e2 = Difference(b, a);
  SCENE_VERTEX_XYZ_64 n{};
  CrossProduct(&e1, &e2, &n);
  const uint32_t k = DominantAxis(n);
  const uint32_t u = (k + 1) % 3, v = (k + 2) % 3;
  const double nk = Component(n, k);
  if (std::fabs(nk) <= NearZero) {
    triangle.degenerate = 1;
    return;
  }
  triangle.normalU = Component(n, u) / nk;
  triangle.normalV = Component(n, v) / nk;
  triangle.planeD = DotProduct(&a, &n) / nk;
  triangle.dominantAxis = k;

  const double det = Component(e1, u) * Component(e2, v) - Component(e1, v) * Component(e2, u);
  if (std::fabs(det) <= NearZero) {
    triangle.degenerate = 1;
    return;
  }
  // One division for the four edge terms: the ray test multiplies only.
  const double inverse = 1.0 / det;
  triangle.edge1U = Component(e1, u) * inverse;
  triangle.edge1NegV = -Component(e1, v) * inverse;
  triangle.edge2V = Component(e2, v) * inverse;
  triangle.edge2NegU = -Component(e2, u) * inverse;
  triangle.vertexU = Component(a, u);
  triangle.vertexV = Component(a, v);
}

const SWMesh* GetInstanceMesh(const SWMeshTable& table, const SWMeshInstance& instance) {
  const uint32_t mesh = instance.meshIndex;
  return mesh < table.meshes.size() ? &table.meshes[mesh] : nullptr;
}

const SCENE_MATRIX* GetInstanceTransform(const SWMeshTable& table, const SWMeshInstance& instance) {
  const uint32_t transform = instance.transformIndex;
  return transform != 0 && transform < table.transforms.size() ? &table.transforms[transform] : nullptr;
}

size_t CountTableTriangles(const SWMeshTable& table) {
  size_t total = 0;
  for (const SWMeshInstance& instance : table.instances)
    if (const SWMesh* mesh = GetInstanceMesh(table, instance)) total += mesh->indices.size() / 3;
  return total;
}

bool GetTriangleCorners(const SWMeshTable& table, uint32_t instanceIndex, uint32_t triangleIndex,
                        SCENE_VERTEX_XYZ corners[3]) {
  if (instanceIndex >= table.instances.size()) return false;
  const SWMeshInstance& instance = table.instances[instanceIndex];
  const SWMesh* mesh = GetInstanceMesh(table, instance);
  if (!mesh) return false;
  const size_t first = size_t(triangleIndex) * 3;
  if (first + 2 >= mesh->indices.size()) return false;
  const SCENE_MATRIX* transform = GetInstanceTransform(table, instance);
  for (int corner = 0; corner < 3; ++corner) {
    const uint32_t index = mesh->indices[first + corner];
    if (index >= mesh->vertices.size()) return false;
    corners[corner] = mesh->vertices[index].position;
    if (transform) TransformPoint3D(transform, &corners[corner], &corners[corner]);
  }
  return true;
}

size_t FillInstanceTriangles(const SWMeshTable& table, uint32_t instanceIndex, SWTriangle* records,
                             size_t capacity, size_t firstTriangle) {
  if (instanceIndex >= table.instances.size()) return 0;
  const SWMesh* mesh = GetInstanceMesh(table, table.instances[instanceIndex]);
  if (!mesh) return 0;
  const size_t triangles = mesh->indices.size() / 3;
  if (firstTriangle >= triangles) return 0;
  const size_t count = std::min(triangles - firstTriangle, capacity);
  for (size_t t = firstTriangle; t < firstTriangle + count; ++t) {
    SWTriangle& record = records[t - firstTriangle];
    record = SWTriangle{};
    record.instanceIndex = instanceIndex;
    record.triangleIndex = uint32_t(t);
    SCENE_VERTEX_XYZ corners[3];
    if (!GetTriangleCorners(table, instanceIndex, uint32_t(t), corners)) {
      record.degenerate = 1;
      continue;
    }
    SCENE_VERTEX_XYZ_64 wide[3];
    for (int corner = 0; corner < 3; ++corner)
      ConvertSceneVertexXYZToSceneVertexXYZ64(&corners[corner], &wide[corner]);
    ComputeSWTriangle(wide[0], wide[1], wide[2], record);
  }
  return count;
}
