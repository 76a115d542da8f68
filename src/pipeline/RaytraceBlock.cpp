// One block of a picture: outlined on the window, traced pixel by pixel
// (with lent processors in the tail of a batch), then blended into the
// frame buffer and shown in one step.
#include <algorithm>
#include <memory>
#include <new>

#include "BrindlexViewRTRenderEngine.h"
#include "FrameBufferGuard.h"
#include "Gdi.h"
#include "GdiPlus.h"
#include "RenderOptions.h"
#include "ToneMapping.h"

namespace {
bool TraceOnePixel(RT_RENDER_ENGINE* engine, SWRT_RENDER_THREAD_DATA* data, unsigned int index,
                   SCENE_VERTEX_XYZW& color, std::atomic<bool>& abort) {
  return engine->RaytracePixel(data, index, color, abort);
}
}  // namespace

bool RT_RENDER_ENGINE::FinishBlock(const SWRT_RENDER_THREAD_DATA& data, const SCENE_VERTEX_XYZW* samples) {
  // An engine without frame buffer (a distributed one) keeps the samples
  // in the caller's buffer only; the block is done all the same.
  if (!frameBitmap || !frameHDRBuffer) return true;
  const uint32_t count = data.width * data.height;
  const PixelFinishRules rules = {data.passNumber,
                                  engineFlags.IsSet(RenderToFile) && engineFlags.IsSet(BackgroundAlpha)};
  const Gdiplus::Rect rect(int(data.frameX), int(data.frameY), int(data.width), int(data.height));
  Gdiplus::BitmapData bits;
  if (frameBitmap->LockBits(&rect, Gdiplus::ImageLockModeWrite, Gdiplus::PixelFormat32bppARGB, &bits) ==
      Gdiplus::Ok) {
    // Samples run down each column of the block, then on to the next one.
    uint32_t k = 0;
    for (uint32_t px = data.frameX; px < data.frameX + data.width && k < count; ++px) {
      for (uint32_t py = data.frameY; py < data.frameY + data.height && k < count; ++py, ++k) {
        SCENE_VERTEX_XYZW& mean = frameHDRBuffer[size_t(py) * frameWidth + px];
        BlendIntoRunningMean(samples[k], mean, rules);
        uint8_t* pixel = static_cast<uint8_t*>(bits.Scan0) + ptrdiff_t(py - data.frameY) * bits.Stride +
                         size_t(px - data.frameX) * 4;
        WriteBitmapPixel(mean, *data.options, rules, pixel);
      }
    }
    frameBitmap->UnlockBits(&bits);
  }
  bool shown = true;
  if (renderProgress)
    shown = renderProgress->DisplayEndProgress(frameBitmap, data.x, data.y, data.frameX, data.frameY,
                                               data.width, data.height);
  if (cubeMapProgressBar) PostMessageA(cubeMapProgressBar, PBM_STEPIT, 0, 0);
  return shown;
}

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
  const bool stopped = !TraceBlockPixels(data, samples, &TraceOnePixel);
  bool result = false;
  if (!stopped) {
    FrameBufferGuard guard(*this);
    result = FinishBlock(*data, samples);
  }
  if (own && buffer) std::copy_n(own.get(), std::min(count, bufferCount), buffer);
  return result;
}
