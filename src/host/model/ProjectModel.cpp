#include "host/ProjectModel.h"

#include <algorithm>

VIEW_FILE_STATE::VIEW_FILE_STATE() {
  // Looking at the origin from the side the default light shines from, so a
  // new view sees the lit faces of a scene built around the origin. In host
  // coordinates, whose y is the world's negated.
  camera.eye = {-100.0f, 100.0f, 50.0f};
  camera.lookAt = {0.0f, 0.0f, 0.0f};
  camera.fieldOfView = 45.0f;
  camera.parallelHeight = 100.0f;
  camera.roll = 0.0f;
}

void ENVIRONMENT_3D_VIEW::GetCurrentRenderOptions(BRINDLEXVIEW_PROJECT_INTERFACE*,
                                                  MODE_RENDER_OPTIONS& options) const {
  options = renderOptions;
}

ENVIRONMENT_3D_PROJECT::ENVIRONMENT_3D_PROJECT() {
  AddView();
}

ENVIRONMENT_3D_PROJECT::~ENVIRONMENT_3D_PROJECT() = default;

ENVIRONMENT_3D_VIEW* ENVIRONMENT_3D_PROJECT::GetView(unsigned int index) {
  return index < views.size() ? views[index].get() : nullptr;
}

ENVIRONMENT_3D_VIEW* ENVIRONMENT_3D_PROJECT::AddView() {
  views.push_back(std::make_unique<ENVIRONMENT_3D_VIEW>());
  return views.back().get();
}

bool ENVIRONMENT_3D_PROJECT::RemoveView(unsigned int index) {
  if (index >= views.size()) return false;
  views.erase(views.begin() + index);
  return true;
}

void ENVIRONMENT_3D_PROJECT::GetMaterialRoots(bool viewOwnMaterials, unsigned int materialOption,
                                              MATERIAL_ROOT_MAP& roots) {
  roots.clear();
  for (const auto& [key, root] : projectRoots) roots[key] = root.get();
  auto set = viewRoots.find(materialOption);
  if (viewOwnMaterials && set != viewRoots.end())
    for (const auto& [key, root] : set->second) roots[key] = root.get();
  ++materialLoans;
}

void ENVIRONMENT_3D_PROJECT::ReleaseMaterialRoots() {
  if (materialLoans > 0) --materialLoans;
}

static MATERIAL_3D_NODE* FindRoot(const std::map<unsigned int, std::unique_ptr<MATERIAL_3D_NODE>>& roots,
                                  unsigned int key) {
  auto found = roots.find(key);
  return found == roots.end() ? nullptr : found->second.get();
}

MATERIAL_3D_NODE* ENVIRONMENT_3D_PROJECT::GetMaterialRoot(unsigned int key) const {
  return FindRoot(projectRoots, key);
}

MATERIAL_3D_NODE* ENVIRONMENT_3D_PROJECT::GetViewMaterialRoot(unsigned int set, unsigned int key) const {
  auto found = viewRoots.find(set);
  return found == viewRoots.end() ? nullptr : FindRoot(found->second, key);
}

bool ENVIRONMENT_3D_PROJECT::SetRoot(OwnedRoots& roots, unsigned int key, MATERIAL_3D_NODE* root) {
  // A node inside a tree is owned by its parent, and one held under some
  // key already is owned here: taking either again would delete it twice.
  auto holds = [root](const auto& entry) { return entry.second.get() == root; };
  if (root && (root->GetParentNode() || std::any_of(roots.begin(), roots.end(), holds))) return false;
  if (root)
    roots[key].reset(root);
  else
    roots.erase(key);
  return true;
}

bool ENVIRONMENT_3D_PROJECT::SetMaterialRoot(unsigned int key, MATERIAL_3D_NODE* root) {
  return !AreMaterialRootsLent() && SetRoot(projectRoots, key, root);
}

bool ENVIRONMENT_3D_PROJECT::SetViewMaterialRoot(unsigned int set, unsigned int key, MATERIAL_3D_NODE* root) {
  return !AreMaterialRootsLent() && SetRoot(viewRoots[set], key, root);
}

unsigned int ENVIRONMENT_3D_PROJECT::GetNumberOfMaterialRoots() const {
  return static_cast<unsigned int>(projectRoots.size());
}

MATERIAL_3D_NODE* ENVIRONMENT_3D_PROJECT::CreateMaterialRoot(unsigned int key) {
  if (MATERIAL_3D_NODE* existing = GetMaterialRoot(key)) return existing;
  if (AreMaterialRootsLent()) return nullptr;
  // ':' joins ids into paths: it reads naturally ("Walls:Brick") and is
  // rare in material names.
  auto* root = new MATERIAL_3D_NODE(nullptr, ':');
  root->SetThisNodesID("*");
  root->SetShouldThisNodeUseDefault(false, false);
  SetRoot(projectRoots, key, root);
  return root;
}

bool ENVIRONMENT_3D_PROJECT::ClearMaterials() {
  if (AreMaterialRootsLent()) return false;
  projectRoots.clear();
  viewRoots.clear();
  return true;
}

bool ENVIRONMENT_3D_PROJECT::RemoveViewMaterialSet(unsigned int set) {
  return !AreMaterialRootsLent() && viewRoots.erase(set) > 0;
}

PROJECT_HORIZON* ENVIRONMENT_3D_PROJECT::CreateProjectHorizon() {
  if (!horizon) horizon = std::make_unique<PROJECT_HORIZON>();
  return horizon.get();
}

bool ENVIRONMENT_3D_PROJECT::DeleteProjectHorizon() {
  if (IsProjectHorizonLent()) return false;
  horizon.reset();
  return true;
}

PROJECT_HORIZON* ENVIRONMENT_3D_PROJECT::GetProjectHorizon() {
  ++horizonLoans;
  return horizon.get();
}

void ENVIRONMENT_3D_PROJECT::ReleaseProjectHorizon() {
  if (horizonLoans > 0) --horizonLoans;
}
