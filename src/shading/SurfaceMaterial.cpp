// Material classification and terms of a surface.
#include "shading/SurfaceMaterial.h"

#include "host/BrindlexViewModel.h"
#include "textures/SWTexture.h"
#include "shading/ShadingLevels.h"

namespace {
// Face display types of the view.
constexpr short MonochromeFaces = 0;
constexpr short TexturedFaces = 2;
// The ambient light of the default lighting.
constexpr float DefaultAmbientLight = 0.3f;

SCENE_VERTEX_XYZ Scaled(const SCENE_VERTEX_XYZ& color, float factor) {
  return {color.x * factor, color.y * factor, color.z * factor};
}
}  // namespace

bool UsesMaterialColor(const TEXTURE_LINK& link, const MODE_RENDER_OPTIONS& options) {
  return link.OverrideTextureWithColor() != 0 || options.GetFaceDisplayType() != TexturedFaces;
}

bool IsUsableTexture(const std::vector<SWTexture*>& textures, uint32_t textureIndex) {
  return textureIndex < textures.size() && textures[textureIndex] && textures[textureIndex]->HasImage();
}

float SurfaceAlpha(const TEXTURE_LINK& link, const MODE_RENDER_OPTIONS& options) {
  return PercentLevel(link.GetOpacityLevel()) * PercentLevel(options.GetFaceOpacityLevel());
}

double SurfaceTextureScale(const TEXTURE_LINK& link, const MODE_RENDER_OPTIONS& options) {
  const TEXTURE_LINK::SV_TEXTURE_MAPPING_TYPE mapping = link.GetTextureMappingType();
  const bool projected =
      mapping == TEXTURE_LINK::SV_PLANAR_MAPPING || mapping == TEXTURE_LINK::SV_BOX_MAPPING;
  if (options.UseFaceTextureScale() && link.IsScaled() == 0 && projected)
    return 100.0 / options.GetFaceTextureScale();
  return 1.0;
}

SCENE_VERTEX_XYZ MaterialColor(const TEXTURE_LINK& link, const MODE_RENDER_OPTIONS& options) {
  if (options.GetFaceDisplayType() == MonochromeFaces) return ColorFromRGB(options.GetMonochromeFaceColor());
  return ColorFromRGB(link.GetColor());
}

SurfaceTerms MaterialTerms(const TEXTURE_LINK& link, const MODE_RENDER_OPTIONS& options,
                           const SCENE_VERTEX_XYZ& baseColor) {
  const float diffuseLevel = PercentLevel(link.GetDiffuseLevel());
  const float ambientLevel = PercentLevel(link.GetAmbientLevel());
  const float specularLevel = PercentLevel(link.GetSpecularLevel());
  const float emissiveLevel = PercentLevel(link.GetEmissiveLevel());
  const float ambientLight =
      options.DoCustomLighting() ? options.GetAmbientLightLevel() : DefaultAmbientLight;

  SurfaceTerms terms;
  terms.ambient = Scaled(Scaled(baseColor, ambientLevel), ambientLight);
  terms.diffuse = Scaled(baseColor, diffuseLevel);
  terms.specular = {specularLevel, specularLevel, specularLevel};
  terms.emissive =
      options.DoEmissiveMaterial() ? Scaled(baseColor, emissiveLevel) : SCENE_VERTEX_XYZ{0, 0, 0};
  return terms;
}
