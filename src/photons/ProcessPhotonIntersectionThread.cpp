// What a surface does to a photon: stores it, lets it through, scatters it
// or ends it. The photon is followed from surface to surface in a loop, so
// that a long chain of see-through surfaces costs no stack; every step
// starts 0.001 beyond the last surface, so the chain ends with the scene.
#include "host/BrindlexViewModel.h"
#include "engine/BrindlexViewRTRenderEngine.h"
#include "scene/SWMeshTable.h"
#include "shading/HitGeometry.h"
#include "photons/PhotonEmission.h"
#include "pipeline/RandomNumberGenerator.h"
#include "shading/ShadingLevels.h"
#include "photons/ShootPhotonsThreadData.h"
#include "shading/SurfaceMaterial.h"
#include "lighting/VectorOps.h"
#include "host/Numbers.h"

using namespace vector64;

namespace {
// A scattering photon goes on with this share of the diffuse level.
constexpr double ScatterShare = 0.9;

bool IsNegligible(const SCENE_VERTEX_XYZ_64& v) {
  return std::fabs(v.x) <= NearZero && std::fabs(v.y) <= NearZero && std::fabs(v.z) <= NearZero;
}

// Takes a row of the list by the atomic counter. A row at or past the limit
// is not stored; the counter goes on growing so that the jobs see it full.
void StorePhoton(std::vector<SWPhoton>& photons, PhotonCounter& counter, uint32_t limit,
                 const SWPhoton& photon) {
  const uint64_t row = counter.fetch_add(1);
  if (row < limit && row < photons.size()) photons[row] = photon;
}
}  // namespace

void RT_RENDER_ENGINE::ProcessPhotonIntersectionThread(SWRT_SHOOT_PHOTONS_THREAD_DATA& data, bool hit,
                                                       SWRayIntersectionResult result,
                                                       SCENE_VERTEX_XYZ_64& origin,
                                                       SCENE_VERTEX_XYZ_64& direction,
                                                       SCENE_VERTEX_XYZ_64& inverseDirection,
                                                       SCENE_VERTEX_XYZ_64& energy, uint32_t bounce) {
  if (!data.options || !meshTables || !data.directCount || !data.indirectCount || !data.generator) return;
  const MODE_RENDER_OPTIONS& options = *data.options;
  if (!options.DoLighting()) return;
  RT_RANDOM_NUMBER_GENERATOR& generator = *data.generator;
  SCENE_VERTEX_XYZ_64 rayOrigin = origin, rayDirection = direction, rayInverse = inverseDirection;
  SCENE_VERTEX_XYZ_64 rayEnergy = energy;

  while (hit) {
    SWHitSurface surface;
    if (ResolveHitSurface(meshTables, swMaterials, result, surface) != SWHitSurfaceStatus::Resolved) return;
    const SWMaterialEntry& row = *surface.material;
    const TEXTURE_LINK* link = row.material->GetTextureLink();
    if (!link) return;
    const SCENE_VERTEX& v0 = surface.vertices[0];
    const SCENE_VERTEX& v1 = surface.vertices[1];
    const SCENE_VERTEX& v2 = surface.vertices[2];
    const SCENE_VERTEX_XYZ_64 point = GetPointOnRay(rayOrigin, rayDirection, result.distance);
    const double hitWeight = 1.0 - result.weightB - result.weightC;

    // Face opacity is the view's affair: photons see only the material's.
    float alpha = row.material->IsVisible() ? PercentLevel(link->GetOpacityLevel()) : 0.0f;
    const bool textured =
        alpha > 0 && !UsesMaterialColor(*link, options) && IsUsableTexture(textures, row.textureIndex);
    double textureU = 0.0, textureV = 0.0;
    SCENE_VERTEX_XYZW texel = {0.0f, 0.0f, 0.0f, 0.0f};
    if (textured) {
      InterpolateTextureCoordinates(v0, v1, v2, result.weightB, result.weightC, hitWeight, textureU,
                                    textureV);
      SampleSWTexture(row.textureIndex, static_cast<float>(textureU), static_cast<float>(textureV), 0.0f,
                      0.0f, 0.0f, 0.0f, texel);
      alpha *= texel.w;
    }
    if (!(alpha > 0)) {
      // Passes through and leaves nothing on this surface.
      if (!kdTrees) return;
      rayOrigin = Add(point, Scale(rayDirection, SurfaceOffset));
      hit = IntersectSWGeometry(rayOrigin, rayDirection, rayInverse, result);
      continue;
    }

    const bool direct = bounce == 0;
    StorePhoton(direct ? directPhotons : indirectPhotons, direct ? *data.directCount : *data.indirectCount,
                direct ? data.directLimit : data.indirectLimit, {point, rayDirection, rayEnergy});

    const bool transmit = alpha < 1.0f && generator.RandomUnit() > alpha;
    const float diffuse = PercentLevel(link->GetDiffuseLevel());
    // Greater than: with the diffuse level at 100 one photon in ten goes on.
    const bool scatter = !transmit && bounce < options.GetNumberOfIndirectBounces() &&
                         generator.RandomUnit() > diffuse * ScatterShare;
    if (!transmit && !scatter) return;

    const SCENE_VERTEX_XYZ materialColor = MaterialColor(*link, options);
    const SCENE_VERTEX_XYZ base = textured ? SCENE_VERTEX_XYZ{1.0f, 1.0f, 1.0f} : materialColor;
    const SCENE_VERTEX_XYZ tint = {base.x * diffuse, base.y * diffuse, base.z * diffuse};
    SCENE_VERTEX_XYZ_64 nextEnergy = {rayEnergy.x * tint.x, rayEnergy.y * tint.y, rayEnergy.z * tint.z};
    if (textured) nextEnergy = {nextEnergy.x * texel.x, nextEnergy.y * texel.y, nextEnergy.z * texel.z};
    if (IsNegligible(nextEnergy)) return;

    SCENE_VERTEX_XYZ_64 nextDirection = rayDirection;
    if (scatter) {
      if (!textured)
        InterpolateTextureCoordinates(v0, v1, v2, result.weightB, result.weightC, hitWeight, textureU,
                                      textureV);
      SCENE_VERTEX_XYZ_64 normal;
      CalculateIntersectionNormal(v0, v1, v2, result.weightB, result.weightC, hitWeight, rayDirection,
                                  CalculateTriangleNormal(v0, v1, v2), options.DoBumpMapping(),
                                  PercentLevel(link->GetReliefDepthLevel()), row.normalMapIndex, textureU,
                                  textureV, 0.0, 0.0, 0.0, 0.0, normal);
      if (IsNegligible(normal) || !DrawDirectionAround(generator, normal, 0.0, false, nextDirection)) return;
      ++bounce;
    }
    rayOrigin = Add(point, Scale(nextDirection, SurfaceOffset));
    rayDirection = nextDirection;
    rayInverse = InverseDirection(nextDirection);
    rayEnergy = nextEnergy;
    hit = IntersectSWGeometry(rayOrigin, rayDirection, rayInverse, result);
  }
}
