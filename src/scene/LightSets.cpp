// Bringing the light table up to date from the sets of light numbers that
// the host's notifications filled since the last update.
#include "scene/LightSets.h"

#include "host/BrindlexViewModel.h"

void NoteLostLights(const RTLightTable* table, SCENE_LIGHTS* lights, std::set<int32_t>& removedLights) {
  if (!table || !lights) return;
  for (const auto& entry : table->lightsByNumber)
    if (!lights->GetLightInstance(entry.first)) removedLights.insert(entry.first);
}

void DrainRemovedLights(RTLightTable* table, std::set<int32_t>& removedLights,
                        std::set<int32_t>& dirtyShadowLights) {
  for (int32_t number : removedLights) {
    if (table) table->RemoveLight(number);
    dirtyShadowLights.insert(number);
  }
  removedLights.clear();
}

void DrainModifiedLights(RTLightTable* table, SCENE_LIGHTS* lights, std::set<int32_t>& modifiedLights,
                         std::set<int32_t>& dirtyShadowLights) {
  // Without the host's lights the numbers wait for an update that has them.
  if (!lights || !table) return;
  for (int32_t number : modifiedLights) {
    SCENE_LIGHT_INSTANCE* instance = lights->GetLightInstance(number);
    if (!instance) continue;  // the host dropped it: nothing left to copy
    table->InsertOrUpdateLight(instance);
    dirtyShadowLights.insert(number);
  }
  modifiedLights.clear();
}

void ApplyAlternateLight(RTLightTable* table, const RTRendererLight* alternateLight, bool active,
                         std::set<int32_t>& dirtyShadowLights) {
  if (!table || !alternateLight || !active) return;
  table->InsertOrUpdateLight(alternateLight);
  dirtyShadowLights.insert(alternateLight->number);
}
