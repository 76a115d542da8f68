// The direction of a diffuse bounce in path tracing.
#pragma once

#include "host/SceneRecords.h"

class RT_RANDOM_NUMBER_GENERATOR;

// A unit direction over the hemisphere of the unit `normal`, drawn with a
// density proportional to the cosine of its angle to the normal. Two draws
// of `generator`.
SCENE_VERTEX_XYZ_64 SampleCosineHemisphere(RT_RANDOM_NUMBER_GENERATOR& generator,
                                           const SCENE_VERTEX_XYZ_64& normal);
