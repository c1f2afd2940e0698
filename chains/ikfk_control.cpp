// Copyright Marvolith contributors.
#include "chains/ikfk_control.h"

#include "chains/ikfk_chain.h"
#include "chains/ikfk_link.h"
#include "controllers/rig_control.h"
#include "host/controllers/controller_classes.h"
#include "host/math/affine.h"
#include "host/params/iparamb2.h"
#include "host/registry/class_desc.h"
#include "host/scene/core_interface.h"
#include "host/scene/inode.h"
#include "host/undo/hold.h"
#include "support/hold_record.h"
#include "support/lock_chunk.h"
#include "support/track_assign.h"

namespace marvolith {
namespace {

class IKFKControlClassDesc : public MarvolithClassDesc {
 public:
  IKFKControlClassDesc() : MarvolithClassDesc(ClassIndex::IKFKControl) {}
  Animatable* Create(bool loading) override { return new IKFKControl(loading); }
};

constexpr const char* kSubNames[4] = {"FK Sub-Control", "IK Goal", "IK Goal Parent", "IK Target"};
constexpr SClass_ID kRefSuper[4] = {PARAMETER_BLOCK2_CLASS_ID, CTRL_ROTATION_CLASS_ID,
                                    CTRL_MATRIX3_CLASS_ID, CTRL_FLOAT_CLASS_ID};

// The class's static tables, built at module load in this order: descriptor, block.
IKFKControlClassDesc ikfk_control_cd;
ParamBlockDesc2 ikfk_control_pb(
    kIKFKControlParams,
    "params",
    0,
    &ikfk_control_cd,
    P_AUTO_CONSTRUCT,
    kIKFKRefParams,
    {
        ParamDef(kIKFKCtrlChainNode, "ikfkchain_node", TYPE_INODE, P_READ_ONLY),
        ParamDef(kIKFKCtrlType, "type", TYPE_INDEX, P_READ_ONLY).Default(0),
        ParamDef(kIKFKCtrlIndex, "index", TYPE_INDEX, P_READ_ONLY).Default(0),
    });

}  // namespace

ClassDesc2* GetIKFKControlDesc() { return &ikfk_control_cd; }

IKFKControl::IKFKControl(bool loading) {
  if (loading) return;
  HoldSuspend no_undo;  // a new controller's own parts are not an edit
  ikfk_control_cd.MakeAutoParamBlocks(this);
  ReplaceReference(kIKFKRefPreferred, NewDefaultRotationController());
  ReplaceReference(kIKFKRefSub, NewDefaultMatrix3Controller());
}

Class_ID IKFKControl::ClassID() { return GetClassInfo(ClassIndex::IKFKControl).class_id; }

void IKFKControl::GetClassName(MSTR& s, bool) const { s = ClassNameOf(ClassIndex::IKFKControl); }

void* IKFKControl::GetInterface(ULONG id) {
  if (id == I_REFSLOTCHECK) return static_cast<IRefSlotCheck*>(this);
  return LockableControl::GetInterface(id);
}

// ---------------------------------------------------------------------------------------------
// References and sub-anims.

int IKFKControl::NumSubs() { return LinksAllowed() ? 4 : 3; }

Animatable* IKFKControl::SubAnim(int i) {
  return i >= 0 && i < NumSubs() ? GetReference(i) : nullptr;
}

MSTR IKFKControl::SubAnimName(int i, bool) {
  switch (i) {
    case kIKFKRefParams:
      return "Parameters";
    case kIKFKRefPreferred:
      return "Preferred Rotation";
    case kIKFKRefSub: {
      const int type = Type();
      return type >= 0 && type <= 3 ? MSTR(kSubNames[type]) : MSTR();
    }
    case kIKFKRefLink:
      return i < NumSubs() ? MSTR("Links") : MSTR();
    default:
      return MSTR();
  }
}

RefTargetHandle IKFKControl::GetReference(int i) {
  switch (i) {
    case kIKFKRefParams:
      return pblock_;
    case kIKFKRefPreferred:
      return preferred_;
    case kIKFKRefSub:
      return sub_;
    case kIKFKRefLink:
      return link_;
    default:
      return nullptr;
  }
}

void IKFKControl::SetReference(int i, RefTargetHandle target) {
  auto control = [&](SClass_ID super) {
    return target && target->SuperClassID() == super ? dynamic_cast<Control*>(target) : nullptr;
  };
  switch (i) {
    case kIKFKRefParams:
      pblock_ = dynamic_cast<IParamBlock2*>(target);
      break;
    case kIKFKRefPreferred:
      preferred_ = control(CTRL_ROTATION_CLASS_ID);
      break;
    case kIKFKRefSub:
      sub_ = control(CTRL_MATRIX3_CLASS_ID);
      break;
    case kIKFKRefLink:
      link_ = control(CTRL_FLOAT_CLASS_ID);
      break;
    default:
      break;
  }
}

bool IKFKControl::CanReferenceAt(int i, ReferenceTarget* target) {
  if (!target || i < 0 || i > 3 || target->SuperClassID() != kRefSuper[i]) return false;
  return i == kIKFKRefParams || dynamic_cast<Control*>(target) != nullptr;
}

IParamBlock2* IKFKControl::GetParamBlockByID(BlockID id) {
  return id == kIKFKControlParams ? pblock_ : nullptr;
}

bool IKFKControl::AssignController(Animatable* control, int i) {
  if (!CanAssignController(i)) return false;
  if (!ReplaceTrack(this, i, dynamic_cast<Control*>(control), GetReference(i), kRefSuper[i])) {
    return false;
  }
  NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
  NotifyDependents(FOREVER, PART_ALL, REFMSG_SUBANIM_STRUCTURE_CHANGED);
  return true;
}

IKFKLink* IKFKControl::Link() const { return dynamic_cast<IKFKLink*>(link_); }

bool IKFKControl::SetLink(Control* link) {
  if (!link || !dynamic_cast<IKFKLink*>(link)) return false;
  if (ReplaceReference(kIKFKRefLink, link) != REF_SUCCEED) return false;
  NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
  NotifyDependents(FOREVER, PART_ALL, REFMSG_SUBANIM_STRUCTURE_CHANGED);
  return true;
}

// ---------------------------------------------------------------------------------------------
// Membership.

IKFKChain* IKFKControl::FindChain() {
  INode* node = pblock_ ? pblock_->GetINode(kIKFKCtrlChainNode) : nullptr;
  Control* c = node ? node->GetTMController() : nullptr;
  if (!c || c->ClassID() != GetClassInfo(ClassIndex::IKFKChain).class_id) return nullptr;
  return dynamic_cast<IKFKChain*>(c);
}

void IKFKControl::SetMember(INode* chain_node, int type, int index) {
  if (!pblock_) return;
  pblock_->SetValue(kIKFKCtrlChainNode, 0, chain_node);
  pblock_->SetValue(kIKFKCtrlType, 0, type);
  pblock_->SetValue(kIKFKCtrlIndex, 0, index);
}

int IKFKControl::Type() { return pblock_ ? pblock_->GetInt(kIKFKCtrlType) : kIKFKMemberJoint; }
int IKFKControl::Index() { return pblock_ ? pblock_->GetInt(kIKFKCtrlIndex) : 0; }

bool IKFKControl::LinksAllowed() {
  switch (Type()) {
    case kIKFKMemberGoalParent:
    case kIKFKMemberTarget:
      return true;
    case kIKFKMemberGoal: {
      IKFKChain* chain = FindChain();
      return !chain || !chain->GoalParentActive();
    }
    default:
      return false;
  }
}

// ---------------------------------------------------------------------------------------------
// Evaluation.

bool IKFKControl::ApplyLink(TimeValue t, Matrix3& m, Interval& valid) {
  IKFKLink* link = Link();
  return link && link->Evaluate(t, m, valid);
}

Matrix3 IKFKControl::EvalMember(TimeValue t,
                                const Matrix3& parent_ws,
                                Interval& valid,
                                bool skip_link) {
  Matrix3 m = parent_ws;
  if (!skip_link && LinksAllowed()) ApplyLink(t, m, valid);
  if (sub_) sub_->GetValue(t, &m, valid, CTRL_RELATIVE);
  return m;
}

void IKFKControl::LocalValues(TimeValue t, Point3& pos, Quat& rot, Point3& scale, Interval& valid) {
  Matrix3 m;  // the sub-control over an identity parent: the local transform
  if (sub_) sub_->GetValue(t, &m, valid, CTRL_RELATIVE);
  pos = m.GetTrans();
  scale = GetScaleLengths(m);
  m.Orthogonalize();
  rot = Quat(m);
}

Quat IKFKControl::PreferredQuat(TimeValue t, Interval& valid) {
  Quat q;
  if (preferred_) preferred_->GetValue(t, &q, valid, CTRL_ABSOLUTE);
  return q;
}

void IKFKControl::GetValue(TimeValue t, void* val, Interval& valid, GetSetMethod method) {
  if (!val) return;
  IKFKChain* chain = FindChain();
  if (!chain) {
    if (sub_) sub_->GetValue(t, val, valid, method);
    return;
  }
  Matrix3& m = *static_cast<Matrix3*>(val);
  switch (Type()) {
    case kIKFKMemberJoint:
      chain->GetJointTM(Index(), t, m, valid);
      return;
    case kIKFKMemberGoal:
      if (!chain->GoalParentActive()) ApplyLink(t, m, valid);
      if (sub_) sub_->GetValue(t, &m, valid, CTRL_RELATIVE);
      chain->KeepGoalTM(m);
      return;
    case kIKFKMemberGoalParent:
      ApplyLink(t, m, valid);
      if (sub_) sub_->GetValue(t, &m, valid, CTRL_RELATIVE);
      chain->KeepGoalParentTM(m);
      return;
    case kIKFKMemberTarget:
      ApplyLink(t, m, valid);
      if (sub_) sub_->GetValue(t, &m, valid, CTRL_RELATIVE);
      chain->KeepTargetTM(m);
      return;
    default:
      if (sub_) sub_->GetValue(t, &m, valid, CTRL_RELATIVE);
      return;
  }
}

void IKFKControl::SetValue(TimeValue t, void* val, int commit, GetSetMethod method) {
  if (GetLocked() || !val || !sub_) return;
  IKFKChain* chain = FindChain();
  if (!chain) {
    sub_->SetValue(t, val, commit, method);
    return;
  }
  SetXFormPacket pk = *static_cast<const SetXFormPacket*>(val);
  Interval ignored = FOREVER;
  switch (Type()) {
    case kIKFKMemberJoint:
      SetJoint(*chain, t, pk, commit, method);
      return;
    case kIKFKMemberGoal: {
      const bool parent_active = chain->GoalParentActive();
      if (!parent_active) ApplyLink(t, pk.tmParent, ignored);
      sub_->SetValue(t, &pk, commit, method);
      if (pk.command == XFORM_MOVE && chain->AutoMatchWanted()) {
        chain->MatchFK(t, true, false, -1);
      }
      return;
    }
    case kIKFKMemberGoalParent:
      ApplyLink(t, pk.tmParent, ignored);
      sub_->SetValue(t, &pk, commit, method);
      if (chain->GoalParentActive() && pk.command != XFORM_SET && chain->AutoMatchWanted()) {
        chain->MatchFK(t, true, false, -1);
      }
      return;
    case kIKFKMemberTarget:
      ApplyLink(t, pk.tmParent, ignored);
      sub_->SetValue(t, &pk, commit, method);
      return;
    default:
      sub_->SetValue(t, &pk, commit, method);
      return;
  }
}

void IKFKControl::SetJoint(
    IKFKChain& chain, TimeValue t, SetXFormPacket pk, int commit, GetSetMethod method) {
  const int index = Index();
  const int count = chain.NumJoints();
  if (index < 0 || index >= count) return;
  // At full IK the FK pose is not what the user sees: with auto matching it first takes the
  // visible pose, so that the edit starts from there.
  const bool hidden_fk = chain.ParamBlock()->GetFloat(kIKFKBlend, t) >= 1.0f;
  const bool auto_match = hidden_fk && chain.AutoMatchWanted();
  if (auto_match) chain.MatchFK(t, false, true, -1);

  // The frame in which the FK pose moves: the predecessor's solved matrix, or the chain's parent
  // turned by the rotation space for the first joint.
  Interval ignored = FOREVER;
  if (index == 0) {
    Matrix3 parent_ws = chain.ChainParentTM(t, ignored);
    const Quat delta = chain.RotationSpaceDelta(t, ignored);
    if (!delta.IsIdentity()) parent_ws.PreRotate(delta);
    pk.tmParent = parent_ws;
  } else {
    chain.GetJointTM(index - 1, t, pk.tmParent, ignored);
  }
  sub_->SetValue(t, &pk, commit, method);
  chain.MarkDirty();
  // The end of the chain moved in FK while IK shows: the goal follows it.
  if (auto_match && index == count - 1) chain.MatchIK(t, true, true, -1, true, true);
}

bool IKFKControl::ChangeParents(TimeValue t,
                                const Matrix3& old_parent_ws,
                                const Matrix3& new_parent_ws,
                                const Matrix3& world_ws) {
  if (Type() == kIKFKMemberJoint && Index() > 0) return true;  // placed by the solve
  return sub_ && sub_->ChangeParents(t, old_parent_ws, new_parent_ws, world_ws);
}

Control* IKFKControl::GetPositionController() {
  return sub_ ? sub_->GetPositionController() : nullptr;
}

Control* IKFKControl::GetScaleController() { return sub_ ? sub_->GetScaleController() : nullptr; }

Control* IKFKControl::GetRotationController() {
  Control* rot = GetRealRotationController(sub_);
  if (!GimbalProxyEnabled() || !rot || !rot->GetInterface(I_EULERCTRL)) return rot;
  Interface* ip = GetCOREInterface();
  if (ip->GetRefCoordSys() != COORDS_GIMBAL || ip->GetPivotMode() == PIV_PIVOT_ONLY) return rot;
  // The frame the rotation track turns in: the member's matrix with its local rotation taken
  // out (world = R_local * frame, so frame = R_local^-1 * world), orthogonal.
  const TimeValue t = ip->GetTime();
  INode* node = FindOwnerNode(this);
  if (!node) return rot;
  Interval ignored = FOREVER;
  Point3 pos, scale;
  Quat local;
  LocalValues(t, pos, local, scale, ignored);
  Matrix3 frame_ws = node->GetNodeTM(t);
  frame_ws.Orthogonalize();
  Matrix3 undo_local;
  Inverse(local).MakeMatrix(undo_local);
  frame_ws = undo_local * frame_ws;
  const float no_offset[3] = {0.0f, 0.0f, 0.0f};
  Control* proxy = ShowGimbalProxy(rot, frame_ws, no_offset);
  return proxy ? proxy : rot;
}

// ---------------------------------------------------------------------------------------------
// Messages, copies, files.

RefResult IKFKControl::NotifyRefChanged(
    const Interval&, RefTargetHandle target, PartID&, RefMessage, bool) {
  if (!target || target != pblock_) return REF_SUCCEED;
  const int type = Type();
  if (type == kIKFKMemberJoint && Index() > 0) return REF_SUCCEED;
  IKFKChain* chain = FindChain();
  const IKFKMatchState state = chain ? chain->MatchState() : IKFKMatchState::kIdle;
  // While the chain matches, its members' own writes would echo back through the chain node:
  // the chain invalidates its members itself when the match ends.
  if (type > kIKFKMemberJoint) return state == IKFKMatchState::kIdle ? REF_SUCCEED : REF_STOP;
  return state != IKFKMatchState::kMovingJoints ? REF_SUCCEED : REF_STOP;
}

void IKFKControl::Copy(Control* from) {
  if (!from || from == this) return;
  if (sub_ && from->SuperClassID() == CTRL_MATRIX3_CLASS_ID) sub_->Copy(from);
  SetLocked(IsTrackLocked(from));
}

RefTargetHandle IKFKControl::Clone(RemapDir& remap) {
  auto* c = new IKFKControl(true);
  for (int i = 0; i < NumRefs(); ++i) c->ReplaceReference(i, remap.CloneRef(GetReference(i)));
  c->locked_ = locked_;
  BaseClone(this, c, remap);
  return c;
}

void IKFKControl::SetLocked(bool locked, bool) {
  if (locked == locked_) return;
  PutStateRestore(this, "IKFK Control Lock");
  locked_ = locked;
  NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
}

IOResult IKFKControl::Save(ISave* isave) { return SaveLockChunk(isave, locked_); }

IOResult IKFKControl::Load(ILoad* iload) { return LoadLockOnly(iload, locked_); }

}  // namespace marvolith
