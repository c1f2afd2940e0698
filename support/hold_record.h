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

/// Undo record of an object's own state, for a class C with a copyable `State`, `GetState()`,
/// `SetState(const State&)` and `StateRestored()` (which tells the dependents). It keeps the
/// object's handle, not a pointer, and the state before and after the hold.
template <typename C>
class StateRestore : public RestoreObj {
 public:
  StateRestore(C* c, const char* name)
      : handle_(Animatable::GetHandleByAnim(c)), before_(c->GetState()), name_(name) {}
  void Restore(int is_undo) override {
    C* c = Get();
    if (!c) return;
    if (is_undo) after_ = c->GetState();
    Put(c, before_);
  }
  void Redo() override {
    if (C* c = Get()) Put(c, after_);
  }
  void EndHold() override {
    if (C* c = Get()) c->ClearAFlag(A_HELD);
  }
  MSTR Description() override { return name_; }

 private:
  static void Put(C* c, const typename C::State& s) {
    c->SetState(s);
    c->ClearAFlag(A_HELD);
    c->StateRestored();
  }
  C* Get() { return dynamic_cast<C*>(Animatable::GetAnimByHandle(handle_)); }
  AnimHandle handle_;
  typename C::State before_;
  typename C::State after_{};
  const char* name_;
};

/// Puts a StateRestore of c (named name) when a record is wanted now (see HoldWantsRecord).
template <typename C>
void PutStateRestore(C* c, const char* name) {
  if (HoldWantsRecord(c)) theHold.Put(new StateRestore<C>(c, name));
}
