// Copyright Marvolith contributors.
// CurveIKControl: the transform controller of a joint that a CurveIKChain drives. It reads the
// joint's solved transform from the chain and holds the joint's place on the curve.
#pragma once

#include "host/io/chunk_io.h"
#include "plugin/class_table.h"
#include "support/compound_control.h"

class IParamBlock2;
class INode;

namespace marvolith {

class CurveIKChain;

/// Parameters of CurveIKControl's block "params" (block id 0, reference 0).
enum CurveIKControlParam : ParamID {
  kCurveControlChainNode = 0,  ///< node, read-only: the chain's node
  kCurveControlIndex = 1,      ///< index, read-only: the joint's index in the chain
  kCurveControlPercent = 2,    ///< fraction, animatable: place on the curve (0 start, 1 end)
  kCurveControlSquash = 3,     ///< fraction, animatable, default 1: weight of the squash here
};
inline constexpr BlockID kCurveIKControlParams = 0;

/// The joint controller ("CurveIK Control", super class CTRL_MATRIX3_CLASS_ID).
///
/// References and sub-anims: 0 the block ("Parameters"), 1 an optional transform controller
/// ("Offset") that offsets the joint from the curve: it evaluates with the solved matrix as its
/// parent. No sub-anim is assignable.
///
/// GetValue writes the chain's solved transform of the joint (kept as the last solved matrix),
/// then applies the offset controller; nothing happens without a block or a chain node whose
/// controller is a CurveIKChain. A change of percent or squash drops the chain's solve, since
/// the chain reads them. SetValue, unless locked: a relative edit while a point or tangent node
/// of the chain is selected is ignored (the joint follows those nodes); otherwise the packet goes
/// to the offset controller with the solved matrix as its parent. The rotation controller is the
/// offset's, or the shared gimbal proxy in the frame of the solved matrix while the gimbal
/// conditions hold. Saves its locked flag (the block and offset are references).
class CurveIKControl : public CompoundControl {
 public:
  /// loading true makes no block and no offset controller (the file links them).
  explicit CurveIKControl(bool loading = false);

  struct State {
    bool locked = false;
  };
  State GetState() const { return {locked_}; }
  void SetState(const State& s) { locked_ = s.locked; }
  void StateRestored() { NotifyChange(); }

  Class_ID ClassID() override;
  SClass_ID SuperClassID() override { return CTRL_MATRIX3_CLASS_ID; }
  void GetClassName(MSTR& s, bool localized = true) const override;

  int NumSubs() override { return 2; }
  Animatable* SubAnim(int i) override { return GetReference(i); }
  MSTR SubAnimName(int i, bool localized = true) override;
  bool CanAssignController(int) override { return false; }
  int SubNumToRefNum(int i) override { return i >= 0 && i < 2 ? i : -1; }
  int NumRefs() override { return 2; }
  RefTargetHandle GetReference(int i) override;
  int NumParamBlocks() override { return 1; }
  IParamBlock2* GetParamBlock(int i) override { return i == 0 ? pblock_ : nullptr; }
  IParamBlock2* GetParamBlockByID(BlockID id) override;

  Control* GetPositionController() override;
  Control* GetRotationController() override;
  Control* GetScaleController() override;

  void GetValue(TimeValue t,
                void* val,
                Interval& valid,
                GetSetMethod method = CTRL_ABSOLUTE) override;
  void SetValue(TimeValue t,
                void* val,
                int commit = 1,
                GetSetMethod method = CTRL_ABSOLUTE) override;
  RefResult NotifyRefChanged(const Interval&, RefTargetHandle, PartID&, RefMessage, bool) override;
  /// Adopts only from's locked state: the joint's place comes from the chain.
  void Copy(Control* from) override;
  RefTargetHandle Clone(RemapDir& remap) override;
  IOResult Save(ISave* isave) override;
  IOResult Load(ILoad* iload) override;

  /// The chain of curveikchain_node, or null.
  CurveIKChain* Chain();
  /// The offset controller, or null.
  Control* Offset() const { return sub_; }
  /// Puts c (a transform controller, or null) in the offset slot, c adopting the old offset's
  /// value; false for another kind or one that would close a loop. Undoable.
  bool SetOffset(Control* c);
  /// The last matrix read from the chain (the identity before any).
  const Matrix3& LastSolved() const { return last_solved_; }
  IParamBlock2* ParamBlock() const { return pblock_; }

 protected:
  void SetReference(int i, RefTargetHandle target) override;
  int NumKeySubs() override { return 1; }
  Control* KeySub(int i) override { return i == 0 ? sub_ : nullptr; }
  void HoldState() override;

 private:
  IParamBlock2* pblock_ = nullptr;
  Control* sub_ = nullptr;
  Matrix3 last_solved_;
  bool telling_chain_ = false;  // the chain's answer must not come back as a new change
};

/// The class descriptor (module table index 13).
ClassDesc2* GetCurveIKControlDesc();

}  // namespace marvolith
