// Copyright Marvolith contributors.
// The one-record-per-hold idiom of undo records.
#pragma once

#include "host/core/animatable.h"
#include "host/undo/hold.h"

/// True when a record for anim should be put now (holding, not suspended, A_HELD clear); sets
/// A_HELD. Records clear it again in EndHold.
inline bool HoldWantsRecord(Animatable* anim) {
  if (!anim || !theHold.Holding() || anim->TestAFlag(A_HELD)) return false;
  anim->SetAFlag(A_HELD);
  return true;
}
