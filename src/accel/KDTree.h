// The kd-tree over the triangles of one mesh table.
#pragma once

#include <cstdint>
#include <vector>

#include "SceneRecords.h"

#pragma pack(push, 1)
// Inner node: low two bits of childAndAxis the split axis, the rest the
// index of the first child; splitOrCount the plane as a float. Leaf: low two
// bits 3, the rest the first entry in leafTriangles; splitOrCount the count.
struct KDNode {
  uint32_t childAndAxis = 0;
  uint32_t splitOrCount = 0;
};
#pragma pack(pop)

class KDTree {
 public:
  KDTree() { Clear(); }

  // Empties the tree and resets its box; the costs stay.
  void Clear();

  std::vector<uint32_t> leafTriangles;
  std::vector<KDNode> nodes;
  SCENE_VERTEX_XYZ boundsMin{};
  SCENE_VERTEX_XYZ boundsMax{};
  const float traversalCost = 1.0f;
  const float emptyCost = 0.0f;
  const float leafBaseCost = 0.0f;
  const float triangleCost = 1.0f;
};

struct SWMeshTable;
namespace platform {
class CriticalSection;
}

#pragma pack(push, 1)
// One kd-tree node of a build, as a work-queue payload. The pointers lead to
// state of the build driver, which outlives every job.
struct KDBuildJob {
  void* buildStack = nullptr;
  void* clipPolygonsA = nullptr;
  void* clipPolygonsB = nullptr;
  void* triangleSides = nullptr;
  SWMeshTable* meshTable = nullptr;
  uint32_t maxDepth = 0;
  uint32_t* jobCount = nullptr;
  platform::CriticalSection* buildLock = nullptr;
  KDTree* tree = nullptr;
  bool (*shouldAbort)(void*) = nullptr;
  void* abortContext = nullptr;
};
#pragma pack(pop)
