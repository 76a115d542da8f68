// The pieces every light type shares: the entry guard, the Phong factor, the
// light's colours, distance falloff, and the sums they end in. Directions
// and factors are doubles; colours and sums are floats.
#pragma once

#include <cstdint>

#include "scene/LightTable.h"
#include "host/SceneRecords.h"

class MODE_RENDER_OPTIONS;

// Whether `light` of `type` is on and allowed to shine in this frame.
bool LightMayShine(const RTRendererLight* light, const MODE_RENDER_OPTIONS* options, uint16_t type);

// The Phong factor before its exponent: the viewing ray against the unit
// direction to the light mirrored in the surface, 0 when facing away.
double SpecularFactor(const SCENE_VERTEX_XYZ_64& towardLight, const SCENE_VERTEX_XYZ_64& normal,
                      const SCENE_VERTEX_XYZ_64& rayDirection);

// The light's intensity, stored in tenths.
double LightIntensity(const SCENE_LIGHT_DEFINITION& light);

// Attenuation at squared distance `d2`: 1 within the start radius, then
// quadratic in d2 down to 0 at falloffStart^2 + falloffEnd^2.
double FalloffAttenuation(const SCENE_LIGHT_DEFINITION& light, double d2);

// What one light adds at a point, before the colours.
struct LightTerm {
  double lambert;
  double specular;
  double visibility;
  double intensity;
  double attenuation;
};

// Adds the light's diffuse and specular energy, in its colours, to the sums.
void AccumulateLight(const SCENE_LIGHT_DEFINITION& light, const LightTerm& term,
                     const SCENE_VERTEX_XYZ& diffuseColor, const SCENE_VERTEX_XYZ& specularColor,
                     SCENE_VERTEX_XYZ& diffuseSum, SCENE_VERTEX_XYZ& specularSum);
