// The rays of one pixel in groups that share what they hit: all misses,
// or all hits on one triangle of one instance. Shading takes a group at a
// time, so a pixel that lies wholly on one triangle is shaded once.
#pragma once

#include <atomic>
#include <cstdlib>

#include "accel/CompareRayHits.h"
#include "pipeline/PixelRays.h"

struct PixelRayGroup {
  bool hit = false;  // false: the group is the rays that hit nothing
  unsigned int count = 0;
  SWRayIntersectionResult* results[MaximumPixelRays];
  PixelRaySample* samples[MaximumPixelRays];

  void Start(PixelRayHit& record, PixelRaySet& rays) {
    count = 0;
    Add(record, rays);
  }
  void Add(PixelRayHit& record, PixelRaySet& rays) {
    results[count] = &record.result;
    samples[count] = &rays.rays[record.sampleIndex];
    ++count;
  }
};

// Sorts the `count` records of a pixel (misses first, then by tree,
// instance and triangle) and hands each group to `shade(group, hit)`,
// calling `poll()` after each record from the second on. A true poll sets
// `abort`, which ends the walk; the group in hand is then not shaded.
template <typename Shade, typename Poll>
void ShadeRayGroups(PixelRayHit* hits, unsigned int count, PixelRaySet& rays, std::atomic<bool>& abort,
                    Shade&& shade, Poll&& poll) {
  if (count == 0) return;
  std::qsort(hits, count, sizeof(PixelRayHit), &CompareRayHits);
  PixelRayGroup group;
  group.Start(hits[0], rays);
  for (unsigned int i = 1; i < count && !abort; ++i) {
    const SWRayIntersectionResult previous = hits[i - 1].result, current = hits[i].result;
    const bool previousHit = hits[i - 1].hit, currentHit = hits[i].hit;
    const bool sameTarget = previous.treeIndex == current.treeIndex &&
                            previous.instanceIndex == current.instanceIndex &&
                            previous.triangleIndex == current.triangleIndex;
    if (previousHit != currentHit || (currentHit && !sameTarget)) {
      shade(group, previousHit);
      group.Start(hits[i], rays);
    } else {
      group.Add(hits[i], rays);
    }
    if (poll()) abort = true;
  }
  if (!abort) shade(group, hits[count - 1].hit);
}
