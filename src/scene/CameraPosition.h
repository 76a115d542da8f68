// Where the host's camera stands in the engine's world.
#pragma once

#include "host/SceneRecords.h"

// The camera record keeps y with the opposite sign to the engine's world;
// every use of the eye as a world position goes through here.
inline SCENE_VERTEX_XYZ CameraPositionInWorld(const SCENE_CAMERA_INFO& camera) {
  const SCENE_VERTEX_XYZ eye = camera.eye;
  return {eye.x, -eye.y, eye.z};
}
