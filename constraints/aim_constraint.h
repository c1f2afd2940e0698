// Copyright Marvolith contributors.
// AimConstraint: a rotation track that turns a chosen axis of its node at a target node.
#pragma once

#include "constraints/block_constraint.h"

namespace marvolith {

/// Parameters of AimConstraint's block "params" (block id 0, reference 0).
enum AimConstraintParam : ParamID {
  kAimTarget = 0,             ///< node aimed at; a validator refuses loops
  kAimUseTarget = 1,          ///< bool, default true
  kAimAimAxis = 2,            ///< 0..2, the axis turned at the target
  kAimAimAxisFlip = 3,        ///< bool: the negative axis
  kAimAlignAxis = 4,          ///< 0..2, "Up Axis": the frame's axis that serves as X
  kAimAlignAxisFlip = 5,      ///< bool
  kAimAlign = 6,              ///< frame of the up axis: 0 world, 1 parent (default), 2 node
  kAimAlignNode = 7,          ///< node of align 2; a validator refuses loops
  kAimViewlineLength = 8,     ///< float, default 100
  kAimViewlineLengthAbs = 9,  ///< bool, default true: the view line's length is absolute
};
inline constexpr BlockID kAimConstraintParams = 0;

/// The rotation controller "Aim Constraint" (super class CTRL_ROTATION_CLASS_ID).
///
/// GetValue: with CTRL_RELATIVE the incoming matrix is the parent frame P (carrying the node's
/// position) and is kept; with CTRL_ABSOLUTE the kept P serves. The frame A is
/// AimAlignFrame(P, align, align_node's transform). With an active target (set, use_target on)
/// the frame is turned at the target's position (AimAt with the block's axes): relative mode
/// answers the aimed frame Matrix(Q) * B, absolute mode Q. Without one: A, or the identity Quat.
/// valid narrows by the parameters and the nodes read. Allocates nothing.
///
/// Display draws, with an active target, a line from the node's pivot along its aim axis of
/// `viewline_length`, times the distance to the target when `viewline_length_abs` is off.
class AimConstraint : public BlockConstraint {
 public:
  /// loading true makes no block (the file links one).
  explicit AimConstraint(bool loading = false);

  MarvolithClassDesc* GetClassDesc() const override;
  void GetValue(TimeValue t,
                void* val,
                Interval& valid,
                GetSetMethod method = CTRL_ABSOLUTE) override;
  int Display(TimeValue t, INode* inode, ViewExp* vpt, int flags) override;
  RefTargetHandle Clone(RemapDir& remap) override;

  /// The parent frame of the last relative evaluation (the identity before one).
  const Matrix3& KeptParent() const { return parent_ws_; }

 private:
  Matrix3 parent_ws_;
};

/// The class descriptor (module table index 4).
ClassDesc2* GetAimConstraintDesc();

}  // namespace marvolith
