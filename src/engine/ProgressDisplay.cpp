// The engine's own progress drawing: the outline of a block while it is
// traced, and the finished block blitted over it. Both are called with the
// frame-buffer lock held.
#include "engine/BrindlexViewRTRenderEngine.h"
#include "platform/Gdi.h"
#include "platform/GdiPlus.h"

void RT_RENDER_ENGINE::DisplayBeginProgress(unsigned long color, unsigned int, unsigned int,
                                            unsigned int frameX, unsigned int frameY, unsigned int width,
                                            unsigned int height) {
  if (!rendererWindow) return;
  HDC dc = GetDC(rendererWindow);
  if (!dc) return;
  // One pixel inside the block's edge, so neighbouring outlines never touch.
  const int left = int(frameX) + 1, top = int(frameY) + 1;
  const int right = int(frameX + width) - 1, bottom = int(frameY + height) - 1;
  COLORREF oldPen = SelectPenColor(dc, static_cast<COLORREF>(color));
  MoveToEx(dc, left, top, nullptr);
  LineTo(dc, right, top);
  LineTo(dc, right, bottom);
  LineTo(dc, left, bottom);
  LineTo(dc, left, top);
  SelectPenColor(dc, oldPen);
  ReleaseDC(rendererWindow, dc);
}

bool RT_RENDER_ENGINE::DisplayEndProgress(Gdiplus::Bitmap* bitmap, unsigned int, unsigned int,
                                          unsigned int frameX, unsigned int frameY, unsigned int width,
                                          unsigned int height) {
  if (!rendererWindow || !bitmap) return false;
  HDC dc = GetDC(rendererWindow);
  if (!dc) return false;
  {
    Gdiplus::Graphics graphics(dc);
    Gdiplus::CompositingMode oldMode = graphics.GetCompositingMode();
    // Source-copy: the block replaces its outline whatever its alpha.
    graphics.SetCompositingMode(Gdiplus::CompositingModeSourceCopy);
    graphics.DrawImage(bitmap, frameX, frameY, frameX, frameY, width, height, Gdiplus::UnitPixel);
    graphics.SetCompositingMode(oldMode);
  }
  ReleaseDC(rendererWindow, dc);
  return true;
}
