// Copyright Marvolith contributors.
// ScaleValue: per-axis scale factors in an axis system, the value of scale controllers.
#pragma once

#include <type_traits>

#include "host/math/point3.h"
#include "host/math/quat.h"

/// Scale factors s applied along the axes of the rotation q (the stretch axis system): the
/// matrix is Inverse(Matrix(q)) * ScaleMatrix(s) * Matrix(q) (MatrixFromScaleValue). 28 bytes in
/// files: s then q. Default: factors 1, 1, 1 and the identity axis system.
class ScaleValue {
 public:
  Point3 s{1.0f, 1.0f, 1.0f};
  Quat q;

  constexpr ScaleValue() = default;
  constexpr ScaleValue(const Point3& factors) : s(factors) {}
  constexpr ScaleValue(const Point3& factors, const Quat& axis) : s(factors), q(axis) {}

  /// Component-wise sums and scaling of both parts, as the host does for weighted blends of
  /// scale keys; q of a blend wants normalising before use.
  constexpr ScaleValue operator+(const ScaleValue& v) const { return {s + v.s, q + v.q}; }
  constexpr ScaleValue operator-(const ScaleValue& v) const { return {s - v.s, q - v.q}; }
  constexpr ScaleValue operator*(float f) const { return {s * f, q * f}; }
  constexpr ScaleValue operator/(float f) const { return {s / f, q / f}; }
  constexpr ScaleValue& operator+=(const ScaleValue& v) { return *this = *this + v; }
  constexpr ScaleValue& operator-=(const ScaleValue& v) { return *this = *this - v; }
  constexpr ScaleValue& operator*=(float f) { return *this = *this * f; }
  constexpr ScaleValue& operator/=(float f) { return *this = *this / f; }
  /// Exact comparison.
  constexpr bool operator==(const ScaleValue& v) const { return s == v.s && q == v.q; }
};

constexpr ScaleValue operator*(float f, const ScaleValue& v) { return v * f; }

static_assert(sizeof(ScaleValue) == 28 && std::is_trivially_copyable_v<ScaleValue> &&
                  std::is_standard_layout_v<ScaleValue>,
              "ScaleValue is written to files as a Point3 and a Quat");
