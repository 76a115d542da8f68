#include "SWTexture.h"

#include "BrindlexTexture.h"

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
