// The alternate light, through which the host can replace one light for a while.
#include "BrindlexViewRTRenderEngine.h"

void RT_RENDER_ENGINE::SetAlternateLightInstance(SCENE_LIGHT_INSTANCE* instance) {
  // Without the record of Initialize there is nothing to set; the copy of
  // the instance joins here with light ingestion.
  if (!alternateLight || !instance) return;
}
