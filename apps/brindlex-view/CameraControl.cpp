#include "CameraControl.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace {

struct Vector {
  double x, y, z;
};

Vector From(const SCENE_VERTEX_XYZ& v) {
  return {v.x, v.y, v.z};
}
SCENE_VERTEX_XYZ To(const Vector& v) {
  return {static_cast<float>(v.x), static_cast<float>(v.y), static_cast<float>(v.z)};
}
Vector operator+(const Vector& a, const Vector& b) {
  return {a.x + b.x, a.y + b.y, a.z + b.z};
}
Vector operator-(const Vector& a, const Vector& b) {
  return {a.x - b.x, a.y - b.y, a.z - b.z};
}
Vector operator*(const Vector& v, double s) {
  return {v.x * s, v.y * s, v.z * s};
}
double Length(const Vector& v) {
  return std::sqrt(v.x * v.x + v.y * v.y + v.z * v.z);
}
Vector Cross(const Vector& a, const Vector& b) {
  return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
Vector Unit(const Vector& v) {
  const double length = Length(v);
  return length > 0.0 ? v * (1.0 / length) : Vector{0.0, 0.0, 0.0};
}

}  // namespace

OrbitCamera Orbit(const OrbitCamera& camera, double azimuth, double elevation) {
  const Vector target = From(camera.target), offset = From(camera.eye) - target;
  const double distance = Length(offset);
  if (distance == 0.0) return camera;
  const double limit = MaximumElevation * std::numbers::pi / 180.0;
  const double turned = std::atan2(offset.y, offset.x) + azimuth * std::numbers::pi / 180.0;
  const double raised =
      std::clamp(std::asin(std::clamp(offset.z / distance, -1.0, 1.0)) + elevation * std::numbers::pi / 180.0,
                 -limit, limit);
  const Vector direction = {std::cos(raised) * std::cos(turned), std::cos(raised) * std::sin(turned),
                            std::sin(raised)};
  return {To(target + direction * distance), camera.target};
}

OrbitCamera Pan(const OrbitCamera& camera, double right, double down, double fieldOfView, double viewHeight) {
  const Vector eye = From(camera.eye), target = From(camera.target);
  const Vector forward = target - eye;
  const double distance = Length(forward);
  if (distance == 0.0 || viewHeight <= 0.0) return camera;
  const Vector rightAxis = Unit(Cross(forward, {0.0, 0.0, 1.0}));
  const Vector upAxis = Unit(Cross(rightAxis, forward));
  // World units that one pixel spans at the target's distance.
  const double perPixel = 2.0 * distance * std::tan(fieldOfView * std::numbers::pi / 360.0) / viewHeight;
  // The scene follows the mouse, so the camera moves the other way.
  const Vector shift = rightAxis * (-right * perPixel) + upAxis * (down * perPixel);
  return {To(eye + shift), To(target + shift)};
}

OrbitCamera Zoom(const OrbitCamera& camera, double factor) {
  const Vector target = From(camera.target), offset = From(camera.eye) - target;
  const double distance = Length(offset);
  if (distance == 0.0) return camera;
  const double wanted = std::max(distance * factor, MinimumDistance);
  return {To(target + offset * (wanted / distance)), camera.target};
}
