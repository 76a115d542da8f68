// The two walks that flatten the host's scene graph into a mesh table: one
// counts how often each mesh node is placed, the other copies the meshes,
// baking those placed once into world space and sharing those placed more
// often through per-instance transforms.
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "host/BrindlexViewModel.h"
#include "scene/SWMaterialEntry.h"
#include "scene/SWMeshTable.h"

using SceneNodeCountMap = std::map<const SCENE_GRAPH_NODE_INTERFACE*, uint32_t>;

// The material and rotate-to-camera state that both walks carry down the
// graph, so that both accept exactly the same meshes.
class SceneWalkState {
 public:
  SceneWalkState(const MATERIAL_ROOT_MAP* materialRoots, bool rotatePass);

  // The answer TraversalEnterNode gives. When the node is entered with group
  // data, `group` is set and the node's tree key, rotate flag and material
  // are pushed; otherwise `group` is null and nothing is pushed.
  bool EnterNode(SCENE_GRAPH_NODE_INTERFACE* node, const SCENE_GRAPH_GROUP_DATA_INTERFACE*& group);
  // Pops what EnterNode pushed; gives the node's group data or null.
  const SCENE_GRAPH_GROUP_DATA_INTERFACE* LeaveNode(SCENE_GRAPH_NODE_INTERFACE* node);

  // The material `id` names in the current material tree; null when the
  // tree is unknown or the id resolves to nothing.
  const MATERIAL_3D_NODE* ResolveMaterial(const char* id) const;
  // Visible material on top, and inside a rotate-to-camera node exactly on
  // the rotate pass.
  bool AcceptsMesh(SCENE_GRAPH_NODE_INTERFACE* node) const;
  const MATERIAL_3D_NODE* CurrentMaterial() const { return materialStack.back(); }
  bool IsRotatePass() const { return rotatePass; }

 private:
  const MATERIAL_ROOT_MAP* materialRoots;
  bool rotatePass;
  // A single flag, not a depth: leaving an inner rotate node ends the state
  // for the rest of the outer one too.
  bool insideRotateNode = false;
  std::vector<uint32_t> materialTreeStack;
  std::vector<const MATERIAL_3D_NODE*> materialStack;
};

// Both walks keep the base answers of TraversalQueryTrue and
// TraversalQueryFalse: a node's mesh is visited before its children, and a
// walk never stops early, so that the counting walk and the filling walk meet
// the meshes in the same order and count the same placements.

// Counts the accepted placements of every mesh node, the horizon's included.
class SceneGraphTraversalCountNodeInstances : public TRAVERSE_SCENE_GRAPH {
 public:
  SceneGraphTraversalCountNodeInstances(SceneNodeCountMap* instanceCounts,
                                        const MATERIAL_ROOT_MAP* materialRoots,
                                        const SCENE_GRAPH_NODE_INTERFACE* horizonNode,
                                        const char* horizonMaterialID, bool rotatePass);
  ~SceneGraphTraversalCountNodeInstances() override = default;

  bool TraversalEnterNode(SCENE_GRAPH_NODE_INTERFACE* node) override;
  void TraversalVisitMesh(SCENE_GRAPH_NODE_INTERFACE* node) override;
  void TraversalLeaveNode(SCENE_GRAPH_NODE_INTERFACE* node) override;

 private:
  SceneNodeCountMap* instanceCounts;
  SceneWalkState state;
};

// Fills a mesh table. The constructor runs the counting walk and adds the
// horizon mesh; the caller then runs TraverseSceneGraph(rootNode, this).
class SceneGraphTraversalInitializeSWMeshes : public TRAVERSE_SCENE_GRAPH {
 public:
  // `viewMatrix` is used on the rotate pass only: rotate-to-camera geometry
  // turns to face the viewer it describes. The bounds grow over every first
  // placement when given.
  SceneGraphTraversalInitializeSWMeshes(
      SWMeshTable* meshTable, const MATERIAL_ROOT_MAP* materialRoots, std::vector<SWMaterialEntry>* materials,
      SWMaterialIndexMap* materialIndexByNode, const SCENE_GRAPH_NODE_INTERFACE* horizonNode,
      const char* horizonMaterialID, bool rotatePass, const SCENE_MATRIX* viewMatrix, int projectionType,
      SCENE_VERTEX_XYZ_64* boundsMin, SCENE_VERTEX_XYZ_64* boundsMax, SCENE_GRAPH_NODE_INTERFACE* rootNode);
  ~SceneGraphTraversalInitializeSWMeshes() override = default;

  bool TraversalEnterNode(SCENE_GRAPH_NODE_INTERFACE* node) override;
  void TraversalVisitMesh(SCENE_GRAPH_NODE_INTERFACE* node) override;
  void TraversalLeaveNode(SCENE_GRAPH_NODE_INTERFACE* node) override;

 private:
  void AddHorizonMesh(const SCENE_GRAPH_NODE_INTERFACE* horizonNode, const char* horizonMaterialID);
  // Whether a node pushes a matrix on entry and pops it on leaving.
  bool PushesMatrix(const SCENE_GRAPH_GROUP_DATA_INTERFACE& group) const;
  // The matrix a node pushes: its own under the top of the stack, or on the
  // rotate pass for a rotate-to-camera node, turned to face the viewer.
  SCENE_MATRIX NodeMatrix(const SCENE_GRAPH_GROUP_DATA_INTERFACE& group) const;
  SCENE_MATRIX RotateToCameraMatrix(const SCENE_MATRIX& nodeMatrix) const;
  // Copies a mesh met for the first time; gives its transform row.
  uint32_t AddFirstPlacement(const SCENE_GRAPH_NODE_INTERFACE* node,
                             const SCENE_GRAPH_MESH_DATA_INTERFACE& mesh);
  void GrowBounds(const SCENE_VERTEX_XYZ& point);

  std::vector<SCENE_MATRIX> matrixStack;  // the top is the last element
  SWMeshTable* meshTable;
  std::vector<SWMaterialEntry>* materials;
  SWMaterialIndexMap* materialIndexByNode;
  SCENE_MATRIX inverseViewMatrix{};  // zero unless the rotate pass was given a view
  int projectionType;
  SCENE_VERTEX_XYZ_64* boundsMin;
  SCENE_VERTEX_XYZ_64* boundsMax;
  SceneWalkState state;
  SceneNodeCountMap instanceCounts;
  SceneNodeCountMap meshIndexByNode;
};
