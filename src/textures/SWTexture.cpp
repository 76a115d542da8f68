#include "SWTexture.h"

#include "BrindlexTexture.h"

SWTexture::~SWTexture() {
  delete[] levels;
}
