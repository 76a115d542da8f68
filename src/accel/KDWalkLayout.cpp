#include "accel/KDWalkLayout.h"

#include <algorithm>
#include <atomic>

#include "accel/KDParallel.h"
#include "accel/KDTree.h"
#include "accel/SplitOrder.h"

namespace {

constexpr uint32_t LeafTag = 3;
// The largest index that fits beside the two tag bits.
constexpr uint64_t MaxPacked = (uint64_t(1) << 30) - 1;
// Laid out on more than one thread, the subtrees below this depth are the
// pieces: up to 64 of them, so that the threads stay evenly loaded however
// uneven the tree.
constexpr uint32_t PieceDepth = 6;

struct Pending {
  uint32_t source;  // index in the tree's nodes
  uint32_t parent;  // walk node whose upper child this is, or NoParent
  uint32_t depth;   // root 0
};
constexpr uint32_t NoParent = UINT32_MAX;

// Nodes and leaf entries numbered from 0, for the whole tree or one subtree.
struct Laid {
  std::vector<KDWalkNode> nodes;
  std::vector<uint32_t> entries;
  // The entries laid before the last leaf was begun (the largest start of a
  // leaf), or -1 without a leaf: with the entries before a piece added, it
  // must still fit a packed field.
  int64_t lastLeafStart = -1;
};

// The tree and, per triangle number, whether the leaf test looks at that
// record at all (1) or skips it (0). Asking the records themselves, as a
// leaf's numbers come, would cost a cache miss for most entries, as the
// numbers jump across all the records; the marks of a million triangles
// fit in the processor's cache, and are made in one pass in storage order.
struct Source {
  const KDTree& tree;
  std::vector<uint8_t> tested;
};

void MarkTested(const KDTree& tree, size_t begin, size_t end, std::vector<uint8_t>& tested) {
  for (size_t i = begin; i < end; ++i) {
    const SWTriangle& tri = tree.triangles[i];
    tested[i] = tri.degenerate == 0 && tri.dominantAxis <= 2;
  }
}

Source MakeSource(const KDTree& tree, size_t threads) {
  Source source{tree, std::vector<uint8_t>(tree.triangles.size())};
  const size_t count = tree.triangles.size();
  if (threads > 1)
    RunParts(threads, [&](size_t part) {
      MarkTested(tree, count * part / threads, count * (part + 1) / threads, source.tested);
    });
  else
    MarkTested(tree, 0, count, source.tested);
  return source;
}

bool IsInline(const KDWalkNode& node) {
  return (node.childAndAxis & 3) == LeafTag && (node.splitOrCount & KDWalkNode::InlineLeaf);
}

// The numbers of the records the leaf test would look at, in its order,
// without the ones it would skip. A run that reaches past leafTriangles
// holds nothing, as there.
bool CopyLeaf(const Source& source, uint32_t first, uint32_t count, Laid& out, KDWalkNode& leaf) {
  const KDTree& tree = source.tree;
  std::vector<uint32_t>& entries = out.entries;
  if (entries.size() > MaxPacked) return false;
  out.lastLeafStart = int64_t(entries.size());
  leaf.childAndAxis = uint32_t(entries.size()) << 2 | LeafTag;
  const uint64_t end = uint64_t(first) + count;
  if (count == 0 || end - 1 >= tree.leafTriangles.size()) {
    leaf.splitOrCount = 0;
    return true;
  }
  const size_t start = entries.size();
  for (uint64_t entry = first; entry < end; ++entry) {
    const uint32_t number = tree.leafTriangles[entry];
    if (number < source.tested.size() && source.tested[number]) entries.push_back(number);
  }
  const size_t kept = entries.size() - start;
  if (kept > MaxPacked) return false;  // the count would reach the inline flag
  leaf.splitOrCount = uint32_t(kept);
  const bool fits = (kept == 1 || kept == 2) && entries[start] <= MaxPacked &&
                    (kept == 1 || entries[start + 1] < KDWalkNode::NoSecond);
  if (fits) {
    leaf.childAndAxis = entries[start] << 2 | LeafTag;
    leaf.splitOrCount = KDWalkNode::InlineLeaf | (kept == 2 ? entries[start + 1] : KDWalkNode::NoSecond);
    entries.resize(start);
  }
  return true;
}

// Lays out the subtree of tree node `root` at `depth` into `out`: depth
// first, lower child first; each node is written when it is taken from the
// stack, and an upper child patches its parent's index when its turn comes,
// after the whole lower subtree. An inner node at `cut` is handed to `atCut`
// (the walk node's index, the source index) instead of being laid out, and
// `atCut` lays out its subtree. False when the tree cannot be laid out, or
// more than `count` nodes would be.
template <typename AtCut>
bool LaySubtree(const Source& source, uint32_t root, uint32_t depth, uint32_t cut, AtCut atCut, Laid& out) {
  const KDTree& tree = source.tree;
  const size_t count = tree.nodes.size();
  std::vector<KDWalkNode>& nodes = out.nodes;
  std::vector<Pending> stack{{root, NoParent, depth}};
  while (!stack.empty()) {
    const Pending next = stack.back();
    stack.pop_back();
    // Children lie after their parent, so no node can be reached twice
    // through a cycle; a node shared by two parents would still come twice.
    if (nodes.size() >= count) return false;
    const uint32_t here = uint32_t(nodes.size());
    if (next.parent != NoParent) nodes[next.parent].childAndAxis |= here << 2;
    const KDNode from = tree.nodes[next.source];
    const uint32_t word = from.childAndAxis;
    KDWalkNode node;
    if ((word & 3) == LeafTag) {
      if (!CopyLeaf(source, word >> 2, from.splitOrCount, out, node)) return false;
      nodes.push_back(node);
      continue;
    }
    if (next.depth == cut) {
      if (!atCut(next.source)) return false;
      continue;
    }
    const uint64_t first = word >> 2;
    if (first <= next.source || first + 1 >= count || next.depth + 1 > KDWalkLayout::MaxDepth ||
        !HasSplitKey(from.splitOrCount))
      return false;
    node.childAndAxis = word & 3;  // the upper child's index comes later
    node.splitOrCount = from.splitOrCount;
    nodes.push_back(node);
    stack.push_back({uint32_t(first + 1), here, next.depth + 1});
    stack.push_back({uint32_t(first), NoParent, next.depth + 1});
  }
  return true;
}

// Appends a piece laid out from 0, moving its indices by the nodes and
// entries already in `out`. An inline leaf holds triangle numbers, which
// stay. False where the one-thread layout would have stopped: a leaf start
// past the packed field, or more nodes than the tree has.
bool AppendPiece(const Laid& piece, size_t count, Laid& out) {
  const uint64_t nodeShift = out.nodes.size(), entryShift = out.entries.size();
  if (piece.lastLeafStart >= 0 && entryShift + uint64_t(piece.lastLeafStart) > MaxPacked) return false;
  if (nodeShift + piece.nodes.size() > count) return false;
  for (KDWalkNode node : piece.nodes) {
    if ((node.childAndAxis & 3) != LeafTag)
      node.childAndAxis += uint32_t(nodeShift << 2);
    else if (!IsInline(node))
      node.childAndAxis += uint32_t(entryShift << 2);
    out.nodes.push_back(node);
  }
  if (piece.lastLeafStart >= 0) out.lastLeafStart = int64_t(entryShift) + piece.lastLeafStart;
  out.entries.insert(out.entries.end(), piece.entries.begin(), piece.entries.end());
  return true;
}

constexpr uint32_t NoCut = UINT32_MAX;

bool LayOneThread(const KDTree& tree, Laid& out) {
  const Source source = MakeSource(tree, 1);
  out.nodes.reserve(tree.nodes.size());
  out.entries.reserve(tree.leafTriangles.size());
  return LaySubtree(
      source, 0, 0, NoCut, [](uint32_t) { return false; }, out);
}

// The subtrees at PieceDepth are laid out on `threads` threads, each piece
// numbered from 0, and then put in their places in the one-thread order:
// the same nodes and entries, byte for byte.
bool LayOnThreads(const KDTree& tree, size_t threads, Laid& out) {
  const Source source = MakeSource(tree, threads);
  std::vector<uint32_t> roots;
  Laid top;
  const auto gather = [&](uint32_t source) {
    roots.push_back(source);
    return true;
  };
  if (!LaySubtree(source, 0, 0, PieceDepth, gather, top)) return false;
  if (roots.empty()) {
    out = std::move(top);
    return true;
  }

  std::vector<Laid> pieces(roots.size());
  std::vector<char> laid(roots.size(), 0);
  std::atomic<size_t> nextPiece{0};
  RunParts(threads, [&](size_t) {
    for (size_t i; (i = nextPiece.fetch_add(1)) < roots.size();)
      laid[i] = LaySubtree(
          source, roots[i], PieceDepth, NoCut, [](uint32_t) { return false; }, pieces[i]);
  });
  for (char ok : laid)
    if (!ok) return false;

  size_t entries = top.entries.size();
  for (const Laid& piece : pieces) entries += piece.entries.size();
  out.nodes.reserve(tree.nodes.size());
  out.entries.reserve(entries);
  size_t nextRoot = 0;
  const auto place = [&](uint32_t) { return AppendPiece(pieces[nextRoot++], tree.nodes.size(), out); };
  return LaySubtree(source, 0, 0, PieceDepth, place, out);
}

// The walk takes node steps by masks only for a ray that starts far from
// the rays before it, and only in trees of this many nodes: below, a walk
// is a few steps, and the choice would cost more than it saves; above (2 MiB
// of nodes, this processor's second-level cache), a step by masks waits for
// its node before it asks for the next, where a guessed jump asks at once,
// and a node missing from the cache costs more than a wrong guess (random
// rays in the 1M town, 377,757 nodes, lost 6% by masks, and 12% with both
// children loaded ahead; the 100k town, 129,147, and 2CylinderEngine,
// 184,733, did not).
constexpr size_t FewestMaskedNodes = 64;
constexpr size_t MostMaskedNodes = (size_t(2) << 20) / sizeof(KDWalkNode);

double NearOrigin(const KDTree& tree, size_t nodes) {
  if (nodes < FewestMaskedNodes || nodes > MostMaskedNodes) return 0.0;
  const double sides[3] = {double(tree.boundsMax.x) - tree.boundsMin.x,
                           double(tree.boundsMax.y) - tree.boundsMin.y,
                           double(tree.boundsMax.z) - tree.boundsMin.z};
  // A box still at its start value (no triangles) has negative sides: 0.
  return std::max({sides[0], sides[1], sides[2], 0.0}) / 32;
}

}  // namespace

void KDWalkLayout::Clear() {
  nodes.clear();
  nodes.shrink_to_fit();
  leafEntries.clear();
  leafEntries.shrink_to_fit();
  nearOrigin = 0.0;
  sourceNodes = sourceLeafTriangles = sourceTriangles = nullptr;
  sourceNodeCount = sourceLeafTriangleCount = sourceTriangleCount = 0;
}

void KDWalkLayout::Make(const KDTree& tree, size_t threads) {
  Clear();
  if (tree.nodes.empty() || tree.nodes.size() > MaxPacked) return;
  Laid laid;
  if (!(threads > 1 ? LayOnThreads(tree, threads, laid) : LayOneThread(tree, laid))) return;
  nodes = std::move(laid.nodes);
  leafEntries = std::move(laid.entries);
  nodes.shrink_to_fit();
  leafEntries.shrink_to_fit();
  nearOrigin = NearOrigin(tree, nodes.size());
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
