// The window and drawing calls of the engine (GetDC, lines, StretchBlt,
// PostMessageA) and the two file calls of its picture output, over this
// platform's windows and pixel surfaces. The raster operations underneath
// are shared with the GDI+ drawing in GdiPlus.h.
#pragma once

#include <cstdint>
#include <functional>

#include "platform/DeviceContext.h"
#include "platform/Window.h"
#include "platform/WindowsTypes.h"

namespace platform {

// The rectangle of a position and a size; false when the size is not
// positive or the far edge would not fit in 32 bits.
bool RectFromSize(int64_t x, int64_t y, int64_t width, int64_t height, RECT& rect);

// Nearest-neighbour scaling: destination pixel `i` of `destinationSize`
// takes source pixel floor((2i + 1) * sourceSize / (2 * destinationSize)),
// the source pixel under the destination pixel's centre. Pixels are dropped
// or repeated, never mixed; doubling repeats each pixel twice and halving
// keeps the second of each pair. Sizes must be positive.
int NearestSourceIndex(int i, int sourceSize, int destinationSize);

// Copies `sourceRect` of `source` into `destination` of `target`, scaled by
// NearestSourceIndex when the sizes differ. Pixels that fall outside either
// surface are skipped. Depths may differ: grey spreads to blue, green and
// red, and a colour written to 8 bits becomes its luminance. Source-copy
// writes the source's pixel, alpha included; otherwise the source is laid
// over the target by its alpha, on a target that counts as opaque unless it
// has an alpha byte. False for an invalid surface or depth or an empty
// rectangle. Source and target must not overlap.
bool TransferPixels(const PixelSurface& source, RECT sourceRect, const PixelSurface& target, RECT destination,
                    bool sourceCopy);

// A 1-pixel opaque line from `from` up to, but not including, `to`, as
// Bresenham's algorithm steps it; the parts outside the surface are skipped.
void DrawSurfaceLine(const PixelSurface& surface, POINT from, POINT to, COLORREF color);

// Writes a file so that `path` never holds half of it: `fill` writes a
// temporary file beside `path`, which then takes the name and, if it
// replaces a file, that file's permissions. With `keepExisting` an existing
// `path` is left alone and the result is false. On any failure no temporary
// file is left behind. `writeResult`, when
// given, tells whether `fill` was called and succeeded: -1 not called, 0
// failed, 1 succeeded.
bool WriteFileThroughTemporary(const char* path, bool keepExisting,
                               const std::function<bool(const char* temporaryPath)>& fill,
                               int* writeResult = nullptr);

// Removes the temporary files of `path` that a writer killed before it
// could finish left behind (those no living writer holds). The number
// removed.
int RemoveAbandonedTemporaries(const char* path);

}  // namespace platform

// The raster operation of a plain copy.
constexpr uint32_t SRCCOPY = 0x00CC0020;

bool GetClientRect(HWND window, RECT* rect);

// A drawing context on the window, or null when the window has none. The
// caller owns it until ReleaseDC.
HDC GetDC(HWND window);
// 1 when `dc` was a context of `window` from GetDC and is now gone, else 0.
int ReleaseDC(HWND window, HDC dc);

// Lines are always solid and 1 pixel wide, so a pen is only its colour:
// this selects it and gives back the colour it replaces, for restoring.
COLORREF SelectPenColor(HDC dc, COLORREF color);
bool MoveToEx(HDC dc, int x, int y, POINT* previous);
// Draws with the pen from the current position up to, not including,
// (x, y), which becomes the current position.
bool LineTo(HDC dc, int x, int y);

// Copies a rectangle between contexts, scaled by nearest neighbour. The
// source must be an image's context; the target an image's or a window's.
// Only SRCCOPY is known, and sizes must be positive: mirroring by negative
// sizes is not offered.
bool StretchBlt(HDC target, int x, int y, int width, int height, HDC source, int sourceX, int sourceY,
                int sourceWidth, int sourceHeight, uint32_t rasterOperation);

// False without a window or when the window refused the message.
bool PostMessageA(HWND window, unsigned message, WPARAM wParam, LPARAM lParam);

// False if the folder could not be made, also when it already exists.
// Security attributes have no meaning here and are not read.
bool CreateDirectoryA(const char* path, const void* securityAttributes);
// Copies a file through a temporary name, so `to` is never half written.
// With `failIfExists` an existing `to` is kept and the result is false.
bool CopyFileA(const char* from, const char* to, bool failIfExists);
