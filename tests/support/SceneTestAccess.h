// The scene tables of the engine that tests check, and small host scenes
// and material trees for them.
#pragma once

#include <initializer_list>

#include "host/BrindlexViewModel.h"
#include "engine/BrindlexViewRTRenderEngine.h"
#include "scene/SceneGraphTraversal.h"
#include "accel/KDTree.h"
#include "scene/LightTable.h"
#include "scene/SWMeshTable.h"
#include "shadows/SWShadowMap.h"

// An engine whose scene tables tests read. They are protected members of
// the engine, which a derived class reaches.
class SceneTestEngine : public RT_RENDER_ENGINE {
 public:
  std::map<uint32_t, MATERIAL_3D_NODE*>& MaterialRoots() { return materialRoots; }
  std::vector<SWMaterialEntry>& SWMaterials() { return swMaterials; }
  SWMeshTable& MeshTable(int i) { return meshTables[i]; }
  KDTree& Tree(int i) { return kdTrees[i]; }
  SCENE_VERTEX_XYZ_64& SceneBox(int i) { return i == 0 ? sceneMin : sceneMax; }

  // The ordinary pass (table 0) or the rotate pass (table 1) into the
  // engine's own tables, as a scene update runs it.
  void Walk(int table, SCENE_GRAPH_NODE_INTERFACE* root,
            const SCENE_GRAPH_NODE_INTERFACE* horizonNode = nullptr, const char* horizonMaterialID = nullptr,
            const SCENE_MATRIX* viewMatrix = nullptr) {
    meshTables[table].Clear();
    SceneGraphTraversalInitializeSWMeshes walk(&meshTables[table], &materialRoots, &swMaterials,
                                               &materialIndexByNode, horizonNode, horizonMaterialID,
                                               table == 1, viewMatrix, 0, &sceneMin, &sceneMax, root);
    TraverseSceneGraph(root, &walk);
  }
};

namespace scene_test {

inline SCENE_MATRIX Translation(float x, float y, float z) {
  SCENE_MATRIX m{};
  m.m[0] = m.m[5] = m.m[10] = m.m[15] = 1.0f;
  m.m[12] = x, m.m[13] = y, m.m[14] = z;
  return m;
}

inline SCENE_VERTEX Vertex(float x, float y, float z) {
  SCENE_VERTEX v{};
  v.position = {x, y, z};
  v.normal = {0, 0, 1};
  return v;
}

// A node holding one triangle; by default (0,0,0), (1,0,0), (0,1,0).
inline SCENE_GRAPH_NODE* MeshNode(const char* name, std::initializer_list<SCENE_VERTEX> corners = {
                                                        Vertex(0, 0, 0), Vertex(1, 0, 0), Vertex(0, 1, 0)}) {
  auto* node = new SCENE_GRAPH_NODE(name);
  const unsigned int triangle[3] = {0, 1, 2};
  node->CreateNodeMeshData()->SetMeshData(corners.begin(), 3, triangle, 3);
  return node;
}

// A group under `parent`; a null material id or matrix leaves it unset.
inline SCENE_GRAPH_NODE* Group(SCENE_GRAPH_NODE_INTERFACE* parent, const char* name, const char* materialID,
                               const SCENE_MATRIX* matrix = nullptr) {
  auto* node = new SCENE_GRAPH_NODE(name);
  SCENE_GRAPH_GROUP_DATA_INTERFACE* group = node->CreateNodeGroupData();
  if (materialID) group->SetGroupMaterialID(materialID);
  if (matrix) group->SetGroupMatrix(matrix);
  parent->AddChildNode(node);
  return node;
}

// A child material of `root` that defines its own settings.
inline MATERIAL_3D_NODE* Material(MATERIAL_3D_NODE* root, const char* id, bool visible = true) {
  auto* node = new MATERIAL_3D_NODE(root, ':');
  node->SetThisNodesID(id);
  TEXTURE_LINK link;
  node->SetTextureLink(&link);
  node->SetVisible(visible);
  return node;
}

inline MATERIAL_3D_NODE* MaterialRoot() {
  auto* root = new MATERIAL_3D_NODE(nullptr, ':');
  root->SetThisNodesID("*");
  root->SetShouldThisNodeUseDefault(false, false);
  return root;
}

// Rows are packed: read the pointer by value rather than bind to it.
inline const MATERIAL_3D_NODE* MaterialOf(const SWMaterialEntry& row) {
  return row.material;
}

}  // namespace scene_test
