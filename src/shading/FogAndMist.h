// Fog and mist: screen-level haze that blends a finished colour toward
// white. Only a camera ray's colour (depth 0) takes it, never what a mirror
// or a pane of glass shows. Alpha is never touched.
#pragma once

#include "host/SceneRecords.h"

class MODE_RENDER_OPTIONS;

// A ray that hit nothing lies at full fog, whatever the distance.
void ApplyMissFog(const MODE_RENDER_OPTIONS& options, SCENE_VERTEX_XYZW& color);

// The fog share of a hit at `distance`: 0 at the near plane, rising to the
// fog level at the far plane and beyond.
float HitFogFactor(const MODE_RENDER_OPTIONS& options, double distance, float nearDistance,
                   float farDistance);
void ApplyFog(float fog, SCENE_VERTEX_XYZW& color);

// Mist lies on the ground: full up to half the mist height, thinning out to
// nothing at the height itself. Nothing happens with a mist level of 0.
void ApplyMist(const MODE_RENDER_OPTIONS& options, const SCENE_VERTEX_XYZ_64& point,
               SCENE_VERTEX_XYZW& color);
