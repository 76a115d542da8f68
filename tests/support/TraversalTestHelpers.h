// Rays, triangle records and hand-made kd-trees for the traversal tests.
#pragma once

#include <bit>
#include <cmath>
#include <limits>
#include <vector>

#include "accel/KDTree.h"
#include "accel/RayIntersection.h"
#include "scene/SWTriangle.h"

inline constexpr double Largest = std::numeric_limits<double>::max();

// A ray with its inverse direction as callers make it: 1 / d where |d| is
// above 1e-7, the largest double elsewhere.

struct TestRay {
  SCENE_VERTEX_XYZ_64 origin, direction, inverse;
};

inline TestRay Ray(SCENE_VERTEX_XYZ_64 o, SCENE_VERTEX_XYZ_64 d) {
  const auto inv = [](double c) { return std::fabs(c) > 1e-7 ? 1.0 / c : Largest; };
  return {o, d, {inv(d.x), inv(d.y), inv(d.z)}};
}

inline SWTriangle Triangle(SCENE_VERTEX_XYZ_64 a, SCENE_VERTEX_XYZ_64 b, SCENE_VERTEX_XYZ_64 c,
                           uint32_t index, uint32_t instance = 0) {
  SWTriangle record{};
  ComputeSWTriangle(a, b, c, record);
  record.instanceIndex = instance;
  record.triangleIndex = index;
  return record;
}

inline KDNode Leaf(uint32_t first, uint32_t count) {
  return {first * 4 + 3, count};
}
inline KDNode Inner(uint32_t axis, uint32_t firstChild, float split) {
  return {firstChild * 4 + axis, std::bit_cast<uint32_t>(split)};
}

// Makes `tree` one leaf over all its triangles, in the box -4 ... 4.
inline void SetOneLeaf(KDTree& tree, std::vector<SWTriangle> triangles) {
  tree.triangles = std::move(triangles);
  tree.leafTriangles.clear();
  for (uint32_t i = 0; i < tree.triangles.size(); ++i) tree.leafTriangles.push_back(i);
  tree.nodes = {Leaf(0, uint32_t(tree.triangles.size()))};
  tree.boundsMin = {-4, -4, -4};
  tree.boundsMax = {4, 4, 4};
}

inline KDTree OneLeaf(std::vector<SWTriangle> triangles) {
  KDTree tree;
  SetOneLeaf(tree, std::move(triangles));
  return tree;
}
