// An area light: a rectangular opening around `position`, spanned by the
// half-extents axisU and axisV, lit from a virtual point behind it on the
// axis from target to position. A surface point is lit when its line to
// that point passes through the rectangle.
#include <cmath>
#include <numbers>

#include "engine/BrindlexViewRTRenderEngine.h"
#include "lighting/LightTerms.h"
#include "lighting/VectorOps.h"

using namespace vector64;

namespace {
// The soft rim is this share of the shorter half-extent, on both axes.
constexpr double SoftEdgeShare = 0.45;

// `attenuation` faded towards the rectangle's edges, down to 0 at the edge.
double FadeTowardsEdges(double attenuation, double halfU, double halfV, double offsetU, double offsetV) {
  const double rim = SoftEdgeShare * (halfU > halfV ? halfV : halfU);
  double fadeV = 1.0;
  if (offsetV > halfV - rim) fadeV = (halfV - offsetV) / (halfV - (halfV - rim));
  double fadeU = 1.0;
  if (offsetU > halfU - rim) fadeU = (halfU - offsetU) / (halfU - (halfU - rim));
  return attenuation * fadeV * fadeU;
}
}  // namespace

void RT_RENDER_ENGINE::AddAreaLightContributionToPixel(
    const RTRendererLight* light, const MODE_RENDER_OPTIONS* options, RT_RANDOM_NUMBER_GENERATOR* generator,
    const SCENE_VERTEX_XYZ_64& point, const SCENE_VERTEX_XYZ_64& normal,
    const SCENE_VERTEX_XYZ_64& rayDirection, const SCENE_VERTEX_XYZ& diffuseColor,
    const SCENE_VERTEX_XYZ& specularColor, uint32_t depth, SCENE_VERTEX_XYZ& diffuseSum,
    SCENE_VERTEX_XYZ& specularSum) const {
  if (!LightMayShine(light, options, 3)) return;
  const SCENE_LIGHT_DEFINITION& definition = light->definition;
  const SCENE_VERTEX_XYZ_64 axisU = Widen(definition.axisU);
  const SCENE_VERTEX_XYZ_64 axisV = Widen(definition.axisV);
  const double diagonal = Length(Add(axisU, axisV));
  const double halfU = Length(axisU);
  const double halfAngle = definition.angle * std::numbers::pi / 180.0;
  const float tangent = std::tan(static_cast<float>(halfAngle));
  // A zero angle puts the virtual point infinitely far behind the opening
  // and a zero width puts it on the opening, where the angle it sees is a
  // division by zero: such a light has no shape to shine through.
  if (tangent == 0.0f || halfU == 0.0) return;
  const double backDistance = halfU / tangent;
  const double maxAngle = std::atan(diagonal / backDistance);

  const SCENE_VERTEX_XYZ_64 centre = Widen(definition.position);
  const SCENE_VERTEX_XYZ_64 axis = UnitOf(Subtract(centre, Widen(definition.target)));
  const SCENE_VERTEX_XYZ_64 apex = Add(centre, Scale(axis, backDistance));
  const SCENE_VERTEX_XYZ_64 toApex = UnitOf(Subtract(apex, point));
  const SCENE_VERTEX_XYZ_64 toLight = Subtract(centre, point);
  const double axial = Dot(toLight, axis);
  const double distance = Length(toLight);
  const SCENE_VERTEX_XYZ_64 direction = UnitOf(toLight);

  LightTerm term{};
  // The diffuse cosine looks at the virtual point; the Phong factor below
  // at the centre.
  term.lambert = Dot(normal, toApex);
  if (!(term.lambert > 0.0)) return;
  const double coneCenter = Dot(direction, axis);
  const double coneApex = Dot(toApex, axis);
  if (!(coneCenter > 0.0) || !(coneApex > 0.0) || !(coneApex > std::cos(maxAngle))) return;

  const double t = -(Dot(axis, point) - Dot(axis, centre)) / coneApex;
  const SCENE_VERTEX_XYZ_64 onOpening = Add(point, Scale(toApex, t));
  const SCENE_VERTEX_XYZ_64 offset = Subtract(onOpening, centre);
  const double offsetU = std::fabs(Dot(offset, UnitOf(axisU)));
  if (halfU < offsetU) return;
  const double halfV = Length(axisV);
  const double offsetV = std::fabs(Dot(offset, UnitOf(axisV)));
  if (halfV < offsetV) return;

  // A shadowed point goes on and adds zeros: this type has no early exit.
  term.visibility =
      GetLightVisibilityThroughShadow(light, options, generator, onOpening, point, depth, distance);
  term.attenuation = FalloffAttenuation(definition, axial * axial);
  if (definition.flags & LightSoftEdge)
    term.attenuation = FadeTowardsEdges(term.attenuation, halfU, halfV, offsetU, offsetV);

  term.specular = SpecularFactor(direction, normal, rayDirection);
  term.intensity = LightIntensity(definition);
  AccumulateLight(definition, term, diffuseColor, specularColor, diffuseSum, specularSum);
}
