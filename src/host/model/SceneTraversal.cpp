#include "host/SceneTraversal.h"

#include <algorithm>
#include <vector>

namespace {

// One entered node on the walk's own stack; an explicit stack keeps deep
// scenes from exhausting the thread's stack.
struct EnteredNode {
  SCENE_GRAPH_NODE_INTERFACE* node;
  unsigned int nextChild = 0;
  bool meshVisited = false;
};

class SceneWalk {
 public:
  explicit SceneWalk(TRAVERSE_SCENE_GRAPH* visitor)
      : visitor(visitor), meshFirst(visitor->TraversalQueryTrue()) {}

  void Run(SCENE_GRAPH_NODE_INTERFACE* start) {
    Enter(start);
    while (!entered.empty()) Step();
  }

 private:
  void Enter(SCENE_GRAPH_NODE_INTERFACE* node) {
    if (!stopped) stopped = visitor->TraversalQueryFalse();
    if (stopped) return;
    if (visitor->TraversalEnterNode(node)) entered.push_back({node});
  }

  // A node already on the stack would be its own ancestor: only a foreign
  // node class can make such a cycle, and walking it would never end.
  bool IsEntered(SCENE_GRAPH_NODE_INTERFACE* node) const {
    return std::any_of(entered.begin(), entered.end(),
                       [node](const EnteredNode& e) { return e.node == node; });
  }

  void VisitMesh(EnteredNode& top) {
    top.meshVisited = true;
    if (top.node->GetNodeMeshData()) visitor->TraversalVisitMesh(top.node);
  }

  void Step() {
    EnteredNode& top = entered.back();
    if (meshFirst && !top.meshVisited) return VisitMesh(top);
    if (!stopped && top.nextChild < top.node->GetNumberOfChildNodes()) {
      SCENE_GRAPH_NODE_INTERFACE* child = top.node->GetChildNode(top.nextChild++);
      if (child && !IsEntered(child)) Enter(child);
      return;
    }
    if (!stopped && !top.meshVisited) return VisitMesh(top);
    SCENE_GRAPH_NODE_INTERFACE* node = top.node;
    entered.pop_back();
    visitor->TraversalLeaveNode(node);
  }

  TRAVERSE_SCENE_GRAPH* visitor;
  bool meshFirst;
  bool stopped = false;
  std::vector<EnteredNode> entered;
};

}  // namespace

void TraverseSceneGraph(SCENE_GRAPH_NODE_INTERFACE* node, TRAVERSE_SCENE_GRAPH* visitor) {
  if (node && visitor) SceneWalk(visitor).Run(node);
}
