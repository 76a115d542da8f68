// The per-triangle record of a kd-tree: the constants of the projection ray
// test, computed once at build time, and the way back to the mesh table.
#pragma once

#include <cstddef>
#include <cstdint>

#include "scene/SWMeshTable.h"
#include "host/SceneRecords.h"

#pragma pack(push, 1)
// The plane is N . X = planeD * N[k] with N divided by its largest
// component; edges are pre-divided by the determinant of the projection onto
// the two other axes u, v, so that barycentrics take two products each.
struct SWTriangle {
  uint8_t degenerate;      // 1: the ray test skips it
  uint32_t dominantAxis;   // k
  double normalU;          // N[u] / N[k]
  double normalV;          // N[v] / N[k]
  double planeD;           // dot(A, N) / N[k]
  double vertexU;          // A[u]
  double vertexV;          // A[v]
  double edge1U;           // E1[u] / det
  double edge1NegV;        // -E1[v] / det
  double edge2V;           // E2[v] / det
  double edge2NegU;        // -E2[u] / det
  uint32_t instanceIndex;  // row of instances
  uint32_t triangleIndex;  // t within the mesh
};
#pragma pack(pop)
static_assert(sizeof(SWTriangle) == 85);

// Fills the ray-test fields from the corners A, B, C, leaving the two index
// fields alone. A degenerate triangle keeps zeros where it stopped.
void ComputeSWTriangle(const SCENE_VERTEX_XYZ_64& a, const SCENE_VERTEX_XYZ_64& b,
                       const SCENE_VERTEX_XYZ_64& c, SWTriangle& triangle);

// The mesh of an instance, or null when its meshIndex is out of range.
const SWMesh* GetInstanceMesh(const SWMeshTable& table, const SWMeshInstance& instance);
// The instance's transform, or null when it has none (index 0 or out of range).
const SCENE_MATRIX* GetInstanceTransform(const SWMeshTable& table, const SWMeshInstance& instance);

// Triangles the table contributes: indices.size() / 3 of every instance with a
// valid mesh.
size_t CountTableTriangles(const SWMeshTable& table);

// The three corner positions of triangle t of an instance, in world space and
// single precision: as stored, or through TransformPoint3D when the instance
// has a transform. False when the instance, mesh, index slots or vertices are
// out of range.
bool GetTriangleCorners(const SWMeshTable& table, uint32_t instanceIndex, uint32_t triangleIndex,
                        SCENE_VERTEX_XYZ corners[3]);

// Fills the records of one instance's triangles, at most `capacity` of them,
// in mesh order from triangle `firstTriangle` on; returns how many it
// filled. A triangle with an index out of range is marked degenerate and
// still takes its record.
size_t FillInstanceTriangles(const SWMeshTable& table, uint32_t instanceIndex, SWTriangle* records,
                             size_t capacity, size_t firstTriangle = 0);
