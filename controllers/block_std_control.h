// Copyright Marvolith contributors.
// BlockStdControl: the shared frame of the computed single-value tracks (float math and twist
// poses): one parameter block, the locked flag, and the save, load and clone of both.
#pragma once

#include "host/controllers/std_control.h"
#include "host/io/chunk_io.h"
#include "host/params/iparamb2.h"
#include "host/registry/class_desc.h"
#include "plugin/class_table.h"
#include "support/lock_chunk.h"

namespace marvolith {

/// A StdControl whose parameters live in one block at reference 0 (also sub-anim 0, not
/// assignable). Subclasses compute GetValueLocalTime from the block.
///
/// Saves the locked flag as one byte in chunk kLockChunkID; loading skips unknown chunks and
/// answers IO_ERROR for a locked chunk of another size. Copy adopts only the locked state of the
/// controller replaced, since the value is computed.
class BlockStdControl : public StdControl, public ILockedTrackImp {
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
  void* GetInterface(ULONG id) override;
  using StdControl::GetInterface;
  RefResult NotifyRefChanged(const Interval& change_int,
                             RefTargetHandle target,
                             PartID& part_id,
                             RefMessage message,
                             bool propagate) override {
    return REF_SUCCEED;
  }

  void Copy(Control* from) override;
  IOResult Save(ISave* isave) override;
  IOResult Load(ILoad* iload) override;

 protected:
  void SetReference(int i, RefTargetHandle target) override;
  /// Completes clone c of this: the block through remap, the locked flag, BaseClone.
  void CloneInto(BlockStdControl* c, RemapDir& remap);

  IParamBlock2* pblock_ = nullptr;
};

}  // namespace marvolith
