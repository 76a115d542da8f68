// The frame driver: from the host's call to a finished picture on screen.
// Ordinary ray tracing is one pass; path tracing refines the picture pass
// after pass until the host aborts.
#include <memory>
#include <new>

#include "host/BrindlexViewModel.h"
#include "engine/BrindlexViewRTRenderEngine.h"
#include "pipeline/FrameBufferGuard.h"
#include "platform/GdiPlus.h"
#include "platform/Thread.h"
#include "host/brindlexutil.h"

namespace {
// Draws `source` scaled over the whole of `target`.
void DrawOver(Gdiplus::Bitmap* target, Gdiplus::Bitmap* source) {
  Gdiplus::Graphics(target).DrawImage(source, 0, 0, int(target->GetWidth()), int(target->GetHeight()));
}
}  // namespace

unsigned int RT_RENDER_ENGINE::RenderFrame(ENVIRONMENT_3D_PROJECT* project, ENVIRONMENT_3D_VIEW* view,
                                           SCENE_GRAPH* scene, const RECT& rect, bool forceScreen) {
  const uint32_t start = platform::GetTickCount();
  const bool toFile = !forceScreen && engineFlags.IsSet(RenderToFile);
  const bool canDraw = (rendererWindow && (frameBitmap || distributedServer)) || toFile;
  // An engine that was never initialised, or has been shut down, has no
  // trees and tables: it renders nothing, not even a blank picture.
  const bool hasModel = kdTrees && meshTables;
  if (canDraw && hasModel && view && !ShouldAbort()) {
    MODE_RENDER_OPTIONS options;
    view->GetCurrentRenderOptions(project, options);
    if (toFile)
      RenderToPictureFile(view, scene, options);
    else
      RenderToScreen(view, scene, rect, options);
  }
  const uint32_t milliseconds = platform::GetTickCount() - start;
  debugOS << "TotalRenderTime = " << milliseconds / 1000.0 << " seconds" << std::endl;
  return 0;
}

void RT_RENDER_ENGINE::RenderToScreen(ENVIRONMENT_3D_VIEW* view, SCENE_GRAPH* scene, const RECT& rect,
                                      const MODE_RENDER_OPTIONS& options) {
  const bool pathTracing = options.DoPathTracing();
  // The picture after the last pass that finished, put back when a pass is
  // cut short so the window never shows a mix of two passes.
  std::unique_ptr<Gdiplus::Bitmap> lastCompletePass;
  bool aborted = false, done = false;
  for (uint64_t pass = 1; !done;) {
    TraceRays(view, scene, rect, rect, &options, pass, nullptr, 0);
    if (ShouldAbort()) aborted = true;
    if (!aborted) {
      {
        FrameBufferGuard guard(*this);
        RepaintScreen(rect);
      }
      engineFlags.Set(FrameReady);
    }
    ++pass;
    if (pathTracing) debugOS << "Path Trace Pass " << pass << std::endl;
    done = !pathTracing || pass == 0 || ShouldAbort();
    if (!pathTracing || !frameBitmap) continue;
    if (done) {
      if (lastCompletePass) {
        FrameBufferGuard guard(*this);
        DrawOver(frameBitmap, lastCompletePass.get());
        RepaintScreen(rect);
      }
      continue;
    }
    if (lastCompletePass &&
        (lastCompletePass->GetWidth() != frameWidth || lastCompletePass->GetHeight() != frameHeight))
      lastCompletePass.reset();
    if (!lastCompletePass)
      lastCompletePass.reset(new (std::nothrow) Gdiplus::Bitmap(int(frameWidth), int(frameHeight),
                                                                frameBitmap->GetPixelFormat()));
    if (lastCompletePass) {
      FrameBufferGuard guard(*this);
      DrawOver(lastCompletePass.get(), frameBitmap);
    }
  }
}
