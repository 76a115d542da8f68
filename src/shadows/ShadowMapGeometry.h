// Where a light's shadow map stands: the depth that a map records for a
// point, and the apex behind an area light from which its map is drawn.
#pragma once

#include "scene/LightTable.h"
#include "host/SceneRecords.h"

// The depth of a world point in the light's map: for a point light its
// distance from the light, otherwise 0.0 at the map's near plane and 1.0
// at its far plane, through the light's shadow view.
double ShadowMapDepth(const RTRendererLight& light, const SCENE_VERTEX_XYZ_64& point);

// How far behind an area light its map's eye stands, so that a cone of the
// light's half-angle passes through the light's rectangle. The tangent is
// taken in single precision.
float AreaLightReach(const SCENE_LIGHT_DEFINITION& light);
// The unit vector from the target back through the light.
SCENE_VERTEX_XYZ_64 AreaLightBack(const SCENE_LIGHT_DEFINITION& light);
// Whether `point` lies in front of the light's plane and of the apex, so
// that it can block the light at all.
bool InFrontOfAreaLight(const SCENE_LIGHT_DEFINITION& light, const SCENE_VERTEX_XYZ_64& point);

// The light whose map `number` names: a light of the table under custom
// lighting, otherwise one of the two default lights. Null when there is
// none.
RTRendererLight* FindShadowMapLight(RTLightTable* lightTable, RTRendererLight* defaultLights, int32_t number,
                                    bool customLighting);
