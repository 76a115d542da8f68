// How the mouse moves the camera of brindlex-view: orbit about the point
// looked at, pan across the view, zoom towards the point. All positions
// are in the engine's world, which is z-up.
#pragma once

#include "host/SceneRecords.h"

struct OrbitCamera {
  SCENE_VERTEX_XYZ eye, target;
};

// The eye goes round the target: `azimuth` degrees about the world's z
// axis (counter-clockwise seen from above) and `elevation` degrees up. The
// elevation stays within MaximumElevation of the horizontal, so that the
// view never looks straight up or down, where "up" would be undefined.
OrbitCamera Orbit(const OrbitCamera& camera, double azimuth, double elevation);
constexpr double MaximumElevation = 89.0;

// Moves eye and target together across the view so that what lay under the
// mouse at the target's distance follows the mouse: `right` and `down` in
// pixels of a view `viewHeight` pixels high with a vertical field of view
// of `fieldOfView` degrees.
OrbitCamera Pan(const OrbitCamera& camera, double right, double down, double fieldOfView, double viewHeight);

// The eye's distance to the target times `factor`; never closer than
// MinimumDistance.
OrbitCamera Zoom(const OrbitCamera& camera, double factor);
constexpr double MinimumDistance = 1e-3;
