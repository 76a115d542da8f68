// One row of the dense material table.
#pragma once

#include <cstdint>

class MATERIAL_3D_NODE;

#pragma pack(push, 1)
struct SWMaterialEntry {
  const MATERIAL_3D_NODE* material = nullptr;  // a node inside materialRoots
  uint32_t textureIndex = 0xFFFFFFFF;          // colour map row of textures
  uint32_t normalMapIndex = 0xFFFFFFFF;        // normal and height map row
};
#pragma pack(pop)
