// Stored photons and the kd-tree over their positions.
#pragma once

#include <cstdint>
#include <vector>

#include "host/SceneRecords.h"

#pragma pack(push, 1)
// An all-zero record is an unused row.
struct SWPhoton {
  SCENE_VERTEX_XYZ_64 position;
  SCENE_VERTEX_XYZ_64 direction;  // along its travel, into the surface
  SCENE_VERTEX_XYZ_64 energy;     // red, green, blue power, already divided by the shots
};

// A copy of a photon's position, so that a leaf search walks contiguous
// memory and touches the photon only when it is within reach.
struct SWPhotonEntry {
  uint32_t photonRow;
  SCENE_VERTEX_XYZ_64 position;
};

// Low two bits of `first`: 0, 1, 2 an inner node split on that axis, 3 a leaf.
// Inner: first >> 2 is the left child (the right one is the next row) and
// `second` the split position as a float. Leaf: first >> 2 is the first row
// of entries and `second` the count.
struct SWPhotonNode {
  uint32_t first;
  uint32_t second;
};

// One photon kept by a gather; the gather's max-heap keeps the farthest on top.
struct GatherEntry {
  double distance;
  double cosine;
  uint32_t photonRow;
};
#pragma pack(pop)
static_assert(sizeof(SWPhoton) == 72);
static_assert(sizeof(SWPhotonEntry) == 28);
static_assert(sizeof(SWPhotonNode) == 8);
static_assert(sizeof(GatherEntry) == 20);

// A kd-tree over the positions of a photon list. It does not own the photons:
// the list is passed to every call, and rows beyond its end are skipped.
class SWPhotonMap {
 public:
  static constexpr uint32_t maxLeafSize = 16;
  static constexpr uint32_t maxDepth = 20;

  // Replaces the tree by one over `photons`.
  void Build(const std::vector<SWPhoton>& photons);

  // The photon light at `point` from the front of `normal`: the nearest
  // `maxPhotons` photons within `radius`, each weighted by a cone filter and
  // the cosine of incidence, times `diffuseColor`. Safe from many threads.
  SCENE_VERTEX_XYZ_64 GatherPhotons(const SCENE_VERTEX_XYZ_64& point, double radius,
                                    const std::vector<SWPhoton>& photons, const SCENE_VERTEX_XYZ_64& normal,
                                    const SCENE_VERTEX_XYZ& diffuseColor, uint64_t maxPhotons) const;

  void Clear();

  std::vector<SWPhotonEntry> entries;
  std::vector<SWPhotonNode> nodes;
  float boundsMin[3] = {0, 0, 0};
  float boundsMax[3] = {0, 0, 0};

 private:
  struct BuildTask {
    uint32_t node;
    uint32_t firstEntry;
    uint32_t count;
    uint32_t depth;
  };

  static double Coordinate(const SCENE_VERTEX_XYZ_64& v, uint32_t axis) {
    return axis == 0 ? v.x : axis == 1 ? v.y : v.z;
  }
  void ResetBounds();
  void SplitTask(const BuildTask& task, std::vector<BuildTask>& stack);
  uint32_t SplitAxis(const BuildTask& task) const;
  bool CubeOverlapsBounds(const SCENE_VERTEX_XYZ_64& point, double radius) const;
  void SearchLeaf(const SWPhotonNode& leaf, const SCENE_VERTEX_XYZ_64& point, double radius,
                  const std::vector<SWPhoton>& photons, const SCENE_VERTEX_XYZ_64& normal,
                  uint64_t maxPhotons, std::vector<GatherEntry>& heap) const;
};
