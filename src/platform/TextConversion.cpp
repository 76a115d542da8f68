#include "platform/TextConversion.h"

#include <algorithm>
#include <climits>
#include <cstring>

static_assert(sizeof(wchar_t) == 4, "a wchar_t holds a whole code point on this platform");

namespace platform {
namespace {

bool IsScalarValue(uint32_t c) {
  return c <= 0x10FFFF && (c < 0xD800 || c > 0xDFFF);
}

// Decodes one code point at `text[i]` and moves `i` past it; false for a
// truncated, overlong or otherwise malformed sequence.
bool DecodeUtf8(std::string_view text, size_t& i, uint32_t& codePoint) {
  const uint8_t lead = static_cast<uint8_t>(text[i]);
  static constexpr uint32_t smallest[4] = {0, 0x80, 0x800, 0x10000};
  int extra = lead < 0x80           ? 0
              : (lead >> 5) == 0x6  ? 1
              : (lead >> 4) == 0xE  ? 2
              : (lead >> 3) == 0x1E ? 3
                                    : -1;
  if (extra < 0 || text.size() - i <= static_cast<size_t>(extra)) return false;
  codePoint = extra == 0 ? lead : lead & (0x3F >> extra);
  for (int k = 1; k <= extra; ++k) {
    const uint8_t next = static_cast<uint8_t>(text[i + k]);
    if ((next & 0xC0) != 0x80) return false;
    codePoint = codePoint << 6 | (next & 0x3F);
  }
  i += extra + 1;
  return codePoint >= smallest[extra] && IsScalarValue(codePoint);
}

void EncodeUtf8(uint32_t c, std::string& out) {
  if (c < 0x80) {
    out += static_cast<char>(c);
    return;
  }
  const int extra = c < 0x800 ? 1 : c < 0x10000 ? 2 : 3;
  // The lead byte starts with one 1 bit for each byte of the sequence.
  out += static_cast<char>(((0xFF00 >> (extra + 1)) & 0xFF) | (c >> (6 * extra)));
  for (int k = extra - 1; k >= 0; --k) out += static_cast<char>(0x80 | ((c >> (6 * k)) & 0x3F));
}

bool KnownCodePage(unsigned codePage) {
  return codePage == CP_ACP || codePage == CP_UTF8;
}

// The part of the input that a length of -1 or more names.
template <typename Char>
std::optional<std::basic_string_view<Char>> Input(const Char* text, int length) {
  if (!text || length == 0 || length < -1) return std::nullopt;
  if (length > 0) return std::basic_string_view<Char>(text, length);
  return std::basic_string_view<Char>(text, std::char_traits<Char>::length(text) + 1);
}

template <typename Char>
int Deliver(const std::optional<std::basic_string<Char>>& converted, Char* out, int outLength) {
  if (!converted || converted->size() > INT_MAX || outLength < 0) return 0;
  const int size = static_cast<int>(converted->size());
  if (outLength == 0) return size;
  if (!out || outLength < size) return 0;
  std::copy(converted->begin(), converted->end(), out);
  return size;
}

}  // namespace

std::optional<std::wstring> Utf8ToWide(std::string_view text) {
  std::wstring wide;
  wide.reserve(text.size());
  for (size_t i = 0; i < text.size();) {
    uint32_t c;
    if (!DecodeUtf8(text, i, c)) return std::nullopt;
    wide += static_cast<wchar_t>(c);
  }
  return wide;
}

std::optional<std::string> WideToUtf8(std::wstring_view text) {
  std::string narrow;
  narrow.reserve(text.size());
  for (wchar_t w : text) {
    const uint32_t c = static_cast<uint32_t>(w);
    if (!IsScalarValue(c)) return std::nullopt;
    EncodeUtf8(c, narrow);
  }
  return narrow;
}

}  // namespace platform

int MultiByteToWideChar(unsigned codePage, uint32_t, const char* text, int length, wchar_t* wide,
                        int wideLength) {
  const auto input = platform::Input(text, length);
  if (!platform::KnownCodePage(codePage) || !input) return 0;
  return platform::Deliver(platform::Utf8ToWide(*input), wide, wideLength);
}

int WideCharToMultiByte(unsigned codePage, uint32_t, const wchar_t* wide, int length, char* text,
                        int textLength, const char*, bool* usedDefaultChar) {
  if (usedDefaultChar) *usedDefaultChar = false;
  const auto input = platform::Input(wide, length);
  if (!platform::KnownCodePage(codePage) || !input) return 0;
  return platform::Deliver(platform::WideToUtf8(*input), text, textLength);
}
