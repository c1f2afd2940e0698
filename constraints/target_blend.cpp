// Copyright Marvolith contributors.
#include "constraints/target_blend.h"

#include <cmath>

#include "host/math/affine.h"

namespace marvolith {
namespace {

/// Factors below this are not divided by (a collapsed axis has no ratio).
constexpr float kMinFactor = 1e-6f;

float Ratio(float value, float reference) {
  return std::fabs(reference) < kMinFactor ? value : value / reference;
}

Matrix3 RotationOf(const Quat& q) {
  Matrix3 m;
  q.MakeMatrix(m);
  return m;
}

/// Rows this close to unit length and to perpendicular make a rotation: no stretch to find.
constexpr float kRigidEpsilon = 1e-6f;

/// True when m's rows are a right-handed orthonormal frame (the common case of rig targets).
bool IsRigid(const Matrix3& m) {
  const Point3 x = m.GetRow(0), y = m.GetRow(1), z = m.GetRow(2);
  auto unit = [](const Point3& v) {
    return std::fabs(v.LengthSquared() - 1.0f) < 2.0f * kRigidEpsilon;
  };
  return unit(x) && unit(y) && unit(z) && std::fabs(DotProd(x, y)) < kRigidEpsilon &&
         std::fabs(DotProd(y, z)) < kRigidEpsilon && std::fabs(DotProd(z, x)) < kRigidEpsilon &&
         DotProd(CrossProd(x, y), z) > 0.0f;
}

}  // namespace

BlendParts StableDecompose(const Matrix3& m) {
  if (IsRigid(m)) {
    // The polar decomposition of a rotation is the rotation itself.
    BlendParts out;
    out.p = m.GetTrans();
    out.q = Quat(m);
    if (out.q.w < 0.0f) out.q = -out.q;
    return out;
  }
  AffineParts a;
  decomp_affine(m, &a);
  BlendParts out{a.t, a.q, a.k, a.u};
  if (a.f >= 0.0f) return out;

  // m = S(k', u) * R with one factor of k' negative: try each axis for the sign and keep the one
  // that leaves R turned least.
  Matrix3 rows = m;
  rows.NoTrans();
  float best_w = -1.0f;
  for (int axis = 0; axis < 3; ++axis) {
    Point3 k = a.k;
    k[axis] = -k[axis];
    Matrix3 r = Inverse(MatrixFromScaleValue(ScaleValue(k, a.u))) * rows;
    r.Orthogonalize();
    const Quat q(r);
    const float w = std::fabs(q.w);
    if (axis == 0 || w > best_w + kMirrorAxisMargin) {
      best_w = w;
      out.q = q;
      out.k = k;
    }
  }
  return out;
}

Matrix3 ComposeBlendParts(const BlendParts& parts) {
  Matrix3 m = RotationOf(parts.q);
  m.SetTrans(parts.p);
  if (!(parts.k == Point3(1.0f, 1.0f, 1.0f)))
    m = MatrixFromScaleValue(ScaleValue(parts.k, parts.u)) * m;
  return m;
}

float TargetBlend::Fraction(float w) {
  total_ += w;
  if (total_ != 0.0f) fraction_ = w / total_;
  return fraction_;
}

void TargetBlend::Add(const BlendParts& parts, float w) {
  const float f = Fraction(w);
  pos_sum_ += parts.p * w;
  scale_sum_ += parts.k * w;
  Quat q = Normalize(parts.q);
  MakeClosest(q, q_acc_);
  q_acc_ = Normalize(Slerp(q_acc_, q, f));
  Quat u = Normalize(parts.u);
  MakeClosest(u, u_acc_);
  u_acc_ = Normalize(Slerp(u_acc_, u, f));
}

void TargetBlend::AddScale(const ScaleValue& s, float w) {
  const float f = Fraction(w);
  scale_sum_ += s.s * w;
  Quat u = Normalize(s.q);
  MakeClosest(u, u_acc_);
  u_acc_ = Normalize(Slerp(u_acc_, u, f));
}

BlendParts TargetBlend::Parts() const {
  BlendParts out;
  if (!HasBlend()) return out;
  out.p = pos_sum_ / total_;
  out.k = scale_sum_ / total_;
  out.q = q_acc_;
  MakeClosest(out.q, Quat());
  out.q = Normalize(out.q);
  out.u = u_acc_;
  return out;
}

ScaleValue TargetBlend::Scale() const {
  if (!HasBlend()) return ScaleValue();
  return ScaleValue(scale_sum_ / total_, u_acc_);
}

Matrix3 ApplyBlendChange(const Matrix3& base, const Matrix3& from, const Matrix3& to) {
  const BlendParts b = StableDecompose(base);
  const BlendParts f = StableDecompose(from);
  const BlendParts n = StableDecompose(to);
  BlendParts out = b;
  out.p = b.p + (n.p - f.p);
  out.q = Normalize(b.q * (Inverse(f.q) * n.q));
  for (int i = 0; i < 3; ++i) out.k[i] = b.k[i] * Ratio(n.k[i], f.k[i]);
  return ComposeBlendParts(out);
}

ScaleValue RelativeScale(const ScaleValue& value,
                         const ScaleValue& reference,
                         const ScaleValue& base) {
  ScaleValue out;
  for (int i = 0; i < 3; ++i) out.s[i] = Ratio(value.s[i], reference.s[i]) * base.s[i];
  out.q = Normalize(value.q * Inverse(reference.q) * base.q);
  return out;
}

}  // namespace marvolith
