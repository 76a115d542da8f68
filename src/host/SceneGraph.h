// The scene graph: named nodes that may carry group data (a transform, a
// material and a few switches for everything below them) and mesh data (a
// triangle list). A node may be placed under several parents; each placement
// is one instance of its subtree.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/SceneRecords.h"

// Transform, material and switches of a node, inherited by its subtree.
class SCENE_GRAPH_GROUP_DATA_INTERFACE {
 public:
  virtual ~SCENE_GRAPH_GROUP_DATA_INTERFACE() = default;
  // Null when the node has no transform.
  virtual const SCENE_MATRIX* GetGroupMatrix() const = 0;
  // Null removes the transform.
  virtual void SetGroupMatrix(const SCENE_MATRIX* matrix) = 0;
  // Null: the node sets no material.
  virtual void SetGroupMaterialID(const char* id) = 0;
  virtual const char* GetGroupMaterialID() const = 0;
  virtual void SetGroupRotateToCamera(bool rotate) = 0;
  // Geometry below turns to face the camera.
  virtual bool IsGroupRotateToCamera() const = 0;
  virtual void SetGroupMaterialTree(unsigned int key) = 0;
  virtual bool HasGroupMaterialTree() const = 0;
  // Key of the project's material tree in which ids below are resolved.
  virtual unsigned int GetGroupMaterialTree() const = 0;
  virtual void ClearGroupMaterialTree() = 0;
};

// A triangle list: triangle t is indices 3t, 3t + 1 and 3t + 2.
class SCENE_GRAPH_MESH_DATA_INTERFACE {
 public:
  virtual ~SCENE_GRAPH_MESH_DATA_INTERFACE() = default;
  // Copies the arrays. False, with nothing changed, when a count and its
  // array disagree, the index count is no multiple of 3 or an index is not
  // below the vertex count.
  virtual bool SetMeshData(const SCENE_VERTEX* vertices, unsigned int vertexCount,
                           const unsigned int* indices, unsigned int indexCount) = 0;
  virtual void ClearMeshData() = 0;
  virtual bool SetMeshVertex(unsigned int index, const SCENE_VERTEX& vertex) = 0;
  // Box of the vertex positions in the mesh's own coordinates; false for a
  // mesh without vertices.
  virtual bool GetMeshBounds(SCENE_VERTEX_XYZ* min, SCENE_VERTEX_XYZ* max) const = 0;
  virtual unsigned int GetMeshTriangleCount() const = 0;
  virtual unsigned int GetMeshVertexCount() const = 0;
  // Null when the mesh has no vertices.
  virtual const SCENE_VERTEX* GetMeshVertices() const = 0;
  // Null when the mesh has no indices.
  virtual const unsigned int* GetMeshIndices() const = 0;
  // False if `triangle` or a vertex index is out of range.
  virtual bool SetMeshTriangle(unsigned int triangle, unsigned int a, unsigned int b, unsigned int c) = 0;
  virtual unsigned int GetMeshIndexCount() const = 0;
};

// In the interfaces of this library the order in which virtual operations
// are declared is part of the contract: renderers built apart from the host
// call them by their place in the table.
class SCENE_GRAPH_NODE_INTERFACE {
 public:
  // A node deletes the children for which it was the last parent. A node
  // that still has parents is deleted only through them.
  virtual ~SCENE_GRAPH_NODE_INTERFACE() = default;
  virtual const char* GetNodeName() const = 0;
  virtual void SetNodeName(const char* name) = 0;
  // The first parent that still holds the node; null for a root.
  virtual SCENE_GRAPH_NODE_INTERFACE* GetParentNode() const = 0;
  virtual unsigned int GetNumberOfChildNodes() const = 0;
  // Null when `index` is out of range.
  virtual SCENE_GRAPH_NODE_INTERFACE* GetChildNode(unsigned int index) const = 0;
  // Places `child` at the end of this node's children, which then share in
  // owning it. A child placed again elsewhere is a further instance. False
  // for null, for a node already directly below this one, and for a node
  // whose subtree holds this one, which would make a cycle.
  virtual bool AddChildNode(SCENE_GRAPH_NODE_INTERFACE* child) = 0;
  // Takes a direct child away from this node. The result is the child when
  // this was its last parent (the caller now owns it), otherwise null.
  virtual SCENE_GRAPH_NODE_INTERFACE* DetachChildNode(SCENE_GRAPH_NODE_INTERFACE* child) = 0;
  // Detaches a direct child and deletes it if no other parent holds it.
  // False if it is not a direct child.
  virtual bool DeleteChildNode(SCENE_GRAPH_NODE_INTERFACE* child) = 0;
  // This node or the first one below it, depth first, with that name.
  virtual SCENE_GRAPH_NODE_INTERFACE* FindNode(const char* name) = 0;
  // Bookkeeping of AddChildNode and DetachChildNode on the child's side;
  // they give the number of parents afterwards. Hosts call the parent's
  // operations instead.
  virtual unsigned int AttachToParent(SCENE_GRAPH_NODE_INTERFACE* parent) = 0;
  virtual unsigned int DetachFromParent(SCENE_GRAPH_NODE_INTERFACE* parent) = 0;
  // Box of the subtree's vertices, carried through the group matrices from
  // this node down. With `activeOnly`, inactive nodes and their subtrees are
  // left out, as the renderer leaves them out. A subtree without vertices
  // gives the empty box at the origin and false.
  virtual bool GetNodeBounds(SCENE_VERTEX_XYZ* min, SCENE_VERTEX_XYZ* max, bool activeOnly) const = 0;
  // Middle of GetNodeBounds' box, stored in `point` when it is not null.
  virtual SCENE_VERTEX_XYZ GetNodeCenter(SCENE_VERTEX_XYZ* point, bool activeOnly) const = 0;
  // Product of the group matrices from the root down to this node, along
  // the first parents.
  virtual bool GetNodeWorldMatrix(SCENE_MATRIX* matrix) const = 0;
  // The node's data, created empty when it has none yet.
  virtual SCENE_GRAPH_GROUP_DATA_INTERFACE* CreateNodeGroupData() = 0;
  virtual SCENE_GRAPH_MESH_DATA_INTERFACE* CreateNodeMeshData() = 0;
  virtual void DeleteNodeGroupData() = 0;
  virtual void DeleteNodeMeshData() = 0;
  // Null when the node has no such data.
  virtual const SCENE_GRAPH_GROUP_DATA_INTERFACE* GetNodeGroupData() const = 0;
  virtual SCENE_GRAPH_GROUP_DATA_INTERFACE* GetNodeGroupData() = 0;
  virtual const SCENE_GRAPH_MESH_DATA_INTERFACE* GetNodeMeshData() const = 0;
  virtual SCENE_GRAPH_MESH_DATA_INTERFACE* GetNodeMeshData() = 0;
  // True if `node` is this node or lies anywhere below it.
  virtual bool IsNodeInSubtree(const SCENE_GRAPH_NODE_INTERFACE* node) const = 0;
  virtual unsigned int GetNumberOfParentNodes() const = 0;
  // Not owned; the host's own pointer for this node.
  virtual void* GetNodeUserData() const = 0;
  virtual void SetNodeUserData(void* data) = 0;
  virtual void ActivateNode(bool active) = 0;
  // An inactive node is not rendered, nor is anything below it.
  virtual bool IsNodeActive() const = 0;
};

class SCENE_GRAPH_GROUP_DATA : public SCENE_GRAPH_GROUP_DATA_INTERFACE {
 public:
  const SCENE_MATRIX* GetGroupMatrix() const override { return hasMatrix ? &matrix : nullptr; }
  void SetGroupMatrix(const SCENE_MATRIX* matrix) override;
  void SetGroupMaterialID(const char* id) override;
  const char* GetGroupMaterialID() const override { return hasMaterialID ? materialID.c_str() : nullptr; }
  void SetGroupRotateToCamera(bool rotate) override { rotateToCamera = rotate; }
  bool IsGroupRotateToCamera() const override { return rotateToCamera; }
  void SetGroupMaterialTree(unsigned int key) override;
  bool HasGroupMaterialTree() const override { return hasMaterialTree; }
  unsigned int GetGroupMaterialTree() const override { return materialTree; }
  void ClearGroupMaterialTree() override;

 private:
  SCENE_MATRIX matrix{};
  bool hasMatrix = false;
  std::string materialID;
  bool hasMaterialID = false;
  bool rotateToCamera = false;
  bool hasMaterialTree = false;
  unsigned int materialTree = 0;
};

class SCENE_GRAPH_MESH_DATA : public SCENE_GRAPH_MESH_DATA_INTERFACE {
 public:
  bool SetMeshData(const SCENE_VERTEX* vertices, unsigned int vertexCount, const unsigned int* indices,
                   unsigned int indexCount) override;
  void ClearMeshData() override;
  bool SetMeshVertex(unsigned int index, const SCENE_VERTEX& vertex) override;
  bool GetMeshBounds(SCENE_VERTEX_XYZ* min, SCENE_VERTEX_XYZ* max) const override;
  unsigned int GetMeshTriangleCount() const override { return GetMeshIndexCount() / 3; }
  unsigned int GetMeshVertexCount() const override { return static_cast<unsigned int>(vertices.size()); }
  const SCENE_VERTEX* GetMeshVertices() const override;
  const unsigned int* GetMeshIndices() const override;
  bool SetMeshTriangle(unsigned int triangle, unsigned int a, unsigned int b, unsigned int c) override;
  unsigned int GetMeshIndexCount() const override { return static_cast<unsigned int>(indices.size()); }

 private:
  std::vector<SCENE_VERTEX> vertices;
  std::vector<unsigned int> indices;
};

class SCENE_GRAPH_NODE : public SCENE_GRAPH_NODE_INTERFACE {
 public:
  explicit SCENE_GRAPH_NODE(const char* name = nullptr);
  SCENE_GRAPH_NODE(const SCENE_GRAPH_NODE&) = delete;
  SCENE_GRAPH_NODE& operator=(const SCENE_GRAPH_NODE&) = delete;
  ~SCENE_GRAPH_NODE() override;

  const char* GetNodeName() const override { return name.c_str(); }
  void SetNodeName(const char* name) override { this->name = name ? name : ""; }
  SCENE_GRAPH_NODE_INTERFACE* GetParentNode() const override;
  unsigned int GetNumberOfChildNodes() const override { return static_cast<unsigned int>(children.size()); }
  SCENE_GRAPH_NODE_INTERFACE* GetChildNode(unsigned int index) const override;
  bool AddChildNode(SCENE_GRAPH_NODE_INTERFACE* child) override;
  SCENE_GRAPH_NODE_INTERFACE* DetachChildNode(SCENE_GRAPH_NODE_INTERFACE* child) override;
  bool DeleteChildNode(SCENE_GRAPH_NODE_INTERFACE* child) override;
  SCENE_GRAPH_NODE_INTERFACE* FindNode(const char* name) override;
  unsigned int AttachToParent(SCENE_GRAPH_NODE_INTERFACE* parent) override;
  unsigned int DetachFromParent(SCENE_GRAPH_NODE_INTERFACE* parent) override;
  bool GetNodeBounds(SCENE_VERTEX_XYZ* min, SCENE_VERTEX_XYZ* max, bool activeOnly) const override;
  SCENE_VERTEX_XYZ GetNodeCenter(SCENE_VERTEX_XYZ* point, bool activeOnly) const override;
  bool GetNodeWorldMatrix(SCENE_MATRIX* matrix) const override;
  SCENE_GRAPH_GROUP_DATA_INTERFACE* CreateNodeGroupData() override;
  SCENE_GRAPH_MESH_DATA_INTERFACE* CreateNodeMeshData() override;
  void DeleteNodeGroupData() override { groupData.reset(); }
  void DeleteNodeMeshData() override { meshData.reset(); }
  const SCENE_GRAPH_GROUP_DATA_INTERFACE* GetNodeGroupData() const override { return groupData.get(); }
  SCENE_GRAPH_GROUP_DATA_INTERFACE* GetNodeGroupData() override { return groupData.get(); }
  const SCENE_GRAPH_MESH_DATA_INTERFACE* GetNodeMeshData() const override { return meshData.get(); }
  SCENE_GRAPH_MESH_DATA_INTERFACE* GetNodeMeshData() override { return meshData.get(); }
  bool IsNodeInSubtree(const SCENE_GRAPH_NODE_INTERFACE* node) const override;
  unsigned int GetNumberOfParentNodes() const override { return static_cast<unsigned int>(parents.size()); }
  void* GetNodeUserData() const override { return userData; }
  void SetNodeUserData(void* data) override { userData = data; }
  void ActivateNode(bool active) override { this->active = active; }
  bool IsNodeActive() const override { return active; }

 private:
  std::string name;
  std::vector<SCENE_GRAPH_NODE_INTERFACE*> parents;   // not owned
  std::vector<SCENE_GRAPH_NODE_INTERFACE*> children;  // shared with their other parents
  std::unique_ptr<SCENE_GRAPH_GROUP_DATA> groupData;
  std::unique_ptr<SCENE_GRAPH_MESH_DATA> meshData;
  void* userData = nullptr;
  bool active = true;
};

// Owns a scene: the root node and everything reachable from it.
class SCENE_GRAPH {
 public:
  // The renderer looks the root up under this name.
  static constexpr const char* RootNodeName = "Scene Graph Root";

  SCENE_GRAPH();
  SCENE_GRAPH(const SCENE_GRAPH&) = delete;
  SCENE_GRAPH& operator=(const SCENE_GRAPH&) = delete;

  // The root for RootNodeName, whatever the root is called now; otherwise
  // the first node of that name, depth first from the root. Null for null
  // or an unknown name.
  SCENE_GRAPH_NODE_INTERFACE* GetSceneGraphNode(const char* name);
  SCENE_GRAPH_NODE* GetRootNode() { return &root; }

 private:
  SCENE_GRAPH_NODE root;
};
