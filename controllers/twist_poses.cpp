// Copyright Marvolith contributors.
#include "controllers/twist_poses.h"

#include <algorithm>
#include <climits>

#include "controllers/node_space.h"
#include "controllers/twist_pose_math.h"
#include "host/math/geometry.h"
#include "host/scene/core_interface.h"
#include "host/undo/hold.h"
#include "plugin/class_table.h"

namespace marvolith {
namespace {

template <typename T, ClassIndex kIndex>
class TwistPosesClassDesc : public MarvolithClassDesc {
 public:
  TwistPosesClassDesc() : MarvolithClassDesc(kIndex) {}
  Animatable* Create(bool loading) override { return new T(loading); }
};

TwistPosesClassDesc<TwistPosesFloat, ClassIndex::TwistPosesFloat> twist_float_cd;
TwistPosesClassDesc<TwistPosesRotation, ClassIndex::TwistPosesRotation> twist_rotation_cd;

// The one table of both classes.
#define MV_TWIST_POSE_PARAMS                                                                      \
  {                                                                                               \
    ParamDef(kTwistTargetNode, "target_node", TYPE_INODE, 0)                                      \
        .Validator(&GetNodeLoopValidator())                                                       \
        .Label("Target Node"),                                                                    \
        ParamDef(kTwistLocalRefNode, "local_reference_node", TYPE_INODE, 0)                       \
            .Validator(&GetNodeLoopValidator())                                                   \
            .Label("Local Reference Node"),                                                       \
        ParamDef(kTwistUseParent, "use_parent", TYPE_BOOL, 0).Default(true).Label("Use Parent"),  \
        ParamDef(kTwistAxis, "axis", TYPE_INT, 0).Default(0).Range(0, 2).Label("Axis"),           \
        ParamDef(kTwistLocalWorld, "local_world", TYPE_INT, 0)                                    \
            .Default(0)                                                                           \
            .Range(0, 1)                                                                          \
            .Label("Space"),                                                                      \
        ParamDef(kTwistPoses, "poses", TYPE_MATRIX3_TAB, P_VARIABLE_SIZE).Label("Poses"),         \
        ParamDef(kTwistTwists, "twists", TYPE_ANGLE_TAB, P_VARIABLE_SIZE).Label("Twist"),         \
        ParamDef(kTwistOffset, "offset", TYPE_ANGLE, P_ANIMATABLE).Default(0.0f).Label("Offset"), \
        ParamDef(kTwistWeight, "weight", TYPE_PCNT_FRAC, P_ANIMATABLE)                            \
            .Default(1.0f)                                                                        \
            .Label("Weight"),                                                                     \
        ParamDef(kTwistSelPose, "selpose", TYPE_INDEX, 0).Default(0).Range(0, INT_MAX),           \
  }

ParamBlockDesc2 twist_float_pb(
    0, "params", 0, &twist_float_cd, P_AUTO_CONSTRUCT, 0, MV_TWIST_POSE_PARAMS);
ParamBlockDesc2 twist_rotation_pb(
    0, "params", 0, &twist_rotation_cd, P_AUTO_CONSTRUCT, 0, MV_TWIST_POSE_PARAMS);
#undef MV_TWIST_POSE_PARAMS

std::vector<FPFunctionDef> TwistFunctions() {
  using enum FPType;
  return {
      {kTwistFnAddPose, "AddPose", TYPE_BOOL},
      {kTwistFnSetPose, "SetPose", TYPE_BOOL, {FPArg("index", TYPE_INDEX)}},
      {kTwistFnDeletePose, "DeletePose", TYPE_BOOL, {FPArg("index", TYPE_INDEX)}},
  };
}

FPInterfaceDesc twist_float_fp(Interface_ID(GetClassInfo(ClassIndex::TwistPosesFloat).class_id),
                               "interface",
                               FP_MIXIN,
                               &twist_float_cd,
                               TwistFunctions());
FPInterfaceDesc twist_rotation_fp(
    Interface_ID(GetClassInfo(ClassIndex::TwistPosesRotation).class_id),
    "interface",
    FP_MIXIN,
    &twist_rotation_cd,
    TwistFunctions());

// One named hold around a pose edit; nested in the caller's hold when one is open.
class ParameterChangeHold {
 public:
  ParameterChangeHold() { theHold.Begin(); }
  ~ParameterChangeHold() { theHold.Accept("Parameter Change"); }
  ParameterChangeHold(const ParameterChangeHold&) = delete;
  ParameterChangeHold& operator=(const ParameterChangeHold&) = delete;
};

}  // namespace

ClassDesc2* GetTwistPosesFloatDesc() { return &twist_float_cd; }
ClassDesc2* GetTwistPosesRotationDesc() { return &twist_rotation_cd; }

// ---- TwistPosesControl ----

void TwistPosesControl::GetValue(TimeValue t, void* val, Interval& valid, GetSetMethod method) {
  if (!val || !pblock_ || !pblock_->GetINode(kTwistTargetNode)) return;  // the value stays
  StdControl::GetValue(t, val, valid, method);
}

BaseInterface* TwistPosesControl::GetInterface(Interface_ID id) {
  if (id == Interface_ID(ClassID())) return static_cast<FPMixinInterface*>(this);
  return BlockStdControl::GetInterface(id);
}

bool TwistPosesControl::PoseSpaceTM(TimeValue t, Interval& valid, Matrix3& tm) {
  INode* node = pblock_ ? pblock_->GetINode(kTwistTargetNode) : nullptr;
  if (!node) return false;
  NodeSpace space;
  space.local = pblock_->GetInt(kTwistLocalWorld) == 0;
  space.use_parent = pblock_->GetInt(kTwistUseParent) != 0;
  space.local_reference = pblock_->GetINode(kTwistLocalRefNode);
  tm = NodeSpaceTM(node, t, space, valid);
  return true;
}

int TwistPosesControl::PoseCount() {
  return pblock_ ? std::min(pblock_->Count(kTwistPoses), pblock_->Count(kTwistTwists)) : 0;
}

bool TwistPosesControl::TwistAngle(TimeValue t, Interval& valid, float& angle) {
  Matrix3 c;
  if (!PoseSpaceTM(t, valid, c)) return false;
  TwistPoseAccumulator acc(c, pblock_->GetInt(kTwistAxis));
  for (int i = 0, n = PoseCount(); i < n; ++i) {
    acc.Add(pblock_->GetMatrix3(kTwistPoses, 0, i), pblock_->GetFloat(kTwistTwists, 0, i));
  }
  const TwistPoseResult r = acc.Finish();
  float offset = 0.0f;
  float weight = 1.0f;
  pblock_->GetValue(kTwistOffset, t, offset, valid);
  pblock_->GetValue(kTwistWeight, t, weight, valid);
  angle = (r.twist + r.base_twist) * weight + offset;
  return true;
}

bool TwistPosesControl::AddPose() {
  Interval ignored = FOREVER;
  Matrix3 c;
  if (!PoseSpaceTM(GetCOREInterface()->GetTime(), ignored, c)) return false;
  // Both tables end at the same length, even when a damaged file left them uneven.
  const int n = PoseCount();
  const float zero = 0.0f;
  ParameterChangeHold hold;
  pblock_->SetCount(kTwistPoses, n);
  pblock_->SetCount(kTwistTwists, n);
  pblock_->Append(kTwistPoses, 1, &c);
  pblock_->Append(kTwistTwists, 1, &zero);
  pblock_->SetValue(kTwistSelPose, 0, n);
  return true;
}

bool TwistPosesControl::SetPose(int index) {
  if (index < 0 || index >= PoseCount()) return false;
  Interval ignored = FOREVER;
  Matrix3 c;
  if (!PoseSpaceTM(GetCOREInterface()->GetTime(), ignored, c)) return false;
  ParameterChangeHold hold;
  pblock_->SetValue(kTwistPoses, 0, c, index);
  return true;
}

bool TwistPosesControl::DeletePose(int index) {
  if (index < 0 || index >= PoseCount()) return false;
  ParameterChangeHold hold;
  pblock_->Delete(kTwistPoses, index, 1);
  pblock_->Delete(kTwistTwists, index, 1);
  const int last = PoseCount() - 1;
  if (pblock_->GetInt(kTwistSelPose) > last) pblock_->SetValue(kTwistSelPose, 0, std::max(last, 0));
  return true;
}

FPStatus TwistPosesControl::Dispatch(FunctionID fid, FPParams& p, FPValue& result) {
  switch (fid) {
    case kTwistFnAddPose:
      return FPBind(result, p, this, &TwistPosesControl::AddPose);
    case kTwistFnSetPose:
      return FPBind(result, p, this, &TwistPosesControl::SetPose);
    case kTwistFnDeletePose:
      return FPBind(result, p, this, &TwistPosesControl::DeletePose);
    default:
      return FPS_NO_SUCH_FUNCTION;
  }
}

// ---- TwistPosesFloat ----

TwistPosesFloat::TwistPosesFloat(bool loading) {
  if (!loading) twist_float_cd.MakeAutoParamBlocks(this);
}

MarvolithClassDesc* TwistPosesFloat::GetClassDesc() const { return &twist_float_cd; }
FPInterfaceDesc* TwistPosesFloat::GetDesc() { return &twist_float_fp; }

void TwistPosesFloat::GetValueLocalTime(TimeValue t, void* val, Interval& valid, GetSetMethod) {
  float angle = 0.0f;
  TwistAngle(t, valid, angle);
  *static_cast<float*>(val) = angle;
}

RefTargetHandle TwistPosesFloat::Clone(RemapDir& remap) {
  auto* c = new TwistPosesFloat(true);
  CloneInto(c, remap);
  return c;
}

// ---- TwistPosesRotation ----

TwistPosesRotation::TwistPosesRotation(bool loading) {
  if (!loading) twist_rotation_cd.MakeAutoParamBlocks(this);
}

MarvolithClassDesc* TwistPosesRotation::GetClassDesc() const { return &twist_rotation_cd; }
FPInterfaceDesc* TwistPosesRotation::GetDesc() { return &twist_rotation_fp; }

void TwistPosesRotation::GetValueLocalTime(TimeValue t, void* val, Interval& valid, GetSetMethod) {
  float angle = 0.0f;
  TwistAngle(t, valid, angle);
  Point3 axis;
  axis[AxisOrZ(pblock_ ? pblock_->GetInt(kTwistAxis) : 0)] = 1.0f;
  *static_cast<Quat*>(val) = QFromAngAxis(angle, axis);
}

RefTargetHandle TwistPosesRotation::Clone(RemapDir& remap) {
  auto* c = new TwistPosesRotation(true);
  CloneInto(c, remap);
  return c;
}

}  // namespace marvolith
