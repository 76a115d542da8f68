#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstring>
#include <random>

#include "AccelTestAccess.h"
#include "engine/BrindlexViewRTRenderEngine.h"
#include "accel/KDWalkLayout.h"
#include "TraversalTestHelpers.h"

TEST(KDWalkLayout, TreesThatAreNotSoundGetNoLayout) {
  // A run past leafTriangles holds nothing; a child at or before its
  // parent, or past the end, leaves no layout at all.
  KDTree tree = OneLeaf({Triangle({0, 0, 0}, {1, 0, 0}, {0, 1, 0}, 0)});
  tree.nodes = {Leaf(4, 2)};
  KDWalkLayout layout;
  layout.Make(tree);
  ASSERT_EQ(layout.nodes.size(), 1u);
  EXPECT_EQ(layout.nodes[0].splitOrCount, 0u);
  for (const std::vector<KDNode>& unsound :
       {std::vector<KDNode>{Inner(0, 0, 0), Leaf(0, 1)}, std::vector<KDNode>{Inner(0, 1, 0), Leaf(0, 1)}}) {
    tree.nodes = unsound;
    layout.Make(tree);
    EXPECT_TRUE(layout.nodes.empty());
    EXPECT_FALSE(layout.Matches(tree));
  }
}

TEST(KDWalkLayout, BuiltTreesAnswerExactlyAsTheirOwnFields) {
  AccelTestEngine* engine = new AccelTestEngine();
  engine->Initialize(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
  // Triangles on a grid of 0.5, so that many share coordinates with each
  // other and with split planes, and rays start on those planes too.
  std::mt19937 random(7);
  const auto grid = [&](int cells) { return 0.5 * double(random() % cells); };
  SWMeshTable table;
  table.meshes.emplace_back();
  SWMesh& mesh = table.meshes.back();
  for (int i = 0; i < 3000; ++i) {
    const double base[3] = {grid(16), grid(16), grid(16)};
    for (int corner = 0; corner < 3; ++corner) {
      SCENE_VERTEX v{};
      v.position = {float(base[0] + grid(4)), float(base[1] + grid(4)),
                    float(base[2] + (corner ? grid(4) : 0))};
      mesh.vertices.push_back(v);
      mesh.indices.push_back(uint32_t(mesh.indices.size()));
    }
  }
  table.instances.push_back({0, 0, 0});
  KDTree tree;
  engine->Build(tree, table);
  ASSERT_TRUE(tree.WalkLayout().Matches(tree));
  const KDTree fields = tree;  // a copy holds other vectors: it walks its own fields
  ASSERT_FALSE(fields.WalkLayout().Matches(fields));

  std::uniform_real_distribution<double> unit(-1.0, 1.0);
  int hits = 0;
  for (int i = 0; i < 20000; ++i) {
    SCENE_VERTEX_XYZ_64 d = {unit(random), unit(random), unit(random)};
    if (i % 3 == 0) (i % 2 ? d.x : d.y) = 0.0;  // parallel to split planes
    const SCENE_VERTEX_XYZ_64 o = {grid(24) - 2, grid(24) - 2, i % 5 ? grid(24) - 2 : unit(random) * 20};
    const TestRay ray = Ray(o, d);
    SWRayIntersectionResult a{}, b{};
    const bool hitA = tree.Intersect(ray.origin, ray.direction, ray.inverse, a);
    const bool hitB = fields.Intersect(ray.origin, ray.direction, ray.inverse, b);
    ASSERT_EQ(hitA, hitB) << i;
    hits += hitA;
    // Every byte of the record, weights included.
    ASSERT_EQ(std::memcmp(&a, &b, sizeof a), 0) << i;
  }
  EXPECT_GT(hits, 5000);
  tree.Clear();
  EXPECT_TRUE(tree.WalkLayout().nodes.empty());
  engine->Release();
}
