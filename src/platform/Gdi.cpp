#include "platform/Gdi.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <new>
#include <string>
#include <dirent.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace platform {
namespace {

using Bgra = std::array<uint8_t, 4>;

bool DrawableDepth(const PixelSurface& surface) {
  return surface.Valid() &&
         (surface.bitsPerPixel == 8 || surface.bitsPerPixel == 24 || surface.bitsPerPixel == 32);
}

bool Inside(const PixelSurface& surface, int64_t x, int64_t y) {
  return x >= 0 && y >= 0 && x < surface.width && y < surface.height;
}

uint8_t* PixelAddress(const PixelSurface& surface, int x, int y) {
  return surface.Row(y) + static_cast<ptrdiff_t>(x) * (surface.bitsPerPixel / 8);
}

// ITU-R BT.601 weights in thousandths, rounded: a grey pixel keeps its value
// through a round trip from 8 bits to colour and back.
uint8_t Luminance(const Bgra& p) {
  return static_cast<uint8_t>((114 * p[0] + 587 * p[1] + 299 * p[2] + 500) / 1000);
}

Bgra ReadPixel(const PixelSurface& surface, int x, int y) {
  const uint8_t* p = PixelAddress(surface, x, y);
  switch (surface.bitsPerPixel) {
    case 8:
      return {p[0], p[0], p[0], 255};
    case 24:
      return {p[0], p[1], p[2], 255};
    default:
      return {p[0], p[1], p[2], p[3]};
  }
}

// Unpremultiplied "over": the result's alpha is a + d(1 - a), and its colour
// the mix of both colours weighted by what each contributes to that alpha.
// All in integers scaled by 255, rounded once at the end.
Bgra Over(const Bgra& source, const Bgra& target) {
  const int a = source[3];
  if (a == 255) return source;
  if (a == 0) return target;
  const int targetWeight = target[3] * (255 - a);
  const int alpha = a * 255 + targetWeight;
  Bgra result;
  for (int c = 0; c < 3; ++c)
    result[c] = static_cast<uint8_t>((source[c] * a * 255 + target[c] * targetWeight + alpha / 2) / alpha);
  result[3] = static_cast<uint8_t>((alpha + 127) / 255);
  return result;
}

void WritePixel(const PixelSurface& surface, int x, int y, Bgra pixel, bool sourceCopy) {
  if (!sourceCopy) pixel = Over(pixel, ReadPixel(surface, x, y));
  uint8_t* p = PixelAddress(surface, x, y);
  switch (surface.bitsPerPixel) {
    case 8:
      p[0] = Luminance(pixel);
      break;
    case 24:
      std::copy_n(pixel.begin(), 3, p);
      break;
    default:
      std::copy_n(pixel.begin(), 4, p);
      break;
  }
}

Bgra OpaqueColor(COLORREF color) {
  return {static_cast<uint8_t>(color >> 16), static_cast<uint8_t>(color >> 8), static_cast<uint8_t>(color),
          255};
}

// Both ends on the same outer side of the surface: nothing to draw.
bool LineMissesSurface(const PixelSurface& surface, POINT from, POINT to) {
  return (from.x < 0 && to.x < 0) || (from.y < 0 && to.y < 0) ||
         (from.x >= surface.width && to.x >= surface.width) ||
         (from.y >= surface.height && to.y >= surface.height);
}

bool WriteAll(int fd, const char* data, ssize_t size) {
  while (size > 0) {
    const ssize_t written = write(fd, data, static_cast<size_t>(size));
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    data += written;
    size -= written;
  }
  return true;
}

bool CopyContents(int from, const char* to) {
  const int out = open(to, O_WRONLY | O_TRUNC | O_CLOEXEC);
  if (out < 0) return false;
  char buffer[1 << 16];
  bool ok = true;
  for (;;) {
    const ssize_t got = read(from, buffer, sizeof buffer);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) {
      ok = got == 0;
      break;
    }
    if (!WriteAll(out, buffer, got)) {
      ok = false;
      break;
    }
  }
  return close(out) == 0 && ok;
}

// The process's file-creation mask, read without changing it (umask()
// would change it for every thread for a moment).
mode_t CreationMask() {
  std::FILE* status = std::fopen("/proc/self/status", "r");
  unsigned int mask = 022;
  char line[256];
  while (status && std::fgets(line, sizeof line, status))
    if (std::sscanf(line, "Umask: %o", &mask) == 1) break;
  if (status) std::fclose(status);
  return static_cast<mode_t>(mask);
}

// A replaced file keeps its permissions; a new one gets what the user's
// mask lets through, like any file a program creates.
mode_t ModeFor(const char* path) {
  struct stat existing;
  if (stat(path, &existing) == 0) return existing.st_mode & 07777;
  return 0666 & ~CreationMask();
}

// The temporary name's stem: the file's own name, cut so that the name with
// its ".XXXXXX" still fits in a folder entry.
std::string TemporaryStem(const std::string& path) {
  const size_t slash = path.rfind('/');
  const size_t nameStart = slash == std::string::npos ? 0 : slash + 1;
  constexpr size_t Suffix = 7;  // ".XXXXXX"
  return path.substr(0, nameStart + std::min(path.size() - nameStart, size_t{NAME_MAX} - Suffix));
}

}  // namespace

bool RectFromSize(int64_t x, int64_t y, int64_t width, int64_t height, RECT& rect) {
  if (width <= 0 || height <= 0) return false;
  const int64_t right = x + width, bottom = y + height;
  if (x < INT32_MIN || y < INT32_MIN || right > INT32_MAX || bottom > INT32_MAX) return false;
  rect = {static_cast<int32_t>(x), static_cast<int32_t>(y), static_cast<int32_t>(right),
          static_cast<int32_t>(bottom)};
  return true;
}

int NearestSourceIndex(int i, int sourceSize, int destinationSize) {
  if (sourceSize <= 0 || destinationSize <= 0) return 0;
  return static_cast<int>((2 * static_cast<int64_t>(i) + 1) * sourceSize /
                          (2 * static_cast<int64_t>(destinationSize)));
}

bool TransferPixels(const PixelSurface& source, RECT sourceRect, const PixelSurface& target, RECT destination,
                    bool sourceCopy) {
  const int64_t sourceWidth = int64_t{sourceRect.right} - sourceRect.left;
  const int64_t sourceHeight = int64_t{sourceRect.bottom} - sourceRect.top;
  const int64_t width = int64_t{destination.right} - destination.left;
  const int64_t height = int64_t{destination.bottom} - destination.top;
  if (!DrawableDepth(source) || !DrawableDepth(target)) return false;
  if (sourceWidth <= 0 || sourceHeight <= 0 || width <= 0 || height <= 0) return false;
  if (sourceWidth > INT_MAX || sourceHeight > INT_MAX || width > INT_MAX || height > INT_MAX) return false;
  const int firstY = static_cast<int>(std::max<int64_t>(destination.top, 0));
  const int endY = static_cast<int>(std::min<int64_t>(destination.bottom, target.height));
  const int firstX = static_cast<int>(std::max<int64_t>(destination.left, 0));
  const int endX = static_cast<int>(std::min<int64_t>(destination.right, target.width));
  for (int y = firstY; y < endY; ++y) {
    const int64_t sy =
        sourceRect.top + int64_t{NearestSourceIndex(y - destination.top, static_cast<int>(sourceHeight),
                                                    static_cast<int>(height))};
    for (int x = firstX; x < endX; ++x) {
      const int64_t sx =
          sourceRect.left + int64_t{NearestSourceIndex(x - destination.left, static_cast<int>(sourceWidth),
                                                       static_cast<int>(width))};
      if (!Inside(source, sx, sy)) continue;
      WritePixel(target, x, y, ReadPixel(source, static_cast<int>(sx), static_cast<int>(sy)), sourceCopy);
    }
  }
  return true;
}

void DrawSurfaceLine(const PixelSurface& surface, POINT from, POINT to, COLORREF color) {
  if (!DrawableDepth(surface) || LineMissesSurface(surface, from, to)) return;
  const Bgra pixel = OpaqueColor(color);
  int64_t x = from.x, y = from.y;
  const int64_t dx = std::abs(int64_t{to.x} - x), dy = -std::abs(int64_t{to.y} - y);
  const int stepX = x < to.x ? 1 : -1, stepY = y < to.y ? 1 : -1;
  int64_t error = dx + dy;
  bool entered = false;
  while (x != to.x || y != to.y) {
    if (Inside(surface, x, y)) {
      WritePixel(surface, static_cast<int>(x), static_cast<int>(y), pixel, true);
      entered = true;
    } else if (entered) {
      break;  // a straight line that has left the surface does not come back
    }
    const int64_t twice = 2 * error;
    if (twice >= dy) error += dy, x += stepX;
    if (twice <= dx) error += dx, y += stepY;
  }
}

bool WriteFileThroughTemporary(const char* path, bool keepExisting,
                               const std::function<bool(const char* temporaryPath)>& fill, int* writeResult) {
  if (writeResult) *writeResult = -1;
  if (!path || !*path || !fill) return false;
  std::string temporary = TemporaryStem(path) + ".XXXXXX";
  const int fd = mkstemp(temporary.data());
  if (fd < 0) return false;
  // The lock, held until the file has its name, tells a later run that a
  // temporary file nobody holds was left by a writer that was killed.
  flock(fd, LOCK_EX);
  const bool written = fill(temporary.c_str());
  if (writeResult) *writeResult = written ? 1 : 0;
  // The mode is set only once the file is full: a read-only mode would
  // otherwise stop the writer.
  const bool ready = written && chmod(temporary.c_str(), ModeFor(path)) == 0;
  // link() refuses an existing name, so keeping an existing file is decided
  // at the moment the new one appears, not before.
  const bool placed =
      ready && (keepExisting ? link(temporary.c_str(), path) == 0 : rename(temporary.c_str(), path) == 0);
  if (!placed || keepExisting) unlink(temporary.c_str());
  close(fd);
  return placed;
}

int RemoveAbandonedTemporaries(const char* path) {
  if (!path || !*path) return 0;
  const std::string stem = TemporaryStem(path);
  const size_t slash = stem.rfind('/');
  const std::string folder = slash == std::string::npos ? "." : stem.substr(0, slash + 1);
  const std::string prefix = (slash == std::string::npos ? stem : stem.substr(slash + 1)) + ".";
  DIR* listing = opendir(folder.c_str());
  if (!listing) return 0;
  int removed = 0;
  while (const dirent* entry = readdir(listing)) {
    const std::string name = entry->d_name;
    if (name.size() != prefix.size() + 6 || name.compare(0, prefix.size(), prefix) != 0 ||
        !std::all_of(name.begin() + static_cast<ptrdiff_t>(prefix.size()), name.end(),
                     [](unsigned char c) { return std::isalnum(c); }))
      continue;
    const int fd = openat(dirfd(listing), name.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK);
    struct stat info;
    if (fd < 0) continue;
    // Only a regular file that no living writer holds.
    if (fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && flock(fd, LOCK_EX | LOCK_NB) == 0 &&
        unlinkat(dirfd(listing), name.c_str(), 0) == 0)
      ++removed;
    close(fd);
  }
  closedir(listing);
  return removed;
}

}  // namespace platform

using platform::DeviceContext;

bool GetClientRect(HWND window, RECT* rect) {
  if (!window || !rect) return false;
  window->GetClientRect(*rect);
  return true;
}

HDC GetDC(HWND window) {
  if (!window || !window->CanDraw()) return nullptr;
  DeviceContext* dc = new (std::nothrow) DeviceContext{};
  if (dc) dc->window = window;
  return dc;
}

int ReleaseDC(HWND window, HDC dc) {
  // An image's context also has no window; only a window's own may go.
  if (!window || !dc || dc->window != window) return 0;
  delete dc;
  return 1;
}

COLORREF SelectPenColor(HDC dc, COLORREF color) {
  if (!dc) return 0;
  const COLORREF previous = dc->pen;
  dc->pen = color;
  return previous;
}

bool MoveToEx(HDC dc, int x, int y, POINT* previous) {
  if (!dc) return false;
  if (previous) *previous = dc->position;
  dc->position = {x, y};
  return true;
}

bool LineTo(HDC dc, int x, int y) {
  if (!dc) return false;
  const POINT to{x, y};
  if (dc->window)
    dc->window->DrawLine(dc->position, to, dc->pen);
  else if (dc->surface.Valid())
    platform::DrawSurfaceLine(dc->surface, dc->position, to, dc->pen);
  else
    return false;
  dc->position = to;
  return true;
}

bool StretchBlt(HDC target, int x, int y, int width, int height, HDC source, int sourceX, int sourceY,
                int sourceWidth, int sourceHeight, uint32_t rasterOperation) {
  RECT destination, sourceRect;
  if (rasterOperation != SRCCOPY || !target || !source || source->window) return false;
  if (!platform::RectFromSize(x, y, width, height, destination) ||
      !platform::RectFromSize(sourceX, sourceY, sourceWidth, sourceHeight, sourceRect))
    return false;
  if (!target->window)
    return platform::TransferPixels(source->surface, sourceRect, target->surface, destination, true);
  if (!source->surface.Valid()) return false;
  target->window->DrawPixels(source->surface, sourceRect, destination, true);
  return true;
}

bool PostMessageA(HWND window, unsigned message, WPARAM wParam, LPARAM lParam) {
  return window && window->PostMessage(message, wParam, lParam);
}

bool CreateDirectoryA(const char* path, const void*) {
  return path && *path && mkdir(path, 0777) == 0;
}

bool CopyFileA(const char* from, const char* to, bool failIfExists) {
  if (!from || !to) return false;
  const int in = open(from, O_RDONLY | O_CLOEXEC);
  if (in < 0) return false;
  const bool copied = platform::WriteFileThroughTemporary(to, failIfExists, [in](const char* temporary) {
    return lseek(in, 0, SEEK_SET) == 0 && platform::CopyContents(in, temporary);
  });
  close(in);
  return copied;
}
