#include "host/texture/PictureCodecs.h"

namespace picture {

namespace {

struct Rgba {
  uint8_t r, g, b, a;
};

Rgba ReadPixel(const uint8_t* p, PixelOrder order) {
  switch (order) {
    case PixelOrder::Grey:
      return {p[0], p[0], p[0], 255};
    case PixelOrder::GreyAlpha:
      return {p[0], p[0], p[0], p[1]};
    case PixelOrder::Rgb:
      return {p[0], p[1], p[2], 255};
    case PixelOrder::Rgba:
      return {p[0], p[1], p[2], p[3]};
    case PixelOrder::Bgr:
      return {p[2], p[1], p[0], 255};
    case PixelOrder::Bgra:
      return {p[2], p[1], p[0], p[3]};
  }
  return {0, 0, 0, 0};
}

uint8_t Luminance(Rgba c) {
  return static_cast<uint8_t>((77 * c.r + 150 * c.g + 29 * c.b + 128) >> 8);
}

void WritePixel(uint8_t* p, PixelOrder order, Rgba c) {
  switch (order) {
    case PixelOrder::Grey:
      p[0] = Luminance(c);
      return;
    case PixelOrder::GreyAlpha:
      p[0] = Luminance(c), p[1] = c.a;
      return;
    case PixelOrder::Rgb:
      p[0] = c.r, p[1] = c.g, p[2] = c.b;
      return;
    case PixelOrder::Rgba:
      p[0] = c.r, p[1] = c.g, p[2] = c.b, p[3] = c.a;
      return;
    case PixelOrder::Bgr:
      p[0] = c.b, p[1] = c.g, p[2] = c.r;
      return;
    case PixelOrder::Bgra:
      p[0] = c.b, p[1] = c.g, p[2] = c.r, p[3] = c.a;
      return;
  }
}

bool HasAlpha(PixelOrder order) {
  return order == PixelOrder::GreyAlpha || order == PixelOrder::Rgba || order == PixelOrder::Bgra;
}

}  // namespace

bool SizeAllowed(int64_t width, int64_t height, int bytesPerPixel) {
  if (width <= 0 || height <= 0 || width > MaxSide || height > MaxSide) return false;
  return static_cast<uint64_t>(width * height * bytesPerPixel) <= MaxDecodedBytes;
}

int ChannelCount(PixelOrder order) {
  switch (order) {
    case PixelOrder::Grey:
      return 1;
    case PixelOrder::GreyAlpha:
      return 2;
    case PixelOrder::Rgb:
    case PixelOrder::Bgr:
      return 3;
    case PixelOrder::Rgba:
    case PixelOrder::Bgra:
      return 4;
  }
  return 0;
}

void ConvertRow(const uint8_t* source, PixelOrder from, uint8_t* target, PixelOrder to, int width) {
  const int sourceStep = ChannelCount(from), targetStep = ChannelCount(to);
  for (int x = 0; x < width; ++x)
    WritePixel(target + x * targetStep, to, ReadPixel(source + x * sourceStep, from));
}

PixelOrder ImageOrder(int bitsPerPixel) {
  if (bitsPerPixel == 8) return PixelOrder::Grey;
  return bitsPerPixel == 32 ? PixelOrder::Bgra : PixelOrder::Bgr;
}

PixelOrder FileOrder(int bitsPerPixel, bool keepAlpha) {
  if (bitsPerPixel == 8) return PixelOrder::Grey;
  return bitsPerPixel == 32 && keepAlpha ? PixelOrder::Rgba : PixelOrder::Rgb;
}

bool CreateDecodedImage(ATL::CImage& image, int width, int height, PixelOrder order) {
  const int depth = HasAlpha(order) ? 32 : (order == PixelOrder::Grey ? 8 : 24);
  if (!SizeAllowed(width, height, depth / 8)) return false;
  return image.Create(width, height, depth) != 0;
}

void StoreRow(ATL::CImage& image, int y, const uint8_t* row, PixelOrder order) {
  const platform::PixelSurface surface = image.Surface();
  ConvertRow(row, order, surface.Row(y), ImageOrder(surface.bitsPerPixel), surface.width);
}

bool Encodable(const platform::PixelSurface& pixels) {
  const int depth = pixels.bitsPerPixel;
  if (!pixels.Valid() || (depth != 8 && depth != 24 && depth != 32)) return false;
  return SizeAllowed(pixels.width, pixels.height, depth / 8);
}

}  // namespace picture
