// Copyright Marvolith contributors.
#include "controllers/float_math.h"

#include <algorithm>
#include <cmath>

#include "host/math/euler.h"
#include "host/math/geometry.h"
#include "host/math/tolerances.h"

namespace marvolith {
namespace {

constexpr float kTwoPi = 6.2831855f;
constexpr float kPi = 3.1415927f;

// A span of magnitude at most the guard becomes the guard itself (positive).
float GuardSpan(float d) { return std::fabs(d) <= kConnectionGuard ? kConnectionGuard : d; }

// x limited to the range between a and b, in whichever order they stand.
float ClampBetween(float x, float a, float b) {
  return std::clamp(x, std::min(a, b), std::max(a, b));
}

float Finite(float v) { return std::isfinite(v) ? v : 0.0f; }

}  // namespace

float ConnectionForward(const ConnectionMapping& m, float x) {
  switch (static_cast<ConnectionTransform>(m.transform)) {
    case ConnectionTransform::OffsetWeight:
      return m.weight * x + m.offset;
    case ConnectionTransform::Range: {
      if (m.clamp) x = ClampBetween(x, m.input_min, m.input_max);
      const float d = GuardSpan(m.input_max - m.input_min);
      return (x - m.input_min) / d * (m.output_max - m.output_min) + m.output_min;
    }
    default:
      return x;
  }
}

float ConnectionInverse(const ConnectionMapping& m, float y) {
  switch (static_cast<ConnectionTransform>(m.transform)) {
    case ConnectionTransform::OffsetWeight: {
      const float d = std::fabs(m.weight) < kConnectionGuard ? kConnectionGuard : m.weight;
      return (y - m.offset) / d;
    }
    case ConnectionTransform::Range: {
      if (m.clamp) y = ClampBetween(y, m.output_min, m.output_max);
      const float d = GuardSpan(m.output_max - m.output_min);
      return (y - m.output_min) / d * (m.input_max - m.input_min) + m.input_min;
    }
    default:
      return y;
  }
}

float Wrap(float x, float n) { return std::fmod(std::fmod(x, n) + n, n); }

float FloatOperationValue(int op, float a, float b, bool negative) {
  float r;
  switch (static_cast<FloatOp>(op)) {
    case FloatOp::Subtract:
      r = a - b;
      break;
    case FloatOp::Multiply:
      r = a * b;
      break;
    case FloatOp::Divide:
      r = SafeDiv(a, b, kFloatMathSafeDivEpsilon);
      break;
    case FloatOp::Average:
      r = (a + b) * 0.5f;
      break;
    case FloatOp::Power:
      r = std::pow(a, b);
      break;
    case FloatOp::Min:
      r = std::min(a, b);
      break;
    case FloatOp::Max:
      r = std::max(a, b);
      break;
    case FloatOp::Mod:
      r = std::remainder(a, b);
      break;
    default:
      r = a + b;
      break;
  }
  r = Finite(r);
  return negative ? -r : r;
}

bool FloatOperationSolveA(int op, float v, float b, bool negative, float& a) {
  if (negative) v = -v;
  float r;
  switch (static_cast<FloatOp>(op)) {
    case FloatOp::Add:
      r = v - b;
      break;
    case FloatOp::Subtract:
      r = v + b;
      break;
    case FloatOp::Multiply:
      r = SafeDiv(v, b, kFloatMathSafeDivEpsilon);
      break;
    case FloatOp::Divide:
      r = v * b;
      break;
    case FloatOp::Average:
      r = v + v - b;
      break;
    case FloatOp::Power:
      r = std::pow(v, SafeDiv(1.0f, b, kFloatMathSafeDivEpsilon));
      break;
    default:
      r = v;
      break;
  }
  if (!std::isfinite(r)) return false;
  a = r;
  return true;
}

float WaveValue(const WaveInput& in) {
  const float x = SafeDiv(in.phase, in.wave_length, kFloatMathSafeDivEpsilon);
  float y;
  switch (static_cast<WaveType>(in.type)) {
    case WaveType::Loop:
      y = Wrap(x, 1.0f) * 2.0f - 1.0f;
      break;
    case WaveType::ZigZag:
      // Up over the first half of each period, mirrored down over the second.
      y = Wrap(2.0f * x, 1.0f) * 2.0f - 1.0f;
      if (Wrap(x, 1.0f) >= 0.5f) y = -y;
      break;
    case WaveType::HalfSine:
      y = std::fabs(std::sin(x * kPi)) * 2.0f - 1.0f;
      break;
    default:
      y = std::sin(x * kTwoPi);
      break;
  }
  if (in.alignment == static_cast<int>(WaveAlignment::Bottom)) y += 1.0f;
  if (in.alignment == static_cast<int>(WaveAlignment::Top)) y -= 1.0f;
  return in.amplitude * y + in.offset;
}

float TwistAbout(const Quat& q, int axis) {
  const int a = AxisOrZ(axis);
  Quat twist(0.0f, 0.0f, 0.0f, q.w);
  twist[a] = q[a];
  twist.Normalize();  // no twist part at all (zero) becomes the identity
  float angle = 2.0f * std::acos(std::clamp(twist.w, -1.0f, 1.0f));
  if (twist[a] >= 0.0f) angle = -angle;
  if (angle > kPi) angle -= kTwoPi;
  if (angle < -kPi) angle += kTwoPi;
  return angle;
}

float EulerComponent(const Quat& q, int order, int axis) {
  const int a = AxisOrZ(axis);
  float ang[3];
  QuatToEuler(q, ang, order);
  for (int step = 0; step < 3; ++step) {
    if (EulerStepChannel(order, step) == a) return ang[step];
  }
  return 0.0f;
}

}  // namespace marvolith
