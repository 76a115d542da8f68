#include "scene/SceneGraphTraversal.h"

#include <algorithm>
#include <utility>

#include "host/BrindlexViewMath.h"

namespace {
// Host coordinates of the horizon have y of the opposite sign to the world.
void NegateY(SCENE_VERTEX_XYZ& v) {
  v.y = -v.y;
}

template <typename T>
void PopAboveBottom(std::vector<T>& stack) {
  // The bottom entry was pushed by the constructor and is never popped.
  if (stack.size() > 1) stack.pop_back();
}
}  // namespace

// ---- SceneWalkState ----

SceneWalkState::SceneWalkState(const MATERIAL_ROOT_MAP* materialRoots, bool rotatePass)
    : materialRoots(materialRoots), rotatePass(rotatePass) {
  materialTreeStack.push_back(0);  // the project's own material tree
  materialStack.push_back(nullptr);
}

bool SceneWalkState::EnterNode(SCENE_GRAPH_NODE_INTERFACE* node,
                               const SCENE_GRAPH_GROUP_DATA_INTERFACE*& group) {
  group = nullptr;
  if (!node) return true;
  const bool active = node->IsNodeActive();
  const SCENE_GRAPH_GROUP_DATA_INTERFACE* data = node->GetNodeGroupData();
  if (!active || !data) return active;
  group = data;

  if (data->HasGroupMaterialTree()) materialTreeStack.push_back(data->GetGroupMaterialTree());
  if (data->IsGroupRotateToCamera()) insideRotateNode = true;
  const char* id = data->GetGroupMaterialID();
  if (id && materialRoots) {
    // An id that names nothing hides what lies below it; an unknown tree
    // keeps the enclosing material. Either way exactly one entry is pushed.
    const MATERIAL_3D_NODE* root = nullptr;
    auto found = materialRoots->find(materialTreeStack.back());
    if (found != materialRoots->end()) root = found->second;
    materialStack.push_back(root ? root->GetNodeThatControlsMaterial(id) : materialStack.back());
  }
  return true;
}

const SCENE_GRAPH_GROUP_DATA_INTERFACE* SceneWalkState::LeaveNode(SCENE_GRAPH_NODE_INTERFACE* node) {
  if (!node) return nullptr;
  const SCENE_GRAPH_GROUP_DATA_INTERFACE* data = node->GetNodeGroupData();
  if (!data) return nullptr;
  if (data->IsGroupRotateToCamera()) insideRotateNode = false;
  if (materialRoots && data->GetGroupMaterialID()) PopAboveBottom(materialStack);
  if (data->HasGroupMaterialTree()) PopAboveBottom(materialTreeStack);
  return data;
}

const MATERIAL_3D_NODE* SceneWalkState::ResolveMaterial(const char* id) const {
  if (!materialRoots || !id) return nullptr;
  auto found = materialRoots->find(materialTreeStack.back());
  if (found == materialRoots->end() || !found->second) return nullptr;
  return found->second->GetNodeThatControlsMaterial(id);
}

bool SceneWalkState::AcceptsMesh(SCENE_GRAPH_NODE_INTERFACE* node) const {
  if (!node || !node->GetNodeMeshData()) return false;
  const MATERIAL_3D_NODE* material = CurrentMaterial();
  return material && material->IsVisible() != 0 && rotatePass == insideRotateNode;
}

// ---- SceneGraphTraversalCountNodeInstances ----

SceneGraphTraversalCountNodeInstances::SceneGraphTraversalCountNodeInstances(
    SceneNodeCountMap* instanceCounts, const MATERIAL_ROOT_MAP* materialRoots,
    const SCENE_GRAPH_NODE_INTERFACE* horizonNode, const char* horizonMaterialID, bool rotatePass)
    : instanceCounts(instanceCounts), state(materialRoots, rotatePass) {
  if (rotatePass || !horizonNode || !horizonNode->IsNodeActive() || !horizonNode->GetNodeMeshData()) return;
  if (!horizonMaterialID || !instanceCounts || !materialRoots) return;
  const MATERIAL_3D_NODE* material = state.ResolveMaterial(horizonMaterialID);
  if (material && material->IsVisible()) ++(*instanceCounts)[horizonNode];
}

bool SceneGraphTraversalCountNodeInstances::TraversalEnterNode(SCENE_GRAPH_NODE_INTERFACE* node) {
  const SCENE_GRAPH_GROUP_DATA_INTERFACE* group;
  return state.EnterNode(node, group);
}

void SceneGraphTraversalCountNodeInstances::TraversalVisitMesh(SCENE_GRAPH_NODE_INTERFACE* node) {
  if (instanceCounts && state.AcceptsMesh(node)) ++(*instanceCounts)[node];
}

void SceneGraphTraversalCountNodeInstances::TraversalLeaveNode(SCENE_GRAPH_NODE_INTERFACE* node) {
  state.LeaveNode(node);
}

// ---- SceneGraphTraversalInitializeSWMeshes ----

SceneGraphTraversalInitializeSWMeshes::SceneGraphTraversalInitializeSWMeshes(
    SWMeshTable* meshTable, const MATERIAL_ROOT_MAP* materialRoots, std::vector<SWMaterialEntry>* materials,
    SWMaterialIndexMap* materialIndexByNode, const SCENE_GRAPH_NODE_INTERFACE* horizonNode,
    const char* horizonMaterialID, bool rotatePass, const SCENE_MATRIX* viewMatrix, int projectionType,
    SCENE_VERTEX_XYZ_64* boundsMin, SCENE_VERTEX_XYZ_64* boundsMax, SCENE_GRAPH_NODE_INTERFACE* rootNode)
    : meshTable(meshTable),
      materials(materials),
      materialIndexByNode(materialIndexByNode),
      projectionType(projectionType),
      boundsMin(boundsMin),
      boundsMax(boundsMax),
      state(materialRoots, rotatePass) {
  // Baking needs to know, before the first copy, whether a mesh is placed
  // again later.
  SceneGraphTraversalCountNodeInstances counter(&instanceCounts, materialRoots, horizonNode,
                                                horizonMaterialID, rotatePass);
  TraverseSceneGraph(rootNode, &counter);

  SCENE_MATRIX bottom;
  if (rotatePass && viewMatrix) {
    // Parents then contribute view-space transforms; each rotate node leaves
    // view space again through the inverse.
    bottom = *viewMatrix;
    GetInverseMatrix(viewMatrix, &inverseViewMatrix);
  } else {
    GetIdentityMatrix(&bottom);
  }
  matrixStack.push_back(bottom);

  if (!rotatePass) AddHorizonMesh(horizonNode, horizonMaterialID);
}

void SceneGraphTraversalInitializeSWMeshes::AddHorizonMesh(const SCENE_GRAPH_NODE_INTERFACE* horizonNode,
                                                           const char* horizonMaterialID) {
  if (!horizonNode || !horizonNode->IsNodeActive() || !horizonMaterialID) return;
  const SCENE_GRAPH_MESH_DATA_INTERFACE* source = horizonNode->GetNodeMeshData();
  if (!source || !materials || !meshTable || !materialIndexByNode) return;
  const MATERIAL_3D_NODE* material = state.ResolveMaterial(horizonMaterialID);
  if (!material || !material->IsVisible()) return;
  const SCENE_VERTEX* vertices = source->GetMeshVertices();
  const unsigned int* indices = source->GetMeshIndices();
  if (!vertices || !indices) return;

  const uint32_t materialIndex = FindOrAddSWMaterial(*materials, *materialIndexByNode, material);
  SWMesh mesh;
  mesh.vertices.assign(vertices, vertices + source->GetMeshVertexCount());
  for (SCENE_VERTEX& v : mesh.vertices) {
    NegateY(v.position);
    NegateY(v.normal);
    NegateY(v.tangent);
  }
  mesh.indices.assign(indices, indices + source->GetMeshIndexCount());
  const uint32_t meshIndex = static_cast<uint32_t>(meshTable->meshes.size());
  meshTable->meshes.push_back(std::move(mesh));
  meshTable->instances.push_back({meshIndex, 0, materialIndex});
}

// On the rotate pass the stack's bottom is the view matrix, so a rotate
// node must always push: one without a matrix turns as if its matrix were
// the identity, or its geometry would stay in camera space.
bool SceneGraphTraversalInitializeSWMeshes::PushesMatrix(
    const SCENE_GRAPH_GROUP_DATA_INTERFACE& group) const {
  return group.GetGroupMatrix() || (state.IsRotatePass() && group.IsGroupRotateToCamera());
}

bool SceneGraphTraversalInitializeSWMeshes::TraversalEnterNode(SCENE_GRAPH_NODE_INTERFACE* node) {
  const SCENE_GRAPH_GROUP_DATA_INTERFACE* group;
  const bool enter = state.EnterNode(node, group);
  if (group && PushesMatrix(*group)) matrixStack.push_back(NodeMatrix(*group));
  return enter;
}

SCENE_MATRIX SceneGraphTraversalInitializeSWMeshes::NodeMatrix(
    const SCENE_GRAPH_GROUP_DATA_INTERFACE& group) const {
  SCENE_MATRIX local;
  if (group.GetGroupMatrix())
    local = *group.GetGroupMatrix();
  else
    GetIdentityMatrix(&local);
  if (state.IsRotatePass() && group.IsGroupRotateToCamera()) return RotateToCameraMatrix(local);
  SCENE_MATRIX m = local;
  MatrixMultiply(&matrixStack.back(), &m);
  return m;
}

// The node's translation applies before the turn to the camera and its own
// rotation after it, so that a billboard turns about its own origin.
SCENE_MATRIX SceneGraphTraversalInitializeSWMeshes::RotateToCameraMatrix(
    const SCENE_MATRIX& nodeMatrix) const {
  SCENE_MATRIX rotation = nodeMatrix;
  SCENE_MATRIX translation;
  GetIdentityMatrix(&translation);
  for (int i = 12; i < 15; ++i) {
    translation.m[i] = rotation.m[i];
    rotation.m[i] = 0.0f;
  }
  const SCENE_MATRIX& top = matrixStack.back();

  SCENE_MATRIX toEye = translation;
  MatrixMultiply(&top, &toEye);  // top * T
  SCENE_MATRIX turn{};
  CalculateRotateToCameraMatrix(&toEye, &turn, projectionType, true);

  SCENE_MATRIX a = toEye;  // top * T again
  SCENE_MATRIX b = turn;
  MatrixMultiply(&a, &b);  // top * T * C
  a = b;
  b = rotation;
  MatrixMultiply(&a, &b);  // top * T * C * R
  MatrixMultiply(&inverseViewMatrix, &b);
  return b;
}

void SceneGraphTraversalInitializeSWMeshes::TraversalVisitMesh(SCENE_GRAPH_NODE_INTERFACE* node) {
  if (!node || !meshTable || !materials || !materialIndexByNode || !state.AcceptsMesh(node)) return;
  const SCENE_GRAPH_MESH_DATA_INTERFACE& mesh = *node->GetNodeMeshData();
  if (!mesh.GetMeshVertices() || !mesh.GetMeshIndices()) return;

  const uint32_t materialIndex =
      FindOrAddSWMaterial(*materials, *materialIndexByNode, state.CurrentMaterial());
  SWMeshInstance instance{0, 0, materialIndex};
  auto placed = meshIndexByNode.find(node);
  if (placed == meshIndexByNode.end()) {
    instance.meshIndex = static_cast<uint32_t>(meshTable->meshes.size());
    meshIndexByNode[node] = instance.meshIndex;
    instance.transformIndex = AddFirstPlacement(node, mesh);
  } else {
    // A further placement shares the copy; only the first grows the box.
    instance.meshIndex = placed->second;
    instance.transformIndex = static_cast<uint32_t>(meshTable->transforms.size());
    meshTable->transforms.push_back(matrixStack.back());
  }
  meshTable->instances.push_back(instance);
}

uint32_t SceneGraphTraversalInitializeSWMeshes::AddFirstPlacement(
    const SCENE_GRAPH_NODE_INTERFACE* node, const SCENE_GRAPH_MESH_DATA_INTERFACE& mesh) {
  auto counted = instanceCounts.find(node);
  // A mesh placed once is baked into world space, so rays need no
  // transform for it; a shared one keeps local vertices and one transform
  // per placement.
  const bool bake = counted == instanceCounts.end() || counted->second <= 1;
  const SCENE_MATRIX& top = matrixStack.back();
  uint32_t transformIndex = 0;
  if (!bake) {
    transformIndex = static_cast<uint32_t>(meshTable->transforms.size());
    meshTable->transforms.push_back(top);
  }

  const unsigned int vertexCount = mesh.GetMeshVertexCount();
  const SCENE_VERTEX* source = mesh.GetMeshVertices();
  SWMesh copy;
  copy.vertices.reserve(vertexCount);
  for (unsigned int i = 0; i < vertexCount; ++i) {
    SCENE_VERTEX world;
    TransformSceneVertex(&top, &source[i], &world);
    copy.vertices.push_back(bake ? world : source[i]);
    GrowBounds(world.position);
  }
  const unsigned int* indices = mesh.GetMeshIndices();
  copy.indices.assign(indices, indices + mesh.GetMeshIndexCount());
  meshTable->meshes.push_back(std::move(copy));
  return transformIndex;
}

void SceneGraphTraversalInitializeSWMeshes::GrowBounds(const SCENE_VERTEX_XYZ& point) {
  // std::min and std::max compare strictly, as the box must: an equal
  // coordinate changes nothing.
  const double x = point.x, y = point.y, z = point.z;
  if (boundsMin) {
    const SCENE_VERTEX_XYZ_64 m = *boundsMin;
    *boundsMin = {std::min(m.x, x), std::min(m.y, y), std::min(m.z, z)};
  }
  if (boundsMax) {
    const SCENE_VERTEX_XYZ_64 m = *boundsMax;
    *boundsMax = {std::max(m.x, x), std::max(m.y, y), std::max(m.z, z)};
  }
}

void SceneGraphTraversalInitializeSWMeshes::TraversalLeaveNode(SCENE_GRAPH_NODE_INTERFACE* node) {
  const SCENE_GRAPH_GROUP_DATA_INTERFACE* group = state.LeaveNode(node);
  if (group && PushesMatrix(*group)) PopAboveBottom(matrixStack);
}
