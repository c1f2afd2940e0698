// Copyright Marvolith contributors.
// The pure core of an IK/FK limb: one solve of a chain of any joint count (single bone, the
// closed-form two-bone triangle, the iterated N-joint bend search), blended with the chain's FK
// pose. Works on host math values and caller-owned spans: no nodes, blocks, undo or caches.
//
// Frames and quaternion order. Row vectors, `A * B` applies A first (host convention), so a
// joint's world transform is `local * parent` and the quaternion `a * b` turns by a, then b.
// Bones lie on each joint's +X axis: the bone of joint i is the local position of joint i + 1.
// The chain is solved in its parent's frame ("_ps"): positions and rotations of joint 0 are
// relative to the parent P, those of joint i > 0 to joint i - 1.
//
// The swivel frame S (a rotation in the parent frame) has its +X on the line root -> goal and
// its XY plane as the bend plane:
//   - with an active target: the rotation of LookFrame(root, goal, target), +Y towards the
//     target;
//   - without: S = XRotation(swivel_angle) * AimX(v) * qp, where qp is joint 0's preferred
//     rotation (see EffectivePreferredRotation) and v the root -> goal vector measured in qp's
//     frame, v = (goal - root) * Inverse(qp). AimX(v) * qp then carries +X onto the goal
//     direction while moving qp's own axes by the least rotation, and the swivel turns the bend
//     plane about that line (+Y towards +Z for a positive angle).
// The two-bone solver puts the elbow at (x, y >= 0, 0) in S, so the elbow points along S's +Y
// (towards the target). The N-joint solver keeps the bend plane of its searched shape in joint 0's
// frame and turns it with the least rotation onto S.
//
// Directions are normalised before AimX and AngleBetween, so their length guards only catch zero
// vectors: short bones and goals near the root still aim.
//
// The rotation space delta is a rotation in the parent frame, so it is applied after joint 0's
// own FK rotation: q0 = q0_fk * delta (world = q0_fk * delta * P), and undone by
// `Q * Inverse(delta)` when FK is matched.
#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "host/math/matrix3.h"
#include "host/math/point3.h"
#include "host/math/quat.h"

namespace marvolith {

/// The bend limit of the N-joint search when it starts: 179 degrees either way, radians.
inline constexpr float kIKFKMaxStartAngle = 3.1241395f;
/// The step of the N-joint search while it opens or closes the chain: 5 degrees, radians.
inline constexpr float kIKFKSearchStep = 0.0872665f;
/// The N-joint search stops when two successive end distances differ by less than this.
inline constexpr float kIKFKSearchTolerance = 1e-5f;

/// One joint's FK values, as read from its FK sub-controller evaluated at an identity parent:
/// local position (the bone of the previous joint for i > 0), rotation and scale factors.
struct IKFKJointFK {
  Point3 position;
  Quat rotation;
  Point3 scale{1.0f, 1.0f, 1.0f};
};

/// A joint's FK values from its local matrix: the position is the translation, the scale the
/// lengths of rows 0..2, the rotation the Quat of the orthogonalised matrix (a zero or collapsed
/// matrix gives a finite rotation; a mirrored one the rotation of Quat(Matrix3)).
IKFKJointFK JointFKFromMatrix(const Matrix3& local);

/// The rotation space delta, a rotation in the chain parent's frame. R = rotation_space_ws,
/// preceded by initial_offset when keep_initial is set; L = R * Inverse(parent_ws); r the Quat of
/// orthogonalised L, brought to the identity's hemisphere (MakeClosest); the result is
/// Slerp(identity, r, weight) with weight clamped to [0, 1] (a NaN weight reads as 0). A singular
/// parent gives the rotation of R alone.
Quat RotationSpaceDelta(const Matrix3& rotation_space_ws,
                        const Matrix3& parent_ws,
                        bool keep_initial,
                        const Matrix3& initial_offset,
                        float weight);

/// Joint 0's preferred rotation as the swivel frame uses it. With parent_space 0 it follows the
/// swivel space F (the goal parent's transform when active, else the goal's): qp * Quat of
/// orthogonalised F * Inverse(P). Any other parent_space keeps qp (measured in the parent).
Quat EffectivePreferredRotation(const Quat& qp,
                                int parent_space,
                                const Matrix3& swivel_space_ws,
                                const Matrix3& parent_ws);

/// The swivel frame without a target (see the file comment): XRotation(swivel_angle) *
/// AimX((goal_ps - root_ps) * Inverse(qp)) * qp, a rotation in the parent frame whose +X points
/// from root to goal. A goal on the root gives XRotation(swivel_angle) * qp.
Quat SwivelFrame(const Point3& root_ps, const Point3& goal_ps, const Quat& qp, float swivel_angle);

/// Everything a solve reads. Transforms are world transforms unless named otherwise. Parameters
/// keep the chain's names; a non-finite parameter reads as its default, and ranges are clamped
/// as noted.
struct IKFKSolveInput {
  Matrix3 parent_ws;  ///< P: the chain's parent (identity without one)
  Matrix3 goal_ws;    ///< G: the goal, its local controller applied
  Matrix3 target_ws;  ///< T: the swivel target, used when target_active
  bool target_active = false;
  /// F: the goal parent's transform when active, otherwise the goal's; used by parent_space 0.
  Matrix3 swivel_space_ws;
  int parent_space = 1;  ///< 0 measures the swivel in F's frame, otherwise in P's
  /// Preferred local rotations, one per joint (joint 0's is qp, joint 1's the preferred bend of
  /// the two-bone solver); empty means the FK rotations stand in for them.
  std::span<const Quat> preferred_ls;
  /// The joints' FK values, start to end. Their count selects the solver: 0 to 2 single bone,
  /// 3 two-bone, 4 and more the N-joint search.
  std::span<const IKFKJointFK> joints_fk;
  /// Rotation of the rotation space (RotationSpaceDelta), identity when it is not active;
  /// applied to joint 0's FK rotation while ikfk_blend is below 1.
  Quat rotation_space_delta;

  float ikfk_blend = 1.0f;      ///< w: 0 pure FK, 1 pure IK; clamped to [0, 1]
  float manual_stretch = 1.0f;  ///< factor on bone vectors; below 0 reads as 0
  float auto_stretch = 0.0f;    ///< how far the chain stretches to reach; clamped to [0, 1]
  float soft_ik = 0.0f;         ///< soft zone width as a fraction of length; clamped to [0, 1]
  float flexion_bias = 0.0f;    ///< radians, ramped +1 .. -1 over the inner joints (N-joint)
  float swivel_angle = 0.0f;    ///< radians, turn of the bend plane about root -> goal
  int iterations = 40;          ///< step limit of the N-joint search; below 1 skips it
  bool last_joint_ik_rotation = true;  ///< the last joint takes G's rotation in IK
  /// -1 normally; 0, 1 or 2: only that joint keeps its solved rotation, the others their FK
  /// rotation (matching one joint). Any other value reads as -1.
  int partial = -1;
};

/// Where a solve writes, all spans sized to the joint count by the caller (they are checked
/// on entry; nothing is written when a size differs).
struct IKFKSolveOutput {
  /// World transform of each joint: Matrix(rotation) translated by position, times the previous
  /// joint's transform (P for joint 0), with the joint's accumulated scale put in front with
  /// PreScale after its child is computed, so scale never reaches the bones.
  std::span<Matrix3> joint_tms;
  std::span<Point3> joint_positions;  ///< joint positions in the parent frame
  std::span<Quat> joint_rotations;    ///< solved local rotations (after blending)
  /// The FK local rotations this solve started from (joint 0 with the rotation space delta):
  /// what the chain stores as preferred rotations when asked to.
  std::span<Quat> preferred_rotations;
  /// The automatic stretch applied (product of the soft-zone and reach factors), 1 when none.
  float stretch_factor = 1.0f;
};

/// Scratch of a solve, kept by the caller between solves. Resize only allocates when the joint
/// count grows past what it held before, so solving the same chain again allocates nothing.
/// The contents are private to the solver.
struct IKFKWorkspace {
  void Resize(std::size_t joint_count);

  std::vector<Point3> positions;  ///< bone vectors with scale and stretch applied
  std::vector<Point3> scales;     ///< accumulated scale of each joint
  std::vector<Quat> fk;           ///< FK local rotations
  std::vector<Quat> ik;           ///< IK local rotations
  std::vector<Quat> preferred;    ///< preferred local rotations
  std::vector<Quat> bases;        ///< N-joint: joint rotations with their bend removed
  std::vector<Point3> axes;       ///< N-joint: bend axes
  std::vector<float> angles;      ///< N-joint: bend angles being searched
  std::vector<float> previous;    ///< N-joint: angles of the former step
  std::vector<float> bracket;     ///< N-joint: the retained end of the bracket
  std::vector<Quat> blended;      ///< local rotations after the blend toward FK
};

/// Solves the chain of in.joints_fk into out, using ws as scratch. Returns false (and writes
/// nothing) when an output span's size differs from the joint count, or preferred_ls is neither
/// empty nor of that size. Zero-length bones, a goal on the root or a target on the root-goal
/// line give finite results; a goal with a non-finite position sits on the root, a non-finite
/// target counts as none, and non-finite FK values read as the rest pose (the parent transform
/// is used as given). One joint aims its +X at the goal; the last joint takes the goal's rotation
/// (last_joint_ik_rotation) from two joints on, with two joints not while partial is 1.
/// Allocates nothing once ws holds the joint count.
[[nodiscard]] bool SolveIKFK(const IKFKSolveInput& in, IKFKSolveOutput& out, IKFKWorkspace& ws);

/// The soft-zone limit: for a chain of length L with a zone of width z = soft_ik * L, a goal at
/// distance d beyond L - z is held at S = L - exp(-(d - (L - z)) / z) * z, which nears L but
/// never reaches it. Returns d itself when there is no zone (soft_ik or L not positive) or d is
/// inside L - z. soft_ik is clamped to [0, 1].
float SoftIKLimit(float d, float chain_length, float soft_ik);

}  // namespace marvolith
