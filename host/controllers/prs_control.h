// Copyright Marvolith contributors.
// PRS: the host's position/rotation/scale transform controller.
#pragma once

#include "host/io/chunk_io.h"
#include "support/compound_control.h"

class ClassDesc2;

/// First word of the PRS transform controller's Class_ID (decimal 37206; the second word is 0).
inline constexpr ULONG kPRSClassIDPartA = 37206;

/// The host's transform controller (Class_ID(37206, 0), CTRL_MATRIX3_CLASS_ID). References and
/// sub-anims 0 "Position", 1 "Rotation", 2 "Scale", each assignable to a controller of that
/// super class; the controller assigned adopts the value of the one it replaces (Copy).
///
/// GetValue turns the parent matrix in *val into the world matrix: the position controller
/// applies with PreTranslate, then the rotation with PreRotate, then the scale with
/// ApplyScaleValue (relative GetValue of each), so
///   world = MatrixFromScaleValue(s) * Matrix(q) * Orthogonalized(TransMatrix(p) * parent)
/// (ApplyScaleValue orthogonalises, so the parent's scale reaches the position but not the
/// axes). A missing sub-controller is skipped.
///
/// SetValue takes a SetXFormPacket (the method is ignored):
///   XFORM_SET: p, q, s set absolute so that the world matrix becomes tmAxis under tmParent
///     (exact for any tmAxis: p from tmAxis * Inverse(tmParent), q and s from the shared
///     decomposition of tmAxis * Inverse(Orthogonalized(tmParent)));
///   XFORM_MOVE: the world moves by p given in the axes of tmAxis;
///   XFORM_ROTATE: the node turns by aa about the axes of tmAxis, about its own origin when
///     localOrigin is set, else also its position about the origin of tmAxis;
///   XFORM_SCALE: factors p along the axes of tmAxis, as a relative ScaleValue, about the
///     node's origin when localOrigin is set, else also its position about tmAxis's origin.
/// Nothing happens while locked. Saves its locked flag (chunk kLockChunkID).
class PRSControl : public CompoundControl {
 public:
  /// With loading false the three default controllers are made.
  explicit PRSControl(bool loading = false);

  struct State {
    bool locked = false;
  };
  State GetState() const { return {locked_}; }
  void SetState(const State& s) { locked_ = s.locked; }
  void StateRestored() { NotifyChange(); }

  Class_ID ClassID() override { return Class_ID(kPRSClassIDPartA, 0); }
  SClass_ID SuperClassID() override { return CTRL_MATRIX3_CLASS_ID; }
  void GetClassName(MSTR& s, bool localized = true) const override {
    s = "Position/Rotation/Scale";
  }

  int NumSubs() override { return 3; }
  Animatable* SubAnim(int i) override { return KeySub(i); }
  MSTR SubAnimName(int i, bool localized = true) override;
  bool CanAssignController(int i) override { return i >= 0 && i < 3; }
  bool AssignController(Animatable* control, int i) override;
  int SubNumToRefNum(int i) override { return i >= 0 && i < 3 ? i : -1; }
  int NumRefs() override { return 3; }
  RefTargetHandle GetReference(int i) override { return KeySub(i); }

  Control* GetPositionController() override { return sub_[0]; }
  Control* GetRotationController() override { return sub_[1]; }
  Control* GetScaleController() override { return sub_[2]; }
  bool SetPositionController(Control* c) override { return AssignController(c, 0); }
  bool SetRotationController(Control* c) override { return AssignController(c, 1); }
  bool SetScaleController(Control* c) override { return AssignController(c, 2); }

  void GetValue(TimeValue t,
                void* val,
                Interval& valid,
                GetSetMethod method = CTRL_ABSOLUTE) override;
  void SetValue(TimeValue t,
                void* val,
                int commit = 1,
                GetSetMethod method = CTRL_ABSOLUTE) override;
  /// XFORM_SET of tm under new_parent; answers true.
  bool ChangeParents(TimeValue t,
                     const Matrix3& old_parent,
                     const Matrix3& new_parent,
                     const Matrix3& tm) override;
  /// With KEYAT_POSITION, KEYAT_ROTATION or KEYAT_SCALE in flags only those tracks count.
  bool IsKeyAtTime(TimeValue t, DWORD flags) override { return IsTransformKeyAtTime(t, flags); }
  /// Lets the position, rotation and scale controllers draw in turn; nonzero when one drew.
  int Display(TimeValue t, INode* inode, ViewExp* vpt, int flags) override {
    int drew = 0;
    for (Control* c : sub_) {
      if (c) drew |= c->Display(t, inode, vpt, flags);
    }
    return drew;
  }
  /// Takes over from's position, rotation and scale controllers where it has them (shared);
  /// otherwise its local matrix at the current time becomes the values of its own.
  void Copy(Control* from) override;
  RefTargetHandle Clone(RemapDir& remap) override;

  RefResult NotifyRefChanged(const Interval&, RefTargetHandle, PartID&, RefMessage, bool) override {
    return REF_SUCCEED;
  }
  IOResult Save(ISave* isave) override;
  IOResult Load(ILoad* iload) override;

 protected:
  void SetReference(int i, RefTargetHandle target) override;
  int NumKeySubs() override { return 3; }
  Control* KeySub(int i) override { return i >= 0 && i < 3 ? sub_[i] : nullptr; }
  void HoldState() override;

 private:
  void SetWorld(TimeValue t, const Matrix3& world_ws, const Matrix3& parent_ws, int commit);
  void SetPositionInWorld(TimeValue t, const Point3& pos_ws, const Matrix3& parent_ws, int commit);
  Control* sub_[3] = {nullptr, nullptr, nullptr};
};

ClassDesc2* PRSClassDesc();
