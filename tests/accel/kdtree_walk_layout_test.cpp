// The walk layout is made only for trees whose waiting far children fit the
// walk's fixed stack: one entry per level below the root.
#include <gtest/gtest.h>

#include "accel/KDTree.h"
#include "TraversalTestHelpers.h"

namespace {

// A chain `levels` deep: inner node 2i splits x at i, its lower child 2i + 1
// an empty leaf and its upper child the next inner node; the last upper
// child, at depth `levels`, is the leaf of the one triangle.
KDTree Chain(uint32_t levels) {
  KDTree tree = OneLeaf({Triangle({0, 0, 0}, {1, 0, 0}, {0, 1, 0}, 7)});
  tree.nodes.clear();
  for (uint32_t level = 0; level < levels; ++level) {
    tree.nodes.push_back(Inner(0, 2 * level + 1, float(level)));
    tree.nodes.push_back(Leaf(0, 0));
  }
  tree.nodes.push_back(Leaf(0, 1));
  return tree;
}

}  // namespace

TEST(KDWalkLayout, LaysOutTreesAsDeepAsItsStack) {
  // The deepest waiting entries are one per level from 1 to the depth of the
  // deepest node, so 64 levels fit the 64 entries and 65 do not.
  struct Case {
    uint32_t levels;
    bool laid;
  };
  for (const Case& c : {Case{1, true}, Case{64, true}, Case{65, false}, Case{80, false}}) {
    const KDTree tree = Chain(c.levels);
    KDWalkLayout layout;
    layout.Make(tree);
    EXPECT_EQ(layout.Matches(tree), c.laid) << c.levels << " levels";
    // Every node is laid out once, in walk order: the chain is already
    // depth first, so the last one is the triangle's leaf.
    EXPECT_EQ(layout.nodes.size(), c.laid ? tree.nodes.size() : 0u) << c.levels << " levels";
    if (c.laid) {
      EXPECT_EQ(layout.nodes.back().childAndAxis & 3, 3u) << c.levels << " levels";
    }
  }
}
