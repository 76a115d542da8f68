// The seams of a cube shadow map. The filter sees each face alone, so a
// penumbra that crosses an edge of the cube would break there; the two
// outermost rings of every face are replaced by a plain 5 x 5 mean taken
// across the edges.
#pragma once

#include "shadows/SWShadowMap.h"

// Where pixel (x, y) of `face`, which may lie beyond the face's edges,
// lies on the cube. False for a pixel beyond two edges at once (a corner
// region, which belongs to no face); otherwise the face and a pixel
// clamped into it.
bool CubeShadowMapNeighbour(int size, int face, int x, int y, int& newFace, int& newX, int& newY);

// Writes into `mended` the mean over the 5 x 5 neighbourhood, across the
// edges, of every pixel of `map` within 2 of its face's edge. Other pixels
// of `mended` are left alone. Both maps must be square cubes of one size.
void MendCubeShadowMapSeams(const SWCubeShadowMap& map, SWCubeShadowMap& mended);
