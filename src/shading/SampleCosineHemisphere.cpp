#include "shading/SampleCosineHemisphere.h"

#include <cmath>

#include "pipeline/RandomNumberGenerator.h"
#include "lighting/VectorOps.h"

using namespace vector64;

namespace {
// A vector that is not parallel to `normal`: its smallest component made 1.
SCENE_VERTEX_XYZ_64 AwayFrom(const SCENE_VERTEX_XYZ_64& normal) {
  SCENE_VERTEX_XYZ_64 a = normal;
  const double x = std::fabs(a.x), y = std::fabs(a.y), z = std::fabs(a.z);
  if (y >= x && z >= x)
    a.x = 1.0;
  else if (x >= y && z >= y)
    a.y = 1.0;
  else
    a.z = 1.0;
  return a;
}

SCENE_VERTEX_XYZ_64 Cross(const SCENE_VERTEX_XYZ_64& a, const SCENE_VERTEX_XYZ_64& b) {
  SCENE_VERTEX_XYZ_64 out;
  CrossProduct(&a, &b, &out);
  return out;
}
}  // namespace

SCENE_VERTEX_XYZ_64 SampleCosineHemisphere(RT_RANDOM_NUMBER_GENERATOR& generator,
                                           const SCENE_VERTEX_XYZ_64& normal) {
  const double first = generator.RandomUnit();
  const double second = generator.RandomUnit();
  // sin(theta) = sqrt(first): a uniform point of the unit disc lifted onto
  // the hemisphere, which is what makes the density follow the cosine.
  const double theta = std::acos(std::sqrt(1.0 - first));
  const double phi = 6.283185307179586 * second;
  const float sinTheta = sinf(static_cast<float>(theta));
  const double weightU = sinTheta * cosf(static_cast<float>(phi));
  const double weightN = cosf(static_cast<float>(theta));
  const double weightV = sinTheta * sinf(static_cast<float>(phi));

  const SCENE_VERTEX_XYZ_64 axisU = UnitOf(Cross(AwayFrom(normal), normal));
  const SCENE_VERTEX_XYZ_64 axisV = UnitOf(Cross(axisU, normal));
  return UnitOf(Add(Add(Scale(axisV, weightV), Scale(normal, weightN)), Scale(axisU, weightU)));
}
