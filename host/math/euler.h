// Copyright Marvolith contributors.
// Euler angle conversions in the host's nine orders.
//
// ang[0..2] are radians in sequence order: ang[0] turns about the order's first axis, ang[1]
// about the second, ang[2] about the third. Each turn is right-handed (as RotateXMatrix) and the
// first is applied first: for EULERTYPE_XYZ the matrix is RotateXMatrix(ang[0]) *
// RotateYMatrix(ang[1]) * RotateZMatrix(ang[2]), and the quaternion is Quat of that matrix.
//
// Decomposition ranges: Tait-Bryan orders (0..5) give ang[0], ang[2] in [-pi, pi] and ang[1] in
// [-pi/2, pi/2]; repeated-axis orders (6..8) give ang[1] in [0, pi]. At gimbal lock (the middle
// angle at its limit, within kGimbalLockEpsilon) only the sum or difference of the outer angles
// is defined: ang[0] is then 0 and ang[2] carries the whole turn.
//
// An order outside 0..8 is read as EULERTYPE_XYZ. Input matrices have their rows normalised
// first (scale ignored); a mirrored matrix is read with row 2 negated, as Quat(const Matrix3&).
#pragma once

#include "host/math/matrix3.h"
#include "host/math/quat.h"

inline constexpr int EULERTYPE_XYZ = 0;
inline constexpr int EULERTYPE_XZY = 1;
inline constexpr int EULERTYPE_YZX = 2;
inline constexpr int EULERTYPE_YXZ = 3;
inline constexpr int EULERTYPE_ZXY = 4;
inline constexpr int EULERTYPE_ZYX = 5;
inline constexpr int EULERTYPE_XYX = 6;
inline constexpr int EULERTYPE_YZY = 7;
inline constexpr int EULERTYPE_ZXZ = 8;
/// Number of Euler orders; valid orders are 0 .. kEulerOrderCount - 1.
inline constexpr int kEulerOrderCount = 9;

/// Axis (0 X, 1 Y, 2 Z) of step 0, 1 or 2 of an order; an order outside 0..8 reads as XYZ.
int EulerOrderAxis(int order, int step);

/// The channel (0 X, 1 Y, 2 Z) of an XYZ-channel controller that holds step `step` (0..2) of
/// `order`: the step's axis, except that the third step of a repeated-axis order (6..8) takes
/// the channel its axis left over, so the three steps fill three distinct channels. An order
/// outside 0..8 reads as XYZ; a step below 0 reads as 0 and above 2 as 2.
int EulerStepChannel(int order, int step);

/// Angles of q in the given order (see the file comment for ranges and gimbal lock).
void QuatToEuler(const Quat& q, float* ang, int order);
/// The quaternion of the three angles in the given order (w of either sign).
void EulerToQuat(const float* ang, Quat& q, int order = EULERTYPE_XYZ);
/// Angles of the rotation part of mat (see the file comment).
void MatrixToEuler(const Matrix3& mat, float* ang, int order);
/// The rotation matrix of the three angles (translation zero).
void EulerToMatrix(const float* ang, Matrix3& mat, int order = EULERTYPE_XYZ);

/// Angles of q closest to the previous angles held in ang on entry: among the triples that
/// give the rotation of q (the two solution branches plus whole turns), the one with the least
/// squared distance to the previous angles; each result angle lies within pi of its previous
/// value. At gimbal lock the free turn is shared between the outer angles so both move as
/// little as possible. Previous angles that are not finite are ignored (plain QuatToEuler). An
/// angle so large that a float cannot hold it within kEulerTurnRoundoff drops its whole turns:
/// the rotation of q wins over continuity.
void ContinuousQuatToEuler(const Quat& q, float* ang, int order);
