#include "ModelScrub.h"

#include <assimp/scene.h>

#include <cmath>
#include <vector>

namespace {

bool Finite(const aiVector3D& v) {
  return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z);
}

// A normal that shading can use: finite and not of zero length.
bool UsableNormal(const aiVector3D& n) {
  return Finite(n) && n.SquareLength() > 1e-12f;
}

}  // namespace

void ScrubMesh(aiMesh& mesh, ImportFacts& facts) {
  std::vector<bool> bad(mesh.mNumVertices, false);
  unsigned long badCount = 0;
  unsigned int firstGood = mesh.mNumVertices;
  for (unsigned int i = 0; i < mesh.mNumVertices; ++i) {
    bad[i] = !Finite(mesh.mVertices[i]);
    badCount += bad[i];
    if (!bad[i] && firstGood == mesh.mNumVertices) firstGood = i;
  }
  if (badCount > 0) {
    facts.badVertices += badCount;
    // Faces that use a bad vertex go; the vertex itself takes the place of
    // a good one, so that no later step trips over it, and belongs to no
    // face any more (the importer leaves unused vertices out).
    const aiVector3D stand = firstGood < mesh.mNumVertices ? mesh.mVertices[firstGood] : aiVector3D();
    for (unsigned int i = 0; i < mesh.mNumVertices; ++i)
      if (bad[i]) mesh.mVertices[i] = stand;
    unsigned int kept = 0;
    for (unsigned int f = 0; f < mesh.mNumFaces; ++f) {
      aiFace& face = mesh.mFaces[f];
      bool good = true;
      for (unsigned int k = 0; k < face.mNumIndices; ++k)
        good = good && face.mIndices[k] < mesh.mNumVertices && !bad[face.mIndices[k]];
      if (!good) {
        facts.droppedTriangles += face.mNumIndices >= 3 ? face.mNumIndices - 2 : 0;
        continue;
      }
      if (kept != f) std::swap(mesh.mFaces[kept], face);
      ++kept;
    }
    // A mesh needs a face to stay valid: a lone point of one good vertex,
    // which the import drops with the other points.
    if (kept == 0) {
      aiFace& point = mesh.mFaces[0];
      delete[] point.mIndices;
      point.mNumIndices = 1;
      point.mIndices = new unsigned int[1]{firstGood < mesh.mNumVertices ? firstGood : 0};
      kept = 1;
      mesh.mPrimitiveTypes = aiPrimitiveType_POINT;
    }
    // Faces past `kept` still own their indices and are freed with the
    // array; only the count shrinks.
    for (unsigned int f = kept; f < mesh.mNumFaces; ++f) {
      delete[] mesh.mFaces[f].mIndices;
      mesh.mFaces[f].mIndices = nullptr;
      mesh.mFaces[f].mNumIndices = 0;
    }
    mesh.mNumFaces = kept;
  }
  if (mesh.mNormals) {
    bool usable = true;
    for (unsigned int i = 0; i < mesh.mNumVertices && usable; ++i)
      usable = bad[i] || UsableNormal(mesh.mNormals[i]);
    if (!usable) {
      delete[] mesh.mNormals;
      mesh.mNormals = nullptr;
      ++facts.remadeNormals;
    }
  }
}

void ScrubScene(aiScene* scene, ImportFacts& facts) {
  for (unsigned int m = 0; m < scene->mNumMeshes; ++m)
    if (scene->mMeshes[m]) ScrubMesh(*scene->mMeshes[m], facts);
}
