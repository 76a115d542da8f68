// PNG through libpng. libpng reports errors by longjmp, so every call into
// it happens in a method that set the jump point itself, and only libpng's
// own frames and the error callback lie between it and the jump.
#include <csetjmp>
#include <cstring>
#include <utility>
#include <png.h>

#include "host/texture/PictureCodecs.h"

namespace picture {

namespace {

[[noreturn]] void JumpOnError(png_structp png, png_const_charp) {
  std::longjmp(*static_cast<std::jmp_buf*>(png_get_error_ptr(png)), 1);
}

void IgnoreWarning(png_structp, png_const_charp) {}

struct ByteReader {
  Bytes file;
  size_t position = 0;
};

void ReadBytes(png_structp png, png_bytep out, png_size_t count) {
  auto* reader = static_cast<ByteReader*>(png_get_io_ptr(png));
  if (count > reader->file.size() - reader->position) png_error(png, "truncated");
  std::memcpy(out, reader->file.data() + reader->position, count);
  reader->position += count;
}

void WriteBytes(png_structp png, png_bytep data, png_size_t count) {
  auto* file = static_cast<std::vector<uint8_t>*>(png_get_io_ptr(png));
  // The vector may throw, which must not cross libpng's C frames; nor may
  // the jump leave from inside the handler.
  bool grown = true;
  try {
    file->insert(file->end(), data, data + count);
  } catch (...) {
    grown = false;
  }
  if (!grown) png_error(png, "out of memory");
}

void FlushNothing(png_structp) {}

class PngDecoder {
 public:
  explicit PngDecoder(Bytes file) : reader{file} {
    png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &jump, JumpOnError, IgnoreWarning);
    if (png) info = png_create_info_struct(png);
  }
  ~PngDecoder() { png_destroy_read_struct(&png, &info, nullptr); }

  bool Decode(ATL::CImage& image) {
    if (!info || !ReadHeader()) return false;
    std::vector<png_bytep> rows;
    try {
      pixels.resize(rowBytes * height);
      rows.resize(height);
    } catch (...) {
      return false;
    }
    for (size_t y = 0; y < height; ++y) rows[y] = pixels.data() + y * rowBytes;
    if (!ReadPixels(rows.data())) return false;
    const PixelOrder order = OrderOf(channels);
    ATL::CImage decoded;
    if (!CreateDecodedImage(decoded, static_cast<int>(width), static_cast<int>(height), order)) return false;
    for (size_t y = 0; y < height; ++y) StoreRow(decoded, static_cast<int>(y), rows[y], order);
    image = std::move(decoded);
    return true;
  }

 private:
  static PixelOrder OrderOf(int channelCount) {
    static constexpr PixelOrder orders[] = {PixelOrder::Grey, PixelOrder::GreyAlpha, PixelOrder::Rgb,
                                            PixelOrder::Rgba};
    return orders[channelCount - 1];
  }

  bool ReadHeader() {
    if (setjmp(jump)) return false;
    png_set_read_fn(png, &reader, ReadBytes);
    png_set_user_limits(png, MaxSide, MaxSide);
    // Text and profile chunks are of no use here; a small cap keeps a file
    // from making libpng inflate a huge one.
    png_set_chunk_malloc_max(png, 8u << 20);
    png_read_info(png, info);
    // Everything becomes 8 bits a channel: palettes to colour, transparent
    // colour keys to alpha, 16 bits cut to their high byte.
    png_set_expand(png);
    png_set_strip_16(png);
    png_set_interlace_handling(png);
    png_read_update_info(png, info);
    width = png_get_image_width(png, info);
    height = png_get_image_height(png, info);
    channels = png_get_channels(png, info);
    rowBytes = png_get_rowbytes(png, info);
    return channels >= 1 && channels <= 4 && rowBytes == width * channels && SizeAllowed(width, height, 4);
  }

  bool ReadPixels(png_bytepp rows) {
    if (setjmp(jump)) return false;
    png_read_image(png, rows);
    // Reading on to the end checks the rest of the file, so a cut file fails.
    png_read_end(png, nullptr);
    return true;
  }

  ByteReader reader;
  std::jmp_buf jump;
  png_structp png = nullptr;
  png_infop info = nullptr;
  size_t width = 0, height = 0, rowBytes = 0;
  int channels = 0;
  std::vector<uint8_t> pixels;
};

class PngEncoder {
 public:
  explicit PngEncoder(std::vector<uint8_t>& file) : file(file) {
    png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &jump, JumpOnError, IgnoreWarning);
    if (png) info = png_create_info_struct(png);
  }
  ~PngEncoder() { png_destroy_write_struct(&png, &info); }

  bool Encode(const platform::PixelSurface& pixels) {
    if (!info) return false;
    const PixelOrder order = FileOrder(pixels.bitsPerPixel, true);
    std::vector<uint8_t> row;
    try {
      row.resize(static_cast<size_t>(pixels.width) * ChannelCount(order));
    } catch (...) {
      return false;
    }
    return Write(pixels, order, row.data());
  }

 private:
  static int ColorTypeOf(PixelOrder order) {
    if (order == PixelOrder::Grey) return PNG_COLOR_TYPE_GRAY;
    return order == PixelOrder::Rgba ? PNG_COLOR_TYPE_RGB_ALPHA : PNG_COLOR_TYPE_RGB;
  }

  bool Write(const platform::PixelSurface& pixels, PixelOrder order, png_bytep row) {
    if (setjmp(jump)) return false;
    png_set_write_fn(png, &file, WriteBytes, FlushNothing);
    png_set_IHDR(png, info, pixels.width, pixels.height, 8, ColorTypeOf(order), PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    for (int y = 0; y < pixels.height; ++y) {
      ConvertRow(pixels.Row(y), ImageOrder(pixels.bitsPerPixel), row, order, pixels.width);
      png_write_row(png, row);
    }
    png_write_end(png, nullptr);
    return true;
  }

  std::vector<uint8_t>& file;
  std::jmp_buf jump;
  png_structp png = nullptr;
  png_infop info = nullptr;
};

}  // namespace

bool DecodePng(Bytes file, ATL::CImage& image) {
  return PngDecoder(file).Decode(image);
}

bool EncodePng(const platform::PixelSurface& pixels, std::vector<uint8_t>& file) {
  return Encodable(pixels) && PngEncoder(file).Encode(pixels);
}

}  // namespace picture
