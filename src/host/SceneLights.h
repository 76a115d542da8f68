// The lights of a project: light definitions (what a lamp is) and light
// instances (where each copy of it stands).
#pragma once

#include <memory>
#include <vector>

#include "host/SceneRecords.h"

class SCENE_LIGHTS {
 public:
  SCENE_LIGHTS() = default;
  SCENE_LIGHTS(const SCENE_LIGHTS&) = delete;
  SCENE_LIGHTS& operator=(const SCENE_LIGHTS&) = delete;

  // Stores a copy; gives its index, which stays valid until it is removed.
  int AddLightDefinition(const SCENE_LIGHT_DEFINITION& definition);
  int GetNumberOfLightDefinitions() const { return static_cast<int>(definitions.size()); }
  // Null for an index not in use.
  SCENE_LIGHT_DEFINITION* GetLightDefinition(int index) const;
  // False while an instance still points at the definition.
  bool RemoveLightDefinition(int index);

  // Places the definition under `matrix` (null: the identity). Gives the new
  // light's number, or -1 for an unknown definition. Numbers start at 0 and
  // are never reused: the renderer keys its lights and shadow maps by
  // number, and would take a new light under an old number for an edit.
  int AddLightInstance(int definitionIndex, const SCENE_MATRIX* matrix);
  bool RemoveLightInstance(int number);
  // One more than the highest number handed out, so that the numbers
  // 0 to this - 1 cover every light.
  int GetNumberOfLightInstances() const { return static_cast<int>(instances.size()); }
  // Null for a number not in use, removed lights included.
  SCENE_LIGHT_INSTANCE* GetLightInstance(int number) const;

 private:
  std::vector<std::unique_ptr<SCENE_LIGHT_DEFINITION>> definitions;
  std::vector<std::unique_ptr<SCENE_LIGHT_INSTANCE>> instances;
};
