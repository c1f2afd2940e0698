// Copyright Marvolith contributors.
// The undo record of a controller whose own data fits one State value (GetState/SetState).
#pragma once

#include "host/undo/hold.h"
#include "support/hold_record.h"

namespace host_controllers_internal {

/// Keeps the before state of C (by handle) and, on undo, the after state for redo. C provides
/// State GetState() const, SetState(const State&) and StateRestored(), which tells dependents.
template <typename C>
class StateRestore : public RestoreObj {
 public:
  explicit StateRestore(C* c, const char* description)
      : handle_(Animatable::GetHandleByAnim(c)), before_(c->GetState()), text_(description) {}
  void Restore(int is_undo) override {
    C* c = Get();
    if (!c) return;
    if (is_undo) after_ = c->GetState();
    c->SetState(before_);
    c->StateRestored();
  }
  void Redo() override {
    C* c = Get();
    if (!c) return;
    c->SetState(after_);
    c->StateRestored();
  }
  void EndHold() override {
    if (C* c = Get()) c->ClearAFlag(A_HELD);
  }
  MSTR Description() override { return text_; }

 private:
  C* Get() { return static_cast<C*>(Animatable::GetAnimByHandle(handle_)); }
  AnimHandle handle_;
  typename C::State before_;
  typename C::State after_;
  const char* text_;
};

/// Puts a StateRestore of c once per hold (the A_HELD idiom).
template <typename C>
void HoldControllerState(C* c, const char* description) {
  if (HoldWantsRecord(c)) theHold.Put(new StateRestore<C>(c, description));
}

}  // namespace host_controllers_internal
