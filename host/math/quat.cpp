// Copyright Marvolith contributors.
#include "host/math/quat.h"

#include <cmath>
#include <numbers>

#include "host/math/internal/mat3d.h"
#include "host/math/matrix3.h"

using host_math_internal::QuatFromRotation;
using host_math_internal::RotationPart;

Quat::Quat(const Matrix3& m) { *this = QuatFromRotation(RotationPart(m)); }

Quat::Quat(const AngAxis& aa) { *this = QFromAngAxis(aa.angle, aa.axis); }

float Quat::Length() const {
  return static_cast<float>(
      std::sqrt(double(x) * x + double(y) * y + double(z) * z + double(w) * w));
}

Quat& Quat::Normalize() {
  double len = std::sqrt(double(x) * x + double(y) * y + double(z) * z + double(w) * w);
  // Zero or non-finite length: no direction to keep.
  if (!(len > 0.0) || !std::isfinite(len)) return Identity();
  x = static_cast<float>(x / len);
  y = static_cast<float>(y / len);
  z = static_cast<float>(z / len);
  w = static_cast<float>(w / len);
  return *this;
}

Quat Quat::Inverse() const {
  double len2 = double(x) * x + double(y) * y + double(z) * z + double(w) * w;
  if (!(len2 > 0.0) || !std::isfinite(len2)) return Quat();
  return Quat(static_cast<float>(-x / len2), static_cast<float>(-y / len2),
              static_cast<float>(-z / len2), static_cast<float>(w / len2));
}

void Quat::MakeMatrix(Matrix3& mat, bool trans) const {
  Point3 keep_trans = mat.GetTrans();
  double len2 = double(x) * x + double(y) * y + double(z) * z + double(w) * w;
  if (!(len2 > 0.0) || !std::isfinite(len2) || IsIdentity()) {
    mat.IdentityMatrix();
  } else {
    // The standard quaternion matrix with s = 2 / |q|^2, so a non-unit q still gives a rotation.
    double s = 2.0 / len2;
    double xx = x * x * s, yy = y * y * s, zz = z * z * s;
    double xy = x * y * s, xz = x * z * s, yz = y * z * s;
    double wx = w * x * s, wy = w * y * s, wz = w * z * s;
    host_math_internal::Mat3d r{{{1.0 - (yy + zz), xy - wz, xz + wy},
                                 {xy + wz, 1.0 - (xx + zz), yz - wx},
                                 {xz - wy, yz + wx, 1.0 - (xx + yy)}}};
    mat.IdentityMatrix();
    host_math_internal::StoreRows(r, mat);
    mat.SetIdentFlags(POS_IDENT | SCL_IDENT);
  }
  if (trans) mat.SetTrans(keep_trans);
}

Quat& Quat::MakeClosest(const Quat& qto) {
  if (QDot(*this, qto) < 0.0f) *this = -*this;
  return *this;
}

Quat Inverse(const Quat& q) { return q.Inverse(); }

Quat Normalize(const Quat& q) {
  Quat r = q;
  return r.Normalize();
}

Quat& MakeClosest(Quat& q, const Quat& ref) { return q.MakeClosest(ref); }

Quat Slerp(const Quat& p, const Quat& q, float t) {
  double cosom = double(p.x) * q.x + double(p.y) * q.y + double(p.z) * q.z + double(p.w) * q.w;
  double a, b;
  Quat other = q;
  if (cosom > 1.0 - kSlerpLinearEpsilon) {
    // Nearly the same: the arc is a line.
    a = 1.0 - t;
    b = t;
  } else if (cosom < -1.0 + kSlerpLinearEpsilon) {
    // q = -p: every great arc joins them; go through the quaternion perpendicular to p, so
    // t = 0.5 is a half turn from p in rotation terms and t = 1 gives -p.
    other = Quat(-p.y, p.x, -p.w, p.z);
    a = std::cos(std::numbers::pi * t);
    b = std::sin(std::numbers::pi * t);
  } else {
    double omega = std::acos(cosom);
    double sinom = std::sin(omega);
    a = std::sin((1.0 - t) * omega) / sinom;
    b = std::sin(t * omega) / sinom;
  }
  Quat r(static_cast<float>(a * p.x + b * other.x), static_cast<float>(a * p.y + b * other.y),
         static_cast<float>(a * p.z + b * other.z), static_cast<float>(a * p.w + b * other.w));
  return r.Normalize();
}

AngAxis::AngAxis(const Quat& q) { AngAxisFromQ(q, &angle, axis); }

Quat QFromAngAxis(float ang, const Point3& axis) {
  Point3 n = Normalize(axis);
  if (n == Point3()) return Quat();
  double half = 0.5 * ang;
  float s = static_cast<float>(std::sin(half));
  return Quat(n.x * s, n.y * s, n.z * s, static_cast<float>(std::cos(half)));
}

void AngAxisFromQ(const Quat& q, float* ang, Point3& axis) {
  Quat n = Normalize(q);
  if (n.w < 0.0f) n = -n;
  double v = std::sqrt(double(n.x) * n.x + double(n.y) * n.y + double(n.z) * n.z);
  if (!(v > 0.0)) {
    // No rotation: any axis serves; +X by convention.
    *ang = 0.0f;
    axis = Point3::XAxis;
    return;
  }
  *ang = static_cast<float>(2.0 * std::atan2(v, double(n.w)));
  axis =
      Point3(static_cast<float>(n.x / v), static_cast<float>(n.y / v), static_cast<float>(n.z / v));
}
