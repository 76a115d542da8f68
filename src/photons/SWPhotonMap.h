// Stored photons and the kd-tree over their positions.
#pragma once

#include <cstdint>
#include <vector>

#include "SceneRecords.h"

#pragma pack(push, 1)
struct SWPhoton {
  SCENE_VERTEX_XYZ_64 position;
  SCENE_VERTEX_XYZ_64 direction;  // along its travel, into the surface
  SCENE_VERTEX_XYZ_64 energy;     // red, green, blue power
};

struct SWPhotonEntry {
  uint32_t photonRow;
  SCENE_VERTEX_XYZ_64 position;
};

// Low two bits of `first`: 0, 1, 2 an inner node split on that axis, 3 a leaf.
struct SWPhotonNode {
  uint32_t first;
  uint32_t second;
};
#pragma pack(pop)

class SWPhotonMap {
 public:
  void Clear();

  std::vector<SWPhotonEntry> entries;
  std::vector<SWPhotonNode> nodes;
  float boundsMin[3] = {0, 0, 0};
  float boundsMax[3] = {0, 0, 0};
};
