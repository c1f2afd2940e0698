// Copyright Marvolith contributors.
// BlockConstraint: the shared frame of the aim and stretch constraints, controllers whose
// parameters live in one block and that hold no sub-controller.
#pragma once

#include "host/core/control.h"
#include "host/io/chunk_io.h"
#include "host/params/iparamb2.h"
#include "plugin/class_table.h"

namespace marvolith {

/// A constraint whose parameters live in one block at reference 0 (also sub-anim 0,
/// "Parameters", not assignable), with the locked flag.
///
/// The value is computed, so SetValue does nothing, locked or not, and there are no keys.
/// SetLocked is undoable. Copy adopts only the locked state of the controller replaced. Saves
/// the locked flag as one byte in chunk kLockChunkID; loading skips unknown chunks and answers
/// IO_ERROR for a locked chunk of another size.
class BlockConstraint : public LockableControl {
 public:
  /// The class's descriptor (identity, names, blocks); never null.
  virtual MarvolithClassDesc* GetClassDesc() const = 0;

  Class_ID ClassID() override { return GetClassDesc()->ClassID(); }
  SClass_ID SuperClassID() override { return GetClassDesc()->SuperClassID(); }
  /// The descriptor's class name ("" while the module's strings are not reachable).
  void GetClassName(MSTR& s, bool localized = true) const override;

  int NumRefs() override { return 1; }
  RefTargetHandle GetReference(int i) override { return i == 0 ? pblock_ : nullptr; }
  int NumSubs() override { return 1; }
  Animatable* SubAnim(int i) override { return i == 0 ? pblock_ : nullptr; }
  MSTR SubAnimName(int i, bool localized = true) override;
  int SubNumToRefNum(int sub_num) override { return sub_num == 0 ? 0 : -1; }
  int NumParamBlocks() override { return 1; }
  IParamBlock2* GetParamBlock(int i) override { return i == 0 ? pblock_ : nullptr; }
  IParamBlock2* GetParamBlockByID(BlockID id) override;
  RefResult NotifyRefChanged(const Interval&, RefTargetHandle, PartID&, RefMessage, bool) override {
    return REF_SUCCEED;
  }

  bool IsKeyable() override { return false; }
  void SetValue(TimeValue, void*, int = 1, GetSetMethod = CTRL_ABSOLUTE) override {}
  /// Sets the flag, recording the old one when a hold is open; dependents are told.
  void SetLocked(bool locked, bool set_children = false) override;
  void Copy(Control* from) override;
  IOResult Save(ISave* isave) override;
  IOResult Load(ILoad* iload) override;

  /// The parameter block; null for a controller made for loading until its file is linked.
  IParamBlock2* ParamBlock() const { return pblock_; }
  /// What undo records keep: the locked flag (no record, no message when set).
  struct State {
    bool locked = false;
  };
  State GetState() const { return {locked_}; }
  void SetState(const State& s) { locked_ = s.locked; }
  void StateRestored() { NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE); }

 protected:
  void SetReference(int i, RefTargetHandle target) override;
  /// Completes clone c of this: the block through remap, the locked flag, BaseClone.
  void CloneInto(BlockConstraint* c, RemapDir& remap);

  IParamBlock2* pblock_ = nullptr;
};

}  // namespace marvolith
