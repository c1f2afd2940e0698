// Copyright Marvolith contributors.
// Arithmetic of controller values (float, Point3, Point4, Quat, ScaleValue) shared by the
// keyframe, list and out-of-range code. Rotations compose in the host's order: a * b applies a
// first.
#pragma once

#include <cmath>
#include <cstdint>

#include "host/controllers/curve_core.h"
#include "host/core/control.h"
#include "host/math/affine.h"
#include "host/math/matrix3.h"

namespace host_controllers_internal {

template <typename V>
V Identity();
template <>
inline float Identity<float>() {
  return 0.0f;
}
template <>
inline Point3 Identity<Point3>() {
  return Point3();
}
template <>
inline Point4 Identity<Point4>() {
  return Point4();
}
template <>
inline Quat Identity<Quat>() {
  return Quat();
}
template <>
inline ScaleValue Identity<ScaleValue>() {
  return ScaleValue();
}

/// The scale whose matrix is MatrixFromScaleValue(first) * MatrixFromScaleValue(second): exact
/// factor products when both share one axis system, else the stretch of the matrix product
/// (its small leftover rotation is dropped).
inline ScaleValue ComposeScale(const ScaleValue& first, const ScaleValue& second) {
  if (first.q.EqualsRotation(second.q, 1e-7f)) return ScaleValue(first.s * second.s, first.q);
  Matrix3 m = MatrixFromScaleValue(first) * MatrixFromScaleValue(second);
  Point3 pos;
  Quat rot;
  ScaleValue out;
  DecomposeMatrix(m, pos, rot, out);
  return out;
}

// v moved the way `from` moves to `to`: the whole curve follows one edit.
inline float Shift(float v, float from, float to) { return v + (to - from); }
inline Point3 Shift(const Point3& v, const Point3& from, const Point3& to) {
  return v + (to - from);
}
inline Point4 Shift(const Point4& v, const Point4& from, const Point4& to) {
  return v + (to - from);
}
/// Rotations turn by the change applied first (local), which every slerp-built curve follows.
inline Quat Shift(const Quat& v, const Quat& from, const Quat& to) {
  return Normalize(to * Inverse(from) * v);
}
/// Factors scale by the ratio; a zero factor in `from` moves by the difference instead.
inline ScaleValue Shift(const ScaleValue& v, const ScaleValue& from, const ScaleValue& to) {
  ScaleValue r = v;
  for (int c = 0; c < 3; ++c) {
    r.s[c] = from.s[c] != 0.0f ? v.s[c] * (to.s[c] / from.s[c]) : v.s[c] + (to.s[c] - from.s[c]);
  }
  r.q = Normalize(to.q * Inverse(from.q) * v.q);
  return r;
}

// The target of a relative SetValue: float and points add, a rotation (an AngAxis) turns after
// the current one, a scale multiplies after the current one.
inline float RelativeTarget(float current, const void* delta) {
  return current + *static_cast<const float*>(delta);
}
inline Point3 RelativeTarget(const Point3& current, const void* delta) {
  return current + *static_cast<const Point3*>(delta);
}
inline Point4 RelativeTarget(const Point4& current, const void* delta) {
  return current + *static_cast<const Point4*>(delta);
}
inline Quat RelativeTarget(const Quat& current, const void* delta) {
  return Normalize(current * Quat(*static_cast<const AngAxis*>(delta)));
}
inline ScaleValue RelativeTarget(const ScaleValue& current, const void* delta) {
  return ComposeScale(current, *static_cast<const ScaleValue*>(delta));
}

// The value after n repeats of a cycle that runs from `start` to `end` (relative repeat).
inline float Repeat(float v, float start, float end, std::int64_t n) {
  return v + static_cast<float>(double(end - start) * double(n));
}
inline Point3 Repeat(const Point3& v, const Point3& start, const Point3& end, std::int64_t n) {
  return v + (end - start) * static_cast<float>(n);
}
inline Point4 Repeat(const Point4& v, const Point4& start, const Point4& end, std::int64_t n) {
  return v + (end - start) * static_cast<float>(n);
}
inline Quat Repeat(const Quat& v, const Quat& start, const Quat& end, std::int64_t n) {
  return Normalize(v * keycurve::QuatPow(Inverse(start) * end, double(n)));
}
inline ScaleValue Repeat(const ScaleValue& v,
                         const ScaleValue& start,
                         const ScaleValue& end,
                         std::int64_t n) {
  ScaleValue r = v;
  for (int c = 0; c < 3; ++c) {
    if (start.s[c] != 0.0f) {
      r.s[c] = static_cast<float>(v.s[c] * std::pow(double(end.s[c]) / start.s[c], double(n)));
    }
  }
  return r;
}

// A list item's contribution at weight w: points scale, a rotation turns w times as far, a
// scale moves its factors w of the way from 1.
inline float Weighted(float v, float w) { return v * w; }
inline Point3 Weighted(const Point3& v, float w) { return v * w; }
inline Point4 Weighted(const Point4& v, float w) { return v * w; }
inline Quat Weighted(const Quat& v, float w) {
  if (w == 1.0f) return v;
  return keycurve::QuatPow(v, w);
}
inline ScaleValue Weighted(const ScaleValue& v, float w) {
  if (w == 1.0f) return v;
  return ScaleValue(Point3(1, 1, 1) + (v.s - Point3(1, 1, 1)) * w, v.q);
}

// The value f steps of (end - inner) beyond end: linear extrapolation from two samples.
inline float Extend(float inner, float end, double f) {
  return static_cast<float>(end + (double(end) - inner) * f);
}
inline Point3 Extend(const Point3& inner, const Point3& end, double f) {
  return end + (end - inner) * static_cast<float>(f);
}
inline Point4 Extend(const Point4& inner, const Point4& end, double f) {
  return end + (end - inner) * static_cast<float>(f);
}
/// Rotations keep turning at the same rate about the same axis.
inline Quat Extend(const Quat& inner, const Quat& end, double f) {
  Quat e = end;
  e.MakeClosest(inner);
  return Slerp(inner, e, static_cast<float>(1.0 + f));
}
/// Scale factors continue linearly; the axis system stays that of the end.
inline ScaleValue Extend(const ScaleValue& inner, const ScaleValue& end, double f) {
  return ScaleValue(end.s + (end.s - inner.s) * static_cast<float>(f), end.q);
}

/// The kind of value a super class evaluates to.
enum class ValueKind { kNone, kFloat, kPoint3, kPosition, kRotation, kScale, kPoint4 };

inline ValueKind KindOf(SClass_ID super_class) {
  switch (super_class) {
    case CTRL_FLOAT_CLASS_ID:
      return ValueKind::kFloat;
    case CTRL_POINT3_CLASS_ID:
      return ValueKind::kPoint3;
    case CTRL_POSITION_CLASS_ID:
      return ValueKind::kPosition;
    case CTRL_ROTATION_CLASS_ID:
      return ValueKind::kRotation;
    case CTRL_SCALE_CLASS_ID:
      return ValueKind::kScale;
    case CTRL_POINT4_CLASS_ID:
      return ValueKind::kPoint4;
    default:
      return ValueKind::kNone;
  }
}

/// Relative GetValue: combines the absolute value `abs` into *val as the host's GetValue table
/// says (floats and points add; position, rotation, scale apply to a Matrix3).
inline void ApplyRelative(ValueKind kind, void* val, const void* abs) {
  switch (kind) {
    case ValueKind::kFloat:
      *static_cast<float*>(val) += *static_cast<const float*>(abs);
      break;
    case ValueKind::kPoint3:
      *static_cast<Point3*>(val) += *static_cast<const Point3*>(abs);
      break;
    case ValueKind::kPoint4: {
      auto* p = static_cast<Point4*>(val);
      *p = *p + *static_cast<const Point4*>(abs);
      break;
    }
    case ValueKind::kPosition:
      static_cast<Matrix3*>(val)->PreTranslate(*static_cast<const Point3*>(abs));
      break;
    case ValueKind::kRotation:
      static_cast<Matrix3*>(val)->PreRotate(*static_cast<const Quat*>(abs));
      break;
    case ValueKind::kScale:
      ApplyScaleValue(*static_cast<Matrix3*>(val), *static_cast<const ScaleValue*>(abs));
      break;
    case ValueKind::kNone:
      break;
  }
}

}  // namespace host_controllers_internal
