// What --photons asks of the engine: photon mapping tuned for the inside of
// a building.
#pragma once

#include "HostScene.h"

// Photons per list, in hundred thousands, and bounces: rooms are lit mostly
// by light thrown back from floors and walls, more than once.
constexpr unsigned short InteriorPhotonLevel = 5;
constexpr unsigned short InteriorBounces = 3;
// The gather radius as a share of the model's diagonal: about 40 cm in a
// house of 20 m, whatever unit the model is in.
constexpr double InteriorRadiusShare = 0.02;

// Photon mapping on under the project's lights: the lights themselves give
// the direct light, with its sharp shadows, and photons add what bounces.
// The scene file may still change any of it, so this runs before it.
void UseInteriorPhotonMapping(HostScene& host);
