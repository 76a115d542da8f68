// The per-ray hit facts of a shading group, worked out on first use.
#include "shading/ShadingGroup.h"

#include "host/BrindlexViewModel.h"
#include "shading/ShadingCounters.h"
#include "shading/ShadingLevels.h"
#include "scene/SWMeshTable.h"

void ShadingGroup::TakeSurface(const SWHitSurface& surface, const TEXTURE_LINK* surfaceLink) {
  for (int v = 0; v < 3; ++v) triangleVertices[v] = surface.vertices[v];
  row = surface.material;
  material = surface.material->material;
  link = surfaceLink;
  for (uint32_t i = 0; i < count; ++i) rays[i].hitWeight = 1.0 - results[i]->weightB - results[i]->weightC;
}

const SCENE_VERTEX_XYZ_64& ShadingGroup::GeometricNormal() {
  if (!knowsGeometricNormal) {
    geometricNormal = CalculateTriangleNormal(triangleVertices[0], triangleVertices[1], triangleVertices[2]);
    knowsGeometricNormal = true;
  }
  return geometricNormal;
}

const SCENE_VERTEX_XYZ_64& ShadingGroup::HitPoint(uint32_t i) {
  ShadingRay& ray = rays[i];
  if (!(ray.known & ShadingRay::KnowsPoint)) {
    const PixelRaySample& sample = *samples[i];
    ray.hitPoint = GetPointOnRay(sample.origin, sample.direction, results[i]->distance);
    ray.known |= ShadingRay::KnowsPoint;
  }
  return ray.hitPoint;
}

const ShadingRay& ShadingGroup::TextureCoordinates(uint32_t i) {
  ShadingRay& ray = rays[i];
  if (!(ray.known & ShadingRay::KnowsCoordinates)) {
    const SWRayIntersectionResult& result = *results[i];
    InterpolateTextureCoordinates(triangleVertices[0], triangleVertices[1], triangleVertices[2],
                                  result.weightB, result.weightC, ray.hitWeight, ray.textureU, ray.textureV);
    ray.known |= ShadingRay::KnowsCoordinates;
  }
  return ray;
}

const ShadingRay& ShadingGroup::Differentials(uint32_t i) {
  ShadingRay& ray = rays[i];
  if (ray.known & ShadingRay::KnowsDifferentials) return ray;
  ray.dudx = ray.dvdx = ray.dudy = ray.dvdy = 0.0;
  if (HasDifferentials(i)) {
    const PixelRaySample& sample = *samples[i];
    CalculateRayDifferentials(triangleVertices[0], triangleVertices[1], triangleVertices[2],
                              GeometricNormal(), sample.xOrigin, sample.xDirection, sample.yOrigin,
                              sample.yDirection, HitPoint(i), ray.dPdx, ray.dPdy, ray.dudx, ray.dudy,
                              ray.dvdx, ray.dvdy);
  }
  ray.known |= ShadingRay::KnowsDifferentials;
  return ray;
}

const SCENE_VERTEX_XYZ_64& ShadingGroup::ShadingNormal(uint32_t i, double scale) {
  ShadingRay& ray = rays[i];
  if (ray.known & ShadingRay::KnowsNormal) return ray.shadingNormal;
  TextureCoordinates(i);
  Differentials(i);
  const SWRayIntersectionResult& result = *results[i];
  const double reliefDepth = PercentLevel(link->GetReliefDepthLevel());
  engine->CalculateIntersectionNormal(triangleVertices[0], triangleVertices[1], triangleVertices[2],
                                      result.weightB, result.weightC, ray.hitWeight, samples[i]->direction,
                                      GeometricNormal(), options->DoBumpMapping(), reliefDepth,
                                      row->normalMapIndex, ray.textureU * scale, ray.textureV * scale,
                                      ray.dudx, ray.dvdx, ray.dudy, ray.dvdy, ray.shadingNormal);
  ray.known |= ShadingRay::KnowsNormal;
  return ray.shadingNormal;
}

SCENE_VERTEX_XYZW ShadingGroup::SampleTexture() {
  ++ThreadShadingCounters().textureSamples;
  const ShadingRay& coordinates = TextureCoordinates(0);
  const ShadingRay& footprint = Differentials(0);
  SCENE_VERTEX_XYZW color = {0.0f, 0.0f, 0.0f, 0.0f};
  engine->SampleSWTexture(row->textureIndex, static_cast<float>(coordinates.textureU * textureScale),
                          static_cast<float>(coordinates.textureV * textureScale),
                          static_cast<float>(footprint.dudx), static_cast<float>(footprint.dvdx),
                          static_cast<float>(footprint.dudy), static_cast<float>(footprint.dvdy), color);
  return color;
}
