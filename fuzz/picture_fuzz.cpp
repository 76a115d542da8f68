// Picture files of any format, through the entry the texture loader uses:
// the format is sniffed from the content, as for a texture a model names.
#include "host/BrindlexTexture.h"
#include "FuzzInput.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string& path = fuzz::ScratchFile(".png");
  if (!fuzz::WriteScratch(path, data, size)) return 0;
  ATL::CImage image;
  if (LoadCImageTextureFromFile(path.c_str(), image)) {
    // Touch every row, so that a short or mis-sized buffer shows.
    const int width = image.GetWidth(), height = image.GetHeight();
    const int bytes = width * image.GetBPP() / 8;
    const auto* top = static_cast<const uint8_t*>(image.GetBits());
    volatile uint8_t sum = 0;
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < bytes; ++x) sum = sum + top[static_cast<ptrdiff_t>(y) * image.GetPitch() + x];
  }
  return 0;
}
