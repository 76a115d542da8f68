#include "pipeline/HDRPictureFile.h"

#include <memory>
#include <new>

#include "host/BrindlexTexture.h"
#include "platform/Gdi.h"

bool SaveHDRPicture(const char* name, const SCENE_VERTEX_XYZW* mean, uint32_t width, uint32_t height,
                    bool keepAlpha) {
  if (!name || !*name || !mean || width == 0 || height == 0) return false;
  const size_t count = size_t(width) * height;
  std::unique_ptr<float[]> rgba(new (std::nothrow) float[4 * count]);
  if (!rgba) return false;
  for (size_t i = 0; i < count; ++i) {
    const SCENE_VERTEX_XYZW value = mean[i];
    rgba[4 * i] = value.x;
    rgba[4 * i + 1] = value.y;
    rgba[4 * i + 2] = value.z;
    rgba[4 * i + 3] = keepAlpha ? value.w : 1.0f;
  }
  return platform::WriteFileThroughTemporary(name, false, [&](const char* temporary) {
    return SaveHDRPictureFile(temporary, rgba.get(), int(width), int(height));
  });
}
