// The surface settings of one material: colour, texture file and the levels
// that shading reads for every hit.
#pragma once

#include <string>

class TEXTURE_LINK {
 public:
  // How texture coordinates are laid on a face. Planar and box mapping
  // project world positions, so their texture size is a world size and the
  // view's face texture scale applies to them; the other two stretch the
  // picture over what the face already defines.
  enum SV_TEXTURE_MAPPING_TYPE {
    SV_PLANAR_MAPPING = 0,
    SV_FIT_TO_FACE_MAPPING = 1,
    SV_BOX_MAPPING = 2,
    SV_MESH_UV_MAPPING = 3,
  };

  TEXTURE_LINK() = default;

  const char* GetTextureLinkFullFileName() const { return fileName.c_str(); }
  // Red in the low byte, then green, then blue.
  unsigned long GetColor() const { return color; }
  unsigned short OverrideTextureWithColor() const { return overrideTexture; }
  SV_TEXTURE_MAPPING_TYPE GetTextureMappingType() const { return mappingType; }
  // Non-zero: the texture keeps its own size whatever the view's face scale.
  unsigned short IsScaled() const { return scaled; }
  unsigned short IsTransparent() const { return transparent; }
  unsigned short IsReflecting() const { return reflecting; }
  // Levels are percentages, 0 to 100.
  float GetOpacityLevel() const { return opacityLevel; }
  float GetReflectivityLevel() const { return reflectivityLevel; }
  float GetAmbientLevel() const { return ambientLevel; }
  float GetDiffuseLevel() const { return diffuseLevel; }
  float GetSpecularLevel() const { return specularLevel; }
  float GetEmissiveLevel() const { return emissiveLevel; }
  // Depth of the relief map; above 0 asks for a normal and height map.
  float GetReliefDepthLevel() const { return reliefDepthLevel; }

  // Null clears the name.
  void SetTextureLinkFullFileName(const char* name) { fileName = name ? name : ""; }
  // Only the low 24 bits are a colour; the top byte is dropped.
  void SetColor(unsigned long rgb) { color = rgb & 0x00FFFFFFul; }
  void SetOverrideTextureWithColor(bool on) { overrideTexture = on; }
  // False, with nothing changed, for a value outside the enumeration.
  bool SetTextureMappingType(int type);
  void SetScaled(bool on) { scaled = on; }
  void SetTransparent(bool on) { transparent = on; }
  void SetReflecting(bool on) { reflecting = on; }
  // Each level setter clamps to 0..100 and ignores NaN.
  void SetOpacityLevel(float level) { SetLevel(opacityLevel, level); }
  void SetReflectivityLevel(float level) { SetLevel(reflectivityLevel, level); }
  void SetAmbientLevel(float level) { SetLevel(ambientLevel, level); }
  void SetDiffuseLevel(float level) { SetLevel(diffuseLevel, level); }
  void SetSpecularLevel(float level) { SetLevel(specularLevel, level); }
  void SetEmissiveLevel(float level) { SetLevel(emissiveLevel, level); }
  void SetReliefDepthLevel(float level) { SetLevel(reliefDepthLevel, level); }

  bool operator==(const TEXTURE_LINK&) const = default;

 private:
  static void SetLevel(float& field, float level);

  std::string fileName;
  // A new material is plain white: it shows the lighting as it is.
  unsigned long color = 0x00FFFFFFul;
  unsigned short overrideTexture = 0;
  SV_TEXTURE_MAPPING_TYPE mappingType = SV_PLANAR_MAPPING;
  unsigned short scaled = 0;
  unsigned short transparent = 0;
  unsigned short reflecting = 0;
  // Opaque, fully lit by ambient and diffuse light, a little shine, no glow,
  // no mirror and a flat surface: an ordinary matt-ish paint.
  float opacityLevel = 100.0f;
  float reflectivityLevel = 0.0f;
  float ambientLevel = 100.0f;
  float diffuseLevel = 100.0f;
  float specularLevel = 20.0f;
  float emissiveLevel = 0.0f;
  float reliefDepthLevel = 0.0f;
};
