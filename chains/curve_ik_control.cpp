// Copyright Marvolith contributors.
#include "chains/curve_ik_control.h"

#include "chains/curve_ik_chain.h"
#include "controllers/rig_control.h"
#include "host/controllers/controller_classes.h"
#include "host/params/iparamb2.h"
#include "host/registry/class_desc.h"
#include "host/scene/core_interface.h"
#include "host/scene/inode.h"
#include "host/undo/hold.h"
#include "plugin/strings.h"
#include "support/hold_record.h"
#include "support/lock_chunk.h"
#include "support/track_assign.h"

namespace marvolith {
namespace {

constexpr int kParamsRef = 0;
constexpr int kOffsetRef = 1;
constexpr const char* kSubNames[2] = {"Parameters", "Offset"};

class CurveIKControlClassDesc : public MarvolithClassDesc {
 public:
  CurveIKControlClassDesc() : MarvolithClassDesc(ClassIndex::CurveIKControl) {}
  Animatable* Create(bool loading) override { return new CurveIKControl(loading); }
};

// The class's static tables, built at module load in this order: descriptor, block.
CurveIKControlClassDesc curve_control_cd;
constexpr double kBig = 1000000.0;
ParamBlockDesc2 curve_control_pb(
    kCurveIKControlParams,
    "params",
    0,
    &curve_control_cd,
    P_AUTO_CONSTRUCT,
    kParamsRef,
    {
        ParamDef(kCurveControlChainNode, "curveikchain_node", TYPE_INODE, P_READ_ONLY),
        ParamDef(kCurveControlIndex, "index", TYPE_INDEX, P_READ_ONLY).Default(0),
        ParamDef(kCurveControlPercent, "percent", TYPE_PCNT_FRAC, P_ANIMATABLE)
            .Default(0.0f)
            .Range(-kBig, kBig),
        ParamDef(kCurveControlSquash, "squash", TYPE_PCNT_FRAC, P_ANIMATABLE)
            .Default(1.0f)
            .Range(-kBig, kBig),
    });

}  // namespace

ClassDesc2* GetCurveIKControlDesc() { return &curve_control_cd; }

CurveIKControl::CurveIKControl(bool loading) {
  if (loading) return;
  HoldSuspend no_undo;  // a new controller's own parts are not an edit
  curve_control_cd.MakeAutoParamBlocks(this);
  ReplaceReference(kOffsetRef, NewDefaultMatrix3Controller());
}

Class_ID CurveIKControl::ClassID() { return curve_control_cd.ClassID(); }

void CurveIKControl::GetClassName(MSTR& s, bool) const {
  s = ClassNameOf(ClassIndex::CurveIKControl);
}

MSTR CurveIKControl::SubAnimName(int i, bool) {
  return i >= 0 && i < 2 ? MSTR(kSubNames[i]) : MSTR();
}

RefTargetHandle CurveIKControl::GetReference(int i) {
  if (i == kParamsRef) return pblock_;
  return i == kOffsetRef ? sub_ : nullptr;
}

IParamBlock2* CurveIKControl::GetParamBlockByID(BlockID id) {
  return id == kCurveIKControlParams ? pblock_ : nullptr;
}

void CurveIKControl::SetReference(int i, RefTargetHandle target) {
  if (i == kParamsRef) {
    pblock_ = target && target->SuperClassID() == PARAMETER_BLOCK2_CLASS_ID
                  ? static_cast<IParamBlock2*>(target)
                  : nullptr;
  } else if (i == kOffsetRef) {
    sub_ = target && target->SuperClassID() == CTRL_MATRIX3_CLASS_ID
               ? dynamic_cast<Control*>(target)
               : nullptr;
  }
}

bool CurveIKControl::SetOffset(Control* c) {
  if (c) {
    // The new offset takes the old one's value, so the joint stays where it was.
    if (!ReplaceTrack(this, kOffsetRef, c, sub_, CTRL_MATRIX3_CLASS_ID)) return false;
  } else if (ReplaceReference(kOffsetRef, nullptr) != REF_SUCCEED) {
    return false;
  }
  NotifyChange();
  return true;
}

void CurveIKControl::HoldState() { PutStateRestore(this, "Controller Change"); }

CurveIKChain* CurveIKControl::Chain() {
  return pblock_ ? FindCurveIKChain(pblock_->GetINode(kCurveControlChainNode)) : nullptr;
}

Control* CurveIKControl::GetPositionController() {
  return sub_ ? sub_->GetPositionController() : nullptr;
}

Control* CurveIKControl::GetScaleController() {
  return sub_ ? sub_->GetScaleController() : nullptr;
}

Control* CurveIKControl::GetRotationController() {
  Control* rot = sub_ ? GetRealRotationController(sub_) : nullptr;
  if (!rot || !GimbalProxyEnabled()) return rot;
  Interface* ip = GetCOREInterface();
  if (ip->GetRefCoordSys() != COORDS_GIMBAL || ip->GetPivotMode() == PIV_PIVOT_ONLY) return rot;
  // The offset turns in the frame of the curve's solved matrix.
  Matrix3 frame_ws = last_solved_;
  frame_ws.Orthogonalize();
  const float no_offset[3] = {0.0f, 0.0f, 0.0f};
  Control* proxy = ShowGimbalProxy(rot, frame_ws, no_offset);
  return proxy ? proxy : rot;
}

void CurveIKControl::GetValue(TimeValue t, void* val, Interval& valid, GetSetMethod method) {
  if (!pblock_ || !val) return;
  CurveIKChain* chain = Chain();
  if (!chain) return;
  Matrix3 solved_ws;
  if (!chain->GetJointTM(pblock_->GetInt(kCurveControlIndex), t, solved_ws, valid)) return;
  last_solved_ = solved_ws;
  *static_cast<Matrix3*>(val) = solved_ws;
  // The offset is local to the solved matrix, which it takes as its parent.
  if (sub_) sub_->GetValue(t, val, valid, method);
}

void CurveIKControl::SetValue(TimeValue t, void* val, int commit, GetSetMethod method) {
  if (GetLocked() || !pblock_ || !val) return;
  CurveIKChain* chain = Chain();
  // The chain's own nodes are being moved: the joint follows them and takes no edit.
  if (method == CTRL_RELATIVE && chain && chain->AnyMemberSelected()) return;
  if (!sub_) return;
  if (chain) {
    Interval ignored = FOREVER;
    Matrix3 solved_ws;
    if (chain->GetJointTM(pblock_->GetInt(kCurveControlIndex), t, solved_ws, ignored)) {
      last_solved_ = solved_ws;
    }
  }
  SetXFormPacket pk = *static_cast<const SetXFormPacket*>(val);
  pk.tmParent = last_solved_;
  sub_->SetValue(t, &pk, commit, method);
}

RefResult CurveIKControl::NotifyRefChanged(
    const Interval&, RefTargetHandle target, PartID&, RefMessage message, bool) {
  // The chain reads percent and squash of every joint: a change of them is a change of the
  // chain's solve, which the chain tells all its joints.
  if (message == REFMSG_CHANGE && target == pblock_ && pblock_ && !telling_chain_) {
    const ParamID id = pblock_->LastNotifyParamID();
    if (id == kCurveControlPercent || id == kCurveControlSquash) {
      if (CurveIKChain* chain = Chain()) {
        telling_chain_ = true;
        chain->Invalidate();
        telling_chain_ = false;
      }
    }
  }
  return REF_SUCCEED;
}

void CurveIKControl::Copy(Control* from) {
  if (from && from != this) SetLocked(IsTrackLocked(from));
}

RefTargetHandle CurveIKControl::Clone(RemapDir& remap) {
  auto* c = new CurveIKControl(true);
  for (int i = 0; i < 2; ++i) c->ReplaceReference(i, remap.CloneRef(GetReference(i)));
  c->locked_ = locked_;
  c->last_solved_ = last_solved_;
  BaseClone(this, c, remap);
  return c;
}

IOResult CurveIKControl::Save(ISave* isave) { return SaveLockChunk(isave, locked_); }

IOResult CurveIKControl::Load(ILoad* iload) { return LoadLockOnly(iload, locked_); }

}  // namespace marvolith
