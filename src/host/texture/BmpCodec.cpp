// Windows bitmaps: uncompressed 8, 24 and 32 bits per pixel, rows bottom up
// or top down. Other depths and the run-length encodings are not read.
#include <algorithm>
#include <array>

#include "host/texture/PictureCodecs.h"

namespace picture {

namespace {

constexpr size_t FileHeaderBytes = 14;
constexpr uint32_t InfoHeaderBytes = 40;
constexpr uint32_t V4HeaderBytes = 108;
constexpr uint32_t Rgb = 0, kBitFields = 3;
constexpr uint32_t RedMask = 0x00FF0000, kGreenMask = 0x0000FF00, kBlueMask = 0x000000FF,
                   kAlphaMask = 0xFF000000;
// 72 dots per inch, the customary default of picture files.
constexpr uint32_t PixelsPerMeter = 2835;

uint32_t U32(Bytes file, size_t at) {
  return file[at] | file[at + 1] << 8 | file[at + 2] << 16 | uint32_t{file[at + 3]} << 24;
}
uint16_t U16(Bytes file, size_t at) {
  return static_cast<uint16_t>(file[at] | file[at + 1] << 8);
}

struct BmpLayout {
  int64_t width = 0, rows = 0;
  bool topDown = false;
  int bits = 0;
  bool alphaMask = false;
  size_t pixelsAt = 0, stride = 0;
  std::array<uint8_t, 256 * 3> palette{};  // blue, green, red per entry
  bool greyPalette = true;
};

// Bit-field masks, where present, must be the plain byte layout of blue,
// green, red and, optionally, alpha: that is what every writer uses.
bool ReadMasks(Bytes file, uint32_t headerBytes, BmpLayout& layout) {
  const size_t at = FileHeaderBytes + InfoHeaderBytes;
  const size_t maskBytes = headerBytes >= 56 ? 16 : 12;
  if (at + maskBytes > file.size()) return false;
  if (U32(file, at) != RedMask || U32(file, at + 4) != kGreenMask || U32(file, at + 8) != kBlueMask)
    return false;
  const uint32_t alpha = maskBytes == 16 ? U32(file, at + 12) : 0;
  layout.alphaMask = alpha == kAlphaMask;
  return alpha == 0 || layout.alphaMask;
}

bool ReadPalette(Bytes file, uint32_t headerBytes, uint32_t colorsUsed, BmpLayout& layout) {
  const size_t entries = colorsUsed == 0 ? 256 : colorsUsed;
  const size_t at = FileHeaderBytes + headerBytes;
  if (entries > 256 || at + entries * 4 > file.size()) return false;
  // Indices past the palette read as black, as they show on Windows.
  for (size_t i = 0; i < entries; ++i) {
    std::copy_n(file.begin() + at + i * 4, 3, layout.palette.begin() + i * 3);
    const uint8_t* entry = &layout.palette[i * 3];
    layout.greyPalette = layout.greyPalette && entry[0] == entry[1] && entry[1] == entry[2];
  }
  return true;
}

bool ReadLayout(Bytes file, BmpLayout& layout) {
  if (file.size() < FileHeaderBytes + InfoHeaderBytes || file[0] != 'B' || file[1] != 'M') return false;
  const uint32_t headerBytes = U32(file, 14);
  if (headerBytes < InfoHeaderBytes || FileHeaderBytes + headerBytes > file.size()) return false;
  const int32_t width = static_cast<int32_t>(U32(file, 18)), height = static_cast<int32_t>(U32(file, 22));
  layout.width = width;
  layout.topDown = height < 0;
  layout.rows = layout.topDown ? -int64_t{height} : height;
  layout.bits = U16(file, 28);
  const uint32_t compression = U32(file, 30);
  if (U16(file, 26) != 1 || !SizeAllowed(layout.width, layout.rows, 4)) return false;
  if (layout.bits == 8 && compression == Rgb) {
    if (!ReadPalette(file, headerBytes, U32(file, 46), layout)) return false;
  } else if (layout.bits == 32 && compression == kBitFields) {
    if (!ReadMasks(file, headerBytes, layout)) return false;
  } else if (!(layout.bits == 24 || layout.bits == 32) || compression != Rgb) {
    return false;
  }
  layout.pixelsAt = U32(file, 10);
  layout.stride = static_cast<size_t>((layout.width * layout.bits + 31) / 32 * 4);
  const uint64_t pixelBytes = uint64_t{layout.stride} * static_cast<uint64_t>(layout.rows);
  return layout.pixelsAt <= file.size() && pixelBytes <= file.size() - layout.pixelsAt;
}

// A 32-bit file without an alpha mask may still use its fourth byte as
// alpha; a picture in which all of those bytes are 0 has none.
bool HasAlphaBytes(Bytes file, const BmpLayout& layout) {
  for (int64_t r = 0; r < layout.rows; ++r) {
    const uint8_t* row = file.data() + layout.pixelsAt + r * layout.stride;
    for (int64_t x = 0; x < layout.width; ++x)
      if (row[x * 4 + 3] != 0) return true;
  }
  return false;
}

PixelOrder DecodedOrder(Bytes file, const BmpLayout& layout) {
  if (layout.bits == 8) return layout.greyPalette ? PixelOrder::Grey : PixelOrder::Bgr;
  if (layout.bits == 24) return PixelOrder::Bgr;
  return layout.alphaMask || HasAlphaBytes(file, layout) ? PixelOrder::Bgra : PixelOrder::Bgr;
}

void PutU16(std::vector<uint8_t>& out, uint32_t value) {
  out.push_back(static_cast<uint8_t>(value));
  out.push_back(static_cast<uint8_t>(value >> 8));
}
void PutU32(std::vector<uint8_t>& out, uint32_t value) {
  PutU16(out, value & 0xFFFF);
  PutU16(out, value >> 16);
}

// Headers of a bottom-up file. 32 bits carry a version-4 header whose masks
// declare the fourth byte alpha; the other depths the plain one.
void PutHeaders(std::vector<uint8_t>& out, const platform::PixelSurface& pixels, uint32_t stride) {
  const bool alpha = pixels.bitsPerPixel == 32;
  const uint32_t headerBytes = alpha ? V4HeaderBytes : InfoHeaderBytes;
  const uint32_t paletteBytes = pixels.bitsPerPixel == 8 ? 256 * 4 : 0;
  const uint32_t pixelsAt = static_cast<uint32_t>(FileHeaderBytes) + headerBytes + paletteBytes;
  const uint32_t imageBytes = stride * static_cast<uint32_t>(pixels.height);
  out.push_back('B'), out.push_back('M');
  PutU32(out, pixelsAt + imageBytes);
  PutU32(out, 0);
  PutU32(out, pixelsAt);
  for (uint32_t value : {headerBytes, uint32_t(pixels.width), uint32_t(pixels.height)}) PutU32(out, value);
  PutU16(out, 1);
  PutU16(out, static_cast<uint32_t>(pixels.bitsPerPixel));
  for (uint32_t value : {alpha ? kBitFields : Rgb, imageBytes, PixelsPerMeter, PixelsPerMeter, 0u, 0u})
    PutU32(out, value);
  if (alpha) {
    for (uint32_t mask : {RedMask, kGreenMask, kBlueMask, kAlphaMask}) PutU32(out, mask);
    PutU32(out, 0x73524742);                      // colour space 'sRGB'
    out.resize(out.size() + V4HeaderBytes - 60);  // end points and gamma: unused with sRGB
  }
  for (uint32_t i = 0; i < paletteBytes / 4; ++i) PutU32(out, i * 0x010101);
}

}  // namespace

bool DecodeBmp(Bytes file, ATL::CImage& image) {
  BmpLayout layout;
  if (!ReadLayout(file, layout)) return false;
  const PixelOrder order = DecodedOrder(file, layout);
  std::vector<uint8_t> expanded;
  ATL::CImage decoded;
  try {
    if (layout.bits == 8) expanded.resize(static_cast<size_t>(layout.width) * 3);
  } catch (...) {
    return false;
  }
  const int width = static_cast<int>(layout.width), rows = static_cast<int>(layout.rows);
  if (!CreateDecodedImage(decoded, width, rows, order)) return false;
  for (int r = 0; r < rows; ++r) {
    const uint8_t* row = file.data() + layout.pixelsAt + static_cast<size_t>(r) * layout.stride;
    const int y = layout.topDown ? r : rows - 1 - r;
    if (layout.bits != 8) {
      StoreRow(decoded, y, row, layout.bits == 32 ? PixelOrder::Bgra : PixelOrder::Bgr);
      continue;
    }
    for (int x = 0; x < width; ++x) std::copy_n(&layout.palette[row[x] * 3], 3, &expanded[x * 3]);
    StoreRow(decoded, y, expanded.data(), PixelOrder::Bgr);
  }
  image = std::move(decoded);
  return true;
}

bool EncodeBmp(const platform::PixelSurface& pixels, std::vector<uint8_t>& file) {
  if (!Encodable(pixels)) return false;
  const PixelOrder order = ImageOrder(pixels.bitsPerPixel);
  const size_t rowBytes = static_cast<size_t>(pixels.width) * (pixels.bitsPerPixel / 8);
  const uint32_t stride = static_cast<uint32_t>((rowBytes + 3) / 4 * 4);
  try {
    file.clear();
    PutHeaders(file, pixels, stride);
    const size_t pixelsAt = file.size();
    file.resize(pixelsAt + size_t{stride} * pixels.height);
    for (int y = 0; y < pixels.height; ++y)
      ConvertRow(pixels.Row(y), order, &file[pixelsAt + size_t(pixels.height - 1 - y) * stride], order,
                 pixels.width);
  } catch (...) {
    return false;
  }
  return true;
}

}  // namespace picture
