#include <cstdint>
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>
#include <tuple>
#include <vector>

#include "host/BrindlexTexture.h"
#include "platform/GdiPlus.h"

#include "TestFolder.h"

namespace {

using Bytes = std::vector<uint8_t>;

class PictureFiles : public testing::Test {
 protected:
  std::string Path(const std::string& name) const { return (folder.path / name).string(); }
  Bytes Read(const std::string& name) const {
    const std::string bytes = folder.Read(name);
    return Bytes(bytes.begin(), bytes.end());
  }
  void Write(const std::string& name, const Bytes& bytes, size_t length) const {
    folder.Write(name, std::string(bytes.begin(), bytes.begin() + length));
  }

  TestFolder folder;
};

// Every byte differs from its neighbours, and alpha takes 0 and 255 too.
ATL::CImage Pattern(int width, int height, int bitsPerPixel) {
  ATL::CImage image;
  EXPECT_NE(image.Create(width, height, bitsPerPixel), 0);
  const platform::PixelSurface s = image.Surface();
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width * bitsPerPixel / 8; ++x)
      s.Row(y)[x] = static_cast<uint8_t>(x * 37 + y * 91 + x * y);
  return image;
}

// A gradient, which JPEG keeps within a few levels.
ATL::CImage Gradient(int width, int height, int bitsPerPixel) {
  ATL::CImage image;
  EXPECT_NE(image.Create(width, height, bitsPerPixel), 0);
  const int channels = bitsPerPixel / 8;
  const platform::PixelSurface s = image.Surface();
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x)
      for (int c = 0; c < channels; ++c)
        s.Row(y)[x * channels + c] = static_cast<uint8_t>(x * 3 + y * 2 + c * 20);
  return image;
}

// Largest difference of any byte; -1 when the sizes or depths differ.
int LargestDifference(const ATL::CImage& a, const ATL::CImage& b) {
  const platform::PixelSurface s = a.Surface(), t = b.Surface();
  if (s.width != t.width || s.height != t.height || s.bitsPerPixel != t.bitsPerPixel) return -1;
  int largest = 0;
  for (int y = 0; y < s.height; ++y)
    for (int x = 0; x < s.width * s.bitsPerPixel / 8; ++x)
      largest = std::max(largest, std::abs(s.Row(y)[x] - t.Row(y)[x]));
  return largest;
}

void PutU32LE(Bytes& b, size_t at, uint32_t v) {
  for (int i = 0; i < 4; ++i) b[at + i] = static_cast<uint8_t>(v >> (8 * i));
}

uint32_t Crc32(const uint8_t* data, size_t length) {
  uint32_t crc = 0xFFFFFFFF;
  for (size_t i = 0; i < length; ++i) {
    crc ^= data[i];
    for (int k = 0; k < 8; ++k) crc = (crc >> 1) ^ (0xEDB88320 & (0 - (crc & 1)));
  }
  return ~crc;
}

TEST(CImage, RowsArePaddedAndStoredBottomUpUnlessTheHeightIsNegative) {
  ATL::CImage image, topDown;
  EXPECT_EQ(image.Create(3, 2, 16), 0);
  EXPECT_EQ(image.Create(0, 2, 24), 0);
  ASSERT_NE(image.Create(3, 2, 24), 0);
  // 9 bytes padded to 12; bottom-up storage, so the next shown row is lower.
  EXPECT_EQ(std::tuple(image.GetPitch(), image.GetBPP()), std::tuple(-12, 24));
  ASSERT_NE(topDown.Create(5, -3, 8), 0);
  EXPECT_EQ(std::tuple(topDown.GetHeight(), topDown.GetPitch()), std::tuple(3, 8));
}

TEST_F(PictureFiles, LosslessFormatsRoundTripExactlyAndAreKnownByTheirContent) {
  for (PictureFileFormat format : {PictureFileFormat::Bmp, PictureFileFormat::Png, PictureFileFormat::Tiff}) {
    for (int depth : {8, 24, 32}) {
      SCOPED_TRACE(testing::Message() << "format " << int(format) << ", depth " << depth);
      const ATL::CImage original = Pattern(37, 23, depth);
      // A name that says JPEG: the content decides.
      ASSERT_TRUE(SavePictureFile(Path("p.jpg").c_str(), original.Surface(), format));
      ATL::CImage loaded;
      ASSERT_TRUE(LoadCImageTextureFromFile(Path("p.jpg").c_str(), loaded));
      EXPECT_EQ(LargestDifference(original, loaded), 0);
    }
  }
  // A name whose file is missing finds the picture under another extension.
  ATL::CImage found;
  EXPECT_TRUE(LoadCImageTextureFromFile(Path("p.png").c_str(), found));
  EXPECT_EQ(LargestDifference(Pattern(37, 23, 32), found), 0);
}

TEST_F(PictureFiles, JpegIsCloseAndDropsAlpha) {
  for (int depth : {8, 24, 32}) {
    const ATL::CImage original = Gradient(40, 30, depth);
    ASSERT_TRUE(SavePictureFile(Path("g.jpg").c_str(), original.Surface(), PictureFileFormat::Jpeg));
    ATL::CImage loaded;
    ASSERT_TRUE(LoadCImageTextureFromFile(Path("g.jpg").c_str(), loaded));
    EXPECT_EQ(loaded.GetBPP(), depth == 8 ? 8 : 24);
    ATL::CImage expected = Gradient(40, 30, depth == 8 ? 8 : 24);
    const int difference = LargestDifference(expected, loaded);
    EXPECT_GE(difference, 0);
    EXPECT_LE(difference, 6);
  }
}

TEST_F(PictureFiles, BrokenFilesFailAndLeaveTheImage) {
  ATL::CImage image;
  ASSERT_NE(image.Create(5, 5, 8), 0);
  const std::string names[] = {"b.bmp", "j.jpg", "p.png", "t.tif"};
  for (int format = 0; format < 4; ++format) {
    ASSERT_TRUE(SavePictureFile(Path(names[format]).c_str(), Gradient(40, 30, 24).Surface(),
                                PictureFileFormat(format)));
    const Bytes whole = Read(names[format]);
    for (size_t length : {size_t{1}, size_t{3}, size_t{8}, size_t{20}, whole.size() / 2, whole.size() - 1}) {
      Write("cut", whole, length);
      EXPECT_FALSE(LoadCImageTextureFromFile(Path("cut").c_str(), image))
          << names[format] << " at " << length;
    }
  }
  Write("empty", {}, 0);
  Write("gif", {'G', 'I', 'F', '8', '9', 'a', 1, 0, 1, 0, 0, 0, 0}, 13);
  for (const char* name : {"empty", "gif", "missing.png"})
    EXPECT_FALSE(LoadCImageTextureFromFile(Path(name).c_str(), image)) << name;
  EXPECT_FALSE(LoadCImageTextureFromFile(nullptr, image));
  EXPECT_EQ(std::tuple(image.GetWidth(), image.GetBPP()), std::tuple(5, 8));
}

TEST_F(PictureFiles, HugeDeclaredSizesAreRefused) {
  const ATL::CImage small = Gradient(16, 16, 24);
  ATL::CImage image;
  // BMP: width and height at 18 and 22.
  ASSERT_TRUE(SavePictureFile(Path("b").c_str(), small.Surface(), PictureFileFormat::Bmp));
  Bytes bmp = Read("b");
  PutU32LE(bmp, 18, 100000), PutU32LE(bmp, 22, 100000);
  // PNG: the IHDR sizes, big-endian at 16 and 20, with the chunk's CRC redone.
  ASSERT_TRUE(SavePictureFile(Path("p").c_str(), small.Surface(), PictureFileFormat::Png));
  Bytes png = Read("p");
  for (size_t at : {16, 20}) png[at] = 0, png[at + 1] = 0x01, png[at + 2] = 0x86, png[at + 3] = 0xA0;
  const uint32_t crc = Crc32(&png[12], 17);
  for (int i = 0; i < 4; ++i) png[29 + i] = static_cast<uint8_t>(crc >> (24 - 8 * i));
  // JPEG: 16-bit sizes in the frame header; 65000 is the largest round one.
  ASSERT_TRUE(SavePictureFile(Path("j").c_str(), small.Surface(), PictureFileFormat::Jpeg));
  Bytes jpg = Read("j");
  size_t frame = 2;
  while (frame + 9 < jpg.size() && !(jpg[frame] == 0xFF && jpg[frame + 1] == 0xC0)) ++frame;
  ASSERT_LT(frame + 9, jpg.size());
  jpg[frame + 5] = jpg[frame + 7] = 0xFD, jpg[frame + 6] = jpg[frame + 8] = 0xE8;
  // TIFF: the width and length entries of the first directory become LONGs.
  ASSERT_TRUE(SavePictureFile(Path("t").c_str(), small.Surface(), PictureFileFormat::Tiff));
  Bytes tif = Read("t");
  const uint32_t directory = tif[4] | tif[5] << 8 | tif[6] << 16 | tif[7] << 24;
  for (int entry = 0; entry < (tif[directory] | tif[directory + 1] << 8); ++entry) {
    const size_t at = directory + 2 + entry * 12;
    const int tag = tif[at] | tif[at + 1] << 8;
    if (tag == 256 || tag == 257) tif[at + 2] = 4, tif[at + 3] = 0, PutU32LE(tif, at + 8, 100000);
  }
  for (const Bytes* file : {&bmp, &png, &jpg, &tif}) {
    Write("huge", *file, file->size());
    EXPECT_FALSE(LoadCImageTextureFromFile(Path("huge").c_str(), image)) << file - &bmp;
  }
}

// Gdiplus's encoders are the four codecs, found by type.
TEST_F(PictureFiles, GdiplusSavesThroughTheRegisteredEncoders) {
  const wchar_t* types[] = {L"image/bmp", L"image/jpeg", L"image/png", L"IMAGE/TIFF"};
  GUID ids[4], untouched{7, 7, 7, {7}};
  for (int i = 0; i < 4; ++i) EXPECT_EQ(GetEncoderClsid(types[i], &ids[i]), i);
  EXPECT_EQ(GetEncoderClsid(L"image/gif", &untouched), -1);
  EXPECT_EQ(untouched.Data1, 7u);

  const ATL::CImage original = Pattern(6, 4, 32);
  for (int i : {2, 3}) {
    Gdiplus::Bitmap bitmap(6, 4, Gdiplus::PixelFormat32bppARGB);
    const platform::PixelSurface target = bitmap.Surface(), source = original.Surface();
    for (int y = 0; y < 4; ++y) std::copy_n(source.Row(y), 24, target.Row(y));
    ASSERT_EQ(bitmap.Save((folder.path / "saved").wstring().c_str(), &ids[i]), Gdiplus::Ok);
    ATL::CImage loaded;
    ASSERT_TRUE(LoadCImageTextureFromFile(Path("saved").c_str(), loaded));
    EXPECT_EQ(LargestDifference(original, loaded), 0);
  }
}

}  // namespace
