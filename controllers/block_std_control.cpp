// Copyright Marvolith contributors.
#include "controllers/block_std_control.h"

#include "host/io/chunk_io.h"
#include "support/lock_chunk.h"
#include "support/track_assign.h"

namespace marvolith {

void BlockStdControl::GetClassName(MSTR& s, bool) const {
  s = ClassNameOf(GetClassDesc()->Index());
}

MSTR BlockStdControl::SubAnimName(int i, bool) { return i == 0 ? "Parameters" : MSTR(); }

IParamBlock2* BlockStdControl::GetParamBlockByID(BlockID id) {
  return pblock_ && pblock_->ID() == id ? pblock_ : nullptr;
}

void* BlockStdControl::GetInterface(ULONG id) {
  if (id == I_LOCKED) return static_cast<ILockedTrack*>(this);
  return StdControl::GetInterface(id);
}

void BlockStdControl::SetReference(int i, RefTargetHandle target) {
  // Anything but a block is refused (the slot stays empty), as the loader expects.
  if (i == 0) {
    pblock_ = target && target->SuperClassID() == PARAMETER_BLOCK2_CLASS_ID
                  ? static_cast<IParamBlock2*>(target)
                  : nullptr;
  }
}

void BlockStdControl::Copy(Control* from) {
  if (from && from != this) SetLocked(IsTrackLocked(from));
}

IOResult BlockStdControl::Save(ISave* isave) { return SaveLockChunk(isave, locked_); }

IOResult BlockStdControl::Load(ILoad* iload) { return LoadLockOnly(iload, locked_); }

void BlockStdControl::CloneInto(BlockStdControl* c, RemapDir& remap) {
  c->ReplaceReference(0, remap.CloneRef(pblock_));
  c->locked_ = locked_;
  BaseClone(this, c, remap);
}

}  // namespace marvolith
