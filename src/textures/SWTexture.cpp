#include "textures/SWTexture.h"

#include "host/BrindlexTexture.h"

SWTexture::~SWTexture() {
  Clear();
}

void SWTexture::Clear() {
  delete[] levels;
  levels = nullptr;
  DeleteCompressedTextureArray(compressedLevels, levelCount);
  compressedLevels = nullptr;
  levelCount = 0;
}
