#include "scene/SWMaterialEntry.h"

uint32_t FindOrAddSWMaterial(std::vector<SWMaterialEntry>& materials, SWMaterialIndexMap& indexByNode,
                             const MATERIAL_3D_NODE* material) {
  auto found = indexByNode.find(material);
  if (found != indexByNode.end()) return found->second;
  const uint32_t row = static_cast<uint32_t>(materials.size());
  indexByNode[material] = row;
  materials.emplace_back();  // no material, no textures until filled in
  materials.back().material = material;
  return row;
}
