// The lights that are not in the light table: the two default lights that
// stand in when custom lighting is off, and the headlight that follows the
// camera when it is on.
#include <cstring>

#include "host/BrindlexViewModel.h"
#include "engine/BrindlexViewRTRenderEngine.h"
#include "scene/LightTable.h"
#include "scene/CameraPosition.h"
#include "scene/DefaultLights.h"

namespace {
constexpr uint32_t White = 0x00FFFFFF;
}  // namespace

void SetDefaultLights(RTRendererLight* defaultLights, const SCENE_CAMERA_INFO& camera) {
  // Only the listed fields are set; the rest keep what they held, which is
  // zero from Initialize, and the shadow fields of light 1 stay with its map.
  RTRendererLight& eyeLight = defaultLights[0];
  eyeLight.number = 0;
  eyeLight.definition.definitionNumber = 0;
  eyeLight.definition.type = 0;  // point: a dim light at the eye
  eyeLight.definition.color = White;
  eyeLight.definition.flags = LightEnabled | LightDiffuse;
  eyeLight.definition.intensity = 7;
  eyeLight.definition.position = CameraPositionInWorld(camera);

  RTRendererLight& sun = defaultLights[1];
  sun.number = 1;
  sun.definition.definitionNumber = 1;
  sun.definition.type = 2;  // direct, from a fixed direction
  sun.definition.color = White;
  sun.definition.flags = LightEnabled | LightDiffuse | LightCastsShadows;
  sun.definition.intensity = 20;
  sun.definition.position = {-50.0f, -50.0f, 100.0f};
  sun.definition.target = {0.0f, 0.0f, 0.0f};
}

bool FollowCameraWithDefaultLight(RTRendererLight* defaultLights, const SCENE_CAMERA_INFO& camera) {
  // Only a full rebuild sets the default lights up. A switch from custom to
  // default lighting without a model change finds them never set, and the
  // scene would render unlit: they are set up here then.
  if (!(defaultLights[1].definition.flags & LightEnabled)) {
    SetDefaultLights(defaultLights, camera);
    return true;
  }
  const SCENE_VERTEX_XYZ eye = CameraPositionInWorld(camera);
  // Bytewise, so that a position that only compares equal (0 and -0) still
  // counts as a move, and a not-a-number does not count as one forever.
  if (std::memcmp(&eye, &defaultLights[0].definition.position, sizeof(eye)) == 0) return false;
  defaultLights[0].definition.position = eye;
  return true;
}

bool TestCameraUnderCover(const RT_RENDER_ENGINE& engine, const SCENE_VERTEX_XYZ& eye) {
  const SCENE_VERTEX_XYZ_64 origin{eye.x, eye.y, eye.z};
  const SCENE_VERTEX_XYZ_64 up{0.0, 0.0, 1.0};
  const SCENE_VERTEX_XYZ_64 inverseUp = InverseDirection(up);
  SWRayIntersectionResult result{};
  return engine.IntersectSWGeometry(origin, up, inverseUp, result);
}

void SetHeadlight(RTRendererLight& headlight, const MODE_RENDER_OPTIONS& options,
                  const SCENE_CAMERA_INFO& camera) {
  SCENE_LIGHT_DEFINITION& definition = headlight.definition;
  const int16_t level = options.GetHeadlightLightLevel();
  if (!options.IsHeadlightOn() || level == 0) {
    definition.flags = static_cast<uint16_t>(definition.flags & ~LightEnabled);
    return;
  }
  definition.flags = static_cast<uint16_t>(definition.flags | LightEnabled);
  definition.position = CameraPositionInWorld(camera);
  definition.intensity = level;  // tenths, as the light record keeps them
}
