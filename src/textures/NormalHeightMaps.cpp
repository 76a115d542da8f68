// Normal maps for relief, made at load time from a height picture or, when
// there is none, from the grey of the colour picture.
#include <algorithm>

#include "host/BrindlexTexture.h"
#include "host/BrindlexViewMath.h"
#include "engine/BrindlexViewRTRenderEngine.h"
#include "textures/SWTexture.h"
#include "textures/TexturePictures.h"
#include "textures/TexturePyramid.h"

namespace {

// A height byte on a range of 2: -1.0 to 1.0.
float HeightOf(uint8_t byte) {
  return static_cast<float>(0.00784313725490196 * static_cast<float>(byte) - 1.0);
}

// The slope between two heights, rounded to float after each step.
float Slope(float higher, float lower) {
  const float difference = higher - lower;
  const float half = static_cast<float>(difference / 2.0);
  return static_cast<float>(half * 2.0);
}

uint8_t NormalByte(float component) {
  return static_cast<uint8_t>((component + 1.0) * 255.0 / 2.0);
}

// `normals` becomes a 24-bit picture of the unit normals of the height field
// in the first byte of each pixel of `heights`. Borders repeat the edge.
bool MakeNormalMap(const ATL::CImage& heights, ATL::CImage& normals) {
  const int bpp = heights.GetBPP();
  if (heights.IsNull() || !IsTextureDepth(bpp)) return false;
  const int width = heights.GetWidth(), height = heights.GetHeight(), bytes = bpp / 8;
  if (!normals.Create(width, height, 24)) return false;
  const platform::PixelSurface from = heights.Surface(), to = normals.Surface();
  auto at = [&](int x, int y) { return HeightOf(from.Row(y)[x * bytes]); };
  for (int y = 0; y < height; ++y) {
    const int yp = std::min(y + 1, height - 1), ym = std::max(y - 1, 0);
    for (int x = 0; x < width; ++x) {
      const int xp = std::min(x + 1, width - 1), xm = std::max(x - 1, 0);
      const SCENE_VERTEX_XYZ along{1.0f, 0.0f, Slope(at(xp, y), at(xm, y))};
      const SCENE_VERTEX_XYZ across{0.0f, 1.0f, Slope(at(x, yp), at(x, ym))};
      SCENE_VERTEX_XYZ normal;
      CrossProduct(&along, &across, &normal);
      GetUnitVector(&normal, &normal);
      uint8_t* p = to.Row(y) + 3 * x;
      p[0] = NormalByte(normal.z), p[1] = NormalByte(normal.y), p[2] = NormalByte(normal.x);
    }
  }
  return true;
}

// One route: the picture at `path`, scaled to power-of-two sides before the
// slopes are taken, flipped to texture order, made grey if it is a colour
// picture, into a pyramid of normals.
bool BuildNormalMapPyramid(SWTexture& texture, const char* path, bool fromColour) {
  ATL::CImage picture, scaled, flipped, grey, normals;
  if (!LoadCImageTextureFromFile(path, picture)) return false;
  int width = 0, height = 0;
  TexMapScalePow2(picture.GetWidth(), picture.GetHeight(), TextureSideLimit, width, height);
  if (!StretchPicture(picture, scaled, width, height)) return false;
  picture.Destroy();
  if (!FlipPicture(scaled, flipped)) return false;
  scaled.Destroy();
  const ATL::CImage* heights = &flipped;
  if (fromColour) {
    if (!MakeGreyPicture(flipped, grey)) return false;
    flipped.Destroy();
    heights = &grey;
  }
  return MakeNormalMap(*heights, normals) && BuildTexturePyramid(texture, normals);
}

}  // namespace

bool RT_RENDER_ENGINE::LoadSWNormalHeightMapTexture(unsigned int slot, const char* colorPath,
                                                    const char* heightPath) {
  SWTexture* texture = TextureRecordForLoad(textures, slot);
  if (!texture) return false;
  // The name is the colour path in both routes: it is the key by which the
  // normal map is found again.
  const bool built = (colorPath && heightPath && BuildNormalMapPyramid(*texture, heightPath, false)) ||
                     (colorPath && BuildNormalMapPyramid(*texture, colorPath, true));
  if (built) texture->name = colorPath;
  return built;
}
