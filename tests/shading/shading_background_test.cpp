#include <gtest/gtest.h>

#include "TestDoubles.h"

#include "host/BrindlexViewModel.h"
#include "shading/FogAndMist.h"
#include "ShadingTestAccess.h"

namespace {

class Background : public ::testing::Test {
 protected:
  // The colour of a ray along `direction` from pixel column `pixelX` of a
  // 100 x 100 view that misses everything, shaded at `depth`.
  SCENE_VERTEX_XYZW Miss(SCENE_VERTEX_XYZ_64 direction, double pixelX = 0, uint32_t depth = 0) {
    PixelRaySample sample = CameraRay({0, 0, 0}, direction, pixelX, 50, 100, 100);
    PixelRaySample* samples[1] = {&sample};
    const SWRayIntersectionResult none{};
    const SWRayIntersectionResult* results[1] = {&none};
    bool abort = false;
    engine.ShadePixel(&view, &options, false, results, samples, 1, 1.0f, 100.0f, depth, 0, abort);
    return sample.color;
  }
  void Look(SCENE_VERTEX_XYZ direction) {
    view.GetViewFileState()->SetCameraInfo({{0, 0, 0}, direction, 60, 10, 0});
  }

  RT_RENDER_ENGINE engine;
  ENVIRONMENT_3D_VIEW view;
  MODE_RENDER_OPTIONS options;
};

}  // namespace

TEST_F(Background, PictureFixedToTheScreenAndPanoramaTurningWithTheCamera) {
  options.SetUseBackgroundTexture(true);
  // Four columns of a 4 x 1 panorama, bytes blue, green, red: red, green,
  // blue and white.
  const uint32_t columns[4] = {0xFFFF0000u, 0xFF00FF00u, 0xFF0000FFu, 0xFFFFFFFFu};
  ShadingTestAccess access(&engine);
  access.BackgroundTexture() = access.AddTexture(4, 1, [&](int x, int) { return columns[x]; });
  options.SetBackgroundImageOffset(-50, 0);
  Look({1, 0, 0});
  // Fixed: u = 12.5 / 100 + 0.5 reads the middle of column 2.
  ExpectColor(Miss({1, 0, 0}, 12.5), 0, 0, 1, 0);
  // A panorama shows a sixth of its width: u = 0.75 / 6 + 0.5 + turn.
  options.SetBackgroundTexturePanoramic(true);
  ExpectColor(Miss({1, 0, 0}, 75), 0, 0, 1, 0, 1e-5f);  // along +x, turn 0
  Look({0, 1, 0});                                      // turn -25 percent
  ExpectColor(Miss({1, 0, 0}, 75), 1, 1, 1, 0, 1e-5f);
  Look({0, -1, 0});  // turn +25 percent, the other way
  ExpectColor(Miss({1, 0, 0}, 75), 0, 1, 0, 0, 1e-5f);
}

TEST_F(Background, FogAndMistOnlyOnCameraRays) {
  options.SetBackgroundColor(0x00000080);  // red 128 / 255
  const float red = 128 / 255.0f;
  options.SetFogLevel(50);
  ExpectColor(Miss({1, 0, 0}), red * 0.5f + 0.5f, 0.5f, 0.5f, 0);
  ExpectColor(Miss({1, 0, 0}, 0, 1), red, 0, 0, 0);  // a deeper ray takes no fog
  options.SetFogLevel(0);

  // Mist below 6 units (an offset of 0 counts as 6), on the far point of a miss.
  options.SetMistLevel(100);
  options.SetMistOffset(0);
  ExpectColor(Miss({0, 0, -1}), 1, 1, 1, 0);
  ExpectColor(Miss({0, 0, 1}), red, 0, 0, 0);
  // On a hit point: full from half the height down (none above: the miss up).
  SCENE_VERTEX_XYZW color = {0.2f, 0.4f, 0.6f, 0.7f};
  ApplyMist(options, {0, 0, 4.5}, color);  // amount (6 - 4.5) / 6 * 2 = 0.5
  ExpectColor(color, 0.6f, 0.7f, 0.8f, 0.7f);
}
