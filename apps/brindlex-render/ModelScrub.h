// Repairs to a scene as the model reader produced it, before its
// post-processing: vertices that are not finite numbers go with their
// triangles, and unusable normals are dropped so that they are made anew.
#pragma once

#include "ImportGuard.h"

struct aiScene;
struct aiMesh;

// Counts what it did in `facts`.
void ScrubScene(aiScene* scene, ImportFacts& facts);
void ScrubMesh(aiMesh& mesh, ImportFacts& facts);
