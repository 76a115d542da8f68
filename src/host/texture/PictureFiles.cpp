// Reading and writing whole picture files, and telling their format from
// their first bytes.
#include <algorithm>
#include <cstdio>
#include <optional>
#include <sys/stat.h>

#include "host/texture/PictureCodecs.h"
#include "host/brindlexutil.h"

namespace picture {

namespace {

using Decoder = bool (*)(Bytes, ATL::CImage&);
using Encoder = bool (*)(const platform::PixelSurface&, std::vector<uint8_t>&);

// Indexed by PictureFileFormat.
constexpr Decoder Decoders[] = {DecodeBmp, DecodeJpeg, DecodePng, DecodeTiff};
constexpr Encoder Encoders[] = {EncodeBmp, EncodeJpeg, EncodePng, EncodeTiff};

bool StartsWith(Bytes file, std::initializer_list<uint8_t> magic) {
  return file.size() >= magic.size() && std::equal(magic.begin(), magic.end(), file.begin());
}

std::optional<PictureFileFormat> FormatOf(Bytes file) {
  if (StartsWith(file, {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'})) return PictureFileFormat::Png;
  if (StartsWith(file, {0xFF, 0xD8, 0xFF})) return PictureFileFormat::Jpeg;
  // Classic and big TIFF, in either byte order.
  if (StartsWith(file, {'I', 'I', 42, 0}) || StartsWith(file, {'M', 'M', 0, 42}) ||
      StartsWith(file, {'I', 'I', 43, 0}) || StartsWith(file, {'M', 'M', 0, 43}))
    return PictureFileFormat::Tiff;
  if (StartsWith(file, {'B', 'M'})) return PictureFileFormat::Bmp;
  return std::nullopt;
}

bool WriteWholeFile(const char* path, Bytes contents) {
  std::FILE* file = std::fopen(path, "wb");
  if (!file) return false;
  bool ok = std::fwrite(contents.data(), 1, contents.size(), file) == contents.size();
  ok = std::fclose(file) == 0 && ok;
  if (!ok) std::remove(path);
  return ok;
}

}  // namespace

bool ReadWholeFile(const char* path, std::vector<uint8_t>& contents, uint64_t minimumBytes,
                   uint64_t maximumBytes) {
  std::FILE* file = std::fopen(path, "rb");
  if (!file) return false;
  struct stat info {};
  bool ok = fstat(fileno(file), &info) == 0 && S_ISREG(info.st_mode) &&
            static_cast<uint64_t>(info.st_size) >= minimumBytes &&
            static_cast<uint64_t>(info.st_size) <= maximumBytes;
  try {
    if (ok) contents.resize(static_cast<size_t>(info.st_size));
  } catch (...) {
    ok = false;
  }
  ok = ok && std::fread(contents.data(), 1, contents.size(), file) == contents.size();
  std::fclose(file);
  return ok;
}

}  // namespace picture

bool LoadCImageTextureFromFile(const char* path, ATL::CImage& image) {
  if (!path) return false;
  const std::string found = FileExists(path) ? path : picture::FindTextureFile(path, TextureFileTypeAny);
  std::vector<uint8_t> file;
  if (found.empty() || !picture::ReadWholeFile(found.c_str(), file, 1, picture::MaxFileBytes)) return false;
  const std::optional<PictureFileFormat> format = picture::FormatOf(file);
  return format && picture::Decoders[static_cast<int>(*format)](file, image);
}

bool SavePictureFile(const char* path, const platform::PixelSurface& pixels, PictureFileFormat format) {
  const int index = static_cast<int>(format);
  if (!path || index < 0 || index > static_cast<int>(PictureFileFormat::Tiff)) return false;
  std::vector<uint8_t> file;
  return picture::Encoders[index](pixels, file) && picture::WriteWholeFile(path, file);
}
