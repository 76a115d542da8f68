// Built trees against a test of every triangle: the nearest hit of
// IntersectSWGeometry must be the same triangle at the same distance, and
// the walk over the tree's layout must answer as the walk over its fields.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <random>
#include <vector>

#include "AccelTestAccess.h"
#include "host/BrindlexViewMath.h"
#include "engine/BrindlexViewRTRenderEngine.h"
#include "SceneTestAccess.h"
#include "TraversalTestHelpers.h"

using scene_test::Vertex;

namespace {

// Sanitizer builds check the same kinds of ray at a tenth of the count, so
// that their runs stay within minutes; the Release run compares them all.
#ifdef BRINDLEX_SANITIZED_BUILD
constexpr int ComparedRays = 10000;
#else
constexpr int ComparedRays = 100000;
#endif

struct Random {
  std::mt19937 engine{12345};
  double Uniform(double lo, double hi) { return std::uniform_real_distribution<double>(lo, hi)(engine); }
  size_t Index(size_t count) { return std::uniform_int_distribution<size_t>(0, count - 1)(engine); }
  SCENE_VERTEX_XYZ_64 UnitVector() {
    for (;;) {
      SCENE_VERTEX_XYZ_64 v = {Uniform(-1, 1), Uniform(-1, 1), Uniform(-1, 1)};
      const double length = std::sqrt(v.x * v.x + v.y * v.y + v.z * v.z);
      if (length > 0.1 && length <= 1.0) return {v.x / length, v.y / length, v.z / length};
    }
  }
};

template <typename Vector>
auto& At(Vector& v, int axis) {
  return axis == 0 ? v.x : axis == 1 ? v.y : v.z;
}

// A random affine placement: any mix of rotation, scale and shear, moved
// by up to `reach` in each axis.
SCENE_MATRIX Placement(Random& random, double reach) {
  SCENE_MATRIX m{};
  for (int col = 0; col < 3; ++col)
    for (int row = 0; row < 3; ++row) m.m[col * 4 + row] = float(random.Uniform(-1.5, 1.5));
  for (int row = 0; row < 3; ++row) m.m[12 + row] = float(random.Uniform(0, reach));
  m.m[15] = 1.0f;
  return m;
}

// Random triangles of every size in 0 ... 10. One in six lies in an axis
// plane; one in four of the rest has its corners on a grid of 0.5, so that
// many share coordinates with each other and with split planes; a few are
// collinear.
SWMesh RandomSoup(Random& random, int count) {
  SWMesh mesh;
  for (int i = 0; i < count; ++i) {
    const double size = random.Uniform(0.02, 1.5);
    const double center[3] = {random.Uniform(0, 10), random.Uniform(0, 10), random.Uniform(0, 10)};
    const int flatAxis = i % 6 == 0 ? int(random.Index(3)) : -1;
    for (int corner = 0; corner < 3; ++corner) {
      double p[3];
      for (int axis = 0; axis < 3; ++axis) {
        p[axis] = axis == flatAxis ? center[axis] : center[axis] + random.Uniform(-size, size);
        if (i % 4 == 1) p[axis] = std::round(p[axis] * 2) / 2;
      }
      if (i % 50 == 7 && corner == 2) {
        const SCENE_VERTEX a = mesh.vertices[mesh.vertices.size() - 2], b = mesh.vertices.back();
        p[0] = 2.0 * b.position.x - a.position.x;
        p[1] = 2.0 * b.position.y - a.position.y;
        p[2] = 2.0 * b.position.z - a.position.z;
      }
      mesh.vertices.push_back(Vertex(float(p[0]), float(p[1]), float(p[2])));
      mesh.indices.push_back(uint32_t(mesh.indices.size()));
    }
  }
  return mesh;
}

// A grid of quads in z = 0 over 0 ... size, two triangles each.
SWMesh Floor(int cells, double size) {
  SWMesh mesh;
  for (int y = 0; y <= cells; ++y)
    for (int x = 0; x <= cells; ++x)
      mesh.vertices.push_back(Vertex(float(size * x / cells), float(size * y / cells), 0));
  for (int y = 0; y < cells; ++y) {
    for (int x = 0; x < cells; ++x) {
      const uint32_t a = y * (cells + 1) + x, b = a + cells + 1;
      for (uint32_t index : {a, a + 1, b, a + 1, b + 1, b}) mesh.indices.push_back(index);
    }
  }
  return mesh;
}

// The same triangle at the same distance, or both misses.
bool SameHit(bool hitA, const SWRayIntersectionResult& a, bool hitB, const SWRayIntersectionResult& b) {
  return hitA == hitB &&
         (!hitA || (double(a.distance) == double(b.distance) && a.treeIndex == b.treeIndex &&
                    a.instanceIndex == b.instanceIndex && a.triangleIndex == b.triangleIndex));
}

// An engine whose two tables the test fills and whose workers build the trees.
class GroundTruth {
 public:
  GroundTruth() : engine(new AccelTestEngine()), access(*engine) {
    engine->Initialize(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
  }
  ~GroundTruth() { engine->Release(); }

  SWMeshTable& Table(int row) { return access.Tables()[row]; }

  void BuildAndCompare(Random& random) {
    access.BuildTree(0);
    access.BuildTree(1);
    Prepare();
    ASSERT_FALSE(targets.empty());
    // A copy holds other vectors, so it walks its own fields rather than the
    // walk layout: the two walks must agree to the byte, weights included.
    const KDTree& laid = access.Trees()[0];
    const KDTree fields = laid;
    ASSERT_TRUE(laid.WalkLayout().Matches(laid));
    ASSERT_FALSE(fields.WalkLayout().Matches(fields));
    int compared = 0, onPlanes = 0, ties = 0, hits = 0, failures = 0, walksApart = 0;
    while (compared < ComparedRays) {
      const int kind = (compared + onPlanes) % 6;
      const TestRay ray = MakeRay(random, kind);
      // The layout's walk takes its node steps by masks for a ray from a new
      // origin and by jumps for one from the origin before: each must give
      // what the tree's own walk gives.
      SWRayIntersectionResult a{}, again{}, b{};
      const bool hitA = laid.Intersect(ray.origin, ray.direction, ray.inverse, a);
      const bool hitAgain = laid.Intersect(ray.origin, ray.direction, ray.inverse, again);
      const bool hitB = fields.Intersect(ray.origin, ray.direction, ray.inverse, b);
      walksApart += hitA != hitB || std::memcmp(&a, &b, sizeof a) != 0;
      walksApart += hitAgain != hitB || std::memcmp(&again, &b, sizeof a) != 0;
      SWRayIntersectionResult tree{}, every{};
      const bool hit = engine->IntersectSWGeometry(ray.origin, ray.direction, ray.inverse, tree);
      const bool everyHit = EveryTriangle(ray, every);
      if (hit) CheckOnSurface(ray, tree);
      if (OnSplitPlane(ray)) {
        // The walk's rules for a ray in a plane (parallel within 1e-7, or
        // starting on it) may skip the side that holds the nearest hit; what
        // it reports must still be a true hit.
        ++onPlanes;
        EXPECT_TRUE(!hit || HitsAt(ray, tree)) << "kind " << kind;
        continue;
      }
      ++compared;
      hits += hit;
      if (SameHit(hit, tree, everyHit, every)) continue;
      // Two triangles at exactly the same distance: which one is reported
      // depends on the order of the leaves, so any of them is right.
      if (hit && everyHit && double(tree.distance) == double(every.distance) && HitsAt(ray, tree)) {
        ++ties;
        continue;
      }
      if (++failures <= 5) {
        ADD_FAILURE() << "kind " << kind << ": tree " << hit << " t " << double(tree.distance) << " triangle "
                      << tree.triangleIndex << "; every triangle " << everyHit << " t "
                      << double(every.distance) << " triangle " << every.triangleIndex;
      }
    }
    EXPECT_EQ(walksApart, 0);
    EXPECT_EQ(failures, 0) << ties << " exact ties, " << onPlanes << " rays in split planes";
    EXPECT_GT(hits, ComparedRays / 5);
  }

 private:
  struct WorldTriangle {
    SCENE_VERTEX_XYZ corner[3];
  };

  void Prepare() {
    for (int row = 0; row < 2; ++row) {
      const KDTree& tree = access.Trees()[row];
      SetOneLeaf(everything[row], tree.triangles);
      for (uint32_t n = 0; n < tree.triangles.size(); ++n) {
        const SWTriangle record = tree.triangles[n];
        numbers[row][uint64_t(record.instanceIndex) << 32 | record.triangleIndex] = n;
      }
      // The shape rules: children after their parent and inside the list,
      // leaf runs inside leafTriangles.
      for (uint32_t n = 0; n < tree.nodes.size(); ++n) {
        const uint32_t word = tree.nodes[n].childAndAxis, second = tree.nodes[n].splitOrCount;
        if ((word & 3) == 3) {
          EXPECT_LE(uint64_t(word >> 2) + second, tree.leafTriangles.size()) << "leaf " << n;
          continue;
        }
        EXPECT_TRUE(word >> 2 > n && (word >> 2) + 1 < tree.nodes.size()) << "node " << n;
        splits[word & 3].push_back(std::bit_cast<float>(second));
      }
      const SWMeshTable& table = Table(row);
      for (uint32_t instance = 0; instance < table.instances.size(); ++instance) {
        const SWMesh* mesh = GetInstanceMesh(table, table.instances[instance]);
        for (uint32_t t = 0; mesh && t < mesh->indices.size() / 3; ++t) {
          WorldTriangle w;
          if (!GetTriangleCorners(table, instance, t, w.corner)) continue;
          // Rays aim at points inside triangles of some area: a point or a
          // line would aim them at corners that leaves share, where the walk
          // may pass between two leaves and miss a triangle that only touches.
          if (HasArea(w)) targets.push_back(w);
          for (const SCENE_VERTEX_XYZ& c : w.corner) {
            for (int axis = 0; axis < 3; ++axis) {
              lo[axis] = std::min<double>(lo[axis], At(c, axis));
              hi[axis] = std::max<double>(hi[axis], At(c, axis));
            }
          }
        }
      }
    }
    for (std::vector<double>& list : splits) std::sort(list.begin(), list.end());
  }

  static bool HasArea(const WorldTriangle& w) {
    SCENE_VERTEX_XYZ_64 e[2], n;
    for (int i = 0; i < 2; ++i)
      for (int axis = 0; axis < 3; ++axis) At(e[i], axis) = At(w.corner[i + 1], axis) - At(w.corner[0], axis);
    CrossProduct(&e[0], &e[1], &n);
    return Magnitude(&n) > 1e-6;
  }

  // Parallel rays within 1e-7 of a plane visit both sides with one interval,
  // and a ray starting on a plane gives the near side an interval of 0, so
  // such rays get their own check. The margin covers the widening of floats.
  bool OnSplitPlane(const TestRay& ray) const {
    for (int axis = 0; axis < 3; ++axis) {
      SCENE_VERTEX_XYZ_64 origin = ray.origin;
      const double c = At(origin, axis);
      const auto next = std::lower_bound(splits[axis].begin(), splits[axis].end(), c - 2e-7);
      if (next != splits[axis].end() && *next <= c + 2e-7) return true;
    }
    return false;
  }

  // Six kinds: from anywhere in the box and a margin of a fifth; at a
  // point inside a triangle from up to the box's size away; leaving such a
  // point; and the same three along an axis.
  TestRay MakeRay(Random& random, int kind) {
    SCENE_VERTEX_XYZ_64 direction = random.UnitVector(), p;
    if (kind >= 3) {
      const int axis = int(random.Index(6));
      direction = {0, 0, 0};
      At(direction, axis % 3) = axis < 3 ? 1.0 : -1.0;
    }
    const WorldTriangle& w = targets[random.Index(targets.size())];
    double b = random.Uniform(0, 1), c = random.Uniform(0, 1);
    if (b + c > 1) b = 1 - b, c = 1 - c;
    const double back = kind % 3 == 1 ? random.Uniform(0, hi[0] - lo[0] + hi[1] - lo[1] + hi[2] - lo[2]) : 0;
    for (int axis = 0; axis < 3; ++axis) {
      const double a0 = At(w.corner[0], axis), extra = (hi[axis] - lo[axis]) * 0.2;
      At(p, axis) = kind % 3 == 0 ? random.Uniform(lo[axis] - extra, hi[axis] + extra)
                                  : a0 + b * (At(w.corner[1], axis) - a0) + c * (At(w.corner[2], axis) - a0) -
                                        back * At(direction, axis);
    }
    return Ray(p, direction);
  }

  bool EveryTriangle(const TestRay& ray, SWRayIntersectionResult& result) const {
    bool hit = false;
    for (uint32_t row = 0; row < 2; ++row) {
      SWRayIntersectionResult r{};
      r.distance = Largest;
      if (!everything[row].IntersectLeaf(everything[row].nodes[0], ray.origin, ray.direction, r)) continue;
      if (hit && !(double(result.distance) > double(r.distance))) continue;
      result = r;
      result.treeIndex = row;
      hit = true;
    }
    return hit;
  }

  // The reported triangle, tested alone, is hit at the reported distance.
  bool HitsAt(const TestRay& ray, const SWRayIntersectionResult& answer) const {
    const auto found =
        numbers[answer.treeIndex].find(uint64_t(answer.instanceIndex) << 32 | answer.triangleIndex);
    if (found == numbers[answer.treeIndex].end()) return false;
    SWRayIntersectionResult r{};
    r.distance = Largest;
    return everything[answer.treeIndex].IntersectLeaf(Leaf(found->second, 1), ray.origin, ray.direction, r) &&
           double(r.distance) == double(answer.distance);
  }

  // Rebuilt from the mesh table, the hit lies on the ray where it says.
  void CheckOnSurface(const TestRay& ray, const SWRayIntersectionResult& r) {
    SCENE_VERTEX_XYZ c[3];
    ASSERT_TRUE(GetTriangleCorners(Table(r.treeIndex), r.instanceIndex, r.triangleIndex, c));
    const double wb = r.weightB, wc = r.weightC, t = r.distance;
    SCENE_VERTEX_XYZ_64 origin = ray.origin, direction = ray.direction;
    for (int axis = 0; axis < 3; ++axis) {
      const double a = At(c[0], axis), b = At(c[1], axis), cc = At(c[2], axis);
      ASSERT_NEAR(a + wb * (b - a) + wc * (cc - a), At(origin, axis) + t * At(direction, axis), 1e-4);
    }
  }

  AccelTestEngine* engine;
  AccelTestEngine& access;
  KDTree everything[2];
  std::map<uint64_t, uint32_t> numbers[2];
  std::vector<double> splits[3];
  std::vector<WorldTriangle> targets;
  double lo[3] = {Largest, Largest, Largest};
  double hi[3] = {-Largest, -Largest, -Largest};
};

}  // namespace

TEST(KDTreeGroundTruth, SoupsFloorsAndSharedPlacedInstancesInBothTrees) {
  Random random;
  GroundTruth truth;
  SWMeshTable& table = truth.Table(0);
  table.meshes = {RandomSoup(random, 2500), RandomSoup(random, 100), Floor(20, 12.0)};
  table.instances = {{0, 0, 0}, {2, 0, 0}};
  for (uint32_t i = 1; i <= 5; ++i) {
    table.transforms.push_back(Placement(random, 11));
    table.instances.push_back({1, i, 0});
  }
  table.instances.push_back({7, 0, 0});   // no such mesh: absent
  table.instances.push_back({1, 99, 0});  // no such transform: as stored
  SWMeshTable& rotated = truth.Table(1);
  rotated.meshes.push_back(RandomSoup(random, 300));
  rotated.transforms.push_back(Placement(random, 3));
  rotated.instances.push_back({0, 1, 0});
  truth.BuildAndCompare(random);
}
