// Copyright Marvolith contributors.
#include "chains/curve_ik_chain.h"

#include <algorithm>

#include "chains/curve_ik_control.h"
#include "host/gfx/graphics_window.h"
#include "host/gfx/view_exp.h"
#include "host/math/geometry.h"
#include "host/registry/class_desc.h"
#include "host/scene/core_interface.h"
#include "host/scene/inode.h"
#include "host/undo/hold.h"
#include "plugin/strings.h"

namespace marvolith {
namespace {

/// Display choices of display_curve and display_tangents.
constexpr int kDisplayWhenSelected = 1;
constexpr int kDisplayAlways = 2;
/// Colours of the drawn curve and tangents.
constexpr Point3 kCurveColor{0.2f, 0.8f, 1.0f};
constexpr Point3 kTangentColor{1.0f, 0.6f, 0.1f};

class CurveIKChainClassDesc : public MarvolithClassDesc {
 public:
  CurveIKChainClassDesc() : MarvolithClassDesc(ClassIndex::CurveIKChain) {}
  Animatable* Create(bool loading) override { return new CurveIKChain(loading); }
};

// Marks the solve stale on every write and table change of the parameters it guards (the block's
// change message does too; tables change size without a value being written).
class CurveStaleAccessor : public PBAccessor {
 public:
  void Set(PB2Value&, ReferenceMaker* owner, ParamID, int, TimeValue) override { Mark(owner); }
  void TabChanged(tab_changes, Tab<PB2Value>*, ReferenceMaker* owner, ParamID, int, int) override {
    Mark(owner);
  }

 private:
  static void Mark(ReferenceMaker* owner) {
    if (auto* chain = dynamic_cast<CurveIKChain*>(owner)) chain->MarkStale();
  }
};

// The class's static tables, built at module load in this order: descriptor, accessor, block,
// interface.
CurveIKChainClassDesc curve_chain_cd;
CurveStaleAccessor curve_stale_accessor;
constexpr double kBig = 1000000.0;
ParamBlockDesc2 curve_chain_pb(
    kCurveIKChainParams,
    "params",
    0,
    &curve_chain_cd,
    P_AUTO_CONSTRUCT | P_VERSION,
    5,
    0,
    {
        ParamDef(kCurveJoints, "joints", TYPE_INODE_TAB, P_NO_REF | P_VARIABLE_SIZE)
            .Accessor(&curve_stale_accessor),
        ParamDef(kCurvePoints, "points", TYPE_INODE_TAB, P_VARIABLE_SIZE)
            .Accessor(&curve_stale_accessor),
        ParamDef(kCurvePointsTypes, "points_types", TYPE_INT_TAB, P_VARIABLE_SIZE)
            .Default(static_cast<int>(CurvePointType::Smooth))
            .Accessor(&curve_stale_accessor),
        ParamDef(kCurveInTangents, "in_tangents", TYPE_INODE_TAB, P_VARIABLE_SIZE)
            .Accessor(&curve_stale_accessor),
        ParamDef(kCurveOutTangents, "out_tangents", TYPE_INODE_TAB, P_VARIABLE_SIZE)
            .Accessor(&curve_stale_accessor),
        ParamDef(kCurvePercent, "percent", TYPE_PCNT_FRAC, P_ANIMATABLE)
            .Default(0.0f)
            .Range(-kBig, kBig)
            .Accessor(&curve_stale_accessor),
        ParamDef(kCurveRotation, "rotation", TYPE_ANGLE, P_ANIMATABLE)
            .Default(0.0f)
            .Range(-kBig, kBig)
            .Accessor(&curve_stale_accessor),
        ParamDef(kCurveTwist, "twist", TYPE_ANGLE, P_ANIMATABLE)
            .Default(0.0f)
            .Range(-kBig, kBig)
            .Accessor(&curve_stale_accessor),
        ParamDef(kCurvePointsTwist, "points_twist", TYPE_ANGLE_TAB, P_ANIMATABLE | P_VARIABLE_SIZE)
            .Default(0.0f)
            .Accessor(&curve_stale_accessor),
        ParamDef(kCurveManualStretch, "manual_stretch", TYPE_PCNT_FRAC, P_ANIMATABLE)
            .Default(1.0f)
            .Range(-kBig, kBig)
            .Accessor(&curve_stale_accessor),
        ParamDef(kCurveAutoStretch, "auto_stretch", TYPE_PCNT_FRAC, P_ANIMATABLE)
            .Default(1.0f)
            .Range(0.0, 100.0)
            .Accessor(&curve_stale_accessor),
        ParamDef(kCurveSquash, "squash", TYPE_PCNT_FRAC, P_ANIMATABLE)
            .Default(0.0f)
            .Range(-kBig, kBig)
            .Accessor(&curve_stale_accessor),
        ParamDef(kCurveBackwards, "backwards", TYPE_PCNT_FRAC, P_ANIMATABLE)
            .Default(0.0f)
            .Range(0.0, 100.0)
            .Accessor(&curve_stale_accessor),
        ParamDef(kCurveSlideJoints, "slide_joints", TYPE_PCNT_FRAC, P_ANIMATABLE)
            .Default(1.0f)
            .Range(0.0, 100.0)
            .Accessor(&curve_stale_accessor),
        ParamDef(kCurveUseWave, "use_wave", TYPE_BOOL, 0)
            .Default(false)
            .Accessor(&curve_stale_accessor),
        ParamDef(kCurveWaveAmplitude, "wave_amplitude", TYPE_WORLD, P_ANIMATABLE)
            .Default(0.0f)
            .Range(-kBig, kBig)
            .Accessor(&curve_stale_accessor),
        ParamDef(kCurvePointsWaveAmplitude,
                 "points_wave_amplitude",
                 TYPE_PCNT_FRAC_TAB,
                 P_ANIMATABLE | P_VARIABLE_SIZE)
            .Default(1.0f)
            .Accessor(&curve_stale_accessor),
        ParamDef(kCurveWaveLength, "wave_length", TYPE_WORLD, P_ANIMATABLE)
            .Default(100.0f)
            .Range(-kBig, kBig)
            .Accessor(&curve_stale_accessor),
        ParamDef(kCurveWaveOrientation, "wave_orientation", TYPE_ANGLE, P_ANIMATABLE)
            .Default(0.0f)
            .Range(-kBig, kBig)
            .Accessor(&curve_stale_accessor),
        ParamDef(kCurveWavePhase, "wave_phase", TYPE_FLOAT, P_ANIMATABLE)
            .Default(0.0f)
            .Range(-kBig, kBig)
            .Accessor(&curve_stale_accessor),
        ParamDef(kCurveSteps, "steps", TYPE_INT, 0)
            .Default(16)
            .Range(1, 99999)
            .Accessor(&curve_stale_accessor),
        ParamDef(kCurveChainLength, "chain_length", TYPE_WORLD, P_ANIMATABLE)
            .Default(0.0f)
            .Range(0.0, kBig)
            .Label("Length")
            .Accessor(&curve_stale_accessor),
        ParamDef(kCurveUsePointsRotation, "use_points_rotation", TYPE_BOOL, 0)
            .Default(true)
            .Accessor(&curve_stale_accessor),
        ParamDef(kCurveUsePointsScale, "use_points_scale", TYPE_BOOL, 0)
            .Default(true)
            .Accessor(&curve_stale_accessor),
        ParamDef(kCurveAdditiveTwist, "additive_twist", TYPE_BOOL, 0)
            .Default(false)
            .Accessor(&curve_stale_accessor),
        ParamDef(kCurveClosedLoop, "closed_loop", TYPE_BOOL, 0)
            .Default(false)
            .Accessor(&curve_stale_accessor),
        ParamDef(kCurveFollowType, "follow_type", TYPE_INT, 0)
            .Default(2)
            .Range(0, 2)
            .Accessor(&curve_stale_accessor),
        ParamDef(kCurveAimAxis, "aim_axis", TYPE_INT, 0)
            .Default(0)
            .Range(0, 2)
            .Accessor(&curve_stale_accessor),
        ParamDef(kCurveAimAxisFlip, "aim_axis_flip", TYPE_BOOL, 0)
            .Default(false)
            .Accessor(&curve_stale_accessor),
        ParamDef(kCurveAlignAxis, "align_axis", TYPE_INT, 0)
            .Default(0)
            .Range(0, 2)
            .Label("Up Axis")
            .Accessor(&curve_stale_accessor),
        ParamDef(kCurveAlignAxisFlip, "align_axis_flip", TYPE_BOOL, 0)
            .Default(false)
            .Accessor(&curve_stale_accessor),
        ParamDef(kCurveParentSpace, "parent_space", TYPE_INT, 0)
            .Default(1)
            .Range(0, 2)
            .Accessor(&curve_stale_accessor),
        ParamDef(kCurveParentSpaceNode, "parent_space_node", TYPE_INODE, 0)
            .Accessor(&curve_stale_accessor),
        ParamDef(kCurveDisplayCurve, "display_curve", TYPE_INT, 0).Default(1).Range(0, 2),
        ParamDef(kCurveDisplayTangents, "display_tangents", TYPE_INT, 0).Default(2).Range(0, 2),
        ParamDef(kCurveInnerInTangents, "inner_in_tangents", TYPE_POINT3_TAB, P_VARIABLE_SIZE)
            .Accessor(&curve_stale_accessor),
        ParamDef(kCurveInnerOutTangents, "inner_out_tangents", TYPE_POINT3_TAB, P_VARIABLE_SIZE)
            .Accessor(&curve_stale_accessor),
        ParamDef(kCurveUseTangentNodes, "use_tangent_nodes", TYPE_BOOL_TAB, P_VARIABLE_SIZE)
            .Default(true)
            .Accessor(&curve_stale_accessor),
    });

using enum FPType;
FPInterfaceDesc curve_chain_fp{
    ICURVEIKCHAIN_ID,
    "interface",
    FP_MIXIN,
    &curve_chain_cd,
    {
        FPFunctionDef(kCurveNumPoints, "NumPoints", TYPE_INT),
        FPFunctionDef(
            kCurveAddPoint,
            "AddPoint",
            TYPE_BOOL,
            {FPArg("point", TYPE_INODE),
             FPArg("type", TYPE_ENUM).Enum(kCurvePointTypeEnum).Default(FPValue(3)),
             FPArg("in_tangent", TYPE_INODE).Default(FPValue(static_cast<INode*>(nullptr))),
             FPArg("out_tangent", TYPE_INODE).Default(FPValue(static_cast<INode*>(nullptr))),
             FPArg("twist", TYPE_ANGLE).Default(FPValue(0.0f)),
             FPArg("amplitude", TYPE_PCNT_FRAC).Default(FPValue(1.0f)),
             FPArg("use_tangent_nodes", TYPE_BOOL).Default(FPValue(true))}),
        FPFunctionDef(kCurveRemovePoint, "RemovePoint", TYPE_BOOL, {FPArg("index", TYPE_INDEX)}),
        FPFunctionDef(kCurveSetPoint,
                      "SetPoint",
                      TYPE_BOOL,
                      {FPArg("index", TYPE_INDEX), FPArg("point", TYPE_INODE)}),
        FPFunctionDef(kCurveGetPoint, "GetPoint", TYPE_INODE, {FPArg("index", TYPE_INDEX)}),
        FPFunctionDef(
            kCurveSetPointType,
            "SetPointType",
            TYPE_BOOL,
            {FPArg("index", TYPE_INDEX), FPArg("type", TYPE_ENUM).Enum(kCurvePointTypeEnum)}),
        FPFunctionDef(kCurveGetPointType, "GetPointType", TYPE_ENUM, {FPArg("index", TYPE_INDEX)})
            .Enum(kCurvePointTypeEnum),
        FPFunctionDef(kCurveSetInTangent,
                      "SetInTangent",
                      TYPE_BOOL,
                      {FPArg("index", TYPE_INDEX), FPArg("in_tangent", TYPE_INODE)}),
        FPFunctionDef(kCurveGetInTangent, "GetInTangent", TYPE_INODE, {FPArg("index", TYPE_INDEX)}),
        FPFunctionDef(kCurveSetOutTangent,
                      "SetOutTangent",
                      TYPE_BOOL,
                      {FPArg("index", TYPE_INDEX), FPArg("out_tangent", TYPE_INODE)}),
        FPFunctionDef(
            kCurveGetOutTangent, "GetOutTangent", TYPE_INODE, {FPArg("index", TYPE_INDEX)}),
        FPFunctionDef(kCurveSetTwist,
                      "SetTwist",
                      TYPE_BOOL,
                      {FPArg("index", TYPE_INDEX), FPArg("twist", TYPE_ANGLE)}),
        FPFunctionDef(kCurveGetTwist, "GetTwist", TYPE_FLOAT, {FPArg("index", TYPE_INDEX)}),
        FPFunctionDef(kCurveSetAmplitude,
                      "SetAmplitude",
                      TYPE_BOOL,
                      {FPArg("index", TYPE_INDEX), FPArg("amplitude", TYPE_PCNT_FRAC)}),
        FPFunctionDef(
            kCurveGetAmplitude, "GetAmplitude", TYPE_PCNT_FRAC, {FPArg("index", TYPE_INDEX)}),
        FPFunctionDef(kCurveResetLength, "ResetLength", TYPE_VOID),
        FPFunctionDef(kCurveResetTangents, "ResetTangents", TYPE_VOID),
        FPFunctionDef(kCurveSetUseTangentNodes,
                      "SetUseTangentNodes",
                      TYPE_BOOL,
                      {FPArg("index", TYPE_INDEX), FPArg("use_tangent_nodes", TYPE_BOOL)}),
        FPFunctionDef(kCurveGetUseTangentNodes,
                      "GetUseTangentNodes",
                      TYPE_BOOL,
                      {FPArg("index", TYPE_INDEX)}),
    },
    {},
    {FPEnumDef(kCurvePointTypeEnum,
               {{"BezierCorner", 0}, {"Bezier", 1}, {"Corner", 2}, {"Smooth", 3}})}};

// One hold around an edit made outside any (a script call): the change is one undo step.
class EditHold {
 public:
  EditHold() : began_(!theHold.Holding()) {
    if (began_) theHold.Begin();
  }
  ~EditHold() {
    if (began_) theHold.Accept("Curve IK Change");
  }
  EditHold(const EditHold&) = delete;
  EditHold& operator=(const EditHold&) = delete;

 private:
  bool began_;
};

bool Selected(INode* node) { return node && node->Selected(); }

}  // namespace

ClassDesc2* GetCurveIKChainDesc() { return &curve_chain_cd; }

CurveIKChain* FindCurveIKChain(INode* node) {
  Control* c = node ? node->GetTMController() : nullptr;
  return c && c->ClassID() == curve_chain_cd.ClassID() ? dynamic_cast<CurveIKChain*>(c) : nullptr;
}

// ---------------------------------------------------------------------------------------------
// ICurveIKChain

FPInterfaceDesc* ICurveIKChain::GetDesc() { return &curve_chain_fp; }

FPStatus ICurveIKChain::Dispatch(FunctionID fid, FPParams& p, FPValue& result) {
  switch (fid) {
    case kCurveNumPoints:
      return FPBind(result, p, this, &ICurveIKChain::NumPoints);
    case kCurveAddPoint:
      return FPBind(result, p, this, &ICurveIKChain::AddPoint);
    case kCurveRemovePoint:
      return FPBind(result, p, this, &ICurveIKChain::RemovePoint);
    case kCurveSetPoint:
      return FPBind(result, p, this, &ICurveIKChain::SetPoint);
    case kCurveGetPoint:
      return FPBind(result, p, this, &ICurveIKChain::GetPoint);
    case kCurveSetPointType:
      return FPBind(result, p, this, &ICurveIKChain::SetPointType);
    case kCurveGetPointType:
      return FPBind(result, p, this, &ICurveIKChain::GetPointType);
    case kCurveSetInTangent:
      return FPBind(result, p, this, &ICurveIKChain::SetInTangent);
    case kCurveGetInTangent:
      return FPBind(result, p, this, &ICurveIKChain::GetInTangent);
    case kCurveSetOutTangent:
      return FPBind(result, p, this, &ICurveIKChain::SetOutTangent);
    case kCurveGetOutTangent:
      return FPBind(result, p, this, &ICurveIKChain::GetOutTangent);
    case kCurveSetTwist:
      return FPBind(result, p, this, &ICurveIKChain::SetTwist);
    case kCurveGetTwist:
      return FPBind(result, p, this, &ICurveIKChain::GetTwist);
    case kCurveSetAmplitude:
      return FPBind(result, p, this, &ICurveIKChain::SetAmplitude);
    case kCurveGetAmplitude:
      return FPBind(result, p, this, &ICurveIKChain::GetAmplitude);
    case kCurveResetLength:
      return FPBind(result, p, this, &ICurveIKChain::ResetLength);
    case kCurveResetTangents:
      return FPBind(result, p, this, &ICurveIKChain::ResetTangents);
    case kCurveSetUseTangentNodes:
      return FPBind(result, p, this, &ICurveIKChain::SetUseTangentNodes);
    case kCurveGetUseTangentNodes:
      return FPBind(result, p, this, &ICurveIKChain::GetUseTangentNodes);
    default:
      return FPS_NO_SUCH_FUNCTION;
  }
}

// ---------------------------------------------------------------------------------------------
// CurveIKChain

CurveIKChain::CurveIKChain(bool loading) {
  if (loading) return;
  HoldSuspend no_undo;  // a new controller's own block is not an edit
  curve_chain_cd.MakeAutoParamBlocks(this);
}

MarvolithClassDesc* CurveIKChain::GetClassDesc() const { return &curve_chain_cd; }

BaseInterface* CurveIKChain::GetInterface(Interface_ID id) {
  if (id == ICURVEIKCHAIN_ID) return static_cast<ICurveIKChain*>(this);
  return BlockConstraint::GetInterface(id);
}

RefResult CurveIKChain::NotifyRefChanged(
    const Interval&, RefTargetHandle, PartID&, RefMessage message, bool) {
  if (message == REFMSG_CHANGE || message == REFMSG_TARGET_DELETED) dirty_ = true;
  return REF_SUCCEED;
}

void CurveIKChain::Invalidate() {
  dirty_ = true;
  NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
}

int CurveIKChain::NumJoints() { return pblock_ ? pblock_->Count(kCurveJoints) : 0; }

Matrix3 CurveIKChain::SpaceAt(TimeValue t, Interval& valid) {
  Matrix3 space;
  const int parent_space = pblock_->GetInt(kCurveParentSpace);
  if (parent_space == 1) {
    INode* first =
        pblock_->Count(kCurveJoints) > 0 ? pblock_->GetINode(kCurveJoints, t, 0) : nullptr;
    INode* parent = first ? first->GetParentNode() : nullptr;
    if (parent && !parent->IsRootNode()) space = parent->GetNodeTM(t, &valid);
  } else if (parent_space == 2) {
    if (INode* node = pblock_->GetINode(kCurveParentSpaceNode, t))
      space = node->GetNodeTM(t, &valid);
  }
  parent_seen_ = space;
  if (pblock_->GetInt(kCurveUsePointsRotation) == 0) {
    space =
        AxisMatrix(pblock_->GetInt(kCurveAlignAxis), pblock_->GetInt(kCurveAlignAxisFlip) != 0) *
        space;
  }
  return space;
}

void CurveIKChain::ReadPoints(TimeValue t, Interval& valid) {
  const int n = pblock_->Count(kCurvePoints);
  point_inputs_.resize(static_cast<size_t>(n));
  const bool points_rotation = pblock_->GetInt(kCurveUsePointsRotation) != 0;
  const int align = pblock_->GetInt(kCurveAlignAxis);
  const bool align_flip = pblock_->GetInt(kCurveAlignAxisFlip) != 0;
  const bool relabel = points_rotation && (align != 0 || align_flip);
  const Matrix3 axes = AxisMatrix(align, align_flip);
  const auto count = [&](ParamID id) { return pblock_->Count(id); };
  const auto node_pos = [&](ParamID id, int i, bool& has, Point3& pos) {
    INode* node = i < count(id) ? pblock_->GetINode(id, t, i) : nullptr;
    has = node != nullptr;
    if (node) pos = (node->GetNodeTM(t, &valid) * space_inverse_).GetTrans();
  };
  for (int i = 0; i < n; ++i) {
    CurveIKPoint& p = point_inputs_[static_cast<size_t>(i)];
    p = CurveIKPoint();
    if (INode* node = pblock_->GetINode(kCurvePoints, t, i)) {
      p.tm_cs = node->GetNodeTM(t, &valid) * space_inverse_;
    }
    if (relabel) p.tm_cs = axes * p.tm_cs;
    if (i < count(kCurvePointsTypes)) p.type = pblock_->GetInt(kCurvePointsTypes, t, i);
    if (i < count(kCurveUseTangentNodes)) {
      p.use_tangent_nodes = pblock_->GetInt(kCurveUseTangentNodes, t, i) != 0;
    }
    node_pos(kCurveInTangents, i, p.has_in_node, p.in_node_cs);
    node_pos(kCurveOutTangents, i, p.has_out_node, p.out_node_cs);
    if (i < count(kCurveInnerInTangents))
      p.inner_in = pblock_->GetPoint3(kCurveInnerInTangents, t, i);
    if (i < count(kCurveInnerOutTangents)) {
      p.inner_out = pblock_->GetPoint3(kCurveInnerOutTangents, t, i);
    }
    if (i < count(kCurvePointsTwist)) pblock_->GetValue(kCurvePointsTwist, t, p.twist, valid, i);
    if (i < count(kCurvePointsWaveAmplitude)) {
      pblock_->GetValue(kCurvePointsWaveAmplitude, t, p.wave_amplitude, valid, i);
    }
  }
}

void CurveIKChain::Solve(TimeValue t) {
  solved_time_ = t;
  dirty_ = false;
  validity_ = FOREVER;
  Interval& v = validity_;
  IParamBlock2& pb = *pblock_;

  CurveIKInput in;
  CurveIKParams& p = in.params;
  pb.GetValue(kCurveClosedLoop, t, p.closed, v);
  pb.GetValue(kCurveSlideJoints, t, p.slide_joints, v);
  closed_ = p.closed;
  slide_ = p.slide_joints;

  space_tm_ = SpaceAt(t, v);
  space_inverse_ = Inverse(space_tm_);
  ReadPoints(t, v);

  pb.GetValue(kCurveSteps, t, p.steps, v);
  pb.GetValue(kCurvePercent, t, p.percent, v);
  pb.GetValue(kCurveRotation, t, p.rotation, v);
  pb.GetValue(kCurveTwist, t, p.twist, v);
  pb.GetValue(kCurveManualStretch, t, p.manual_stretch, v);
  pb.GetValue(kCurveAutoStretch, t, p.auto_stretch, v);
  pb.GetValue(kCurveSquash, t, p.squash, v);
  pb.GetValue(kCurveBackwards, t, p.backwards, v);
  pb.GetValue(kCurveChainLength, t, p.chain_length, v);
  pb.GetValue(kCurveUseWave, t, p.use_wave, v);
  pb.GetValue(kCurveWaveAmplitude, t, p.wave_amplitude, v);
  pb.GetValue(kCurveWaveLength, t, p.wave_length, v);
  pb.GetValue(kCurveWaveOrientation, t, p.wave_orientation, v);
  pb.GetValue(kCurveWavePhase, t, p.wave_phase, v);
  pb.GetValue(kCurveUsePointsRotation, t, p.use_points_rotation, v);
  pb.GetValue(kCurveUsePointsScale, t, p.use_points_scale, v);
  pb.GetValue(kCurveAdditiveTwist, t, p.additive_twist, v);
  pb.GetValue(kCurveFollowType, t, p.follow_type, v);
  pb.GetValue(kCurveAimAxis, t, p.aim_axis, v);
  pb.GetValue(kCurveAimAxisFlip, t, p.aim_axis_flip, v);

  // Each joint's place and squash weight come from its CurveIKControl; a joint without one is
  // spread evenly and not squashed.
  const int n = pb.Count(kCurveJoints);
  joint_percents_.resize(static_cast<size_t>(n));
  joint_squash_.resize(static_cast<size_t>(n));
  joint_tms_.resize(static_cast<size_t>(n));
  for (int i = 0; i < n; ++i) {
    float percent = n > 1 ? static_cast<float>(i) / static_cast<float>(n - 1) : 0.0f;
    float squash = 0.0f;
    INode* joint = pb.GetINode(kCurveJoints, t, i);
    Control* tm = joint ? joint->GetTMController() : nullptr;
    auto* control = tm && tm->ClassID() == GetClassInfo(ClassIndex::CurveIKControl).class_id
                        ? dynamic_cast<CurveIKControl*>(tm)
                        : nullptr;
    if (control && control->ParamBlock()) {
      control->ParamBlock()->GetValue(kCurveControlPercent, t, percent, v);
      control->ParamBlock()->GetValue(kCurveControlSquash, t, squash, v);
    }
    joint_percents_[static_cast<size_t>(i)] = percent;
    joint_squash_[static_cast<size_t>(i)] = squash;
  }

  in.points = point_inputs_;
  in.joint_percents = joint_percents_;
  in.joint_squash = joint_squash_;
  in.space_tm = space_tm_;
  SolveCurveIK(in, ws_, joint_tms_);
  // Without a point there is no curve to place joints on.
  if (point_inputs_.empty()) joint_tms_.clear();
}

void CurveIKChain::EnsureSolved(TimeValue t) {
  if (!pblock_) return;
  if (!dirty_ && t == solved_time_ && pblock_->GetInt(kCurveParentSpace) == 1 &&
      pblock_->Count(kCurveJoints) > 0) {
    // The first joint's parent is not referenced: a move of it shows only in its transform.
    INode* first = pblock_->GetINode(kCurveJoints, t, 0);
    INode* parent = first ? first->GetParentNode() : nullptr;
    const Matrix3 now = parent && !parent->IsRootNode() ? parent->GetNodeTM(t) : Matrix3();
    if (!now.Equals(parent_seen_, 0.0f)) dirty_ = true;
  }
  if (dirty_ || t != solved_time_) Solve(t);
}

bool CurveIKChain::GetJointTM(int index, TimeValue t, Matrix3& out, Interval& valid) {
  if (!pblock_) return false;
  EnsureSolved(t);
  valid &= validity_;
  if (index < 0 || index >= static_cast<int>(joint_tms_.size())) return false;
  out = joint_tms_[static_cast<size_t>(index)];
  return true;
}

void CurveIKChain::GetValue(TimeValue t, void* val, Interval& valid, GetSetMethod) {
  if (!pblock_ || !val) return;
  EnsureSolved(t);
  valid &= validity_;
  if (!joint_tms_.empty()) *static_cast<Matrix3*>(val) = joint_tms_.back();
}

bool CurveIKChain::AnyMemberSelected() {
  if (!pblock_) return false;
  for (ParamID id : {kCurvePoints, kCurveInTangents, kCurveOutTangents}) {
    for (int i = 0, n = pblock_->Count(id); i < n; ++i) {
      if (Selected(pblock_->GetINode(id, 0, i))) return true;
    }
  }
  return false;
}

int CurveIKChain::Display(TimeValue t, INode* inode, ViewExp* vpt, int) {
  if (!pblock_ || !vpt) return 0;
  const bool selected = Selected(inode);
  const auto shown = [&](ParamID id) {
    const int mode = pblock_->GetInt(id);
    return mode == kDisplayAlways || (mode == kDisplayWhenSelected && selected);
  };
  const bool curve = shown(kCurveDisplayCurve);
  const bool tangents = shown(kCurveDisplayTangents);
  if (!curve && !tangents) return 0;
  EnsureSolved(t);
  GraphicsWindow* gw = vpt->getGW();
  gw->setTransform(space_tm_);
  if (curve && ws_.Samples().size() >= 2) {
    display_points_.clear();
    for (const CurveSample& s : ws_.Samples()) display_points_.push_back(s.pos);
    gw->setColor(LINE_COLOR, kCurveColor);
    gw->polyline(static_cast<int>(display_points_.size()), display_points_.data(), nullptr, 0,
                 nullptr);
  }
  if (tangents) {
    gw->setColor(LINE_COLOR, kTangentColor);
    const std::span<const Point3> c = ws_.SpanControls();
    for (size_t i = 0; i + 3 < c.size(); i += 4) {
      const Point3 out[2] = {c[i], c[i + 1]};
      const Point3 in[2] = {c[i + 3], c[i + 2]};
      gw->polyline(2, out, nullptr, 0, nullptr);
      gw->polyline(2, in, nullptr, 0, nullptr);
    }
  }
  return 1;
}

RefTargetHandle CurveIKChain::Clone(RemapDir& remap) {
  auto* c = new CurveIKChain(true);
  CloneInto(c, remap);
  return c;
}

// ---------------------------------------------------------------------------------------------
// The published functions.

int CurveIKChain::NumPoints() { return pblock_ ? pblock_->Count(kCurvePoints) : 0; }

bool CurveIKChain::ValidPoint(int index) {
  return pblock_ && index >= 0 && index < pblock_->Count(kCurvePoints);
}

bool CurveIKChain::AddPoint(INode* point,
                            int type,
                            INode* in_tangent,
                            INode* out_tangent,
                            float twist,
                            float amplitude,
                            bool use_tangent_nodes) {
  if (!pblock_ || !point || type < 0 || type > 3) return false;
  EditHold hold;
  // Every per-point table gets its entry, so that they stay in step.
  const Point3 origin;
  const int use = use_tangent_nodes ? 1 : 0;
  pblock_->Append(kCurvePoints, 1, &point);
  pblock_->Append(kCurvePointsTypes, 1, &type);
  pblock_->Append(kCurveInTangents, 1, &in_tangent);
  pblock_->Append(kCurveOutTangents, 1, &out_tangent);
  pblock_->Append(kCurveInnerInTangents, 1, &origin);
  pblock_->Append(kCurveInnerOutTangents, 1, &origin);
  pblock_->Append(kCurveUseTangentNodes, 1, &use);
  pblock_->Append(kCurvePointsTwist, 1, &twist);
  pblock_->Append(kCurvePointsWaveAmplitude, 1, &amplitude);
  return true;
}

bool CurveIKChain::RemovePoint(int index) {
  if (!ValidPoint(index)) return false;
  EditHold hold;
  for (ParamID id : {kCurvePoints, kCurvePointsTypes, kCurveInTangents, kCurveOutTangents,
                     kCurveInnerInTangents, kCurveInnerOutTangents, kCurveUseTangentNodes,
                     kCurvePointsTwist, kCurvePointsWaveAmplitude}) {
    if (index < pblock_->Count(id)) pblock_->Delete(id, index, 1);
  }
  return true;
}

bool CurveIKChain::SetPoint(int index, INode* point) {
  if (!ValidPoint(index)) return false;
  EditHold hold;
  return pblock_->SetValue(kCurvePoints, 0, point, index);
}

INode* CurveIKChain::GetPoint(int index) {
  return ValidPoint(index) ? pblock_->GetINode(kCurvePoints, 0, index) : nullptr;
}

bool CurveIKChain::SetPointType(int index, int type) {
  if (!ValidPoint(index) || type < 0 || type > 3 || index >= pblock_->Count(kCurvePointsTypes)) {
    return false;
  }
  EditHold hold;
  return pblock_->SetValue(kCurvePointsTypes, 0, type, index);
}

int CurveIKChain::GetPointType(int index) {
  if (!ValidPoint(index) || index >= pblock_->Count(kCurvePointsTypes)) return -1;
  return pblock_->GetInt(kCurvePointsTypes, 0, index);
}

bool CurveIKChain::SetInTangent(int index, INode* node) {
  if (!ValidPoint(index) || index >= pblock_->Count(kCurveInTangents)) return false;
  EditHold hold;
  return pblock_->SetValue(kCurveInTangents, 0, node, index);
}

INode* CurveIKChain::GetInTangent(int index) {
  if (!ValidPoint(index) || index >= pblock_->Count(kCurveInTangents)) return nullptr;
  return pblock_->GetINode(kCurveInTangents, 0, index);
}

bool CurveIKChain::SetOutTangent(int index, INode* node) {
  if (!ValidPoint(index) || index >= pblock_->Count(kCurveOutTangents)) return false;
  EditHold hold;
  return pblock_->SetValue(kCurveOutTangents, 0, node, index);
}

INode* CurveIKChain::GetOutTangent(int index) {
  if (!ValidPoint(index) || index >= pblock_->Count(kCurveOutTangents)) return nullptr;
  return pblock_->GetINode(kCurveOutTangents, 0, index);
}

bool CurveIKChain::SetTwist(int index, float twist) {
  if (!ValidPoint(index) || index >= pblock_->Count(kCurvePointsTwist)) return false;
  EditHold hold;
  return pblock_->SetValue(kCurvePointsTwist, GetCOREInterface()->GetTime(), twist, index);
}

float CurveIKChain::GetTwist(int index) {
  if (!ValidPoint(index) || index >= pblock_->Count(kCurvePointsTwist)) return 0.0f;
  return pblock_->GetFloat(kCurvePointsTwist, GetCOREInterface()->GetTime(), index);
}

bool CurveIKChain::SetAmplitude(int index, float amplitude) {
  if (!ValidPoint(index) || index >= pblock_->Count(kCurvePointsWaveAmplitude)) return false;
  EditHold hold;
  return pblock_->SetValue(kCurvePointsWaveAmplitude, GetCOREInterface()->GetTime(), amplitude,
                           index);
}

float CurveIKChain::GetAmplitude(int index) {
  if (!ValidPoint(index) || index >= pblock_->Count(kCurvePointsWaveAmplitude)) return 0.0f;
  return pblock_->GetFloat(kCurvePointsWaveAmplitude, GetCOREInterface()->GetTime(), index);
}

bool CurveIKChain::SetUseTangentNodes(int index, bool use) {
  if (!ValidPoint(index) || index >= pblock_->Count(kCurveUseTangentNodes)) return false;
  EditHold hold;
  return pblock_->SetValue(kCurveUseTangentNodes, 0, use ? 1 : 0, index);
}

bool CurveIKChain::GetUseTangentNodes(int index) {
  if (!ValidPoint(index) || index >= pblock_->Count(kCurveUseTangentNodes)) return false;
  return pblock_->GetInt(kCurveUseTangentNodes, 0, index) != 0;
}

void CurveIKChain::ResetLength() {
  if (!pblock_) return;
  const TimeValue t = GetCOREInterface()->GetTime();
  EnsureSolved(t);
  EditHold hold;
  pblock_->SetValue(kCurveChainLength, t, ws_.CurveLength());
}

void CurveIKChain::ResetTangents() {
  if (!pblock_) return;
  const TimeValue t = GetCOREInterface()->GetTime();
  EnsureSolved(t);
  const int n = static_cast<int>(point_inputs_.size());
  std::vector<Matrix3> tms(static_cast<size_t>(n));
  for (int i = 0; i < n; ++i)
    tms[static_cast<size_t>(i)] = point_inputs_[static_cast<size_t>(i)].tm_cs;
  std::vector<Point3> in(static_cast<size_t>(n)), out(static_cast<size_t>(n));
  SmoothPointTangents(tms, closed_, in, out);
  EditHold hold;
  for (ParamID id : {kCurveInnerInTangents, kCurveInnerOutTangents}) {
    if (pblock_->Count(id) != n) pblock_->SetCount(id, n);
  }
  for (int i = 0; i < n; ++i) {
    pblock_->SetValue(kCurveInnerInTangents, 0, in[static_cast<size_t>(i)], i);
    pblock_->SetValue(kCurveInnerOutTangents, 0, out[static_cast<size_t>(i)], i);
  }
}

}  // namespace marvolith
