// Copyright Marvolith contributors.
// The frame rules of the aim and stretch constraints: the frame an aim works in, the rotation
// that turns a chosen axis at a target, the placed and aimed frame of a stretch and its stretch
// and squash factors. Pure functions over host math values: no nodes, blocks or undo.
#pragma once

#include "host/math/matrix3.h"
#include "host/math/point3.h"
#include "host/math/quat.h"

namespace marvolith {

/// Floor of a stretch's rest length and of its measured distance, world units: keeps the
/// factors finite when the end sits on the start or the rest length is 0.
inline constexpr float kStretchMinLength = 0.001f;

/// Frame choices of AimConstraint's `align` (the frame of the up axis).
enum class AimAlign : int { World = 0, Parent = 1, Node = 2 };

/// The frame A an aim works in, from the parent matrix parent_ws (which carries the node's
/// position) and `align`: Parent (1) is parent_ws itself; otherwise the rotation part of
/// M = align_node_ws * Inverse(parent_ws) (Node, with a node) or M = Inverse(parent_ws) (World,
/// or Node without a node) is put in front: A = Matrix(Quat(Orthogonalize(M))) * parent_ws. So
/// World keeps the world's axes and Node the node's, at the parent's origin. align_node_ws may
/// be null; an align value outside 0..2 reads as World.
Matrix3 AimAlignFrame(const Matrix3& parent_ws, int align, const Matrix3* align_node_ws);

/// Axis choices of an aim: `aim_axis` is turned at the target, `align_axis` is the frame's axis
/// that serves as X while aiming. Axes 0 X, 1 Y, 2 Z (others read as Z); flip takes the
/// negative axis.
struct AimAxes {
  int aim_axis = 0;
  bool aim_flip = false;
  int align_axis = 0;
  bool align_flip = false;
};

/// The result of turning a frame at a target.
struct AimResult {
  Matrix3 frame;  ///< B = AxisMatrix(align_axis, align_flip) * A
  Point3 p;       ///< the target in B's space: target_ws * Inverse(B)
  Quat q;         ///< AxisQuat(aim_axis, aim_flip) * AimX(p), the rotation within B
  /// Matrix(q) * B: the aimed frame, whose axis aim_axis (negated with aim_flip) points from B's
  /// origin at the target when B has no non-uniform scale.
  Matrix3 World() const;
};

/// Turns frame a_ws at the point target_ws. A target at B's origin (|p| below AimX's minimum)
/// gives q = AxisQuat(aim_axis, aim_flip): the frame re-labelled, not turned.
AimResult AimAt(const Matrix3& a_ws, const Point3& target_ws, const AimAxes& axes);

/// Frame and scale-source choices of StretchConstraint's `align` and `inherit_scale`.
enum class StretchSource : int { None = 0, Parent = 1, Start = 2, End = 3 };

/// Inputs of a stretch. Node transforms are given when the node is set; start_ws only when the
/// start is active (set and use_start on). The end is seen two ways: as a frame (align 3) when
/// set at all, as a scale source and as the aim only when also active (use_end on).
struct StretchInput {
  Matrix3 parent_ws;                  ///< P: the parent matrix (identity in absolute mode)
  int align = 2;                      ///< StretchSource of the frame
  int inherit_scale = 2;              ///< StretchSource of the scale
  const Matrix3* start_ws = nullptr;  ///< the active start's transform, or null
  const Matrix3* end_ws = nullptr;    ///< the end's transform when set, or null
  bool end_active = false;            ///< end set and use_end on: aim (and stretch) at it
  AimAxes axes;
  bool stretch_active = true;  ///< stretch_scale_active
  float stretch = 1.0f;        ///< exponent on the aim axis
  float squash = 1.0f;         ///< exponent on the two other axes
  float length = 20.0f;        ///< rest length, floored at kStretchMinLength
};

/// The frame before aiming: F by align (Parent: P; Start: the start, else P; End: the end when
/// set, else the identity; None or another value: the identity); when inherit_scale differs
/// from align, F orthogonalised and given the scale of its source through decomp_affine
/// (Parent: P; Start: the start, else P; End: the active end, else factors 1; None: factors 1)
/// with ApplyScaleValue; unless align is Start, F's translation replaced by the start's, else
/// P's.
Matrix3 StretchBaseFrame(const StretchInput& in);

/// Stretch and squash factors for the distance d and rest length: a = pow(d / L, stretch) on
/// the aim axis (AxisOrZ of aim_axis), b = pow(L / d, squash) on the two others, with d and L
/// floored at kStretchMinLength. Finite for finite inputs whose powers stay in float range.
Point3 StretchFactors(float d, float length, float stretch, float squash, int aim_axis);

/// The result of a stretch.
struct StretchResult {
  Matrix3 tm_ws;
  /// The distance measured (|p| floored at kStretchMinLength), when the end is active and
  /// stretching is on; the caller keeps it as its current length.
  bool measured = false;
  float distance = 0.0f;
};

/// The whole stretch: StretchBaseFrame, then, with an active end, AimAt towards the end's
/// position and, with stretching on, ScaleMatrix(StretchFactors(|p|, ...)) in front. Without an
/// active end the result is the base frame.
StretchResult StretchFrame(const StretchInput& in);

}  // namespace marvolith
