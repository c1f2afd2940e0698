// Copyright Marvolith contributors.
// RotationXYZ, the toolkit's Euler rotation controller: three float channels that keep their
// angles continuous when a whole rotation is written, and the pure Euler helpers it runs on.
#pragma once

#include <memory>
#include <vector>

#include "host/controllers/control_interfaces.h"
#include "host/math/point3.h"
#include "host/math/quat.h"
#include "plugin/class_table.h"
#include "support/compound_control.h"

namespace marvolith {

// ---- Pure core: angles in sequence order ----
//
// `seq[0..2]` are radians in the sequence order of an Euler order (host/math/euler.h): seq[0]
// turns about the order's first axis and is applied first. Orders outside 0..8 read as XYZ.

/// Largest turn of one step of a relative rotation (three quarters of pi), so that
/// ContinuousQuatToEuler can follow each step.
inline constexpr float kEulerRelativeStep = 2.3561945f;
/// Most steps a relative rotation is cut into.
inline constexpr int kEulerMaxRelativeSteps = 256;
/// A relative rotation whose axis has |dot| within this of 1 with a gimbal axis turns only
/// that axis's channel.
inline constexpr float kGimbalAxisTolerance = 0.0001f;
/// One whole turn, as the whole turns of repeated-axis orders are counted.
inline constexpr float kWholeTurn = 6.2831855f;

/// The rotation of seq: the identity turned by RotateX/Y/Z about each axis of the order's
/// sequence in turn, as a quaternion.
Quat EulerSequenceToQuat(const float seq[3], int order);

/// The unit gimbal axes of seq in the parent's space, innermost (seq[0]) first, each in the
/// quaternion's sense: AngAxis(axes[k], d) turns seq[k] forward by d.
void EulerGimbalAxes(const float seq[3], int order, Point3 axes[3]);

/// What a relative turn did.
struct EulerTurnResult {
  int gimbal_step = -1;  ///< the sequence step turned alone, or -1
  int steps = 0;         ///< steps of the stepped path (0 when a gimbal axis took it)
};

/// Turns seq by turn (applied after the present rotation, in the quaternion's sense, axis in the
/// parent's space):
///   - about a gimbal axis (kGimbalAxisTolerance): the angle goes straight to that step, negated
///     when the axis points the other way, so one channel moves and whole turns are kept;
///   - else for orders 6..8: QuatToEuler of the turned rotation, with the whole turns each angle
///     held put back;
///   - else in ceil(|angle| / kEulerRelativeStep) steps (1..kEulerMaxRelativeSteps), with
///     ContinuousQuatToEuler after each, so a long turn keeps its turns and never flips at half
///     a turn.
/// A zero axis or a non-finite angle or axis leaves seq as it is (result steps 0, step -1).
EulerTurnResult TurnEulerSequence(float seq[3], int order, const AngAxis& turn);

/// Writes into seq the angles of q: QuatToEuler for orders 6..8, else ContinuousQuatToEuler
/// against the angles seq holds on entry.
void SetEulerSequence(float seq[3], int order, const Quat& q);

// ---- The controller ----

/// The host's IK joint limits of a rotation, kept for its IK solvers and saved when present:
/// records of three floats (one per axis), saved as given.
struct JointParamsEuler {
  std::vector<Point3> records;
  bool operator==(const JointParamsEuler&) const = default;
};

/// The Euler rotation controller (CTRL_ROTATION_CLASS_ID), "Rotation XYZ". References 0, 1, 2
/// are float controllers of the X, Y and Z channels (radians), sub-anims "X Rotation",
/// "Y Rotation", "Z Rotation"; a missing channel reads 0 and is skipped when written. Keys,
/// out-of-range types and commit/restore reach the channels.
///
/// GetValue builds the rotation of the order from the three angles (absolute: a Quat; relative:
/// the Matrix3 in val is pre-rotated). The angles are cached over the channels' validity.
/// SetValue takes a Quat (absolute) or an AngAxis (relative) and writes angles continuous with
/// the present ones (see TurnEulerSequence and SetEulerSequence); with animate on and an order of
/// 0..5, an absolute write continues from the angles at the channels' last key before t. Locked
/// tracks ignore every write. Writes, order and locked changes are undoable.
class RotationXYZ : public CompoundControl, public IEulerControl {
 public:
  /// With loading false the three channels are new default float controllers.
  explicit RotationXYZ(bool loading = false);
  ~RotationXYZ() override;

  // Animatable.
  Class_ID ClassID() override;
  SClass_ID SuperClassID() override { return CTRL_ROTATION_CLASS_ID; }
  void GetClassName(MSTR& s, bool localized = true) const override;
  void* GetInterface(ULONG id) override;
  using CompoundControl::GetInterface;
  int NumSubs() override { return 3; }
  Animatable* SubAnim(int i) override;
  MSTR SubAnimName(int i, bool localized = true) override;
  /// The three angle tracks read in degrees.
  ParamDimension* GetParamDimension(int i) override {
    return i >= 0 && i < 3 ? stdAngleDim : defaultDim;
  }
  bool CanAssignController(int i) override { return i >= 0 && i < 3; }
  /// Puts a float controller at channel i, where it adopts the old channel's value (Copy);
  /// anything else is refused.
  bool AssignController(Animatable* control, int i) override;
  int SubNumToRefNum(int i) override { return i >= 0 && i < 3 ? i : -1; }

  // References.
  int NumRefs() override { return 3; }
  RefTargetHandle GetReference(int i) override;
  /// A channel's change empties the angle cache, except while a write is under way.
  RefResult NotifyRefChanged(const Interval& change_int,
                             RefTargetHandle target,
                             PartID& part_id,
                             RefMessage message,
                             bool propagate) override;
  RefTargetHandle Clone(RemapDir& remap) override;

  // Control.
  void GetValue(TimeValue t,
                void* val,
                Interval& valid,
                GetSetMethod method = CTRL_ABSOLUTE) override;
  void SetValue(TimeValue t,
                void* val,
                int commit = 1,
                GetSetMethod method = CTRL_ABSOLUTE) override;
  /// Another RotationXYZ: takes its channels and order. Another class with keys and three
  /// float sub-controllers: takes those channels (and an Euler order it reports). Any other
  /// rotation: its value at time 0 written into the channels (MatrixToEuler), without keys. The
  /// locked state follows the source.
  void Copy(Control* from) override;
  Control* GetXController() override { return sub_[0]; }
  Control* GetYController() override { return sub_[1]; }
  Control* GetZController() override { return sub_[2]; }

  // IEulerControl.
  int GetOrder() override { return order_; }
  /// Orders 9 and above and the present order change nothing. Undoable ("Change Euler Order");
  /// the channels keep their numbers, so the rotation changes.
  void SetOrder(int order) override;

  // Joint parameters.
  const JointParamsEuler* GetJointParams() const { return joint_params_.get(); }
  /// Replaces the joint parameters; null removes them.
  void SetJointParams(const JointParamsEuler* params);
  /// True when the order was loaded from a file that wrote it without the +100 mark (1..5).
  bool HasOlderOrder() const { return older_order_; }

  /// Chunks: 4098 joint parameters (when present; one sub-chunk 144 of 12 bytes per record),
  /// 4099 the order as int32 (order + 100 when above 0), 9525 the locked flag as int32.
  IOResult Save(ISave* isave) override;
  /// Reads the chunks above and skips others. A stored order of 100 or more loses its hundreds;
  /// 1..5 marks the older order. A chunk of a wrong size or an order outside 0..8 answers
  /// IO_ERROR and leaves the controller as it was.
  IOResult Load(ILoad* iload) override;

 protected:
  void SetReference(int i, RefTargetHandle target) override;
  int NumKeySubs() override { return 3; }
  Control* KeySub(int i) override { return i >= 0 && i < 3 ? sub_[i] : nullptr; }
  void HoldState() override;

 private:
  // Restore records: the write bracket of SetValue, the order, and the controller's own state.
  class SetValueRestore;
  class RotationXYZOrderRestore;
  class StateRestore;

  /// Undo state of the controller itself (the channels record their own).
  struct State {
    bool locked = false;
    int order = 0;
  };
  State GetState() const { return {locked_, order_}; }
  void SetState(const State& s);
  /// After a restore: empties the cache and tells dependents.
  void StateRestored();
  void SetBlocked(bool blocked) { blocked_ = blocked; }

  /// Channel angles at t into ch (0 for a missing channel), narrowing valid.
  void ReadChannels(TimeValue t, float ch[3], Interval& valid);
  /// The present angles at t in sequence order.
  void ReadSequence(TimeValue t, float seq[3]);
  /// Refreshes the cache at t unless blocked or still valid.
  void Refresh(TimeValue t);
  /// Writes seq (sequence order) into the channels at t with the cache and restore bracket.
  void WriteSequence(TimeValue t, const float seq[3]);
  /// The latest key time of the three channels before t; false when none has a key before t.
  bool LastKeyBefore(TimeValue t, TimeValue& key_time);

  /// Empties the cache and tells dependents that the value and the sub-anims changed.
  void NotifyOrderChanged();

  Control* sub_[3] = {nullptr, nullptr, nullptr};
  int order_ = 0;
  Point3 cached_euler_;  // channel order, radians
  Interval cache_valid_ = NEVER;
  bool blocked_ = false;
  bool older_order_ = false;
  std::unique_ptr<JointParamsEuler> joint_params_;
};

/// The descriptor of RotationXYZ (identity and names from the class table).
class RotationXYZClassDesc : public MarvolithClassDesc {
 public:
  RotationXYZClassDesc() : MarvolithClassDesc(ClassIndex::RotationXYZ) {}
  Animatable* Create(bool loading = false) override { return new RotationXYZ(loading); }
};

/// The module's one RotationXYZ descriptor.
ClassDesc2* GetRotationXYZDesc();

}  // namespace marvolith
