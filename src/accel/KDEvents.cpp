// Event lists of the kd-tree build: their order, and the events of a
// triangle clipped to a box.
#include <algorithm>
#include <iterator>

#include "KDTreeBuild.h"

namespace {
// A comparison that the sort and merge templates can inline.
struct EventOrder {
  bool operator()(const KDEvent& a, const KDEvent& b) const { return KDEventLess(a, b); }
};
}  // namespace

void SortEvents(KDEventList& events) {
  std::stable_sort(events.begin(), events.end(), EventOrder());
}

void MergeEvents(KDEventList& into, const KDEventList& fresh) {
  if (fresh.empty()) return;
  KDEventList merged;
  merged.reserve(into.size() + fresh.size());
  // std::merge takes from the first range on equality: the older event.
  std::merge(into.begin(), into.end(), fresh.begin(), fresh.end(), std::back_inserter(merged), EventOrder());
  into.swap(merged);
}

namespace {

float Coordinate(const SCENE_VERTEX_XYZ& p, uint32_t axis) {
  return axis == 0 ? p.x : axis == 1 ? p.y : p.z;
}

void SetCoordinate(SCENE_VERTEX_XYZ& p, uint32_t axis, float value) {
  if (axis == 0)
    p.x = value;
  else if (axis == 1)
    p.y = value;
  else
    p.z = value;
}

// Writes over the polygon's slots from the front; the vector grows only when
// it runs out of them, so the scratch never shrinks during a build.
void Output(std::vector<SCENE_VERTEX_XYZ>& polygon, uint32_t& count, const SCENE_VERTEX_XYZ& vertex) {
  if (count < polygon.size())
    polygon[count] = vertex;
  else
    polygon.push_back(vertex);
  ++count;
}

// Sutherland-Hodgman against the plane `value` on `axis`, keeping the
// greater side when `side` is 1 and the lesser when it is -1. A vertex on
// the plane is inside. Returns the output count.
uint32_t ClipPolygon(const std::vector<SCENE_VERTEX_XYZ>& in, uint32_t n, std::vector<SCENE_VERTEX_XYZ>& out,
                     uint32_t axis, float value, float side) {
  uint32_t count = 0;
  for (uint32_t i = 0; i < n; ++i) {
    const SCENE_VERTEX_XYZ p = in[i];
    const SCENE_VERTEX_XYZ q = in[(i + 1) % n];
    const float pAxis = Coordinate(p, axis), qAxis = Coordinate(q, axis);
    const bool inP = (pAxis - value) * side >= 0.0f;
    const bool inQ = (qAxis - value) * side >= 0.0f;
    if (inP != inQ) {
      const float t = (value - pAxis) / (qAxis - pAxis);
      SCENE_VERTEX_XYZ crossing{p.x + (q.x - p.x) * t, p.y + (q.y - p.y) * t, p.z + (q.z - p.z) * t};
      // Exactly on the plane, so that event positions match split positions.
      SetCoordinate(crossing, axis, value);
      Output(out, count, crossing);
    }
    if (inQ) Output(out, count, q);
  }
  return count;
}

}  // namespace

bool ClipTriangleToBox(const SCENE_VERTEX_XYZ corners[3], const float boxMin[3], const float boxMax[3],
                       std::vector<SCENE_VERTEX_XYZ>& polygonA, std::vector<SCENE_VERTEX_XYZ>& polygonB,
                       float lo[3], float hi[3]) {
  if (polygonA.size() < 3) polygonA.resize(3);
  std::copy(corners, corners + 3, polygonA.begin());
  uint32_t countA = 3;
  for (uint32_t axis = 0; axis < 3; ++axis) {
    const uint32_t countB = ClipPolygon(polygonA, countA, polygonB, axis, boxMin[axis], 1.0f);
    countA = ClipPolygon(polygonB, countB, polygonA, axis, boxMax[axis], -1.0f);
  }
  if (countA == 0) return false;
  for (uint32_t axis = 0; axis < 3; ++axis) {
    lo[axis] = hi[axis] = Coordinate(polygonA[0], axis);
    for (uint32_t i = 1; i < countA; ++i) {
      const float value = Coordinate(polygonA[i], axis);
      if (value < lo[axis]) lo[axis] = value;
      if (value > hi[axis]) hi[axis] = value;
    }
  }
  return true;
}

void AppendBoxEvents(uint32_t triangle, const float lo[3], const float hi[3], KDEventList& events) {
  for (uint32_t axis = 0; axis < 3; ++axis) {
    if (lo[axis] == hi[axis]) {
      events.push_back(KDEvent{KD_EVENT_PLANAR, lo[axis], triangle, axis});
    } else {
      events.push_back(KDEvent{KD_EVENT_START, lo[axis], triangle, axis});
      events.push_back(KDEvent{KD_EVENT_END, hi[axis], triangle, axis});
    }
  }
}

void AddTriangleEvents(const KDTree& tree, const SWMeshTable& table, uint32_t triangle, const float boxMin[3],
                       const float boxMax[3], std::vector<SCENE_VERTEX_XYZ>& polygonA,
                       std::vector<SCENE_VERTEX_XYZ>& polygonB, KDEventList& events) {
  if (triangle >= tree.triangles.size()) return;
  const SWTriangle& record = tree.triangles[triangle];
  SCENE_VERTEX_XYZ corners[3];
  if (!GetTriangleCorners(table, record.instanceIndex, record.triangleIndex, corners)) return;
  float lo[3], hi[3];
  if (ClipTriangleToBox(corners, boxMin, boxMax, polygonA, polygonB, lo, hi))
    AppendBoxEvents(triangle, lo, hi, events);
}
