#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>

#include "host/BrindlexTexture.h"

#include "TestFolder.h"

namespace {

TEST(TexMapScalePow2, NearestPowerOnALogScaleWithinTheLimit) {
  struct Case {
    int width, height, limit, expectedWidth, expectedHeight;
  } cases[] = {
      {300, 100, 8192, 256, 128},       // 300 < 256 * 1.414 = 362; 100 > 64 * 1.414 = 90.5
      {400, 1, 8192, 512, 1},           // 400 > 362
      {181, 182, 8192, 128, 256},       // 181^2 = 32761 < 2 * 128^2 = 32768 < 182^2
      {1, 1, 8192, 1, 1},               // a 1 by 1 picture stays one level
      {0, -5, 8192, 1, 1},              // never 0
      {20000, 5000, 8192, 8192, 4096},  // 16384 cut to the limit; 5000 < 5793
      {1000, 700, 1000, 512, 512},      // 1024 above a limit whose largest power is 512
      {64, 64, 0, 1, 1},                // no room at all still gives 1
  };
  for (const Case& c : cases) {
    int width = -1, height = -1;
    TexMapScalePow2(c.width, c.height, c.limit, width, height);
    EXPECT_EQ(std::pair(width, height), std::pair(c.expectedWidth, c.expectedHeight))
        << c.width << " x " << c.height << " within " << c.limit;
  }
}

TEST(TextureFileNames, TypeByExtension) {
  const std::pair<const char*, int> known[] = {{"a/b.BMP", TextureFileTypeBmp},
                                               {"b.jpeg", TextureFileTypeJpeg},
                                               {"c.JPG", TextureFileTypeJpeg},
                                               {"d.png", TextureFileTypePng},
                                               {"e.Tiff", TextureFileTypeTiff}};
  for (const auto& [name, type] : known) EXPECT_EQ(GetTextureFileType(name), type) << name;
  for (const char* other : {"f.gif", "noextension", "folder.png/file", "g.png.txt", ""})
    EXPECT_EQ(GetTextureFileType(other), TextureFileTypeAny) << other;
  EXPECT_EQ(GetTextureFileType(nullptr), TextureFileTypeAny);
}

TEST(TextureFileNames, FindsThePictureThatIsReallyThere) {
  TestFolder temporary;
  const std::string pattern = temporary.path.string(), folder = pattern + "/";
  ATL::CImage picture;
  ASSERT_NE(picture.Create(2, 2, 24), 0);
  ASSERT_TRUE(SavePictureFile((folder + "wood.png").c_str(), picture.Surface(), PictureFileFormat::Png));

  // Any extension finds wood.png, in a folder with or without separator.
  for (const char* folderName : {folder.c_str(), pattern.c_str()}) {
    int type = TextureFileTypeAny;
    EXPECT_TRUE(IsValidTextureFileName("wood.bmp", folderName, &type));
    EXPECT_EQ(type, TextureFileTypePng);
  }
  EXPECT_TRUE(IsValidTextureFileName((folder + "wood.JPG").c_str(), nullptr, nullptr));
  int type = TextureFileTypeBmp;  // insisting on a type that is not there
  EXPECT_FALSE(IsValidTextureFileName("wood.png", folder.c_str(), &type));
  EXPECT_EQ(type, TextureFileTypeBmp);
  EXPECT_FALSE(IsValidTextureFileName("wood.gif", folder.c_str(), nullptr));
  EXPECT_FALSE(IsValidTextureFileName("stone.png", folder.c_str(), nullptr));

  // The steps by which a cached texture's true file is found.
  char source[300];
  std::snprintf(source, sizeof(source), "%swood.tif", folder.c_str());
  type = TextureFileTypeAny;
  ASSERT_TRUE(IsValidTextureFileName(source, nullptr, &type));
  ASSERT_NE(GetTextureFileType(source), type);
  ConvertStringToMatchTextureFileType(source, type);
  EXPECT_EQ(std::string(source), folder + "wood.png");
}

}  // namespace
