// Copyright Marvolith contributors.
#include "constraints/rotation_space.h"

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
RotationSpaceClassDesc space_cd;
ParamBlockDesc2 space_pb(0,
                         "params",
                         0,
                         &space_cd,
                         P_AUTO_CONSTRUCT,
                         ParentSpaceControl::kParamsRef,
                         {
                             ParamDef(kSpaceTarget, "target", TYPE_INODE, 0)
                                 .Validator(&GetNodeLoopValidator())
                                 .Accessor(&GetSpaceCaptureAccessor())
                                 .Label("Target"),
                             ParamDef(kSpaceWeight, "weight", TYPE_PCNT_FRAC, P_ANIMATABLE)
                                 .Default(1.0f)
                                 .Range(0, 100)
                                 .Label("Weight"),
                             ParamDef(kSpaceKeepInitialOffset, "keep_initial_offset", TYPE_BOOL, 0)
                                 .Default(false)
                                 .Accessor(&GetSpaceCaptureAccessor())
                                 .Label("Keep Initial Offset"),
                             ParamDef(kSpaceInitialOffset, "initial_offset", TYPE_MATRIX3, 0)
                                 .Default(Matrix3())
                                 .Label("Initial Offset"),
                         });

}  // namespace

ClassDesc2* GetRotationSpaceDesc() { return &space_cd; }

RotationSpace::RotationSpace(bool loading) {
  if (!loading) MakeParts(space_cd);
}

Class_ID RotationSpace::ClassID() { return GetClassInfo(ClassIndex::RotationSpace).class_id; }

void RotationSpace::GetClassName(MSTR& s, bool) const {
  s = ClassNameOf(ClassIndex::RotationSpace);
}

Matrix3 RotationSpace::ParentTM(TimeValue t, const Matrix3& parent_ws, Interval& valid) {
  SpaceParentInput in;
  in.parent_ws = parent_ws;
  INode* target = pblock_->GetINode(kSpaceTarget);
  if (!target) return parent_ws;  // no target: the parent as it came
  in.has_target = true;
  in.target_ws = target->GetNodeTM(t, &valid);
  pblock_->GetValue(kSpaceWeight, t, in.weight, valid);
  in.keep_initial_offset = pblock_->GetInt(kSpaceKeepInitialOffset) != 0;
  in.initial_offset = pblock_->GetMatrix3(kSpaceInitialOffset);
  return SpaceParentTM(in);
}

void RotationSpace::SetValue(TimeValue t, void* val, int commit, GetSetMethod method) {
  if (GetLocked() || !val || !sub_) return;
  SetXFormPacket pk = *static_cast<const SetXFormPacket*>(val);
  Interval ignored = FOREVER;
  const Matrix3 parent_ws = pblock_ ? ParentTM(t, pk.tmParent, ignored) : pk.tmParent;
  pk.tmParent = parent_ws;
  if ((pk.command == XFORM_ROTATE || pk.command == XFORM_SCALE) && !pk.localOrigin) {
    // The pivot's share of the edit: where the turn or scale about the axis point takes the
    // node's origin, as a move in world axes; the sub-controller maps it into its own space.
    Matrix3 world_ws = parent_ws;
    sub_->GetValue(t, &world_ws, ignored, CTRL_RELATIVE);
    const Point3 origin_ws = world_ws.GetTrans();
    const Point3 moved_ws = pk.command == XFORM_ROTATE
                                ? TurnAboutPivot(origin_ws, pk.tmAxis, pk.aa)
                                : ScaleAboutPivot(origin_ws, pk.tmAxis, pk.p);
    SetXFormPacket move(moved_ws - origin_ws, parent_ws, TransMatrix(origin_ws));
    sub_->SetValue(t, &move, commit, method);
    pk.localOrigin = true;
  }
  sub_->SetValue(t, &pk, commit, method);
}

void RotationSpace::ParamWillChange(ParamID id, const PB2Value& v) {
  if (!pblock_) return;
  const TimeValue t = GetCOREInterface()->GetTime();
  const bool keep = pblock_->GetInt(kSpaceKeepInitialOffset) != 0;
  if (id == kSpaceTarget && v.GetINode() && keep) {
    CaptureInitialOffset(t, v.GetINode());
  } else if (id == kSpaceKeepInitialOffset && v.GetBool() && !keep) {
    CaptureInitialOffset(t, pblock_->GetINode(kSpaceTarget));
  }
}

void RotationSpace::CaptureInitialOffset(TimeValue t, INode* target) {
  if (!pblock_ || !target) return;
  Matrix3 parent_ws;
  INode* node = OwnerAndParent(t, parent_ws);
  Matrix3 world_ws = parent_ws;  // where the node is now, before the offset changes
  if (node) {
    world_ws = node->GetNodeTM(t);
  } else {
    Interval ignored = FOREVER;
    GetValue(t, &world_ws, ignored, CTRL_RELATIVE);
  }
  const Matrix3 target_ws = target->GetNodeTM(t);
  const Matrix3 offset = SpaceCaptureOffset(target_ws, parent_ws);
  pblock_->SetValue(kSpaceInitialOffset, 0, offset);
  if (sub_ && !GetLocked()) {
    // The space the node will be in once the write is stored, with the offset kept.
    SpaceParentInput in;
    in.parent_ws = parent_ws;
    in.has_target = true;
    in.target_ws = target_ws;
    in.weight = pblock_->GetFloat(kSpaceWeight, t);
    in.keep_initial_offset = true;
    in.initial_offset = offset;
    AnimateSuspend no_keys;  // a set-up step, not a pose to key
    SetXFormPacket keep_world(world_ws, SpaceParentTM(in));
    sub_->SetValue(t, &keep_world, 1, CTRL_ABSOLUTE);
  }
  NotifyChange();
}

RefTargetHandle RotationSpace::Clone(RemapDir& remap) {
  auto* c = new RotationSpace(true);
  CloneInto(c, remap);
  return c;
}

}  // namespace marvolith
