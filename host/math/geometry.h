// Copyright Marvolith contributors.
// Solver geometry shared by the chains, constraints and float tracks: guarded division, aim
// rotations and look-at frames. Quaternions follow quat.h's convention.
#pragma once

#include <cmath>

#include "host/math/matrix3.h"
#include "host/math/point3.h"
#include "host/math/quat.h"
#include "host/math/tolerances.h"

/// a / b, with b replaced by eps when |b| is below eps (so a tiny negative divisor turns
/// positive). eps > 0 is the caller's (kSolverSafeDivEpsilon, kFloatMathSafeDivEpsilon).
inline float SafeDiv(float a, float b, float eps) { return a / ((b < 0 ? -b : b) < eps ? eps : b); }

/// An axis index (0 X, 1 Y, 2 Z) taken from a user value: 0 and 1 stand, anything else (2,
/// negative, past 2) reads as Z, the default axis of the host's axis choices.
constexpr int AxisOrZ(int axis) { return axis == 0 || axis == 1 ? axis : 2; }

/// The rotation that brings axis `axis` (0 X, 1 Y, 2 Z; others read as Z, see AxisOrZ) onto +X,
/// or onto -X with flip: the identity, (0, 0, 1, 0) for X flipped, (0, 0, +-0.70710677,
/// 0.70710677) for Y and (0, -+0.70710677, 0, 0.70710677) for Z. Aims and chains use it to
/// point a chosen axis of a node where X would point.
Quat AxisQuat(int axis, bool flip);

/// The matrix of AxisQuat(axis, flip) with exact entries: rows are signed unit axes, row `axis`
/// is +X (-X with flip) and the determinant is 1 (a flip is the half turn of the unflipped
/// matrix about its third axis, so no frame built on it ever mirrors). B = AxisMatrix(a, f) * F
/// is the frame F re-labelled so that its axis a serves as X.
Matrix3 AxisMatrix(int axis, bool flip);

/// The quaternion (sin(-a/2), 0, 0, cos(-a/2)): the turn by a radians about X in the sense of
/// RotateXMatrix(a) (Y towards Z).
Quat XRotation(float a);

/// The shortest rotation taking +X onto the direction of v: angle acos(v.x / |v|), axis the
/// normal of (0, v.z, -v.y). |v| below kAimXMinLength gives the identity; v along -X (no
/// unique axis) gives the half turn about +Z.
Quat AimX(const Point3& v);

/// The shortest rotation taking the direction of a onto that of b: angle acos(a.b / (|a||b|)),
/// axis normalize(b x a). The angle is 0 (identity) when |a||b| is below
/// kRotationBetweenMinLengthProduct; opposite a and b (no unique axis) give the half turn about
/// the normal of a x W, W the world axis least aligned with a.
Quat RotationBetween(const Point3& a, const Point3& b);

/// Cosine and sine of half the angle atan2(s, c), found without trig functions (solvers that
/// already hold a cosine and a sine need no angle). The half angle lies in (-pi/2, pi/2], so
/// `cos` is never negative; c = s = 0 gives the zero angle. Each branch divides by the larger
/// half, so neither loses precision near 0 or pi.
struct HalfAngle {
  float cos = 1.0f;
  float sin = 0.0f;
};
inline HalfAngle HalfAngleOf(float c, float s) {
  const float r = std::sqrt(c * c + s * s);
  if (!(r > 0.0f)) return {};
  if (c >= 0.0f) {
    const float ch = std::sqrt((r + c) / (2.0f * r));
    return {ch, s / (2.0f * r * ch)};
  }
  const float sh = std::copysign(std::sqrt((r - c) / (2.0f * r)), s);
  return {s / (2.0f * r * sh), sh};
}

/// AimX(v) without trig functions, equal to it up to float rounding; the degenerate cases (v
/// short, or on the X line) are AimX's own.
inline Quat AimXFast(const Point3& v) {
  const float r = std::sqrt(v.y * v.y + v.z * v.z);
  if (!(r >= 1e-15f) || !(v.Length() >= kAimXMinLength)) return AimX(v);
  const HalfAngle h = HalfAngleOf(v.x, r);
  const float k = h.sin / r;  // the axis (0, v.z, -v.y) / r, scaled by the half sine
  return {0.0f, v.z * k, -v.y * k, h.cos};
}

/// Inverse(m), read off as the transpose when m's rows 0..2 are orthonormal (a rigid transform,
/// within float rounding), which saves the general inverse's singularity test and cofactors.
/// Any other m goes to Inverse.
inline Matrix3 InverseOfRigid(const Matrix3& m) {
  const Point3 r0 = m.GetRow(0), r1 = m.GetRow(1), r2 = m.GetRow(2), t = m.GetTrans();
  constexpr float kTol = 1e-6f;
  if (!(std::fabs(r0 % r0 - 1.0f) <= kTol && std::fabs(r1 % r1 - 1.0f) <= kTol &&
        std::fabs(r2 % r2 - 1.0f) <= kTol && std::fabs(r0 % r1) <= kTol &&
        std::fabs(r1 % r2) <= kTol && std::fabs(r2 % r0) <= kTol)) {
    return Inverse(m);
  }
  return Matrix3(Point3(r0.x, r1.x, r2.x), Point3(r0.y, r1.y, r2.y), Point3(r0.z, r1.z, r2.z),
                 -Point3(t % r0, t % r1, t % r2));
}

/// The angle of RotationBetween(a, b) alone, radians in [0, pi]; 0 when |a||b| is below
/// kRotationBetweenMinLengthProduct.
float AngleBetween(const Point3& a, const Point3& b);

/// A right-handed orthonormal frame at o: X = normalize(a - o), Z = normalize(X x
/// normalize(b - o)), Y = normalize(Z x X), translation o. Degenerate input: a at o gives X =
/// +X; b on the X line (or at o) gives Z = normalize(X x W), W the world axis least aligned
/// with X (so the world frame when X is +X).
Matrix3 LookFrame(const Point3& o, const Point3& a, const Point3& b);

/// Clips the segment a..b in place to the rectangle [lo.x, hi.x] x [lo.y, hi.y] of the x-y plane,
/// edges included (Liang-Barsky, in double). Only x and y decide; z is interpolated along with
/// them, so screen points keep their depth. An end inside the rectangle is left bit for bit as it
/// was. False when no part of the segment lies inside, with a and b unchanged; a segment of zero
/// length is inside when its point is; a rectangle with lo above hi holds nothing.
bool ClipSegmentToRect(Point3& a, Point3& b, const Point2& lo, const Point2& hi);

/// LookFrame without origin: X = normalize(a), Z = normalize(X x normalize(b)),
/// Y = normalize(Z x X), translation zero; the same degenerate rules with o = 0.
Matrix3 AimFrame(const Point3& a, const Point3& b);
