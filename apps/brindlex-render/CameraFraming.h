// Whether a camera that came with a model file shows the model.
#pragma once

#include <string>

#include "host/SceneRecords.h"

// Empty when a camera at `eye` looking at `target` with a vertical field of
// view of `fieldOfView` degrees, in a picture of `aspect` (width / height),
// has the box `min`..`max` in front of it and reasonably framed; otherwise
// what is wrong, in a few words ("looks away from the model").
std::string CameraFramingProblem(const SCENE_VERTEX_XYZ& min, const SCENE_VERTEX_XYZ& max,
                                 const SCENE_VERTEX_XYZ& eye, const SCENE_VERTEX_XYZ& target,
                                 float fieldOfView, double aspect);
