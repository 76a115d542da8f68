#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <tuple>

#include "platform/Gdi.h"
#include "platform/GdiPlus.h"
#include "platform/TextConversion.h"

#include "TestFolder.h"

using namespace Gdiplus;
namespace fs = std::filesystem;

namespace {

// Pixel (x, y) of an image as 0xAARRGGBB.
uint32_t At(const platform::PixelSurface& s, int x, int y) {
  const uint8_t* p = s.Row(y) + x * (s.bitsPerPixel / 8);
  if (s.bitsPerPixel == 8) return p[0];
  if (s.bitsPerPixel == 24) return p[0] | p[1] << 8 | p[2] << 16;
  return p[0] | p[1] << 8 | p[2] << 16 | uint32_t(p[3]) << 24;
}

void Put(const platform::PixelSurface& s, int x, int y, uint32_t argb) {
  uint8_t* p = s.Row(y) + x * (s.bitsPerPixel / 8);
  for (int i = 0; i < s.bitsPerPixel / 8; ++i) p[i] = uint8_t(argb >> (8 * i));
}

// A surface over `bytes`, rows packed.
platform::PixelSurface Over(std::vector<uint8_t>& bytes, int width, int height, int bits) {
  bytes.assign(size_t(width) * height * bits / 8, 0);
  return {width, height, bits, bytes.data(), ptrdiff_t(width) * bits / 8};
}

size_t Count(const TestFolder& folder) {
  return size_t(std::distance(fs::directory_iterator(folder.path), {}));
}

}  // namespace

TEST(Bitmap, LockedRectangleIsWrittenAndReadBack) {
  Bitmap bitmap(4, 3, PixelFormat32bppARGB);
  ASSERT_EQ(bitmap.GetLastStatus(), Ok);
  BitmapData data;
  Rect rect(1, 1, 2, 2);
  ASSERT_EQ(bitmap.LockBits(&rect, ImageLockModeWrite, PixelFormat32bppARGB, &data), Ok);
  EXPECT_EQ(std::tuple(data.Width, data.Stride), std::tuple(2u, 16));
  EXPECT_EQ(bitmap.LockBits(nullptr, ImageLockModeRead, PixelFormat32bppARGB, &data), WrongState);
  auto* row = static_cast<uint8_t*>(data.Scan0);
  row[0] = 1;                    // (1, 1) blue
  row[7] = 2;                    // (2, 1) alpha
  row[data.Stride + 4 + 2] = 3;  // (2, 2) red
  ASSERT_EQ(bitmap.UnlockBits(&data), Ok);

  ASSERT_EQ(bitmap.LockBits(nullptr, ImageLockModeRead, PixelFormat32bppARGB, &data), Ok);
  const auto* all = static_cast<const uint8_t*>(data.Scan0);
  EXPECT_EQ(std::tuple(all[1 * 16 + 4], all[1 * 16 + 8 + 3], all[2 * 16 + 8 + 2], all[0]),
            std::tuple(1, 2, 3, 0));
  bitmap.UnlockBits(&data);
}

TEST(Graphics, DoublingRepeatsEachPixelAsASquare) {
  Bitmap source(2, 2, PixelFormat32bppARGB), target(4, 4, PixelFormat32bppARGB);
  const uint32_t a = 0xFF000001, b = 0xFF000002, c = 0xFF000003, d = 0xFF000004;
  for (int i = 0; i < 4; ++i) Put(source.Surface(), i % 2, i / 2, a + i);
  Graphics graphics(&target);
  ASSERT_EQ(graphics.DrawImage(&source, 0, 0, 4, 4), Ok);
  const uint32_t expected[4][4] = {{a, a, b, b}, {a, a, b, b}, {c, c, d, d}, {c, c, d, d}};
  for (int y = 0; y < 4; ++y)
    for (int x = 0; x < 4; ++x) EXPECT_EQ(At(target.Surface(), x, y), expected[y][x]) << x << "," << y;
  // Clipped at the far corner: only the top left source pixel lands.
  ASSERT_EQ(graphics.DrawImage(&source, 3, 3, 2, 2), Ok);
  EXPECT_EQ(At(target.Surface(), 3, 3), a);
  EXPECT_EQ(graphics.DrawImage(&target, 0, 0, 4, 4), InvalidParameter);
}

TEST(Graphics, SourceCopyReplacesAndSourceOverBlendsByAlpha) {
  Bitmap source(1, 1, PixelFormat32bppARGB), target(2, 1, PixelFormat32bppARGB);
  Put(source.Surface(), 0, 0, 0x80C86400);  // alpha 128, red 200, green 100, blue 0
  Put(target.Surface(), 0, 0, 0xFF0000FF);  // opaque blue
  Graphics graphics(&target);
  EXPECT_EQ(graphics.GetCompositingMode(), CompositingModeSourceOver);
  graphics.DrawImage(&source, 0, 0, 1, 1);
  graphics.DrawImage(&source, 1, 0, 1, 1);
  // Over opaque blue: red 200 * 128 / 255 = 100.4, green 50.2, blue 255 * 127 / 255.
  EXPECT_EQ(At(target.Surface(), 0, 0), 0xFF64327Fu);
  // Over a transparent pixel the source shows unchanged.
  EXPECT_EQ(At(target.Surface(), 1, 0), 0x80C86400u);
  graphics.SetCompositingMode(CompositingModeSourceCopy);
  Put(target.Surface(), 0, 0, 0xFF0000FF);
  graphics.DrawImage(&source, 0, 0, 1, 1);
  EXPECT_EQ(At(target.Surface(), 0, 0), 0x80C86400u);
}

TEST(Graphics, SubRectangleAtAPointOntoSurfacesOfEachDepth) {
  Bitmap source(4, 4, PixelFormat32bppARGB);
  for (int y = 0; y < 4; ++y)
    for (int x = 0; x < 4; ++x) Put(source.Surface(), x, y, 0xFF000000 | (10 * y + x));
  std::vector<uint8_t> bytes;
  platform::DeviceContext dc;
  dc.surface = Over(bytes, 3, 3, 32);
  Graphics graphics(&dc);
  ASSERT_EQ(graphics.DrawImage(&source, 0, 0, 1, 2, 2, 2, UnitPixel), Ok);
  // (1, 1) is source (2, 3).
  EXPECT_EQ(std::tuple(At(dc.surface, 0, 0), At(dc.surface, 1, 1)), std::tuple(0xFF000015u, 0xFF000020u));
  ASSERT_EQ(graphics.DrawImage(&source, 2, 2, 1, 2, 2, 2, UnitPixel), Ok);
  EXPECT_EQ(std::tuple(At(dc.surface, 2, 2), At(dc.surface, 2, 1)), std::tuple(0xFF000015u, 0u));
  EXPECT_EQ(graphics.DrawImage(&source, 0, 0, 0, 0, 1, 1, UnitWorld), InvalidParameter);
}

TEST(StretchBlt, DropsOrRepeatsPixelsAtEachDepth) {
  std::vector<uint8_t> from, to;
  platform::DeviceContext source, target;
  // 8 bits, 2 x 1 up to 4 x 2: each pixel twice across, each row twice down.
  source.surface = Over(from, 2, 1, 8);
  target.surface = Over(to, 4, 2, 8);
  from[0] = 7;
  from[1] = 9;
  ASSERT_TRUE(StretchBlt(&target, 0, 0, 4, 2, &source, 0, 0, 2, 1, SRCCOPY));
  EXPECT_EQ(to, (std::vector<uint8_t>{7, 7, 9, 9, 7, 7, 9, 9}));
  // 24 bits, 4 down to 2: the centres of pixels 0 and 1 fall on 1 and 3.
  source.surface = Over(from, 4, 1, 24);
  target.surface = Over(to, 2, 1, 24);
  for (int x = 0; x < 4; ++x) Put(source.surface, x, 0, 0x010203 * (x + 1));
  ASSERT_TRUE(StretchBlt(&target, 0, 0, 2, 1, &source, 0, 0, 4, 1, SRCCOPY));
  EXPECT_EQ(std::tuple(At(target.surface, 0, 0), At(target.surface, 1, 0)), std::tuple(0x020406u, 0x04080Cu));
  // 32 bits, 3 to 2 keeps 0 and 2 (floor(3/4), floor(9/4)); 2 to 3 gives 0, 1, 1.
  source.surface = Over(from, 3, 1, 32);
  target.surface = Over(to, 3, 1, 32);
  for (int x = 0; x < 3; ++x) Put(source.surface, x, 0, 0x11000000u * (x + 1));
  ASSERT_TRUE(StretchBlt(&target, 0, 0, 2, 1, &source, 0, 0, 3, 1, SRCCOPY));
  EXPECT_EQ(std::tuple(At(target.surface, 0, 0), At(target.surface, 1, 0)),
            std::tuple(0x11000000u, 0x33000000u));
  ASSERT_TRUE(StretchBlt(&target, 0, 0, 3, 1, &source, 0, 0, 2, 1, SRCCOPY));
  EXPECT_EQ(std::tuple(At(target.surface, 0, 0), At(target.surface, 1, 0), At(target.surface, 2, 0)),
            std::tuple(0x11000000u, 0x22000000u, 0x22000000u));
}

namespace {
std::string encodedName;
bool WriteSize(const char* name, const platform::PixelSurface& pixels) {
  encodedName = name;
  std::ofstream(name) << pixels.width << "x" << pixels.height;
  return true;
}
bool FailHalfWay(const char* name, const platform::PixelSurface&) {
  std::ofstream(name) << "half";
  return false;
}
}  // namespace

TEST(Bitmap, SaveWritesThroughATemporaryNameAndKeepsTheOldFileOnFailure) {
  const CLSID good{0x1234, 1, 2, {3}}, bad{0x1234, 1, 2, {4}}, unknown{0x99, 0, 0, {}};
  RegisterImageEncoder(good, WriteSize);
  RegisterImageEncoder(bad, FailHalfWay);
  TestFolder folder;
  const fs::path target = folder.path / "picture.png";
  Bitmap bitmap(3, 2, PixelFormat32bppARGB);

  ASSERT_EQ(bitmap.Save(target.wstring().c_str(), &good), Ok);
  EXPECT_EQ(folder.Read("picture.png"), "3x2");
  EXPECT_NE(encodedName, target.string());
  EXPECT_EQ(fs::path(encodedName).parent_path(), folder.path);
  EXPECT_EQ(Count(folder), 1u);

  EXPECT_EQ(bitmap.Save(target.wstring().c_str(), &bad), GenericError);
  EXPECT_EQ(bitmap.Save(target.wstring().c_str(), &unknown), UnknownImageFormat);
  EXPECT_EQ(folder.Read("picture.png"), "3x2");
  EXPECT_EQ(Count(folder), 1u);
  EXPECT_EQ(bitmap.Save((folder.path / "missing" / "x.png").wstring().c_str(), &good), Win32Error);
}

TEST(Files, CopyFileReplacesWholeFilesAndFoldersAreMadeOnce) {
  TestFolder folder;
  const fs::path from = folder.path / "a.png", to = folder.path / "b.png", sub = folder.path / "CheckPoint";
  std::ofstream(to) << "first, longer";
  std::ofstream(from) << "second";
  ASSERT_TRUE(CopyFileA(from.c_str(), to.c_str(), false));
  EXPECT_EQ(folder.Read("b.png"), "second");
  EXPECT_TRUE(CreateDirectoryA(sub.c_str(), nullptr));
  EXPECT_FALSE(CreateDirectoryA(sub.c_str(), nullptr));
}

TEST(TextConversion, Utf8ConvertsExactlyOrNotAtAll) {
  const char* text = "a\xC3\xA9\xF0\x9F\x98\x80";  // a, e acute, U+1F600
  ASSERT_EQ(MultiByteToWideChar(CP_ACP, 0, text, -1, nullptr, 0), 4);
  wchar_t wide[4];
  EXPECT_EQ(MultiByteToWideChar(CP_ACP, 0, text, -1, wide, 3), 0);
  ASSERT_EQ(MultiByteToWideChar(CP_ACP, 0, text, -1, wide, 4), 4);
  EXPECT_EQ(std::wstring(wide), (std::wstring{L'a', wchar_t(0xE9), wchar_t(0x1F600)}));
  char back[8];
  ASSERT_EQ(WideCharToMultiByte(CP_UTF8, 0, wide, -1, back, 8, nullptr, nullptr), 8);
  EXPECT_STREQ(back, text);
  // Overlong, a surrogate, beyond U+10FFFF, cut short.
  for (const char* bad : {"\xC0\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xE2\x82"})
    EXPECT_EQ(MultiByteToWideChar(CP_ACP, 0, bad, -1, nullptr, 0), 0) << bad;
  EXPECT_EQ(MultiByteToWideChar(1252, 0, "a", -1, nullptr, 0), 0);
  const wchar_t surrogate[] = {wchar_t(0xD800), 0};
  EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, surrogate, -1, nullptr, 0, nullptr, nullptr), 0);
}
