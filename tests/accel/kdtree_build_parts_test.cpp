// The faster pieces of the kd-tree build against plain versions written here
// from the rules: the clip plane by plane, the merge of two lists cut into
// pieces, and a split with a helper thread against one without. The list
// order is checked with the other event-list rules in kdtree_build_test.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <chrono>
#include <cfloat>
#include <cmath>
#include <limits>
#include <new>
#include <random>
#include <thread>
#include <vector>

#include "accel/KDParallel.h"
#include "accel/KDTreeBuild.h"

namespace {

float& At(SCENE_VERTEX_XYZ& p, int axis) {
  return axis == 0 ? p.x : axis == 1 ? p.y : p.z;
}

// Sutherland-Hodgman as written: every plane copies the polygon, a vertex on
// the plane is inside, a crossing is put exactly on the plane.
bool PlainClip(const SCENE_VERTEX_XYZ corners[3], const float boxMin[3], const float boxMax[3], float lo[3],
               float hi[3]) {
  std::vector<SCENE_VERTEX_XYZ> polygon(corners, corners + 3);
  for (int axis = 0; axis < 3; ++axis)
    for (const float side : {1.0f, -1.0f}) {
      const float value = side > 0 ? boxMin[axis] : boxMax[axis];
      std::vector<SCENE_VERTEX_XYZ> out;
      for (size_t i = 0; i < polygon.size(); ++i) {
        SCENE_VERTEX_XYZ p = polygon[i], q = polygon[(i + 1) % polygon.size()];
        const bool inP = (At(p, axis) - value) * side >= 0.0f, inQ = (At(q, axis) - value) * side >= 0.0f;
        if (inP != inQ) {
          const float t = (value - At(p, axis)) / (At(q, axis) - At(p, axis));
          SCENE_VERTEX_XYZ x{p.x + (q.x - p.x) * t, p.y + (q.y - p.y) * t, p.z + (q.z - p.z) * t};
          At(x, axis) = value;
          out.push_back(x);
        }
        if (inQ) out.push_back(q);
      }
      polygon = out;
    }
  if (polygon.empty()) return false;
  for (int axis = 0; axis < 3; ++axis) {
    lo[axis] = hi[axis] = At(polygon[0], axis);
    for (SCENE_VERTEX_XYZ& p : polygon) {
      if (At(p, axis) < lo[axis]) lo[axis] = At(p, axis);
      if (At(p, axis) > hi[axis]) hi[axis] = At(p, axis);
    }
  }
  return true;
}

KDPackedEventList Packed(const KDEventList& events) {
  KDPackedEventList packed;
  for (const KDEvent& e : events)
    packed.push_back(KDMakeEvent<KDPackedEvent>(e.type, e.position, e.triangle, e.axis));
  return packed;
}

std::vector<uint32_t> SplitWords(const KDSplit& split) {
  return {split.axis, std::bit_cast<uint32_t>(split.position), std::bit_cast<uint32_t>(split.cost),
          split.eventType, split.eventTriangle};
}

std::vector<uint32_t> Triangles(const KDEventList& events) {
  std::vector<uint32_t> order;
  for (const KDEvent& e : events) order.push_back(e.triangle);
  return order;
}

}  // namespace

TEST(KDBuildParts, ClipGivesThePlaneByPlaneResultToTheBit) {
  // Worked by hand: the right triangle x + y <= 4 cut to 1 <= x <= 3, with
  // room on y and z, keeps x from 1 to 3 and y from 0 to 3 (at x = 1).
  const SCENE_VERTEX_XYZ right[3] = {{0, 0, 0}, {4, 0, 0}, {0, 4, 0}};
  const float cutMin[3] = {1, -1, -1}, cutMax[3] = {3, 5, 1};
  std::vector<SCENE_VERTEX_XYZ> a, b;
  float lo[3], hi[3];
  ASSERT_TRUE(ClipTriangleToBox(right, cutMin, cutMax, a, b, lo, hi));
  EXPECT_EQ(std::vector<float>({lo[0], lo[1], lo[2], hi[0], hi[1], hi[2]}),
            std::vector<float>({1, 0, 0, 3, 3, 0}));

  // Triangles inside, across one or several faces, and outside.
  std::mt19937 random(5);
  std::uniform_real_distribution<float> where(-2.0f, 2.0f);
  const float boxMin[3] = {-1.0f, -0.75f, -0.5f}, boxMax[3] = {1.0f, 0.5f, 1.25f};
  int clipped = 0;
  for (int i = 0; i < 20000; ++i) {
    SCENE_VERTEX_XYZ c[3];
    for (SCENE_VERTEX_XYZ& v : c) v = {where(random), where(random), where(random)};
    float plainLo[3], plainHi[3];
    const bool plain = PlainClip(c, boxMin, boxMax, plainLo, plainHi);
    ASSERT_EQ(ClipTriangleToBox(c, boxMin, boxMax, a, b, lo, hi), plain) << i;
    if (!plain) continue;
    ++clipped;
    for (int k = 0; k < 3; ++k) {
      ASSERT_EQ(std::bit_cast<uint32_t>(lo[k]), std::bit_cast<uint32_t>(plainLo[k])) << i;
      ASSERT_EQ(std::bit_cast<uint32_t>(hi[k]), std::bit_cast<uint32_t>(plainHi[k])) << i;
    }
  }
  EXPECT_GT(clipped, 1000);
}

TEST(KDBuildParts, ATriangleWhollyInTheBoxGetsTheClipsRangeSignedZerosIncluded) {
  // Worked by hand: no plane of the box [-1, 4]^3 cuts these triangles, and
  // six planes that keep every corner each turn the polygon's start by one,
  // back to the first corner; the range is read from there. So -0 before +0
  // gives a start of -0 on x, +0 before -0 a start of +0. The third
  // triangle touches the faces x = -1 and z = 4; the fourth crosses x = 4.
  const float corners[4][3][3] = {{{-0.0f, 1, 1}, {0.0f, 2, 1}, {0.5f, 1, 3}},
                                  {{0.0f, 1, 1}, {-0.0f, 2, 1}, {0.5f, 1, 3}},
                                  {{-1, 0, 4}, {2, 0, 4}, {2, 3, 1}},
                                  {{3, 0, 0}, {6, 0, 0}, {3, 2, 0}}};
  const float expected[4][6] = {
      {-0.0f, 0.5f, 1, 2, 1, 3}, {0.0f, 0.5f, 1, 2, 1, 3}, {-1, 2, 0, 3, 1, 4}, {3, 4, 0, 2, 0, 0}};
  SWMeshTable table;
  SWMesh mesh;
  for (const auto& triangle : corners)
    for (const auto& corner : triangle) {
      SCENE_VERTEX v{};
      v.position = {corner[0], corner[1], corner[2]};
      mesh.indices.push_back(uint32_t(mesh.vertices.size()));
      mesh.vertices.push_back(v);
    }
  table.meshes.push_back(mesh);
  table.instances.push_back({0, 0, 0xFFFFFFFF});
  KDTree tree;
  tree.triangles.resize(4);
  ASSERT_EQ(FillInstanceTriangles(table, 0, tree.triangles.data(), 4), 4u);
  tree.buildCorners.resize(4);
  const float boxMin[3] = {-1, -1, -1}, boxMax[3] = {4, 4, 4};
  std::vector<SCENE_VERTEX_XYZ> a, b;
  for (uint32_t t = 0; t < 4; ++t) {
    KDEventList events;
    AddTriangleEvents(tree, table, t, 0, t, boxMin, boxMax, a, b, events);
    ASSERT_EQ(events.size(), t == 3 ? 5u : 6u) << t;  // the fourth is flat on z
    std::vector<uint32_t> got, want;
    for (const KDEvent& e : events) got.push_back(std::bit_cast<uint32_t>(e.position));
    for (int k = 0; k < 6; ++k)
      if (t != 3 || k != 5) want.push_back(std::bit_cast<uint32_t>(expected[t][k]));
    EXPECT_EQ(got, want) << t;
  }
}

// Positions over many magnitudes and both signs, so that keys fall in many
// top buckets, with -0 and +0 (one key) among them.
float PositionNumber(size_t i) {
  if (i % 5 == 0) return i % 2 ? -0.0f : 0.0f;
  return std::ldexp(float(i % 7 + 1), int(i % 41) - 20) * (i % 3 ? 1.0f : -1.0f);
}

TEST(KDBuildParts, SortingPiecesInPartsGivesTheStableSortOfThePiecesReadInTurn) {
  // Pieces of one list, dealt out at random to the threads' lists as the
  // root's threads make them. The rule: key order, and within a key the
  // order of the pieces read in turn, which a stable sort of the whole list
  // gives. Few positions make long runs of one key, and one bucket may hold
  // every event.
  const struct {
    size_t events, positions, parts;
  } cases[] = {{5, 3, 2}, {300, 7, 2}, {5000, 40, 2}, {5000, 3000, 3}, {20000, 1, 2}, {20000, 20000, 4}};
  for (const auto& c : cases) {
    std::mt19937 random(uint32_t(c.events + c.parts));
    std::uniform_int_distribution<size_t> position(0, c.positions - 1), length(0, 50), list(0, c.parts - 1);
    KDEventList whole;
    for (uint32_t i = 0; i < c.events; ++i)
      whole.push_back({int32_t(i % 3), PositionNumber(position(random)), i, i / 3 % 3});
    std::vector<KDEventList> lists(c.parts);
    std::vector<KDPackedEventList> packedLists(c.parts);
    std::vector<std::array<size_t, 3>> made;  // list, first, count
    for (size_t at = 0; at < whole.size();) {
      const size_t l = list(random), n = std::min(length(random), whole.size() - at);
      made.push_back({l, lists[l].size(), n});
      lists[l].insert(lists[l].end(), whole.begin() + at, whole.begin() + at + n);
      const KDPackedEventList packed = Packed(KDEventList(whole.begin() + at, whole.begin() + at + n));
      packedLists[l].insert(packedLists[l].end(), packed.begin(), packed.end());
      at += n;
    }
    std::vector<KDEventPiece<KDEvent>> pieces;
    std::vector<KDEventPiece<KDPackedEvent>> packedPieces;
    for (const auto& [l, first, n] : made) {
      pieces.push_back({lists[l].data() + first, n});
      packedPieces.push_back({packedLists[l].data() + first, n});
    }
    KDEventList sorted;
    KDPackedEventList packedSorted;
    SortPiecesInParts(pieces, lists, sorted);
    SortPiecesInParts(packedPieces, packedLists, packedSorted);

    std::stable_sort(whole.begin(), whole.end(),
                     [](const KDEvent& a, const KDEvent& b) { return KDEventKey(a) < KDEventKey(b); });
    const KDPackedEventList want = Packed(whole);
    ASSERT_EQ(packedSorted.size(), want.size()) << c.events;
    for (size_t i = 0; i < want.size(); ++i)
      ASSERT_EQ(packedSorted[i].word, want[i].word) << c.events << " " << i;
    EXPECT_EQ(Triangles(sorted), Triangles(whole)) << c.events;
  }
}

TEST(KDBuildParts, APartThatThrowsReachesTheCallerAfterEveryPartHasRun) {
  // Thrown on a helper and on the calling thread: either way the caller gets
  // the exception, and only after the other parts have ended.
  for (const size_t thrower : {size_t(0), size_t(2)}) {
    std::atomic<int> ran{0};
    EXPECT_THROW(RunParts(4,
                          [&](size_t i) {
                            if (i == thrower) throw std::bad_alloc();
                            std::this_thread::sleep_for(std::chrono::milliseconds(20));
                            ++ran;
                          }),
                 std::bad_alloc)
        << thrower;
    EXPECT_EQ(ran.load(), 3) << thrower;
  }
}

TEST(KDBuildParts, APackedEventIsItsKeySignOfZeroAndTriangleInOneWord) {
  // Worked by hand: the key is the ordered position (sign bit flipped for
  // positives, all bits for negatives, both zeros as +0, NaN all ones),
  // then axis and type, shifted above bit 27 (-0) and the triangle.
  const float nan = std::bit_cast<float>(0xFFC00001u), inf = std::numeric_limits<float>::infinity();
  const struct {
    KDEventType type;
    float position;
    uint32_t triangle, axis;
    uint64_t word;
  } cases[] = {
      {KD_EVENT_START, 1.0f, 5, 1, 0xBF80000060000005u},
      {KD_EVENT_END, -0.0f, (1u << 27) - 1, 2, 0x800000008FFFFFFFu},
      {KD_EVENT_PLANAR, 0.0f, 3, 0, 0x8000000010000003u},
      {KD_EVENT_PLANAR, -2.0f, 7, 0, 0x3FFFFFFF10000007u},
      {KD_EVENT_START, inf, 9, 0, 0xFF80000020000009u},
      {KD_EVENT_END, nan, 1, 1, 0xFFFFFFFF40000001u},
  };
  for (const auto& c : cases) {
    const KDPackedEvent e = KDMakeEvent<KDPackedEvent>(c.type, c.position, c.triangle, c.axis);
    EXPECT_EQ(e.word, c.word) << c.position;
    EXPECT_EQ(KDTypeOf(e), c.type);
    EXPECT_EQ(KDAxisOf(e), c.axis);
    EXPECT_EQ(KDTriangleOf(e), c.triangle);
    if (c.position == c.position)
      EXPECT_EQ(std::bit_cast<uint32_t>(KDPositionOf(e)), std::bit_cast<uint32_t>(c.position));
    else
      EXPECT_NE(KDPositionOf(e), KDPositionOf(e));
  }
}

TEST(KDBuildParts, ASplitWithAHelperThreadGivesTheChildrenOfOneWithout) {
  // Triangles of up to 8 units over a cube of 100, so that many straddle the
  // chosen plane and are clipped again.
  std::mt19937 random(3);
  std::uniform_real_distribution<float> where(0.0f, 100.0f), size(-4.0f, 4.0f);
  SWMeshTable table;
  SWMesh mesh;
  constexpr uint32_t count = 3000;
  for (uint32_t i = 0; i < count; ++i) {
    const float x = where(random), y = where(random), z = where(random);
    for (int c = 0; c < 3; ++c) {
      SCENE_VERTEX v{};
      v.position = {x + size(random), y + size(random), z + size(random)};
      mesh.vertices.push_back(v);
      mesh.indices.push_back(3 * i + c);
    }
  }
  table.meshes.push_back(mesh);
  table.instances.push_back({0, 0, 0xFFFFFFFF});

  KDTree tree;
  tree.triangles.resize(count);
  ASSERT_EQ(FillInstanceTriangles(table, 0, tree.triangles.data(), count), count);
  tree.buildCorners.resize(count);
  KDBuildNode root;
  for (int k = 0; k < 3; ++k) root.boxMin[k] = -5.0f, root.boxMax[k] = 105.0f;
  std::vector<SCENE_VERTEX_XYZ> a, b;
  for (uint32_t t = 0; t < count; ++t) {
    root.triangleList.push_back(t);
    AddTriangleEvents(tree, table, t, 0, t, root.boxMin, root.boxMax, a, b, root.events);
  }
  SortEvents(root.events);
  KDSplit split;
  ASSERT_TRUE(FindBestSplit(root, tree, split));
  // The same node with packed events must split and share out alike.
  KDBuildNode packedRoot = root;
  packedRoot.events.clear();
  packedRoot.packedEvents = Packed(root.events);
  KDSplit packedSplit;
  ASSERT_TRUE(FindBestSplit(packedRoot, tree, packedSplit));
  EXPECT_EQ(SplitWords(packedSplit), SplitWords(split));

  std::vector<uint8_t> sides(count);
  const KDThreadScratch scratch{&a, &b, &sides};
  const auto flat = [](const KDBuildNode& node) {
    std::vector<uint32_t> words(node.triangleList);
    for (const KDEvent& e : node.events)
      words.insert(words.end(), {uint32_t(e.type), std::bit_cast<uint32_t>(e.position), e.triangle, e.axis});
    for (const KDPackedEvent e : node.packedEvents)
      words.insert(words.end(), {uint32_t(KDTypeOf(e)), std::bit_cast<uint32_t>(KDPositionOf(e)),
                                 KDTriangleOf(e), KDAxisOf(e)});
    return words;
  };
  const auto partition = [&](bool helper, uint32_t maxDepth, KDBuildNode& left, KDBuildNode& right,
                             const KDBuildNode& from = KDBuildNode()) {
    KDBuildNode parent = from.packedEvents.empty() ? root : from;
    for (KDBuildNode* child : {&left, &right})
      std::copy(root.boxMin, root.boxMin + 3, child->boxMin),
          std::copy(root.boxMax, root.boxMax + 3, child->boxMax);
    left.boxMax[split.axis] = right.boxMin[split.axis] = split.position;
    PartitionNode(parent, split, tree, scratch, helper, left, right, maxDepth);
  };
  std::vector<uint32_t> children[2][2];
  KDBuildNode made[2][2];
  for (const bool helper : {false, true}) {
    partition(helper, UINT32_MAX, made[helper][0], made[helper][1]);
    children[helper][0] = flat(made[helper][0]);
    children[helper][1] = flat(made[helper][1]);
    EXPECT_GT(made[helper][0].triangleList.size() + made[helper][1].triangleList.size(), count)
        << "some triangles straddle";
    EXPECT_FALSE(made[helper][0].events.empty() || made[helper][1].events.empty());
  }
  EXPECT_EQ(children[1][0], children[0][0]);
  EXPECT_EQ(children[1][1], children[0][1]);
  for (const bool helper : {false, true}) {
    KDBuildNode left, right;
    partition(helper, UINT32_MAX, left, right, packedRoot);
    EXPECT_TRUE(left.events.empty() && right.events.empty() && !left.packedEvents.empty());
    EXPECT_EQ(flat(left), children[0][0]) << helper;
    EXPECT_EQ(flat(right), children[0][1]) << helper;
  }

  // Children at the deepest level (depth 0 here) are leaves whatever their
  // events: they get the same triangles and no events.
  KDBuildNode left, right;
  partition(false, 0, left, right);
  EXPECT_EQ(left.triangleList, made[0][0].triangleList);
  EXPECT_EQ(right.triangleList, made[0][1].triangleList);
  EXPECT_TRUE(left.events.empty() && right.events.empty());
}

namespace {

// The sweep as the rules put it: one event at a time, float counts per axis,
// the first of equal costs kept, then each axis's last plane with every
// triangle on its left.
bool PlainSweep(const KDBuildNode& node, KDSplit& best) {
  const float n = float(node.triangleList.size());
  float size[3], nLeft[3] = {0, 0, 0}, nRight[3] = {n, n, n};
  for (int a = 0; a < 3; ++a) size[a] = node.boxMax[a] - node.boxMin[a];
  const auto cost = [&](uint32_t a, float p, float left, float right) {
    const float b = size[(a + 1) % 3], c = size[(a + 2) % 3];
    const float parent = 2.0f * (b * c + size[a] * (b + c));
    return parent + 2.0f * (b * c + (p - node.boxMin[a]) * (b + c)) * left +
           2.0f * (b * c + (node.boxMax[a] - p) * (b + c)) * right;
  };
  const auto inBox = [&](uint32_t a, float p) { return node.boxMin[a] <= p && p <= node.boxMax[a]; };
  best = KDSplit{0, 0.0f, FLT_MAX, 0, 0};
  bool found = false;
  const KDEvent* last[3] = {nullptr, nullptr, nullptr};
  for (const KDEvent& e : node.events) {
    if (e.axis > 2) continue;
    last[e.axis] = &e;
    nRight[e.axis] -= e.type == KD_EVENT_END;
    if (inBox(e.axis, e.position) && cost(e.axis, e.position, nLeft[e.axis], nRight[e.axis]) < best.cost) {
      best = KDSplit{e.axis, e.position, cost(e.axis, e.position, nLeft[e.axis], nRight[e.axis]),
                     uint32_t(e.type), e.triangle};
      found = true;
    }
    nRight[e.axis] -= e.type == KD_EVENT_PLANAR;
    nLeft[e.axis] += e.type != KD_EVENT_END;
  }
  for (const KDEvent* e : last)
    if (e && e->position != FLT_MAX && inBox(e->axis, e->position) &&
        cost(e->axis, e->position, n, 0.0f) < best.cost) {
      best =
          KDSplit{e->axis, e->position, cost(e->axis, e->position, n, 0.0f), uint32_t(e->type), e->triangle};
      found = true;
    }
  return found;
}

}  // namespace

TEST(KDBuildParts, TheSweepFindsThePlainSweepsPlaneAtEveryLength) {
  // Positions on a coarse grid, some outside the box, make many equal
  // costs, so the choice among them is checked too; axis 3 is no axis and
  // is passed over; zeros come with either sign, whose bits the winning
  // plane must keep, and a few positions are NaN, never a candidate. Lengths
  // run across several blocks of eight and their remainders, and one node
  // has more than 2^21 events, the largest count the one-event loop keeps
  // in integers. The packed list of the same events must give the same
  // split.
  std::mt19937 random(11);
  std::uniform_int_distribution<int> grid(-2, 22), type(0, 2), axis(0, 12), triangles(1, 40);
  KDTree tree;
  std::vector<size_t> lengths;
  for (size_t length = 0; length < 140; ++length) lengths.insert(lengths.end(), 4, length);
  lengths.push_back((size_t(1) << 21) + 13);
  for (const size_t length : lengths) {
    KDBuildNode node;
    node.triangleList.resize(length < 140 ? triangles(random) : length / 5);
    for (int a = 0; a < 3; ++a) node.boxMin[a] = 0.0f, node.boxMax[a] = 5.0f * float(a + 2);
    for (size_t i = 0; i < length; ++i) {
      const int a = axis(random);
      const int g = grid(random);
      const float p = g == 22 ? std::numeric_limits<float>::quiet_NaN() : 0.5f * float(g);
      node.events.push_back({type(random), g == 0 && random() % 2 ? -0.0f : p, uint32_t(i),
                             a < 4    ? 0u
                             : a < 8  ? 1u
                             : a < 12 ? 2u
                                      : 3u});
    }
    SortEvents(node.events);
    KDBuildNode packed = node;
    packed.events.clear();
    packed.packedEvents = Packed(node.events);
    KDSplit got, gotPacked, want;
    const bool found = FindBestSplit(node, tree, got);
    ASSERT_EQ(found, PlainSweep(node, want)) << length;
    ASSERT_EQ(FindBestSplit(packed, tree, gotPacked), found) << length;
    if (!found) continue;
    EXPECT_EQ(SplitWords(got), SplitWords(want)) << length;
    EXPECT_EQ(SplitWords(gotPacked), SplitWords(want)) << length;
  }
}
