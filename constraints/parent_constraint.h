// Copyright Marvolith contributors.
// ParentConstraint: a transform controller that makes its node follow a weighted blend of target
// nodes, over a child controller that still animates the node relative to that blend. Rigs use
// it for switchable spaces.
#pragma once

#include <vector>

#include "constraints/target_constraint.h"
#include "host/io/chunk_io.h"
#include "support/hold_record.h"
#include "support/ref_slot_check.h"

namespace marvolith {

/// What ParentConstraint remembers of one target between evaluations, to tell a pivot edit of
/// the target from a move: its node TM and pivot TM (object offset), and the values before.
struct TargetTracker {
  AnimHandle node = 0;  ///< the node recorded; 0 for an empty tracker
  TimeValue time = 0;
  Matrix3 node_tm;
  Matrix3 pivot_tm;
  Matrix3 former_node_tm;
  Matrix3 former_pivot_tm;
  bool moved = false;  ///< the former values come from a pivot edit
};

/// The transform (pivot) of node's object relative to the node: its object offset.
Matrix3 PivotTM(INode* node);

/// The parent constraint ("Parent Constraint", a matrix controller).
///
/// References and sub-anims: 0 the block, 1 the child controller (assignable, a matrix
/// controller). GetValue puts the blend of the targets (BlendTargets) where the parent
/// transform was and lets the child controller apply itself over it. Without targets, or when
/// all weights are 0, the blend is `lastParentTM`: the parent transform captured at the first
/// evaluation after creation (or after loading a file that lacks it), so a constraint that
/// replaced a controller leaves its node in place.
///
/// SetValue writes through to the child controller under the blend, so the node lands where the
/// packet asks. A packet that only carries a moved parent (the node was not the one edited) is
/// not applied; the same for a scale of a node whose ancestor is selected and scaled with it.
///
/// While a selected target's pivot is edited (pivot mode "pivot only", or the affect-pivot
/// state), the change of its node TM is compensated: with `relative` on in the target's offset,
/// otherwise in the child controller, so the constrained node stays where it is.
///
/// Saves chunk 1 (`lastParentTM`, 48 bytes) and its locked flag (kLockChunkID).
class ParentConstraint : public TargetConstraint, public IRefSlotCheck {
 public:
  static constexpr int kChildRef = 1;
  static constexpr USHORT kLastParentChunk = 1;

  /// With loading true no block and no child are made (the file provides them). A new one gets a
  /// default transform controller as its child.
  explicit ParentConstraint(bool loading = false);

  /// The state undo records (ParentTrackersRestore) keep: the captured parent, the last value
  /// and the target trackers.
  struct State {
    Matrix3 last_parent_tm;
    bool capture_parent = true;
    Matrix3 last_value_tm;
    TimeValue last_value_time = 0;
    std::vector<TargetTracker> trackers;
    bool locked = false;
  };
  State GetState() const;
  void SetState(const State& s);
  void StateRestored() { NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE); }
  /// Records the state for undo, once per hold.
  void HoldState();

  MarvolithClassDesc* Desc() const override;
  FPInterfaceDesc* GetDesc() override;
  void* GetInterface(ULONG id) override;
  using TargetConstraint::GetInterface;

  int NumRefs() override { return 2; }
  RefTargetHandle GetReference(int i) override;
  int NumSubs() override { return 2; }
  Animatable* SubAnim(int i) override { return GetReference(i); }
  MSTR SubAnimName(int i, bool localized = true) override;
  int SubNumToRefNum(int i) override { return i == 0 || i == 1 ? i : -1; }
  bool CanAssignController(int i) override { return i == kChildRef; }
  /// Puts a matrix controller under the constraint (it adopts the old child's value); false for
  /// another slot, another kind or a loop.
  bool AssignController(Animatable* control, int i) override;
  bool CanReferenceAt(int i, ReferenceTarget* target) override;
  bool IsLeaf() override { return false; }

  Control* GetPositionController() override;
  /// The child's rotation track, or the shared gimbal proxy (turning in the blended frame) while
  /// the gimbal conditions hold, as for the rig transform.
  Control* GetRotationController() override;
  Control* GetScaleController() override;
  bool SetPositionController(Control* c) override;
  bool SetRotationController(Control* c) override;
  bool SetScaleController(Control* c) override;
  Control* ChildController() const { return child_; }

  void GetValue(TimeValue t,
                void* val,
                Interval& valid,
                GetSetMethod method = CTRL_ABSOLUTE) override;
  void SetValue(TimeValue t,
                void* val,
                int commit = 1,
                GetSetMethod method = CTRL_ABSOLUTE) override;
  /// The node's parent does not reach it (the blend replaces it): nothing to do.
  bool ChangeParents(TimeValue, const Matrix3&, const Matrix3&, const Matrix3&) override {
    return true;
  }
  /// from becomes the child controller, so a controller replaced by the constraint stays under
  /// it; its locked state is taken.
  void Copy(Control* from) override;
  RefTargetHandle Clone(RemapDir& remap) override;
  void SetLocked(bool locked, bool set_children = false) override;

  RefResult NotifyRefChanged(const Interval& change_int,
                             RefTargetHandle target,
                             PartID& part_id,
                             RefMessage message,
                             bool propagate) override;
  IOResult Save(ISave* isave) override;
  IOResult Load(ILoad* iload) override;

  /// The blend of the targets at t (see the class comment), narrowing valid. With use_offsets
  /// each target's offset goes in front of its transform. overrides, when not null, holds one
  /// matrix per target used in place of the targets' transforms.
  Matrix3 BlendTargets(TimeValue t,
                       Interval& valid,
                       bool use_offsets,
                       const std::vector<Matrix3>* overrides = nullptr);

  /// The offset of target i; the identity out of range.
  Matrix3 GetOffset(int i);
  /// Sets the offset of target i (undoable); false out of range.
  bool SetOffset(int i, const Matrix3& m);

  /// `lastParentTM`, the transform the node stays at without targets.
  const Matrix3& LastParentTM() const { return last_parent_tm_; }

 protected:
  FPStatus Dispatch(FunctionID fid, FPParams& p, FPValue& result) override;
  void SetReference(int i, RefTargetHandle target) override;
  void BeforeAppend(INode* node, TimeValue t) override;
  void TargetsChanged() override;
  void MatchTableCounts() override;
  const char* HoldName() const override { return "Parent Constraint Targets"; }

 private:
  /// The world transform of target i at t, recording it in its tracker at the current time.
  Matrix3 TargetTM(int i, TimeValue t, Interval& valid);
  void PivotCompensation(TimeValue t);
  bool ParentMovedOnly(TimeValue t, const SetXFormPacket& pk);
  bool AncestorSelected();

  Control* child_ = nullptr;
  Matrix3 last_parent_tm_;
  bool capture_parent_ = true;
  Matrix3 last_value_tm_;
  TimeValue last_value_time_ = 0;
  std::vector<TargetTracker> trackers_;
  bool adjusting_ = false;
};

/// The undo record of ParentConstraint's own state.
using ParentTrackersRestore = StateRestore<ParentConstraint>;

/// Descriptor of ParentConstraint.
ClassDesc2* GetParentConstraintDesc();

}  // namespace marvolith
