// Copyright Marvolith contributors.
#include "constraints/target_constraint.h"

#include "host/scene/core_interface.h"
#include "host/scene/inode.h"
#include "host/undo/hold.h"

namespace marvolith {
namespace {

/// A hold of its own around a list edit, or none when one is running already.
class ListEditHold {
 public:
  explicit ListEditHold(const char* name) : name_(name), began_(!theHold.Holding()) {
    if (began_) theHold.Begin();
  }
  ~ListEditHold() {
    if (!began_) return;
    if (changed_) {
      theHold.Accept(name_);
    } else {
      theHold.Cancel();
    }
  }
  void Changed() { changed_ = true; }
  ListEditHold(const ListEditHold&) = delete;
  ListEditHold& operator=(const ListEditHold&) = delete;

 private:
  const char* name_;
  bool began_;
  bool changed_ = false;
};

}  // namespace

std::vector<FPFunctionDef> TargetConstraintFunctions() {
  using enum FPType;
  return {
      {kGetNumTargets, "getNumTargets", TYPE_INDEX},
      {kGetNode, "getNode", TYPE_INODE, {FPArg("nodeNumber", TYPE_INDEX)}},
      {kGetWeight, "getWeight", TYPE_FLOAT, {FPArg("targetNumber", TYPE_INDEX)}},
      {kSetWeight,
       "setWeight",
       TYPE_BOOL,
       {FPArg("targetNumber", TYPE_INDEX), FPArg("weight", TYPE_FLOAT)}},
      {kAppendTarget,
       "appendTarget",
       TYPE_BOOL,
       {FPArg("target", TYPE_INODE), FPArg("weight", TYPE_FLOAT)}},
      {kDeleteTarget, "deleteTarget", TYPE_BOOL, {FPArg("targetNumber", TYPE_INDEX)}},
  };
}

FPStatus ITargetConstraint::Dispatch(FunctionID fid, FPParams& p, FPValue& result) {
  switch (fid) {
    case kGetNumTargets:
      // The count travels as an index, which scripts see one higher: it goes out as the last
      // index, so a script reads the number of targets.
      result = FPValue::Index(GetNumTargets() - 1);
      return FPS_OK;
    case kGetNode:
      return FPBind(result, p, this, &ITargetConstraint::GetNode);
    case kGetWeight:
      return FPBind(result, p, this, &ITargetConstraint::GetWeight);
    case kSetWeight:
      return FPBind(result, p, this, &ITargetConstraint::SetWeight);
    case kAppendTarget:
      return FPBind(result, p, this, &ITargetConstraint::AppendTarget);
    case kDeleteTarget:
      return FPBind(result, p, this, &ITargetConstraint::DeleteTarget);
    default:
      return FPS_NO_SUCH_FUNCTION;
  }
}

void TargetConstraint::GetClassName(MSTR& s, bool) const { s = ClassNameOf(Desc()->Index()); }

BaseInterface* TargetConstraint::GetInterface(Interface_ID id) {
  if (id == Interface_ID(ClassID())) return static_cast<ITargetConstraint*>(this);
  return LockableControl::GetInterface(id);
}

IParamBlock2* TargetConstraint::GetParamBlockByID(BlockID id) {
  return id == kTargetConstraintParams ? pblock_ : nullptr;
}

void TargetConstraint::SetReference(int i, RefTargetHandle target) {
  if (i == 0) pblock_ = dynamic_cast<IParamBlock2*>(target);
}

RefResult TargetConstraint::NotifyRefChanged(
    const Interval&, RefTargetHandle target, PartID& part_id, RefMessage message, bool) {
  if (!notify_enabled_) return REF_SUCCEED;
  if (message == REFMSG_KEYABLE_QUERY && target == pblock_) {
    // The block's parameters are this constraint's own; they are not keyed as someone else's.
    *reinterpret_cast<int*>(part_id) = 1;
    return REF_FAIL;
  }
  return REF_SUCCEED;
}

int TargetConstraint::GetNumTargets() { return pblock_ ? pblock_->Count(kTargetList) : 0; }

INode* TargetConstraint::TargetNode(int i) {
  if (!pblock_ || i < 0 || i >= pblock_->Count(kTargetList)) return nullptr;
  return pblock_->GetINode(kTargetList, 0, i);
}

INode* TargetConstraint::GetNode(int i) { return TargetNode(i); }

float TargetConstraint::WeightAt(int i, TimeValue t, Interval& valid) {
  if (!pblock_ || i < 0 || i >= pblock_->Count(kTargetWeight)) return 1.0f;
  float w = 1.0f;
  pblock_->GetValue(kTargetWeight, t, w, valid, i);
  return w;
}

Matrix3 TargetConstraint::TargetTransform(int i, TimeValue t, bool local, Interval& valid) {
  INode* node = TargetNode(i);
  if (!node) return Matrix3();
  const Matrix3 world = node->GetNodeTM(t, &valid);
  return local ? world * Inverse(node->GetParentTM(t)) : world;
}

float TargetConstraint::GetWeight(int i) {
  if (!pblock_ || i < 0 || i >= pblock_->Count(kTargetWeight)) return 0.0f;
  return pblock_->GetFloat(kTargetWeight, GetCOREInterface()->GetTime(), i);
}

bool TargetConstraint::SetWeight(int i, float weight) {
  if (!pblock_ || i < 0 || i >= pblock_->Count(kTargetWeight)) return false;
  return pblock_->SetValue(kTargetWeight, GetCOREInterface()->GetTime(), weight, i);
}

void TargetConstraint::MatchTableCounts() {
  const int n = pblock_->Count(kTargetList);
  if (pblock_->Count(kTargetWeight) != n) pblock_->SetCount(kTargetWeight, n);
}

bool TargetConstraint::AppendTarget(INode* node, float weight) {
  if (!pblock_) return false;
  if (node && node->TestForLoop(FOREVER, this) != REF_SUCCEED) return false;
  const int n = pblock_->Count(kTargetList);
  for (int i = 0; i < n; ++i) {
    if (pblock_->GetINode(kTargetList, 0, i) == node) return false;
  }
  ListEditHold hold(HoldName());
  {
    TargetEditScope quiet(notify_enabled_);
    MatchTableCounts();
    BeforeAppend(node, GetCOREInterface()->GetTime());
    pblock_->Append(kTargetList, 1, &node);
    pblock_->Append(kTargetWeight, 1, &weight);
    TargetsChanged();
  }
  hold.Changed();
  NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
  return true;
}

bool TargetConstraint::DeleteTarget(int i) {
  if (!pblock_ || i < 0) return false;
  if (i >= pblock_->Count(kTargetList) && i >= pblock_->Count(kTargetWeight)) return true;
  ListEditHold hold(HoldName());
  {
    TargetEditScope quiet(notify_enabled_);
    for (ParamID id : {kTargetWeight, kTargetList}) {
      if (i < pblock_->Count(id)) pblock_->Delete(id, i, 1);
    }
    if (pblock_->GetParameterType(kTargetOffset) == TYPE_MATRIX3_TAB &&
        i < pblock_->Count(kTargetOffset)) {
      pblock_->Delete(kTargetOffset, i, 1);
    }
    TargetsChanged();
  }
  hold.Changed();
  NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
  return true;
}

}  // namespace marvolith
