// The frame buffer pair: `frameHDRBuffer`, the linear running mean, and
// `frameBitmap`, its 8-bit form that is painted. Both follow the host's
// window, or a size given without one. Every lock goes through the virtual
// LockSWFrameBuffer and UnLockSWFrameBuffer, which a host may extend.
#include <memory>
#include <new>

#include "platform/CImage.h"
#include "pipeline/FrameBufferGuard.h"
#include "platform/Gdi.h"
#include "platform/GdiPlus.h"
#include "engine/RenderEngineBase.h"
#include "platform/Window.h"

namespace {
// Deletes both buffers; the caller holds the frame-buffer lock.
void DeleteFrameBuffers(Gdiplus::Bitmap*& bitmap, SCENE_VERTEX_XYZW*& hdr) {
  delete[] hdr;
  hdr = nullptr;
  delete bitmap;
  bitmap = nullptr;
}

SCENE_VERTEX_XYZW* NewZeroedHDR(uint32_t width, uint32_t height) {
  return new (std::nothrow) SCENE_VERTEX_XYZW[size_t(width) * height]();
}

int RectWidth(const RECT& rect) {
  return rect.right - rect.left;
}
int RectHeight(const RECT& rect) {
  return rect.bottom - rect.top;
}
}  // namespace

bool RT_RENDER_ENGINE_BASE::InitializeRendererWindow(HWND window, HINSTANCE) {
  rendererWindow = window;
  if (!window) return false;
  RECT client{};
  GetClientRect(window, &client);
  FrameBufferGuard guard(*this);
  DeleteFrameBuffers(frameBitmap, frameHDRBuffer);
  frameWidth = static_cast<uint32_t>(RectWidth(client));
  frameHeight = static_cast<uint32_t>(RectHeight(client));
  if (!distributedServer) {
    frameBitmap = new (std::nothrow) Gdiplus::Bitmap(frameWidth, frameHeight, Gdiplus::PixelFormat32bppARGB);
    frameHDRBuffer = NewZeroedHDR(frameWidth, frameHeight);
  }
  return false;
}

void RT_RENDER_ENGINE_BASE::ShutDownRendererWindow() {
  {
    FrameBufferGuard guard(*this);
    DeleteFrameBuffers(frameBitmap, frameHDRBuffer);
  }
  rendererWindow = nullptr;
}

unsigned int RT_RENDER_ENGINE_BASE::RepaintScreen(const RECT& rect) {
  if (!rendererWindow || !frameBitmap) return 0;
  HDC dc = GetDC(rendererWindow);
  if (!dc) return 0;
  {
    FrameBufferGuard guard(*this);
    Gdiplus::Graphics(dc).DrawImage(frameBitmap, rect.left, rect.top, RectWidth(rect), RectHeight(rect));
  }
  ReleaseDC(rendererWindow, dc);
  return 0;
}

void RT_RENDER_ENGINE_BASE::GetFrameImage(ATL::CImage& image, ENVIRONMENT_3D_PROJECT*, ENVIRONMENT_3D_VIEW*) {
  if (!rendererWindow || !frameBitmap || image.IsNull()) return;
  FrameBufferGuard guard(*this);
  HDC dc = image.GetDC();
  if (!dc) return;
  Gdiplus::Graphics(dc).DrawImage(frameBitmap, 0, 0, image.GetWidth(), image.GetHeight());
  image.ReleaseDC();
}

bool RT_RENDER_ENGINE_BASE::DoesRendererNeedToResizeClientArea(WPARAM wParam, LPARAM lParam) const {
  const uint32_t width = LOWORD(static_cast<uint64_t>(lParam));
  const uint32_t height = HIWORD(static_cast<uint64_t>(lParam));
  const WPARAM Minimised = 1;
  if (wParam == Minimised || width == 0 || height == 0) return false;
  if (!frameBitmap) return false;
  return width != frameWidth || height != frameHeight;
}

void RT_RENDER_ENGINE_BASE::ResizeClientArea(unsigned int* width, unsigned int* height) {
  RECT client{};
  if (rendererWindow)
    GetClientRect(rendererWindow, &client);
  else if (width && height)
    client = {0, 0, static_cast<int32_t>(*width), static_cast<int32_t>(*height)};
  else
    return;
  // Only a call without a window may make the pair from nothing.
  if (!frameHDRBuffer && !frameBitmap && rendererWindow) return;

  FrameBufferGuard guard(*this);
  delete[] frameHDRBuffer;
  frameHDRBuffer = nullptr;
  std::unique_ptr<Gdiplus::Bitmap> oldBitmap(frameBitmap);
  frameBitmap = nullptr;
  frameWidth = static_cast<uint32_t>(RectWidth(client));
  frameHeight = static_cast<uint32_t>(RectHeight(client));
  if (!distributedServer) {
    frameBitmap = new (std::nothrow) Gdiplus::Bitmap(frameWidth, frameHeight, Gdiplus::PixelFormat32bppARGB);
    frameHDRBuffer = NewZeroedHDR(frameWidth, frameHeight);
  }
  if (oldBitmap && frameBitmap) {
    // The picture survives the resize, scaled; from now on its 8-bit values
    // stand in for the running mean.
    Gdiplus::Graphics(frameBitmap).DrawImage(oldBitmap.get(), 0, 0, frameWidth, frameHeight);
    if (frameHDRBuffer) ReadBitmapIntoHDR();
  }
}

void RT_RENDER_ENGINE_BASE::ReadBitmapIntoHDR() {
  Gdiplus::BitmapData data;
  if (frameBitmap->LockBits(nullptr, Gdiplus::ImageLockModeRead, Gdiplus::PixelFormat32bppARGB, &data) !=
      Gdiplus::Ok)
    return;
  for (uint32_t y = 0; y < data.Height; ++y) {
    const uint8_t* row = static_cast<const uint8_t*>(data.Scan0) + ptrdiff_t(y) * data.Stride;
    for (uint32_t x = 0; x < data.Width; ++x) {
      const uint8_t* bytes = row + 4 * x;
      SCENE_VERTEX_XYZW& color = frameHDRBuffer[size_t(y) * frameWidth + x];
      color.z = static_cast<float>(bytes[0] / 255.0);
      color.y = static_cast<float>(bytes[1] / 255.0);
      color.x = static_cast<float>(bytes[2] / 255.0);
      color.w = static_cast<float>(bytes[3] / 255.0);
    }
  }
  frameBitmap->UnlockBits(&data);
}
