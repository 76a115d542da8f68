// The order in which the rays of one pixel are grouped for shading.
#pragma once

#include "pipeline/PixelRays.h"

// qsort comparator over two PixelRayHit records: misses first, then hits by
// treeIndex, instanceIndex and triangleIndex, so that the rays of one pixel
// that fell on one triangle become neighbours. Distance and weights play no
// part. Returns -1, 0 or 1.
int CompareRayHits(const void* a, const void* b);
