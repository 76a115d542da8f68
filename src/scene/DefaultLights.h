// The lights that are not in the light table: the two default lights that
// stand in when custom lighting is off, and the headlight that follows the
// camera when it is on.
#pragma once

#include "scene/LightTable.h"
#include "host/SceneRecords.h"

class MODE_RENDER_OPTIONS;
class RT_RENDER_ENGINE;

// Sets both of the two `defaultLights` for the camera: a dim point light at
// the eye and a sun from a fixed direction.
void SetDefaultLights(RTRendererLight* defaultLights, const SCENE_CAMERA_INFO& camera);
// Moves default light 0 to the camera if it moved, or sets both lights up
// if they were never set. True when either happened, and so the upward test
// must run again.
bool FollowCameraWithDefaultLight(RTRendererLight* defaultLights, const SCENE_CAMERA_INFO& camera);
// Whether a ray from `eye` straight up hits geometry of `engine`.
bool TestCameraUnderCover(const RT_RENDER_ENGINE& engine, const SCENE_VERTEX_XYZ& eye);
// Enables `headlight` at the camera with the options' level, or disables it
// when the options turn it off or give level 0.
void SetHeadlight(RTRendererLight& headlight, const MODE_RENDER_OPTIONS& options,
                  const SCENE_CAMERA_INFO& camera);
