// Copyright Marvolith contributors.
// RotationSpace: the transform controller that gives a node a weighted share of another node's
// rotation by turning its parent space.
#pragma once

#include "constraints/parent_space_control.h"
#include "plugin/class_table.h"

namespace marvolith {

/// Parameters of RotationSpace's block "params" (block id 0, reference 0).
enum RotationSpaceParam : ParamID {
  kSpaceTarget = 0,             ///< node whose rotation is shared; a validator refuses loops
  kSpaceWeight = 1,             ///< percent, animatable, default 1: the share
  kSpaceKeepInitialOffset = 2,  ///< bool, default false: measure against the captured pose
  kSpaceInitialOffset = 3,      ///< Matrix3: the captured offset
};

/// The rotation space ("Rotation Space"). Its parent matrix is SpaceParentTM of the weight, the
/// target's world transform, the offset and the incoming parent (see constraints/root_space.h).
///
/// Capture (CaptureInitialOffset) stores as `initial_offset` the rotation that makes the target's
/// rotation relative to the node's parent the identity (SpaceCaptureOffset), so that with
/// `keep_initial_offset` on the space starts out as the plain parent and follows the target's
/// turns from there; the sub-controller is set (without keys) so that, with the offset kept, the
/// node keeps its world transform: the node does not jump at capture. Scripts and rollups trigger
/// it by writing the block: turning `keep_initial_offset` on while a target is set, or setting
/// `target` to a node while `keep_initial_offset` is on, captures at the current time in the same
/// hold as the write.
///
/// SetValue lands the node where the packet asks. Every packet goes to the sub-controller with its
/// parent replaced by the parent matrix computed for the packet's parent at t (a move given in the
/// old parent would be turned by the space). A rotate or scale about a pivot (local origin off) is
/// split in two: first the move of the node's origin that the turn or scale about the pivot makes,
/// sent as an XFORM_MOVE of that world displacement in a translation-only axis matrix at the
/// node's origin; then the packet itself with local origin set. XFORM_SET goes on as the world
/// matrix to reach under the computed parent.
class RotationSpace : public ParentSpaceControl {
 public:
  /// With loading true no block and no sub-controller are made (the file provides them).
  explicit RotationSpace(bool loading = false);

  Class_ID ClassID() override;
  void GetClassName(MSTR& s, bool localized = true) const override;
  void SetValue(TimeValue t,
                void* val,
                int commit = 1,
                GetSetMethod method = CTRL_ABSOLUTE) override;
  RefTargetHandle Clone(RemapDir& remap) override;

  Matrix3 ParentTM(TimeValue t, const Matrix3& parent_ws, Interval& valid) override;
  void ParamWillChange(ParamID id, const PB2Value& v) override;

  /// Captures the initial offset at t against target (see the class comment). Nothing without a
  /// block or a target.
  void CaptureInitialOffset(TimeValue t, INode* target);
};

/// Descriptor of RotationSpace; identity and names from the module's class table.
class RotationSpaceClassDesc : public MarvolithClassDesc {
 public:
  RotationSpaceClassDesc() : MarvolithClassDesc(ClassIndex::RotationSpace) {}
  Animatable* Create(bool loading = false) override { return new RotationSpace(loading); }
};
ClassDesc2* GetRotationSpaceDesc();

}  // namespace marvolith
