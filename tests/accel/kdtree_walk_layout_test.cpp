// The walk layout is made only for trees whose waiting far children fit the
// walk's fixed stack: one entry per level below the root.
#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <random>

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

// A tree of uneven shape, grown breadth first as the build numbers nodes
// (children after their parent, side by side): below the root's lower child
// mostly lower children split again, up to 30 levels deep, while the root's
// upper side stops after 4; leaves hold 0 to 5 entries, some of a
// degenerate triangle or past the records.
KDTree Uneven(uint32_t seed) {
  std::mt19937 random(seed);
  KDTree tree = OneLeaf({});
  for (uint32_t i = 0; i < 40; ++i) {
    tree.triangles.push_back(Triangle({0, 0, 0}, {1, 0, 0}, {0, 1, 0}, i));
    if (i % 7 == 3) tree.triangles.back().degenerate = 1;
  }
  tree.nodes = {KDNode{}};
  tree.leafTriangles.clear();
  struct Open {
    uint32_t node, depth;
    bool lowerSide, lowerChild;
  };
  std::vector<Open> open{{0, 0, true, true}};
  for (size_t next = 0; next < open.size(); ++next) {
    const Open o = open[next];
    const uint32_t deepest = o.lowerSide ? 30 : 4;
    const bool splits = o.lowerChild ? random() % 8 != 0 : random() % 3 == 0;
    if (o.depth > 0 && (o.depth >= deepest || !splits)) {
      const uint32_t count = random() % 6, first = uint32_t(tree.leafTriangles.size());
      for (uint32_t k = 0; k < count; ++k) tree.leafTriangles.push_back(random() % 44);
      tree.nodes[o.node] = Leaf(first, count);
      continue;
    }
    const uint32_t first = uint32_t(tree.nodes.size());
    tree.nodes[o.node] = Inner(random() % 3, first, float(random() % 100));
    tree.nodes.resize(first + 2);
    open.push_back({first, o.depth + 1, o.lowerSide, true});
    open.push_back({first + 1, o.depth + 1, o.depth != 0 && o.lowerSide, o.depth == 0});
  }
  return tree;
}

// What the walk sees, read from the layout by its own rules: for each node
// in depth-first order, lower child first, the axis and plane of an inner
// node, or a leaf's triangle numbers.
std::vector<std::vector<uint32_t>> Walk(const KDWalkLayout& layout) {
  std::vector<std::vector<uint32_t>> seen;
  std::vector<uint32_t> stack{0};
  while (!stack.empty() && seen.size() <= layout.nodes.size()) {
    const uint32_t here = stack.back();
    stack.pop_back();
    const KDWalkNode node = layout.nodes.at(here);
    const uint32_t tag = node.childAndAxis & 3;
    if (tag != 3) {
      seen.push_back({tag, node.splitOrCount});
      stack.push_back(node.childAndAxis >> 2);
      stack.push_back(here + 1);
      continue;
    }
    std::vector<uint32_t> leaf{3};
    if (node.splitOrCount & KDWalkNode::InlineLeaf) {
      leaf.push_back(node.childAndAxis >> 2);
      if ((node.splitOrCount & ~KDWalkNode::InlineLeaf) != KDWalkNode::NoSecond)
        leaf.push_back(node.splitOrCount & ~KDWalkNode::InlineLeaf);
    } else {
      for (uint32_t k = 0; k < node.splitOrCount; ++k)
        leaf.push_back(layout.leafEntries.at((node.childAndAxis >> 2) + k));
    }
    seen.push_back(leaf);
  }
  return seen;
}

// The same read from the tree itself, leaving out the entries that the leaf
// test skips (a degenerate triangle, a number past the records).
std::vector<std::vector<uint32_t>> Walk(const KDTree& tree) {
  std::vector<std::vector<uint32_t>> seen;
  std::vector<uint32_t> stack{0};
  while (!stack.empty()) {
    const KDNode node = tree.nodes[stack.back()];
    stack.pop_back();
    const uint32_t tag = node.childAndAxis & 3;
    if (tag != 3) {
      seen.push_back({tag, node.splitOrCount});
      stack.push_back((node.childAndAxis >> 2) + 1);
      stack.push_back(node.childAndAxis >> 2);
      continue;
    }
    std::vector<uint32_t> leaf{3};
    for (uint32_t k = 0; k < node.splitOrCount; ++k) {
      const uint32_t number = tree.leafTriangles[(node.childAndAxis >> 2) + k];
      if (number < tree.triangles.size() && !tree.triangles[number].degenerate) leaf.push_back(number);
    }
    seen.push_back(leaf);
  }
  return seen;
}

bool SameBytes(const KDWalkLayout& a, const KDWalkLayout& b) {
  const auto same = [](const auto& x, const auto& y) {
    return x.size() == y.size() &&
           (x.empty() || std::memcmp(x.data(), y.data(), x.size() * sizeof x[0]) == 0);
  };
  return same(a.nodes, b.nodes) && same(a.leafEntries, b.leafEntries);
}

}  // namespace

TEST(KDWalkLayout, LaysOutTreesAsDeepAsItsStack) {
  // The deepest waiting entries are one per level from 1 to the depth of the
  // deepest node, so 64 levels fit the 64 entries and 65 do not.
  struct Case {
    uint32_t levels;
    bool laid;
  };
  for (const Case& c : {Case{1, true}, Case{64, true}, Case{65, false}, Case{80, false}})
    for (size_t threads : {1, 2}) {
      const KDTree tree = Chain(c.levels);
      KDWalkLayout layout;
      layout.Make(tree, threads);
      EXPECT_EQ(layout.Matches(tree), c.laid) << c.levels << " levels";
      // Every node is laid out once, in walk order: the chain is already
      // depth first, so the last one is the triangle's leaf.
      EXPECT_EQ(layout.nodes.size(), c.laid ? tree.nodes.size() : 0u) << c.levels << " levels";
      if (c.laid) {
        EXPECT_EQ(layout.nodes.back().childAndAxis & 3, 3u) << c.levels << " levels";
      }
    }
}

TEST(KDWalkLayout, LaysOutOnlyPlanesThatCompareAsIntegers) {
  struct Case {
    float plane;
    bool laid;
  };
  const Case cases[] = {{-0.0f, true},
                        {std::numeric_limits<float>::infinity(), true},
                        {std::numeric_limits<float>::min(), true},
                        {std::numeric_limits<float>::denorm_min(), false},
                        {std::numeric_limits<float>::quiet_NaN(), false}};
  for (const Case& c : cases) {
    KDTree tree = Chain(3);
    tree.nodes[2] = Inner(0, 3, c.plane);
    KDWalkLayout layout;
    layout.Make(tree);
    EXPECT_EQ(layout.Matches(tree), c.laid) << c.plane;
  }
}

TEST(KDWalkLayout, OnTwoThreadsLaysOutTheSameBytes) {
  for (uint32_t seed = 1; seed <= 20; ++seed) {
    const KDTree tree = Uneven(seed);
    KDWalkLayout one, two;
    one.Make(tree, 1);
    two.Make(tree, 2);
    ASSERT_TRUE(one.Matches(tree) && two.Matches(tree)) << "seed " << seed;
    EXPECT_EQ(Walk(two), Walk(tree)) << "seed " << seed;
    EXPECT_TRUE(SameBytes(one, two)) << "seed " << seed;
  }
}

TEST(KDWalkLayout, RefusesANodeReachedTwiceOnAnyNumberOfThreads) {
  // Inner nodes 0, 2, ..., 10 at depths 0 to 5, each with an empty leaf as
  // its lower child, lead to inner nodes 11 and 12 at depth 6, whose
  // children are the same leaves 13 and 14. Each of the two subtrees alone
  // fits, but the walk would lay out 11 + 3 + 3 = 17 nodes of a tree of 15.
  KDTree tree = OneLeaf({Triangle({0, 0, 0}, {1, 0, 0}, {0, 1, 0}, 0)});
  tree.nodes.clear();
  for (uint32_t level = 0; level < 6; ++level) {
    tree.nodes.push_back(Inner(0, 2 * level + 1, float(level)));
    if (level < 5) tree.nodes.push_back(Leaf(0, 0));
  }
  tree.nodes.push_back(Inner(1, 13, 0.5f));
  tree.nodes.push_back(Inner(2, 13, 0.5f));
  tree.nodes.push_back(Leaf(0, 1));
  tree.nodes.push_back(Leaf(0, 0));
  ASSERT_EQ(tree.nodes.size(), 15u);
  for (size_t threads : {1, 2}) {
    KDWalkLayout layout;
    layout.Make(tree, threads);
    EXPECT_FALSE(layout.Matches(tree)) << threads << " threads";
    EXPECT_TRUE(layout.nodes.empty()) << threads << " threads";
  }
}
