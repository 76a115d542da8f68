// Bringing the light table up to date from the sets of light numbers that
// the host's notifications filled since the last update. Every light that
// changes in the table is added to `dirtyShadowLights`, so that its shadow
// map is drawn again.
#pragma once

#include <cstdint>
#include <set>

#include "scene/LightTable.h"

class SCENE_LIGHTS;

// Adds to `removedLights` every light of `table` that `lights` no longer
// knows. Without either there is nothing to compare.
void NoteLostLights(const RTLightTable* table, SCENE_LIGHTS* lights, std::set<int32_t>& removedLights);
// Removes every light of `removedLights` from `table` and marks it dirty;
// empties the set.
void DrainRemovedLights(RTLightTable* table, std::set<int32_t>& removedLights,
                        std::set<int32_t>& dirtyShadowLights);
// Copies every light of `modifiedLights` that `lights` still knows into
// `table` and marks it dirty; empties the set. Without `lights` or a table
// the set waits.
void DrainModifiedLights(RTLightTable* table, SCENE_LIGHTS* lights, std::set<int32_t>& modifiedLights,
                         std::set<int32_t>& dirtyShadowLights);
// While `active`, the alternate light stands in the table for its number;
// it is applied after the modified lights.
void ApplyAlternateLight(RTLightTable* table, const RTRendererLight* alternateLight, bool active,
                         std::set<int32_t>& dirtyShadowLights);
