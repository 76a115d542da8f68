// A second layout of a built kd-tree, made only for the nearest-hit walk:
// nodes in depth-first order with the lower child right after its parent,
// and the triangle records renumbered in the order the walk layout first
// meets them, aligned, so that the triangles of neighbouring leaves share
// cache lines. The walk over it makes the same steps and the same triangle
// tests, in the same order, as the walk over `nodes`, `leafTriangles` and
// `triangles`, so every hit record is the same; it only saves cache misses.
// Leaf runs index the records rather than copy them: a triangle lies in
// about two and a half leaves, and copies per leaf would cost 2.5 times the
// memory for some 15% more speed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "SWTriangle.h"

class KDTree;

// Inner node: low two bits the split axis, the rest the index of the upper
// child (the lower child is the next node); splitOrCount the plane's float.
// Leaf: low two bits 3, the rest the first entry in `leafEntries`;
// splitOrCount the count of entries.
struct KDWalkNode {
  uint32_t childAndAxis = 0;
  uint32_t splitOrCount = 0;
};

// The ray-test constants of one SWTriangle, aligned, with the dominant axis
// in the low two bits of `instanceAndAxis`: 80 bytes instead of 85, so that
// no record straddles more cache lines than it must. Only the triangles that
// the test could accept are copied (not degenerate, axis 0 to 2, number in
// range).
struct KDWalkTriangle {
  double normalU;
  double normalV;
  double planeD;
  double vertexU;
  double vertexV;
  double edge1U;
  double edge1NegV;
  double edge2V;
  double edge2NegU;
  uint32_t instanceAndAxis;  // instanceIndex << 2 | dominantAxis
  uint32_t triangleIndex;
};
static_assert(sizeof(KDWalkTriangle) == 80);

class KDWalkLayout {
 public:
  // Lays out `tree`; leaves the layout empty when the tree has no nodes or
  // cannot be laid out: a child index that does not lie after its parent and
  // inside `nodes`, a node reached twice, or an index that does not fit the
  // 30 bits of a packed field. The walk then uses the tree's own fields.
  void Make(const KDTree& tree);
  void Clear();
  // True when the layout was made from the vectors `tree` holds now. A tree
  // whose fields were replaced or resized since does not match; in this
  // engine only Build and Clear write a tree's fields, and both renew the
  // layout, so edits in place are not looked for.
  bool Matches(const KDTree& tree) const;
  size_t Bytes() const;

  std::vector<KDWalkNode> nodes;          // element 0 is the root
  std::vector<KDWalkTriangle> triangles;  // in the order the walk layout first meets them
  std::vector<uint32_t> leafEntries;      // one run per leaf, indices in `triangles`

 private:
  std::vector<uint32_t> renumber;  // scratch of Make: triangle number to record
  bool Lay(const KDTree& tree);
  bool CopyLeaf(const KDTree& tree, uint32_t first, uint32_t count, KDWalkNode& leaf);

  const void* sourceNodes = nullptr;
  const void* sourceLeafTriangles = nullptr;
  const void* sourceTriangles = nullptr;
  size_t sourceNodeCount = 0;
  size_t sourceLeafTriangleCount = 0;
  size_t sourceTriangleCount = 0;
};
