// The shading normal of a hit: smooth vertex normals, the relief map's
// tilt in the tangent frame, and a turn toward the side the ray came from.
#include <cmath>

#include "host/BrindlexViewMath.h"
#include "engine/BrindlexViewRTRenderEngine.h"
#include "textures/SWTexture.h"
#include "lighting/VectorOps.h"

namespace {
SCENE_VERTEX_XYZ_64 Interpolate(const SCENE_VERTEX_XYZ& a, const SCENE_VERTEX_XYZ& b,
                                const SCENE_VERTEX_XYZ& c, double weightA, double weightB, double weightC) {
  using namespace vector64;
  return Add(Add(Scale(Widen(a), weightA), Scale(Widen(b), weightB)), Scale(Widen(c), weightC));
}

// A mesh without tangents carries not-a-number in them; it cannot hold a
// tangent frame, so it shades with its vertex normals alone.
bool HasTangents(const SCENE_VERTEX& v0, const SCENE_VERTEX& v1, const SCENE_VERTEX& v2) {
  for (const SCENE_VERTEX* v : {&v0, &v1, &v2}) {
    const SCENE_VERTEX_XYZ t = v->tangent;
    if (std::isnan(t.x) || std::isnan(t.y) || std::isnan(t.z)) return false;
  }
  return true;
}

// The map's colour decoded to a tangent-space normal, its z flattened by
// the relief depth so that a deeper relief tilts further.
SCENE_VERTEX_XYZ_64 TangentSpaceNormal(const SCENE_VERTEX_XYZW& color, double reliefDepth) {
  SCENE_VERTEX_XYZ_64 p = {2.0 * color.x - 1.0, 2.0 * color.y - 1.0, 2.0 * color.z - 1.0};
  p.z = p.z * (1.1 - reliefDepth) / 1.1;
  return vector64::UnitOf(p);
}

// p.x T + p.y B + p.z N: T, B and N are the first three stored rows of the
// matrix, which is how the maths library reads an axis frame.
SCENE_VERTEX_XYZ_64 ToSurface(const SCENE_VERTEX_XYZ_64& tangent, const SCENE_VERTEX_XYZ_64& normal,
                              const SCENE_VERTEX_XYZ_64& p) {
  SCENE_VERTEX_XYZ_64 bitangent;
  CrossProduct(&tangent, &normal, &bitangent);
  SCENE_MATRIX_64 frame{};
  const SCENE_VERTEX_XYZ_64 axes[3] = {tangent, bitangent, normal};
  for (int row = 0; row < 3; ++row) {
    frame.m[row * 4 + 0] = axes[row].x;
    frame.m[row * 4 + 1] = axes[row].y;
    frame.m[row * 4 + 2] = axes[row].z;
  }
  SCENE_VERTEX_XYZ_64 tilted;
  TransformPoint3D_M33(&frame, &p, &tilted);
  return vector64::UnitOf(tilted);
}
}  // namespace

void RT_RENDER_ENGINE::CalculateIntersectionNormal(const SCENE_VERTEX& v0, const SCENE_VERTEX& v1,
                                                   const SCENE_VERTEX& v2, double weightB, double weightC,
                                                   double hitWeight, const SCENE_VERTEX_XYZ_64& rayDirection,
                                                   const SCENE_VERTEX_XYZ_64& geometricNormal, bool doBump,
                                                   double reliefDepth, uint32_t reliefTextureId, double u,
                                                   double v, double dudx, double dvdx, double dudy,
                                                   double dvdy, SCENE_VERTEX_XYZ_64& normal) const {
  normal = vector64::UnitOf(Interpolate(v0.normal, v1.normal, v2.normal, hitWeight, weightB, weightC));

  const bool relief = doBump && reliefDepth > 0 && reliefTextureId < textures.size() &&
                      textures[reliefTextureId] && HasTangents(v0, v1, v2);
  if (relief) {
    SCENE_VERTEX_XYZW color = {0.0f, 0.0f, 0.0f, 0.0f};
    SampleSWTexture(reliefTextureId, static_cast<float>(u), static_cast<float>(v), static_cast<float>(dudx),
                    static_cast<float>(dvdx), static_cast<float>(dudy), static_cast<float>(dvdy), color);
    const SCENE_VERTEX_XYZ_64 p = TangentSpaceNormal(color, reliefDepth);
    const SCENE_VERTEX_XYZ_64 tangent =
        vector64::UnitOf(Interpolate(v0.tangent, v1.tangent, v2.tangent, hitWeight, weightB, weightC));
    normal = ToSurface(tangent, normal, p);
  }

  // The geometric normal decides the side: an interpolated normal may lean
  // away from a ray that still meets the front of the triangle.
  if (vector64::Dot(geometricNormal, rayDirection) > 0) normal = vector64::Scale(normal, -1.0);
}
