// The engine's own copies of the host's material trees. Copies keep every
// material pointer of the dense table valid while the host edits its trees;
// they are replaced only by a full rebuild.
#include <new>

#include "host/BrindlexViewModel.h"
#include "scene/MaterialTables.h"

namespace {
// The separator of material paths, as the host's material trees use it.
constexpr char MaterialPathSeparator = 58;  // ':'

// A new root holding a deep copy of `source`; null when memory is short.
MATERIAL_3D_NODE* CopyMaterialTree(const MATERIAL_3D_NODE& source) {
  MATERIAL_3D_NODE* copy = new (std::nothrow) MATERIAL_3D_NODE(nullptr, MaterialPathSeparator);
  if (!copy) return nullptr;
  try {
    *copy = source;
  } catch (const std::bad_alloc&) {
    delete copy;
    return nullptr;
  }
  return copy;
}
}  // namespace

void ReplaceMaterialRoots(std::map<uint32_t, MATERIAL_3D_NODE*>& roots, ENVIRONMENT_3D_PROJECT* project,
                          ENVIRONMENT_3D_VIEW* view, unsigned int materialOption) {
  for (auto& root : roots) delete root.second;
  roots.clear();
  // Without a project or view there are no trees to draw with; every mesh then
  // finds no material and stays out of the tables.
  if (!project || !view) return;

  MATERIAL_ROOT_MAP hostRoots;
  project->GetMaterialRoots(!view->ShareProjectMaterials(), materialOption, hostRoots);
  for (const auto& [key, root] : hostRoots) {
    if (!root) continue;  // the walk falls back to the enclosing material
    MATERIAL_3D_NODE* copy = CopyMaterialTree(*root);
    if (copy) roots[key] = copy;
  }
  project->ReleaseMaterialRoots();
}
