// Copyright Marvolith contributors.
// rapidcheck generators of host math values: floats in a range, points, unit vectors, rotations
// (as quaternions and as matrices), Euler triples away from gimbal lock, and non-degenerate
// affine matrices (stretch, optional mirror, rotation, translation). Matrices are built from
// RotateX/Y/Z products and ScaleMatrix, not from the decomposition code they often test.
#pragma once

#include <rapidcheck.h>

#include <cmath>
#include <numbers>
#include <ostream>

#include "host/math/euler.h"
#include "host/math/matrix3.h"
#include "host/math/point3.h"
#include "host/math/quat.h"
#include "tests/support/math_matchers.h"

// rapidcheck shows counterexamples through showValue (argument-dependent lookup).
inline void showValue(const Point3& p, std::ostream& os) { PrintTo(p, &os); }
inline void showValue(const Quat& q, std::ostream& os) { PrintTo(q, &os); }
inline void showValue(const Matrix3& m, std::ostream& os) { PrintTo(m, &os); }

namespace marvolith::test {

inline constexpr float kPi = std::numbers::pi_v<float>;

/// Floats in [lo, hi] on a grid of a millionth of the range (shrinks towards lo).
inline rc::Gen<float> GenFloat(float lo, float hi) {
  return rc::gen::map(rc::gen::inRange(0, 1000001), [lo, hi](int i) {
    return lo + (hi - lo) * (static_cast<float>(i) / 1000000.0f);
  });
}

/// Angles in radians in [-pi, pi].
inline rc::Gen<float> GenAngle() { return GenFloat(-kPi, kPi); }

/// Points with each coordinate in [-range, range].
inline rc::Gen<Point3> GenPoint3(float range) {
  return rc::gen::apply([](float x, float y, float z) { return Point3(x, y, z); },
                        GenFloat(-range, range), GenFloat(-range, range), GenFloat(-range, range));
}

/// Unit vectors, with the world axes and their negatives mixed in.
inline rc::Gen<Point3> GenUnitVector() {
  auto random = rc::gen::map(
      rc::gen::suchThat(GenPoint3(1.0f), [](const Point3& p) { return p.Length() > 0.1f; }),
      [](const Point3& p) { return Normalize(p); });
  auto axes = rc::gen::element(Point3::XAxis, Point3::YAxis, Point3::ZAxis, -Point3::XAxis,
                               -Point3::YAxis, -Point3::ZAxis);
  return rc::gen::weightedOneOf<Point3>({{6, random}, {1, axes}});
}

/// Unit quaternions of either sign, with identity, half turns and quarter turns about the axes
/// mixed in (they take the rarer branches of matrix-to-quaternion code).
inline rc::Gen<Quat> GenRotation() {
  auto random = rc::gen::map(
      rc::gen::suchThat(
          rc::gen::apply([](float x, float y, float z, float w) { return Quat(x, y, z, w); },
                         GenFloat(-1, 1), GenFloat(-1, 1), GenFloat(-1, 1), GenFloat(-1, 1)),
          [](const Quat& q) { return q.Length() > 0.1f; }),
      [](const Quat& q) { return Normalize(q); });
  const float h = std::sqrt(0.5f);
  auto special = rc::gen::element(Quat(), Quat(0, 0, 0, -1), Quat(1, 0, 0, 0), Quat(0, 1, 0, 0),
                                  Quat(0, 0, 1, 0), Quat(h, 0, 0, h), Quat(0, h, 0, h),
                                  Quat(0, 0, h, h), Quat(0, 0, -h, h));
  return rc::gen::weightedOneOf<Quat>({{8, random}, {1, special}});
}

/// Rotation matrices built as RotateXMatrix(a) * RotateYMatrix(b) * RotateZMatrix(c).
inline rc::Gen<Matrix3> GenRotationMatrix() {
  return rc::gen::apply(
      [](float a, float b, float c) {
        return RotateXMatrix(a) * RotateYMatrix(b) * RotateZMatrix(c);
      },
      GenAngle(), GenAngle(), GenAngle());
}

/// Euler triples for an order whose middle angle keeps at least margin radians from gimbal
/// lock (Tait-Bryan: |b| <= pi/2 - margin; repeated axes: margin <= b <= pi - margin). The outer
/// angles lie in [-pi, pi].
inline rc::Gen<Point3> GenEulerAwayFromLock(int order, float margin = 0.05f) {
  bool repeated = order >= EULERTYPE_XYX;
  float lo = repeated ? margin : -0.5f * kPi + margin;
  float hi = repeated ? kPi - margin : 0.5f * kPi - margin;
  return rc::gen::apply([](float a, float b, float c) { return Point3(a, b, c); }, GenAngle(),
                        GenFloat(lo, hi), GenAngle());
}

/// Options of GenAffine.
struct AffineGenOptions {
  float min_scale = 0.25f;  ///< stretch factors lie in [min_scale, max_scale]
  float max_scale = 4.0f;
  bool allow_mirror = true;  ///< half of the matrices then mirror one axis
  float max_translation = 100.0f;
};

/// Non-degenerate affine matrices: a stretch along rotated axes (so skew appears), an optional
/// mirror of one axis, a rotation and a translation, composed in that order.
inline rc::Gen<Matrix3> GenAffine(AffineGenOptions options = {}) {
  return rc::gen::apply(
      [](const Matrix3& stretch_axes, const Point3& k, int mirror, const Matrix3& rot,
         const Point3& t) {
        Matrix3 m = Inverse(stretch_axes) * ScaleMatrix(k) * stretch_axes;
        if (mirror >= 0) {
          Point3 flip(1, 1, 1);
          flip[mirror] = -1.0f;
          m = m * ScaleMatrix(flip);
        }
        m = m * rot;
        m.SetTrans(t);
        return m;
      },
      GenRotationMatrix(),
      rc::gen::apply([](float x, float y, float z) { return Point3(x, y, z); },
                     GenFloat(options.min_scale, options.max_scale),
                     GenFloat(options.min_scale, options.max_scale),
                     GenFloat(options.min_scale, options.max_scale)),
      options.allow_mirror ? rc::gen::inRange(-3, 3) : rc::gen::just(-1), GenRotationMatrix(),
      GenPoint3(options.max_translation));
}

}  // namespace marvolith::test
