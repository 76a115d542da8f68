// One block of a picture: outlined on the window, traced pixel by pixel
// (with lent processors in the tail of a batch), then blended into the
// frame buffer and shown in one step.
#include <algorithm>
#include <memory>
#include <new>

#include "engine/BrindlexViewRTRenderEngine.h"
#include "pipeline/FinishBlock.h"
#include "pipeline/FrameBufferGuard.h"
#include "host/RenderOptions.h"

namespace {
bool TraceOnePixel(RT_RENDER_ENGINE* engine, SWRT_RENDER_THREAD_DATA* data, unsigned int index,
                   SCENE_VERTEX_XYZW& color, std::atomic<bool>& abort) {
  return engine->RaytracePixel(data, index, color, abort);
}
}  // namespace

bool RT_RENDER_ENGINE::RaytraceBlock(SWRT_RENDER_THREAD_DATA* data, SCENE_VERTEX_XYZW* buffer,
                                     unsigned int bufferCount) {
  if (!data || !data->view || !data->options) return false;
  if (renderProgress) {
    FrameBufferGuard guard(*this);
    renderProgress->DisplayBeginProgress(data->options->GetHighlightColor(), data->x, data->y, data->frameX,
                                         data->frameY, data->width, data->height);
  }
  const uint32_t count = data->width * data->height;
  std::unique_ptr<SCENE_VERTEX_XYZW[]> own;
  SCENE_VERTEX_XYZW* samples = buffer;
  if (!buffer || count > bufferCount) {
    own.reset(new (std::nothrow) SCENE_VERTEX_XYZW[count]());
    if (!own) return false;  // no memory for the samples: the block is dropped
    samples = own.get();
  }
  const bool stopped = !TraceBlockPixels(this, {coreTokenSemaphore, idleCoreAvailable, GetProcessorCount()},
                                         data, samples, &TraceOnePixel);
  bool result = false;
  if (!stopped) {
    FrameBufferGuard guard(*this);
    const bool keepBackgroundAlpha = engineFlags.IsSet(RenderToFile) && engineFlags.IsSet(BackgroundAlpha);
    result = FinishBlock(*data, samples, frameBitmap, frameHDRBuffer, frameWidth, keepBackgroundAlpha,
                         renderProgress, cubeMapProgressBar);
  }
  if (own && buffer) std::copy_n(own.get(), std::min(count, bufferCount), buffer);
  return result;
}
