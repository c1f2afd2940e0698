// Copyright Marvolith contributors.
// The pure maths of matching an IK/FK chain's two modes: where the goal and target go so IK
// takes the FK pose (the soft-zone compensation, the target's place, the swivel angle of a
// pose), and the FK rotation change per joint that takes the solved pose. No nodes or writes:
// the chain controller turns these values into controller edits.
#pragma once

#include "host/math/matrix3.h"
#include "host/math/point3.h"
#include "host/math/quat.h"

namespace marvolith {

/// Lower bound of the soft-zone ratio (L - D) / z before its logarithm is taken: a pose at or
/// past the chain's length maps to a finite goal distance.
inline constexpr float kSoftMatchMinRatio = 0.0001f;
/// Below this angle (radians) between root -> end and root -> mid, a three-joint pose counts as
/// straight and the target's plane comes from the preferred rotations.
inline constexpr float kTargetPlaneMinAngle = 0.02f;

/// The factor by which the root -> goal offset is scaled so that a soft solve puts the chain's
/// end back where it is now. D is the end's current distance from the root, L the chain length.
/// With z = soft_ik * L and softStart = L - z: when soft_ik > 0, auto_stretch < 1 and D >
/// softStart, x = max((L - D) / z, kSoftMatchMinRatio), D2 = softStart - log(x) * z, and the
/// factor is (D2 / D) * (1 - auto_stretch) + auto_stretch. Otherwise 1. soft_ik and
/// auto_stretch are clamped to [0, 1]; D at or below 0 gives 1.
float SoftMatchGoalScale(float distance, float chain_length, float soft_ik, float auto_stretch);

/// The goal position after the compensation: root + (end - root) * SoftMatchGoalScale(|end -
/// root|, ...). Any consistent frame (world or parent).
Point3 SoftMatchGoal(
    const Point3& root, const Point3& end, float chain_length, float soft_ik, float auto_stretch);

/// Where a match puts the swivel target of a three-joint chain, world space. The bend direction
/// is +Y of LookFrame(first, last, mid) when the angle at the root between first -> last and
/// first -> mid is at least kTargetPlaneMinAngle; otherwise it is +Y of preferred_frame_ps (the
/// no-target swivel frame, SwivelFrame, a rotation in the parent frame) carried to world by
/// parent_ws. The target is mid + bend * (target_dist_percent * chain_length): on the
/// perpendicular to the root -> end line through the mid joint, outside the chain. A degenerate
/// bend direction (zero) leaves the target on the mid joint.
Point3 MatchTargetPosition(const Point3& first_ws,
                           const Point3& mid_ws,
                           const Point3& last_ws,
                           float chain_length,
                           float target_dist_percent,
                           const Quat& preferred_frame_ps,
                           const Matrix3& parent_ws);

/// The swivel angle that makes the no-target swivel frame hold this pose: the angle of the
/// elbow's offset from the root -> goal line about that line, measured in the frame AimX(v) *
/// qp of SwivelFrame (swivel 0) from +Y towards +Z, in (-pi, pi]. Positions in the parent frame;
/// qp as EffectivePreferredRotation gives it. Solving with the result at the same goal puts the
/// elbow back where it was. An elbow on the line (or on the root) gives 0.
float SwivelAngleFromPose(const Point3& root_ps,
                          const Point3& elbow_ps,
                          const Point3& goal_ps,
                          const Quat& qp);

/// The change that takes a joint's current FK rotation to its solved rotation, for the FK
/// sub-controller's relative write. Q = solved_ls; for joint 0 (first_joint) Q = Q *
/// Inverse(rotation_space_delta), undoing the rotation space (pass the identity when it is not
/// active). Q is brought to current_fk_ls's hemisphere (MakeClosest) and the result is delta =
/// Q * Inverse(current_fk_ls), so that delta * current_fk_ls is Q.
Quat MatchFKDelta(const Quat& solved_ls,
                  const Quat& current_fk_ls,
                  bool first_joint,
                  const Quat& rotation_space_delta);

}  // namespace marvolith
