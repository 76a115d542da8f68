// Conversion between the engine's narrow strings and wide strings. The
// narrow code page of this platform is UTF-8, and wchar_t holds one
// Unicode code point.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

constexpr unsigned CP_ACP = 0;  // the system code page: UTF-8 here
constexpr unsigned CP_UTF8 = 65001;

// Both calls convert `length` units of the input, or up to and including
// its terminating zero when `length` is -1. With an output size of 0 they
// give the size the output needs; otherwise they write and give the count
// written. 0 means failure: an empty or invalid input (malformed UTF-8, a
// surrogate, a code point beyond U+10FFFF), a code page other than these
// two, or too small an output. Invalid input is never replaced, so that a
// file name is either converted exactly or refused. `flags` select nothing.
int MultiByteToWideChar(unsigned codePage, uint32_t flags, const char* text, int length, wchar_t* wide,
                        int wideLength);
// Every code point has a UTF-8 form, so no default character is ever used:
// `defaultChar` is not read and `*usedDefaultChar`, if given, is false.
int WideCharToMultiByte(unsigned codePage, uint32_t flags, const wchar_t* wide, int length, char* text,
                        int textLength, const char* defaultChar, bool* usedDefaultChar);

namespace platform {

// Absent when the input is not valid UTF-8 or Unicode.
std::optional<std::wstring> Utf8ToWide(std::string_view text);
std::optional<std::string> WideToUtf8(std::wstring_view text);

}  // namespace platform
