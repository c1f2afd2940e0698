// Copyright Marvolith contributors.
#include "constraints/root_constraint.h"

#include "constraints/root_space.h"
#include "controllers/node_space.h"
#include "host/core/clock.h"
#include "host/params/iparamb2.h"
#include "host/registry/class_desc.h"
#include "host/scene/core_interface.h"
#include "host/scene/inode.h"

namespace marvolith {
namespace {

// The class's static tables, built at module load in this order: descriptor, block.
RootConstraintClassDesc root_cd;
ParamBlockDesc2 root_pb(
    0,
    "params",
    0,
    &root_cd,
    P_AUTO_CONSTRUCT,
    ParentSpaceControl::kParamsRef,
    {
        ParamDef(kRootTarget, "target", TYPE_INODE, 0)
            .Validator(&GetNodeLoopValidator())
            .Accessor(&GetSpaceCaptureAccessor())
            .Label("Target"),
        ParamDef(kRootInitialTargetOffset, "initial_target_offset", TYPE_BOOL, 0)
            .Default(true)
            .Accessor(&GetSpaceCaptureAccessor())
            .Label("Initial Target Offset"),
        ParamDef(kRootInitialTargetTM, "initial_target_tm", TYPE_MATRIX3, 0)
            .Default(Matrix3())
            .Label("Initial Target TM"),
        ParamDef(kRootVerticalAxis, "vertical_axis", TYPE_INT, 0)
            .Default(2)
            .Range(0, 2)
            .Label("Vertical Axis"),
        ParamDef(kRootLocalWorld, "local_world", TYPE_INT, 0).Default(0).Range(0, 1).Label("Space"),
        ParamDef(kRootFollowHorizontal, "follow_horizontal", TYPE_PCNT_FRAC, P_ANIMATABLE)
            .Default(1.0f)
            .Range(0, 100)
            .Label("Follow Horizontal"),
        ParamDef(kRootFollowVertical, "follow_vertical", TYPE_PCNT_FRAC, P_ANIMATABLE)
            .Default(1.0f)
            .Range(0, 100)
            .Label("Follow Vertical"),
        ParamDef(kRootFollowTurning, "follow_turning", TYPE_PCNT_FRAC, P_ANIMATABLE)
            .Default(1.0f)
            .Range(0, 100)
            .Label("Follow Turning"),
        ParamDef(kRootVerticalOffset, "vertical_offset", TYPE_WORLD, P_ANIMATABLE)
            .Default(0.0f)
            .Range(-1e6, 1e6)
            .Label("Vertical Offset"),
        ParamDef(kRootGroundOffset, "ground_offset", TYPE_WORLD, P_ANIMATABLE)
            .Default(0.0f)
            .Range(-1e6, 1e6)
            .Label("Ground Offset"),
        ParamDef(kRootUseGround, "use_ground", TYPE_BOOL, P_ANIMATABLE)
            .Default(true)
            .Label("Use Ground"),
    });

}  // namespace

ClassDesc2* GetRootConstraintDesc() { return &root_cd; }

RootConstraint::RootConstraint(bool loading) {
  if (!loading) MakeParts(root_cd);
}

Class_ID RootConstraint::ClassID() { return GetClassInfo(ClassIndex::RootConstraint).class_id; }

void RootConstraint::GetClassName(MSTR& s, bool) const {
  s = ClassNameOf(ClassIndex::RootConstraint);
}

Matrix3 RootConstraint::ParentTM(TimeValue t, const Matrix3& parent_ws, Interval& valid) {
  RootParentInput in;
  in.parent_ws = parent_ws;
  // Settings that are not animated are read at 0; the shares and heights at t.
  in.initial_target_offset = pblock_->GetInt(kRootInitialTargetOffset) != 0;
  in.initial_target_tm = pblock_->GetMatrix3(kRootInitialTargetTM);
  in.vertical_axis = pblock_->GetInt(kRootVerticalAxis);
  in.world = pblock_->GetInt(kRootLocalWorld) == 1;
  pblock_->GetValue(kRootFollowHorizontal, t, in.follow_horizontal, valid);
  pblock_->GetValue(kRootFollowVertical, t, in.follow_vertical, valid);
  pblock_->GetValue(kRootFollowTurning, t, in.follow_turning, valid);
  pblock_->GetValue(kRootVerticalOffset, t, in.vertical_offset, valid);
  pblock_->GetValue(kRootGroundOffset, t, in.ground_offset, valid);
  pblock_->GetValue(kRootUseGround, t, in.use_ground, valid);
  if (INode* target = pblock_->GetINode(kRootTarget)) {
    in.has_target = true;
    in.target_ws = target->GetNodeTM(t, &valid);
  }
  return RootParentTM(in);
}

void RootConstraint::SetValue(TimeValue t, void* val, int commit, GetSetMethod method) {
  if (GetLocked() || !val || !sub_) return;
  SetXFormPacket pk = *static_cast<const SetXFormPacket*>(val);
  if (pblock_) {
    Interval ignored = FOREVER;
    pk.tmParent = ParentTM(t, pk.tmParent, ignored);
  }
  sub_->SetValue(t, &pk, commit, method);
}

void RootConstraint::ParamWillChange(ParamID id, const PB2Value& v) {
  if (!pblock_) return;
  const TimeValue t = GetCOREInterface()->GetTime();
  if (id == kRootTarget && v.GetINode()) {
    CaptureInitialOffset(t, v.GetINode());
  } else if (id == kRootInitialTargetOffset && v.GetBool() &&
             pblock_->GetInt(kRootInitialTargetOffset) == 0) {
    if (INode* target = pblock_->GetINode(kRootTarget)) CaptureInitialOffset(t, target);
  }
}

void RootConstraint::CaptureInitialOffset(TimeValue t, INode* target) {
  if (!pblock_) return;
  Matrix3 parent_ws;
  OwnerAndParent(t, parent_ws);
  const bool world = pblock_->GetInt(kRootLocalWorld) == 1;
  Matrix3 target_ws;
  if (target) target_ws = target->GetNodeTM(t);
  pblock_->SetValue(kRootInitialTargetTM, 0,
                    RootCaptureTM(target ? &target_ws : nullptr, parent_ws, world));
  if (sub_ && !GetLocked()) {
    AnimateSuspend no_keys;  // a set-up step, not a pose to key
    SetXFormPacket identity{Matrix3(), Matrix3()};
    sub_->SetValue(t, &identity, 1, CTRL_ABSOLUTE);
  }
  NotifyChange();
}

RefTargetHandle RootConstraint::Clone(RemapDir& remap) {
  auto* c = new RootConstraint(true);
  CloneInto(c, remap);
  return c;
}

}  // namespace marvolith
