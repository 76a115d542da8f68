#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "host/BrindlexTexture.h"
#include "RenderScene.h"

namespace {

const std::filesystem::path ImageFolder = std::filesystem::path(__FILE__).parent_path() / "images";

// Compares the frame bitmap with images/<name>.png: more than 1% of pixels
// off by more than 4 levels in red, green or blue fails. The picture is
// always written to the test's temporary folder for a look. When a change
// alters it on purpose, BRINDLEX_BLESS=1 writes it as the new reference
// instead: look at it first, and review the PNG in the diff.
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

}  // namespace

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
