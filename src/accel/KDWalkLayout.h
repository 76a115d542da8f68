// A second layout of a built kd-tree's nodes, made only for the nearest-hit
// walk: nodes in depth-first order with the lower child right after its
// parent, so that one of the two children of every step is usually in the
// cache line already loaded, and leaf runs without the entries the test
// would skip. The walk over it makes the same steps and the same triangle
// tests, in the same order, as the walk over `nodes` and `leafTriangles`,
// so every hit record is the same; it only saves cache misses and checks.
// The triangle records are the tree's own: a copy of them in walk order
// took as much memory again as the whole tree and was no faster that
// alternating runs could tell.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

class KDTree;

// Inner node: low two bits the split axis, the rest the index of the upper
// child (the lower child is the next node); splitOrCount the plane's float.
// Leaf: low two bits 3, the rest the first entry in `leafEntries`;
// splitOrCount the count of entries. A leaf of one or two triangles holds
// their numbers itself, which spares the walk a load from `leafEntries`
// (as often a cache miss as the node): InlineLeaf set in splitOrCount, the
// first number in the upper 30 bits of childAndAxis, the second in the rest
// of splitOrCount, or NoSecond.
struct KDWalkNode {
  static constexpr uint32_t InlineLeaf = 0x80000000u;
  static constexpr uint32_t NoSecond = 0x7fffffffu;

  uint32_t childAndAxis = 0;
  uint32_t splitOrCount = 0;
};

class KDWalkLayout {
 public:
  // The deepest tree that is laid out (the build stops at 20 levels): the
  // walk over the layout keeps its stack in this many fixed entries.
  static constexpr size_t MaxDepth = 64;

  // Lays out `tree`; leaves the layout empty when the tree has no nodes or
  // cannot be laid out: a child index that does not lie after its parent and
  // inside `nodes`, a node reached twice, a tree deeper than MaxDepth, an
  // index that does not fit the 30 bits of a packed field, or a plane that
  // is NaN or subnormal (from coordinates that are not numbers, or nearer 0
  // than 1.2e-38 but not 0): the walk over the layout compares planes as
  // integers (SplitOrder.h). The walk then uses the tree's own fields.
  // With `threads` above 1 the subtrees a few levels down are laid out on
  // that many threads at once, for processors that would otherwise sleep;
  // the layout is the same, byte for byte.
  void Make(const KDTree& tree, size_t threads = 1);
  void Clear();
  // True when the layout was made from the vectors `tree` holds now. A tree
  // whose fields were replaced or resized since does not match; in this
  // engine only Build and Clear write a tree's fields, and both renew the
  // layout, so edits in place are not looked for. Asked on every ray, so it
  // is defined inline where KDTree is complete (KDTree.h).
  bool Matches(const KDTree& tree) const;
  size_t Bytes() const;

  std::vector<KDWalkNode> nodes;      // element 0 is the root
  std::vector<uint32_t> leafEntries;  // one run per leaf, triangle numbers
  // Two ray origins closer than this on every axis count as near when the
  // walk chooses how to take its node steps (by jumps, or by masks for a ray
  // that starts far from the rays before it): 1/32 of the tree box's
  // largest side. 0 where every ray takes jumps. It plays no part in any
  // result.
  double nearOrigin = 0.0;

 private:
  const void* sourceNodes = nullptr;
  const void* sourceLeafTriangles = nullptr;
  const void* sourceTriangles = nullptr;
  size_t sourceNodeCount = 0;
  size_t sourceLeafTriangleCount = 0;
  size_t sourceTriangleCount = 0;
};
