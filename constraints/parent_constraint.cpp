// Copyright Marvolith contributors.
#include "constraints/parent_constraint.h"

#include <algorithm>
#include <cmath>

#include "controllers/node_space.h"
#include "controllers/rig_control.h"
#include "host/controllers/controller_classes.h"
#include "host/math/affine.h"
#include "host/params/param_block_desc2.h"
#include "host/scene/core_interface.h"
#include "host/scene/inode.h"
#include "host/undo/hold.h"
#include "support/chunk_helpers.h"
#include "support/hold_record.h"
#include "support/lock_chunk.h"
#include "support/track_assign.h"

namespace marvolith {
namespace {

/// Tolerance of the trackers' comparisons of node and pivot transforms.
constexpr float kTrackerEpsilon = 1e-6f;
/// A packet's result that lies this close to the last value (scaled by magnitudes above 1) only
/// carries a moved parent.
constexpr float kParentMovedEpsilon = 9.536743e-7f;
/// Part bits of a target change that may move the constrained node: topology, geometry, TM.
constexpr PartID kTargetMovedParts = 0x1003;

class ParentConstraintClassDesc : public MarvolithClassDesc {
 public:
  ParentConstraintClassDesc() : MarvolithClassDesc(ClassIndex::ParentConstraint) {}
  Animatable* Create(bool loading) override { return new ParentConstraint(loading); }
};

// Built at module load in this order: descriptor, block, interface.
ParentConstraintClassDesc parent_cd;
ParamBlockDesc2 parent_pb{
    kTargetConstraintParams,
    "params",
    0,
    &parent_cd,
    P_AUTO_CONSTRUCT,
    0,
    {
        ParamDef(kTargetWeight, "weight", TYPE_FLOAT_TAB, P_ANIMATABLE | P_TV_SHOW_ALL)
            .TabSize(0)
            .Default(50.0f)
            .Range(0.0f, 100.0f)
            .Label("Parent Weight"),
        ParamDef(kTargetList, "target_list", TYPE_INODE_TAB, 0)
            .TabSize(0)
            .Validator(&GetNodeLoopValidator())
            .Label("Parent List"),
        ParamDef(kTargetRelative, "relative", TYPE_BOOL, 0).Default(false).Label("Relative"),
        ParamDef(kTargetOffset, "offset", TYPE_MATRIX3_TAB, 0).TabSize(0).Label("Offset List"),
    }};
FPInterfaceDesc parent_fp{Interface_ID(parent_cd.ClassID()), "constraints", FP_MIXIN, &parent_cd,
                          TargetConstraintFunctions()};

/// Largest difference of two matrices' components, each divided by the larger magnitude of the
/// pair when that is above 1.
bool DiffersScaled(const Matrix3& a, const Matrix3& b, float eps) {
  for (int r = 0; r < 4; ++r) {
    for (int c = 0; c < 3; ++c) {
      const float x = a.GetRow(r)[c];
      const float y = b.GetRow(r)[c];
      const float scale = std::max({1.0f, std::fabs(x), std::fabs(y)});
      if (std::fabs(x - y) > eps * scale) return true;
    }
  }
  return false;
}

/// What a packet does to the matrix m.
Matrix3 ApplyPacket(const SetXFormPacket& pk, const Matrix3& m) {
  switch (pk.command) {
    case XFORM_MOVE: {
      Matrix3 out = m;
      out.SetTrans(m.GetTrans() + VectorTransform(pk.tmAxis, pk.p));
      return out;
    }
    case XFORM_ROTATE: {
      Matrix3 rot;
      pk.q.MakeMatrix(rot);
      return m * Inverse(pk.tmAxis) * rot * pk.tmAxis;
    }
    case XFORM_SCALE:
      return m * Inverse(pk.tmAxis) * ScaleMatrix(pk.p) * pk.tmAxis;
    case XFORM_SET:
    default:
      return pk.tmAxis;
  }
}

}  // namespace

ClassDesc2* GetParentConstraintDesc() { return &parent_cd; }

Matrix3 PivotTM(INode* node) {
  if (!node) return Matrix3();
  Matrix3 m;
  node->GetObjOffsetRot().MakeMatrix(m);
  m.SetTrans(node->GetObjOffsetPos());
  ApplyScaling(m, node->GetObjOffsetScale());
  return m;
}

ParentConstraint::ParentConstraint(bool loading) {
  if (loading) return;
  HoldSuspend no_undo;  // a new controller's own parts are not an edit
  parent_cd.MakeAutoParamBlocks(this);
  ReplaceReference(kChildRef, NewDefaultMatrix3Controller());
}

MarvolithClassDesc* ParentConstraint::Desc() const { return &parent_cd; }
FPInterfaceDesc* ParentConstraint::GetDesc() { return &parent_fp; }

void* ParentConstraint::GetInterface(ULONG id) {
  if (id == I_REFSLOTCHECK) return static_cast<IRefSlotCheck*>(this);
  return TargetConstraint::GetInterface(id);
}

RefTargetHandle ParentConstraint::GetReference(int i) {
  if (i == 0) return pblock_;
  return i == kChildRef ? child_ : nullptr;
}

void ParentConstraint::SetReference(int i, RefTargetHandle target) {
  if (i == kChildRef) {
    child_ = target && target->SuperClassID() == CTRL_MATRIX3_CLASS_ID
                 ? dynamic_cast<Control*>(target)
                 : nullptr;
  } else {
    TargetConstraint::SetReference(i, target);
  }
}

MSTR ParentConstraint::SubAnimName(int i, bool) {
  if (i == 0) return "Parameters";
  return i == kChildRef ? MSTR("Transform") : MSTR();
}

bool ParentConstraint::CanReferenceAt(int i, ReferenceTarget* target) {
  if (!target) return false;
  if (i == 0) return target->SuperClassID() == PARAMETER_BLOCK2_CLASS_ID;
  return i == kChildRef && target->SuperClassID() == CTRL_MATRIX3_CLASS_ID &&
         dynamic_cast<Control*>(target);
}

bool ParentConstraint::AssignController(Animatable* control, int i) {
  if (i != kChildRef) return false;
  if (!ReplaceTrack(this, kChildRef, dynamic_cast<Control*>(control), child_,
                    CTRL_MATRIX3_CLASS_ID)) {
    return false;
  }
  NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
  NotifyDependents(FOREVER, PART_ALL, REFMSG_SUBANIM_STRUCTURE_CHANGED);
  return true;
}

// ---------------------------------------------------------------------------------------------
// State and undo.

ParentConstraint::State ParentConstraint::GetState() const {
  return {last_parent_tm_, capture_parent_, last_value_tm_, last_value_time_, trackers_, locked_};
}

void ParentConstraint::SetState(const State& s) {
  last_parent_tm_ = s.last_parent_tm;
  capture_parent_ = s.capture_parent;
  last_value_tm_ = s.last_value_tm;
  last_value_time_ = s.last_value_time;
  trackers_ = s.trackers;
  locked_ = s.locked;
}

void ParentConstraint::HoldState() { PutStateRestore(this, "Parent Constraint"); }

void ParentConstraint::SetLocked(bool locked, bool) {
  if (locked == locked_) return;
  HoldState();
  locked_ = locked;
  NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
}

// ---------------------------------------------------------------------------------------------
// The sub-controllers.

Control* ParentConstraint::GetPositionController() {
  return child_ ? child_->GetPositionController() : nullptr;
}

Control* ParentConstraint::GetScaleController() {
  return child_ ? child_->GetScaleController() : nullptr;
}

bool ParentConstraint::SetPositionController(Control* c) {
  return child_ && child_->SetPositionController(c);
}

bool ParentConstraint::SetRotationController(Control* c) {
  return child_ && child_->SetRotationController(c);
}

bool ParentConstraint::SetScaleController(Control* c) {
  return child_ && child_->SetScaleController(c);
}

Control* ParentConstraint::GetRotationController() {
  Control* rot = GetRealRotationController(child_);
  if (!GimbalProxyEnabled() || !rot || !rot->GetInterface(I_EULERCTRL)) return rot;
  Interface* ip = GetCOREInterface();
  if (ip->GetRefCoordSys() != COORDS_GIMBAL || ip->GetPivotMode() == PIV_PIVOT_ONLY) return rot;
  // The track turns in the blended frame, moved by the child's position track.
  const TimeValue t = ip->GetTime();
  Interval ignored = FOREVER;
  Matrix3 frame_ws = BlendTargets(t, ignored, pblock_ && pblock_->GetInt(kTargetRelative) != 0);
  if (Control* pos = child_->GetPositionController()) {
    pos->GetValue(t, &frame_ws, ignored, CTRL_RELATIVE);
  }
  frame_ws.Orthogonalize();
  const float no_offset[3] = {0.0f, 0.0f, 0.0f};
  Control* proxy = ShowGimbalProxy(rot, frame_ws, no_offset);
  return proxy ? proxy : rot;
}

// ---------------------------------------------------------------------------------------------
// Targets.

void ParentConstraint::MatchTableCounts() {
  TargetConstraint::MatchTableCounts();
  const int n = pblock_->Count(kTargetList);
  if (pblock_->Count(kTargetOffset) != n) pblock_->SetCount(kTargetOffset, n);
}

void ParentConstraint::BeforeAppend(INode* node, TimeValue t) {
  HoldState();
  if (capture_parent_) {
    // Not evaluated since it was made: the parent it would capture is the node's own.
    INode* owner = FindOwnerNode(this);
    last_parent_tm_ = owner ? owner->GetParentTM(t) : Matrix3();
    capture_parent_ = false;
  }
  if (child_ && pblock_->Count(kTargetList) == 0) {
    // The first target: the node's present transform moves out of the child into the captured
    // parent, so that the offset to the target carries the whole pose.
    const Matrix3 last_value = last_value_tm_;
    const TimeValue last_time = last_value_time_;
    Matrix3 world;
    Interval ignored = FOREVER;
    GetValue(t, &world, ignored, CTRL_RELATIVE);
    last_value_tm_ = last_value;
    last_value_time_ = last_time;
    child_->ChangeParents(t, last_parent_tm_, world, world);
    last_parent_tm_ = world;
  }
  Interval ignored = FOREVER;
  const Matrix3 target_ws = node ? node->GetNodeTM(t) : Matrix3();
  const Matrix3 offset = BlendTargets(t, ignored, true) * Inverse(target_ws);
  pblock_->Append(kTargetOffset, 1, &offset);
}

void ParentConstraint::TargetsChanged() {
  HoldState();
  for (TargetTracker& tr : trackers_) tr = TargetTracker{};
  trackers_.resize(static_cast<std::size_t>(std::max(0, GetNumTargets())));
}

Matrix3 ParentConstraint::GetOffset(int i) {
  if (!pblock_ || i < 0 || i >= pblock_->Count(kTargetOffset)) return Matrix3();
  return pblock_->GetMatrix3(kTargetOffset, 0, i);
}

bool ParentConstraint::SetOffset(int i, const Matrix3& m) {
  if (!pblock_ || i < 0 || i >= pblock_->Count(kTargetOffset)) return false;
  return pblock_->SetValue(kTargetOffset, 0, m, i);
}

FPStatus ParentConstraint::Dispatch(FunctionID fid, FPParams& p, FPValue& result) {
  switch (fid) {
    case kGetOffset:
      return FPBind(result, p, this, &ParentConstraint::GetOffset);
    case kSetOffset:
      return FPBind(result, p, this, &ParentConstraint::SetOffset);
    default:
      return ITargetConstraint::Dispatch(fid, p, result);
  }
}

Matrix3 ParentConstraint::TargetTM(int i, TimeValue t, Interval& valid) {
  INode* node = TargetNode(i);
  if (!node) return Matrix3();
  const Matrix3 tm = node->GetNodeTM(t, &valid);
  if (adjusting_ || theHold.Restoring() || t != GetCOREInterface()->GetTime()) return tm;
  // Trackers are sized with the list outside evaluation; a list changed by undo is caught here.
  if (static_cast<std::size_t>(i) >= trackers_.size()) trackers_.resize(i + 1);
  TargetTracker& tr = trackers_[i];
  const AnimHandle handle = Animatable::GetHandleByAnim(node);
  const Matrix3 pivot = PivotTM(node);
  if (tr.node != handle || tr.time != t) {
    tr.node = handle;
    tr.time = t;
    tr.node_tm = tr.former_node_tm = tm;
    tr.pivot_tm = tr.former_pivot_tm = pivot;
    tr.moved = false;
  } else if (!tm.Equals(tr.node_tm, kTrackerEpsilon) ||
             !pivot.Equals(tr.pivot_tm, kTrackerEpsilon)) {
    tr.former_node_tm = tr.node_tm;
    tr.former_pivot_tm = tr.pivot_tm;
    tr.node_tm = tm;
    tr.pivot_tm = pivot;
    tr.moved = false;
  }
  return tm;
}

Matrix3 ParentConstraint::BlendTargets(TimeValue t,
                                       Interval& valid,
                                       bool use_offsets,
                                       const std::vector<Matrix3>* overrides) {
  if (!pblock_) return Matrix3();
  const int n = pblock_->Count(kTargetList);
  if (n == 0) return last_parent_tm_;
  const int offsets = use_offsets ? pblock_->Count(kTargetOffset) : 0;
  auto target = [&](int i) {
    Matrix3 m = overrides && static_cast<std::size_t>(i) < overrides->size()
                    ? (*overrides)[i]
                    : TargetTM(i, t, valid);
    if (i < offsets) m = pblock_->GetMatrix3(kTargetOffset, 0, i) * m;
    return m;
  };
  if (n == 1) return target(0);
  TargetBlend blend;
  for (int i = 0; i < n; ++i) blend.Add(StableDecompose(target(i)), WeightAt(i, t, valid));
  return blend.HasBlend() ? blend.Result() : last_parent_tm_;
}

// ---------------------------------------------------------------------------------------------
// Evaluation.

void ParentConstraint::GetValue(TimeValue t, void* val, Interval& valid, GetSetMethod) {
  if (!val) return;
  Matrix3& tm = *static_cast<Matrix3*>(val);
  if (!theHold.Restoring() && t == GetCOREInterface()->GetTime()) {
    last_value_tm_ = tm;
    last_value_time_ = t;
  }
  if (capture_parent_) {
    last_parent_tm_ = tm;
    capture_parent_ = false;
  }
  tm = BlendTargets(t, valid, pblock_ && pblock_->GetInt(kTargetRelative) != 0);
  if (child_) child_->GetValue(t, val, valid, CTRL_RELATIVE);
}

bool ParentConstraint::AncestorSelected() {
  INode* node = FindOwnerNode(this);
  for (INode* p = node ? node->GetParentNode() : nullptr; p && !p->IsRootNode();
       p = p->GetParentNode()) {
    if (p->Selected()) return true;
  }
  return false;
}

bool ParentConstraint::ParentMovedOnly(TimeValue t, const SetXFormPacket& pk) {
  if (t != last_value_time_ || !theHold.Holding()) return false;
  if (pk.tmParent.Equals(last_value_tm_, 0.0f)) return false;
  if (DiffersScaled(ApplyPacket(pk, pk.tmParent), last_value_tm_, kParentMovedEpsilon)) {
    return false;
  }
  INode* node = FindOwnerNode(this);
  return !(node && node->Selected());
}

void ParentConstraint::SetValue(TimeValue t, void* val, int commit, GetSetMethod method) {
  if (GetLocked() || !val) return;
  SetXFormPacket pk = *static_cast<const SetXFormPacket*>(val);
  Interface* ip = GetCOREInterface();
  const bool undo_open = theHold.Holding() && !theHold.IsSuspended() && !theHold.Restoring();
  if (pk.command == XFORM_SCALE && undo_open && ip->GetPivotMode() != PIV_PIVOT_ONLY &&
      ip->GetPivotMode() != PIV_OBJECT_ONLY && !ip->GetAffectPivot() && AncestorSelected()) {
    // The selected ancestor's scale reaches this node through the targets already.
    HoldState();
    return;
  }
  if (ParentMovedOnly(t, pk)) {
    HoldState();
    last_value_tm_ = pk.tmParent;
    return;
  }
  Interval ignored = FOREVER;
  pk.tmParent = BlendTargets(t, ignored, pblock_ && pblock_->GetInt(kTargetRelative) != 0);
  if (child_) child_->SetValue(t, &pk, commit, method);
}

// ---------------------------------------------------------------------------------------------
// Pivot compensation.

RefResult ParentConstraint::NotifyRefChanged(const Interval& change_int,
                                             RefTargetHandle target,
                                             PartID& part_id,
                                             RefMessage message,
                                             bool propagate) {
  if (!notify_enabled_) return REF_SUCCEED;
  if (message == REFMSG_CHANGE && target != child_ && (part_id & kTargetMovedParts) != 0) {
    PivotCompensation(GetCOREInterface()->GetTime());
  }
  return TargetConstraint::NotifyRefChanged(change_int, target, part_id, message, propagate);
}

void ParentConstraint::PivotCompensation(TimeValue t) {
  if (!pblock_ || adjusting_ || theHold.Restoring() || !theHold.Holding() ||
      theHold.IsSuspended()) {
    return;
  }
  Interface* ip = GetCOREInterface();
  const int mode = ip->GetPivotMode();
  if (mode == PIV_OBJECT_ONLY) return;
  const bool pivot_edit = mode == PIV_PIVOT_ONLY || ip->GetAffectPivot();
  adjusting_ = true;
  const int n = std::min<int>(pblock_->Count(kTargetList), static_cast<int>(trackers_.size()));
  const bool relative = pblock_->GetInt(kTargetRelative) != 0;
  std::vector<Matrix3> corrected;  // target transforms as they were, for the child's correction
  bool any_kept = false;
  for (int i = 0; i < n; ++i) {
    INode* node = TargetNode(i);
    TargetTracker& tr = trackers_[i];
    if (!node || !node->Selected() || tr.node != Animatable::GetHandleByAnim(node) ||
        tr.time != t) {
      continue;
    }
    const Matrix3 node_tm = node->GetNodeTM(t);
    const Matrix3 pivot = PivotTM(node);
    const bool node_changed = !node_tm.Equals(tr.node_tm, kTrackerEpsilon);
    const bool pivot_changed = !pivot.Equals(tr.pivot_tm, kTrackerEpsilon);
    if (!pivot_edit && !pivot_changed) continue;
    if (!node_changed && !pivot_changed) continue;

    // C takes the new node TM back to the one the constrained node was placed by.
    bool found = false;
    Matrix3 c;
    const Matrix3 object_ws = pivot * node_tm;
    if (node_changed && pivot_edit) {
      c = tr.node_tm * Inverse(node_tm);
      found = true;
    } else if (pivot_changed && object_ws.Equals(tr.pivot_tm * tr.node_tm, kTrackerEpsilon)) {
      c = tr.node_tm * Inverse(node_tm);
      found = true;
    } else if (!tr.moved &&
               object_ws.Equals(tr.former_pivot_tm * tr.former_node_tm, kTrackerEpsilon)) {
      c = tr.former_node_tm * Inverse(node_tm);
      found = true;
    }
    HoldState();
    tr.former_node_tm = tr.node_tm;
    tr.former_pivot_tm = tr.pivot_tm;
    tr.node_tm = node_tm;
    tr.pivot_tm = pivot;
    tr.moved = found;
    if (!found) continue;
    if (relative) {
      if (i < pblock_->Count(kTargetOffset)) {
        pblock_->SetValue(kTargetOffset, 0, pblock_->GetMatrix3(kTargetOffset, 0, i) * c, i);
      }
    } else {
      if (corrected.empty()) {
        corrected.resize(n);
        for (int j = 0; j < n; ++j) {
          INode* other = TargetNode(j);
          corrected[j] = other ? other->GetNodeTM(t) : Matrix3();
        }
      }
      corrected[i] = c * node_tm;
      any_kept = true;
    }
  }
  if (any_kept && child_) {
    Interval ignored = FOREVER;
    const Matrix3 old_parent = BlendTargets(t, ignored, relative, &corrected);
    const Matrix3 new_parent = BlendTargets(t, ignored, relative);
    Matrix3 world = old_parent;
    child_->GetValue(t, &world, ignored, CTRL_RELATIVE);
    child_->ChangeParents(t, old_parent, new_parent, world);
  }
  adjusting_ = false;
}

// ---------------------------------------------------------------------------------------------
// Copy, clone, files.

void ParentConstraint::Copy(Control* from) {
  if (!from || from == this || from->SuperClassID() != CTRL_MATRIX3_CLASS_ID) return;
  ReplaceReference(kChildRef, from, true);
  locked_ = IsTrackLocked(from);
  NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
}

RefTargetHandle ParentConstraint::Clone(RemapDir& remap) {
  auto* c = new ParentConstraint(true);
  for (int i = 0; i < 2; ++i) c->ReplaceReference(i, remap.CloneRef(GetReference(i)));
  c->SetState(GetState());
  c->trackers_.clear();
  BaseClone(this, c, remap);
  return c;
}

IOResult ParentConstraint::Save(ISave* isave) {
  IOResult res = SaveChunk(isave, kLastParentChunk, last_parent_tm_);
  if (res == IO_OK) res = SaveLockChunk(isave, locked_);
  return res;
}

IOResult ParentConstraint::Load(ILoad* iload) {
  bool have_parent = false;
  Matrix3 parent;
  bool locked = locked_;
  const IOResult res = ForEachChunk(iload, [&](USHORT id) {
    if (id == kLastParentChunk) {
      have_parent = true;
      return LoadValue(iload, parent);
    }
    return id == kLockChunkID ? LoadLockChunk(iload, locked) : IO_OK;
  });
  if (res != IO_OK) return res;
  locked_ = locked;
  capture_parent_ = !have_parent;
  if (have_parent) last_parent_tm_ = parent;
  return IO_OK;
}

}  // namespace marvolith
