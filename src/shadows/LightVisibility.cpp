// How much of a light reaches a surface point: a hard shadow ray, a look-up
// in the light's shadow map, or in path tracing one shadow ray to a random
// point on the light, whose noise the passes average away.
#include <cmath>
#include <numbers>

#include "engine/BrindlexViewRTRenderEngine.h"
#include "scene/LightTable.h"
#include "pipeline/RandomNumberGenerator.h"
#include "host/RenderOptions.h"
#include "shadows/ShadowMapSampling.h"
#include "lighting/VectorOps.h"
#include "host/Numbers.h"

using namespace vector64;

namespace {
// A point light is sampled as a sphere of this radius.
constexpr double PointLightSampleRadius = 6.0;
// A spot light is sampled on a disc this far in front of it.
constexpr double SpotLightSampleDistance = 6.0;
// Half-angle of the cone a direct light is sampled in: a sun of 3 degrees.
constexpr double DirectLightCone = 0.05235987755982988;

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
  if (std::fabs(axis.x) <= NearZero && std::fabs(axis.y) <= NearZero) up = {0.0f, 1.0f, 0.0f};
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
      const double radius = SpotLightSampleDistance * std::tan(light.angle * std::numbers::pi / 180.0);
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

// A flat map seen from the light's camera: outside the map, or where the
// map recorded nothing, is lit.
double FlatMapVisibility(const SWShadowMap& map, const RTRendererLight& light,
                         const SCENE_VERTEX_XYZ_64& point) {
  const SCENE_VERTEX_XYZW_64 world{point.x, point.y, point.z, 1.0};
  SCENE_VERTEX_XYZW_64 eye, clip;
  TransformPoint4D(&light.shadowView, &world, &eye);
  TransformPoint4D(&light.shadowProjection, &eye, &clip);
  const double u = 0.5 * clip.x / clip.w + 0.5;
  const double v = 1.0 - (0.5 * clip.y / clip.w + 0.5);
  // Written so that a coordinate that is not a number (w of 0) counts as
  // outside too.
  if (!(u >= 0.0 && u <= 1.0 && v >= 0.0 && v <= 1.0)) return 1.0;
  SW_PIXEL_G64R64F pixel{0.0, 0.0};
  SampleShadowMap(&map, static_cast<float>(u), static_cast<float>(v), pixel);
  if (!(pixel.depth < 1.0)) return 1.0;
  const double pointDepth = -(eye.z / eye.w + light.shadowNear) / (light.shadowFar - light.shadowNear);
  return ShadowMapVisibility(pixel, pointDepth, SmallestFlatMapVariance);
}

// A cube map around the light, in the faces' space: y negated.
double CubeMapVisibility(const SWCubeShadowMap& map, const SCENE_VERTEX_XYZ_64& lightPoint,
                         const SCENE_VERTEX_XYZ_64& point) {
  SCENE_VERTEX_XYZ_64 toPoint = Subtract(point, lightPoint);
  toPoint.y = -toPoint.y;
  SW_PIXEL_G64R64F pixel{0.0, 0.0};
  SampleCubeShadowMap(&map, toPoint, pixel);
  return ShadowMapVisibility(pixel, Length(toPoint), SmallestCubeMapVariance);
}

// The light's flat map if it has an entry for one, else (unless
// `flatOnly`) its cube map; false when the light has no usable map.
bool LookUpShadowMap(const ShadowMapTables& maps, const RTRendererLight& light,
                     const SCENE_VERTEX_XYZ_64& lightPoint, const SCENE_VERTEX_XYZ_64& point, bool flatOnly,
                     double& visibility) {
  // The light record is packed: its number may sit at any address, and the
  // maps' look-ups take the key by reference.
  const int32_t number = light.number;
  if (maps.indexSingle.count(number)) {
    const SWShadowMap* map = FindUsableShadowMap(maps.indexSingle, maps.single, number);
    if (!map) return false;
    visibility = FlatMapVisibility(*map, light, point);
    return true;
  }
  if (flatOnly) return false;
  const SWCubeShadowMap* cube = FindUsableShadowMap(maps.indexCube, maps.cube, number);
  if (!cube) return false;
  visibility = CubeMapVisibility(*cube, lightPoint, point);
  return true;
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
  // Soft shadows without sampling come from the light's map; a light
  // without a usable map takes the hard ray.
  if (!options->DoPathTracing() || !generator) {
    double visibility = 1.0;
    const ShadowMapTables maps{shadowMapIndexSingle, shadowMapsSingle, shadowMapIndexCube, shadowMapsCube};
    if (LookUpShadowMap(maps, *light, lightPoint, point, false, visibility)) return visibility;
    return VisibilityOf(IsPointInShadow(lightPoint, point, depth));
  }

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
  // The light's flat map, or the hard ray for a light without a usable one.
  if (!options->DoPathTracing() || !generator) {
    double visibility = 1.0;
    const ShadowMapTables maps{shadowMapIndexSingle, shadowMapsSingle, shadowMapIndexCube, shadowMapsCube};
    if (LookUpShadowMap(maps, *light, point, point, true, visibility)) return visibility;
    return VisibilityOf(IsPointInDirectShadow(lightDirection, point, depth));
  }

  SCENE_VERTEX_XYZ axis;
  ConvertSceneVertexXYZ64ToSceneVertexXYZ(&lightDirection, &axis);
  const SCENE_VERTEX_XYZ_64 sample =
      SampleDisc(*generator, std::tan(DirectLightCone), Add(point, lightDirection), axis);
  const SCENE_VERTEX_XYZ_64 direction = UnitOf(Subtract(sample, point));
  return VisibilityOf(IsPointInDirectShadow(direction, point, depth));
}
