#include <gtest/gtest.h>
#include <tuple>

#include "platform/Gdi.h"
#include "platform/GdiPlus.h"
#include "platform/Window.h"

using platform::RecordingWindow;

TEST(RecordingWindow, ShowsTheImagesDrawnThroughItsContext) {
  RecordingWindow window(6, 4);
  EXPECT_EQ(window.Pixel(0, 0), 0xFF000000u);  // opaque black before any drawing
  Gdiplus::Bitmap block(2, 2, Gdiplus::PixelFormat32bppARGB);
  const platform::PixelSurface pixels = block.Surface();
  for (int i = 0; i < 4; ++i) pixels.firstRow[i * 4] = uint8_t(i + 1), pixels.firstRow[i * 4 + 3] = 255;

  HDC dc = GetDC(&window);
  ASSERT_NE(dc, nullptr);
  Gdiplus::Graphics graphics(dc);
  graphics.SetCompositingMode(Gdiplus::CompositingModeSourceCopy);
  // The bottom right pixel of the block at (5, 3): the last pixel of the client area.
  ASSERT_EQ(graphics.DrawImage(&block, 5, 3, 1, 1, 1, 1, Gdiplus::UnitPixel), Gdiplus::Ok);
  EXPECT_EQ(std::tuple(window.Pixel(5, 3), window.Pixel(4, 3)), std::tuple(0xFF000004u, 0xFF000000u));
  EXPECT_EQ(ReleaseDC(&window, dc), 1);
  // The window is told how to blend, as the engine's blocks are.
  EXPECT_TRUE(std::get<platform::DrawnPixels>(window.Events().at(0)).sourceCopy);
}

TEST(RecordingWindow, BlockOutlineLinesPaintEachEdgePixelOnce) {
  RecordingWindow window(8, 8);
  HDC dc = GetDC(&window);
  ASSERT_NE(dc, nullptr);
  const COLORREF red = 0x0000FF;
  const COLORREF old = SelectPenColor(dc, red);
  // The outline of a 6 x 5 block at (0, 0), one pixel inside its edge.
  MoveToEx(dc, 1, 1, nullptr);
  LineTo(dc, 5, 1);
  LineTo(dc, 5, 4);
  LineTo(dc, 1, 4);
  LineTo(dc, 1, 1);
  EXPECT_EQ(SelectPenColor(dc, old), red);
  ReleaseDC(&window, dc);

  int painted = 0;
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 8; ++x) {
      const bool edge = x >= 1 && x <= 5 && y >= 1 && y <= 4 && (x == 1 || x == 5 || y == 1 || y == 4);
      EXPECT_EQ(window.Pixel(x, y), edge ? 0xFFFF0000u : 0xFF000000u) << x << "," << y;
      painted += edge;
    }
  EXPECT_EQ(painted, 14);
}
