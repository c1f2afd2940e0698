// Copyright Marvolith contributors.
// Assigning a controller into a slot, as the host does it: the newcomer takes over the value and
// locked state of the one it replaces.
#pragma once

#include "host/core/control.h"

/// What the host does when incoming takes the place of outgoing in the scene (a node's transform
/// controller, a sub-controller, a list slot, a parameter's track): incoming adopts outgoing's
/// value and locked state through Copy. Nothing for a null controller, a slot that was empty, or
/// a controller assigned where it already is. Call it before the reference is replaced, while
/// outgoing still evaluates in its place.
inline void CopyReplaced(Control* incoming, Animatable* outgoing) {
  auto* old = outgoing ? static_cast<Control*>(outgoing->GetInterface(I_CONTROL)) : nullptr;
  if (incoming && old && incoming != old) incoming->Copy(old);
}

/// The locked state of any controller: false when it has no locked-track interface.
inline bool IsTrackLocked(Animatable* anim) {
  auto* lt = anim ? static_cast<ILockedTrack*>(anim->GetInterface(I_LOCKED)) : nullptr;
  return lt && lt->GetLocked();
}

/// Puts incoming into maker's reference slot ref in place of outgoing: refused (false) for a null
/// controller, one of another super class than super, or one that would make a reference loop;
/// otherwise incoming copies outgoing (CopyReplaced) and takes the slot. The caller tells its
/// dependents.
inline bool ReplaceTrack(ReferenceMaker* maker, int ref, Control* incoming, Animatable* outgoing,
                         SClass_ID super) {
  if (!incoming || incoming->SuperClassID() != super) return false;
  if (incoming->TestForLoop(FOREVER, maker) == REF_FAIL) return false;
  CopyReplaced(incoming, outgoing);
  return maker->ReplaceReference(ref, incoming) == REF_SUCCEED;
}
