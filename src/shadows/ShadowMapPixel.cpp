// The value of one shadow-map pixel: the depth halfway between the first
// two surfaces that block the pixel's ray, and its square. Halfway behind
// the first blocker, so that a lit surface never shadows itself and the
// look-up needs no depth bias.
#include "engine/BrindlexViewRTRenderEngine.h"
#include "scene/SWMeshTable.h"
#include "shadows/SWShadowMap.h"
#include "shading/HitGeometry.h"
#include "host/MaterialTree.h"
#include "shadows/ShadowMapGeometry.h"
#include "host/TextureLink.h"
#include "lighting/VectorOps.h"
#include "host/Numbers.h"

using namespace vector64;

namespace {
// A surface blocks when its opacity times its texel alpha reaches this.
constexpr double BlockingAlpha = 0.69;
// What a pixel holds that met no blocker at all.
constexpr double EmptyDepth = 1.7976931348623157e308;

// The texel's part in the alpha of a transparent material at the hit.
float TexelAlpha(const RT_RENDER_ENGINE& engine, const SWHitSurface& surface,
                 const SWRayIntersectionResult& hit, const PixelRaySample& ray,
                 const SCENE_VERTEX_XYZ_64& hitPoint) {
  const SCENE_VERTEX* v = surface.vertices;
  const double weightB = hit.weightB, weightC = hit.weightC;
  double u = 0.0, w = 0.0;
  InterpolateTextureCoordinates(v[0], v[1], v[2], weightB, weightC, 1.0 - weightB - weightC, u, w);
  double dudx = 0.0, dudy = 0.0, dvdx = 0.0, dvdy = 0.0;
  if (ray.flags & PixelRayDifferentialsValid) {
    const SCENE_VERTEX_XYZ_64 normal = CalculateTriangleNormal(v[0], v[1], v[2]);
    SCENE_VERTEX_XYZ_64 dPdx, dPdy;
    CalculateRayDifferentials(v[0], v[1], v[2], normal, ray.xOrigin, ray.xDirection, ray.yOrigin,
                              ray.yDirection, hitPoint, dPdx, dPdy, dudx, dudy, dvdx, dvdy);
  }
  SCENE_VERTEX_XYZW color{0.0f, 0.0f, 0.0f, 0.0f};
  engine.SampleSWTexture(surface.material->textureIndex, static_cast<float>(u), static_cast<float>(w),
                         static_cast<float>(dudx), static_cast<float>(dvdx), static_cast<float>(dudy),
                         static_cast<float>(dvdy), color);
  return color.w;
}

// How much the surface at `hit`, resolved into `surface` with `status`,
// stops light: opacity times texel alpha.
// A surface that cannot be traced to its material, an invisible one, and
// one behind an area light are 0.0: the map looks through them.
float SurfaceAlpha(const RT_RENDER_ENGINE& engine, const SWHitSurfaceStatus status,
                   const SWHitSurface& surface, const RTRendererLight& light,
                   const SWRayIntersectionResult& hit, const PixelRaySample& ray,
                   const SCENE_VERTEX_XYZ_64& hitPoint) {
  if (light.definition.type == 3 && !InFrontOfAreaLight(light.definition, hitPoint)) return 0.0f;
  if (status == SWHitSurfaceStatus::NoSurface) return 0.0f;
  const MATERIAL_3D_NODE* material = surface.material->material;
  const TEXTURE_LINK* link = material->GetTextureLink();
  if (!link || !material->IsVisible()) return 0.0f;
  float alpha = static_cast<float>(link->GetOpacityLevel() / 100.0);
  if (alpha > 0.0f && link->IsTransparent() && status == SWHitSurfaceStatus::Resolved)
    alpha = alpha * TexelAlpha(engine, surface, hit, ray, hitPoint);
  return alpha;
}
}  // namespace

// Each surface on the ray is one turn of the loop: any number of
// see-through surfaces costs no stack.
void RT_RENDER_ENGINE::ProcessShadowmapPixel(bool hit, const SWRayIntersectionResult& result,
                                             PixelRaySample& sample, SW_PIXEL_G64R64F& pixel,
                                             bool haveFirstDepth, double firstDepth,
                                             const RTRendererLight* light, uint32_t /*level*/,
                                             uint32_t /*reserved*/) const {
  if (hit && light) {
    PixelRaySample ray = sample;
    SWRayIntersectionResult current = result;
    while (hit) {
      const SCENE_VERTEX_XYZ_64 hitPoint = GetPointOnRay(ray.origin, ray.direction, current.distance);
      SWHitSurface surface;
      const SWHitSurfaceStatus status = ResolveHitSurface(meshTables, swMaterials, current, surface);
      const float alpha = SurfaceAlpha(*this, status, surface, *light, current, ray, hitPoint);
      if (static_cast<double>(alpha) >= BlockingAlpha) {
        const double depth = ShadowMapDepth(*light, hitPoint);
        if (haveFirstDepth) {
          const double middle = (depth + firstDepth) / 2.0;
          pixel.depth = middle;
          pixel.depthSquared = middle * middle;
          return;
        }
        haveFirstDepth = true;
        firstDepth = depth;
      }
      ray.origin = Add(hitPoint, Scale(ray.direction, SurfaceOffset));
      current = SWRayIntersectionResult{};
      hit = IntersectSWGeometry(ray.origin, ray.direction, ray.inverseDirection, current);
    }
  }
  if (haveFirstDepth && light) {
    // One blocker, then open space: the second depth is the end of the
    // range. For a point light the square overflows to infinity, which the
    // readers of the map allow for.
    const double middle =
        light->definition.type == 0 ? firstDepth + (EmptyDepth - firstDepth) / 2.0 : (1.0 + firstDepth) / 2.0;
    pixel.depth = middle;
    pixel.depthSquared = middle * middle;
    return;
  }
  pixel.depth = EmptyDepth;
  pixel.depthSquared = EmptyDepth;
}
