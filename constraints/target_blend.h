// Copyright Marvolith contributors.
// The weighted blend of target transforms that the multi-target constraints share: a stable
// decomposition that keeps mirrored targets from flipping, and a running blend of positions,
// rotations and scales. Pure functions over host math values: no nodes, blocks or undo.
#pragma once

#include "host/math/matrix3.h"
#include "host/math/point3.h"
#include "host/math/quat.h"
#include "host/math/scale_value.h"

namespace marvolith {

/// A transform split for blending: M = MatrixFromScaleValue(ScaleValue(k, u)) * Matrix(q) *
/// TransMatrix(p), within float rounding.
struct BlendParts {
  Point3 p;
  Quat q;
  Point3 k{1.0f, 1.0f, 1.0f};
  Quat u;
};

/// The parts of m. A mirroring m carries its negative sign on one factor of k, the axis whose
/// remaining rotation is closest to the identity (the greatest |w|; a later axis must beat an
/// earlier one by more than kMirrorAxisMargin), so that blending a mirrored target with plain
/// ones does not turn the other axes over. A plain m gives decomp_affine's parts.
BlendParts StableDecompose(const Matrix3& m);
inline constexpr float kMirrorAxisMargin = 0.0001f;

/// Builds the transform of parts: translation p, then Matrix(q), then the scale of k along u
/// unless k is exactly 1, 1, 1.
Matrix3 ComposeBlendParts(const BlendParts& parts);

/// The running weighted blend of transforms. Positions and factors are weighted sums; rotations
/// (and the scale axes) are blended incrementally: each new one is slerped into the running value
/// by w / (sum of weights so far), which is the weighted average for two inputs but depends on
/// the order from three on. A weight that leaves the sum at 0 keeps the previous fraction.
class TargetBlend {
 public:
  /// Adds one input with weight w.
  void Add(const BlendParts& parts, float w);
  /// Adds only the scale part (factors and axis) of an input.
  void AddScale(const ScaleValue& s, float w);

  /// True when the weights sum above 0, so a blend exists.
  bool HasBlend() const { return total_ > 0.0f; }
  /// The blended parts; meaningful when HasBlend. The rotation is in the identity's hemisphere.
  BlendParts Parts() const;
  /// The blended scale (factors and axis); meaningful when HasBlend.
  ScaleValue Scale() const;
  /// ComposeBlendParts(Parts()).
  Matrix3 Result() const { return ComposeBlendParts(Parts()); }

 private:
  /// The fraction the next input is slerped in by, after its weight is counted.
  float Fraction(float w);

  Point3 pos_sum_;
  Point3 scale_sum_;
  float total_ = 0.0f;
  float fraction_ = 0.0f;
  Quat q_acc_;
  Quat u_acc_;
};

/// The change from `from` to `to`, applied to base: the difference of positions is added, the
/// rotation from `from` to `to` is applied after base's own, and base's factors are multiplied by
/// the ratio of factors (a factor of `from` near 0 keeps base's). The relative mode of the
/// transform constraint: blendAtAdd to the present blend, over the transform it started from.
Matrix3 ApplyBlendChange(const Matrix3& base, const Matrix3& from, const Matrix3& to);

/// Factors of `value` divided component by component by those of `reference` (a reference factor
/// near 0 leaves the value's), then multiplied by those of `base`; the axes the same way through
/// quaternions: value * Inverse(reference) * base. The relative mode of the scale constraint.
ScaleValue RelativeScale(const ScaleValue& value,
                         const ScaleValue& reference,
                         const ScaleValue& base);

}  // namespace marvolith
