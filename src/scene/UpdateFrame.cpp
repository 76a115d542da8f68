// Bringing the engine's tables up to date with the host's scene.
#include "BrindlexViewRTRenderEngine.h"

void RT_RENDER_ENGINE::UpdateFrame(ENVIRONMENT_3D_PROJECT*, ENVIRONMENT_3D_VIEW*, SCENE_GRAPH*, SCENE_LIGHTS*,
                                   const SCENE_GRAPH_NODE_INTERFACE*, const char*, unsigned int, int64_t) {
  // An engine without the tables of Initialize has no model to update. The
  // update steps join here with the scene ingestion.
  if (!kdTrees || !meshTables) return;
}
