// Small stand-ins for the Windows types that the engine's interfaces name.
// Only their shape matters to this system; no Windows semantics come with
// them beyond what each comment says.
#pragma once

#include <cstdint>

namespace platform {
class Window;
struct DeviceContext;
}  // namespace platform

// A window of the host, or null for a render without one.
using HWND = platform::Window*;
// Not used on this platform; kept so that signatures read as the host's do.
using HINSTANCE = void*;
// A drawing context on a window or on an image.
using HDC = platform::DeviceContext*;

using WPARAM = uint64_t;
using LPARAM = int64_t;
// A colour with red in the low byte, then green, then blue.
using COLORREF = uint32_t;

// Right and bottom are exclusive.
struct RECT {
  int32_t left, top, right, bottom;
};
using tagRECT = RECT;

struct POINT {
  int32_t x, y;
};

// A file time in 100-nanosecond steps since 1601-01-01, as two halves.
struct FILETIME {
  uint32_t dwLowDateTime;
  uint32_t dwHighDateTime;
};

struct GUID {
  uint32_t Data1;
  uint16_t Data2;
  uint16_t Data3;
  uint8_t Data4[8];
};
