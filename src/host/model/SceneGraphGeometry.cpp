// Where nodes and meshes lie: world matrices, boxes and centres.
#include "host/SceneGraph.h"

#include <algorithm>
#include <limits>
#include <vector>

#include "host/BrindlexViewMath.h"
#include "host/SceneTraversal.h"

namespace {

// A box that grows over points; it stays empty until the first one.
struct BoxBuilder {
  SCENE_VERTEX_XYZ min{std::numeric_limits<float>::max(), std::numeric_limits<float>::max(),
                       std::numeric_limits<float>::max()};
  SCENE_VERTEX_XYZ max{-min.x, -min.y, -min.z};
  bool empty = true;

  void Add(const SCENE_VERTEX_XYZ& p) {
    min = {std::min(min.x, p.x), std::min(min.y, p.y), std::min(min.z, p.z)};
    max = {std::max(max.x, p.x), std::max(max.y, p.y), std::max(max.z, p.z)};
    empty = false;
  }

  // An empty box is reported as the point at the origin, so that callers
  // that size cameras or lights from it get finite numbers.
  bool Store(SCENE_VERTEX_XYZ* outMin, SCENE_VERTEX_XYZ* outMax) const {
    *outMin = empty ? SCENE_VERTEX_XYZ{} : min;
    *outMax = empty ? SCENE_VERTEX_XYZ{} : max;
    return !empty;
  }
};

void AddMesh(const SCENE_GRAPH_MESH_DATA_INTERFACE& mesh, const SCENE_MATRIX& matrix, BoxBuilder& box) {
  const SCENE_VERTEX* vertices = mesh.GetMeshVertices();
  for (unsigned int i = 0; vertices && i < mesh.GetMeshVertexCount(); ++i) {
    SCENE_VERTEX_XYZ p;
    TransformPoint3D(&matrix, &vertices[i].position, &p);
    box.Add(p);
  }
}

// Grows a box over every placement of every mesh, walked as the renderer
// walks the graph, so the box is the box of what is drawn.
class BoundsVisitor : public TRAVERSE_SCENE_GRAPH {
 public:
  explicit BoundsVisitor(bool activeOnly) : activeOnly(activeOnly) {
    matrices.emplace_back();
    GetIdentityMatrix(&matrices.back());
  }

  bool TraversalEnterNode(SCENE_GRAPH_NODE_INTERFACE* node) override {
    if (activeOnly && !node->IsNodeActive()) return false;
    SCENE_MATRIX matrix = matrices.back();
    const SCENE_GRAPH_GROUP_DATA_INTERFACE* group = node->GetNodeGroupData();
    if (group && group->GetGroupMatrix()) {
      matrix = *group->GetGroupMatrix();
      MatrixMultiply(&matrices.back(), &matrix);
    }
    matrices.push_back(matrix);
    return true;
  }
  void TraversalVisitMesh(SCENE_GRAPH_NODE_INTERFACE* node) override {
    AddMesh(*node->GetNodeMeshData(), matrices.back(), box);
  }
  void TraversalLeaveNode(SCENE_GRAPH_NODE_INTERFACE*) override { matrices.pop_back(); }

  BoxBuilder box;

 private:
  bool activeOnly;
  std::vector<SCENE_MATRIX> matrices;
};

}  // namespace

bool SCENE_GRAPH_MESH_DATA::GetMeshBounds(SCENE_VERTEX_XYZ* min, SCENE_VERTEX_XYZ* max) const {
  if (!min || !max) return false;
  BoxBuilder box;
  for (const SCENE_VERTEX& vertex : vertices) box.Add(vertex.position);
  return box.Store(min, max);
}

bool SCENE_GRAPH_NODE::GetNodeBounds(SCENE_VERTEX_XYZ* min, SCENE_VERTEX_XYZ* max, bool activeOnly) const {
  if (!min || !max) return false;
  BoundsVisitor visitor(activeOnly);
  // The walk only reads; it hands out mutable nodes because visitors in
  // general may change them.
  TraverseSceneGraph(const_cast<SCENE_GRAPH_NODE*>(this), &visitor);
  return visitor.box.Store(min, max);
}

SCENE_VERTEX_XYZ SCENE_GRAPH_NODE::GetNodeCenter(SCENE_VERTEX_XYZ* point, bool activeOnly) const {
  SCENE_VERTEX_XYZ min, max;
  GetNodeBounds(&min, &max, activeOnly);
  SCENE_VERTEX_XYZ center{(min.x + max.x) * 0.5f, (min.y + max.y) * 0.5f, (min.z + max.z) * 0.5f};
  if (point) *point = center;
  return center;
}

bool SCENE_GRAPH_NODE::GetNodeWorldMatrix(SCENE_MATRIX* matrix) const {
  if (!matrix) return false;
  GetIdentityMatrix(matrix);
  // Climbing up, each parent's matrix is the outer factor.
  for (const SCENE_GRAPH_NODE_INTERFACE* node = this; node; node = node->GetParentNode()) {
    const SCENE_GRAPH_GROUP_DATA_INTERFACE* group = node->GetNodeGroupData();
    if (group && group->GetGroupMatrix()) MatrixMultiply(group->GetGroupMatrix(), matrix);
  }
  return true;
}
