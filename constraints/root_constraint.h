// Copyright Marvolith contributors.
// RootConstraint: the transform controller that makes a rig's root follow a target (the pelvis)
// on the ground plane, with separate shares of horizontal motion, vertical motion and turning.
#pragma once

#include "constraints/parent_space_control.h"
#include "plugin/class_table.h"

namespace marvolith {

/// Parameters of RootConstraint's block "params" (block id 0, reference 0).
enum RootConstraintParam : ParamID {
  kRootTarget = 0,               ///< node followed; a validator refuses loops
  kRootVerticalAxis = 1,         ///< int 0..2: X, Y or Z is up (default 2)
  kRootFollowHorizontal = 3,     ///< percent, animatable, default 1
  kRootFollowTurning = 4,        ///< percent, animatable, default 1
  kRootVerticalOffset = 5,       ///< world, animatable: added to the target's height
  kRootGroundOffset = 6,         ///< world, animatable: height of the ground
  kRootInitialTargetOffset = 7,  ///< bool, default true: measure against the captured pose
  kRootInitialTargetTM = 8,      ///< Matrix3: the captured pose
  kRootLocalWorld = 9,           ///< int 0 Local, 1 World
  kRootFollowVertical = 10,      ///< percent, animatable, default 1
  kRootUseGround = 11,           ///< bool, animatable, default true: stay above the ground
};

/// The root constraint ("Root Constraint"). Its parent matrix is RootParentTM of the parameters
/// at t, the target's world transform and the incoming parent (see constraints/root_space.h); the
/// node's own transform (the sub-controller) is evaluated under it.
///
/// Capture (CaptureInitialOffset) stores the target's transform at t relative to the node's
/// parent (or in world space with `local_world` 1; the identity without a target) as
/// `initial_target_tm` and sets the sub-controller to the identity (an XFORM_SET packet of
/// identity matrices, without keys), so the root stands under the target. Scripts and rollups
/// trigger it by writing the block: setting `target` to a node, or turning
/// `initial_target_offset` on while a target is set, captures at the current time, in the same
/// hold as the write (so one undo takes both back).
///
/// SetValue passes the packet on to the sub-controller with its parent replaced by the parent
/// matrix computed for the packet's parent at t, so the node lands where the packet asks.
class RootConstraint : public ParentSpaceControl {
 public:
  /// With loading true no block and no sub-controller are made (the file provides them).
  explicit RootConstraint(bool loading = false);

  Class_ID ClassID() override;
  void GetClassName(MSTR& s, bool localized = true) const override;
  void SetValue(TimeValue t,
                void* val,
                int commit = 1,
                GetSetMethod method = CTRL_ABSOLUTE) override;
  RefTargetHandle Clone(RemapDir& remap) override;

  Matrix3 ParentTM(TimeValue t, const Matrix3& parent_ws, Interval& valid) override;
  void ParamWillChange(ParamID id, const PB2Value& v) override;

  /// Captures the initial offset at t against target (see the class comment); target may be
  /// null. Nothing without a block.
  void CaptureInitialOffset(TimeValue t, INode* target);
};

/// Descriptor of RootConstraint; identity and names from the module's class table.
class RootConstraintClassDesc : public MarvolithClassDesc {
 public:
  RootConstraintClassDesc() : MarvolithClassDesc(ClassIndex::RootConstraint) {}
  Animatable* Create(bool loading = false) override { return new RootConstraint(loading); }
};
ClassDesc2* GetRootConstraintDesc();

}  // namespace marvolith
