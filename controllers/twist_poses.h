// Copyright Marvolith contributors.
// TwistPosesFloat and TwistPosesRotation: the twist of a node about one axis, read against
// stored poses so that it stays smooth over the whole sphere of directions (no gimbal flips).
#pragma once

#include "controllers/block_std_control.h"
#include "host/script/fp_interface.h"

namespace marvolith {

/// Parameters of the twist poses block "params" (block id 0), the same for both classes.
enum TwistPosesParam : ParamID {
  kTwistTargetNode = 0,    ///< node measured; a validator refuses loops
  kTwistLocalRefNode = 1,  ///< reference of Local space when use_parent is off
  kTwistUseParent = 2,     ///< bool, default true
  kTwistAxis = 3,          ///< 0..2
  kTwistLocalWorld = 4,    ///< 0 Local, 1 World
  kTwistPoses = 5,         ///< matrix table: one pose-space transform per pose
  kTwistTwists = 6,        ///< angle table: the twist that counts as zero at each pose
  kTwistOffset = 7,        ///< angle, animatable, added last
  kTwistWeight = 8,        ///< percent, animatable, default 1
  kTwistSelPose = 9,       ///< index of the pose selected in the dialog
};

/// Function ids of ITwistPosesFloat and ITwistPosesRotation (the interface id is the class's).
enum TwistPosesFunction : FunctionID {
  kTwistFnAddPose = 0,
  kTwistFnSetPose = 1,
  kTwistFnDeletePose = 2,
};

/// The common part of the two twist pose readers.
///
/// Pose space: `target_node`'s transform at t, with `local_world` 0 relative to the parent (or
/// `local_reference_node`, or nothing), as NodeSpaceTM. The twist about `axis` is measured against
/// the poses by TwistPoseAccumulator; the angle is (twist + base twist) * `weight` + `offset`,
/// radians. Pose entries beyond the shorter of the two tables are ignored. Without poses the
/// reference space's own companion axis is the zero of the twist, so the reading is defined.
/// Without a target node the value is left as it is.
///
/// Pose edits (AddPose, SetPose, DeletePose) are undoable, each one hold "Parameter Change"
/// (or part of the caller's open hold), and keep `selpose` on a pose.
class TwistPosesControl : public BlockStdControl, public FPMixinInterface {
 public:
  void GetValue(TimeValue t,
                void* val,
                Interval& valid,
                GetSetMethod method = CTRL_ABSOLUTE) override;
  void SetValueLocalTime(TimeValue, void*, int = 1, GetSetMethod = CTRL_ABSOLUTE) override {}
  BaseInterface* GetInterface(Interface_ID id) override;
  using BlockStdControl::GetInterface;

  /// The angle at t (see the class comment); false, angle untouched, without a target node.
  bool TwistAngle(TimeValue t, Interval& valid, float& angle);
  /// The pose-space transform of the target at t; false without a target node.
  bool PoseSpaceTM(TimeValue t, Interval& valid, Matrix3& tm);

  /// Appends the target's present pose-space transform with twist 0 and selects it; false
  /// without a target node.
  bool AddPose();
  /// Replaces pose index by the present transform (its twist stays); false without a target
  /// node or for an index out of range.
  bool SetPose(int index);
  /// Removes pose index and its twist together; false for an index out of range.
  bool DeletePose(int index);
  /// Number of poses (entries that have both a matrix and a twist).
  int PoseCount();

 protected:
  FPStatus Dispatch(FunctionID fid, FPParams& p, FPValue& result) override;
};

/// The float "Twist Poses Float": the angle itself; relative GetValue adds it.
class TwistPosesFloat final : public TwistPosesControl {
 public:
  /// loading true makes no block (the file links one).
  explicit TwistPosesFloat(bool loading = false);
  MarvolithClassDesc* GetClassDesc() const override;
  FPInterfaceDesc* GetDesc() override;
  void GetValueLocalTime(TimeValue t,
                         void* val,
                         Interval& valid,
                         GetSetMethod method = CTRL_ABSOLUTE) override;
  RefTargetHandle Clone(RemapDir& remap) override;
};

/// The rotation "Twist Poses Rotation": the turn by the angle about `axis` in the quaternion's
/// sense (the sense the twist is measured in, so the turn reproduces the node's twist). Absolute
/// GetValue writes it; relative GetValue applies it before the incoming matrix (PreRotate).
class TwistPosesRotation final : public TwistPosesControl {
 public:
  /// loading true makes no block (the file links one).
  explicit TwistPosesRotation(bool loading = false);
  MarvolithClassDesc* GetClassDesc() const override;
  FPInterfaceDesc* GetDesc() override;
  void GetValueLocalTime(TimeValue t,
                         void* val,
                         Interval& valid,
                         GetSetMethod method = CTRL_ABSOLUTE) override;
  RefTargetHandle Clone(RemapDir& remap) override;
};

/// The class descriptors (module table indices 54 and 55).
ClassDesc2* GetTwistPosesFloatDesc();
ClassDesc2* GetTwistPosesRotationDesc();

}  // namespace marvolith
