// Copyright Marvolith contributors.
#include "constraints/parent_space_control.h"

#include "host/controllers/controller_classes.h"
#include "host/params/iparamb2.h"
#include "host/scene/inode.h"
#include "host/undo/hold.h"
#include "plugin/class_table.h"
#include "support/hold_record.h"
#include "support/lock_chunk.h"
#include "support/track_assign.h"

namespace marvolith {
namespace {

constexpr const char* kSubNames[2] = {"Parameters", "Transform"};

}  // namespace

void* ParentSpaceControl::GetInterface(ULONG id) {
  if (id == I_REFSLOTCHECK) return static_cast<IRefSlotCheck*>(this);
  return CompoundControl::GetInterface(id);
}

MSTR ParentSpaceControl::SubAnimName(int i, bool) {
  return i == 0 || i == kSubRef ? MSTR(kSubNames[i]) : MSTR();
}

RefTargetHandle ParentSpaceControl::GetReference(int i) {
  if (i == kParamsRef) return pblock_;
  return i == kSubRef ? sub_ : nullptr;
}

bool ParentSpaceControl::CanReferenceAt(int i, ReferenceTarget* target) {
  if (!target) return false;
  if (i == kParamsRef) return target->SuperClassID() == PARAMETER_BLOCK2_CLASS_ID;
  return i == kSubRef && target->SuperClassID() == CTRL_MATRIX3_CLASS_ID &&
         dynamic_cast<Control*>(target);
}

void ParentSpaceControl::SetReference(int i, RefTargetHandle target) {
  if (i == kParamsRef) {
    pblock_ = dynamic_cast<IParamBlock2*>(target);
  } else if (i == kSubRef) {
    sub_ = target && target->SuperClassID() == CTRL_MATRIX3_CLASS_ID
               ? dynamic_cast<Control*>(target)
               : nullptr;
  }
}

bool ParentSpaceControl::AssignController(Animatable* control, int i) {
  if (!CanAssignController(i)) return false;
  if (!ReplaceTrack(this, kSubRef, dynamic_cast<Control*>(control), sub_, CTRL_MATRIX3_CLASS_ID))
    return false;
  NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
  NotifyDependents(FOREVER, PART_ALL, REFMSG_SUBANIM_STRUCTURE_CHANGED);
  return true;
}

Control* ParentSpaceControl::GetPositionController() {
  return sub_ ? sub_->GetPositionController() : nullptr;
}
Control* ParentSpaceControl::GetRotationController() {
  return sub_ ? sub_->GetRotationController() : nullptr;
}
Control* ParentSpaceControl::GetScaleController() {
  return sub_ ? sub_->GetScaleController() : nullptr;
}
bool ParentSpaceControl::SetPositionController(Control* c) {
  return sub_ && sub_->SetPositionController(c);
}
bool ParentSpaceControl::SetRotationController(Control* c) {
  return sub_ && sub_->SetRotationController(c);
}
bool ParentSpaceControl::SetScaleController(Control* c) {
  return sub_ && sub_->SetScaleController(c);
}

void ParentSpaceControl::HoldState() {
  // The block and sub-controller record their own changes.
  PutStateRestore(this, "Controller Change");
}

void ParentSpaceControl::MakeParts(MarvolithClassDesc& cd) {
  HoldSuspend no_undo;  // a new controller's own parts are not an edit
  cd.MakeAutoParamBlocks(this);
  ReplaceReference(kSubRef, NewDefaultMatrix3Controller());
}

void ParentSpaceControl::GetValue(TimeValue t, void* val, Interval& valid, GetSetMethod) {
  if (!val) return;
  Matrix3& tm_ws = *static_cast<Matrix3*>(val);
  // tm_ws enters as the parent's world transform; the sub-controller turns the bent parent into
  // the node's world transform.
  if (pblock_) {
    tm_ws = ParentTM(t, tm_ws, valid);
    last_parent_ = tm_ws;
  }
  if (sub_) sub_->GetValue(t, val, valid, CTRL_RELATIVE);
}

bool ParentSpaceControl::ChangeParents(TimeValue t,
                                       const Matrix3&,
                                       const Matrix3& new_parent_ws,
                                       const Matrix3& world_ws) {
  SetXFormPacket pk(world_ws, new_parent_ws);
  SetValue(t, &pk, 1, CTRL_RELATIVE);
  return true;
}

bool ParentSpaceControl::IsKeyAtTime(TimeValue t, DWORD flags) {
  return sub_ && sub_->IsKeyAtTime(t, flags);
}

void ParentSpaceControl::Copy(Control* from) {
  if (!from || from == this || from == sub_) return;
  if (from->SuperClassID() != CTRL_MATRIX3_CLASS_ID) return;
  if (from->TestForLoop(FOREVER, this) == REF_FAIL) return;
  // from becomes the node's real transform, with its keys, under the bent parent.
  ReplaceReference(kSubRef, from);
  SetLocked(IsTrackLocked(from));
  NotifyChange();
}

void ParentSpaceControl::CloneInto(ParentSpaceControl* c, RemapDir& remap) {
  for (int i = 0; i < NumRefs(); ++i) c->ReplaceReference(i, remap.CloneRef(GetReference(i)));
  c->locked_ = locked_;
  c->last_parent_ = last_parent_;
  BaseClone(this, c, remap);
}

INode* ParentSpaceControl::OwnerAndParent(TimeValue t, Matrix3& parent_ws) {
  INode* node = FindOwnerNode(this);
  parent_ws = node ? node->GetParentTM(t) : Matrix3();
  return node;
}

IOResult ParentSpaceControl::Save(ISave* isave) { return SaveLockChunk(isave, locked_); }

IOResult ParentSpaceControl::Load(ILoad* iload) {
  State s = GetState();
  const IOResult res = LoadLockOnly(iload, s.locked);
  if (res == IO_OK) SetState(s);
  return res;
}

void SpaceCaptureAccessor::Set(PB2Value& v, ReferenceMaker* owner, ParamID id, int, TimeValue) {
  if (IsUndoingOrRedoing()) return;
  if (auto* c = dynamic_cast<ParentSpaceControl*>(owner)) c->ParamWillChange(id, v);
}

SpaceCaptureAccessor& GetSpaceCaptureAccessor() {
  static SpaceCaptureAccessor accessor;
  return accessor;
}

}  // namespace marvolith
