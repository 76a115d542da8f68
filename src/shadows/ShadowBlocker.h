// Whether a surface that a shadow or occlusion ray meets stops the ray, and
// the walk of a shadow ray through the surfaces that do not.
#pragma once

#include <cstdint>
#include <vector>

#include "accel/RayIntersection.h"
#include "scene/SWMaterialEntry.h"
#include "scene/SWMeshTable.h"
#include "textures/SWTexture.h"

class RT_RENDER_ENGINE;

// What a surface met by a shadow or occlusion ray does to it.
enum class BlockerKind : uint8_t {
  Unresolved,  // the hit does not lead back to a material and its settings
  Blocks,
  SeeThrough,  // too little opacity, or a see-through texel of a cut-out
};

// The engine's tables that lead from a hit to what it does to light.
struct BlockerTables {
  const SWMeshTable* meshTables;  // two, as the trees
  const std::vector<SWMaterialEntry>& materials;
  const std::vector<SWTexture*>& textures;  // the rows that `engine` samples
};

// What the surface of `hit` does to a shadow ray; the texel of a cut-out is
// sampled through `engine`.
BlockerKind ClassifyBlocker(const RT_RENDER_ENGINE& engine, const BlockerTables& tables,
                            const SWRayIntersectionResult& hit);

// The walk behind both shadow tests of `engine`. With `target` the ray aims
// at it anew from each surface stepped through and a blocker must lie before
// it; without, it keeps `direction` and any blocker counts. At most
// `maximumRayDepth` surfaces deep counting from `depth`.
bool WalkShadowRay(const RT_RENDER_ENGINE& engine, const BlockerTables& tables, uint32_t maximumRayDepth,
                   const SCENE_VERTEX_XYZ_64* target, SCENE_VERTEX_XYZ_64 direction,
                   SCENE_VERTEX_XYZ_64 point, uint32_t depth);
