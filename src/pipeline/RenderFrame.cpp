// The frame driver: from the host's call to a finished picture.
#include "BrindlexViewRTRenderEngine.h"

unsigned int RT_RENDER_ENGINE::RenderFrame(ENVIRONMENT_3D_PROJECT*, ENVIRONMENT_3D_VIEW*, SCENE_GRAPH*,
                                           const RECT&, bool) {
  // An engine without the tables of Initialize draws nothing. The passes
  // join here with the frame pipeline.
  if (!kdTrees || !meshTables) return 0;
  return 0;
}
