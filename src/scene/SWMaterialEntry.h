// One row of the dense material table, and how rows are made.
#pragma once

#include <cstdint>
#include <map>
#include <vector>

class MATERIAL_3D_NODE;

#pragma pack(push, 1)
struct SWMaterialEntry {
  const MATERIAL_3D_NODE* material = nullptr;  // a node inside materialRoots
  uint32_t textureIndex = 0xFFFFFFFF;          // colour map row of textures
  uint32_t normalMapIndex = 0xFFFFFFFF;        // normal and height map row
};
#pragma pack(pop)

using SWMaterialIndexMap = std::map<const MATERIAL_3D_NODE*, uint32_t>;

// The row of `material`, appended (without textures) the first time a
// material is met, so that each material node has exactly one row.
uint32_t FindOrAddSWMaterial(std::vector<SWMaterialEntry>& materials, SWMaterialIndexMap& indexByNode,
                             const MATERIAL_3D_NODE* material);
