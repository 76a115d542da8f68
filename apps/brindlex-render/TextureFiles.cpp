#include "TextureFiles.h"

#include <stb/stb_image.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <memory>

#include "host/BrindlexTexture.h"
#include "HostScene.h"

namespace fs = std::filesystem;

namespace {

uint16_t U16(const std::vector<uint8_t>& b, size_t at) {
  return static_cast<uint16_t>(b[at] | b[at + 1] << 8);
}

bool StartsWith(const std::vector<uint8_t>& bytes, std::initializer_list<uint8_t> magic) {
  return bytes.size() >= magic.size() && std::equal(magic.begin(), magic.end(), bytes.begin());
}

// Formats the engine reads itself, told by their first bytes.
bool EngineFormat(const std::vector<uint8_t>& b) {
  return StartsWith(b, {0x89, 'P', 'N', 'G'}) || StartsWith(b, {0xFF, 0xD8, 0xFF}) ||
         StartsWith(b, {'I', 'I', 42, 0}) || StartsWith(b, {'M', 'M', 0, 42}) ||
         StartsWith(b, {'I', 'I', 43, 0}) || StartsWith(b, {'M', 'M', 0, 43}) || StartsWith(b, {'B', 'M'});
}

// The pictures a texture may be, in pixels: those the engine's decoders
// take (no side above 16384, at most 1 GB decoded).
constexpr int64_t MaximumSide = 16384, MaximumPixels = (int64_t{1} << 30) / 4;

bool Readable(const fs::path& file, std::vector<uint8_t>& bytes, std::string& reason) {
  std::error_code code;
  if (!fs::is_regular_file(file, code)) {
    reason = "not a regular file";
    return false;
  }
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> in(std::fopen(file.c_str(), "rb"), std::fclose);
  const auto size = fs::file_size(file, code);
  if (!in || code) {
    reason = "cannot be opened";
    return false;
  }
  bytes.resize(static_cast<size_t>(size));
  if (std::fread(bytes.data(), 1, bytes.size(), in.get()) != bytes.size()) {
    reason = "cannot be read";
    return false;
  }
  return true;
}

// A PNG's size from its header, against what its data could hold: deflate
// makes at most about 1032 bytes of 1, so a file claiming more pixels than
// that (a 74-byte file of 16384 x 16384) is damaged or hostile.
bool PngSizeBelievable(const std::vector<uint8_t>& b, std::string& reason) {
  if (b.size() < 33) return true;  // the decoder says what is wrong
  const auto u32 = [&](size_t at) {
    return static_cast<uint64_t>(b[at]) << 24 | b[at + 1] << 16 | b[at + 2] << 8 | b[at + 3];
  };
  const uint64_t width = u32(16), height = u32(20);
  // One bit a pixel and a filter byte a row is the least any PNG holds.
  const uint64_t leastRaw = height * (1 + (width + 7) / 8);
  if (leastRaw <= static_cast<uint64_t>(b.size()) * 1032) return true;
  reason = "claims " + std::to_string(width) + " x " + std::to_string(height) + " pixels, more than its " +
           std::to_string(b.size()) + " bytes can hold";
  return false;
}

}  // namespace

fs::path WritableCacheFolder(const std::string& name, std::vector<std::string>& warnings) {
  const fs::path preferred = CacheFolder() / name;
  std::error_code code;
  fs::create_directories(preferred, code);
  if (!code && access(preferred.c_str(), W_OK) == 0) return preferred;
  const fs::path fallback =
      fs::temp_directory_path() / ("brindlex-render-" + std::to_string(getuid())) / name;
  fs::create_directories(fallback, code);
  warnings.push_back("cache folder " + preferred.string() + " cannot be written; using " + fallback.string());
  return fallback;
}

bool DecodePcx(const std::vector<uint8_t>& b, int& width, int& height, std::vector<uint8_t>& rgba) {
  constexpr size_t Header = 128;
  if (b.size() < Header || b[0] != 0x0A || b[2] != 1 || b[3] != 8) return false;
  const int planes = b[65], bytesPerLine = U16(b, 66);
  width = U16(b, 8) - U16(b, 4) + 1, height = U16(b, 10) - U16(b, 6) + 1;
  if (width <= 0 || height <= 0 || bytesPerLine < width || (planes != 1 && planes != 3)) return false;
  // Every run is at least one byte of the file: no picture holds more rows
  // than that.
  if (static_cast<uint64_t>(height) * bytesPerLine * planes > (b.size() - Header) * 63) return false;
  const bool palette = planes == 1;
  if (palette && (b.size() < Header + 769 || b[b.size() - 769] != 0x0C)) return false;
  const size_t dataEnd = palette ? b.size() - 769 : b.size();
  std::vector<uint8_t> line(static_cast<size_t>(bytesPerLine) * planes);
  rgba.assign(static_cast<size_t>(width) * height * 4, 255);
  size_t at = Header;
  for (int y = 0; y < height; ++y) {
    for (size_t x = 0; x < line.size();) {
      if (at >= dataEnd) return false;
      uint8_t value = b[at++], count = 1;
      if ((value & 0xC0) == 0xC0) {
        if (at >= dataEnd) return false;
        count = value & 0x3F, value = b[at++];
      }
      for (; count > 0 && x < line.size(); --count) line[x++] = value;
    }
    uint8_t* out = &rgba[static_cast<size_t>(y) * width * 4];
    for (int x = 0; x < width; ++x, out += 4) {
      for (int c = 0; c < 3; ++c)
        out[c] =
            palette ? b[dataEnd + 1 + line[x] * 3u + c] : line[static_cast<size_t>(c) * bytesPerLine + x];
    }
  }
  return true;
}

fs::path TexturePictures::Usable(const fs::path& file) {
  const auto known = seen.find(file);
  if (known != seen.end()) return known->second;
  return seen[file] = Check(file);
}

fs::path TexturePictures::Check(const fs::path& file) {
  std::error_code code;
  if (!fs::exists(file, code)) {
    // The engine also looks for the name under its other picture
    // extensions; a name it cannot find either costs nothing, so it stays.
    if (!IsValidTextureFileName(file.c_str(), nullptr, nullptr))
      warnings.push_back("texture " + file.string() + " cannot be loaded: no such file");
    return file;
  }
  std::vector<uint8_t> bytes;
  std::string reason;
  fs::path usable;
  if (Readable(file, bytes, reason)) {
    if (!EngineFormat(bytes))
      usable = Convert(file, bytes, reason);
    else if (StartsWith(bytes, {0x89, 'P', 'N', 'G'}) && !PngSizeBelievable(bytes, reason))
      usable.clear();
    else
      usable = file;
  }
  if (usable.empty()) warnings.push_back("texture " + file.string() + " cannot be loaded: " + reason);
  return usable;
}

fs::path TexturePictures::Convert(const fs::path& file, const std::vector<uint8_t>& bytes,
                                  std::string& reason) {
  int width = 0, height = 0;
  std::vector<uint8_t> rgba;
  if (!DecodePcx(bytes, width, height, rgba)) {
    int channels = 0;
    // stb reads TGA, GIF (its first frame), PSD, PNM and others; a header
    // is checked before anything is decoded.
    if (!stbi_info_from_memory(bytes.data(), static_cast<int>(bytes.size()), &width, &height, &channels)) {
      reason = "not a picture format this program reads";
      return {};
    }
    if (width > MaximumSide || height > MaximumSide || int64_t{width} * height > MaximumPixels) {
      reason =
          std::to_string(width) + " x " + std::to_string(height) + " pixels is more than a texture may be";
      return {};
    }
    std::unique_ptr<stbi_uc, void (*)(void*)> pixels(
        stbi_load_from_memory(bytes.data(), static_cast<int>(bytes.size()), &width, &height, &channels, 4),
        stbi_image_free);
    if (!pixels) {
      reason = std::string("damaged (") + stbi_failure_reason() + ")";
      return {};
    }
    rgba.assign(pixels.get(), pixels.get() + static_cast<size_t>(width) * height * 4);
  }
  // The engine's surfaces are blue, green, red, alpha.
  for (size_t i = 0; i < rgba.size(); i += 4) std::swap(rgba[i], rgba[i + 2]);
  const fs::path folder = WritableCacheFolder("converted", warnings);
  const fs::path png =
      folder / (file.stem().string() + "-" +
                std::to_string(std::hash<std::string>()(fs::absolute(file).string())) + ".png");
  platform::PixelSurface surface;
  surface.width = width, surface.height = height, surface.bitsPerPixel = 32;
  surface.firstRow = rgba.data(), surface.pitch = 4 * static_cast<ptrdiff_t>(width);
  if (!SavePictureFile(png.c_str(), surface, PictureFileFormat::Png)) {
    reason = "its PNG copy cannot be written in " + folder.string();
    return {};
  }
  return png;
}
