// How much of a light reaches a surface point: a hard shadow ray, a look-up
// in the light's shadow map, or in path tracing one shadow ray to a random
// point on the light, whose noise the passes average away.
#include <cmath>

#include "BrindlexViewRTRenderEngine.h"
#include "RandomNumberGenerator.h"
#include "RenderOptions.h"
#include "VectorOps.h"

using namespace vector64;

namespace {
constexpr double Pi = 3.141592653589793;
// A point light is sampled as a sphere of this radius.
constexpr double PointLightSampleRadius = 6.0;
// A spot light is sampled on a disc this far in front of it.
constexpr double SpotLightSampleDistance = 6.0;
// Half-angle of the cone a direct light is sampled in: a sun of 3 degrees.
constexpr double DirectLightCone = 0.05235987755982988;
// An axis within this of the z axis takes y as its helper axis.
constexpr double VerticalAxisLimit = 1e-7;

bool CastsShadows(const RTRendererLight* light) {
  return light && (light->definition.flags & LightCastsShadows);
}

// Shadows are off only for custom lighting that hides them; default
// lighting always casts them.
bool ShadowsHidden(const MODE_RENDER_OPTIONS& options) {
  return !options.DisplayShadows() && options.DoCustomLighting();
}

// A uniform point of the disc of `radius` around `centre`, at right angles
// to the unit `axis`.
SCENE_VERTEX_XYZ_64 SampleDisc(RT_RANDOM_NUMBER_GENERATOR& generator, double radius,
                               const SCENE_VERTEX_XYZ_64& centre, const SCENE_VERTEX_XYZ& axis) {
  const double r = radius * std::sqrt(generator.RandomUnit());
  const double theta = generator.RandomUnit() * 6.283185307179586;
  const SCENE_VERTEX_XYZ_64 onDisc{r * std::cos(theta), r * std::sin(theta), 0.0};

  SCENE_VERTEX_XYZ up{0.0f, 0.0f, 1.0f};
  if (std::fabs(axis.x) <= VerticalAxisLimit && std::fabs(axis.y) <= VerticalAxisLimit)
    up = {0.0f, 1.0f, 0.0f};
  SCENE_VERTEX_XYZ side;
  CrossProduct(&up, &axis, &side);
  GetUnitVector(&side, &side);
  CrossProduct(&axis, &side, &up);
  GetUnitVector(&up, &up);

  SCENE_MATRIX_64 frame{};
  const SCENE_VERTEX_XYZ* columns[3] = {&up, &side, &axis};
  for (int c = 0; c < 3; ++c) {
    frame.m[c * 4 + 0] = columns[c]->x;
    frame.m[c * 4 + 1] = columns[c]->y;
    frame.m[c * 4 + 2] = columns[c]->z;
  }
  frame.m[15] = 1.0;
  SCENE_MATRIX_64 translation;
  CalculateTranslationMatrix(&centre, &translation);
  SCENE_VERTEX_XYZ_64 turned, sample;
  TransformPoint3D(&frame, &onDisc, &turned);
  TransformPoint3D(&translation, &turned, &sample);
  return sample;
}

// position - axisU - axisV + axisV * 2a + axisU * 2b, in floats as the
// light stores them.
SCENE_VERTEX_XYZ_64 SampleRectangle(RT_RANDOM_NUMBER_GENERATOR& generator,
                                    const SCENE_LIGHT_DEFINITION& light) {
  const double a = generator.RandomUnit();
  const double b = generator.RandomUnit();
  const float twoA = static_cast<float>(2.0 * a);
  const float twoB = static_cast<float>(2.0 * b);
  const SCENE_VERTEX_XYZ p = light.position, u = light.axisU, v = light.axisV;
  const SCENE_VERTEX_XYZ sample{p.x - u.x - v.x + v.x * twoA + u.x * twoB,
                                p.y - u.y - v.y + v.y * twoA + u.y * twoB,
                                p.z - u.z - v.z + v.z * twoA + u.z * twoB};
  return Widen(sample);
}

// A random point on the light, or false for a type that has no shape.
bool SampleLight(RT_RANDOM_NUMBER_GENERATOR& generator, const SCENE_LIGHT_DEFINITION& light,
                 const SCENE_VERTEX_XYZ_64& lightPoint, SCENE_VERTEX_XYZ_64& sample) {
  switch (light.type) {
    case 0:
      sample = Add(lightPoint, Scale(generator.RandomUnitVector(), PointLightSampleRadius));
      return true;
    case 1: {
      const SCENE_VERTEX_XYZ position = light.position, target = light.target;
      SCENE_VERTEX_XYZ axis{target.x - position.x, target.y - position.y, target.z - position.z};
      GetUnitVector(&axis, &axis);
      const double radius = SpotLightSampleDistance * std::tan(light.angle * Pi / 180.0);
      const SCENE_VERTEX_XYZ_64 centre = Add(Widen(position), Scale(Widen(axis), SpotLightSampleDistance));
      sample = SampleDisc(generator, radius, centre, axis);
      return true;
    }
    case 3:
      sample = SampleRectangle(generator, light);
      return true;
    default:
      return false;
  }
}

double VisibilityOf(bool shadowed) {
  return shadowed ? 0.0 : 1.0;
}
}  // namespace

double RT_RENDER_ENGINE::GetLightVisibilityThroughShadow(const RTRendererLight* light,
                                                         const MODE_RENDER_OPTIONS* options,
                                                         RT_RANDOM_NUMBER_GENERATOR* generator,
                                                         const SCENE_VERTEX_XYZ_64& lightPoint,
                                                         const SCENE_VERTEX_XYZ_64& point, uint32_t depth,
                                                         double /*distance*/) const {
  if (!options || ShadowsHidden(*options) || !CastsShadows(light)) return 1.0;
  if (!options->DoRayTracedSoftShadows()) return VisibilityOf(IsPointInShadow(lightPoint, point, depth));
  // Soft shadows without sampling: the place of the shadow-map look-up; a
  // light without a usable map takes the hard ray.
  if (!options->DoPathTracing() || !generator) return VisibilityOf(IsPointInShadow(lightPoint, point, depth));

  SCENE_VERTEX_XYZ_64 sample;
  if (!SampleLight(*generator, light->definition, lightPoint, sample)) return 1.0;
  return VisibilityOf(IsPointInShadow(sample, point, depth));
}

double RT_RENDER_ENGINE::GetDirectLightVisibilityThroughShadow(const RTRendererLight* light,
                                                               const MODE_RENDER_OPTIONS* options,
                                                               RT_RANDOM_NUMBER_GENERATOR* generator,
                                                               const SCENE_VERTEX_XYZ_64& lightDirection,
                                                               const SCENE_VERTEX_XYZ_64& point,
                                                               uint32_t depth, double /*distance*/) const {
  if (!options || ShadowsHidden(*options) || !CastsShadows(light)) return 1.0;
  // Default lighting goes on to the map or to sampling even without soft
  // shadows.
  if (!options->DoRayTracedSoftShadows() && options->DoCustomLighting())
    return VisibilityOf(IsPointInDirectShadow(lightDirection, point, depth));
  // The place of the shadow-map look-up; a light without a usable map
  // takes the hard ray.
  if (!options->DoPathTracing() || !generator)
    return VisibilityOf(IsPointInDirectShadow(lightDirection, point, depth));

  SCENE_VERTEX_XYZ axis;
  ConvertSceneVertexXYZ64ToSceneVertexXYZ(&lightDirection, &axis);
  const SCENE_VERTEX_XYZ_64 sample =
      SampleDisc(*generator, std::tan(DirectLightCone), Add(point, lightDirection), axis);
  const SCENE_VERTEX_XYZ_64 direction = UnitOf(Subtract(sample, point));
  return VisibilityOf(IsPointInDirectShadow(direction, point, depth));
}
