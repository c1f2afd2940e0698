// Copyright Marvolith contributors.
#include "layers/layer_blend.h"

#include <bit>
#include <cmath>
#include <cstdint>

#include "host/math/affine.h"
#include "host/math/euler.h"

namespace marvolith {
namespace {

// Axis sequence of the Tait-Bryan orders 0..5 (0 X, 1 Y, 2 Z); layers only blend these.
constexpr int kEulerAxes[6][3] = {{0, 1, 2}, {0, 2, 1}, {1, 2, 0}, {1, 0, 2}, {2, 0, 1}, {2, 1, 0}};

// An order outside 0..5 reads as XYZ, as a base rotation without Euler angles does.
constexpr int ClampOrder(int order) { return order >= 0 && order < 6 ? order : 0; }

// Largest step of a relative Euler turn: 135 degrees keeps each step well inside the half turn
// within which ContinuousQuatToEuler can follow it.
constexpr float kEulerTurnStep = 2.3561945f;
// Beyond this many radians a turn drops its whole turns before stepping: stepping would take
// too long and the float angles could not hold the turns anyway.
constexpr float kEulerTurnLimit = 1.0e4f;
constexpr float kTwoPi = 6.28318530718f;

void ByAxisToSequence(const float by_axis[3], int order, float seq[3]) {
  for (int step = 0; step < 3; ++step) seq[step] = by_axis[kEulerAxes[order][step]];
}

void SequenceToByAxis(const float seq[3], int order, float by_axis[3]) {
  for (int step = 0; step < 3; ++step) by_axis[kEulerAxes[order][step]] = seq[step];
}

// Rows this close to orthonormal read as a pure rotation: a quaternion's matrix is that exact
// within float rounding.
constexpr float kRigidTolerance = 2e-6f;

// True when the rows of m's 3x3 part are mutually perpendicular, non-zero and right-handed: m is
// a scale along its own rows times a rotation, whose stretch is the row lengths along the
// identity axes.
bool RowsOrthogonal(const Matrix3& m, Point3& lengths_squared) {
  const Point3 r0 = m.GetRow(0);
  const Point3 r1 = m.GetRow(1);
  const Point3 r2 = m.GetRow(2);
  lengths_squared = Point3(DotProd(r0, r0), DotProd(r1, r1), DotProd(r2, r2));
  const float scale = lengths_squared.x + lengths_squared.y + lengths_squared.z;
  return lengths_squared.x > kRigidTolerance && lengths_squared.y > kRigidTolerance &&
         lengths_squared.z > kRigidTolerance &&
         std::fabs(DotProd(r0, r1)) <= kRigidTolerance * scale &&
         std::fabs(DotProd(r0, r2)) <= kRigidTolerance * scale &&
         std::fabs(DotProd(r1, r2)) <= kRigidTolerance * scale &&
         DotProd(CrossProd(r0, r1), r2) > 0.0f;
}

// decomp_affine, with the common rigid case (rotation and translation only, no mirror) read
// directly: the polar decomposition costs about ten times the quaternion.
void DecomposeForBlend(const Matrix3& m, AffineParts& parts) {
  const Point3 r0 = m.GetRow(0);
  const Point3 r1 = m.GetRow(1);
  const Point3 r2 = m.GetRow(2);
  const bool rigid = std::fabs(DotProd(r0, r0) - 1.0f) <= kRigidTolerance &&
                     std::fabs(DotProd(r1, r1) - 1.0f) <= kRigidTolerance &&
                     std::fabs(DotProd(r2, r2) - 1.0f) <= kRigidTolerance &&
                     std::fabs(DotProd(r0, r1)) <= kRigidTolerance &&
                     std::fabs(DotProd(r0, r2)) <= kRigidTolerance &&
                     std::fabs(DotProd(r1, r2)) <= kRigidTolerance &&
                     DotProd(CrossProd(r0, r1), r2) > 0.0f;
  if (!rigid) {
    decomp_affine(m, &parts);
    return;
  }
  parts = AffineParts();
  parts.t = m.GetTrans();
  parts.q = Normalize(Quat(m));
  if (parts.q.w < 0.0f) parts.q = -parts.q;
}

// The matrix of `parts` with its rotation replaced by q. Rebuilt as translation, then sign, then
// rotation, then stretch (each pre-multiplied), which is the affine order
// stretch * sign * rotation * translation.
Matrix3 ComposeWithRotation(const AffineParts& parts, const Quat& q) {
  Matrix3 r;
  r.SetTrans(parts.t);
  if (parts.f != 1.0f) r.PreScale(Point3(parts.f, parts.f, parts.f));
  if (!q.IsIdentity()) r.PreRotate(q);
  if (parts.k.x != 1.0f || parts.k.y != 1.0f || parts.k.z != 1.0f) {
    ApplyScaling(r, ScaleValue(parts.k, parts.u));
  }
  return r;
}

// The slerp from `from` towards `to` the short way, extended to factor t.
Quat ClosestSlerp(const Quat& from, const Quat& to, float t) {
  Quat target = to;
  target.MakeClosest(from);
  return Slerp(from, target, t);
}

}  // namespace

void BlendPositionStep(Matrix3& m, Point3& p, float w) {
  const Point3 q = m.GetTrans();
  p = p + (q - p) * w;
  m.SetTrans(p);
}

void BlendScaleStep(Matrix3& m, ScaleValue& v, float w) {
  Point3 lengths_squared;
  if (!RowsOrthogonal(m, lengths_squared)) {
    const ScaleValue n = ScaleValueOf(m);
    v.s = v.s + (n.s - v.s) * w;
    v.q = ClosestSlerp(v.q, n.q, w);
    ApplyScaleValue(m, v);
    return;
  }
  // Scale along the rows times a rotation, the usual case: the stretch is the row lengths along
  // the identity axes and orthogonalising normalises the rows, as the general path does without
  // two polar decompositions.
  const Point3 n(std::sqrt(lengths_squared.x), std::sqrt(lengths_squared.y),
                 std::sqrt(lengths_squared.z));
  v.s = v.s + (n - v.s) * w;
  v.q = ClosestSlerp(v.q, Quat(), w);
  for (int r = 0; r < 3; ++r) m.SetRow(r, m.GetRow(r) / n[r]);
  if (v.s.x != 1.0f || v.s.y != 1.0f || v.s.z != 1.0f) m = MatrixFromScaleValue(v) * m;
}

void BlendRotationStep(Matrix3& m, Quat& q, float w) {
  // The rotation is read from the same decomposition that rebuilds m: under a mirroring matrix
  // Quat(m) reads another rotation than the one the sign factor is paired with.
  AffineParts parts;
  DecomposeForBlend(m, parts);
  q = ClosestSlerp(q, parts.q, w);
  m = ComposeWithRotation(parts, q);
}

void BlendEulerStep(float acc[3], const float e[3], float w, bool additive) {
  for (int a = 0; a < 3; ++a) {
    if (additive) {
      acc[a] += w * e[a];
    } else {
      acc[a] += (e[a] - acc[a]) * w;
    }
  }
}

ScaleValue ScaleValueOf(const Matrix3& m0) {
  AffineParts parts;
  decomp_affine(m0, &parts);
  return ScaleValue(parts.k, parts.u);
}

Quat RotationOf(const Matrix3& m0) {
  AffineParts parts;
  DecomposeForBlend(m0, parts);
  return parts.q;
}

Matrix3 EulerByAxisToMatrix(const float by_axis[3], int order) {
  order = ClampOrder(order);
  Matrix3 m;
  for (int step = 0; step < 3; ++step) {
    const int axis = kEulerAxes[order][step];
    const float angle = by_axis[axis];
    if (axis == 0) {
      m.RotateX(angle);
    } else if (axis == 1) {
      m.RotateY(angle);
    } else {
      m.RotateZ(angle);
    }
  }
  return m;
}

void QuatToEulerByAxis(const Quat& q, int order, float by_axis[3]) {
  order = ClampOrder(order);
  float seq[3];
  QuatToEuler(q, seq, order);
  SequenceToByAxis(seq, order, by_axis);
}

void ContinuousQuatToEulerByAxis(const Quat& q, int order, float by_axis[3]) {
  order = ClampOrder(order);
  float seq[3];
  ByAxisToSequence(by_axis, order, seq);
  ContinuousQuatToEuler(q, seq, order);
  SequenceToByAxis(seq, order, by_axis);
}

void ApplyEulerTurn(float by_axis[3], int order, const AngAxis& turn) {
  order = ClampOrder(order);
  float remaining = turn.angle;
  // A turn that is not finite has no rotation to apply: the angles stay.
  if (!std::isfinite(remaining) || !std::isfinite(turn.axis.x) || !std::isfinite(turn.axis.y) ||
      !std::isfinite(turn.axis.z)) {
    return;
  }
  if (std::fabs(remaining) > kEulerTurnLimit) remaining = std::fmod(remaining, kTwoPi);
  Quat q(EulerByAxisToMatrix(by_axis, order));
  auto step = [&](float angle) {
    q = q * Quat(AngAxis(turn.axis, angle));
    ContinuousQuatToEulerByAxis(q, order, by_axis);
  };
  while (std::fabs(remaining) > kEulerTurnStep) {
    const float s = remaining > 0.0f ? kEulerTurnStep : -kEulerTurnStep;
    step(s);
    remaining -= s;
  }
  step(remaining);
}

// The solvers below divide by w; the controllers never write at weight 0, and a weight of 0
// reaching here answers the wanted value unchanged rather than infinities.

float SolveFloatLayer(float v, float below, float w, int type) {
  if (w == 0.0f) return v;
  const float f = type != kLayerAdjustment ? 1.0f - w : 1.0f;
  return (v - f * below) / w;
}

Point3 SolvePositionLayer(const Point3& v, const Point3& below, float w, int type) {
  if (w == 0.0f) return v;
  const float f = type != kLayerAdjustment ? 1.0f - w : 1.0f;
  return (v - below * f) / w;
}

bool SolveScaleLayer(
    const ScaleValue& v, const ScaleValue& below, float w, int type, ScaleValue& out) {
  if (w == 0.0f) return false;
  // Both types cross-fade the stretch from below; only the rotation and the division below make
  // an Adjustment layer relative.
  Point3 s = (v.s - below.s * (1.0f - w)) / w;
  Quat q = ClosestSlerp(below.q, v.q, 1.0f / w);
  if (type == kLayerAdjustment) {
    if (below.s.x == 0.0f || below.s.y == 0.0f || below.s.z == 0.0f) return false;
    q = Inverse(below.q) * q;
    s = Point3(s.x / below.s.x, s.y / below.s.y, s.z / below.s.z);
  }
  out = ScaleValue(s, q);
  return true;
}

Quat SolveRotationLayer(const Quat& q, const Quat& below, float w, int type) {
  if (w == 0.0f) return q;
  // Extrapolating the slerp by 1 / w undoes the layer's cross-fade by w.
  Quat r = ClosestSlerp(below, q, 1.0f / w);
  if (type == kLayerAdjustment) r = r * Inverse(below);
  return r;
}

void SolveEulerLayer(const float acc[3], const float below[3], float w, int type, float out[3]) {
  for (int a = 0; a < 3; ++a) {
    if (w == 0.0f) {
      out[a] = acc[a];
    } else if (type != kLayerOverride) {
      out[a] = (acc[a] - below[a]) / w;
    } else {
      out[a] = (acc[a] - (1.0f - w) * below[a]) / w;
    }
  }
}

BakedTangents BakeTangents(float v, float a, float c, int h) {
  BakedTangents t;
  // Half a frame of no ticks has no slope to measure: flat tangents.
  if (h <= 0) return t;
  const float span = static_cast<float>(h);
  t.in = -(v - a) / span;
  t.out = (c - v) / span;
  return t;
}

float BakedTangentLength() { return std::bit_cast<float>(std::uint32_t{0x3EAAAA9Fu}); }

}  // namespace marvolith
