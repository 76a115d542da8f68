// Builds worked out by hand, node by node. What a build gets wrong that
// changes a hit is the ground truth's to catch; these catch the faults that
// only change the shape: a tie between equal costs and the event order. The
// clip and the merge in pieces are kdtree_build_parts_test's.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cfloat>
#include <limits>
#include <random>
#include <vector>

#include "AccelTestAccess.h"
#include "EngineTestAccess.h"
#include "SceneTestAccess.h"
#include "accel/KDTreeBuild.h"

namespace {

using scene_test::Vertex;

void AddMesh(SWMeshTable& table, std::vector<SCENE_VERTEX> vertices, std::vector<uint32_t> indices,
             uint32_t transform = 0, uint32_t instances = 1) {
  table.meshes.push_back({std::move(vertices), std::move(indices)});
  for (uint32_t i = 0; i < instances; ++i)
    table.instances.push_back({uint32_t(table.meshes.size() - 1), transform + i, 0xFFFFFFFF});
}

uint32_t AddTranslation(SWMeshTable& table, float x, float y, float z) {
  table.transforms.push_back(scene_test::Translation(x, y, z));
  return uint32_t(table.transforms.size() - 1);
}

std::array<double, 12> Computed(SCENE_VERTEX_XYZ_64 a, SCENE_VERTEX_XYZ_64 b, SCENE_VERTEX_XYZ_64 c) {
  SWTriangle t{};
  ComputeSWTriangle(a, b, c, t);
  std::array<double, 12> fields{double(t.degenerate), double(t.dominantAxis), t.normalU, t.normalV, t.planeD};
  const double rest[] = {t.vertexU, t.vertexV, t.edge1U, t.edge1NegV, t.edge2V, t.edge2NegU};
  std::copy(std::begin(rest), std::end(rest), fields.begin() + 5);
  fields[11] = t.instanceIndex * 1000.0 + t.triangleIndex;
  return fields;
}

struct Leaf {
  std::array<float, 6> box;
  std::vector<uint32_t> triangles;
  auto operator<=>(const Leaf&) const = default;
};

// The leaves with their boxes, sorted; none for a tree that reads out of range.
std::vector<Leaf> Leaves(const KDTree& tree) {
  std::vector<Leaf> leaves;
  std::vector<std::pair<uint32_t, std::array<float, 6>>> stack{
      {0,
       {tree.boundsMin.x, tree.boundsMin.y, tree.boundsMin.z, tree.boundsMax.x, tree.boundsMax.y,
        tree.boundsMax.z}}};
  while (!stack.empty() && stack.size() < 64) {
    const auto [n, box] = stack.back();
    stack.pop_back();
    const uint32_t word = tree.nodes[n].childAndAxis, second = tree.nodes[n].splitOrCount;
    const uint32_t axis = word & 3, index = word >> 2;
    if (axis == 3) {
      if (uint64_t(index) + second > tree.leafTriangles.size()) return {};
      leaves.push_back(
          {box, {tree.leafTriangles.begin() + index, tree.leafTriangles.begin() + index + second}});
      continue;
    }
    if (index <= n || index + 1 >= tree.nodes.size()) return {};
    auto lower = box, upper = box;
    lower[axis + 3] = upper[axis] = std::bit_cast<float>(second);
    stack.push_back({index, lower});
    stack.push_back({index + 1, upper});
  }
  std::sort(leaves.begin(), leaves.end());
  return leaves;
}

// Lowers the triangle count below which builds pack their events, for one
// scope.
struct PackedEventLimit {
  explicit PackedEventLimit(size_t triangles) { KDLimitPackedEvents(triangles); }
  ~PackedEventLimit() { KDLimitPackedEvents(KDPackedTriangleLimit); }
};

struct KDBuildFixture : ::testing::Test {
  void SetUp() override { engine->Initialize(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr); }
  void TearDown() override { engine->Release(); }

  AccelTestEngine* engine = new AccelTestEngine();
  EngineTestAccess queue{engine};
};

// Two triangles filling the unit cube's extent, and an unused vertex at
// x = `length` that stretches the box.
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
  // Two triangles from x = -1 to x = -0 and two from x = +0 to x = 1, each
  // spanning y and z from 0 to 1: box 2 x 1 x 1, area 10, leaf 40. The ends
  // of the first two at -0 cost 10 + 6 * 2 + 6 * 3 = 40, then 10 + 6 * 2 + 6
  // * 2 = 34; the starts at +0 cost 34 too but come later (an end before a
  // start at one position), and every plane on y or z costs 50. So the
  // plane is the second end, at -0, whose sign goes into the node. Both
  // children have area 6: leaves.
  const uint32_t atMinusZero = 0x80000000u;
  cases.push_back({SWMeshTable(),
                   {x1, atMinusZero},
                   {Leaf{{-1, 0, 0, -0.0f, 1, 1}, {0, 1}}, Leaf{{-0.0f, 0, 0, 1, 1, 1}, {2, 3}}}});
  AddMesh(cases.back().table,
          {Vertex(-1, 0, 0), Vertex(-0.0f, 1, 0), Vertex(-0.0f, 0, 1), Vertex(0, 0, 0), Vertex(1, 1, 0),
           Vertex(1, 0, 1)},
          {0, 1, 2, 0, 1, 2, 3, 4, 5, 3, 4, 5});

  // Every case with packed events, and with 16-byte records.
  for (const size_t packedLimit : {KDPackedTriangleLimit, size_t(0)}) {
    const PackedEventLimit limit(packedLimit);
    for (size_t i = 0; i < cases.size(); ++i) {
      KDTree tree;
      engine->Build(tree, cases[i].table);
      ASSERT_FALSE(tree.nodes.empty());
      EXPECT_EQ((std::array<uint32_t, 2>{tree.nodes[0].childAndAxis, tree.nodes[0].splitOrCount}),
                cases[i].root)
          << "case " << i << (packedLimit ? ", packed" : ", 16 bytes");
      EXPECT_EQ(Leaves(tree), cases[i].leaves) << "case " << i << (packedLimit ? ", packed" : ", 16 bytes");
    }
  }
}

TEST(KDEventLists, SortIsTheStableListOrderAtEverySize) {
  // The list order written out on its own: position as floats compare (-0
  // equal to +0, NaN after everything), then axis, then type; equals keep
  // their place, which the triangle number records, counting down so that
  // an order by triangle number would break the rule.
  const auto before = [](const KDEvent& a, const KDEvent& b) {
    const bool nanA = a.position != a.position, nanB = b.position != b.position;
    if (nanA != nanB) return nanB;
    if (!nanA && a.position != b.position) return a.position < b.position;
    if (a.axis != b.axis) return a.axis < b.axis;
    if (a.type != b.type) return a.type < b.type;
    return a.triangle > b.triangle;
  };
  const float nan = std::numeric_limits<float>::quiet_NaN(), inf = std::numeric_limits<float>::infinity();
  const float positions[] = {-inf, -2.5f, -1e-30f, -0.0f, 0.0f, 1e-30f, 1.0f, 1.0000001f, 3e7f, inf, nan};
  std::mt19937 random(7);
  // The packed list is checked by the same rule, read back through its
  // fields, and each position must come back with the bits it went in
  // with (any NaN as a NaN).
  // Below and above each size where the sort changes method or leaves the
  // stack, and one list whose keys all share the upper digits (every
  // position equal).
  const auto unpacked = [](KDPackedEvent e) {
    return KDEvent{KDTypeOf(e), KDPositionOf(e), KDTriangleOf(e), KDAxisOf(e)};
  };
  for (const size_t size : {2u, 63u, 64u, 511u, 512u, 513u, 8191u, 8192u, 20000u, 600u}) {
    KDEventList events;
    KDPackedEventList packed;
    std::vector<float> placed;
    for (uint32_t i = 0; i < size; ++i) {
      const float p = size == 600u ? 1.0f : positions[random() % std::size(positions)];
      const uint32_t triangle = uint32_t(size) - 1 - i;
      events.push_back(KDEvent{int32_t(random() % 3), p, triangle, uint32_t(random() % 3)});
      packed.push_back(KDMakeEvent<KDPackedEvent>(events.back().type, p, triangle, events.back().axis));
      placed.push_back(p);
    }
    SortEvents(events);
    SortEvents(packed);
    ASSERT_EQ(events.size(), size);
    ASSERT_EQ(packed.size(), size);
    for (size_t i = 1; i < size; ++i) {
      ASSERT_TRUE(before(events[i - 1], events[i])) << size << " at " << i;
      ASSERT_TRUE(before(unpacked(packed[i - 1]), unpacked(packed[i]))) << size << " packed at " << i;
    }
    for (const KDPackedEvent e : packed) {
      const float p = KDPositionOf(e), in = placed[size - 1 - KDTriangleOf(e)];
      if (in != in)
        ASSERT_NE(p, p);
      else
        ASSERT_EQ(std::bit_cast<uint32_t>(p), std::bit_cast<uint32_t>(in));
    }
  }
}

TEST_F(KDBuildFixture, AbortAtAnyPollLeavesNoJobBehindAndAnEmptyTree) {
  // 50 random triangles, small and large, placed twice.
  std::mt19937 random(9);
  std::uniform_real_distribution<float> where(0, 100), size(-1, 1);
  std::vector<SCENE_VERTEX> vertices;
  std::vector<uint32_t> indices;
  float x = 0, y = 0, z = 0;
  for (uint32_t i = 0; i < 150; ++i) {
    const float scale = i < 15 ? 40.0f : 3.0f;
    if (i % 3 == 0) x = where(random), y = where(random), z = where(random);
    vertices.push_back(Vertex(x + scale * size(random), y + scale * size(random), z + scale * size(random)));
    indices.push_back(i);
  }
  SWMeshTable table;
  AddMesh(table, vertices, indices, AddTranslation(table, 5, -3, 2), 2);
  AddTranslation(table, -20, 10, 0.5f);
  struct Polls {
    std::atomic<long> count{0};
    long abortFrom = 0;  // 0: never
  };
  const auto poll = [](void* context) {
    auto* polls = static_cast<Polls*>(context);
    const long n = polls->count.fetch_add(1) + 1;
    return polls->abortFrom != 0 && n >= polls->abortFrom;
  };
  KDTree reference;
  Polls counting;
  engine->Build(reference, table, poll, &counting);
  const long total = counting.count.load();
  const std::vector<Leaf> leaves = Leaves(reference);
  ASSERT_GT(leaves.size(), 10u);
  for (long from = 1; from <= total + 1; ++from) {
    KDTree tree;
    engine->Build(tree, table);
    Polls abort;
    abort.abortFrom = from;
    engine->Build(tree, table, poll, &abort);
    ASSERT_EQ(queue.QueueLength(), 0u) << from;
    ASSERT_EQ(queue.WakeCount(), 0) << from;
    // An abort at once leaves the tree as it was; none at all builds it.
    if (from == 1 || from > total)
      ASSERT_EQ(Leaves(tree), leaves) << from;
    else
      ASSERT_TRUE(tree.nodes.empty() && tree.leafTriangles.empty()) << from;
  }
}
