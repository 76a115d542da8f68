#include "accel/KDWalkLayout.h"

#include "accel/KDTree.h"

namespace {

constexpr uint32_t LeafTag = 3;
// The largest index that fits beside the two tag bits.
constexpr uint64_t MaxPacked = (uint64_t(1) << 30) - 1;

struct Pending {
  uint32_t source;  // index in the tree's nodes
  uint32_t parent;  // walk node whose upper child this is, or NoParent
  uint32_t depth;   // root 0
};
constexpr uint32_t NoParent = UINT32_MAX;
}  // namespace

void KDWalkLayout::Clear() {
  nodes.clear();
  nodes.shrink_to_fit();
  leafEntries.clear();
  leafEntries.shrink_to_fit();
  sourceNodes = sourceLeafTriangles = sourceTriangles = nullptr;
  sourceNodeCount = sourceLeafTriangleCount = sourceTriangleCount = 0;
}

void KDWalkLayout::Make(const KDTree& tree) {
  Clear();
  if (tree.nodes.empty() || tree.nodes.size() > MaxPacked) return;
  if (!Lay(tree)) {
    Clear();
    return;
  }
  nodes.shrink_to_fit();
  leafEntries.shrink_to_fit();
  sourceNodes = tree.nodes.data();
  sourceLeafTriangles = tree.leafTriangles.data();
  sourceTriangles = tree.triangles.data();
  sourceNodeCount = tree.nodes.size();
  sourceLeafTriangleCount = tree.leafTriangles.size();
  sourceTriangleCount = tree.triangles.size();
}

size_t KDWalkLayout::Bytes() const {
  return nodes.capacity() * sizeof(KDWalkNode) + leafEntries.capacity() * sizeof(uint32_t);
}

// Depth first, lower child first: each node is written when it is taken from
// the stack, and an upper child patches its parent's index when its turn
// comes, after the whole lower subtree.
bool KDWalkLayout::Lay(const KDTree& tree) {
  const size_t count = tree.nodes.size();
  nodes.reserve(count);
  leafEntries.reserve(tree.leafTriangles.size());
  std::vector<Pending> stack{{0, NoParent, 0}};
  while (!stack.empty()) {
    const Pending next = stack.back();
    stack.pop_back();
    // Children lie after their parent, so no node can be reached twice
    // through a cycle; a node shared by two parents would still come twice.
    if (nodes.size() >= count) return false;
    const uint32_t here = uint32_t(nodes.size());
    if (next.parent != NoParent) nodes[next.parent].childAndAxis |= here << 2;
    const KDNode source = tree.nodes[next.source];
    const uint32_t word = source.childAndAxis;
    KDWalkNode node;
    if ((word & 3) == LeafTag) {
      if (!CopyLeaf(tree, word >> 2, source.splitOrCount, node)) return false;
      nodes.push_back(node);
      continue;
    }
    const uint64_t first = word >> 2;
    if (first <= next.source || first + 1 >= count || next.depth + 1 > MaxDepth) return false;
    node.childAndAxis = word & 3;  // the upper child's index comes later
    node.splitOrCount = source.splitOrCount;
    nodes.push_back(node);
    stack.push_back({uint32_t(first + 1), here, next.depth + 1});
    stack.push_back({uint32_t(first), NoParent, next.depth + 1});
  }
  return true;
}

// The numbers of the records the leaf test would look at, in its order,
// without the ones it would skip. A run that reaches past leafTriangles
// holds nothing, as there.
bool KDWalkLayout::CopyLeaf(const KDTree& tree, uint32_t first, uint32_t count, KDWalkNode& leaf) {
  if (leafEntries.size() > MaxPacked) return false;
  leaf.childAndAxis = uint32_t(leafEntries.size()) << 2 | LeafTag;
  const uint64_t end = uint64_t(first) + count;
  if (count == 0 || end - 1 >= tree.leafTriangles.size()) {
    leaf.splitOrCount = 0;
    return true;
  }
  const size_t start = leafEntries.size();
  for (uint64_t entry = first; entry < end; ++entry) {
    const uint32_t number = tree.leafTriangles[entry];
    if (number >= tree.triangles.size()) continue;
    const SWTriangle& tri = tree.triangles[number];
    if (tri.degenerate != 0 || tri.dominantAxis > 2) continue;
    leafEntries.push_back(number);
  }
  const size_t kept = leafEntries.size() - start;
  if (kept > MaxPacked) return false;  // the count would reach the inline flag
  leaf.splitOrCount = uint32_t(kept);
  const bool fits = (kept == 1 || kept == 2) && leafEntries[start] <= MaxPacked &&
                    (kept == 1 || leafEntries[start + 1] < KDWalkNode::NoSecond);
  if (fits) {
    leaf.childAndAxis = leafEntries[start] << 2 | LeafTag;
    leaf.splitOrCount = KDWalkNode::InlineLeaf | (kept == 2 ? leafEntries[start + 1] : KDWalkNode::NoSecond);
    leafEntries.resize(start);
  }
  return true;
}
