// The alternate light, through which the host can replace one light for a
// while without touching its own record of it.
#include "engine/BrindlexViewRTRenderEngine.h"
#include "scene/LightTable.h"

void RT_RENDER_ENGINE::SetAlternateLightInstance(SCENE_LIGHT_INSTANCE* instance) {
  // Whatever comes next, the light that was overridden must get the host's
  // record back at the next update, unless the new instance overrides it
  // again.
  if (alternateLight && engineFlags.IsSet(AlternateLightActive))
    modifiedLights.insert(alternateLight->number);

  if (alternateLight && CopyLightInstance(instance, *alternateLight)) {
    modifiedLights.insert(alternateLight->number);
    engineFlags.Set(AlternateLightActive);
  } else {
    engineFlags.Clear(AlternateLightActive);
  }
}
