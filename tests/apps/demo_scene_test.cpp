#include <gtest/gtest.h>

#include <set>

#include "AppTestFiles.h"
#include "BrindlexTexture.h"
#include "DemoScene.h"

namespace {

TEST(DemoScene, PicturesLightsMaterialsGroundAndCamera) {
  TestFolder folder;
  ASSERT_TRUE(WriteDemoPictures(folder.path));
  for (const char* name : {DemoFloorPicture, DemoSkyPicture}) {
    ATL::CImage picture;
    EXPECT_TRUE(LoadCImageTextureFromFile((folder.path / name).string().c_str(), picture)) << name;
  }
  setenv("XDG_CACHE_HOME", folder.path.c_str(), 1);
  HostScene host;
  BuildDemoScene(host);
  EXPECT_EQ(host.TextureDirectory(), folder.path / "brindlex-render" / "demo");
  EXPECT_GT(host.TriangleCount(), 100ul);

  std::set<int> types;
  for (int i = 0; i < host.Lights().GetNumberOfLightInstances(); ++i) {
    const SCENE_LIGHT_DEFINITION d = *host.Lights().GetLightInstance(i)->definition;
    types.insert(d.type);
    EXPECT_NE(d.flags & LightCastsShadows, 0) << i;
  }
  EXPECT_EQ(types, (std::set<int>{0, 1, 2, 3}));
  EXPECT_TRUE(host.Options().DoCustomLighting());
  EXPECT_TRUE(host.Options().UseBackgroundTexture());

  const TEXTURE_LINK floor = *host.FindMaterials("Floor").at(0)->GetTextureLink();
  EXPECT_TRUE(std::filesystem::exists(host.TextureDirectory() / floor.GetTextureLinkFullFileName()));
  EXPECT_NE(host.FindMaterials("Glass").at(0)->GetTextureLink()->IsTransparent(), 0);
  EXPECT_GT(host.FindMaterials("Mirror").at(0)->GetTextureLink()->GetReflectivityLevel(), 50.0f);
  ASSERT_NE(host.HorizonNode(), nullptr);
  EXPECT_EQ(host.FindMaterials(host.HorizonMaterialID()).size(), 1u);

  // The camera looks into the pavilion from outside it.
  SCENE_VERTEX_XYZ min, max, eye = host.CameraEye();
  ASSERT_TRUE(host.WorldBounds(min, max));
  EXPECT_TRUE(eye.x > max.x || eye.y < min.y);
}

}  // namespace
