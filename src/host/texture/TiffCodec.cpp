// TIFF through libtiff, over files held in memory. libtiff reports errors
// by return values; its messages go to per-file handlers that only note
// them.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <tiffio.h>

#include "host/texture/PictureCodecs.h"

namespace picture {

namespace {

// A file in memory: read from `view`, or written into `written`.
struct MemoryFile {
  Bytes view;
  std::vector<uint8_t>* written = nullptr;
  uint64_t position = 0;
  bool error = false;

  Bytes Contents() const { return written ? Bytes(*written) : view; }
};

MemoryFile& FileOf(thandle_t handle) {
  return *static_cast<MemoryFile*>(handle);
}

tmsize_t ReadFile(thandle_t handle, void* out, tmsize_t count) {
  MemoryFile& file = FileOf(handle);
  const Bytes contents = file.Contents();
  if (count < 0 || file.position >= contents.size()) return 0;
  const uint64_t available = contents.size() - file.position;
  const size_t copied = static_cast<size_t>(std::min<uint64_t>(available, static_cast<uint64_t>(count)));
  std::memcpy(out, contents.data() + file.position, copied);
  file.position += copied;
  return static_cast<tmsize_t>(copied);
}

tmsize_t WriteFile(thandle_t handle, void* data, tmsize_t count) {
  MemoryFile& file = FileOf(handle);
  if (!file.written || count < 0) return -1;
  const uint64_t end = file.position + static_cast<uint64_t>(count);
  if (end > MaxFileBytes) return -1;
  try {
    if (end > file.written->size()) file.written->resize(static_cast<size_t>(end));
  } catch (...) {
    return -1;
  }
  std::memcpy(file.written->data() + file.position, data, static_cast<size_t>(count));
  file.position = end;
  return count;
}

toff_t SeekFile(thandle_t handle, toff_t offset, int whence) {
  MemoryFile& file = FileOf(handle);
  uint64_t base = 0;
  if (whence == SEEK_CUR) base = file.position;
  if (whence == SEEK_END) base = file.Contents().size();
  // Unsigned arithmetic makes a negative offset step back; one before the
  // start wraps to a huge position and is refused like one past the limit.
  const uint64_t target = base + offset;
  if (target > MaxFileBytes) return static_cast<toff_t>(-1);
  file.position = target;
  return target;
}

int CloseFile(thandle_t) {
  return 0;
}
toff_t SizeOfFile(thandle_t handle) {
  return FileOf(handle).Contents().size();
}

// A file being read is mapped, so libtiff reads strips in place.
int MapFile(thandle_t handle, void** base, toff_t* size) {
  MemoryFile& file = FileOf(handle);
  if (file.written) return 0;
  *base = const_cast<uint8_t*>(file.view.data());
  *size = file.view.size();
  return 1;
}

void UnmapFile(thandle_t, void*, toff_t) {}

int NoteError(TIFF*, void* file, const char*, const char*, va_list) {
  static_cast<MemoryFile*>(file)->error = true;
  return 1;
}

int IgnoreWarning(TIFF*, void*, const char*, const char*, va_list) {
  return 1;
}

using TiffHandle = std::unique_ptr<TIFF, decltype(&TIFFClose)>;

TiffHandle Open(MemoryFile& file, const char* mode) {
  // Messages that libtiff gives before it has a file would still reach its
  // process-wide handlers, which print; this library is libtiff's only user.
  static std::once_flag silenced;
  std::call_once(silenced, [] {
    TIFFSetErrorHandler(nullptr);
    TIFFSetWarningHandler(nullptr);
  });
  std::unique_ptr<TIFFOpenOptions, decltype(&TIFFOpenOptionsFree)> options(TIFFOpenOptionsAlloc(),
                                                                           TIFFOpenOptionsFree);
  if (!options) return TiffHandle(nullptr, TIFFClose);
  TIFFOpenOptionsSetMaxSingleMemAlloc(options.get(), static_cast<tmsize_t>(MaxDecodedBytes));
  TIFFOpenOptionsSetErrorHandlerExtR(options.get(), NoteError, &file);
  TIFFOpenOptionsSetWarningHandlerExtR(options.get(), IgnoreWarning, nullptr);
  return TiffHandle(TIFFClientOpenExt("picture", mode, &file, ReadFile, WriteFile, SeekFile, CloseFile,
                                      SizeOfFile, MapFile, UnmapFile, options.get()),
                    TIFFClose);
}

struct TiffLayout {
  uint32_t width = 0, height = 0;
  uint16_t samples = 1, bits = 1, planar = PLANARCONFIG_CONTIG, photometric = PHOTOMETRIC_MINISBLACK;
  bool grey = false, alpha = false;
};

bool ReadLayout(TIFF* tiff, TiffLayout& layout) {
  if (!TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &layout.width) ||
      !TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &layout.height))
    return false;
  TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLESPERPIXEL, &layout.samples);
  TIFFGetFieldDefaulted(tiff, TIFFTAG_BITSPERSAMPLE, &layout.bits);
  TIFFGetFieldDefaulted(tiff, TIFFTAG_PLANARCONFIG, &layout.planar);
  if (!TIFFGetField(tiff, TIFFTAG_PHOTOMETRIC, &layout.photometric)) return false;
  layout.grey = layout.photometric == PHOTOMETRIC_MINISBLACK || layout.photometric == PHOTOMETRIC_MINISWHITE;
  // The first sample beyond the colour ones is taken as alpha, whatever
  // kind the file declares it to be: writers are careless with that tag.
  const int colourSamples = layout.grey || layout.photometric == PHOTOMETRIC_PALETTE ? 1 : 3;
  layout.alpha = layout.samples > colourSamples;
  return SizeAllowed(layout.width, layout.height, 4);
}

PixelOrder OrderOf(const TiffLayout& layout) {
  if (layout.grey) return layout.alpha ? PixelOrder::GreyAlpha : PixelOrder::Grey;
  return layout.alpha ? PixelOrder::Rgba : PixelOrder::Rgb;
}

// Whether the strips hold plain 8-bit grey or RGB pixels, with at most an
// alpha sample more, which are read as they stand.
bool IsPlain(TIFF* tiff, const TiffLayout& layout) {
  const bool plainColour =
      layout.photometric == PHOTOMETRIC_MINISBLACK || layout.photometric == PHOTOMETRIC_RGB;
  return plainColour && layout.bits == 8 && layout.planar == PLANARCONFIG_CONTIG && !TIFFIsTiled(tiff) &&
         layout.samples == ChannelCount(OrderOf(layout));
}

bool ReadPlain(TIFF* tiff, const TiffLayout& layout, ATL::CImage& image) {
  const PixelOrder order = OrderOf(layout);
  const uint64_t rowBytes = uint64_t{layout.width} * layout.samples;
  if (TIFFScanlineSize64(tiff) != rowBytes) return false;
  std::vector<uint8_t> row;
  try {
    row.resize(rowBytes);
  } catch (...) {
    return false;
  }
  if (!CreateDecodedImage(image, layout.width, layout.height, order)) return false;
  for (uint32_t y = 0; y < layout.height; ++y) {
    if (TIFFReadScanline(tiff, row.data(), y, 0) < 0) return false;
    StoreRow(image, static_cast<int>(y), row.data(), order);
  }
  return true;
}

// Every other layout (palettes, YCbCr, 16 bits, tiles, planes, CMYK) goes
// through libtiff's RGBA reader. That reader gives colour premultiplied by
// an unassociated alpha, which such files therefore lose.
bool ReadThroughRgba(TIFF* tiff, const TiffLayout& layout, ATL::CImage& image) {
  std::vector<uint32_t> raster;
  std::vector<uint8_t> row;
  try {
    raster.resize(size_t{layout.width} * layout.height);
    row.resize(size_t{layout.width} * 4);
  } catch (...) {
    return false;
  }
  if (!TIFFReadRGBAImageOriented(tiff, layout.width, layout.height, raster.data(), ORIENTATION_TOPLEFT, 1))
    return false;
  if (!CreateDecodedImage(image, layout.width, layout.height, OrderOf(layout))) return false;
  for (uint32_t y = 0; y < layout.height; ++y) {
    const uint32_t* source = raster.data() + size_t{y} * layout.width;
    for (uint32_t x = 0; x < layout.width; ++x) {
      uint8_t* pixel = row.data() + size_t{x} * 4;
      pixel[0] = TIFFGetR(source[x]), pixel[1] = TIFFGetG(source[x]);
      pixel[2] = TIFFGetB(source[x]), pixel[3] = TIFFGetA(source[x]);
    }
    StoreRow(image, static_cast<int>(y), row.data(), PixelOrder::Rgba);
  }
  return true;
}

bool WritePixels(TIFF* tiff, const platform::PixelSurface& pixels, PixelOrder order) {
  const int samples = ChannelCount(order);
  const bool ok =
      TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, uint32_t(pixels.width)) &&
      TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, uint32_t(pixels.height)) &&
      TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 8) && TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, samples) &&
      TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, samples == 1 ? PHOTOMETRIC_MINISBLACK : PHOTOMETRIC_RGB) &&
      TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) &&
      TIFFSetField(tiff, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT) &&
      TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_LZW) &&
      TIFFSetField(tiff, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL) &&
      TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(tiff, 0));
  if (!ok) return false;
  const uint16_t alphaKind = EXTRASAMPLE_UNASSALPHA;
  if (order == PixelOrder::Rgba && !TIFFSetField(tiff, TIFFTAG_EXTRASAMPLES, 1, &alphaKind)) return false;
  std::vector<uint8_t> row;
  try {
    row.resize(size_t(pixels.width) * samples);
  } catch (...) {
    return false;
  }
  for (int y = 0; y < pixels.height; ++y) {
    ConvertRow(pixels.Row(y), ImageOrder(pixels.bitsPerPixel), row.data(), order, pixels.width);
    if (TIFFWriteScanline(tiff, row.data(), uint32_t(y), 0) < 0) return false;
  }
  return TIFFFlush(tiff) != 0;
}

}  // namespace

bool DecodeTiff(Bytes file, ATL::CImage& image) {
  MemoryFile memory{file};
  TiffHandle tiff = Open(memory, "r");
  TiffLayout layout;
  if (!tiff || !ReadLayout(tiff.get(), layout)) return false;
  ATL::CImage decoded;
  const bool read = IsPlain(tiff.get(), layout) ? ReadPlain(tiff.get(), layout, decoded)
                                                : ReadThroughRgba(tiff.get(), layout, decoded);
  if (!read || memory.error) return false;
  image = std::move(decoded);
  return true;
}

bool EncodeTiff(const platform::PixelSurface& pixels, std::vector<uint8_t>& file) {
  if (!Encodable(pixels)) return false;
  file.clear();
  MemoryFile memory{{}, &file};
  TiffHandle tiff = Open(memory, "w");
  if (!tiff || !WritePixels(tiff.get(), pixels, FileOrder(pixels.bitsPerPixel, true))) return false;
  tiff.reset();
  return !memory.error;
}

}  // namespace picture
