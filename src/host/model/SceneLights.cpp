#include "host/SceneLights.h"

#include <algorithm>

#include "host/BrindlexViewMath.h"

template <typename T>
static T* Row(const std::vector<std::unique_ptr<T>>& rows, int index) {
  return index >= 0 && static_cast<size_t>(index) < rows.size() ? rows[index].get() : nullptr;
}

int SCENE_LIGHTS::AddLightDefinition(const SCENE_LIGHT_DEFINITION& definition) {
  definitions.push_back(std::make_unique<SCENE_LIGHT_DEFINITION>(definition));
  return GetNumberOfLightDefinitions() - 1;
}

SCENE_LIGHT_DEFINITION* SCENE_LIGHTS::GetLightDefinition(int index) const {
  return Row(definitions, index);
}

bool SCENE_LIGHTS::RemoveLightDefinition(int index) {
  SCENE_LIGHT_DEFINITION* definition = GetLightDefinition(index);
  auto usesIt = [definition](const auto& instance) { return instance && instance->definition == definition; };
  if (!definition || std::any_of(instances.begin(), instances.end(), usesIt)) return false;
  // The row stays, empty, so that later indices keep their meaning.
  definitions[index].reset();
  return true;
}

int SCENE_LIGHTS::AddLightInstance(int definitionIndex, const SCENE_MATRIX* matrix) {
  SCENE_LIGHT_DEFINITION* definition = GetLightDefinition(definitionIndex);
  if (!definition) return -1;
  auto instance = std::make_unique<SCENE_LIGHT_INSTANCE>();
  instance->number = GetNumberOfLightInstances();
  instance->definition = definition;
  if (matrix)
    instance->matrix = *matrix;
  else
    GetIdentityMatrix(&instance->matrix);
  instances.push_back(std::move(instance));
  return instances.back()->number;
}

bool SCENE_LIGHTS::RemoveLightInstance(int number) {
  if (!GetLightInstance(number)) return false;
  instances[number].reset();
  return true;
}

SCENE_LIGHT_INSTANCE* SCENE_LIGHTS::GetLightInstance(int number) const {
  return Row(instances, number);
}
