// Copyright Marvolith contributors.
// Named tolerances of the host math layer: every threshold the math types compare against.
#pragma once

/// Default epsilon of the component-wise Equals of Point3, Quat and Matrix3. The system passes
/// this value to Matrix3::Equals everywhere.
inline constexpr float kMatrixEqualsEpsilon = 1e-6f;

/// Vectors shorter than this (computed in double) normalise to the zero vector.
inline constexpr double kNormalizeMinLength = 1e-30;

/// A 3x3 part is singular when |det| is at most this ratio of the product of its row lengths
/// (the sine-like measure of how flat the three rows are), or when a row has zero length.
inline constexpr double kSingularRatio = 1e-7;

/// Euler decomposition treats the middle angle as gimbal-locked when the cosine (Tait-Bryan
/// orders) or sine (repeated-axis orders) of it is below this.
inline constexpr double kGimbalLockEpsilon = 1e-6;

/// ContinuousQuatToEuler keeps an angle's whole turns only while a float holds the angle this
/// close (radians); beyond that (a channel that has run up a huge angle, where floats are whole
/// radians apart) the turns are dropped so that the stored angles still give the rotation asked.
inline constexpr double kEulerTurnRoundoff = 1e-4;

/// Slerp falls back to normalised linear interpolation when the cosine between the two
/// quaternions is above 1 minus this (the arc is too short for sin(omega) to divide by).
inline constexpr double kSlerpLinearEpsilon = 1e-6;

/// Polar decomposition: Newton iteration stops when the Frobenius change of a step falls below
/// this, or after kPolarMaxIterations steps.
inline constexpr double kPolarTolerance = 1e-13;
inline constexpr int kPolarMaxIterations = 40;

/// Symmetric eigen-decomposition (cyclic Jacobi): sweeps stop when the off-diagonal mass is below
/// this fraction of the diagonal mass, or after kJacobiMaxSweeps sweeps.
inline constexpr double kJacobiTolerance = 1e-24;
inline constexpr int kJacobiMaxSweeps = 32;

/// Stretch eigenvalues closer than this ratio of the largest are treated as equal: their axes are
/// then free and decomp_affine picks the ones nearest the identity.
inline constexpr double kEigenEqualRatio = 1e-6;

/// AimX: a direction shorter than this gives the identity rotation.
inline constexpr float kAimXMinLength = 0.01f;

/// RotationBetween and AngleBetween: when the product of the two lengths is below this the angle
/// is 0.
inline constexpr float kRotationBetweenMinLengthProduct = 0.01f;

/// SafeDiv divisors used by the chain solvers and by the float math tracks.
inline constexpr float kSolverSafeDivEpsilon = 0.001f;
inline constexpr float kFloatMathSafeDivEpsilon = 0.0001f;
