#include "scene/LightTable.h"

#include <cstring>
#include <new>

#include "host/BrindlexViewMath.h"

bool CopyLightInstance(const SCENE_LIGHT_INSTANCE* instance, RTRendererLight& light) {
  if (!instance) return false;
  const SCENE_LIGHT_DEFINITION* definition = instance->definition;
  if (!definition) return false;
  light.number = instance->number;
  // A host light class may hold more than these bytes; only the definition
  // record itself is ours to copy.
  std::memcpy(&light.definition, definition, sizeof(SCENE_LIGHT_DEFINITION));
  TransformPoint3D(&instance->matrix, &light.definition.position, &light.definition.position);
  TransformPoint3D(&instance->matrix, &light.definition.target, &light.definition.target);
  return true;
}

void RTLightTable::Clear() {
  for (auto& entry : lightsByNumber) delete entry.second;
  lightsByNumber.clear();
  lights.clear();
}

void RTLightTable::InsertOrUpdateLight(const SCENE_LIGHT_INSTANCE* instance) {
  RTRendererLight fresh;
  if (CopyLightInstance(instance, fresh)) InsertOrUpdateLight(&fresh);
}

void RTLightTable::InsertOrUpdateLight(const RTRendererLight* light) {
  if (!light) return;
  // A packed record's number may sit at any address: the map takes a copy.
  const int32_t number = light->number;
  auto found = lightsByNumber.find(number);
  if (found != lightsByNumber.end()) {
    *found->second = *light;
    return;
  }
  RTRendererLight* copy = new (std::nothrow) RTRendererLight(*light);
  if (!copy) return;
  lightsByNumber[number] = copy;
  lights.push_back(copy);
}

void RTLightTable::RemoveLight(int32_t number) {
  auto found = lightsByNumber.find(number);
  if (found == lightsByNumber.end()) return;
  delete found->second;
  lightsByNumber.erase(found);
  lights.clear();
  lights.reserve(lightsByNumber.size());
  for (const auto& entry : lightsByNumber) lights.push_back(entry.second);
}

RTRendererLight* RTLightTable::FindLight(int32_t number) const {
  auto found = lightsByNumber.find(number);
  return found == lightsByNumber.end() ? nullptr : found->second;
}

RTRendererLight* RTLightTable::GetLight(size_t row) const {
  return row < lights.size() ? lights[row] : nullptr;
}
