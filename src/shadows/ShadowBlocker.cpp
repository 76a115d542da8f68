// Two fixed thresholds decide whether a surface stops a shadow ray: the material's opacity level, and for a
// transparent texture the alpha of the texel that was hit.
#include "engine/BrindlexViewRTRenderEngine.h"
#include "scene/SWMeshTable.h"
#include "shading/HitGeometry.h"
#include "shadows/ShadowBlocker.h"
#include "host/MaterialTree.h"
#include "textures/SWTexture.h"
#include "host/TextureLink.h"

namespace {
// A material below this opacity level (percent) lets light through.
constexpr float BlockingOpacityLevel = 69.0f;
// A texel with less alpha than this lets light through.
constexpr double BlockingAlpha = 0.69;
}  // namespace

BlockerKind ClassifyBlocker(const RT_RENDER_ENGINE& engine, const BlockerTables& tables,
                            const SWRayIntersectionResult& hit) {
  SWHitSurface surface;
  const SWHitSurfaceStatus status = ResolveHitSurface(tables.meshTables, tables.materials, hit, surface);
  if (status == SWHitSurfaceStatus::NoSurface) return BlockerKind::Unresolved;
  const TEXTURE_LINK* link = surface.material->material->GetTextureLink();
  if (!link) return BlockerKind::Unresolved;

  if (link->GetOpacityLevel() < BlockingOpacityLevel) return BlockerKind::SeeThrough;
  if (!link->IsTransparent()) return BlockerKind::Blocks;
  const uint32_t textureIndex = surface.material->textureIndex;
  const std::vector<SWTexture*>& textures = tables.textures;
  if (textureIndex >= textures.size() || !textures[textureIndex] || !textures[textureIndex]->HasImage())
    return BlockerKind::Blocks;
  // Without its vertices the texel cannot be found, and the opacity alone
  // has already said that the surface blocks.
  if (status != SWHitSurfaceStatus::Resolved) return BlockerKind::Blocks;

  const double weightB = hit.weightB;
  const double weightC = hit.weightC;
  double u = 0.0, v = 0.0;
  InterpolateTextureCoordinates(surface.vertices[0], surface.vertices[1], surface.vertices[2], weightB,
                                weightC, 1.0 - weightB - weightC, u, v);
  SCENE_VERTEX_XYZW texel{0.0f, 0.0f, 0.0f, 0.0f};
  engine.SampleSWTexture(textureIndex, static_cast<float>(u), static_cast<float>(v), 0.0f, 0.0f, 0.0f, 0.0f,
                         texel);
  return texel.w < BlockingAlpha ? BlockerKind::SeeThrough : BlockerKind::Blocks;
}
