#include "host/SceneGraph.h"

#include <algorithm>
#include <unordered_set>
#include <vector>

SCENE_GRAPH_NODE::SCENE_GRAPH_NODE(const char* name) : name(name ? name : "") {}

SCENE_GRAPH_NODE::~SCENE_GRAPH_NODE() {
  for (SCENE_GRAPH_NODE_INTERFACE* child : children)
    if (child->DetachFromParent(this) == 0) delete child;
}

SCENE_GRAPH_NODE_INTERFACE* SCENE_GRAPH_NODE::GetParentNode() const {
  return parents.empty() ? nullptr : parents.front();
}

SCENE_GRAPH_NODE_INTERFACE* SCENE_GRAPH_NODE::GetChildNode(unsigned int index) const {
  return index < children.size() ? children[index] : nullptr;
}

bool SCENE_GRAPH_NODE::AddChildNode(SCENE_GRAPH_NODE_INTERFACE* child) {
  if (!child || std::find(children.begin(), children.end(), child) != children.end()) return false;
  if (child->IsNodeInSubtree(this)) return false;
  children.push_back(child);
  child->AttachToParent(this);
  return true;
}

SCENE_GRAPH_NODE_INTERFACE* SCENE_GRAPH_NODE::DetachChildNode(SCENE_GRAPH_NODE_INTERFACE* child) {
  auto found = std::find(children.begin(), children.end(), child);
  if (!child || found == children.end()) return nullptr;
  children.erase(found);
  return child->DetachFromParent(this) == 0 ? child : nullptr;
}

bool SCENE_GRAPH_NODE::DeleteChildNode(SCENE_GRAPH_NODE_INTERFACE* child) {
  if (!child || std::find(children.begin(), children.end(), child) == children.end()) return false;
  delete DetachChildNode(child);
  return true;
}

unsigned int SCENE_GRAPH_NODE::AttachToParent(SCENE_GRAPH_NODE_INTERFACE* parent) {
  if (parent) parents.push_back(parent);
  return GetNumberOfParentNodes();
}

unsigned int SCENE_GRAPH_NODE::DetachFromParent(SCENE_GRAPH_NODE_INTERFACE* parent) {
  auto found = std::find(parents.begin(), parents.end(), parent);
  if (found != parents.end()) parents.erase(found);
  return GetNumberOfParentNodes();
}

// Depth first from `start`, each node once however often it is placed,
// until `match` answers true; gives that node or null. Shared subtrees would
// otherwise be searched once per placement.
template <typename Match>
static SCENE_GRAPH_NODE_INTERFACE* SearchSubtree(SCENE_GRAPH_NODE_INTERFACE* start, Match match) {
  std::vector<SCENE_GRAPH_NODE_INTERFACE*> pending{start};
  std::unordered_set<const SCENE_GRAPH_NODE_INTERFACE*> seen{start};
  while (!pending.empty()) {
    SCENE_GRAPH_NODE_INTERFACE* node = pending.back();
    pending.pop_back();
    if (match(node)) return node;
    // Pushed in reverse so that the first child is searched first.
    for (unsigned int i = node->GetNumberOfChildNodes(); i-- > 0;) {
      SCENE_GRAPH_NODE_INTERFACE* child = node->GetChildNode(i);
      if (child && seen.insert(child).second) pending.push_back(child);
    }
  }
  return nullptr;
}

SCENE_GRAPH_NODE_INTERFACE* SCENE_GRAPH_NODE::FindNode(const char* name) {
  if (!name) return nullptr;
  return SearchSubtree(this, [name](SCENE_GRAPH_NODE_INTERFACE* node) {
    return node->GetNodeName() == std::string_view(name);
  });
}

bool SCENE_GRAPH_NODE::IsNodeInSubtree(const SCENE_GRAPH_NODE_INTERFACE* node) const {
  if (!node) return false;
  // The search only reads; it takes a mutable pointer because the children
  // it hands out are mutable.
  auto* self = const_cast<SCENE_GRAPH_NODE*>(this);
  return SearchSubtree(self, [node](SCENE_GRAPH_NODE_INTERFACE* candidate) { return candidate == node; });
}

SCENE_GRAPH_GROUP_DATA_INTERFACE* SCENE_GRAPH_NODE::CreateNodeGroupData() {
  if (!groupData) groupData = std::make_unique<SCENE_GRAPH_GROUP_DATA>();
  return groupData.get();
}

SCENE_GRAPH_MESH_DATA_INTERFACE* SCENE_GRAPH_NODE::CreateNodeMeshData() {
  if (!meshData) meshData = std::make_unique<SCENE_GRAPH_MESH_DATA>();
  return meshData.get();
}

SCENE_GRAPH::SCENE_GRAPH() : root(RootNodeName) {}

SCENE_GRAPH_NODE_INTERFACE* SCENE_GRAPH::GetSceneGraphNode(const char* name) {
  if (!name) return nullptr;
  if (std::string_view(name) == RootNodeName) return &root;
  return root.FindNode(name);
}
