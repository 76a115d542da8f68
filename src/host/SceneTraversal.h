// Walking a scene graph with a visitor.
#pragma once

#include "host/SceneGraph.h"

// Base of every scene-graph visitor. TraverseSceneGraph brackets each node:
// TraversalEnterNode comes first; only if it answers true do the node's mesh
// and its children get visited, and then TraversalLeaveNode ends the node. A
// node whose enter answered false gets no leave, because the visitor pushed
// nothing for it.
class TRAVERSE_SCENE_GRAPH {
 public:
  virtual bool TraversalEnterNode(SCENE_GRAPH_NODE_INTERFACE*) { return true; }
  // Called only for nodes that carry mesh data.
  virtual void TraversalVisitMesh(SCENE_GRAPH_NODE_INTERFACE*) {}
  virtual void TraversalLeaveNode(SCENE_GRAPH_NODE_INTERFACE*) {}
  // Asked once at the start of a walk: true visits a node's mesh before its
  // children, false after them.
  virtual bool TraversalQueryTrue() const { return true; }
  // Asked before each node is entered: true ends the walk there. The nodes
  // already entered are still left, innermost first, so that whatever the
  // visitor pushed is popped again.
  virtual bool TraversalQueryFalse() const { return false; }
  virtual ~TRAVERSE_SCENE_GRAPH() = default;
};

// Visits `node` and its subtree, children in order. A node placed under
// several parents is visited once for each placement. Nothing happens for a
// null node or visitor.
void TraverseSceneGraph(SCENE_GRAPH_NODE_INTERFACE* node, TRAVERSE_SCENE_GRAPH* visitor);
