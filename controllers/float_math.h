// Copyright Marvolith contributors.
// The pure cores of the float tracks: the transforms of a float connection, the two-operand
// operations, the periodic waves, and the angle readers of a rotation (Euler component, twist
// about an axis). Plain numbers in, numbers out: no controllers, blocks or undo.
#pragma once

#include "host/math/quat.h"

namespace marvolith {

/// Divisor guard of the connection transforms: a range or weight whose magnitude is at most
/// (inverse: below) this is replaced by it.
inline constexpr float kConnectionGuard = 0.001f;

/// Modes of a float connection's `transform` parameter. Values outside 1..3 (4 included) pass
/// the input through.
enum class ConnectionTransform : int { None = 0, OffsetWeight = 1, Range = 2, Curve = 3 };

/// The linear transforms of a float connection, read at one time.
struct ConnectionMapping {
  int transform = 0;  ///< a ConnectionTransform value
  bool clamp = false;
  float offset = 0.0f;
  float weight = 1.0f;
  float input_min = 0.0f;
  float input_max = 100.0f;
  float output_min = 0.0f;
  float output_max = 100.0f;
};

/// The output y of input x. Offset / Weight: weight * x + offset. Range: x, first limited to
/// the input range (either order) when clamp is on, mapped linearly from the input range onto
/// the output range; an input range of magnitude at most kConnectionGuard counts as
/// kConnectionGuard (positive), so equal limits give a steep but finite line. Curve and every
/// other mode: x unchanged (the curve is applied by the caller).
float ConnectionForward(const ConnectionMapping& m, float x);

/// The input x that gives output y, the reverse of ConnectionForward. Offset / Weight:
/// (y - offset) / weight, a weight of magnitude below kConnectionGuard counting as
/// kConnectionGuard. Range: y limited to the output range when clamp is on, mapped back onto the
/// input range, the output range guarded as the forward input range. Others: y unchanged.
float ConnectionInverse(const ConnectionMapping& m, float y);

/// fmod(fmod(x, n) + n, n): x wrapped into [0, n) for n > 0. n = 0 gives NaN, as fmod does.
float Wrap(float x, float n);

/// Operations of FloatOperation, in the order of its `operation` parameter.
enum class FloatOp : int { Add, Subtract, Multiply, Divide, Average, Power, Min, Max, Mod };

/// a op b, negated when negative is set. Divide is SafeDiv(a, b, kFloatMathSafeDivEpsilon), so
/// a division by exactly zero gives a * 10000. Mod is the IEEE remainder (round to nearest), not
/// the truncating one. An operation outside 0..8 reads as Add. A result that is not finite (a
/// negative base to a fractional power, a remainder by zero) reads 0.
float FloatOperationValue(int op, float a, float b, bool negative);

/// The a that makes FloatOperationValue(op, a, b, negative) equal v, b held: the reverse path
/// of a FloatOperation. Add v - b; Subtract v + b; Multiply SafeDiv(v, b); Divide v * b;
/// Average 2v - b; Power v to the power SafeDiv(1, b); Min, Max, Mod: v. v is negated first when
/// negative is set. Answers false (a untouched) when the result is not finite.
bool FloatOperationSolveA(int op, float v, float b, bool negative, float& a);

/// Shapes of FloatWave's `type` parameter, and its `alignment`.
enum class WaveType : int { Sine, Loop, ZigZag, HalfSine };
enum class WaveAlignment : int { Centered, Bottom, Top };

/// The parameters of a FloatWave, read at one time.
struct WaveInput {
  float amplitude = 100.0f;
  float wave_length = 100.0f;  ///< a period in units of phase; SafeDiv-guarded
  float offset = 0.0f;
  float phase = 0.0f;
  int type = 0;       ///< a WaveType; others read as Sine
  int alignment = 0;  ///< a WaveAlignment; others read as Centered
};

/// amplitude * y + offset, with y the wave of x = SafeDiv(phase, wave_length, 0.0001) between
/// -1 and 1 (Bottom alignment moves it to 0..2, Top to -2..0): Sine sin(2 pi x); Loop a ramp from
/// -1 at each whole x; ZigZag -1 at each whole x, +1 half way; Half Sine |sin(pi x)| * 2 - 1.
/// At phase 0 Sine gives 0 and the other three -1.
float WaveValue(const WaveInput& in);

/// The angle of q about axis (0 X, 1 Y, 2 Z): the part of q made of its component along the
/// axis and its w, normalised; the angle is 2 acos(w), negative when the axial component is
/// positive or zero, wrapped into [-pi, pi]. So it is the turn about the axis in the
/// right-handed sense of RotateXMatrix (the quaternion of RotateXMatrix(a) gives a). A q
/// without any twist part (a half turn about a perpendicular axis) gives 0. An axis outside
/// 0..2 reads as Z.
float TwistAbout(const Quat& q, int axis);

/// The Euler angle of q about axis (0 X, 1 Y, 2 Z) in the given order (host/math/euler.h),
/// radians. Channels follow the host's Euler controller: for the repeated-axis orders the third
/// step's angle belongs to the axis the order leaves out. Axes outside 0..2 read as Z.
float EulerComponent(const Quat& q, int order, int axis);

}  // namespace marvolith
