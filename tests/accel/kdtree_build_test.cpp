#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cfloat>
#include <limits>
#include <memory>
#include <random>
#include <vector>

#include "AccelTestAccess.h"
#include "EngineTestAccess.h"
#include "accel/KDTreeBuild.h"

namespace {

SCENE_VERTEX Vertex(float x, float y, float z) {
  SCENE_VERTEX v{};
  v.position = {x, y, z};
  return v;
}

void AddMesh(SWMeshTable& table, std::vector<SCENE_VERTEX> vertices, std::vector<uint32_t> indices,
             uint32_t transform = 0, uint32_t instances = 1) {
  table.meshes.push_back({std::move(vertices), std::move(indices)});
  for (uint32_t i = 0; i < instances; ++i)
    table.instances.push_back({uint32_t(table.meshes.size() - 1), transform + i, 0xFFFFFFFF});
}

uint32_t AddTranslation(SWMeshTable& table, float x, float y, float z) {
  SCENE_MATRIX m{};
  m.m[0] = m.m[5] = m.m[10] = m.m[15] = 1;
  m.m[12] = x, m.m[13] = y, m.m[14] = z;
  table.transforms.push_back(m);
  return uint32_t(table.transforms.size() - 1);
}

// The record's fields unpacked, in order, for comparison.
std::array<double, 12> Fields(const SWTriangle& t) {
  const double degenerate = t.degenerate, axis = t.dominantAxis,
               index = t.instanceIndex * 1000.0 + t.triangleIndex;
  return {degenerate, axis,     t.normalU,   t.normalV, t.planeD,    t.vertexU,
          t.vertexV,  t.edge1U, t.edge1NegV, t.edge2V,  t.edge2NegU, index};
}

std::array<double, 12> Computed(SCENE_VERTEX_XYZ_64 a, SCENE_VERTEX_XYZ_64 b, SCENE_VERTEX_XYZ_64 c) {
  SWTriangle t{};
  ComputeSWTriangle(a, b, c, t);
  return Fields(t);
}

std::array<uint32_t, 2> Words(const KDNode& node) {
  return {node.childAndAxis, node.splitOrCount};
}

struct Leaf {
  std::array<float, 6> box;
  std::vector<uint32_t> triangles;
  auto operator<=>(const Leaf&) const = default;
};

// Walks the tree from the root, checking the shape rules on the way, and
// returns its leaves sorted.
std::vector<Leaf> Leaves(const KDTree& tree, uint32_t maxDepth) {
  std::vector<Leaf> leaves;
  std::vector<int> visits(tree.nodes.size());
  std::vector<std::pair<uint32_t, uint32_t>> runs;
  struct Item {
    uint32_t node, depth;
    std::array<float, 6> box;
  };
  std::vector<Item> stack{{0,
                           0,
                           {tree.boundsMin.x, tree.boundsMin.y, tree.boundsMin.z, tree.boundsMax.x,
                            tree.boundsMax.y, tree.boundsMax.z}}};
  while (!stack.empty()) {
    const Item item = stack.back();
    stack.pop_back();
    EXPECT_EQ(++visits[item.node], 1) << "node " << item.node;
    EXPECT_LE(item.depth, maxDepth);
    const KDNode node = tree.nodes[item.node];
    const uint32_t word = node.childAndAxis, second = node.splitOrCount, axis = word & 3, index = word >> 2;
    if (axis == 3) {
      if (!(second <= tree.leafTriangles.size() && index <= tree.leafTriangles.size() - second)) {
        ADD_FAILURE() << "leaf run out of range";
        continue;
      }
      runs.push_back({index, second});
      leaves.push_back(
          {item.box, {tree.leafTriangles.begin() + index, tree.leafTriangles.begin() + index + second}});
      continue;
    }
    const auto& b = item.box;
    const float area =
        2 * ((b[3] - b[0]) * (b[4] - b[1]) + (b[4] - b[1]) * (b[5] - b[2]) + (b[5] - b[2]) * (b[3] - b[0]));
    EXPECT_GT(double(area), 6.0) << "an inner node must be larger than the unit cube";
    EXPECT_LT(item.depth, maxDepth);
    const float split = std::bit_cast<float>(second);
    EXPECT_TRUE(b[axis] <= split && split <= b[axis + 3]) << "plane outside its node";
    if (!(index + 1 < tree.nodes.size() && index > item.node)) {
      ADD_FAILURE() << "children out of range";
      continue;
    }
    Item lower{index, item.depth + 1, b}, upper{index + 1, item.depth + 1, b};
    lower.box[axis + 3] = split;
    upper.box[axis] = split;
    stack.push_back(lower);
    stack.push_back(upper);
  }
  EXPECT_EQ(std::count(visits.begin(), visits.end(), 1), long(tree.nodes.size()));
  // The runs of the leaves cover leafTriangles exactly once.
  std::sort(runs.begin(), runs.end());
  uint32_t next = 0;
  for (auto [first, count] : runs) {
    EXPECT_EQ(first, next);
    next = first + count;
  }
  EXPECT_EQ(next, tree.leafTriangles.size());
  std::sort(leaves.begin(), leaves.end());
  return leaves;
}

struct KDBuildFixture : ::testing::Test {
  void SetUp() override {
    engine = new AccelTestEngine();
    engine->Initialize(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
    queue = std::make_unique<EngineTestAccess>(engine);
  }
  void TearDown() override { engine->Release(); }

  AccelTestEngine* engine = nullptr;
  std::unique_ptr<EngineTestAccess> queue;
};

// Two triangles filling the unit cube's extent, and an unused vertex at x = 10
// that stretches the box to 10 x 1 x 1 (all faces 42 in area).
SWMeshTable TwoTrianglesInALongBox(float length, bool withBadTriangle) {
  SWMeshTable table;
  std::vector<uint32_t> indices{0, 1, 2, 3, 2, 4};
  if (withBadTriangle) indices.insert(indices.end(), {0, 1, 99});
  AddMesh(table,
          {Vertex(0, 0, 0), Vertex(1, 0, 0), Vertex(0, 1, 1), Vertex(1, 1, 0), Vertex(1, 0, 1),
           Vertex(length, 0, 0)},
          indices);
  return table;
}

}  // namespace

TEST(SWTriangleRecord, ProjectionConstantsByHand) {
  // E1 = C - A = (0, 1, 5), E2 = B - A = (1, 3, 4), N = (-11, 5, -1): k = 0,
  // u = y, v = z, det = 1 * 4 - 5 * 3 = -11. Normal terms divide; edge terms
  // multiply by 1 / det, which differs from a division for 5 / 11.
  const double inv = 1.0 / -11.0;
  EXPECT_EQ(Computed({1, 2, 3}, {2, 5, 7}, {1, 3, 8}),
            (std::array<double, 12>{0, 0, 5 / -11.0, -1 / -11.0, (-11 + 10 - 3) / -11.0, 2, 3, 1 * inv,
                                    -5 * inv, 4 * inv, -3 * inv, 0}));
  EXPECT_NE(-5 * inv, 5 / 11.0) << "the fold must be visible in these numbers";
  // Dominant-axis ties keep the later axis: N = (1, 1, 0) gives y, N = (-1, 0,
  // -1) and (0, 1, 1) give z.
  EXPECT_EQ(Computed({0, 0, 0}, {1, -1, 0}, {0, 0, 1})[1], 1);
  EXPECT_EQ(Computed({0, 0, 0}, {1, 0, -1}, {0, 1, 0})[1], 2);
  EXPECT_EQ(Computed({0, 0, 0}, {0, 1, -1}, {1, 0, 0})[1], 2);
  // Collinear corners and a normal of 1e-8 are degenerate with zeros after;
  // a normal of 1e-6 is not.
  EXPECT_EQ(Computed({0, 0, 0}, {1, 1, 1}, {2, 2, 2}), (std::array<double, 12>{1}));
  EXPECT_EQ(Computed({0, 0, 0}, {1e-4, 0, 0}, {0, 1e-4, 0})[0], 1);
  EXPECT_EQ(Computed({0, 0, 0}, {1e-3, 0, 0}, {0, 1e-3, 0})[0], 0);
}

TEST_F(KDBuildFixture, TableBecomesNumberedRecordsAndBox) {
  SWMeshTable table;
  // Mesh 0: a good triangle, one with a vertex index out of range, and an
  // unused vertex at z = -7 that still widens the box.
  AddMesh(table, {Vertex(0, 0, 0), Vertex(2, 0, 0), Vertex(0, 2, 0), Vertex(0, 0, -7)}, {0, 1, 2, 0, 1, 4});
  table.instances.push_back({9, 0, 0});  // no such mesh: contributes nothing
  // Mesh 1 placed twice: moved by (10, 0, 0), and with a transform index out
  // of range, which means no transform.
  const uint32_t moved = AddTranslation(table, 10, 0, 0);
  table.meshes.push_back({{Vertex(1, 1, 1), Vertex(1, 3, 1), Vertex(3, 1, 1)}, {0, 1, 2}});
  table.instances.push_back({1, moved, 0});
  table.instances.push_back({1, 99, 0});
  EXPECT_EQ(CountTableTriangles(table), 4u);

  KDTree tree;
  engine->Build(tree, table);
  ASSERT_EQ(tree.triangles.size(), 4u);
  const double i0 = 1000 * 0, i2 = 1000 * 2, i3 = 1000 * 3;
  // z-dominant (N = (0, 0, -4)): u = x, v = y; det = E1.x E2.y - E1.y E2.x = -4.
  EXPECT_EQ(Fields(tree.triangles[0]), (std::array<double, 12>{0, 2, -0.0, -0.0, -0.0, 0, 0, 0 * -0.25,
                                                               -2 * -0.25, 0 * -0.25, -2 * -0.25, i0 + 0}));
  EXPECT_EQ(Fields(tree.triangles[1]), (std::array<double, 12>{1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, i0 + 1}));
  // N = (0, 0, 4); planeD = z = 1; vertex (u, v) is A's (x, y), moved or not.
  EXPECT_EQ(Fields(tree.triangles[2])[5], 11);
  EXPECT_EQ(Fields(tree.triangles[2])[11], i2);
  EXPECT_EQ(Fields(tree.triangles[3])[5], 1);
  EXPECT_EQ(Fields(tree.triangles[3])[11], i3);
  const SCENE_VERTEX_XYZ lo = tree.boundsMin, hi = tree.boundsMax;
  EXPECT_EQ((std::array<float, 6>{lo.x, lo.y, lo.z, hi.x, hi.y, hi.z}),
            (std::array<float, 6>{0, 0, -7, 13, 3, 1}));
}

TEST_F(KDBuildFixture, HandWorkedTrees) {
  EXPECT_EQ(KDMaxDepth(1), 8u);
  EXPECT_EQ(KDMaxDepth(1000), 16u);
  EXPECT_EQ(KDMaxDepth(1000000), 20u);
  struct Case {
    SWMeshTable table;
    std::array<uint32_t, 2> root;
    std::vector<Leaf> leaves;
  };
  const uint32_t x1 = 1 * 4 + 0, at1 = std::bit_cast<uint32_t>(1.0f);
  std::vector<Case> cases;
  // An empty table: a root leaf of count 0 with the box at its start value.
  cases.push_back(
      {SWMeshTable(), {3, 0}, {Leaf{{FLT_MAX, FLT_MAX, FLT_MAX, -FLT_MAX, -FLT_MAX, -FLT_MAX}, {}}}});
  // Box 10 x 1 x 1, faces of area 42, leaf 42 * 3. On x the end of 1 at x = 1
  // costs 42 + 6 * 2 + 38 * 1 = 92 (the bad triangle 2 never leaves the
  // right), and the last plane of x, 42 + 6 * 3 = 60, wins. The left child is
  // the unit cube, a leaf by its area; triangle 2 has no events and reaches
  // no child.
  cases.push_back({TwoTrianglesInALongBox(10, true),
                   {x1, at1},
                   {Leaf{{0, 0, 0, 1, 1, 1}, {0, 1}}, Leaf{{1, 0, 0, 10, 1, 1}, {}}}});
  // Box 2.5 x 1 x 1, area 12: x = 1 costs 12 + 6 * 2 = 24, exactly the leaf's
  // 12 * 2, and an equal cost splits.
  cases.push_back({TwoTrianglesInALongBox(2.5f, false),
                   {x1, at1},
                   {Leaf{{0, 0, 0, 1, 1, 1}, {0, 1}}, Leaf{{1, 0, 0, 2.5f, 1, 1}, {}}}});
  // The pair again, moved by 9: x = 1 (end of 1) and x = 9 (start of 2) both
  // cost 42 + 6 * 2 + 38 * 2 = 130; the first in the list wins.
  cases.push_back(
      {TwoTrianglesInALongBox(1, false),
       {x1, at1},
       {Leaf{{0, 0, 0, 1, 1, 1}, {0, 1}}, Leaf{{1, 0, 0, 9, 1, 1}, {}}, Leaf{{9, 0, 0, 10, 1, 1}, {2, 3}}}});
  cases.back().table.instances.push_back({0, AddTranslation(cases.back().table, 9, 0, 0), 0});
  // Three triangles flat in x = 0, box 10 x 1 x 1. The planar events cost
  // 168, 128, 88; the last plane of x, all three left, costs 42 + 2 * 3 = 48
  // and is won by triangle 2 itself: it goes right, the two before it left,
  // into a child of zero thickness. One triangle stays a leaf: 42 + 2 > 42.
  cases.push_back(
      {SWMeshTable(), {x1, 0}, {Leaf{{0, 0, 0, 0, 1, 1}, {0, 1}}, Leaf{{0, 0, 0, 10, 1, 1}, {2}}}});
  AddMesh(cases.back().table,
          {Vertex(0, 0, 0), Vertex(0, 1, 0), Vertex(0, 0, 1), Vertex(0, 1, 1), Vertex(10, 0, 0)},
          {0, 1, 2, 1, 3, 2, 0, 1, 3});
  // Two clusters in opposite corners of the unit cube, which a larger box
  // would split apart: a box of area 6.0 is a leaf whatever it holds.
  cases.push_back({SWMeshTable(), {3, 50}, {Leaf{{0, 0, 0, 1, 1, 1}, {}}}});
  std::vector<SCENE_VERTEX> vertices{Vertex(0, 0, 0), Vertex(1, 1, 1)};
  std::vector<uint32_t> indices;
  for (uint32_t i = 0; i < 50; ++i) {
    const float base = i % 2 ? 0.95f : 0.0f;
    vertices.insert(vertices.end(), {Vertex(base, base, base), Vertex(base + 0.04f, base, base),
                                     Vertex(base, base + 0.04f, base + 0.04f)});
    indices.insert(indices.end(), {3 * i + 2, 3 * i + 3, 3 * i + 4});
    cases.back().leaves[0].triangles.push_back(i);
  }
  AddMesh(cases.back().table, vertices, indices);

  for (size_t i = 0; i < cases.size(); ++i) {
    KDTree tree;
    engine->Build(tree, cases[i].table);
    ASSERT_FALSE(tree.nodes.empty());
    EXPECT_EQ(Words(tree.nodes[0]), cases[i].root) << "case " << i;
    EXPECT_EQ(Leaves(tree, 9), cases[i].leaves) << "case " << i;
  }
}

TEST(KDClipping, ClippedBoxesMeetTheCuttingPlanesExactly) {
  // A triangle inside the box on two axes and reaching past a face on the
  // third: its clipped box ends on that face exactly, so that its events fall
  // on the node's planes.
  std::mt19937 random(11);
  const float boxMin[3] = {-1.1f, -0.7f, -0.3f}, boxMax[3] = {0.9f, 1.3f, 0.7f};
  std::vector<SCENE_VERTEX_XYZ> a, b;
  for (int i = 0; i < 3000; ++i) {
    const int cut = i % 3;
    float p[3][3], low = FLT_MAX, high = -FLT_MAX;
    for (auto& v : p) {
      for (int k = 0; k < 3; ++k)
        v[k] = std::uniform_real_distribution<float>(k == cut ? -3.0f : boxMin[k],
                                                     k == cut ? 3.0f : boxMax[k])(random);
      low = std::min(low, v[cut]), high = std::max(high, v[cut]);
    }
    const SCENE_VERTEX_XYZ c[3] = {
        {p[0][0], p[0][1], p[0][2]}, {p[1][0], p[1][1], p[1][2]}, {p[2][0], p[2][1], p[2][2]}};
    float lo[3], hi[3];
    if (!ClipTriangleToBox(c, boxMin, boxMax, a, b, lo, hi)) continue;
    EXPECT_EQ(lo[cut], low < boxMin[cut] ? boxMin[cut] : low);
    EXPECT_EQ(hi[cut], high > boxMax[cut] ? boxMax[cut] : high);
  }
}

// The list order written out on its own: position as floats compare (-0
// equal to +0, NaN after everything), then axis, then type.
bool ListOrderLess(const KDEvent& a, const KDEvent& b) {
  const bool nanA = a.position != a.position, nanB = b.position != b.position;
  if (nanA != nanB) return nanB;
  if (!nanA && a.position != b.position) return a.position < b.position;
  if (a.axis != b.axis) return a.axis < b.axis;
  return a.type < b.type;
}

bool SameListPlace(const KDEvent& a, const KDEvent& b) {
  return !ListOrderLess(a, b) && !ListOrderLess(b, a);
}

TEST(KDEventLists, SortIsTheStableListOrderAtEverySizeAndMergeKeepsOlderEventsFirst) {
  const float nan = std::numeric_limits<float>::quiet_NaN(), inf = std::numeric_limits<float>::infinity();
  // Few distinct positions, so that most keys repeat; -0 and +0 must tie.
  const float positions[] = {-inf, -2.5f, -1e-30f, -0.0f, 0.0f, 1e-30f, 1.0f, 1.0000001f, 3e7f, inf, nan};
  std::mt19937 random(7);
  // Below and above the size where the sort changes method, and one list
  // whose keys all share the upper digits (every position equal).
  for (const size_t size : {2u, 100u, 511u, 512u, 5000u, 600u}) {
    KDEventList events;
    for (uint32_t i = 0; i < size; ++i) {
      const float p = size == 600u ? 1.0f : positions[random() % std::size(positions)];
      events.push_back(KDEvent{int32_t(random() % 3), p, i, uint32_t(random() % 3)});
    }
    SortEvents(events);
    ASSERT_EQ(events.size(), size);
    std::vector<bool> seen(size, false);
    for (size_t i = 0; i < size; ++i) {
      ASSERT_FALSE(seen[events[i].triangle]) << size;
      seen[events[i].triangle] = true;
      if (i == 0) continue;
      const KDEvent &before = events[i - 1], &now = events[i];
      ASSERT_FALSE(ListOrderLess(now, before)) << size << " at " << i;
      // The triangle number records the original place: equals keep it.
      if (SameListPlace(before, now)) {
        ASSERT_LT(before.triangle, now.triangle) << size << " at " << i;
      }
    }
  }
  // Older events (triangles 0..2) stay before equal fresh ones (10..12),
  // and -0 meets +0 as an equal.
  KDEventList into = {
      {KD_EVENT_END, -0.0f, 0, 0}, {KD_EVENT_START, 1.0f, 1, 0}, {KD_EVENT_START, 2.0f, 2, 1}};
  const KDEventList fresh = {
      {KD_EVENT_END, 0.0f, 10, 0}, {KD_EVENT_START, 1.0f, 11, 0}, {KD_EVENT_END, 2.0f, 12, 1}};
  MergeEvents(into, fresh);
  std::vector<uint32_t> order;
  for (const KDEvent& e : into) order.push_back(e.triangle);
  EXPECT_EQ(order, std::vector<uint32_t>({0, 10, 1, 11, 12, 2}));
}

TEST_F(KDBuildFixture, PartitionSendsEachTriangleToItsSideAndMergesNewEventsLast) {
  // 0 straddles x = 1 (flat in z); 1 lies in x 1..2 (flat in z); 2 is flat
  // in x = 1; 3 lies in x 0.5..1 (flat in z). At x = 1 the list holds: end of
  // 3, planar 2, start of 1. The end of 3 wins: 2, standing after it, goes
  // right, and 0 goes both ways.
  SWMeshTable table;
  AddMesh(table,
          {Vertex(0, 0, 0), Vertex(4, 0, 0), Vertex(0, 4, 0), Vertex(1, 0, 0), Vertex(2, 0, 0),
           Vertex(1, 1, 0), Vertex(1, 0, 1), Vertex(0.5, 0, 0), Vertex(0.5, 1, 0)},
          {0, 1, 2, 3, 4, 5, 3, 5, 6, 7, 3, 8});
  KDTree tree;
  tree.triangles.resize(4);
  FillInstanceTriangles(table, 0, tree.triangles.data(), 4);
  std::vector<SCENE_VERTEX_XYZ> a, b;
  std::vector<uint32_t> sides(4, 7);
  KDBuildNode parent{0, 0, {0, 0, 0}, {4, 4, 1}, {0, 1, 2, 3}, {}};
  for (uint32_t t = 0; t < 4; ++t)
    AddTriangleEvents(tree, table, t, parent.boxMin, parent.boxMax, a, b, parent.events);
  SortEvents(parent.events);
  KDBuildNode left{1, 1, {0, 0, 0}, {1, 4, 1}, {}, {}}, right{2, 1, {1, 0, 0}, {4, 4, 1}, {}, {}};
  PartitionNode(parent, KDSplit{0, 1.0f, 0, KD_EVENT_END, 3}, tree, table, KDThreadScratch{&a, &b, &sides},
                left, right);
  EXPECT_EQ(left.triangleList, std::vector<uint32_t>({0, 3}));
  EXPECT_EQ(right.triangleList, std::vector<uint32_t>({2, 1, 0}));
  // Five events per triangle: those of 3, or of 2 and 1, moved; those of 0
  // made anew from its clipped halves, (0, 0)-(1, 4) and (1, 0)-(4, 3).
  const auto where = [](const KDEventList& list, KDEvent e) {
    const auto at = std::find_if(list.begin(), list.end(), [&](const KDEvent& o) {
      return KDEventKey(o) == KDEventKey(e) && o.triangle == e.triangle;
    });
    return at == list.end() ? -1L : long(at - list.begin());
  };
  ASSERT_EQ(left.events.size(), 10u);
  ASSERT_EQ(right.events.size(), 15u);
  EXPECT_TRUE(std::is_sorted(left.events.begin(), left.events.end(), KDEventLess));
  EXPECT_TRUE(std::is_sorted(right.events.begin(), right.events.end(), KDEventLess));
  EXPECT_GE(where(left.events, {KD_EVENT_END, 4, 0, 1}), 0);
  EXPECT_GE(where(right.events, {KD_EVENT_END, 3, 0, 1}), 0);
  // A new event merged among equal older ones comes after them.
  EXPECT_LT(where(left.events, {KD_EVENT_START, 0, 3, 1}), where(left.events, {KD_EVENT_START, 0, 0, 1}));
  EXPECT_LT(where(right.events, {KD_EVENT_PLANAR, 0, 1, 2}), where(right.events, {KD_EVENT_PLANAR, 0, 0, 2}));
}

namespace {

// A soup over 0..100 with small and large triangles, a floor flat in z = 50,
// a shared mesh placed twice and triangles with bad indices.
SWMeshTable Soup(unsigned seed, int count) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> where(0, 100), size(-1, 1);
  SWMeshTable table;
  std::vector<SCENE_VERTEX> vertices;
  std::vector<uint32_t> indices;
  for (int i = 0; i < count; ++i) {
    const float scale = i % 10 == 0 ? 40.0f : 3.0f;
    const float x = where(random), y = where(random), z = i % 7 == 0 ? 50.0f : where(random);
    for (int c = 0; c < 3; ++c) {
      const float cz = i % 7 == 0 ? 50.0f : z + scale * size(random);
      vertices.push_back(Vertex(x + scale * size(random), y + scale * size(random), cz));
      indices.push_back(uint32_t(vertices.size() - 1));
    }
  }
  indices[5] = 100000;
  AddMesh(table, vertices, indices);
  const uint32_t first = AddTranslation(table, 5, -3, 2);
  AddTranslation(table, -20, 10, 0.5f);
  AddMesh(table, {vertices.begin(), vertices.begin() + 90}, {indices.begin(), indices.begin() + 90}, first,
          2);
  return table;
}

}  // namespace

namespace {
struct PollCounter {
  std::atomic<long> polls{0};
  long abortFrom = 0;  // 0: never
};
bool CountPoll(void* context) {
  auto* counter = static_cast<PollCounter*>(context);
  const long poll = counter->polls.fetch_add(1) + 1;
  return counter->abortFrom != 0 && poll >= counter->abortFrom;
}
}  // namespace

TEST_F(KDBuildFixture, AbortAtAnyPollLeavesNoJobBehindAndAnEmptyTree) {
  const SWMeshTable table = Soup(9, 300);
  const long instances = long(table.instances.size()), triangles = long(CountTableTriangles(table));
  KDTree reference;
  PollCounter counting;
  engine->Build(reference, table, &CountPoll, &counting);
  // Driver: 1 + instances + 1 + instances + triangles + 1 + 1, one poll for
  // each job, which is one for each node, and the last poll.
  const long total = 2 * instances + triangles + 5 + long(reference.nodes.size());
  EXPECT_EQ(counting.polls.load(), total);
  const std::vector<Leaf> leaves = Leaves(reference, 20);

  const long driver = 2 * instances + triangles + 4;
  for (long from : {1L, 2L, 3L, driver - 1, driver, driver + 1, driver + 2, driver + 7, (driver + total) / 2,
                    total - 1, total, total + 1}) {
    KDTree tree;
    engine->Build(tree, table);
    PollCounter abort;
    abort.abortFrom = from;
    engine->Build(tree, table, &CountPoll, &abort);
    EXPECT_EQ(queue->QueueLength(), 0u) << from;
    EXPECT_EQ(queue->WakeCount(), 0) << from;
    if (from == 1 || from > total) {
      EXPECT_EQ(Leaves(tree, 20), leaves)
          << "an abort at once leaves the tree as it was; none at all builds it";
    } else {
      EXPECT_TRUE(tree.nodes.empty() && tree.leafTriangles.empty()) << from;
    }
  }
  KDTree after;
  engine->Build(after, table);
  EXPECT_EQ(Leaves(after, 20), leaves);
}
