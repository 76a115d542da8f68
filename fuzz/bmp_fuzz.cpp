// Our own BMP codec: whatever it decodes, it must write back and read again
// to the same pixels.
#include <cstring>

#include "FuzzInput.h"
#include "host/texture/PictureCodecs.h"

namespace {

bool SamePixels(const ATL::CImage& a, const ATL::CImage& b) {
  if (a.GetWidth() != b.GetWidth() || a.GetHeight() != b.GetHeight() || a.GetBPP() != b.GetBPP())
    return false;
  const size_t rowBytes = static_cast<size_t>(a.GetWidth()) * (a.GetBPP() / 8);
  const auto* rowA = static_cast<const uint8_t*>(a.GetBits());
  const auto* rowB = static_cast<const uint8_t*>(b.GetBits());
  for (int y = 0; y < a.GetHeight(); ++y, rowA += a.GetPitch(), rowB += b.GetPitch())
    if (std::memcmp(rowA, rowB, rowBytes) != 0) return false;
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  ATL::CImage image;
  if (!picture::DecodeBmp(picture::Bytes(data, size), image)) return 0;
  std::vector<uint8_t> written;
  if (!picture::EncodeBmp(image.Surface(), written)) __builtin_trap();
  ATL::CImage again;
  if (!picture::DecodeBmp(written, again) || !SamePixels(image, again)) __builtin_trap();
  return 0;
}
