// The render options of a view: everything the renderer is told about how to
// draw a frame. A plain value object; getters are const and free of side
// effects, so render threads may read one copy at the same time.
#pragma once

#include <cstddef>
#include <string>

class MODE_RENDER_OPTIONS {
 public:
  // Longest path, terminating zero included, that GetBackgroundTexture
  // writes: the size of the path buffers all through this system.
  static constexpr size_t MaxPathLength = 260;

  bool DoPathTracing() const { return pathTracing; }
  bool DoCustomLighting() const { return customLighting; }
  bool DoLighting() const { return lighting; }
  bool DoPhotonMapping() const { return photonMapping; }
  bool DoIndirectLighting() const { return indirectLighting; }
  bool DoRayTracedSoftShadows() const { return softShadows; }
  bool DisplayShadows() const { return shadows; }
  bool ShouldCalculateAllShadows() const { return allShadows; }
  bool DoAmbientOcclusion() const { return ambientOcclusion; }
  bool DoReflections() const { return reflections; }
  bool DoBumpMapping() const { return bumpMapping; }
  bool DoEmissiveMaterial() const { return emissiveMaterial; }
  bool DoAntiAliasing() const { return antiAliasing; }
  // Samples per pixel are 2 to this power.
  unsigned short GetAntialiasingLevel() const { return antialiasingLevel; }
  bool DoHDRTonalMapping() const { return hdrToneMapping; }
  // Exposure of the tone map, a percentage.
  float GetHDRTonalMappingLevel() const { return hdrToneMappingLevel; }
  bool ApplyHDRGamma() const { return hdrGamma; }
  // Outline colour of a block being traced; red in the low byte.
  unsigned long GetHighlightColor() const { return highlightColor; }
  bool DisableSymbolLights() const { return symbolLightsDisabled; }
  bool IsHeadlightOn() const { return headlight; }
  // Intensity in tenths: 10 is 1.0.
  short GetHeadlightLightLevel() const { return headlightLevel; }
  // A plain factor on every material's ambient term.
  float GetAmbientLightLevel() const { return ambientLightLevel; }
  unsigned short GetNumberOfIndirectBounces() const { return indirectBounces; }
  // Photons shot, in hundred thousands.
  unsigned short GetPhotonLevel() const { return photonLevel; }
  // Energy of a photon, as 100 + 10 x this.
  unsigned short GetPhotonEnergy() const { return photonEnergy; }
  // Photons gathered at a point, as 100 + 10 x this.
  unsigned short GetPhotonSampleLevel() const { return photonSampleLevel; }
  // Gather radius in model units.
  float GetPhotonRadius() const { return photonRadius; }
  // Share of direct light that the photon map stands in for, a percentage.
  float GetPhotonDirectLightingContribution() const { return photonDirectContribution; }
  // Percentages.
  float GetFogLevel() const { return fogLevel; }
  float GetMistLevel() const { return mistLevel; }
  // Height at which mist ends, in model units.
  float GetMistOffset() const { return mistOffset; }
  unsigned long GetBackgroundColor() const { return backgroundColor; }
  bool UseBackgroundTexture() const { return backgroundTexture; }
  bool IsBackgroundTexturePanoramic() const { return backgroundPanoramic; }
  // Picture offsets in percent of its size.
  short GetBackgroundImageXOffset() const { return backgroundXOffset; }
  short GetBackgroundImageYOffset() const { return backgroundYOffset; }
  // Writes into `out` (MaxPathLength bytes) the background picture's path:
  // `folder`, a separator and the file name. A name that is already an
  // absolute path is written alone, and no name gives the empty string. A
  // path too long for the buffer is cut short.
  void GetBackgroundTexture(char* out, const char* folder) const;
  const char* GetBackgroundTextureName() const { return backgroundName.c_str(); }
  bool DisplayFaces() const { return faces; }
  // 0: every face in the monochrome colour; 2: textures; other values:
  // material colours without textures.
  short GetFaceDisplayType() const { return faceDisplayType; }
  float GetFaceOpacityLevel() const { return faceOpacityLevel; }
  bool UseFaceTextureScale() const { return faceTextureScaleOn; }
  // A percentage: textures are drawn at 100 / this of their size.
  float GetFaceTextureScale() const { return faceTextureScale; }
  unsigned long GetMonochromeFaceColor() const { return monochromeFaceColor; }

  void SetPathTracing(bool on) { pathTracing = on; }
  void SetCustomLighting(bool on) { customLighting = on; }
  void SetLighting(bool on) { lighting = on; }
  void SetPhotonMapping(bool on) { photonMapping = on; }
  void SetIndirectLighting(bool on) { indirectLighting = on; }
  void SetRayTracedSoftShadows(bool on) { softShadows = on; }
  void SetDisplayShadows(bool on) { shadows = on; }
  void SetCalculateAllShadows(bool on) { allShadows = on; }
  void SetAmbientOcclusion(bool on) { ambientOcclusion = on; }
  void SetReflections(bool on) { reflections = on; }
  void SetBumpMapping(bool on) { bumpMapping = on; }
  void SetEmissiveMaterial(bool on) { emissiveMaterial = on; }
  void SetAntiAliasing(bool on) { antiAliasing = on; }
  // Clamped to 0..4: a pixel holds at most 16 samples.
  void SetAntialiasingLevel(unsigned short level);
  void SetHDRTonalMapping(bool on) { hdrToneMapping = on; }
  // Percentages clamp to 0..100 here and below; NaN is ignored.
  void SetHDRTonalMappingLevel(float level) { SetPercentage(hdrToneMappingLevel, level); }
  void SetHDRGamma(bool on) { hdrGamma = on; }
  void SetHighlightColor(unsigned long rgb) { highlightColor = rgb & 0x00FFFFFFul; }
  void SetDisableSymbolLights(bool on) { symbolLightsDisabled = on; }
  void SetHeadlight(bool on) { headlight = on; }
  void SetHeadlightLightLevel(short level) { headlightLevel = level; }
  // Negative and NaN values are ignored.
  void SetAmbientLightLevel(float level);
  void SetNumberOfIndirectBounces(unsigned short bounces) { indirectBounces = bounces; }
  void SetPhotonLevel(unsigned short level) { photonLevel = level; }
  void SetPhotonEnergy(unsigned short energy) { photonEnergy = energy; }
  void SetPhotonSampleLevel(unsigned short level) { photonSampleLevel = level; }
  // Ignored unless above 0: a gather needs a radius.
  void SetPhotonRadius(float radius);
  void SetPhotonDirectLightingContribution(float level) { SetPercentage(photonDirectContribution, level); }
  void SetFogLevel(float level) { SetPercentage(fogLevel, level); }
  void SetMistLevel(float level) { SetPercentage(mistLevel, level); }
  void SetMistOffset(float height);
  void SetBackgroundColor(unsigned long rgb) { backgroundColor = rgb & 0x00FFFFFFul; }
  void SetUseBackgroundTexture(bool on) { backgroundTexture = on; }
  void SetBackgroundTexturePanoramic(bool on) { backgroundPanoramic = on; }
  void SetBackgroundImageOffset(short x, short y);
  // Null clears the name.
  void SetBackgroundTextureName(const char* name) { backgroundName = name ? name : ""; }
  void SetDisplayFaces(bool on) { faces = on; }
  void SetFaceDisplayType(short type) { faceDisplayType = type; }
  void SetFaceOpacityLevel(float level) { SetPercentage(faceOpacityLevel, level); }
  void SetUseFaceTextureScale(bool on) { faceTextureScaleOn = on; }
  // Ignored unless above 0, since textures are drawn at 100 / scale.
  void SetFaceTextureScale(float scale);
  void SetMonochromeFaceColor(unsigned long rgb) { monochromeFaceColor = rgb & 0x00FFFFFFul; }

 private:
  static void SetPercentage(float& field, float level);

  // A new view draws fast, clean pictures with no set-up: the ordinary ray
  // tracer under the default lights, with shadows, mirrors, relief and glow
  // as the materials ask, and the costly global effects off until asked for.
  bool pathTracing = false;
  bool customLighting = false;
  bool lighting = true;
  bool photonMapping = false;
  bool indirectLighting = false;
  // With custom lighting, shadows need both switches; both on makes the
  // project's lights cast shadows as soon as custom lighting is chosen.
  bool softShadows = true;
  bool shadows = true;
  // The nearest lights only: scenes with many lamps stay quick.
  bool allShadows = false;
  bool ambientOcclusion = false;
  bool reflections = true;
  bool bumpMapping = true;
  bool emissiveMaterial = true;
  // 4 samples per pixel smooth edges at a quarter of the speed.
  bool antiAliasing = true;
  unsigned short antialiasingLevel = 2;
  bool hdrToneMapping = false;
  // 75 makes the tone map's exposure scale exactly 1.
  float hdrToneMappingLevel = 75.0f;
  // Tone-mapped values are linear; screens expect gamma-encoded ones.
  bool hdrGamma = true;
  // Yellow, which stands out against most pictures.
  unsigned long highlightColor = 0x0000FFFFul;
  bool symbolLightsDisabled = false;
  // Custom lighting is the project's own: no camera light unless asked.
  bool headlight = false;
  short headlightLevel = 10;
  // The factor the default lighting uses, so a switch to custom lighting
  // keeps the shadows' brightness.
  float ambientLightLevel = 0.3f;
  unsigned short indirectBounces = 2;
  // 200 000 photons of energy 200, gathered 200 at a time within 24 units:
  // a quick map of usable quality.
  unsigned short photonLevel = 2;
  unsigned short photonEnergy = 10;
  unsigned short photonSampleLevel = 10;
  float photonRadius = 24.0f;
  // Lights are evaluated directly; photons add only the indirect part.
  float photonDirectContribution = 0.0f;
  float fogLevel = 0.0f;
  float mistLevel = 0.0f;
  float mistOffset = 10.0f;
  // Sky blue: a missed ray looks like sky rather than a hole.
  unsigned long backgroundColor = 0x00EBCE87ul;
  bool backgroundTexture = false;
  bool backgroundPanoramic = false;
  short backgroundXOffset = 0;
  short backgroundYOffset = 0;
  std::string backgroundName;
  bool faces = true;
  short faceDisplayType = 2;
  float faceOpacityLevel = 100.0f;
  bool faceTextureScaleOn = false;
  float faceTextureScale = 100.0f;
  // White shows shape and light alone.
  unsigned long monochromeFaceColor = 0x00FFFFFFul;
};
