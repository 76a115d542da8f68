// The nearest-hit query over one kd-tree: a front-to-back walk with an
// explicit stack, in double precision, and the projected triangle test.
#include <emmintrin.h>

#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

#include "accel/KDTree.h"
#include "accel/RayIntersection.h"
#include "accel/SplitOrder.h"
#include "host/brindlexutil.h"
#include "host/Numbers.h"

namespace {

// The name under which the log reports this query's failures.
constexpr const char* SourceFile = ".\\BrindlexViewRTRenderEngine";
constexpr double Largest = std::numeric_limits<double>::max();
constexpr double Nearest = 1e-6;

struct Ray {
  double origin[3];
  double direction[3];
  double inverse[3];
};

// Whether the ray runs parallel to the planes of `axis` as far as the walk
// and the box clip are concerned (a NaN component counts as parallel).
inline bool Parallel(const Ray& ray, int axis) {
  return !(std::fabs(ray.direction[axis]) > NearZero);
}

Ray MakeRay(const SCENE_VERTEX_XYZ_64& o, const SCENE_VERTEX_XYZ_64& d, const SCENE_VERTEX_XYZ_64& inv) {
  return {{o.x, o.y, o.z}, {d.x, d.y, d.z}, {inv.x, inv.y, inv.z}};
}

template <class Node>
struct KDStackEntry {
  const Node* node;
  double tNear;
  double tFar;
};

// A stack of the walk over a tree's own fields. A tree that the build made
// is at most 20 levels deep, so the inline entries hold any sound walk
// without allocating; only a deeper hand-made tree, or one that is not
// sound, spills to the heap.
template <class Node>
class TraversalStack {
  using KDStackEntry = ::KDStackEntry<Node>;

 public:
  size_t Size() const { return count; }
  bool Empty() const { return count == 0; }
  void Push(const KDStackEntry& entry) {
    if (count < Inline) {
      entries[count++] = entry;
    } else {
      Spill(entry);
    }
  }
  KDStackEntry Pop() {
    --count;
    if (count < Inline) return entries[count];
    const KDStackEntry entry = spill.back();
    spill.pop_back();
    return entry;
  }

 private:
  [[gnu::noinline]] void Spill(const KDStackEntry& entry) {
    spill.push_back(entry);
    ++count;
  }

  static constexpr size_t Inline = 64;
  KDStackEntry entries[Inline];
  std::vector<KDStackEntry> spill;
  size_t count = 0;
};

// A stack of the walk over the layout. Every entry waiting on it is the
// other child of a different ancestor of the node in hand, so it never holds
// more entries than the tree has levels, and the layout is made only for
// trees of at most KDWalkLayout::MaxDepth levels: no check, no spill, and
// nothing that keeps its top out of a register.
template <class Entry>
class BoundedStack {
 public:
  size_t Size() const { return count; }
  bool Empty() const { return count == 0; }
  void Push(const Entry& entry) { entries[count++] = entry; }
  // Writes the entry above the top and keeps it only when `keep` is 1: no
  // jump. The slot is there: a node at depth d has at most d entries
  // waiting, and inner nodes lie fewer than MaxDepth levels deep.
  void PushIf(const Entry& entry, uint32_t keep) {
    entries[count] = entry;
    count += keep;
  }
  // A reference, read field by field: a copy of the entry went through a
  // second stack slot whose wider reads the stores could not forward.
  const Entry& Pop() { return entries[--count]; }

 private:
  Entry entries[KDWalkLayout::MaxDepth];
  size_t count = 0;
};

// Stands for a child index outside `nodes`, which only a tree that is not
// sound can hold: it reads as an empty leaf.
const KDNode EmptyLeaf = {3, 0};

const KDNode* Child(const std::vector<KDNode>& nodes, uint32_t index) {
  return index < nodes.size() ? &nodes[index] : &EmptyLeaf;
}

// One whole line, however many workers fail at once: debugOS hands each
// thread's text to its target only in complete lines.
[[noreturn, gnu::noinline, gnu::cold]] void ReportInfiniteRecursion(int line) {
  debugOS << "Error: " << SourceFile << " (" << line
          << ") KDTree::Intersect - infinite recursion case detected" << std::endl;
  throw 0;
}

// True when a and b are both above 0 or both below 0: the same ordered
// comparisons as the operators (false with a NaN), made side by side.
inline bool SameSideOfZero(double a, double b) {
  const __m128d pair = _mm_set_pd(b, a);
  const int above = _mm_movemask_pd(_mm_cmpgt_pd(pair, _mm_setzero_pd()));
  const int below = _mm_movemask_pd(_mm_cmplt_pd(pair, _mm_setzero_pd()));
  // Bit 3 of the word stands for "both above", bit 12 for "both below".
  return (0x1008 >> (above | below << 2)) & 1;
}
// a <= b and c <= d, side by side; false with a NaN.
inline bool BothAtMost(double a, double b, double c, double d) {
  return _mm_movemask_pd(_mm_cmple_pd(_mm_set_pd(c, a), _mm_set_pd(d, b))) == 3;
}

// The ray's origin and direction as each dominant axis k of a triangle
// sees them: k's own component first, then its u and v axes. The triangle
// test reads them at fixed places in the row of its k, instead of choosing
// u and v by a branch on k, which triangles of all three orientations in
// one leaf made a coin toss; the values, and so every result, are the same.
struct ProjectedRay {
  enum { OriginK, OriginU, OriginV, DirectionK, DirectionU, DirectionV };
  double axes[3][6];

  explicit ProjectedRay(const Ray& ray) {
    for (uint32_t k = 0; k < 3; ++k) {
      const uint32_t u = k == 2 ? 0 : k + 1;
      const uint32_t v = k == 0 ? 2 : k - 1;
      double* row = axes[k];
      row[OriginK] = ray.origin[k];
      row[OriginU] = ray.origin[u];
      row[OriginV] = ray.origin[v];
      row[DirectionK] = ray.direction[k];
      row[DirectionU] = ray.direction[u];
      row[DirectionV] = ray.direction[v];
    }
  }
};

// The projected test of one triangle against the hits so far; `k` is its
// dominant axis, already known to be 0, 1 or 2. Shared by both layouts so
// that both compute every hit from the same expressions. `OneJump`: every
// value is computed whatever the tests find, and the tests are joined
// before a single jump, which is mostly "no hit"; for rays that do not
// follow the rays before them, whose tests the processor cannot guess.
template <bool OneJump = false, class Triangle>
inline bool TestTriangle(const Triangle& tri, uint32_t k, uint32_t instanceIndex, const ProjectedRay& ray,
                         double& nearest, SWRayIntersectionResult& result) {
  const double* row = ray.axes[k];
  const double ok = row[ProjectedRay::OriginK], ou = row[ProjectedRay::OriginU],
               ov = row[ProjectedRay::OriginV];
  const double dk = row[ProjectedRay::DirectionK], du = row[ProjectedRay::DirectionU],
               dv = row[ProjectedRay::DirectionV];
  const double normalU = tri.normalU, normalV = tri.normalV;
  const double denominator = dk + normalU * du + normalV * dv;
  const double numerator = tri.planeD - ok - normalU * ou - normalV * ov;
  // Only a numerator and denominator of one sign give a t above 0, so the
  // division is skipped for every other triangle; a ray in the plane (0 / 0)
  // and a parallel ray (x / 0) are misses too. The comparisons of each test
  // are made side by side in one register and joined before one jump, which
  // random triangles cannot predict, instead of one jump for each.
  const bool sameSide = SameSideOfZero(numerator, denominator);
  if (!OneJump && !sameSide) return false;
  const double t = numerator * (1.0 / denominator);
  const bool inReach = BothAtMost(t, nearest, Nearest, t);
  if (!OneJump && !inReach) return false;
  const double hu = ou + t * du - tri.vertexU;
  const double hv = ov + t * dv - tri.vertexV;
  const double weightB = hv * tri.edge1U + hu * tri.edge1NegV;
  const double weightC = hu * tri.edge2V + hv * tri.edge2NegU;
  const bool inside = (weightB >= 0.0) & (weightC >= 0.0) & (weightB + weightC <= 1.0);
  if constexpr (OneJump) {
    if (!(inside & sameSide & inReach)) return false;
  } else if (!inside) {
    return false;
  }
  nearest = t;
  result.distance = t;
  result.weightB = weightB;
  result.weightC = weightC;
  result.instanceIndex = instanceIndex;
  result.triangleIndex = tri.triangleIndex;
  return true;
}

bool LeafTest(const KDTree& tree, const KDNode& leaf, const ProjectedRay& ray,
              SWRayIntersectionResult& result) {
  const uint64_t start = leaf.childAndAxis >> 2;
  const uint64_t end = start + leaf.splitOrCount;
  if (end - 1 >= tree.leafTriangles.size()) return false;
  double nearest = result.distance;
  bool improved = false;
  for (uint64_t entry = start; entry < end; ++entry) {
    const uint32_t number = tree.leafTriangles[entry];
    if (number >= tree.triangles.size()) continue;
    const SWTriangle& tri = tree.triangles[number];
    if (tri.degenerate != 0) continue;
    const uint32_t k = tri.dominantAxis;
    if (k > 2) continue;
    if (TestTriangle(tri, k, tri.instanceIndex, ray, nearest, result)) improved = true;
  }
  return improved;
}

// The tree's own fields: children adjacent, the lower first, and every index
// checked, since a hand-made tree may not be sound.
class TreeFields {
 public:
  using Node = KDNode;
  using Stack = TraversalStack<KDNode>;
  explicit TreeFields(const KDTree& tree) : tree(tree) {}
  const KDNode* Root() const { return tree.nodes.data(); }
  const KDNode* Lower(const KDNode*, uint32_t word) const { return Child(word >> 2); }
  const KDNode* Upper(const KDNode*, uint32_t word) const { return Child((word >> 2) + 1); }
  bool Leaf(const KDNode& leaf, const ProjectedRay& ray, SWRayIntersectionResult& result) const {
    return leaf.splitOrCount != 0 && LeafTest(tree, leaf, ray, result);
  }
  void CheckDepth(size_t pushed, int line) const {
    if (pushed > tree.nodes.size()) ReportInfiniteRecursion(line);
  }

 private:
  const KDNode* Child(uint32_t index) const { return ::Child(tree.nodes, index); }
  const KDTree& tree;
};

// The walk layout: made only from a sound tree, so no index needs a check
// and no walk can cycle.
class WalkFields {
 public:
  using Node = KDWalkNode;
  using Stack = BoundedStack<KDStackEntry<KDWalkNode>>;
  WalkFields(const KDWalkLayout& layout, const KDTree& tree)
      : nodes(layout.nodes.data()), triangles(tree.triangles.data()), entries(layout.leafEntries.data()) {}
  const KDWalkNode* Root() const { return nodes; }
  const KDWalkNode* Lower(const KDWalkNode* node, uint32_t) const { return node + 1; }
  const KDWalkNode* Upper(const KDWalkNode*, uint32_t word) const { return nodes + (word >> 2); }
  template <bool OneJump = false>
  bool Leaf(const KDWalkNode& leaf, const ProjectedRay& ray, SWRayIntersectionResult& result) const {
    double nearest = result.distance;
    if (leaf.splitOrCount & KDWalkNode::InlineLeaf) {
      // The numbers stay in registers: a run through a two-entry array on
      // the stack would store them and read them back.
      const SWTriangle* first = Prefetched(leaf.childAndAxis >> 2);
      const uint32_t second = leaf.splitOrCount & KDWalkNode::NoSecond;
      if (second == KDWalkNode::NoSecond) return Test<OneJump>(*first, ray, nearest, result);
      const SWTriangle* other = Prefetched(second);
      const bool improved = Test<OneJump>(*first, ray, nearest, result);
      return Test<OneJump>(*other, ray, nearest, result) || improved;
    }
    const uint32_t* entry = entries + (leaf.childAndAxis >> 2);
    const uint32_t* const end = entry + leaf.splitOrCount;
    // The leaf's records lie apart, by triangle number, and each spans two
    // or three cache lines: asking for all of them before the first test
    // lets their misses overlap instead of following one another.
    for (const uint32_t* next = entry; next != end; ++next) Prefetched(*next);
    bool improved = false;
    for (; entry != end; ++entry)
      if (Test<OneJump>(triangles[*entry], ray, nearest, result)) improved = true;
    return improved;
  }
  void CheckDepth(size_t, int) const {}

 private:
  const SWTriangle* Prefetched(uint32_t number) const {
    const char* record = reinterpret_cast<const char*>(triangles + number);
    __builtin_prefetch(record);
    __builtin_prefetch(record + sizeof(SWTriangle) - 1);
    return triangles + number;
  }
  template <bool OneJump>
  static bool Test(const SWTriangle& tri, const ProjectedRay& ray, double& nearest,
                   SWRayIntersectionResult& result) {
    return TestTriangle<OneJump>(tri, tri.dominantAxis, tri.instanceIndex, ray, nearest, result);
  }

  const KDWalkNode* nodes;
  const SWTriangle* triangles;
  const uint32_t* entries;
};

// After a leaf: false when the walk is over, else the newest waiting node
// and its interval. Nothing that a later node holds can be nearer than
// `nearest` once tFar reaches it.
template <class Stack, class Node>
inline bool Resume(Stack& stack, double nearest, const Node*& node, double& tNear, double& tFar) {
  if (tFar >= nearest || stack.Empty()) return false;
  const auto& next = stack.Pop();
  node = next.node;
  tNear = next.tNear;
  tFar = next.tFar;
  return true;
}

// `a` if `pick` is not 0, else `b`, by a conditional move: GCC turns a ?:
// of this kind into a jump when it guesses the jump predictable. Two
// pairs on one test.
template <class T, class U>
inline void PickBoth(uint32_t pick, T a, T& b, U c, U& d) {
  asm("test %[pick], %[pick]\n\tcmovne %[a], %[b]\n\tcmovne %[c], %[d]"
      : [b] "+r"(b), [d] "+r"(d)
      : [a] "r"(a), [c] "r"(c), [pick] "r"(pick)
      : "cc");
}

// A node's two words as one, childAndAxis in the low half.
inline uint64_t Word(const KDWalkNode* node) {
  uint64_t word;
  std::memcpy(&word, node, sizeof word);
  return word;
}

// The three outcomes of a node step of a ray with no parallel axis, as the
// walk's cascade decides them (far side only, near side only, both), from
// masks in the low lanes of SSE registers, without a jump; written out
// because the intrinsics of single lanes made GCC zero and shuffle the
// upper lanes at every step. Bit 0 of the answer: the next node is the
// lower child; bit 1: only one child is walked. `toLower` holds bit 0 as a
// mask in its low lane. `end` becomes t when both are walked. A NaN t sets
// neither outcome's mask, and pushes, as in the cascade. The near child is
// the lower one when `lowerNear` (split >= origin) is set, and the far-only
// outcome turns that round.
inline uint32_t StepMasks(double t, double tNear, double& end, __m128d lowerNear, __m128d& toLower) {
  double farOnly, single, scratch, zero;
  uint32_t bits;
  toLower = lowerNear;
  asm("xorpd %[zero], %[zero]\n\t"
      "movapd %[t], %[farOnly]\n\t"
      "cmpltsd %[tNear], %[farOnly]\n\t"  // t < tNear
      "movapd %[zero], %[scratch]\n\t"
      "cmpltsd %[t], %[scratch]\n\t"  // 0 < t
      "andpd %[scratch], %[farOnly]\n\t"
      "movapd %[end], %[single]\n\t"
      "cmpltsd %[t], %[single]\n\t"  // tFar < t
      "movapd %[t], %[scratch]\n\t"
      "cmpltsd %[zero], %[scratch]\n\t"  // t < 0
      "orpd %[scratch], %[single]\n\t"
      "orpd %[farOnly], %[single]\n\t"
      "xorpd %[farOnly], %[toLower]\n\t"
      "movapd %[toLower], %[scratch]\n\t"
      "unpcklpd %[single], %[scratch]\n\t"
      "movmskpd %[scratch], %[bits]\n\t"
      "andpd %[single], %[end]\n\t"
      "andnpd %[t], %[single]\n\t"
      "orpd %[single], %[end]"
      : [bits] "=r"(bits), [farOnly] "=&x"(farOnly), [single] "=&x"(single), [scratch] "=&x"(scratch),
        [zero] "=&x"(zero), [toLower] "+&x"(toLower), [end] "+&x"(end)
      : [t] "x"(t), [tNear] "x"(tNear));
  return bits;
}

// The ray's origin and inverse direction by axis, with a fourth axis that a
// leaf's low bits (3) name: the walk ahead computes a child's plane before
// it knows whether the child is a leaf, and a leaf's value is never read.
struct AxisRows {
  double origin[4];
  double inverse[4];
  explicit AxisRows(const Ray& ray)
      : origin{ray.origin[0], ray.origin[1], ray.origin[2], 0.0},
        inverse{ray.inverse[0], ray.inverse[1], ray.inverse[2], 0.0} {}
};

// What a masked step needs of both children's planes, the lower child in
// the low lane: t, and split >= origin as a mask. A leaf's count stays out
// of the float conversion (0 instead).
struct Planes {
  __m128d t;
  __m128d lowerNear;
};
inline Planes PlanesOf(uint64_t lowerWord, uint64_t upperWord, const AxisRows& rows) {
  const __m128i words = _mm_set_epi64x(int64_t(upperWord), int64_t(lowerWord));
  const __m128i axes = _mm_and_si128(_mm_shuffle_epi32(words, _MM_SHUFFLE(2, 0, 2, 0)), _mm_set1_epi32(3));
  const __m128i leaves = _mm_cmpeq_epi32(axes, _mm_set1_epi32(3));
  const __m128i splitBits = _mm_andnot_si128(leaves, _mm_shuffle_epi32(words, _MM_SHUFFLE(3, 1, 3, 1)));
  const __m128d split = _mm_cvtps_pd(_mm_castsi128_ps(splitBits));
  const uint32_t lowerAxis = lowerWord & 3, upperAxis = upperWord & 3;
  const __m128d origin = _mm_loadh_pd(_mm_load_sd(&rows.origin[lowerAxis]), &rows.origin[upperAxis]);
  const __m128d inverse = _mm_loadh_pd(_mm_load_sd(&rows.inverse[lowerAxis]), &rows.inverse[upperAxis]);
  return {_mm_mul_pd(_mm_sub_pd(split, origin), inverse), _mm_cmple_pd(origin, split)};
}
// The node's own plane, for the first step after the root or a pop.
inline Planes PlaneOf(uint64_t word, const AxisRows& rows) {
  return PlanesOf(word, word, rows);
}

// Both lanes of `pair` with the low one chosen by the low lane of `toLower`:
// the lower child's value if it is set, else the upper child's.
inline __m128d Choose(__m128d toLower, __m128d pair) {
  const __m128d mask = _mm_unpacklo_pd(toLower, toLower);
  return _mm_or_pd(_mm_and_pd(mask, pair), _mm_andnot_pd(mask, _mm_shuffle_pd(pair, pair, 1)));
}

// What the walk ahead knows of a node when it reaches it: the node, its
// interval, its word, its plane and its children's words. A node that waits
// on the stack keeps all of it, so that a pop waits for no load. Written
// above the stack's top at every step, and kept only when both children
// are walked.
struct AheadState {
  const KDWalkNode* node;
  double tNear, tFar;
  uint64_t word, lowerWord, upperWord;
  Planes plane;
};

// The one of two values that is not `chosen`, for values picked by a mask:
// node places and words.
template <class T>
inline T OtherOf(T a, T b, T chosen) {
  static_assert(sizeof(T) == sizeof(uint64_t));
  return std::bit_cast<T>(std::bit_cast<uint64_t>(a) ^ std::bit_cast<uint64_t>(b) ^
                          std::bit_cast<uint64_t>(chosen));
}
inline __m128d OtherOf(__m128d pair, __m128d chosen) {
  return _mm_xor_pd(_mm_xor_pd(pair, _mm_shuffle_pd(pair, pair, 1)), chosen);
}

// A node's children, or the node itself twice when it is a leaf: the walk
// ahead loads a leaf child's would-be children from the leaf itself, and
// never reads them.
inline void ChildrenOrSelf(const WalkFields& fields, const KDWalkNode* node, uint64_t word,
                           const KDWalkNode*& lower, const KDWalkNode*& upper) {
  lower = upper = node;
  PickBoth((word & 3) ^ 3, fields.Lower(node, uint32_t(word)), lower, fields.Upper(node, uint32_t(word)),
           upper);
}

// The way down from the root of a ray that starts inside the tree's box
// (tNear 0), as the masked steps would take it: no step can send it to the
// far child alone (that takes tNear > t > 0), so the next node is always
// the near one, the origin's side of the plane, and t decides only whether
// the far child waits. The choice needs neither t nor masks, so this loop
// does without the walk ahead: the children's words are loaded while the
// node's plane is compared, and a step waits only for split >= origin and
// one conditional move. That comparison is made on the integer keys of
// SplitOrder.h, in the registers that hold the node's word, instead of
// widening the plane in a vector register and moving the answer back. A
// waiting far child gets all that the masked walk keeps of it. Stops at the
// leaf that holds the origin.
inline const KDWalkNode* DescendToOrigin(const WalkFields& fields, const AxisRows& rows,
                                         const KDWalkNode* node, uint64_t& word, double& tFar,
                                         BoundedStack<AheadState>& stack) {
  // By axis; a leaf's 3 is never looked up.
  const int32_t keys[3] = {OriginKey(rows.origin[0]), OriginKey(rows.origin[1]), OriginKey(rows.origin[2])};
  while ((word & 3) != 3) {
    const KDWalkNode* lower = fields.Lower(node, uint32_t(word));
    const KDWalkNode* upper = fields.Upper(node, uint32_t(word));
    const uint64_t lowerWord = Word(lower), upperWord = Word(upper);
    const Planes plane = PlaneOf(word, rows);
    const double t = _mm_cvtsd_f64(plane.t);
    const KDWalkNode* nearNode = upper;
    uint64_t nearWord = upperWord;
    PickBoth(uint32_t(SplitKey(uint32_t(word >> 32)) >= keys[word & 3]), lower, nearNode, lowerWord,
             nearWord);
    const KDWalkNode* farNode = OtherOf(lower, upper, nearNode);
    const uint64_t farWord = OtherOf(lowerWord, upperWord, nearWord);
    const KDWalkNode *farLower, *farUpper;
    ChildrenOrSelf(fields, farNode, farWord, farLower, farUpper);
    // The cascade's "near side only" (tFar < t or t < 0) as a mask, and
    // tFar narrowed to t without a jump; a NaN t pushes, as there.
    const __m128d end = _mm_set_sd(tFar);
    const __m128d single = _mm_or_pd(_mm_cmplt_sd(end, plane.t), _mm_cmplt_sd(plane.t, _mm_setzero_pd()));
    stack.PushIf({farNode, t, tFar, farWord, Word(farLower), Word(farUpper), PlaneOf(farWord, rows)},
                 uint32_t(_mm_movemask_pd(single) & 1) ^ 1);
    tFar = _mm_cvtsd_f64(_mm_or_pd(_mm_and_pd(single, end), _mm_andnot_pd(single, plane.t)));
    node = nearNode;
    word = nearWord;
  }
  return node;
}

// The walk over the layout for a ray with no parallel axis whose node steps
// the processor cannot guess: the same steps, values and triangle tests as
// Walk, so the same hit, with each step chosen by StepMasks instead of
// jumps. A coherent ray loses by it, as a guessed jump starts the next
// node's load before t is known. Here the walk runs two levels ahead:
// while a node's step is decided, its children's planes are computed and
// their children's words loaded, so that a step waits only for its own
// comparisons and the moves that pick what the next step needs.
bool WalkByMasks(const WalkFields& fields, const Ray& ray, double tNear, double tFar,
                 SWRayIntersectionResult& result) {
  BoundedStack<AheadState> stack;
  const ProjectedRay projected(ray);
  const AxisRows rows(ray);
  bool hit = false;
  const KDWalkNode* node = fields.Root();
  uint64_t word = Word(node), lowerWord = 0, upperWord = 0;
  if (tNear == 0.0) node = DescendToOrigin(fields, rows, node, word, tFar, stack);
  Planes plane = PlaneOf(word, rows);
  if ((word & 3) != 3) {
    lowerWord = Word(fields.Lower(node, uint32_t(word)));
    upperWord = Word(fields.Upper(node, uint32_t(word)));
  }
  for (;;) {
    while ((word & 3) != 3) {
      const KDWalkNode* lower = fields.Lower(node, uint32_t(word));
      const KDWalkNode* upper = fields.Upper(node, uint32_t(word));
      const Planes children = PlanesOf(lowerWord, upperWord, rows);
      const KDWalkNode *lowerLower, *lowerUpper, *upperLower, *upperUpper;
      ChildrenOrSelf(fields, lower, lowerWord, lowerLower, lowerUpper);
      ChildrenOrSelf(fields, upper, upperWord, upperLower, upperUpper);
      const uint64_t lowerLowerWord = Word(lowerLower), lowerUpperWord = Word(lowerUpper);
      const uint64_t upperLowerWord = Word(upperLower), upperUpperWord = Word(upperUpper);
      double end = tFar;
      __m128d toLower;
      const double t = _mm_cvtsd_f64(plane.t);
      const uint32_t bits = StepMasks(t, tNear, end, plane.lowerNear, toLower);
      node = upper;
      word = upperWord;
      uint64_t nextLower = upperLowerWord, nextUpper = upperUpperWord;
      PickBoth(bits & 1, lower, node, lowerWord, word);
      PickBoth(bits & 1, lowerLowerWord, nextLower, lowerUpperWord, nextUpper);
      const Planes next = {Choose(toLower, children.t), Choose(toLower, children.lowerNear)};
      stack.PushIf({OtherOf(lower, upper, node),
                    t,
                    tFar,
                    OtherOf(lowerWord, upperWord, word),
                    OtherOf(lowerLowerWord, upperLowerWord, nextLower),
                    OtherOf(lowerUpperWord, upperUpperWord, nextUpper),
                    {OtherOf(children.t, next.t), OtherOf(children.lowerNear, next.lowerNear)}},
                   (bits >> 1) ^ 1);
      tFar = end;
      plane = next;
      lowerWord = nextLower;
      upperWord = nextUpper;
    }
    if (fields.Leaf<true>(*node, projected, result)) hit = true;
    // Resume's rule, with the whole state that the entry keeps.
    if (tFar >= result.distance || stack.Empty()) return hit;
    const AheadState& next = stack.Pop();
    node = next.node;
    tNear = next.tNear;
    tFar = next.tFar;
    word = next.word;
    lowerWord = next.lowerWord;
    upperWord = next.upperWord;
    plane = next.plane;
  }
}

// The walk from the root, front to back. tNear and tFar stay in registers:
// nothing outside this function sees them.
// `MayBeParallel` false: no axis of the ray is parallel to the planes, so
// the walk leaves out that test at every node.
template <bool MayBeParallel, class Fields>
bool Walk(const Fields& fields, const Ray& ray, double tNear, double tFar, SWRayIntersectionResult& result) {
  using Node = typename Fields::Node;
  typename Fields::Stack stack;
  const ProjectedRay projected(ray);
  bool hit = false;
  const Node* node = fields.Root();
  const bool parallel[3] = {Parallel(ray, 0), Parallel(ray, 1), Parallel(ray, 2)};
  for (;;) {
    uint32_t word;
    while (((word = node->childAndAxis) & 3) != 3) {
      const uint32_t axis = word & 3;
      const double split = std::bit_cast<float>(uint32_t(node->splitOrCount));
      const double origin = ray.origin[axis];
      if (MayBeParallel && parallel[axis]) {
        if (split - NearZero > origin) {
          node = fields.Lower(node, word);
        } else if (origin > split + NearZero) {
          node = fields.Upper(node, word);
        } else {
          stack.Push({fields.Upper(node, word), tNear, tFar});
          node = fields.Lower(node, word);
        }
      } else {
        const double t = (split - origin) * ray.inverse[axis];
        const bool lowerFirst = split >= origin;
        const Node* lower = fields.Lower(node, word);
        const Node* upper = fields.Upper(node, word);
        const Node* nearChild = lowerFirst ? lower : upper;
        const Node* farChild = lowerFirst ? upper : lower;
        if (tNear > t && t > 0.0) {
          node = farChild;
        } else if (t > tFar || 0.0 > t) {
          node = nearChild;
        } else {
          // The far child waits until the near side's subtree is walked:
          // time enough for its line to arrive, if it is not in the cache.
          __builtin_prefetch(farChild);
          stack.Push({farChild, t, tFar});
          node = nearChild;
          tFar = t;
        }
      }
      fields.CheckDepth(stack.Size(), __LINE__);
    }
    if (fields.Leaf(*node, projected, result)) hit = true;
    if (!Resume(stack, result.distance, node, tNear, tFar)) return hit;
  }
}

// Where the last few rays that took the layout's walk on this thread
// started, the latest first. A ray that starts near one of them (a camera's
// rays, the shadow and bounce rays of neighbouring pixels' hits, however a
// renderer interleaves them) follows rays before it closely enough for the
// processor to guess its node steps; any other ray takes the steps by
// masks. Both walks give the same hit, so the choice changes no result.
// Initial-exec: a few bytes of the static TLS block, reached without a call.
struct Point {
  double at[3];
};
struct RecentOrigins {
  static constexpr size_t Count = 4;
  Point origin[Count];
};
[[gnu::tls_model("initial-exec")]] thread_local RecentOrigins recent;

inline bool Near(const double (&a)[3], const Point& b, double reach) {
  return (std::fabs(a[0] - b.at[0]) <= reach) & (std::fabs(a[1] - b.at[1]) <= reach) &
         (std::fabs(a[2] - b.at[2]) <= reach);
}

// Whether the ray starts near a recent origin; its origin becomes the latest.
bool FollowsRecentRays(const Ray& ray, double reach) {
  RecentOrigins& seen = recent;
  size_t found = 0;
  while (found < RecentOrigins::Count && !Near(ray.origin, seen.origin[found], reach)) ++found;
  const bool near = found < RecentOrigins::Count;
  // Written out: as a loop, GCC makes it a call to memmove.
  static_assert(RecentOrigins::Count == 4);
  const size_t moved = near ? found : RecentOrigins::Count - 1;
  if (moved >= 3) seen.origin[3] = seen.origin[2];
  if (moved >= 2) seen.origin[2] = seen.origin[1];
  if (moved >= 1) seen.origin[1] = seen.origin[0];
  seen.origin[0] = {{ray.origin[0], ray.origin[1], ray.origin[2]}};
  return near;
}

// Clips the ray to the tree's box, from the interval [nearT, farT]; false on
// a miss or a null direction. Intersect calls it directly, every ray: the
// public IntersectBounds is a call through the library's symbol table, which
// the compiler may not inline.
inline bool ClipToBox(const KDTree& tree, const Ray& ray, double nearT, double farT, double& tNear,
                      double& tFar) {
  const double lo[3] = {tree.boundsMin.x, tree.boundsMin.y, tree.boundsMin.z};
  const double hi[3] = {tree.boundsMax.x, tree.boundsMax.y, tree.boundsMax.z};
  int skipped = 0;
  for (int axis = 0; axis < 3; ++axis) {
    if (Parallel(ray, axis)) {
      ++skipped;
      continue;
    }
    const __m128d t1 = _mm_set_sd((lo[axis] - ray.origin[axis]) * ray.inverse[axis]);
    const __m128d t2 = _mm_set_sd((hi[axis] - ray.origin[axis]) * ray.inverse[axis]);
    // The pair in order and the interval narrowed by minsd and maxsd, which
    // pick by the comparison written beside each, a NaN included: as jumps,
    // the signs of a random direction were a coin toss each.
    const __m128d entry = _mm_min_sd(t2, t1);                     // t1 > t2 ? t2 : t1
    const __m128d exit = _mm_max_sd(t1, t2);                      // t1 > t2 ? t1 : t2
    nearT = _mm_cvtsd_f64(_mm_max_sd(entry, _mm_set_sd(nearT)));  // entry > nearT ? entry : nearT
    farT = _mm_cvtsd_f64(_mm_min_sd(exit, _mm_set_sd(farT)));     // farT > exit ? exit : farT
    if (nearT > farT) return false;
  }
  if (skipped == 3) return false;
  tNear = nearT;
  tFar = farT;
  return true;
}

}  // namespace

bool KDTree::IntersectBounds(const SCENE_VERTEX_XYZ_64& origin, const SCENE_VERTEX_XYZ_64& direction,
                             const SCENE_VERTEX_XYZ_64& inverseDirection, double& tNear, double& tFar,
                             const double* startNear, const double* startFar) const {
  return ClipToBox(*this, MakeRay(origin, direction, inverseDirection), startNear ? *startNear : 0.0,
                   startFar ? *startFar : Largest, tNear, tFar);
}

bool KDTree::IntersectLeaf(const KDNode& leaf, const SCENE_VERTEX_XYZ_64& origin,
                           const SCENE_VERTEX_XYZ_64& direction, SWRayIntersectionResult& result) const {
  const Ray ray = MakeRay(origin, direction, {0.0, 0.0, 0.0});
  return LeafTest(*this, leaf, ProjectedRay(ray), result);
}

bool KDTree::Intersect(const SCENE_VERTEX_XYZ_64& origin, const SCENE_VERTEX_XYZ_64& direction,
                       const SCENE_VERTEX_XYZ_64& inverseDirection, SWRayIntersectionResult& result,
                       const double* reach) const {
  try {
    if (nodes.empty()) return false;
    const Ray ray = MakeRay(origin, direction, inverseDirection);
    double tNear = 0.0, tFar = 0.0;
    if (!ClipToBox(*this, ray, 0.0, reach ? *reach : Largest, tNear, tFar)) return false;
    result.distance = Largest;
    result.triangleIndex = 0;
    if (!walkLayout.Matches(*this)) return Walk<true>(TreeFields(*this), ray, tNear, tFar, result);
    const WalkFields fields(walkLayout, *this);
    const bool mayBeParallel = Parallel(ray, 0) || Parallel(ray, 1) || Parallel(ray, 2);
    if (mayBeParallel) return Walk<true>(fields, ray, tNear, tFar, result);
    if (!(walkLayout.nearOrigin > 0.0) || FollowsRecentRays(ray, walkLayout.nearOrigin))
      return Walk<false>(fields, ray, tNear, tFar, result);
    return WalkByMasks(fields, ray, tNear, tFar, result);
  } catch (...) {
    // A tree that is not sound, or a stack that cannot grow: the ray counts
    // as a miss and the worker goes on.
    const int line = __LINE__;
    OutputCatchToLog(true, SourceFile, line, "KDTree::Intersect", true);
    return false;
  }
}
