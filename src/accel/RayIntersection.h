// The answer of every ray query: the nearest hit on a ray.
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>

#include "host/SceneRecords.h"
#include "host/Numbers.h"

#pragma pack(push, 1)
struct SWRayIntersectionResult {
  double distance = 0.0;       // ray parameter t: origin + t * direction
  double weightB = 0.0;        // barycentric weight of the second vertex
  double weightC = 0.0;        // of the third; the first has 1 - weightB - weightC
  uint32_t treeIndex = 0;      // row of kdTrees and meshTables
  uint32_t instanceIndex = 0;  // row of instances in that table
  uint32_t triangleIndex = 0;  // triangle within the mesh
};
#pragma pack(pop)

// The inverse direction that every ray query takes beside a direction:
// 1 / d per axis, and `parallel` where |d| is not above 1e-7, so that the
// traversal can tell the ray runs parallel to that axis. `parallel` is the
// largest double unless a caller's rule names another value.
inline double InverseDirectionComponent(double d, double parallel = std::numeric_limits<double>::max()) {
  return std::fabs(d) > NearZero ? 1.0 / d : parallel;
}

inline SCENE_VERTEX_XYZ_64 InverseDirection(const SCENE_VERTEX_XYZ_64& direction,
                                            double parallel = std::numeric_limits<double>::max()) {
  return {InverseDirectionComponent(direction.x, parallel), InverseDirectionComponent(direction.y, parallel),
          InverseDirectionComponent(direction.z, parallel)};
}
