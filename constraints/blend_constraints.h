// Copyright Marvolith contributors.
// ScaleConstraint and TransformConstraint: weighted blends of target scales or whole target
// transforms without a child controller. Both remember the value they started from, so that a
// constraint that replaced a track leaves the node as it was until targets are added.
#pragma once

#include "constraints/target_constraint.h"
#include "host/io/chunk_io.h"
#include "host/math/scale_value.h"

namespace marvolith {

/// The state the two classes share, V being ScaleValue or Matrix3, and its chunks.
template <typename V>
class BlendStateConstraint : public TargetConstraint {
 public:
  static constexpr USHORT kBaseChunk = 4097;
  static constexpr USHORT kInitialChunk = 4098;
  static constexpr USHORT kBlendAtAddChunk = 4099;
  static constexpr USHORT kLastCountChunk = 4100;
  /// The locked flag, as a 4-byte value.
  static constexpr USHORT kLockedChunk = 9525;

  struct State {
    V initial{};       ///< the node's value at the first evaluation (the base over the parent)
    V base{};          ///< the value taken from the controller this one replaced
    V blend_at_add{};  ///< the blend when the target count last changed
    int last_count = 0;
    bool first_evaluation = true;
    bool locked = false;
  };
  State GetState() const {
    State s = state_;
    s.locked = locked_;
    return s;
  }
  void SetState(const State& s) {
    state_ = s;
    locked_ = s.locked;
  }
  void StateRestored() { this->NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE); }
  /// Records the state for undo, once per hold.
  void HoldState();

  int NumRefs() override { return 1; }
  RefTargetHandle GetReference(int i) override { return i == 0 ? pblock_ : nullptr; }
  int NumSubs() override { return 1; }
  Animatable* SubAnim(int i) override { return GetReference(i); }
  MSTR SubAnimName(int i, bool localized = true) override;
  int SubNumToRefNum(int i) override { return i == 0 ? 0 : -1; }

  void SetLocked(bool locked, bool set_children = false) override;
  /// Nothing: the value comes from the targets alone.
  void SetValue(TimeValue, void*, int = 1, GetSetMethod = CTRL_ABSOLUTE) override {}
  /// Unless locked: from a constraint of the same class its block (cloned) and locked state;
  /// from another controller its locked state and its value at the current time as the base,
  /// taken over by the next evaluation.
  void Copy(Control* from) override;

  IOResult Save(ISave* isave) override;
  IOResult Load(ILoad* iload) override;

 protected:
  /// The value of from at t that becomes the base.
  virtual V ValueOf(Control* from, TimeValue t) = 0;
  void CloneStateInto(BlendStateConstraint& c, RemapDir& remap);

  State state_;
};

/// The scale constraint ("Scale Constraint", a scale controller).
///
/// The targets' scales (local to their parents with `local_world` 0, world with 1) are blended:
/// factors weighted, axes slerped in list order. With `relative` the blend is taken relative to
/// the blend when the target count last changed, over the base (world) or the initial scale
/// (local). Without targets, or all weights 0, the base (world) or initial scale. In relative
/// GetValue the result is applied to the parent matrix: by ApplyScaling in world mode, by
/// ApplyScaleValue (on the orthogonalised matrix) in local mode; absolute GetValue answers the
/// ScaleValue.
class ScaleConstraint : public BlendStateConstraint<ScaleValue> {
 public:
  explicit ScaleConstraint(bool loading = false);
  MarvolithClassDesc* Desc() const override;
  FPInterfaceDesc* GetDesc() override;
  void GetValue(TimeValue t,
                void* val,
                Interval& valid,
                GetSetMethod method = CTRL_ABSOLUTE) override;
  RefTargetHandle Clone(RemapDir& remap) override;

 protected:
  ScaleValue ValueOf(Control* from, TimeValue t) override;
  const char* HoldName() const override { return "Scale Constraint Targets"; }
};

/// The transform constraint ("Transform Constraint", a matrix controller).
///
/// The targets' transforms (local with `local_world` 0, world with 1) are blended as the parent
/// constraint blends them. Local mode places the blend under the node's own parent, world mode
/// answers it as the node's world. With `relative` the change of the blend since the target count
/// last changed (position difference, rotation difference, factor ratio) is applied to the base
/// (local mode, then the parent) or to the node's transform at the first evaluation (world mode).
/// Without targets, or all weights 0, the base under the parent.
class TransformConstraint : public BlendStateConstraint<Matrix3> {
 public:
  explicit TransformConstraint(bool loading = false);
  MarvolithClassDesc* Desc() const override;
  FPInterfaceDesc* GetDesc() override;
  void GetValue(TimeValue t,
                void* val,
                Interval& valid,
                GetSetMethod method = CTRL_ABSOLUTE) override;
  RefTargetHandle Clone(RemapDir& remap) override;

 protected:
  Matrix3 ValueOf(Control* from, TimeValue t) override;
  const char* HoldName() const override { return "Transform Constraint Targets"; }
};

ClassDesc2* GetScaleConstraintDesc();
ClassDesc2* GetTransformConstraintDesc();

}  // namespace marvolith
