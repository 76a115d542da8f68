// Photon origins and directions by light type.
#include "photons/PhotonEmission.h"

#include <cmath>
#include <numbers>

#include "host/BrindlexViewMath.h"
#include "pipeline/RandomNumberGenerator.h"
#include "lighting/VectorOps.h"

using namespace vector64;

namespace {
// The soft rim of a spot covers this share of its half-angle, at its outer
// side, as in its direct light.
constexpr double SoftEdgeShare = 0.55;
// Draws of RandomUnitVector before a direction is given up. A cone of 30
// degrees takes about 20 on average, a hemisphere 2; the bound only bites
// on cones of a few degrees or less and on an axis of zero, which would
// otherwise hold a worker for good.
constexpr int MaximumDirectionDraws = 1024;

enum LightType : uint16_t { PointLight = 0, SpotLight = 1, DirectLight = 2, AreaLight = 3 };

SCENE_VERTEX_XYZ_64 LightAxis(const SCENE_LIGHT_DEFINITION& light) {
  return UnitOf(Subtract(Widen(light.target), Widen(light.position)));
}

// A direction spread evenly over the cone of cosine `limit` round the unit
// `axis`, for cones too narrow to hit by drawing from the whole sphere.
SCENE_VERTEX_XYZ_64 DirectionInNarrowCone(RT_RANDOM_NUMBER_GENERATOR& generator,
                                          const SCENE_VERTEX_XYZ_64& axis, double limit) {
  const double cosine = 1.0 - generator.RandomUnit() * (1.0 - limit);
  const double sine = std::sqrt(std::fmax(0.0, 1.0 - cosine * cosine));
  const double turn = 2.0 * std::numbers::pi * generator.RandomUnit();
  // Any unit vector across the axis, and the one across both.
  const SCENE_VERTEX_XYZ_64 helper =
      std::fabs(axis.x) < 0.9 ? SCENE_VERTEX_XYZ_64{1.0, 0.0, 0.0} : SCENE_VERTEX_XYZ_64{0.0, 1.0, 0.0};
  SCENE_VERTEX_XYZ_64 across, third;
  CrossProduct(&axis, &helper, &across);
  across = UnitOf(across);
  CrossProduct(&axis, &across, &third);
  return Add(Scale(axis, cosine),
             Add(Scale(across, sine * std::cos(turn)), Scale(third, sine * std::sin(turn))));
}

void EmitFromSpot(const SCENE_LIGHT_DEFINITION& light, RT_RANDOM_NUMBER_GENERATOR& generator,
                  PhotonRay& photon) {
  photon.origin = Widen(light.position);
  const SCENE_VERTEX_XYZ_64 axis = LightAxis(light);
  const double halfAngle = light.angle * std::numbers::pi / 180.0;
  const double limit = std::cos(static_cast<float>(halfAngle));
  if (!DrawDirectionAround(generator, axis, limit, true, photon.direction)) {
    if (Length(axis) == 0.0) return;  // no axis: the photon stays without a direction
    photon.direction = DirectionInNarrowCone(generator, axis, limit);
  }
  if (!(light.flags & LightSoftEdge)) return;
  // The rim is dimmed, not thinned: photons keep their density there.
  const double inner = std::cos(static_cast<float>(halfAngle - halfAngle * SoftEdgeShare));
  const double dot = Dot(photon.direction, axis);
  if (inner > dot) photon.energy = Scale(photon.energy, (dot - limit) / (inner - limit));
}

void EmitFromDirect(const SCENE_LIGHT_DEFINITION& light, const SCENE_VERTEX_XYZ_64& sceneMin,
                    const SCENE_VERTEX_XYZ_64& sceneMax, RT_RANDOM_NUMBER_GENERATOR& generator,
                    PhotonRay& photon) {
  photon.direction = LightAxis(light);
  const double diagonal = Distance(&sceneMin, &sceneMax);
  // A point of the scene box, one draw per axis in x, y, z order, and the
  // photon starts a full diagonal upstream of it, outside the box.
  SCENE_VERTEX_XYZ_64 inside;
  inside.x = sceneMin.x + (sceneMax.x - sceneMin.x) * generator.RandomUnit();
  inside.y = sceneMin.y + (sceneMax.y - sceneMin.y) * generator.RandomUnit();
  inside.z = sceneMin.z + (sceneMax.z - sceneMin.z) * generator.RandomUnit();
  photon.origin = Subtract(inside, Scale(photon.direction, diagonal));
}

void EmitFromArea(const SCENE_LIGHT_DEFINITION& light, RT_RANDOM_NUMBER_GENERATOR& generator,
                  PhotonRay& photon) {
  const SCENE_VERTEX_XYZ_64 u = Widen(light.axisU), v = Widen(light.axisV);
  const SCENE_VERTEX_XYZ_64 corner = Subtract(Subtract(Widen(light.position), u), v);
  const SCENE_VERTEX_XYZ_64 span = Scale(Add(u, v), 2.0);
  // Each axis of the box that the rectangle's diagonal spans on its own.
  photon.origin.x = corner.x + span.x * generator.RandomUnit();
  photon.origin.y = corner.y + span.y * generator.RandomUnit();
  photon.origin.z = corner.z + span.z * generator.RandomUnit();
  DrawDirectionAround(generator, LightAxis(light), 0.0, false, photon.direction);
}
}  // namespace

bool DrawDirectionAround(RT_RANDOM_NUMBER_GENERATOR& generator, const SCENE_VERTEX_XYZ_64& axis, double limit,
                         bool inclusive, SCENE_VERTEX_XYZ_64& direction) {
  for (int draw = 0; draw < MaximumDirectionDraws; ++draw) {
    direction = generator.RandomUnitVector();
    const double cosine = Dot(direction, axis);
    if (inclusive ? !(cosine < limit) : cosine > limit) return true;
  }
  direction = {0.0, 0.0, 0.0};
  return false;
}

PhotonRay EmitPhoton(const SCENE_LIGHT_DEFINITION& light, const SCENE_VERTEX_XYZ_64& sceneMin,
                     const SCENE_VERTEX_XYZ_64& sceneMax, RT_RANDOM_NUMBER_GENERATOR& generator) {
  PhotonRay photon{};
  // The intensity as stored, in tenths: photon energies are relative, and
  // the shots and the emitter's factor scale them later.
  const double intensity = light.intensity;
  photon.energy = {(light.color & 0xFF) / 255.0 * intensity, ((light.color >> 8) & 0xFF) / 255.0 * intensity,
                   ((light.color >> 16) & 0xFF) / 255.0 * intensity};
  switch (light.type) {
    case PointLight:
      photon.origin = Widen(light.position);
      photon.direction = generator.RandomUnitVector();
      break;
    case SpotLight:
      EmitFromSpot(light, generator, photon);
      break;
    case DirectLight:
      EmitFromDirect(light, sceneMin, sceneMax, generator, photon);
      break;
    case AreaLight:
      EmitFromArea(light, generator, photon);
      break;
    default:
      break;
  }
  return photon;
}
