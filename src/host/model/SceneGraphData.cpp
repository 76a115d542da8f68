#include "host/SceneGraph.h"

#include <algorithm>

void SCENE_GRAPH_GROUP_DATA::SetGroupMatrix(const SCENE_MATRIX* matrix) {
  hasMatrix = matrix != nullptr;
  if (matrix) this->matrix = *matrix;
}

void SCENE_GRAPH_GROUP_DATA::SetGroupMaterialID(const char* id) {
  hasMaterialID = id != nullptr;
  materialID = id ? id : "";
}

void SCENE_GRAPH_GROUP_DATA::SetGroupMaterialTree(unsigned int key) {
  hasMaterialTree = true;
  materialTree = key;
}

void SCENE_GRAPH_GROUP_DATA::ClearGroupMaterialTree() {
  hasMaterialTree = false;
  materialTree = 0;
}

bool SCENE_GRAPH_MESH_DATA::SetMeshData(const SCENE_VERTEX* vertices, unsigned int vertexCount,
                                        const unsigned int* indices, unsigned int indexCount) {
  if ((vertexCount && !vertices) || (indexCount && !indices) || indexCount % 3 != 0) return false;
  if (std::any_of(indices, indices + indexCount, [vertexCount](unsigned int i) { return i >= vertexCount; }))
    return false;
  this->vertices.assign(vertices, vertices + vertexCount);
  this->indices.assign(indices, indices + indexCount);
  return true;
}

void SCENE_GRAPH_MESH_DATA::ClearMeshData() {
  vertices.clear();
  indices.clear();
}

bool SCENE_GRAPH_MESH_DATA::SetMeshVertex(unsigned int index, const SCENE_VERTEX& vertex) {
  if (index >= vertices.size()) return false;
  vertices[index] = vertex;
  return true;
}

bool SCENE_GRAPH_MESH_DATA::SetMeshTriangle(unsigned int triangle, unsigned int a, unsigned int b,
                                            unsigned int c) {
  size_t count = vertices.size();
  if (triangle >= GetMeshTriangleCount() || a >= count || b >= count || c >= count) return false;
  unsigned int* corners = &indices[3 * size_t{triangle}];
  corners[0] = a;
  corners[1] = b;
  corners[2] = c;
  return true;
}

const SCENE_VERTEX* SCENE_GRAPH_MESH_DATA::GetMeshVertices() const {
  return vertices.empty() ? nullptr : vertices.data();
}

const unsigned int* SCENE_GRAPH_MESH_DATA::GetMeshIndices() const {
  return indices.empty() ? nullptr : indices.data();
}
