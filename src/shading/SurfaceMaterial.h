// How a material row and the view's options become the terms of a surface:
// whether it shows its texture, how opaque it is, how its texture is
// scaled, and its ambient, diffuse, specular and emissive colours.
#pragma once

#include <cstdint>
#include <vector>

#include "host/SceneRecords.h"

class MODE_RENDER_OPTIONS;
class TEXTURE_LINK;
struct SWTexture;

// The material colour stands in for the texture: the material asks for it,
// or the view shows no textures.
bool UsesMaterialColor(const TEXTURE_LINK& link, const MODE_RENDER_OPTIONS& options);
// Row `textureIndex` holds a picture that can be sampled.
bool IsUsableTexture(const std::vector<SWTexture*>& textures, uint32_t textureIndex);
// Opacity of the surface, 0 to 1: the material's times the view's.
float SurfaceAlpha(const TEXTURE_LINK& link, const MODE_RENDER_OPTIONS& options);
// The factor on texture coordinates: the view's face texture scale for
// projected mappings that keep no size of their own, else 1.
double SurfaceTextureScale(const TEXTURE_LINK& link, const MODE_RENDER_OPTIONS& options);
// The material colour, or the view's monochrome colour when it shows every
// face in one colour.
SCENE_VERTEX_XYZ MaterialColor(const TEXTURE_LINK& link, const MODE_RENDER_OPTIONS& options);

struct SurfaceTerms {
  SCENE_VERTEX_XYZ ambient;
  SCENE_VERTEX_XYZ diffuse;   // handed to the lights and photon gathers
  SCENE_VERTEX_XYZ specular;  // grey
  SCENE_VERTEX_XYZ emissive;
};
// The material's terms on `baseColor`: white for a textured surface, whose
// texture tints the sum later, else the material colour.
SurfaceTerms MaterialTerms(const TEXTURE_LINK& link, const MODE_RENDER_OPTIONS& options,
                           const SCENE_VERTEX_XYZ& baseColor);
