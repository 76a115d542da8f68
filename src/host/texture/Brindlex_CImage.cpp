#include "host/BrindlexTexture.h"

Brindlex_CImage::Brindlex_CImage() = default;

Brindlex_CImage::~Brindlex_CImage() = default;

int Brindlex_CImage::Create(int width, int height, int bitsPerPixel) {
  Destroy();
  return ATL::CImage::Create(width, height, bitsPerPixel);
}
