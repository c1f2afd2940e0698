// Copyright Marvolith contributors.
// Quaternions and angle-axis rotations in the host's convention, with Slerp and MakeClosest.
//
// Convention (the host's). Points are row vectors, p' = p * M, and `a * b` applies a first. A unit
// quaternion (x, y, z, w) = (n sin(t/2), cos(t/2)) turns points about the unit axis n by the
// angle t by the LEFT-hand rule: clockwise when looking from the tip of n towards the origin.
// Equivalently its MakeMatrix is the right-handed rotation by -t. Matrix3::RotateX and Euler
// angles are right-handed, so the quaternion of RotateXMatrix(a) is (-sin(a/2), 0, 0, cos(a/2)).
// AngAxis follows the quaternion: Quat(AngAxis(n, t)) is (n sin(t/2), cos(t/2)).
#pragma once

#include <type_traits>

#include "host/math/point3.h"
#include "host/math/tolerances.h"

class Matrix3;
class AngAxis;

/// A rotation as a quaternion of four 32-bit floats x, y, z, w (16 bytes in files, that order).
/// Default is the identity (0, 0, 0, 1). q and -q are the same rotation.
class Quat {
 public:
  float x = 0.0f;
  float y = 0.0f;
  float z = 0.0f;
  float w = 1.0f;

  constexpr Quat() = default;
  constexpr Quat(float qx, float qy, float qz, float qw) : x(qx), y(qy), z(qz), w(qw) {}
  /// Vector part v and scalar part qw.
  constexpr Quat(const Point3& v, float qw) : x(v.x), y(v.y), z(v.z), w(qw) {}
  /// The rotation part of m: rows are normalised first, so scale is ignored. A mirrored m
  /// (negative determinant) gives the rotation of m with row 2 negated. A zero or degenerate
  /// 3x3 part gives a finite rotation (the identity for a zero matrix). Result has w >= 0.
  explicit Quat(const Matrix3& m);
  /// Quat(AngAxis(axis, angle)) = (n sin(angle/2), cos(angle/2)) with n the normalised axis; a
  /// zero axis gives the identity.
  Quat(const AngAxis& aa);

  /// Component i: 0 x, 1 y, 2 z, anything else w.
  constexpr float& operator[](int i) { return i == 0 ? x : (i == 1 ? y : (i == 2 ? z : w)); }
  constexpr const float& operator[](int i) const {
    return i == 0 ? x : (i == 1 ? y : (i == 2 ? z : w));
  }

  /// Sets the identity.
  constexpr Quat& Identity() {
    x = y = z = 0.0f;
    w = 1.0f;
    return *this;
  }
  /// True when the vector part is exactly zero: no rotation (w of either sign).
  constexpr bool IsIdentity() const { return x == 0.0f && y == 0.0f && z == 0.0f; }

  /// Scales to unit length in place; a zero (or non-finite-length) quaternion becomes identity.
  Quat& Normalize();
  /// (-x, -y, -z, w): the inverse of a unit quaternion.
  constexpr Quat Conjugate() const { return {-x, -y, -z, w}; }
  /// Conjugate divided by the squared length; a zero quaternion gives the identity.
  Quat Inverse() const;
  /// Squared length x^2 + y^2 + z^2 + w^2.
  constexpr float LengthSquared() const { return x * x + y * y + z * z + w * w; }
  float Length() const;

  /// Writes the rotation matrix of this quaternion into rows 0..2 of mat. The quaternion need
  /// not be unit length (a zero one gives the identity). With trans false the translation row is
  /// cleared as well; with trans true mat's translation is kept.
  void MakeMatrix(Matrix3& mat, bool trans = false) const;

  /// Flips this quaternion to -q when that lies nearer (4D dot product) to qto, so that Slerp
  /// from qto takes the short way. Same rotation either way. Returns *this.
  Quat& MakeClosest(const Quat& qto);

  /// True when every component differs from q's by at most epsilon. This compares
  /// representations: q and -q are not Equals. Compare rotations with EqualsRotation.
  constexpr bool Equals(const Quat& q, float epsilon = kMatrixEqualsEpsilon) const {
    auto near = [epsilon](float a, float b) { return (a > b ? a - b : b - a) <= epsilon; };
    return near(x, q.x) && near(y, q.y) && near(z, q.z) && near(w, q.w);
  }
  /// True when this and q are the same rotation within epsilon per component (q or -q).
  constexpr bool EqualsRotation(const Quat& q, float epsilon = kMatrixEqualsEpsilon) const {
    return Equals(q, epsilon) || Equals(Quat(-q.x, -q.y, -q.z, -q.w), epsilon);
  }

  /// Vector part.
  constexpr Point3 Vector() const { return {x, y, z}; }
  constexpr float Scalar() const { return w; }

  /// Composition: (a * b).MakeMatrix() equals a.MakeMatrix() * b.MakeMatrix(), a applied first.
  /// In components this is the Hamilton product a b.
  constexpr Quat operator*(const Quat& q) const {
    return {w * q.x + x * q.w + y * q.z - z * q.y, w * q.y + y * q.w + z * q.x - x * q.z,
            w * q.z + z * q.w + x * q.y - y * q.x, w * q.w - x * q.x - y * q.y - z * q.z};
  }
  constexpr Quat& operator*=(const Quat& q) { return *this = *this * q; }
  /// Component-wise sums and scaling, for weighted averages (normalise the result).
  constexpr Quat operator+(const Quat& q) const { return {x + q.x, y + q.y, z + q.z, w + q.w}; }
  constexpr Quat operator-(const Quat& q) const { return {x - q.x, y - q.y, z - q.z, w - q.w}; }
  constexpr Quat operator*(float f) const { return {x * f, y * f, z * f, w * f}; }
  constexpr Quat operator/(float f) const { return {x / f, y / f, z / f, w / f}; }
  constexpr Quat& operator+=(const Quat& q) { return *this = *this + q; }
  constexpr Quat& operator-=(const Quat& q) { return *this = *this - q; }
  constexpr Quat& operator*=(float f) { return *this = *this * f; }
  /// All four components negated: the same rotation.
  constexpr Quat operator-() const { return {-x, -y, -z, -w}; }
  /// Exact comparison of components.
  constexpr bool operator==(const Quat& q) const {
    return x == q.x && y == q.y && z == q.z && w == q.w;
  }
  constexpr bool operator!=(const Quat& q) const { return !(*this == q); }
};

static_assert(sizeof(Quat) == 16 && std::is_trivially_copyable_v<Quat> &&
                  std::is_standard_layout_v<Quat>,
              "Quat is written to files as x, y, z, w");

constexpr Quat operator*(float f, const Quat& q) { return q * f; }

/// 4D dot product of two quaternions.
constexpr float QDot(const Quat& a, const Quat& b) {
  return a.x * b.x + a.y * b.y + a.z * b.z + a.w * b.w;
}
/// Conjugate of q.
constexpr Quat Conjugate(const Quat& q) { return q.Conjugate(); }
/// Inverse of q; a zero quaternion gives the identity.
Quat Inverse(const Quat& q);
/// q scaled to unit length; zero gives the identity.
Quat Normalize(const Quat& q);
/// Flips q in place to the hemisphere of ref (see Quat::MakeClosest); returns q.
Quat& MakeClosest(Quat& q, const Quat& ref);

/// Spherical linear interpolation of unit quaternions along the great arc from p (t = 0) to q
/// (t = 1), both as given: no hemisphere flip (call MakeClosest first for the short way). t is
/// not clamped, so it extrapolates. Near-equal p and q use normalised linear interpolation; for
/// q = -p the arc goes through a quaternion perpendicular to p. The result is unit length.
Quat Slerp(const Quat& p, const Quat& q, float t);

/// A rotation as an axis and an angle in radians, in the quaternion's sense (see the file
/// comment). The axis is not normalised on construction.
class AngAxis {
 public:
  Point3 axis{1.0f, 0.0f, 0.0f};
  float angle = 0.0f;

  constexpr AngAxis() = default;
  constexpr AngAxis(const Point3& a, float ang) : axis(a), angle(ang) {}
  constexpr AngAxis(float ax, float ay, float az, float ang) : axis(ax, ay, az), angle(ang) {}
  /// From a quaternion: a unit axis and an angle in [0, pi] (q is first brought to w >= 0, so
  /// the result may convert back to -q). The identity gives axis +X and angle 0.
  AngAxis(const Quat& q);

  constexpr AngAxis& Set(const Point3& a, float ang) {
    axis = a;
    angle = ang;
    return *this;
  }
};

/// The quaternion (n sin(ang/2), cos(ang/2)), n the normalised axis; a zero axis gives identity.
Quat QFromAngAxis(float ang, const Point3& axis);
/// Angle (radians, 0..pi) and unit axis of q, as AngAxis(q).
void AngAxisFromQ(const Quat& q, float* ang, Point3& axis);
