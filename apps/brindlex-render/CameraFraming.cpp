#include "CameraFraming.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "host/BrindlexViewMath.h"

namespace {

// A file camera is kept when at least this share of the model's outline
// on the picture lies inside the picture...
constexpr double VisibleShare = 0.8;
// ...and the outline covers at least this share of the picture: a model
// seen as a speck is not what anybody framed.
constexpr double CoveredShare = 0.02;
// Fields of view outside these degrees are an export accident.
constexpr float NarrowestView = 1.0f, WidestView = 170.0f;

double Dot(const double a[3], const double b[3]) {
  return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

}  // namespace

std::string CameraFramingProblem(const SCENE_VERTEX_XYZ& min, const SCENE_VERTEX_XYZ& max,
                                 const SCENE_VERTEX_XYZ& eye, const SCENE_VERTEX_XYZ& target,
                                 float fieldOfView, double aspect) {
  if (!(fieldOfView >= NarrowestView && fieldOfView <= WidestView))
    return "has a field of view of under a degree";
  double forward[3] = {target.x - eye.x, target.y - eye.y, target.z - eye.z};
  const double length = std::sqrt(Dot(forward, forward));
  if (!(length > 1e-12)) return "has no direction";
  for (double& f : forward) f /= length;
  // Right and up of the picture, with the world's z up; a camera looking
  // straight down takes y as its up.
  double right[3] = {forward[1], -forward[0], 0.0};
  if (Dot(right, right) < 1e-12) right[0] = 1.0, right[1] = 0.0;
  const double r = std::sqrt(Dot(right, right));
  for (double& c : right) c /= r;
  const double up[3] = {right[1] * forward[2] - right[2] * forward[1],
                        right[2] * forward[0] - right[0] * forward[2],
                        right[0] * forward[1] - right[1] * forward[0]};
  const double tanHalf = std::tan(fieldOfView * std::numbers::pi / 360.0);
  SCENE_VERTEX_XYZ corners[8];
  InitializeCubePointArrayFromCubeMinMaxPts(corners, &min, &max);
  double left = HUGE_VAL, rightEdge = -HUGE_VAL, bottom = HUGE_VAL, top = -HUGE_VAL;
  int behind = 0;
  for (const SCENE_VERTEX_XYZ& c : corners) {
    const double d[3] = {c.x - eye.x, c.y - eye.y, c.z - eye.z};
    const double depth = Dot(d, forward);
    if (depth <= 0.0) {
      ++behind;
      continue;
    }
    // Picture coordinates: -1 to 1 across both sides.
    const double x = Dot(d, right) / (depth * tanHalf * aspect), y = Dot(d, up) / (depth * tanHalf);
    left = std::min(left, x), rightEdge = std::max(rightEdge, x);
    bottom = std::min(bottom, y), top = std::max(top, y);
  }
  if (behind == 8) return "looks away from the model";
  if (behind > 0) return "stands inside the model or beside it";
  const double area = (rightEdge - left) * (top - bottom);
  const double inside = std::max(0.0, std::min(rightEdge, 1.0) - std::max(left, -1.0)) *
                        std::max(0.0, std::min(top, 1.0) - std::max(bottom, -1.0));
  if (inside <= 0.0) return "looks past the model";
  if (inside < VisibleShare * area) return "cuts off part of the model";
  if (area < CoveredShare * 4.0) return "shows the model too small";
  return {};
}
