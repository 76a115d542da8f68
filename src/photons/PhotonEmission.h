// Where a light's photons start and which way they leave it.
#pragma once

#include <cstdint>

#include "host/SceneRecords.h"

class RT_RANDOM_NUMBER_GENERATOR;

// A photon in flight.
struct PhotonRay {
  SCENE_VERTEX_XYZ_64 origin;
  SCENE_VERTEX_XYZ_64 direction;
  SCENE_VERTEX_XYZ_64 energy;
};

// A new photon of `light`: its colour times its intensity in tenths as
// energy, and origin and direction by the light's type. The scene box
// places the photons of a direct light. A type the engine does not know
// leaves origin and direction zero, so the photon meets nothing.
PhotonRay EmitPhoton(const SCENE_LIGHT_DEFINITION& light, const SCENE_VERTEX_XYZ_64& sceneMin,
                     const SCENE_VERTEX_XYZ_64& sceneMax, RT_RANDOM_NUMBER_GENERATOR& generator);

// A random unit vector whose cosine with the unit `axis` is above `limit`
// (at or above it when `inclusive`), drawn from RandomUnitVector until one
// fits. False when none fits within a bounded number of draws: an axis of
// zero or a cone too narrow for the draws to hit.
bool DrawDirectionAround(RT_RANDOM_NUMBER_GENERATOR& generator, const SCENE_VERTEX_XYZ_64& axis, double limit,
                         bool inclusive, SCENE_VERTEX_XYZ_64& direction);
