#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "AccelTestAccess.h"
#include "engine/BrindlexViewRTRenderEngine.h"
#include "accel/CompareRayHits.h"
#include "LogCapture.h"
#include "TraversalTestHelpers.h"

namespace {

// The unit triangle in z = 0, so that weightB is x and weightC is y.
SWTriangle UnitTriangle(uint32_t index) {
  return Triangle({0, 0, 0}, {1, 0, 0}, {0, 1, 0}, index);
}

struct Hit {
  bool hit;
  double distance, weightB, weightC;
  uint32_t tree, instance, triangle;
};

Hit Query(const KDTree& tree, const TestRay& ray) {
  SWRayIntersectionResult r{};
  const bool hit = tree.Intersect(ray.origin, ray.direction, ray.inverse, r);
  return {hit, r.distance, r.weightB, r.weightC, r.treeIndex, r.instanceIndex, r.triangleIndex};
}

SWRayIntersectionResult Marked() {
  return {-1.0, -2.0, -3.0, 7, 8, 9};
}

void ExpectMarked(const SWRayIntersectionResult& r) {
  const SWRayIntersectionResult m = Marked();
  EXPECT_EQ(double(r.distance), double(m.distance));
  EXPECT_EQ(double(r.weightB), double(m.weightB));
  EXPECT_EQ(uint32_t(r.treeIndex), uint32_t(m.treeIndex));
  EXPECT_EQ(uint32_t(r.triangleIndex), uint32_t(m.triangleIndex));
}

}  // namespace

TEST(KDTreeBounds, SlabsSkipParallelAxesAndNullDirectionsMiss) {
  KDTree tree;
  tree.boundsMin = {0, 0, 0};
  tree.boundsMax = {1, 1, 1};
  double tNear = -1, tFar = -1;
  TestRay ray = Ray({0.5, 0.5, 0.5}, {1, 0, 0});  // starts inside
  ASSERT_TRUE(tree.IntersectBounds(ray.origin, ray.direction, ray.inverse, tNear, tFar));
  EXPECT_EQ(tNear, 0.0);
  EXPECT_EQ(tFar, 0.5);
  const double startNear = 0.25, startFar = 0.3;
  ASSERT_TRUE(
      tree.IntersectBounds(ray.origin, ray.direction, ray.inverse, tNear, tFar, &startNear, &startFar));
  EXPECT_EQ(tNear, 0.25);
  EXPECT_EQ(tFar, 0.3);
  // Parallel to y and outside the box in y: that axis does not reject it.
  ray = Ray({0.5, 2.0, -1.0}, {0, 0, 1});
  ASSERT_TRUE(tree.IntersectBounds(ray.origin, ray.direction, ray.inverse, tNear, tFar));
  EXPECT_EQ(tNear, 1.0);
  EXPECT_EQ(tFar, 2.0);
  ray = Ray({2.0, 0.5, 0.5}, {1, 0, 0});
  EXPECT_FALSE(tree.IntersectBounds(ray.origin, ray.direction, ray.inverse, tNear, tFar));
  ray = Ray({0.5, 0.5, 0.5}, {1e-8, -1e-7, 0});
  EXPECT_FALSE(tree.IntersectBounds(ray.origin, ray.direction, ray.inverse, tNear, tFar));
}

TEST(KDTreeLeaf, EdgesBothSidesNearLimitAndParallelRays) {
  const KDTree tree = OneLeaf({UnitTriangle(5)});
  Hit h = Query(tree, Ray({0.25, 0.5, -1}, {0, 0, 1}));
  ASSERT_TRUE(h.hit);
  EXPECT_EQ(h.distance, 1.0);
  EXPECT_EQ(h.weightB, 0.25);
  EXPECT_EQ(h.weightC, 0.5);
  EXPECT_EQ(h.triangle, 5u);
  EXPECT_TRUE(Query(tree, Ray({0.25, 0.5, 1}, {0, 0, -1})).hit);  // the back side
  // Edges and corners belong to the triangle.
  for (SCENE_VERTEX_XYZ_64 o : {SCENE_VERTEX_XYZ_64{0.5, 0, -1}, {0.5, 0.5, -1}, {0, 0, -1}, {0, 1, -1}})
    EXPECT_TRUE(Query(tree, Ray(o, {0, 0, 1})).hit) << o.x << " " << o.y;
  EXPECT_FALSE(Query(tree, Ray({0.5, 0.5000001, -1}, {0, 0, 1})).hit);
  EXPECT_FALSE(Query(tree, Ray({-1e-9, 0.5, -1}, {0, 0, 1})).hit);
  // A hit at 1e-6 exists; a nearer one does not.
  h = Query(tree, Ray({0.25, 0.25, -1e-6}, {0, 0, 1}));
  EXPECT_TRUE(h.hit);
  EXPECT_EQ(h.distance, 1e-6);
  EXPECT_FALSE(Query(tree, Ray({0.25, 0.25, -0.9e-6}, {0, 0, 1})).hit);
  // Parallel to the plane, and lying in it (0 / 0).
  EXPECT_FALSE(Query(tree, Ray({-1, 0.25, 0.5}, {1, 0, 0})).hit);
  EXPECT_FALSE(Query(tree, Ray({-1, 0.25, 0}, {1, 0, 0})).hit);
}

TEST(KDTreeLeaf, DegenerateNeverHitsAndEqualDistancesGoToTheLaterTriangle) {
  // Collinear corners: the record is left mostly zero and must be skipped
  // even where its zeros would describe the plane x = 0.
  const KDTree degenerate = OneLeaf({Triangle({0, 0, 0}, {1, 1, 0}, {2, 2, 0}, 0)});
  EXPECT_FALSE(Query(degenerate, Ray({-1, 0.25, 0.5}, {1, 0, 0})).hit);

  const KDTree twins =
      OneLeaf({UnitTriangle(1), UnitTriangle(2), Triangle({0, 0, 2}, {1, 0, 2}, {0, 1, 2}, 3)});
  EXPECT_EQ(Query(twins, Ray({0.25, 0.25, -1}, {0, 0, 1})).triangle, 2u);
  // IntersectLeaf on its own improves on a result only when not farther.
  const TestRay ray = Ray({0.25, 0.25, 1}, {0, 0, 1});
  SWRayIntersectionResult r{};
  r.distance = 1.0;
  EXPECT_TRUE(twins.IntersectLeaf(twins.nodes[0], ray.origin, ray.direction, r));
  EXPECT_EQ(uint32_t(r.triangleIndex), 3u);
  r.distance = 0.5;
  EXPECT_FALSE(twins.IntersectLeaf(twins.nodes[0], ray.origin, ray.direction, r));
  // A leaf whose run reaches past leafTriangles holds nothing.
  const KDNode broken = Leaf(1, 3);
  r.distance = Largest;
  EXPECT_FALSE(twins.IntersectLeaf(broken, ray.origin, ray.direction, r));
}

TEST(KDTreeWalk, PlanesAtTheOriginParallelRaysAndHitsBeyondTheLeaf) {
  // Root splits x at 0. Left leaf: L in y = 1. Right leaf: R in y = 2 and
  // X in x = 1.
  KDTree tree;
  tree.triangles = {Triangle({-1, 1, -1}, {1, 1, -1}, {0, 1, 3}, 0),
                    Triangle({-1, 2, -1}, {1, 2, -1}, {0, 2, 3}, 1),
                    Triangle({1, -1, -1}, {1, 1, -1}, {1, 0, 3}, 2)};
  tree.leafTriangles = {0, 1, 2};
  tree.nodes = {Inner(0, 1, 0.0f), Leaf(0, 1), Leaf(1, 2)};
  tree.boundsMin = {-2, -2, -2};
  tree.boundsMax = {2, 3, 4};
  // Parallel to the plane and within 1e-7 of it: both sides, L first.
  EXPECT_EQ(Query(tree, Ray({5e-8, 0, 0.5}, {0, 1, 0})).triangle, 0u);
  EXPECT_EQ(Query(tree, Ray({2e-7, 0, 0.5}, {0, 1, 0})).triangle, 1u);
  EXPECT_EQ(Query(tree, Ray({-2e-7, 0, 0.5}, {0, 1, 0})).triangle, 0u);
  // With the left leaf emptied, only a visit to the right finds anything.
  tree.nodes[1] = Leaf(0, 0);
  EXPECT_TRUE(Query(tree, Ray({-5e-8, 0, 0.5}, {0, 1, 0})).hit);
  EXPECT_FALSE(Query(tree, Ray({-2e-7, 0, 0.5}, {0, 1, 0})).hit);
  // Starting on the plane (t = 0) and going up in x: the far side is visited.
  const Hit h = Query(tree, Ray({0, 0.5, 0.5}, {1, 0, 0}));
  EXPECT_TRUE(h.hit);
  EXPECT_EQ(h.triangle, 2u);
  EXPECT_EQ(h.distance, 1.0);

  // A triangle accepted in the near leaf beyond the leaf's end does not stop
  // the walk: the far leaf holds a nearer one.
  tree.triangles = {Triangle({1.5, -1, -1}, {1.5, 1, -1}, {1.5, 0, 3}, 0),
                    Triangle({1.2, -1, -1}, {1.2, 1, -1}, {1.2, 0, 3}, 1)};
  tree.leafTriangles = {0, 1, 0};
  tree.nodes = {Inner(0, 1, 1.0f), Leaf(0, 1), Leaf(1, 2)};
  EXPECT_EQ(Query(tree, Ray({0, 0.5, 0.5}, {1, 0, 0})).triangle, 1u);
}

TEST(KDTreeWalk, MissesBeforeTheWalkLeaveTheResultAndAnUnsoundTreeIsLogged) {
  KDTree tree = OneLeaf({UnitTriangle(4)});
  const TestRay away = Ray({0.25, 0.25, -1}, {0, 0, -1});
  LogCapture log;
  SWRayIntersectionResult r = Marked();
  KDTree empty;
  EXPECT_FALSE(empty.Intersect(away.origin, away.direction, away.inverse, r));
  ExpectMarked(r);
  const TestRay outside = Ray({9, 9, 9}, {0, 0, 1});
  EXPECT_FALSE(tree.Intersect(outside.origin, outside.direction, outside.inverse, r));
  ExpectMarked(r);
  const TestRay null = Ray({0.25, 0.25, -1}, {0, 0, 0});
  EXPECT_FALSE(tree.Intersect(null.origin, null.direction, null.inverse, r));
  ExpectMarked(r);
  // A walk that misses sets the distance and triangle, nothing else.
  EXPECT_FALSE(tree.Intersect(away.origin, away.direction, away.inverse, r));
  EXPECT_EQ(double(r.distance), Largest);
  EXPECT_EQ(uint32_t(r.triangleIndex), 0u);
  EXPECT_EQ(uint32_t(r.instanceIndex), 8u);
  EXPECT_TRUE(log.Lines().empty());

  // Two zero nodes: the root's lower child is the root itself, so the walk
  // pushes forever until the stack outgrows the nodes.
  tree.nodes = {KDNode{}, KDNode{}};
  const TestRay ray = Ray({-1, 0.25, 0.25}, {1, 0, 0});
  EXPECT_FALSE(tree.Intersect(ray.origin, ray.direction, ray.inverse, r));
  const std::vector<std::string> lines = log.Lines();
  ASSERT_EQ(lines.size(), 2u);
  const std::string head = "Error: .\\BrindlexViewRTRenderEngine (";
  const std::string tail = ") KDTree::Intersect - infinite recursion case detected";
  ASSERT_GT(lines[0].size(), head.size() + tail.size());
  EXPECT_EQ(lines[0].substr(0, head.size()), head);
  EXPECT_EQ(lines[0].substr(lines[0].size() - tail.size()), tail);
  const std::string line = lines[0].substr(head.size(), lines[0].size() - head.size() - tail.size());
  EXPECT_EQ(line.find_first_not_of("0123456789"), std::string::npos) << line;
  EXPECT_NE(lines[1].find("KDTree::Intersect"), std::string::npos);
  EXPECT_NE(lines[1].find(".\\BrindlexViewRTRenderEngine"), std::string::npos);
}

TEST(IntersectSWGeometry, TheNearerTreeWinsAndTreeZeroKeepsTies) {
  AccelTestEngine* engine = new AccelTestEngine();
  const TestRay ray = Ray({0.25, 0.25, -1}, {0, 0, 1});
  SWRayIntersectionResult r{};
  EXPECT_FALSE(engine->IntersectSWGeometry(ray.origin, ray.direction, ray.inverse, r));  // no trees yet
  engine->Initialize(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
  AccelTestEngine& access = *engine;
  KDTree* trees = access.Trees();
  EXPECT_FALSE(engine->IntersectSWGeometry(ray.origin, ray.direction, ray.inverse, r));

  // The unit triangle lifted to height z, met by the ray at t = z + 1.
  const auto at = [](double z, uint32_t index, uint32_t instance) {
    return std::vector<SWTriangle>{Triangle({0, 0, z}, {1, 0, z}, {0, 1, z}, index, instance)};
  };
  SetOneLeaf(trees[1], at(0.5, 3, 6));
  r.treeIndex = 0;
  ASSERT_TRUE(engine->IntersectSWGeometry(ray.origin, ray.direction, ray.inverse, r));
  EXPECT_EQ(uint32_t(r.treeIndex), 1u);
  EXPECT_EQ(uint32_t(r.instanceIndex), 6u);
  EXPECT_EQ(double(r.distance), 1.5);

  SetOneLeaf(trees[0], at(0.5, 2, 1));
  r.treeIndex = 9;
  ASSERT_TRUE(engine->IntersectSWGeometry(ray.origin, ray.direction, ray.inverse, r));
  EXPECT_EQ(uint32_t(r.treeIndex), 0u);
  EXPECT_EQ(uint32_t(r.triangleIndex), 2u);

  SetOneLeaf(trees[0], at(0.75, 2, 1));
  ASSERT_TRUE(engine->IntersectSWGeometry(ray.origin, ray.direction, ray.inverse, r));
  EXPECT_EQ(uint32_t(r.treeIndex), 1u);
  EXPECT_EQ(uint32_t(r.triangleIndex), 3u);
  SetOneLeaf(trees[1], at(1.5, 3, 6));
  ASSERT_TRUE(engine->IntersectSWGeometry(ray.origin, ray.direction, ray.inverse, r));
  EXPECT_EQ(uint32_t(r.treeIndex), 0u);
  EXPECT_EQ(double(r.distance), 1.75);
  engine->Release();
}

TEST(CompareRayHits, MissesFirstThenTreeInstanceTriangleIgnoringDistance) {
  const auto make = [](bool hit, uint32_t tree, uint32_t instance, uint32_t triangle, double distance,
                       uint32_t sample) {
    PixelRayHit h;
    h.hit = hit;
    h.result = {distance, 0.1, 0.2, tree, instance, triangle};
    h.sampleIndex = sample;
    return h;
  };
  PixelRayHit hits[7] = {make(true, 1, 0, 0, 1.0, 0),  make(true, 0, 2, 1, 9.0, 1),
                         make(false, 1, 1, 1, 0.0, 2), make(true, 0, 2, 0, 5.0, 3),
                         make(true, 0, 1, 9, 7.0, 4),  make(true, 0, 2, 1, 0.5, 5),
                         make(false, 0, 0, 0, 3.0, 6)};
  EXPECT_EQ(CompareRayHits(&hits[1], &hits[5]), 0);
  EXPECT_EQ(CompareRayHits(&hits[2], &hits[6]), 0);
  EXPECT_EQ(CompareRayHits(&hits[2], &hits[0]), -1);
  EXPECT_EQ(CompareRayHits(&hits[0], &hits[1]), 1);
  std::qsort(hits, 7, sizeof(PixelRayHit), CompareRayHits);
  const uint32_t order[7][4] = {{0, 0, 0, 0}, {0, 0, 0, 0}, {1, 0, 1, 9}, {1, 0, 2, 0},
                                {1, 0, 2, 1}, {1, 0, 2, 1}, {1, 1, 0, 0}};
  for (int i = 0; i < 7; ++i) {
    EXPECT_EQ(hits[i].hit, order[i][0] == 1) << i;
    if (!hits[i].hit) continue;
    EXPECT_EQ(uint32_t(hits[i].result.treeIndex), order[i][1]) << i;
    EXPECT_EQ(uint32_t(hits[i].result.instanceIndex), order[i][2]) << i;
    EXPECT_EQ(uint32_t(hits[i].result.triangleIndex), order[i][3]) << i;
  }
}
