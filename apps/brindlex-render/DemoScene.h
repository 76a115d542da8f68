// The built-in demo scene: a small open pavilion on a lawn under a sky,
// made entirely here, pictures included.
#pragma once

#include "HostScene.h"

// Fills an empty host scene with the demo: wooden floor (a plank picture
// made here), plaster walls, a roof, a glass partition, a mirror, a table
// with a ball, a ground and a sky, lit by a sun, a lamp, a spot and a
// ceiling panel, all casting shadows, and a camera. Pictures go to the cache
// folder, which becomes the texture directory; if they cannot be written
// the scene still stands, in plain colours.
void BuildDemoScene(HostScene& host);

// The two pictures, written into `folder` unless they are there already.
// False if either could not be written.
bool WriteDemoPictures(const std::filesystem::path& folder);

constexpr const char* DemoFloorPicture = "demo-wood-planks.png";
constexpr const char* DemoSkyPicture = "demo-sky.png";
