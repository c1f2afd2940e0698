// Copyright Marvolith contributors.
#include "constraints/block_constraint.h"

#include "host/undo/hold.h"
#include "support/hold_record.h"
#include "support/lock_chunk.h"
#include "support/track_assign.h"

namespace marvolith {

void BlockConstraint::GetClassName(MSTR& s, bool) const {
  s = ClassNameOf(GetClassDesc()->Index());
}

MSTR BlockConstraint::SubAnimName(int i, bool) { return i == 0 ? "Parameters" : MSTR(); }

IParamBlock2* BlockConstraint::GetParamBlockByID(BlockID id) {
  return pblock_ && pblock_->ID() == id ? pblock_ : nullptr;
}

void BlockConstraint::SetReference(int i, RefTargetHandle target) {
  // Anything but a block is refused (the slot stays empty), as the loader expects.
  if (i == 0) {
    pblock_ = target && target->SuperClassID() == PARAMETER_BLOCK2_CLASS_ID
                  ? static_cast<IParamBlock2*>(target)
                  : nullptr;
  }
}

void BlockConstraint::SetLocked(bool locked, bool) {
  if (locked == locked_) return;
  PutStateRestore(this, "Lock Track");
  locked_ = locked;
  NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
}

void BlockConstraint::Copy(Control* from) {
  if (from && from != this) SetLocked(IsTrackLocked(from));
}

IOResult BlockConstraint::Save(ISave* isave) { return SaveLockChunk(isave, locked_); }

IOResult BlockConstraint::Load(ILoad* iload) { return LoadLockOnly(iload, locked_); }

void BlockConstraint::CloneInto(BlockConstraint* c, RemapDir& remap) {
  c->ReplaceReference(0, remap.CloneRef(pblock_));
  c->locked_ = locked_;
  BaseClone(this, c, remap);
}

}  // namespace marvolith
