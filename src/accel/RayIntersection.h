// The answer of every ray query: the nearest hit on a ray.
#pragma once

#include <cstdint>

#pragma pack(push, 1)
struct SWRayIntersectionResult {
  double distance = 0.0;  // ray parameter t: origin + t * direction
  double weightB = 0.0;   // barycentric weight of the second vertex
  double weightC = 0.0;   // of the third; the first has 1 - weightB - weightC
  uint32_t treeIndex = 0;      // row of kdTrees and meshTables
  uint32_t instanceIndex = 0;  // row of instances in that table
  uint32_t triangleIndex = 0;  // triangle within the mesh
};
#pragma pack(pop)
