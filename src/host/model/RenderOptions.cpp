#include "host/RenderOptions.h"

#include <algorithm>
#include <cmath>
#include <cstring>

void MODE_RENDER_OPTIONS::SetPercentage(float& field, float level) {
  if (!std::isnan(level)) field = std::clamp(level, 0.0f, 100.0f);
}

void MODE_RENDER_OPTIONS::SetAntialiasingLevel(unsigned short level) {
  antialiasingLevel = std::min<unsigned short>(level, 4);
}

void MODE_RENDER_OPTIONS::SetAmbientLightLevel(float level) {
  if (level >= 0.0f) ambientLightLevel = level;
}

void MODE_RENDER_OPTIONS::SetPhotonRadius(float radius) {
  if (radius > 0.0f) photonRadius = radius;
}

void MODE_RENDER_OPTIONS::SetMistOffset(float height) {
  if (!std::isnan(height)) mistOffset = height;
}

void MODE_RENDER_OPTIONS::SetFaceTextureScale(float scale) {
  if (scale > 0.0f) faceTextureScale = scale;
}

void MODE_RENDER_OPTIONS::SetBackgroundImageOffset(short x, short y) {
  backgroundXOffset = x;
  backgroundYOffset = y;
}

// Appends `text` to the path in `out` (of MaxPathLength bytes, `used`
// filled), cutting it short where the buffer ends.
static void AppendToPath(char* out, size_t& used, const char* text) {
  size_t room = MODE_RENDER_OPTIONS::MaxPathLength - 1 - used;
  size_t length = std::min(std::strlen(text), room);
  std::memcpy(out + used, text, length);
  used += length;
  out[used] = '\0';
}

void MODE_RENDER_OPTIONS::GetBackgroundTexture(char* out, const char* folder) const {
  if (!out) return;
  size_t used = 0;
  out[0] = '\0';
  if (backgroundName.empty()) return;
  if (folder && *folder && backgroundName.front() != '/') {
    AppendToPath(out, used, folder);
    if (out[used - 1] != '/') AppendToPath(out, used, "/");
  }
  AppendToPath(out, used, backgroundName.c_str());
}
