// Bringing the light table up to date from the sets of light numbers that
// the host's notifications filled since the last update.
#include "BrindlexViewModel.h"
#include "BrindlexViewRTRenderEngine.h"
#include "LightTable.h"

void RT_RENDER_ENGINE::NoteLostLights(SCENE_LIGHTS* lights) {
  if (!lightTable || !lights) return;
  for (const auto& entry : lightTable->lightsByNumber)
    if (!lights->GetLightInstance(entry.first)) removedLights.insert(entry.first);
}

void RT_RENDER_ENGINE::DrainRemovedLights() {
  for (int32_t number : removedLights) {
    if (lightTable) lightTable->RemoveLight(number);
    dirtyShadowLights.insert(number);
  }
  removedLights.clear();
}

void RT_RENDER_ENGINE::DrainModifiedLights(SCENE_LIGHTS* lights) {
  // Without the host's lights the numbers wait for an update that has them.
  if (!lights || !lightTable) return;
  for (int32_t number : modifiedLights) {
    SCENE_LIGHT_INSTANCE* instance = lights->GetLightInstance(number);
    if (!instance) continue;  // the host dropped it: nothing left to copy
    lightTable->InsertOrUpdateLight(instance);
    dirtyShadowLights.insert(number);
  }
  modifiedLights.clear();
}

void RT_RENDER_ENGINE::ApplyAlternateLight() {
  if (!lightTable || !alternateLight || !engineFlags.IsSet(AlternateLightActive)) return;
  lightTable->InsertOrUpdateLight(alternateLight);
  dirtyShadowLights.insert(alternateLight->number);
}
