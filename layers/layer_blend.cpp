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

// The matrix of m with its rotation replaced by q. Rebuilt as translation, then sign, then
// rotation, then stretch (each pre-multiplied), which is the affine order
// stretch * sign * rotation * translation.
void ReplaceRotation(Matrix3& m, const Quat& q) {
  AffineParts parts;
  decomp_affine(m, &parts);
  Matrix3 r;
  r.SetTrans(parts.t);
  if (parts.f != 1.0f) r.PreScale(Point3(parts.f, parts.f, parts.f));
  if (!q.IsIdentity()) r.PreRotate(q);
  if (parts.k.x != 1.0f || parts.k.y != 1.0f || parts.k.z != 1.0f) {
    ApplyScaling(r, ScaleValue(parts.k, parts.u));
  }
  m = r;
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
  const ScaleValue n = ScaleValueOf(m);
  v.s = v.s + (n.s - v.s) * w;
  v.q = ClosestSlerp(v.q, n.q, w);
  ApplyScaleValue(m, v);
}

void BlendRotationStep(Matrix3& m, Quat& q, float w) {
  q = ClosestSlerp(q, Quat(m), w);
  ReplaceRotation(m, q);
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

Quat RotationOf(const Matrix3& m0) { return Quat(m0); }

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
