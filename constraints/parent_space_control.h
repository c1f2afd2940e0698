// Copyright Marvolith contributors.
// ParentSpaceControl: the base of the transform controllers that bend a node's parent space and
// then evaluate the node's own transform under it (root constraint, rotation space).
#pragma once

#include "host/core/control.h"
#include "host/params/pb_accessor.h"
#include "support/compound_control.h"
#include "support/ref_slot_check.h"

class IParamBlock2;
class INode;

namespace marvolith {

class MarvolithClassDesc;

/// A transform controller (super class CTRL_MATRIX3_CLASS_ID) over one sub-controller of the
/// transform kind, the node's "real" transform.
///
/// References and sub-anims: 0 the parameter block ("Parameters"), 1 the sub-controller
/// ("Transform"), which is assignable to any transform controller that closes no loop. A new
/// controller makes the host's default PRS as its sub-controller; one made for loading makes
/// nothing. Position, rotation and scale controllers are the sub-controller's.
///
/// GetValue replaces the incoming parent matrix by ParentTM (kept as LastParentTM) and lets the
/// sub-controller turn it into the world matrix (CTRL_RELATIVE). Without a block or a
/// sub-controller the parent comes through unchanged (and without a sub-controller it is the
/// result). Evaluation allocates nothing.
///
/// Copy(from) puts from, a transform controller, in the sub-controller's place, so assigning this
/// controller over an animated one keeps the animation under it, and takes from's locked state.
/// While locked SetValue does nothing. Saves its locked flag (kLockChunkID); unknown chunks are
/// skipped; the block and the sub-controller are references.
class ParentSpaceControl : public CompoundControl, public IRefSlotCheck {
 public:
  struct State {
    bool locked = false;
  };
  State GetState() const { return {locked_}; }
  void SetState(const State& s) { locked_ = s.locked; }
  void StateRestored() { NotifyChange(); }

  SClass_ID SuperClassID() override { return CTRL_MATRIX3_CLASS_ID; }
  void* GetInterface(ULONG id) override;
  using CompoundControl::GetInterface;

  int NumSubs() override { return 2; }
  Animatable* SubAnim(int i) override { return GetReference(i); }
  MSTR SubAnimName(int i, bool localized = true) override;
  bool CanAssignController(int i) override { return i == kSubRef; }
  /// Puts control in the sub-controller's place (it adopts the old one's value through Copy);
  /// false for another index, a controller that is not a transform one, or one closing a loop.
  bool AssignController(Animatable* control, int i) override;
  int SubNumToRefNum(int i) override { return i == 0 || i == kSubRef ? i : -1; }
  int NumRefs() override { return 2; }
  RefTargetHandle GetReference(int i) override;
  int NumParamBlocks() override { return 1; }
  IParamBlock2* GetParamBlock(int i) override { return i == 0 ? pblock_ : nullptr; }
  IParamBlock2* GetParamBlockByID(BlockID id) override { return id == 0 ? pblock_ : nullptr; }
  bool CanReferenceAt(int i, ReferenceTarget* target) override;

  Control* GetPositionController() override;
  Control* GetRotationController() override;
  Control* GetScaleController() override;
  bool SetPositionController(Control* c) override;
  bool SetRotationController(Control* c) override;
  bool SetScaleController(Control* c) override;

  void GetValue(TimeValue t,
                void* val,
                Interval& valid,
                GetSetMethod method = CTRL_ABSOLUTE) override;
  /// XFORM_SET of world_ws under new_parent_ws through SetValue; answers true.
  bool ChangeParents(TimeValue t,
                     const Matrix3& old_parent_ws,
                     const Matrix3& new_parent_ws,
                     const Matrix3& world_ws) override;
  bool IsKeyAtTime(TimeValue t, DWORD flags) override;
  void Copy(Control* from) override;

  RefResult NotifyRefChanged(const Interval&, RefTargetHandle, PartID&, RefMessage, bool) override {
    return REF_SUCCEED;
  }
  IOResult Save(ISave* isave) override;
  IOResult Load(ILoad* iload) override;

  /// The parent matrix the sub-controller is evaluated under at t, for the incoming parent
  /// parent_ws (the node's parent's world transform). Narrows valid by every parameter and node
  /// read. Needs a block (callers check).
  virtual Matrix3 ParentTM(TimeValue t, const Matrix3& parent_ws, Interval& valid) = 0;
  /// Called by the block's capture accessor before parameter id takes the value v (never while
  /// undoing or redoing): a class captures its initial offset here when the write asks for it.
  virtual void ParamWillChange(ParamID id, const PB2Value& v) = 0;

  /// The parent matrix of the last evaluation (the identity before the first).
  const Matrix3& LastParentTM() const { return last_parent_; }
  IParamBlock2* ParamBlock() const { return pblock_; }
  Control* SubController() const { return sub_; }

  static constexpr int kParamsRef = 0;
  static constexpr int kSubRef = 1;

 protected:
  /// Makes the block of cd and, unless loading, the default sub-controller; call from the
  /// constructor with loading false.
  void MakeParts(MarvolithClassDesc& cd);
  /// Copies references, locked flag and kept parent into c, then BaseClone.
  void CloneInto(ParentSpaceControl* c, RemapDir& remap);
  /// The node this controller animates and its parent's world transform at t; the identity and
  /// null when it animates none.
  INode* OwnerAndParent(TimeValue t, Matrix3& parent_ws);

  void SetReference(int i, RefTargetHandle target) override;
  int NumKeySubs() override { return 1; }
  Control* KeySub(int i) override { return i == 0 ? sub_ : nullptr; }
  void HoldState() override;

  IParamBlock2* pblock_ = nullptr;
  Control* sub_ = nullptr;
  Matrix3 last_parent_;
};

/// The accessor of the parameters whose writes capture an initial offset: it hands each write
/// to ParentSpaceControl::ParamWillChange of the block's owner, except while undoing or redoing
/// (the restored values are the truth then).
class SpaceCaptureAccessor : public PBAccessor {
 public:
  void Set(PB2Value& v, ReferenceMaker* owner, ParamID id, int tab_index, TimeValue t) override;
};
SpaceCaptureAccessor& GetSpaceCaptureAccessor();

}  // namespace marvolith
