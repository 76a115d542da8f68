// A traced block's last step: into the running mean and the bitmap, then
// onto the window.
#include "pipeline/FinishBlock.h"

#include "platform/Gdi.h"
#include "platform/GdiPlus.h"
#include "engine/RenderEngineInterfaces.h"
#include "host/RenderOptions.h"
#include "pipeline/ToneMapping.h"

bool FinishBlock(const SWRT_RENDER_THREAD_DATA& data, const SCENE_VERTEX_XYZW* samples,
                 Gdiplus::Bitmap* frameBitmap, SCENE_VERTEX_XYZW* frameHDRBuffer, uint32_t frameWidth,
                 bool keepBackgroundAlpha, RENDER_PROGRESS_INTERFACE* renderProgress,
                 HWND cubeMapProgressBar) {
  // An engine without frame buffer (a distributed one) keeps the samples
  // in the caller's buffer only; the block is done all the same.
  if (!frameBitmap || !frameHDRBuffer) return true;
  const uint32_t count = data.width * data.height;
  const PixelFinishRules rules = {data.passNumber, keepBackgroundAlpha};
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
