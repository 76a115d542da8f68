#include <gtest/gtest.h>

#include "TestDoubles.h"

#include <cstdlib>
#include <filesystem>
#include <string>

#include "host/BrindlexTexture.h"
#include "RenderScene.h"

namespace {

const std::filesystem::path ImageFolder = std::filesystem::path(__FILE__).parent_path() / "images";

// Every pixel of the picture has this shaded colour.
void ExpectPicture(RenderScene& scene, float r, float g, float b, float a) {
  for (int y = 0; y < scene.height; ++y)
    for (int x = 0; x < scene.width; ++x) {
      SCOPED_TRACE(testing::Message() << "pixel " << x << "," << y);
      ExpectColor(scene.Color(x, y), r, g, b, a);
    }
}

// A flat surface that shows its colour only: no light reaches its terms.
void Glowing(TEXTURE_LINK& l, unsigned long rgb) {
  l.SetColor(rgb);
  l.SetEmissiveLevel(100);
  l.SetAmbientLevel(0);
  l.SetDiffuseLevel(0);
  l.SetSpecularLevel(0);
}

// Compares the frame bitmap with images/<name>.png: more than 1% of pixels
// off by more than 4 levels in a channel fails. BRINDLEX_BLESS=1 writes
// the picture as the new reference instead. The picture is always written
// to the test's temporary folder for a look.
void ExpectRegressionImage(RenderScene& scene, const std::string& name) {
  const platform::PixelSurface frame = scene.pipeline.FrameBitmap()->Surface();
  const std::string actual = testing::TempDir() + name + ".png";
  ASSERT_TRUE(SavePictureFile(actual.c_str(), frame, PictureFileFormat::Png));
  const std::string reference = (ImageFolder / (name + ".png")).string();
  const char* bless = std::getenv("BRINDLEX_BLESS");
  if (bless && std::string(bless) == "1") {
    ASSERT_TRUE(SavePictureFile(reference.c_str(), frame, PictureFileFormat::Png));
    return;
  }
  ATL::CImage expected;
  ASSERT_TRUE(LoadCImageTextureFromFile(reference.c_str(), expected)) << "no reference " << reference;
  const platform::PixelSurface want = expected.Surface();
  ASSERT_EQ(want.width, frame.width);
  ASSERT_EQ(want.height, frame.height);
  const int wantBytes = want.bitsPerPixel / 8;
  int differing = 0;
  for (int y = 0; y < frame.height; ++y)
    for (int x = 0; x < frame.width; ++x)
      for (int c = 0; c < 3; ++c)
        if (std::abs(frame.Row(y)[4 * x + c] - want.Row(y)[wantBytes * x + c]) > 4) {
          ++differing;
          break;
        }
  EXPECT_LE(differing, frame.width * frame.height / 100) << "see " << actual;
}

// A speck behind the camera at (0, 0, 10): a scene's box needs depth along
// the view for the clipping planes to lie apart. It lies off the line
// straight up from the camera, which would put the camera under cover and
// have the default lights shoot photons.
void DeepenBox(RenderScene& scene, const char* material) {
  scene.Quad(material, {1, 1, 20}, {1.1f, 1, 20}, {1.1f, 1.1f, 20}, {1, 1.1f, 20});
}

}  // namespace

TEST(ShadedPicture, HalfTransparentPaneOverTheBackground) {
  RenderScene scene(16, 16);
  scene.Material("Pane", [](TEXTURE_LINK& l) {
    Glowing(l, 0x0000FF00);
    l.SetOpacityLevel(50);
  });
  scene.Quad("Pane", {-20, -20, 0}, {20, -20, 0}, {20, 20, 0}, {-20, 20, 0});
  DeepenBox(scene, "Pane");
  scene.Options().SetBackgroundColor(0x00FF0000);  // blue
  scene.Render();
  ExpectPicture(scene, 0, 0.5f, 0.5f, 0.5f);
}

TEST(ShadedPicture, FogGrowsWithDistanceAndMissesAreWhite) {
  RenderScene scene(32, 32);
  scene.Material("Black", [](TEXTURE_LINK& l) { Glowing(l, 0); });
  scene.Quad("Black", {-4, -4, 0}, {4, -4, 0}, {4, 4, 0}, {-4, 4, 0});
  scene.Quad("Black", {-15, -15, -10}, {15, -15, -10}, {15, 15, -10}, {-15, 15, -10});
  scene.Quad("Black", {1, 1, 40}, {2, 1, 40}, {2, 2, 40}, {1, 2, 40});  // behind the eye, not above it
  scene.SetCamera({0, 0, 30}, {0, 0, 0});
  scene.Options().SetFogLevel(100);
  scene.Render();
  // Fog runs from the near to the far plane of the scene's box, over the
  // hit distance, which a camera ray counts from its start one unit before
  // the near plane: 30 - (near - 1) for the middle quad.
  const SCENE_VERTEX_XYZ min = {-15, -15, -10}, max = {15, 15, 40}, eye = {0, 0, 30}, target = {0, 0, 0};
  float nearDistance = 0, farDistance = 0;
  GetNearAndFarClippingPlaneDistance(&min, &max, &eye, &target, nearDistance, farDistance);
  const float fog = (31 - 2 * nearDistance) / (farDistance - nearDistance);
  ASSERT_GT(fog, 0.1f);
  ExpectColor(scene.Color(16, 16), fog, fog, fog, 1, 2e-3f);
  ExpectColor(scene.Color(0, 0), 1, 1, 1, 0);
}

TEST(ShadedPicture, TexturedTransparentMirroredScene) {
  RenderScene scene(192, 128);
  const std::string checker = scene.Picture(
      "checker.png", 8, 8, [](int x, int y) { return (x / 4 + y / 4) % 2 ? 0xFFFFFFFFu : 0xFFC06030u; });
  scene.Material("Floor", [&](TEXTURE_LINK& l) {
    l.SetTextureLinkFullFileName(checker.c_str());
    l.SetTextureMappingType(TEXTURE_LINK::SV_MESH_UV_MAPPING);
  });
  scene.Material("Glass", [](TEXTURE_LINK& l) {
    l.SetColor(0x00FF9040);
    l.SetOpacityLevel(40);
  });
  scene.Material("Mirror", [](TEXTURE_LINK& l) {
    l.SetColor(0x00808080);
    l.SetReflecting(true);
    l.SetReflectivityLevel(70);
  });
  scene.Material("Block", [](TEXTURE_LINK& l) { l.SetColor(0x000080FF); });
  scene.Quad("Floor", {-10, -10, 0}, {10, -10, 0}, {10, 10, 0}, {-10, 10, 0}, 3);
  scene.Quad("Glass", {-3, 0, 0}, {3, 0, 0}, {3, 0, 4}, {-3, 0, 4});
  scene.Quad("Block", {-1, 3, 0}, {1, 3, 0}, {1, 3, 2}, {-1, 3, 2});
  scene.Quad("Mirror", {8, 6, 0}, {-8, 6, 0}, {-8, 6, 8}, {8, 6, 8});
  scene.SetCamera({4, -14, 6}, {0, 2, 1});
  scene.Options().SetAntiAliasing(true);
  scene.Render();
  ExpectRegressionImage(scene, "textured_transparent_mirrored");
}
