#include <gtest/gtest.h>

#include <vector>

#include "TraversalTestHelpers.h"

namespace {

// The unit triangle in z = 0, so that weightB is x and weightC is y.
SWTriangle UnitTriangle(uint32_t index) {
  return Triangle({0, 0, 0}, {1, 0, 0}, {0, 1, 0}, index);
}

// Root splits x at `split`; the lower leaf holds run 0..1, the upper 1..3.
KDTree SplitTree(std::vector<SWTriangle> triangles, float split, std::vector<uint32_t> leafTriangles) {
  KDTree tree;
  tree.triangles = std::move(triangles);
  tree.leafTriangles = std::move(leafTriangles);
  tree.nodes = {Inner(0, 1, split), Leaf(0, 1), Leaf(1, 2)};
  tree.boundsMin = {-2, -2, -2};
  tree.boundsMax = {2, 3, 4};
  return tree;
}

}  // namespace

TEST(KDTreeWalk, RaysAgainstHandMadeTrees) {
  const KDTree unit = OneLeaf({UnitTriangle(5)}), empty;
  const KDTree degenerate = OneLeaf({Triangle({0, 0, 0}, {1, 1, 0}, {2, 2, 0}, 0)});
  const KDTree twins =
      OneLeaf({UnitTriangle(1), UnitTriangle(2), Triangle({0, 0, 2}, {1, 0, 2}, {0, 1, 2}, 3)});
  // Split at x = 0. Lower leaf: L in y = 1. Upper leaf: R in y = 2, X in x = 1.
  const std::vector<SWTriangle> lrx = {Triangle({-1, 1, -1}, {1, 1, -1}, {0, 1, 3}, 0),
                                       Triangle({-1, 2, -1}, {1, 2, -1}, {0, 2, 3}, 1),
                                       Triangle({1, -1, -1}, {1, 1, -1}, {1, 0, 3}, 2)};
  const KDTree split = SplitTree(lrx, 0.0f, {0, 1, 2});
  KDTree rightOnly = split;
  rightOnly.nodes[1] = Leaf(0, 0);
  // Split at x = 1: the lower leaf holds a wall at x = 1.5, beyond its end,
  // and the upper one a nearer wall at 1.2.
  const KDTree beyond = SplitTree({Triangle({1.5, -1, -1}, {1.5, 1, -1}, {1.5, 0, 3}, 0),
                                   Triangle({1.2, -1, -1}, {1.2, 1, -1}, {1.2, 0, 3}, 1)},
                                  1.0f, {0, 1, 0});
  // Every query starts from a marked result: a miss before the walk leaves
  // it (distance -1, triangle 9), a walk that misses sets the distance to
  // the largest double and the triangle to 0.
  const double walked = Largest, before = -1;
  const struct {
    const char* what;
    const KDTree* tree;
    TestRay ray;
    bool hit;
    double distance;
    uint32_t triangle;
  } cases[] = {
      {"front", &unit, Ray({0.25, 0.5, -1}, {0, 0, 1}), true, 1.0, 5},
      {"back", &unit, Ray({0.25, 0.5, 1}, {0, 0, -1}), true, 1.0, 5},
      {"edge", &unit, Ray({0.5, 0, -1}, {0, 0, 1}), true, 1.0, 5},
      {"hypotenuse", &unit, Ray({0.5, 0.5, -1}, {0, 0, 1}), true, 1.0, 5},
      {"corner 0", &unit, Ray({0, 0, -1}, {0, 0, 1}), true, 1.0, 5},
      {"corner 2", &unit, Ray({0, 1, -1}, {0, 0, 1}), true, 1.0, 5},
      {"past the hypotenuse", &unit, Ray({0.5, 0.5000001, -1}, {0, 0, 1}), false, walked, 0},
      {"past an edge", &unit, Ray({-1e-9, 0.5, -1}, {0, 0, 1}), false, walked, 0},
      {"at 1e-6", &unit, Ray({0.25, 0.25, -1e-6}, {0, 0, 1}), true, 1e-6, 5},
      {"nearer than 1e-6", &unit, Ray({0.25, 0.25, -0.9e-6}, {0, 0, 1}), false, walked, 0},
      {"parallel", &unit, Ray({-1, 0.25, 0.5}, {1, 0, 0}), false, walked, 0},
      {"in the plane", &unit, Ray({-1, 0.25, 0}, {1, 0, 0}), false, walked, 0},
      {"away", &unit, Ray({0.25, 0.25, -1}, {0, 0, -1}), false, walked, 0},
      {"outside the box", &unit, Ray({9, 9, 9}, {0, 0, 1}), false, before, 9},
      {"null direction", &unit, Ray({0.25, 0.25, -1}, {0, 0, 0}), false, before, 9},
      {"no tree", &empty, Ray({0.25, 0.25, -1}, {0, 0, 1}), false, before, 9},
      // Zeros that would describe the plane x = 0 are never read.
      {"degenerate", &degenerate, Ray({-1, 0.25, 0.5}, {1, 0, 0}), false, walked, 0},
      {"equal distances: the later", &twins, Ray({0.25, 0.25, -1}, {0, 0, 1}), true, 1.0, 2},
      // Parallel to the plane and within 1e-7 of it: both sides, L first.
      {"within 1e-7", &split, Ray({5e-8, 0, 0.5}, {0, 1, 0}), true, 1.0, 0},
      {"above by 2e-7", &split, Ray({2e-7, 0, 0.5}, {0, 1, 0}), true, 2.0, 1},
      {"below by 2e-7", &split, Ray({-2e-7, 0, 0.5}, {0, 1, 0}), true, 1.0, 0},
      {"within 1e-7 below", &rightOnly, Ray({-5e-8, 0, 0.5}, {0, 1, 0}), true, 2.0, 1},
      {"below, one side", &rightOnly, Ray({-2e-7, 0, 0.5}, {0, 1, 0}), false, walked, 0},
      // Starting on the plane (t = 0) and going up in x: the far side is visited.
      {"from the plane", &split, Ray({0, 0.5, 0.5}, {1, 0, 0}), true, 1.0, 2},
      {"hit beyond the leaf", &beyond, Ray({0, 0.5, 0.5}, {1, 0, 0}), true, 1.2, 1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    SWRayIntersectionResult r{-1.0, -2.0, -3.0, 7, 8, 9};
    EXPECT_EQ(c.tree->Intersect(c.ray.origin, c.ray.direction, c.ray.inverse, r), c.hit);
    EXPECT_NEAR(double(r.distance), c.distance, 1e-12);
    EXPECT_EQ(uint32_t(r.triangleIndex), c.triangle);
    EXPECT_EQ(uint32_t(r.instanceIndex), c.hit ? 0u : 8u);
    // On the unit triangle in z = 0 the weights are x and y.
    EXPECT_TRUE(!c.hit || c.tree != &unit || (r.weightB == c.ray.origin.x && r.weightC == c.ray.origin.y));
  }
  // A root whose lower child is itself: the walk gives up instead of looping.
  KDTree unsound = OneLeaf({UnitTriangle(4)});
  SWRayIntersectionResult r{};
  unsound.nodes = {KDNode{}, KDNode{}};
  const TestRay across = Ray({-1, 0.25, 0.25}, {1, 0, 0});
  EXPECT_FALSE(unsound.Intersect(across.origin, across.direction, across.inverse, r));
}
