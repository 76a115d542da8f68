// The host's window as the engine sees it: a client area to draw into and a
// target for posted messages. There is no windowing system underneath; a
// host picks the kind of window that suits it.
#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <utility>
#include <variant>
#include <vector>

#include "platform/DeviceContext.h"
#include "platform/WindowsTypes.h"

// Progress-bar control messages that the engine posts during a render.
constexpr unsigned PBM_SETRANGE = 0x401;
constexpr unsigned PBM_SETPOS = 0x402;
constexpr unsigned PBM_SETSTEP = 0x404;
constexpr unsigned PBM_STEPIT = 0x405;
// A range of 32 bits, low limit in wParam and high limit in lParam: the
// photons to be stored when the maps are shot.
constexpr unsigned PBM_SETRANGE32 = 0x406;

// Packs two 16-bit words into a message parameter; each word is cut to its
// low 16 bits, as a progress-bar range has no room for more.
constexpr LPARAM MAKELPARAM(uint32_t low, uint32_t high) {
  return static_cast<LPARAM>((low & 0xFFFFu) | ((high & 0xFFFFu) << 16));
}
constexpr uint16_t LOWORD(uint64_t value) {
  return static_cast<uint16_t>(value & 0xFFFFu);
}
constexpr uint16_t HIWORD(uint64_t value) {
  return static_cast<uint16_t>((value >> 16) & 0xFFFFu);
}

namespace platform {

class Window {
 public:
  virtual ~Window() = default;

  // Client area in window coordinates; its top left is (0, 0).
  virtual void GetClientRect(RECT& rect) const = 0;
  // False when the window has no drawing context to give.
  virtual bool CanDraw() const = 0;
  // A 1-pixel line from `from` up to, but not including, `to`, so that
  // lines joined end to end paint each corner once.
  virtual void DrawLine(POINT from, POINT to, COLORREF color) = 0;
  // Copies `sourceRect` of `source` into `destination`, scaled when the
  // sizes differ. Source-copy replaces what the window shows; otherwise the
  // source is laid over it by its alpha.
  virtual void DrawPixels(const PixelSurface& source, RECT sourceRect, RECT destination, bool sourceCopy) = 0;
  // True when the window took the message.
  virtual bool PostMessage(unsigned message, WPARAM wParam, LPARAM lParam) = 0;
};

// Called on the posting thread, which may be any of the engine's workers:
// a receiver must be safe to call from several threads at once.
using MessageReceiver = std::function<void(unsigned message, WPARAM wParam, LPARAM lParam)>;

// A headless window: it has a client size but shows nothing. Messages go to
// the receiver when there is one and are dropped otherwise.
class NullWindow : public Window {
 public:
  NullWindow(int width, int height, MessageReceiver receiver = nullptr);

  void GetClientRect(RECT& rect) const override;
  bool CanDraw() const override { return false; }
  void DrawLine(POINT, POINT, COLORREF) override {}
  void DrawPixels(const PixelSurface&, RECT, RECT, bool) override {}
  bool PostMessage(unsigned message, WPARAM wParam, LPARAM lParam) override;

 private:
  int width, height;
  MessageReceiver receiver;
};

// A window that exists only to receive messages, such as the progress bar
// of a command-line host. Its client area is empty.
class MessageWindow : public NullWindow {
 public:
  explicit MessageWindow(MessageReceiver receiver) : NullWindow(0, 0, std::move(receiver)) {}
};

// What a RecordingWindow was asked to do, in order.
struct DrawnLine {
  POINT from, to;
  COLORREF color;
};
struct DrawnPixels {
  RECT sourceRect, destination;
  bool sourceCopy;
};
struct PostedMessage {
  unsigned message;
  WPARAM wParam;
  LPARAM lParam;
};
using WindowEvent = std::variant<DrawnLine, DrawnPixels, PostedMessage>;

// A window that keeps its picture: a 32-bit client area, opaque black at
// first, into which lines and pixels are really painted, and a log of every
// call. Workers draw while the host reads, so all that touches the picture
// or the log takes the lock; the size is fixed at construction.
// A client area too large for memory leaves the window empty, 0 by 0.
class RecordingWindow : public Window {
 public:
  RecordingWindow(int width, int height);

  void GetClientRect(RECT& rect) const override;
  bool CanDraw() const override { return true; }
  void DrawLine(POINT from, POINT to, COLORREF color) override;
  void DrawPixels(const PixelSurface& source, RECT sourceRect, RECT destination, bool sourceCopy) override;
  bool PostMessage(unsigned message, WPARAM wParam, LPARAM lParam) override;

  // A client pixel as 0xAARRGGBB, which is its four bytes blue, green,
  // red, alpha read as one little-endian word; 0 outside the client area.
  uint32_t Pixel(int x, int y) const;
  // A copy of the client area: rows top first, 4 bytes a pixel, no padding.
  std::vector<uint8_t> Pixels() const;
  std::vector<WindowEvent> Events() const;
  // A host that keeps the window for long forgets the log now and then.
  void ClearEvents();

 private:
  PixelSurface Surface();

  int width, height;
  mutable std::mutex mutex;
  std::vector<uint8_t> pixels;
  std::vector<WindowEvent> events;
};

}  // namespace platform
