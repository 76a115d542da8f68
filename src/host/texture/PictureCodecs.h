// What the picture codecs of this library share: size limits, pixel orders
// and the decoder and encoder entry points.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "host/BrindlexTexture.h"

namespace picture {

using Bytes = std::span<const uint8_t>;

// Limits against hostile or broken files: no side above MaxSide and no
// decoded picture above MaxDecodedBytes, checked before any allocation.
constexpr int MaxSide = 16384;
constexpr uint64_t MaxDecodedBytes = uint64_t{1} << 30;
bool SizeAllowed(int64_t width, int64_t height, int bytesPerPixel);
// No picture file within those limits needs more than twice the largest
// picture, even uncompressed and with wide samples.
constexpr uint64_t MaxFileBytes = MaxDecodedBytes * 2;

// Byte order of 8-bit pixels in a file or an image row.
enum class PixelOrder { Grey, GreyAlpha, Rgb, Rgba, Bgr, Bgra };

int ChannelCount(PixelOrder order);
// Colour to grey is the integer luminance, which keeps equal channels exact.
void ConvertRow(const uint8_t* source, PixelOrder from, uint8_t* target, PixelOrder to, int width);

// The order of an image's pixels at 8, 24 or 32 bits per pixel.
PixelOrder ImageOrder(int bitsPerPixel);
// The red-first order in which most formats store an image of that depth,
// with or without its alpha.
PixelOrder FileOrder(int bitsPerPixel, bool keepAlpha);

// Makes `image` for a picture decoded in `order`: 8 bits for grey, 24 for
// colour, 32 for anything with alpha. False when too large.
bool CreateDecodedImage(ATL::CImage& image, int width, int height, PixelOrder order);
// Stores decoded row `y`, counted from the top, into `image`.
void StoreRow(ATL::CImage& image, int y, const uint8_t* row, PixelOrder order);
// True for a surface that an encoder can write: 8, 24 or 32 bits within
// the size limits.
bool Encodable(const platform::PixelSurface& pixels);

// The file that a texture name stands for: `path` itself if it exists, else
// the same name with another extension of `type`, or of any picture type
// for TextureFileTypeAny. Empty if there is none.
std::string FindTextureFile(const std::string& path, int type);

// Reads a regular file whose size lies within the bounds, whole; false for
// anything else, so that no caller allocates for a hostile size.
bool ReadWholeFile(const char* path, std::vector<uint8_t>& contents, uint64_t minimumBytes,
                   uint64_t maximumBytes);

bool DecodeBmp(Bytes file, ATL::CImage& image);
bool DecodeJpeg(Bytes file, ATL::CImage& image);
bool DecodePng(Bytes file, ATL::CImage& image);
bool DecodeTiff(Bytes file, ATL::CImage& image);

bool EncodeBmp(const platform::PixelSurface& pixels, std::vector<uint8_t>& file);
bool EncodeJpeg(const platform::PixelSurface& pixels, std::vector<uint8_t>& file);
bool EncodePng(const platform::PixelSurface& pixels, std::vector<uint8_t>& file);
bool EncodeTiff(const platform::PixelSurface& pixels, std::vector<uint8_t>& file);

}  // namespace picture
