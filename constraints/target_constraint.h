// Copyright Marvolith contributors.
// What the multi-target constraints (parent, scale, transform) share: the weighted target list
// in their parameter block, the published "constraints" interface that edits it, and the reading
// of targets and weights that their blends are built on.
#pragma once

#include <vector>

#include "constraints/target_blend.h"
#include "host/core/control.h"
#include "host/params/iparamb2.h"
#include "host/script/fp_interface.h"
#include "plugin/class_table.h"

class INode;

namespace marvolith {

/// Parameters shared by the blocks "params" (block id 0) of the three classes.
enum TargetConstraintParam : ParamID {
  kTargetWeight = 0,     ///< float table, animatable, 0..100, default 50 per entry
  kTargetList = 1,       ///< node table
  kTargetRelative = 2,   ///< bool: keep the offset each target had when added
  kTargetOffset = 3,     ///< ParentConstraint: matrix table, one offset per target
  kTargetLocalWorld = 3  ///< ScaleConstraint, TransformConstraint: 0 local, 1 world
};
inline constexpr BlockID kTargetConstraintParams = 0;

/// Function ids of the "constraints" interface. Indices are 0-based here, 1-based in scripts.
enum TargetConstraintFunction : FunctionID {
  kGetNumTargets = 0,
  kGetNode = 1,
  kGetWeight = 2,
  kSetWeight = 3,
  kAppendTarget = 4,
  kDeleteTarget = 5,
  kGetOffset = 6,  ///< ParentConstraint only; not in the published table
  kSetOffset = 7,  ///< ParentConstraint only; not in the published table
};

/// The published interface "constraints" (its id is the class's Class_ID pair).
class ITargetConstraint : public FPMixinInterface {
 public:
  /// Entries of `target_list`; 0 without a block. Published as the index of the last entry, so
  /// that scripts, which see indices one higher, read the count.
  virtual int GetNumTargets() = 0;
  /// Node of entry i; null out of range or for a deleted target.
  virtual INode* GetNode(int i) = 0;
  /// `weight` of entry i at the current time; 0 out of range.
  virtual float GetWeight(int i) = 0;
  /// Writes `weight` of entry i at the current time (keyed in animate mode); false out of range.
  virtual bool SetWeight(int i, float weight) = 0;
  /// Adds node with weight at the end of the list. False without a block, for a node already in
  /// the list, and for one that depends on this controller (a loop). A null node is a target
  /// that counts as the identity. Undoable.
  virtual bool AppendTarget(INode* node, float weight) = 0;
  /// Removes entry i from every table that has it; false without a block or for a negative i.
  /// Undoable.
  virtual bool DeleteTarget(int i) = 0;

 protected:
  FPStatus Dispatch(FunctionID fid, FPParams& p, FPValue& result) override;
};

/// The functions of the published table, shared by the three classes' descriptors.
std::vector<FPFunctionDef> TargetConstraintFunctions();

/// Base of ParentConstraint, ScaleConstraint and TransformConstraint: reference 0 is the block,
/// which holds the targets and weights. Notifications are ignored while the list is edited.
class TargetConstraint : public LockableControl, public ITargetConstraint {
 public:
  /// The class's descriptor.
  virtual MarvolithClassDesc* Desc() const = 0;

  Class_ID ClassID() override { return Desc()->ClassID(); }
  SClass_ID SuperClassID() override { return Desc()->SuperClassID(); }
  void GetClassName(MSTR& s, bool localized = true) const override;
  BaseInterface* GetInterface(Interface_ID id) override;
  using LockableControl::GetInterface;

  int NumParamBlocks() override { return 1; }
  IParamBlock2* GetParamBlock(int i) override { return i == 0 ? pblock_ : nullptr; }
  IParamBlock2* GetParamBlockByID(BlockID id) override;
  IParamBlock2* ParamBlock() const { return pblock_; }

  /// While off, REFMSG_CHANGE from the block answers REF_SUCCEED at once. The block's keyable
  /// query (REFMSG_KEYABLE_QUERY) is answered "keyable" and stops here.
  RefResult NotifyRefChanged(const Interval& change_int,
                             RefTargetHandle target,
                             PartID& part_id,
                             RefMessage message,
                             bool propagate) override;

  // ITargetConstraint
  int GetNumTargets() override;
  INode* GetNode(int i) override;
  float GetWeight(int i) override;
  bool SetWeight(int i, float weight) override;
  bool AppendTarget(INode* node, float weight) override;
  bool DeleteTarget(int i) override;

  /// Weight of entry i at t, narrowing valid: `weight`[i], or 1 for an entry beyond the weights.
  float WeightAt(int i, TimeValue t, Interval& valid);
  /// Node of entry i (null when deleted or out of range).
  INode* TargetNode(int i);
  /// The transform of entry i's node at t, narrowing valid: world, or relative to the node's
  /// parent when local; the identity without a node.
  Matrix3 TargetTransform(int i, TimeValue t, bool local, Interval& valid);

 protected:
  /// What a class adds to AppendTarget: called inside its hold, after the checks, before the node
  /// and weight are appended (the parent computes the new offset here).
  virtual void BeforeAppend(INode* node, TimeValue t) {}
  /// Called after a target was added or deleted, still inside the hold.
  virtual void TargetsChanged() {}
  /// Brings the other tables of the block to the count of `target_list`.
  virtual void MatchTableCounts();
  /// Text of the undo entries of AppendTarget and DeleteTarget.
  virtual const char* HoldName() const { return "Constraint Targets"; }

  void SetReference(int i, RefTargetHandle target) override;

  IParamBlock2* pblock_ = nullptr;
  bool notify_enabled_ = true;
};

/// Turns a constraint's notifications off for a scope.
class TargetEditScope {
 public:
  explicit TargetEditScope(bool& enabled) : enabled_(enabled), was_(enabled) { enabled_ = false; }
  ~TargetEditScope() { enabled_ = was_; }
  TargetEditScope(const TargetEditScope&) = delete;
  TargetEditScope& operator=(const TargetEditScope&) = delete;

 private:
  bool& enabled_;
  bool was_;
};

}  // namespace marvolith
