#include "shadows/CubeShadowMapSeams.h"

#include <algorithm>

#include "shadows/ShadowMapSampling.h"

namespace {
constexpr int SeamReach = 2;

struct Crossing {
  int face;
  int x, y;
};

// The face beyond each edge of each face, and the pixel there, with S the
// face's size and X, Y the coordinates beyond the edge. The layout is that
// of the cube look-up: faces +x, -x, +y, -y, +z, -z in the light's space.
Crossing Cross(int S, int face, int X, int Y) {
  const bool above = Y < 0, below = Y >= S, left = X < 0;
  switch (face) {
    case 0:
      if (above) return {2, S + Y, S - 1 - X};
      if (below) return {3, 2 * S - 1 - Y, X};
      if (left) return {4, S + X, Y};
      return {5, X - S, Y};
    case 1:
      if (above) return {2, -(Y + 1), X};
      if (below) return {3, Y - S, S - 1 - X};
      if (left) return {5, S + X, Y};
      return {4, X - S, Y};
    case 2:
      if (above) return {5, S - 1 - X, -(Y + 1)};
      if (below) return {4, X, Y - S};
      if (left) return {1, Y, -(X + 1)};
      return {0, S - 1 - Y, X - S};
    case 3:
      if (above) return {4, X, S + Y};
      if (below) return {5, S - 1 - X, 2 * S - 1 - Y};
      if (left) return {1, S - 1 - Y, S + X};
      return {0, Y, 2 * S - 1 - X};
    case 4:
      if (above) return {2, X, S + Y};
      if (below) return {3, X, Y - S};
      if (left) return {1, S + X, Y};
      return {0, X - S, Y};
    default:
      if (above) return {2, S - 1 - X, -(Y + 1)};
      if (below) return {3, S - 1 - X, 2 * S - 1 - Y};
      if (left) return {0, S + X, Y};
      return {1, X - S, Y};
  }
}
}  // namespace

bool CubeShadowMapNeighbour(int size, int face, int x, int y, int& newFace, int& newX, int& newY) {
  const bool insideX = x >= 0 && x < size, insideY = y >= 0 && y < size;
  if (!insideX && !insideY) return false;
  Crossing at{face, x, y};
  if (!insideX || !insideY) at = Cross(size, face, x, y);
  newFace = at.face;
  newX = std::clamp(at.x, 0, size - 1);
  newY = std::clamp(at.y, 0, size - 1);
  return true;
}

void MendCubeShadowMapSeams(const SWCubeShadowMap& map, SWCubeShadowMap& mended) {
  const int S = map.width;
  if (!map.pixels || !mended.pixels || map.faces != 6 || map.height != S || mended.faces != 6 ||
      mended.width != S || mended.height != S)
    return;
  const auto at = [&](const SWCubeShadowMap& cube, int face, int x, int y) -> SW_PIXEL_G64R64F& {
    return cube.pixels[(int64_t(face) * S + y) * S + x];
  };
  SW_PIXEL_G64R64F window[25];
  for (int face = 0; face < 6; ++face)
    for (int y = 0; y < S; ++y)
      for (int x = 0; x < S; ++x) {
        const bool nearEdge = x < SeamReach || y < SeamReach || x >= S - SeamReach || y >= S - SeamReach;
        if (!nearEdge) continue;
        int count = 0;
        for (int dy = -SeamReach; dy <= SeamReach; ++dy)
          for (int dx = -SeamReach; dx <= SeamReach; ++dx) {
            int f, nx, ny;
            if (CubeShadowMapNeighbour(S, face, x + dx, y + dy, f, nx, ny))
              window[count++] = at(map, f, nx, ny);
          }
        at(mended, face, x, y) = MeanOfShadowMapPixels(window, count);
      }
}
