// The engine's own copies of the host's material trees.
#pragma once

#include <cstdint>
#include <map>

class ENVIRONMENT_3D_PROJECT;
class ENVIRONMENT_3D_VIEW;
class MATERIAL_3D_NODE;

// Deletes the trees of `roots` and copies the host's roots in their place
// (key by key; a null root leaves its key out). Without a project or view
// `roots` stays empty.
void ReplaceMaterialRoots(std::map<uint32_t, MATERIAL_3D_NODE*>& roots, ENVIRONMENT_3D_PROJECT* project,
                          ENVIRONMENT_3D_VIEW* view, unsigned int materialOption);
