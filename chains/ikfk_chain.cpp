// Copyright Marvolith contributors.
#include "chains/ikfk_chain.h"

#include <algorithm>

#include "chains/ikfk_control.h"
#include "chains/ikfk_match.h"
#include "chains/ikfk_solver.h"
#include "controllers/rig_control.h"
#include "host/gfx/graphics_window.h"
#include "host/gfx/view_exp.h"
#include "host/params/iparamb2.h"
#include "host/registry/class_desc.h"
#include "host/scene/core_interface.h"
#include "host/scene/inode.h"
#include "host/undo/hold.h"
#include "support/hold_record.h"
#include "support/lock_chunk.h"
#include "support/track_assign.h"

namespace marvolith {

/// The solver core's scratch and the per-joint inputs the adapter gathers, sized by the joint
/// count and kept between solves so that solving allocates nothing.
struct IKFKSolveWork {
  IKFKWorkspace core;
  std::vector<IKFKJointFK> joints_fk;
  std::vector<Quat> preferred_ls;

  void Resize(std::size_t count) {
    core.Resize(count);
    if (joints_fk.size() != count) joints_fk.resize(count);
    if (preferred_ls.size() != count) preferred_ls.resize(count);
  }
};

namespace {

constexpr const char* kUndoName = "IKFK Change";
/// Degrees of freedom of the swivel angle parameter, in degrees either way.
constexpr double kSwivelLimitDeg = 1000000.0;

class IKFKChainClassDesc : public MarvolithClassDesc {
 public:
  IKFKChainClassDesc() : MarvolithClassDesc(ClassIndex::IKFKChain) {}
  Animatable* Create(bool loading) override { return new IKFKChain(loading); }
};

// Every parameter read goes through here: any change of the block drops the cached solve.
class IKFKChainAccessor : public PBAccessor {
 public:
  void Set(PB2Value&, ReferenceMaker* owner, ParamID, int, TimeValue) override { Dirty(owner); }
  void TabChanged(tab_changes, Tab<PB2Value>*, ReferenceMaker* owner, ParamID, int, int) override {
    Dirty(owner);
  }

 private:
  static void Dirty(ReferenceMaker* owner) {
    if (auto* chain = dynamic_cast<IKFKChain*>(owner)) chain->MarkDirty();
  }
};

// The goal's space must not hang from the chain it steers: a node that depends on one of the
// chain's joints (is one, hangs below one, or reads one) is refused.
class GoalParentValidator : public PBValidator {
 public:
  using PBValidator::Validate;
  bool Validate(PB2Value& v, ReferenceMaker* owner, ParamID, int) override {
    INode* node = v.GetINode();
    auto* chain = dynamic_cast<IKFKChain*>(owner);
    if (!node || !chain) return true;
    for (int i = 0, n = chain->NumJoints(); i < n; ++i) {
      INode* joint = chain->JointNode(i);
      if (joint && (joint == node || node->TestForLoop(FOREVER, joint) == REF_FAIL)) return false;
    }
    return true;
  }
};

// The class's static tables, built at module load in this order: descriptor, callbacks, block,
// interface.
IKFKChainClassDesc ikfk_chain_cd;
IKFKChainAccessor ikfk_chain_accessor;
GoalParentValidator goal_parent_validator;

ParamDef Param(ParamID id, const char* name, ParamType2 type, int flags = 0) {
  return ParamDef(id, name, type, flags | P_RESET_DEFAULT).Accessor(&ikfk_chain_accessor);
}

ParamBlockDesc2 ikfk_chain_pb(
    kIKFKChainParams,
    "params",
    0,
    &ikfk_chain_cd,
    P_AUTO_CONSTRUCT | P_VERSION,
    3,
    0,
    {
        Param(kIKFKJoints, "joints", TYPE_INODE_TAB, P_NO_REF | P_VARIABLE_SIZE).TabSize(0),
        Param(kIKFKGoal, "goal", TYPE_INODE, P_NO_REF),
        Param(kIKFKGoalParent, "goal_parent", TYPE_INODE, P_NO_REF)
            .Validator(&goal_parent_validator),
        Param(kIKFKGoalInbetweenParents, "", TYPE_INODE_TAB, P_NO_REF | P_VARIABLE_SIZE)
            .TabSize(0)
            .Label("Goal Inbetween Parents"),
        Param(kIKFKTarget, "target", TYPE_INODE, P_NO_REF),
        Param(kIKFKRotationSpaceNode, "rotation_space_node", TYPE_INODE, P_NO_REF),
        Param(kIKFKBlend, "ikfk_blend", TYPE_PCNT_FRAC, P_ANIMATABLE).Default(1.0f).Range(0, 100),
        Param(kIKFKManualStretch, "manual_stretch", TYPE_PCNT_FRAC, P_ANIMATABLE)
            .Default(1.0f)
            .Range(0, 1000000),
        Param(kIKFKAutoStretch, "auto_stretch", TYPE_PCNT_FRAC, P_ANIMATABLE)
            .Default(0.0f)
            .Range(0, 100),
        Param(kIKFKRotationSpace, "rotation_space", TYPE_PCNT_FRAC, P_ANIMATABLE)
            .Default(1.0f)
            .Range(0, 100),
        Param(kIKFKFlexionBias, "flexion_bias", TYPE_ANGLE, P_ANIMATABLE).Default(0.0f),
        // Declared before use_target: the table has always listed these two swapped.
        Param(kIKFKSwivelAngle, "swivel_angle", TYPE_ANGLE, P_ANIMATABLE)
            .Default(0.0f)
            .Range(-kSwivelLimitDeg, kSwivelLimitDeg),
        Param(kIKFKUseTarget, "use_target", TYPE_BOOL).Default(true),
        Param(kIKFKUseGoalParent, "use_goal_parent", TYPE_BOOL).Default(true),
        Param(kIKFKUseRotationSpace, "use_rotation_space", TYPE_BOOL).Default(true),
        Param(kIKFKAutoMatch, "auto_ikfk_match", TYPE_BOOL).Default(false),
        Param(kIKFKLastJointIKRotation, "last_joint_ik_rotation", TYPE_BOOL).Default(true),
        Param(kIKFKKeepInitialRotSpace, "keep_initial_rot_space", TYPE_BOOL).Default(true),
        Param(kIKFKInitialRotSpaceOffset, "initial_rot_space_offset", TYPE_MATRIX3)
            .Default(Matrix3()),
        Param(kIKFKTargetDistPercent, "target_dist_percent", TYPE_PCNT_FRAC)
            .Default(0.5f)
            .Range(0, 1000000),
        Param(kIKFKParentSpace, "parent_space", TYPE_INT).Default(1),
        Param(kIKFKIterations, "iterations", TYPE_INT)
            .Default(40)
            .Range(0, 9999)
            .Label("IK Iterations"),
        Param(kIKFKDisplayGoal, "display_goal", TYPE_INT).Default(1).Range(0, 2),
        Param(kIKFKDisplayTarget, "display_target", TYPE_INT).Default(2).Range(0, 2),
        Param(kIKFKAffectHelpersDisplay, "affect_helpers_display", TYPE_BOOL).Default(true),
        Param(kIKFKSoftIK, "soft_ik", TYPE_PCNT_FRAC, P_ANIMATABLE).Default(0.0f).Range(0, 100),
    });

FPInterfaceDesc ikfk_chain_fp{
    IIKFKCHAIN_ID,
    "interface",
    FP_MIXIN,
    &ikfk_chain_cd,
    {
        FPFunctionDef(kIKFKFnFK, "FK", FPType::TYPE_VOID),
        FPFunctionDef(kIKFKFnIK, "IK", FPType::TYPE_VOID),
        FPFunctionDef(kIKFKFnMatchFK,
                      "MatchFK",
                      FPType::TYPE_VOID,
                      {FPArg("toIK", FPType::TYPE_BOOL).Default(FPValue(false))}),
        FPFunctionDef(kIKFKFnMatchIK,
                      "MatchIK",
                      FPType::TYPE_VOID,
                      {FPArg("toFK", FPType::TYPE_BOOL).Default(FPValue(false))}),
        FPFunctionDef(kIKFKFnMatchManualStretch, "MatchManualStretch", FPType::TYPE_VOID),
        FPFunctionDef(kIKFKFnMatchPreferredRotations, "MatchPreferredRotations", FPType::TYPE_VOID),
    },
    {}};

Matrix3 Ortho(Matrix3 m) {
  m.Orthogonalize();
  return m;
}

}  // namespace

ClassDesc2* GetIKFKChainDesc() { return &ikfk_chain_cd; }

// ---------------------------------------------------------------------------------------------
// IIKFKChain

FPInterfaceDesc* IIKFKChain::GetDesc() { return &ikfk_chain_fp; }

FPStatus IIKFKChain::Dispatch(FunctionID fid, FPParams& p, FPValue& result) {
  switch (fid) {
    case kIKFKFnFK:
      return FPBind(result, p, this, &IIKFKChain::FK);
    case kIKFKFnIK:
      return FPBind(result, p, this, &IIKFKChain::IK);
    case kIKFKFnMatchFK:
      return FPBind(result, p, this, &IIKFKChain::MatchFK);
    case kIKFKFnMatchIK:
      return FPBind(result, p, this, &IIKFKChain::MatchIK);
    case kIKFKFnMatchManualStretch:
      return FPBind(result, p, this, &IIKFKChain::MatchManualStretch);
    case kIKFKFnMatchPreferredRotations:
      return FPBind(result, p, this, &IIKFKChain::MatchPreferredRotations);
    default:
      return FPS_NO_SUCH_FUNCTION;
  }
}

// ---------------------------------------------------------------------------------------------
// Identity, references.

IKFKChain::IKFKChain(bool loading) : work_(new IKFKSolveWork) {
  if (loading) return;
  HoldSuspend no_undo;
  ikfk_chain_cd.MakeAutoParamBlocks(this);
}

IKFKChain::~IKFKChain() { delete work_; }

Class_ID IKFKChain::ClassID() { return GetClassInfo(ClassIndex::IKFKChain).class_id; }

void IKFKChain::GetClassName(MSTR& s, bool) const { s = ClassNameOf(ClassIndex::IKFKChain); }

BaseInterface* IKFKChain::GetInterface(Interface_ID id) {
  if (id == IIKFKCHAIN_ID) return static_cast<IIKFKChain*>(this);
  return LockableControl::GetInterface(id);
}

Animatable* IKFKChain::SubAnim(int i) { return i == 0 ? pblock_ : nullptr; }

MSTR IKFKChain::SubAnimName(int i, bool) { return i == 0 ? MSTR("Parameters") : MSTR(); }

RefTargetHandle IKFKChain::GetReference(int i) { return i == 0 ? pblock_ : nullptr; }

void IKFKChain::SetReference(int i, RefTargetHandle target) {
  if (i != 0) return;
  pblock_ = dynamic_cast<IParamBlock2*>(target);
  dirty_ = true;
}

IParamBlock2* IKFKChain::GetParamBlockByID(BlockID id) {
  return id == kIKFKChainParams ? pblock_ : nullptr;
}

// ---------------------------------------------------------------------------------------------
// Members.

int IKFKChain::NumJoints() { return pblock_ ? pblock_->Count(kIKFKJoints) : 0; }

INode* IKFKChain::JointNode(int index) {
  if (!pblock_ || index < 0 || index >= pblock_->Count(kIKFKJoints)) return nullptr;
  return pblock_->GetINode(kIKFKJoints, 0, index);
}

INode* IKFKChain::GoalNode() { return pblock_ ? pblock_->GetINode(kIKFKGoal) : nullptr; }
INode* IKFKChain::TargetNode() { return pblock_ ? pblock_->GetINode(kIKFKTarget) : nullptr; }
INode* IKFKChain::GoalParentNode() {
  return pblock_ ? pblock_->GetINode(kIKFKGoalParent) : nullptr;
}

bool IKFKChain::TargetActive() { return TargetNode() && pblock_->GetInt(kIKFKUseTarget) != 0; }

bool IKFKChain::GoalParentActive() {
  return GoalParentNode() && pblock_->GetInt(kIKFKUseGoalParent) != 0;
}

bool IKFKChain::RotationSpaceActive() {
  return pblock_ && pblock_->GetINode(kIKFKRotationSpaceNode) &&
         pblock_->GetInt(kIKFKUseRotationSpace) != 0;
}

IKFKControl* IKFKChain::MemberControl(INode* node) {
  Control* c = node ? node->GetTMController() : nullptr;
  if (!c || c->ClassID() != GetClassInfo(ClassIndex::IKFKControl).class_id) return nullptr;
  return dynamic_cast<IKFKControl*>(c);
}

bool IKFKChain::AutoMatchWanted() {
  return pblock_ && pblock_->GetInt(kIKFKAutoMatch) != 0 && !force_fk_ &&
         match_state_ == IKFKMatchState::kIdle;
}

void IKFKChain::InvalidateMembers() {
  if (!pblock_) return;
  // The members' shapes depend on the blend too (IKFKDisplayMod), so their world states go with
  // their transforms.
  auto invalidate = [](INode* node) {
    if (!node) return;
    node->InvalidateTM();
    node->InvalidateWS();
  };
  for (int i = 0, n = NumJoints(); i < n; ++i) invalidate(JointNode(i));
  for (INode* node : {GoalNode(), GoalParentNode(), TargetNode()}) invalidate(node);
}

// ---------------------------------------------------------------------------------------------
// Frames the solve reads.

Matrix3 IKFKChain::ChainParentTM(TimeValue t, Interval& valid) {
  INode* joint = JointNode(0);
  INode* parent = joint ? joint->GetParentNode() : nullptr;
  if (!parent || parent->IsRootNode()) return Matrix3();
  Control* pc = parent->GetTMController();
  if (pc && (FindRigControl(pc) || parent->IsGroupHead())) {
    // Evaluated from its own parent with its controller applied, as the node itself would be.
    INode* grand = parent->GetParentNode();
    Matrix3 m = grand && !grand->IsRootNode() ? grand->GetNodeTM(t, &valid) : Matrix3();
    pc->GetValue(t, &m, valid, CTRL_RELATIVE);
    return m;
  }
  return parent->GetNodeTM(t, &valid);
}

Matrix3 IKFKChain::MemberTM(INode* node, TimeValue t, Interval& valid, bool skip_link) {
  if (!node) return Matrix3();
  IKFKControl* member = MemberControl(node);
  if (!member) return node->GetNodeTM(t, &valid);
  INode* parent = node->GetParentNode();
  const Matrix3 parent_ws =
      parent && !parent->IsRootNode() ? parent->GetNodeTM(t, &valid) : Matrix3();
  return member->EvalMember(t, parent_ws, valid, skip_link);
}

Quat IKFKChain::RotationSpaceDelta(TimeValue t, Interval& valid) {
  if (!RotationSpaceActive()) return Quat();
  INode* space = pblock_->GetINode(kIKFKRotationSpaceNode);
  const Matrix3 space_ws = space->GetNodeTM(t, &valid);
  const Matrix3 parent_ws = ChainParentTM(t, valid);
  Matrix3 offset;
  float weight = 1.0f;
  bool keep = true;
  pblock_->GetValue(kIKFKInitialRotSpaceOffset, t, offset, valid);
  pblock_->GetValue(kIKFKRotationSpace, t, weight, valid);
  pblock_->GetValue(kIKFKKeepInitialRotSpace, t, keep, valid);
  return marvolith::RotationSpaceDelta(space_ws, parent_ws, keep, offset, weight);
}

// ---------------------------------------------------------------------------------------------
// The solve and its cache.

void IKFKChain::EnsureSolved(TimeValue t) {
  if (dirty_ || solved_time_ != t) Solve(t, -1);
}

void IKFKChain::Solve(TimeValue t, int partial, float blend_override) {
  validity_ = FOREVER;
  dirty_ = false;
  solved_time_ = t;
  const int count = NumJoints();
  const auto n = static_cast<std::size_t>(count);
  // Sized only when the joint count changed: a solve of the same chain allocates nothing.
  if (joint_tms_.size() != n) joint_tms_.resize(n);
  if (joint_positions_.size() != n) joint_positions_.resize(n);
  if (joint_rotations_.size() != n) joint_rotations_.resize(n);
  if (preferred_rotations_.size() != n) preferred_rotations_.resize(n);
  work_->Resize(n);
  stretch_factor_ = 1.0f;
  if (!pblock_) return;

  Interval& v = validity_;
  IKFKSolveInput in;
  pblock_->GetValue(kIKFKBlend, t, in.ikfk_blend, v);
  pblock_->GetValue(kIKFKManualStretch, t, in.manual_stretch, v);
  pblock_->GetValue(kIKFKAutoStretch, t, in.auto_stretch, v);
  pblock_->GetValue(kIKFKSoftIK, t, in.soft_ik, v);
  pblock_->GetValue(kIKFKFlexionBias, t, in.flexion_bias, v);
  pblock_->GetValue(kIKFKSwivelAngle, t, in.swivel_angle, v);
  pblock_->GetValue(kIKFKIterations, t, in.iterations, v);
  pblock_->GetValue(kIKFKLastJointIKRotation, t, in.last_joint_ik_rotation, v);
  pblock_->GetValue(kIKFKParentSpace, t, in.parent_space, v);
  if (force_fk_) in.ikfk_blend = 0.0f;
  if (blend_override >= 0.0f) in.ikfk_blend = blend_override;
  in.partial = partial;

  in.parent_ws = ChainParentTM(t, v);
  parent_tm_ = in.parent_ws;
  INode* goal = GoalNode();
  // Without a goal there is nothing to reach: the chain shows its FK pose.
  if (!goal) in.ikfk_blend = 0.0f;
  in.goal_ws = goal ? MemberTM(goal, t, v, false) : in.parent_ws;
  goal_tm_ = in.goal_ws;
  in.target_active = TargetActive();
  if (in.target_active) {
    in.target_ws = MemberTM(TargetNode(), t, v, false);
    target_tm_ = in.target_ws;
  }
  if (GoalParentActive()) {
    goal_parent_tm_ = MemberTM(GoalParentNode(), t, v, false);
    in.swivel_space_ws = goal_parent_tm_;
  } else {
    in.swivel_space_ws = in.goal_ws;
  }

  for (int i = 0; i < count; ++i) {
    INode* joint = JointNode(i);
    IKFKJointFK& fk = work_->joints_fk[static_cast<std::size_t>(i)];
    Quat& preferred = work_->preferred_ls[static_cast<std::size_t>(i)];
    if (IKFKControl* member = MemberControl(joint)) {
      member->LocalValues(t, fk.position, fk.rotation, fk.scale, v);
      preferred = member->PreferredQuat(t, v);
    } else if (joint) {
      // A joint without a member controller contributes its own local transform.
      INode* parent = joint->GetParentNode();
      Matrix3 local = joint->GetNodeTM(t, &v);
      if (parent && !parent->IsRootNode()) local = local * Inverse(parent->GetNodeTM(t, &v));
      fk = JointFKFromMatrix(local);
      preferred = fk.rotation;
    } else {
      fk = IKFKJointFK();
      preferred = Quat();
    }
  }
  in.joints_fk = work_->joints_fk;
  in.preferred_ls = work_->preferred_ls;
  rotation_space_delta_ = Quat();
  if (in.ikfk_blend < 1.0f && RotationSpaceActive()) {
    rotation_space_delta_ = RotationSpaceDelta(t, v);
  }
  in.rotation_space_delta = rotation_space_delta_;

  IKFKSolveOutput out;
  out.joint_tms = joint_tms_;
  out.joint_positions = joint_positions_;
  out.joint_rotations = joint_rotations_;
  out.preferred_rotations = preferred_rotations_;
  if (SolveIKFK(in, out, work_->core)) stretch_factor_ = out.stretch_factor;
}

bool IKFKChain::GetJointTM(int index, TimeValue t, Matrix3& val, Interval& valid) {
  EnsureSolved(t);
  valid &= validity_;
  if (index < 0 || index >= static_cast<int>(joint_tms_.size())) return false;
  val = joint_tms_[static_cast<std::size_t>(index)];
  return true;
}

Point3 IKFKChain::GetJointPosition(int index, TimeValue t) {
  EnsureSolved(t);
  if (index < 0 || index >= static_cast<int>(joint_positions_.size())) return Point3();
  return joint_positions_[static_cast<std::size_t>(index)];
}

void IKFKChain::GetValue(TimeValue t, void* val, Interval& valid, GetSetMethod) {
  if (!val) return;
  GetJointTM(NumJoints() - 1, t, *static_cast<Matrix3*>(val), valid);
}

RefResult IKFKChain::NotifyRefChanged(
    const Interval&, RefTargetHandle target, PartID&, RefMessage message, bool) {
  if (!target || target != pblock_) return REF_SUCCEED;
  dirty_ = true;
  if (message == REFMSG_CHANGE) {
    // Parameters whose change shows on every member (the helpers' display follows the blend).
    const ParamID id = pblock_->LastNotifyParamID();
    if (id == kIKFKBlend || id == kIKFKAutoMatch || id == kIKFKAffectHelpersDisplay) {
      InvalidateMembers();
    }
  }
  return REF_SUCCEED;
}

// ---------------------------------------------------------------------------------------------
// Matching.

template <typename F>
void IKFKChain::InHold(F&& fn) {
  theHold.Begin();
  fn();
  theHold.Accept(kUndoName);
  GetCOREInterface()->RedrawViews(GetCOREInterface()->GetTime());
}

void IKFKChain::MatchFK(TimeValue t, bool to_ik, bool include_last, int index) {
  if (!pblock_ || GetLocked()) return;
  if (to_ik) {
    Solve(t, -1, 1.0f);
    dirty_ = true;
  } else {
    EnsureSolved(t);
  }
  const int count = static_cast<int>(joint_rotations_.size());
  if (count == 0) return;
  int first = 0;
  int last = include_last ? count - 1 : count - 2;
  if (index >= 0) {
    if (index >= count || (!include_last && index == count - 1)) return;
    first = last = index;
  }
  // The writes below dirty the cache: work from a copy of the solved rotations.
  const std::vector<Quat> solved(joint_rotations_.begin(), joint_rotations_.end());
  Interval ignored = FOREVER;
  const Quat space_delta = RotationSpaceDelta(t, ignored);

  match_state_ = IKFKMatchState::kMovingJoints;
  for (int i = first; i <= last; ++i) {
    IKFKControl* member = MemberControl(JointNode(i));
    Control* fk = member ? member->SubControl() : nullptr;
    if (!fk) continue;
    Point3 pos, scale;
    Quat current;
    member->LocalValues(t, pos, current, scale, ignored);
    const Quat delta =
        MatchFKDelta(solved[static_cast<std::size_t>(i)], current, i == 0, space_delta);
    // delta turns in the joint's own frame (delta * current); the FK track's relative write
    // turns in its parent's frame after the present rotation, so the turn is carried across by
    // the present rotation: current * turn = delta * current.
    const Quat turn = Normalize(Inverse(current) * delta * current);
    SetXFormPacket pk(AngAxis(turn), true, Matrix3(), Matrix3());
    MirrorEditSuspend no_mirror;
    fk->SetValue(t, &pk, 1, CTRL_RELATIVE);
  }
  match_state_ = IKFKMatchState::kIdle;
  dirty_ = true;
  InvalidateMembers();
}

void IKFKChain::WriteGoalMove(TimeValue t,
                              INode* goal,
                              const Matrix3& want_ws,
                              bool with_rotation) {
  Control* c = goal->GetTMController();
  if (!c) return;
  // The goal's parent as its controller sees it; its own controller adds the link.
  const Matrix3 parent_ws = goal->GetParentTM(t);
  MirrorEditSuspend no_mirror;
  if (with_rotation) {
    const Quat now = Quat(Ortho(goal->GetNodeTM(t)));
    const Quat want = Quat(Ortho(want_ws));
    // A world turn applied after the present rotation: now * turn = want.
    Quat turn = Normalize(Inverse(now) * want);
    if (!turn.IsIdentity()) {
      SetXFormPacket rot(AngAxis(turn), true, parent_ws, Matrix3());
      c->SetValue(t, &rot, 1, CTRL_RELATIVE);
    }
  }
  const Point3 move = want_ws.GetTrans() - goal->GetNodeTM(t).GetTrans();
  SetXFormPacket pk(move, parent_ws, Matrix3());
  c->SetValue(t, &pk, 1, CTRL_RELATIVE);
}

void IKFKChain::WriteTargetPlace(TimeValue t, INode* target, const Point3& pos_ws) {
  Control* c = target->GetTMController();
  if (!c) return;
  MirrorEditSuspend no_mirror;
  SetXFormPacket pk(pos_ws - target->GetNodeTM(t).GetTrans(), target->GetParentTM(t), Matrix3());
  c->SetValue(t, &pk, 1, CTRL_RELATIVE);
}

void IKFKChain::MatchIK(
    TimeValue t, bool to_fk, bool include_last, int index, bool move_goal, bool move_target) {
  if (!pblock_ || GetLocked()) return;
  if (to_fk && index < 0) {
    Solve(t, -1, 0.0f);
    dirty_ = true;
  } else {
    EnsureSolved(t);
  }
  const int count = static_cast<int>(joint_tms_.size());
  if (count == 0 || (!include_last && index == count - 1)) return;
  // The pose to match, copied: the writes below dirty the cache.
  const std::vector<Matrix3> pose_ws(joint_tms_.begin(), joint_tms_.end());
  const std::vector<Point3> pose_ps(joint_positions_.begin(), joint_positions_.end());
  const Matrix3 parent_ws = parent_tm_;
  float chain_length = 0.0f;
  for (int i = 1; i < count; ++i) {
    chain_length +=
        Length(pose_ps[static_cast<std::size_t>(i)] - pose_ps[static_cast<std::size_t>(i - 1)]);
  }
  const float soft = pblock_->GetFloat(kIKFKSoftIK, t);
  const float stretch = pblock_->GetFloat(kIKFKAutoStretch, t);
  const Point3 root_ps = pose_ps.front();
  const Point3 end_ps = pose_ps.back();
  // The goal that a soft solve pulls back onto the chain's present end.
  const Point3 goal_ps = SoftMatchGoal(root_ps, end_ps, chain_length, soft, stretch);

  match_state_ = IKFKMatchState::kMovingGoal;
  INode* goal = GoalNode();
  if (move_goal && goal) {
    Matrix3 want_ws = pose_ws.back();
    want_ws.SetTrans(goal_ps * parent_ws);
    WriteGoalMove(t, goal, want_ws, pblock_->GetInt(kIKFKLastJointIKRotation, t) != 0);
  }

  // Joint 0's preferred rotation in the swivel frame's terms, from the goal's new place.
  Interval ignored = FOREVER;
  IKFKControl* root_member = MemberControl(JointNode(0));
  const Quat qp_raw = root_member ? root_member->PreferredQuat(t, ignored) : Quat();
  const Matrix3 swivel_space_ws = GoalParentActive() ? GoalParentNode()->GetNodeTM(t)
                                  : goal             ? goal->GetNodeTM(t)
                                                     : parent_ws;
  const Quat qp = EffectivePreferredRotation(qp_raw, pblock_->GetInt(kIKFKParentSpace),
                                             swivel_space_ws, parent_ws);
  const std::size_t mid = static_cast<std::size_t>(count / 2);
  if (TargetActive()) {
    if (move_target && count >= 3) {
      const float swivel = pblock_->GetFloat(kIKFKSwivelAngle, t);
      const Quat frame_ps = SwivelFrame(root_ps, goal_ps, qp, swivel);
      const Point3 place = MatchTargetPosition(
          pose_ws.front().GetTrans(), pose_ws[mid].GetTrans(), pose_ws.back().GetTrans(),
          chain_length, pblock_->GetFloat(kIKFKTargetDistPercent), frame_ps, parent_ws);
      WriteTargetPlace(t, TargetNode(), place);
    }
  } else if (count >= 3) {
    pblock_->SetValue(kIKFKSwivelAngle, t, SwivelAngleFromPose(root_ps, pose_ps[mid], goal_ps, qp));
  }
  match_state_ = IKFKMatchState::kIdle;
  dirty_ = true;
  InvalidateMembers();
}

void IKFKChain::SetBlend(TimeValue t, float blend) {
  if (pblock_) pblock_->SetValue(kIKFKBlend, t, blend);
}

void IKFKChain::FK() {
  const TimeValue t = GetCOREInterface()->GetTime();
  InHold([&] {
    MatchFK(t, false, true, -1);
    SetBlend(t, 0.0f);
  });
}

void IKFKChain::IK() {
  const TimeValue t = GetCOREInterface()->GetTime();
  InHold([&] {
    MatchIK(t, false, true, -1, true, true);
    SetBlend(t, 1.0f);
  });
}

void IKFKChain::MatchFK(bool to_ik) {
  const TimeValue t = GetCOREInterface()->GetTime();
  InHold([&] { MatchFK(t, to_ik, true, -1); });
}

void IKFKChain::MatchIK(bool to_fk) {
  const TimeValue t = GetCOREInterface()->GetTime();
  InHold([&] { MatchIK(t, to_fk, true, -1, true, true); });
}

void IKFKChain::MatchManualStretch() {
  if (!pblock_) return;
  const TimeValue t = GetCOREInterface()->GetTime();
  EnsureSolved(t);
  const float factor = stretch_factor_;
  InHold([&] {
    pblock_->SetValue(kIKFKManualStretch, t, pblock_->GetFloat(kIKFKManualStretch, t) * factor);
  });
}

void IKFKChain::MatchPreferredRotations() {
  if (!pblock_) return;
  const TimeValue t = GetCOREInterface()->GetTime();
  EnsureSolved(t);
  const std::vector<Quat> found(preferred_rotations_.begin(), preferred_rotations_.end());
  InHold([&] {
    for (int i = 0, n = static_cast<int>(found.size()); i < n; ++i) {
      IKFKControl* member = MemberControl(JointNode(i));
      Control* preferred = member ? member->PreferredRotation() : nullptr;
      Quat q = found[static_cast<std::size_t>(i)];
      if (preferred) preferred->SetValue(t, &q, 1, CTRL_ABSOLUTE);
    }
  });
}

// ---------------------------------------------------------------------------------------------
// Display.

int IKFKChain::Display(TimeValue t, INode* inode, ViewExp* vpt, int) {
  if (!pblock_ || !vpt) return 0;
  GraphicsWindow* gw = vpt->getGW();
  if (!gw) return 0;
  EnsureSolved(t);
  const int count = static_cast<int>(joint_tms_.size());
  if (count == 0) return 0;
  gw->setTransform(Matrix3());
  // Bones: a line from each joint to the next.
  Point3 line[2];
  for (int i = 1; i < count; ++i) {
    line[0] = joint_tms_[static_cast<std::size_t>(i - 1)].GetTrans();
    line[1] = joint_tms_[static_cast<std::size_t>(i)].GetTrans();
    gw->polyline(2, line, nullptr, 0, nullptr);
  }
  const bool chain_selected = inode && inode->Selected();
  auto shown = [&](int mode, INode* node) {
    return node && (mode == 2 || (mode == 1 && (chain_selected || node->Selected())));
  };
  const Point3 end_ws = joint_tms_.back().GetTrans();
  if (INode* goal = GoalNode(); shown(pblock_->GetInt(kIKFKDisplayGoal), goal)) {
    const Point3 goal_ws = goal->GetNodeTM(t).GetTrans();
    line[0] = end_ws;
    line[1] = goal_ws;
    gw->polyline(2, line, nullptr, 0, nullptr);
    gw->startMarkers();
    gw->marker(&goal_ws, X_MRKR);
    gw->endMarkers();
  }
  if (INode* target = TargetNode();
      TargetActive() && count >= 2 && shown(pblock_->GetInt(kIKFKDisplayTarget), target)) {
    const Point3 target_ws = target->GetNodeTM(t).GetTrans();
    line[0] = joint_tms_[static_cast<std::size_t>(count / 2)].GetTrans();
    line[1] = target_ws;
    gw->polyline(2, line, nullptr, 0, nullptr);
    gw->startMarkers();
    gw->marker(&target_ws, CIRCLE_MRKR);
    gw->endMarkers();
  }
  return 1;
}

// ---------------------------------------------------------------------------------------------
// Copies, locks, files.

void IKFKChain::Copy(Control* from) {
  if (from && from != this) SetLocked(IsTrackLocked(from));
}

RefTargetHandle IKFKChain::Clone(RemapDir& remap) {
  auto* c = new IKFKChain(true);
  c->ReplaceReference(0, remap.CloneRef(pblock_));
  c->locked_ = locked_;
  BaseClone(this, c, remap);
  return c;
}

void IKFKChain::SetLocked(bool locked, bool) {
  if (locked == locked_) return;
  PutStateRestore(this, "IKFK Chain Lock");
  locked_ = locked;
  NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
}

void IKFKChain::StateRestored() {
  dirty_ = true;
  NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
}

IOResult IKFKChain::Save(ISave* isave) { return SaveLockChunk(isave, locked_); }

IOResult IKFKChain::Load(ILoad* iload) {
  dirty_ = true;
  return LoadLockOnly(iload, locked_);
}

}  // namespace marvolith
