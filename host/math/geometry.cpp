// Copyright Marvolith contributors.
#include "host/math/geometry.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "host/math/tolerances.h"

namespace {

// The unit world axis least aligned with the unit vector v (the first on ties).
Point3 LeastAlignedAxis(const Point3& v) {
  switch (v.MinComponent()) {
    case 0:
      return Point3::XAxis;
    case 1:
      return Point3::YAxis;
    default:
      return Point3::ZAxis;
  }
}

}  // namespace

Quat AxisQuat(int axis, bool flip) {
  constexpr float h = 0.70710677f;
  switch (AxisOrZ(axis)) {
    case 0:
      return flip ? Quat(0.0f, 0.0f, 1.0f, 0.0f) : Quat();
    case 1:
      return Quat(0.0f, 0.0f, flip ? -h : h, h);
    default:
      return Quat(0.0f, flip ? h : -h, 0.0f, h);
  }
}

Matrix3 AxisMatrix(int axis, bool flip) {
  const float s = flip ? -1.0f : 1.0f;
  switch (AxisOrZ(axis)) {
    case 0:
      return Matrix3(Point3(s, 0, 0), Point3(0, s, 0), Point3(0, 0, 1), Point3());
    case 1:
      return Matrix3(Point3(0, -s, 0), Point3(s, 0, 0), Point3(0, 0, 1), Point3());
    default:
      return Matrix3(Point3(0, 0, -s), Point3(0, 1, 0), Point3(s, 0, 0), Point3());
  }
}

Quat XRotation(float a) { return Quat(std::sin(-0.5f * a), 0.0f, 0.0f, std::cos(-0.5f * a)); }

Quat AimX(const Point3& v) {
  float len = v.Length();
  if (len < kAimXMinLength) return Quat();
  // acos(v.x / |v|), taken as atan2(|v x X|, v.x) so it stays exact near 0 and pi.
  float angle = static_cast<float>(std::atan2(std::hypot(double(v.y), double(v.z)), double(v.x)));
  Point3 axis = Normalize(Point3(0.0f, v.z, -v.y));
  if (axis == Point3()) {
    // v on the X line: +X needs no turn, -X a half turn about any normal; take +Z.
    if (v.x > 0.0f) return Quat();
    axis = Point3::ZAxis;
  }
  return QFromAngAxis(angle, axis);
}

float AngleBetween(const Point3& a, const Point3& b) {
  float lengths = a.Length() * b.Length();
  if (lengths < kRotationBetweenMinLengthProduct) return 0.0f;
  // acos(a.b / (|a||b|)), taken as atan2(|a x b|, a.b) in double: the same angle without the
  // arc cosine's loss of precision near 0 and pi.
  double ax = a.x, ay = a.y, az = a.z, bx = b.x, by = b.y, bz = b.z;
  double cx = ay * bz - az * by, cy = az * bx - ax * bz, cz = ax * by - ay * bx;
  return static_cast<float>(
      std::atan2(std::sqrt(cx * cx + cy * cy + cz * cz), ax * bx + ay * by + az * bz));
}

Quat RotationBetween(const Point3& a, const Point3& b) {
  float angle = AngleBetween(a, b);
  if (angle == 0.0f) return Quat();
  Point3 axis = Normalize(b ^ a);
  if (axis == Point3()) {
    // Parallel in float although acos rounded above 0: no turn.
    if (a % b > 0.0f) return Quat();
    // Opposite directions: any normal of a serves as the axis of the half turn.
    Point3 n = Normalize(a);
    axis = Normalize(n ^ LeastAlignedAxis(n));
    angle = std::numbers::pi_v<float>;
  }
  return QFromAngAxis(angle, axis);
}

Matrix3 LookFrame(const Point3& o, const Point3& a, const Point3& b) {
  Matrix3 frame = AimFrame(a - o, b - o);
  frame.SetTrans(o);
  return frame;
}

Matrix3 AimFrame(const Point3& a, const Point3& b) {
  Point3 x = Normalize(a);
  if (x == Point3()) x = Point3::XAxis;  // no aim direction
  Point3 z = Normalize(x ^ Normalize(b));
  if (z == Point3()) z = Normalize(x ^ LeastAlignedAxis(x));  // b on the aim line
  Point3 y = Normalize(z ^ x);
  return Matrix3(x, y, z, Point3());
}

bool ClipSegmentToRect(Point3& a, Point3& b, const Point2& lo, const Point2& hi) {
  // a + t (b - a) is inside side i while p[i] t <= q[i]; each side narrows [t0, t1].
  const double dx = static_cast<double>(b.x) - a.x, dy = static_cast<double>(b.y) - a.y;
  const double p[4] = {-dx, dx, -dy, dy};
  const double q[4] = {static_cast<double>(a.x) - lo.x, static_cast<double>(hi.x) - a.x,
                       static_cast<double>(a.y) - lo.y, static_cast<double>(hi.y) - a.y};
  double t0 = 0.0, t1 = 1.0;
  for (int i = 0; i < 4; ++i) {
    if (p[i] == 0.0) {
      if (q[i] < 0.0) return false;  // parallel to this side and outside it
      continue;
    }
    const double t = q[i] / p[i];
    if (p[i] < 0.0)
      t0 = std::max(t0, t);
    else
      t1 = std::min(t1, t);
    if (t0 > t1) return false;
  }
  const Point3 a0 = a;
  if (t0 > 0.0) a = a0 + (b - a0) * static_cast<float>(t0);
  if (t1 < 1.0) b = a0 + (b - a0) * static_cast<float>(t1);
  return true;
}
