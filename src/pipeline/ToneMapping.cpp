#include "pipeline/ToneMapping.h"

#include <cmath>

#include "host/BrindlexViewMath.h"
#include "host/RenderOptions.h"
#include "host/Numbers.h"

namespace {

// Colour of the bitmap before the byte conversion: the HDR tone map keeps
// hue by scaling red, green and blue by one ratio taken from luminance.
SCENE_VERTEX_XYZ ToneMap(const SCENE_VERTEX_XYZ& color, double level, bool gamma) {
  static const SCENE_VERTEX_XYZ LuminanceWeights = {0.2126f, 0.7152f, 0.0722f};
  const double scale = level * 0.01 + 0.25;
  double luminance = DotProduct(&color, &LuminanceWeights);
  double t = scale * luminance;
  t = t * (1.0 + t * 0.4444);
  const double mapped = t / (t + 1.0);
  if (luminance < 0.0001) luminance = 0.0001;
  const float ratio = static_cast<float>(mapped / luminance);
  SCENE_VERTEX_XYZ out = {color.x * ratio, color.y * ratio, color.z * ratio};
  if (gamma) {
    out.x = powf(std::fabs(out.x), 0.45454547f);
    out.y = powf(std::fabs(out.y), 0.45454547f);
    out.z = powf(std::fabs(out.z), 0.45454547f);
  }
  return out;
}
}  // namespace

void BlendIntoRunningMean(const SCENE_VERTEX_XYZW& sample, SCENE_VERTEX_XYZW& mean,
                          const PixelFinishRules& rules) {
  if (rules.pass <= 1) {
    mean = sample;
    return;
  }
  const double weight = 1.0 / static_cast<double>(rules.pass);
  const double keep = 1.0 - weight;
  if (rules.keepBackgroundAlpha) {
    const double sampleAlpha = std::fabs(static_cast<double>(sample.w));
    const double meanAlpha = std::fabs(static_cast<double>(mean.w));
    if (sampleAlpha <= NearZero) {
      // This pass saw the background: only the coverage drops.
      mean.w = static_cast<float>(mean.w * keep);
      return;
    }
    if (meanAlpha <= NearZero) {
      // Only this pass saw the model: its colour is the only one there is.
      mean = {sample.x, sample.y, sample.z, static_cast<float>(sample.w * weight)};
      return;
    }
  }
  const float w = static_cast<float>(weight), k = static_cast<float>(keep);
  mean = {sample.x * w + mean.x * k, sample.y * w + mean.y * k, sample.z * w + mean.z * k,
          sample.w * w + mean.w * k};
}

uint8_t ConvertToByte(float value) {
  const double v = value;
  if (v > 1.0) return 255;
  const double scaled = v * 255.0;
  // Not-a-number and values too negative for an int have no truncation;
  // they become 0, the low byte of the processor's "integer indefinite".
  if (!(scaled > -2147483649.0)) return 0;
  return static_cast<uint8_t>(static_cast<int32_t>(scaled) & 0xFF);
}

void WriteBitmapPixel(const SCENE_VERTEX_XYZW& mean, const MODE_RENDER_OPTIONS& options,
                      const PixelFinishRules& rules, uint8_t* bgra) {
  SCENE_VERTEX_XYZ color = {mean.x, mean.y, mean.z};
  if (options.DoCustomLighting() && options.DoHDRTonalMapping())
    color = ToneMap(color, options.GetHDRTonalMappingLevel(), options.ApplyHDRGamma());
  bgra[0] = ConvertToByte(color.z);
  bgra[1] = ConvertToByte(color.y);
  bgra[2] = ConvertToByte(color.x);
  bgra[3] = rules.keepBackgroundAlpha ? ConvertToByte(mean.w) : 255;
}
