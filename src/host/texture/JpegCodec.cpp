// JPEG through the libjpeg interface. libjpeg ends on a fatal error by
// calling error_exit, which here jumps back to the method that called into
// it; warnings are only counted, never printed.
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <jpeglib.h>
#include <jerror.h>

#include "host/texture/PictureCodecs.h"

namespace picture {

namespace {

// JPEG quality of written files: visibly lossless for rendered pictures at
// a fraction of the size of a lossless format.
constexpr int Quality = 90;
// A progressive file may hold any number of scans, each of which makes
// libjpeg pass over the whole picture again; real encoders use about ten.
constexpr int MaxScans = 500;

struct ErrorManager {
  jpeg_error_mgr base;
  std::jmp_buf jump;
  bool endOfFile = false;
};

[[noreturn]] void JumpOnError(j_common_ptr codec) {
  std::longjmp(reinterpret_cast<ErrorManager*>(codec->err)->jump, 1);
}

// A cut file makes libjpeg pad it with an end marker and warn once; that
// warning is what tells a whole picture from a cut one.
void NoteMessage(j_common_ptr codec, int level) {
  auto* errors = reinterpret_cast<ErrorManager*>(codec->err);
  if (level < 0 && errors->base.msg_code == JWRN_JPEG_EOF) errors->endOfFile = true;
}

void PrintNothing(j_common_ptr) {}

void LimitScans(j_common_ptr codec) {
  auto* decompress = reinterpret_cast<j_decompress_ptr>(codec);
  if (decompress->input_scan_number > MaxScans) JumpOnError(codec);
}

void InstallErrorManager(ErrorManager& errors) {
  jpeg_std_error(&errors.base);
  errors.base.error_exit = JumpOnError;
  errors.base.emit_message = NoteMessage;
  errors.base.output_message = PrintNothing;
}

class JpegDecoder {
 public:
  explicit JpegDecoder(Bytes file) : file(file) {
    InstallErrorManager(errors);
    codec.err = &errors.base;
    progress.progress_monitor = LimitScans;
  }
  ~JpegDecoder() {
    if (created) jpeg_destroy_decompress(&codec);
  }

  bool Decode(ATL::CImage& image) {
    if (file.empty() || !ReadHeader()) return false;
    const PixelOrder order = codec.output_components == 1 ? PixelOrder::Grey : PixelOrder::Rgb;
    std::vector<uint8_t> row;
    ATL::CImage decoded;
    try {
      row.resize(static_cast<size_t>(codec.output_width) * codec.output_components);
    } catch (...) {
      return false;
    }
    if (!CreateDecodedImage(decoded, codec.output_width, codec.output_height, order)) return false;
    if (!ReadPixels(decoded, row.data(), order) || errors.endOfFile) return false;
    image = std::move(decoded);
    return true;
  }

 private:
  bool ReadHeader() {
    if (setjmp(errors.jump)) return false;
    jpeg_create_decompress(&codec);
    created = true;
    codec.progress = &progress;
    codec.mem->max_memory_to_use = static_cast<long>(MaxDecodedBytes);
    jpeg_mem_src(&codec, file.data(), static_cast<unsigned long>(file.size()));
    if (jpeg_read_header(&codec, TRUE) != JPEG_HEADER_OK) return false;
    if (!SizeAllowed(codec.image_width, codec.image_height, 3)) return false;
    // Grey stays grey; YCbCr and RGB come out as RGB. CMYK pictures have no
    // conversion to RGB in libjpeg and fail in jpeg_start_decompress.
    codec.out_color_space = codec.num_components == 1 ? JCS_GRAYSCALE : JCS_RGB;
    jpeg_start_decompress(&codec);
    return codec.output_components == 1 || codec.output_components == 3;
  }

  bool ReadPixels(ATL::CImage& image, JSAMPROW row, PixelOrder order) {
    if (setjmp(errors.jump)) return false;
    while (codec.output_scanline < codec.output_height) {
      const int y = static_cast<int>(codec.output_scanline);
      if (jpeg_read_scanlines(&codec, &row, 1) != 1) return false;
      StoreRow(image, y, row, order);
    }
    jpeg_finish_decompress(&codec);
    return true;
  }

  Bytes file;
  ErrorManager errors;
  jpeg_progress_mgr progress{};
  jpeg_decompress_struct codec{};
  bool created = false;
};

class JpegEncoder {
 public:
  JpegEncoder() {
    InstallErrorManager(errors);
    codec.err = &errors.base;
  }
  ~JpegEncoder() {
    if (created) jpeg_destroy_compress(&codec);
    std::free(buffer);
  }

  bool Encode(const platform::PixelSurface& pixels, std::vector<uint8_t>& file) {
    const PixelOrder order = FileOrder(pixels.bitsPerPixel, false);
    std::vector<uint8_t> row;
    try {
      row.resize(static_cast<size_t>(pixels.width) * ChannelCount(order));
    } catch (...) {
      return false;
    }
    if (!Write(pixels, order, row.data())) return false;
    try {
      file.assign(buffer, buffer + size);
    } catch (...) {
      return false;
    }
    return true;
  }

 private:
  bool Write(const platform::PixelSurface& pixels, PixelOrder order, JSAMPROW row) {
    if (setjmp(errors.jump)) return false;
    jpeg_create_compress(&codec);
    created = true;
    jpeg_mem_dest(&codec, &buffer, &size);
    codec.image_width = pixels.width;
    codec.image_height = pixels.height;
    codec.input_components = ChannelCount(order);
    codec.in_color_space = order == PixelOrder::Grey ? JCS_GRAYSCALE : JCS_RGB;
    jpeg_set_defaults(&codec);
    jpeg_set_quality(&codec, Quality, TRUE);
    jpeg_start_compress(&codec, TRUE);
    while (codec.next_scanline < codec.image_height) {
      ConvertRow(pixels.Row(static_cast<int>(codec.next_scanline)), ImageOrder(pixels.bitsPerPixel), row,
                 order, pixels.width);
      jpeg_write_scanlines(&codec, &row, 1);
    }
    jpeg_finish_compress(&codec);
    return true;
  }

  ErrorManager errors;
  jpeg_compress_struct codec{};
  bool created = false;
  unsigned char* buffer = nullptr;
  unsigned long size = 0;
};

}  // namespace

bool DecodeJpeg(Bytes file, ATL::CImage& image) {
  return JpegDecoder(file).Decode(image);
}

bool EncodeJpeg(const platform::PixelSurface& pixels, std::vector<uint8_t>& file) {
  return Encodable(pixels) && JpegEncoder().Encode(pixels, file);
}

}  // namespace picture
