#include "shadows/ShadowMapGeometry.h"

#include <cmath>
#include <numbers>

#include "lighting/VectorOps.h"

using namespace vector64;

double ShadowMapDepth(const RTRendererLight& light, const SCENE_VERTEX_XYZ_64& point) {
  if (light.definition.type == 0) {
    const SCENE_VERTEX_XYZ_64 position = Widen(light.definition.position);
    return Distance(&position, &point);
  }
  SCENE_VERTEX_XYZ_64 eye;
  TransformPoint3D(&light.shadowView, &point, &eye);
  return -(eye.z + light.shadowNear) / (light.shadowFar - light.shadowNear);
}

float AreaLightReach(const SCENE_LIGHT_DEFINITION& light) {
  const SCENE_VERTEX_XYZ u = light.axisU, v = light.axisV;
  const SCENE_VERTEX_XYZ diagonal{u.x + v.x, u.y + v.y, u.z + v.z};
  return Magnitude(&diagonal) / std::tan(static_cast<float>(light.angle * std::numbers::pi / 180.0));
}

SCENE_VERTEX_XYZ_64 AreaLightBack(const SCENE_LIGHT_DEFINITION& light) {
  return UnitOf(Subtract(Widen(light.position), Widen(light.target)));
}

bool InFrontOfAreaLight(const SCENE_LIGHT_DEFINITION& light, const SCENE_VERTEX_XYZ_64& point) {
  const SCENE_VERTEX_XYZ_64 position = Widen(light.position);
  const SCENE_VERTEX_XYZ_64 back = AreaLightBack(light);
  const SCENE_VERTEX_XYZ_64 apex = Add(position, Scale(back, AreaLightReach(light)));
  const SCENE_VERTEX_XYZ_64 toLight = UnitOf(Subtract(position, point));
  const SCENE_VERTEX_XYZ_64 toApex = UnitOf(Subtract(apex, point));
  return Dot(toLight, back) > 0.0 && Dot(toApex, back) > 0.0;
}
