// Copyright Marvolith contributors.
// The parent matrices of the root constraint and the rotation space, their captures, and the
// position a turn or scale about a pivot gives a point. Pure functions over host math values: no
// nodes, blocks or undo.
#pragma once

#include "host/math/matrix3.h"
#include "host/math/point3.h"
#include "host/math/quat.h"

namespace marvolith {

/// What the root constraint reads at one time. Spaces: `parent_ws` is the node's incoming parent
/// matrix, `target_ws` the target's world transform, `initial_target_tm` the captured target pose
/// (in the parent's space with `world` false, in world space with it true).
struct RootParentInput {
  Matrix3 parent_ws;
  bool has_target = false;
  Matrix3 target_ws;
  bool initial_target_offset = true;
  Matrix3 initial_target_tm;
  int vertical_axis = 2;  ///< 0 X, 1 Y, 2 Z is up; others read as Z
  bool world = false;     ///< `local_world` 1: the incoming parent is replaced by the identity
  float follow_horizontal = 1.0f;
  float follow_vertical = 1.0f;
  float follow_turning = 1.0f;
  float vertical_offset = 0.0f;
  float ground_offset = 0.0f;
  bool use_ground = true;
};

/// The parent matrix the root's own transform is evaluated under. The target's transform M (the
/// identity without a target) is taken relative to the parent (local) or as it is (world), and,
/// with the initial offset on, relative to the captured pose with only the captured height taken
/// off. The ground G is `ground_offset` with `use_ground`, else 0. The root is moved to the
/// height H = G + (M's height + `vertical_offset` - G) * `follow_vertical` (at least G with
/// `use_ground`) and across the ground by M's horizontal coordinates * `follow_horizontal`, then
/// turned about the vertical axis by M's twist about it (wrapped into [-pi, pi]) *
/// `follow_turning`: result = Rotate(turn) * Translate(move) * P. A target transform that gives
/// no finite move or turn leaves that part at zero.
Matrix3 RootParentTM(const RootParentInput& in);

/// The pose the root captures as `initial_target_tm`: the target's transform relative to parent_ws
/// (world false) or as it is (world true); the identity without a target (target_ws null).
Matrix3 RootCaptureTM(const Matrix3* target_ws, const Matrix3& parent_ws, bool world);

/// What the rotation space reads at one time: the incoming parent, the target's world transform,
/// the share and the captured offset (applied before the target's transform).
struct SpaceParentInput {
  Matrix3 parent_ws;
  bool has_target = false;
  Matrix3 target_ws;
  float weight = 1.0f;  ///< 0 keeps the parent; 1 takes the whole rotation; not clamped
  bool keep_initial_offset = false;
  Matrix3 initial_offset;
};

/// The parent matrix of the rotation space: R, the rotation from the parent to the target
/// (`initial_offset` * target with the offset kept), orthogonalised, is taken by `weight` along
/// the short arc from the identity and put before the parent: Matrix(Slerp(1, R, weight)) * P.
/// Without a target P comes back as it is. A rotation that is not finite counts as the identity.
Matrix3 SpaceParentTM(const SpaceParentInput& in);

/// The offset the rotation space captures: the rotation that makes the target's rotation relative
/// to parent_ws the identity, so that at the moment of capture the space is the parent itself
/// (Inverse of the target's rotation relative to the parent; no translation).
Matrix3 SpaceCaptureOffset(const Matrix3& target_ws, const Matrix3& parent_ws);

/// Where point_ws goes when turned by `aa` (axis given in the axes of axis_ws, angle in the host's
/// sense, as the host's transform controllers turn) about the origin of axis_ws: the pivot move of
/// a rotate packet.
Point3 TurnAboutPivot(const Point3& point_ws, const Matrix3& axis_ws, const AngAxis& aa);

/// Where point_ws goes when scaled by `factors` along the orthogonalised axes of axis_ws about its
/// origin: the pivot move of a scale packet.
Point3 ScaleAboutPivot(const Point3& point_ws, const Matrix3& axis_ws, const Point3& factors);

}  // namespace marvolith
