// Copyright Marvolith contributors.
#include "host/core/animatable.h"

#include <vector>

namespace {
// Slot handle-1 holds the object with that handle; a slot is nulled, never reused, on deletion.
// Never destroyed: objects freed during static destruction (undo records dropped by theHold's
// destructor) still unregister here.
std::vector<Animatable*>& HandleTable() {
  static auto* table = new std::vector<Animatable*>();
  return *table;
}
int& Live() {
  static int live = 0;
  return live;
}
}  // namespace

Animatable::Animatable() {
  auto& table = HandleTable();
  table.push_back(this);
  handle_ = table.size();
  ++Live();
}

Animatable::~Animatable() {
  HandleTable()[handle_ - 1] = nullptr;
  --Live();
}

AnimHandle Animatable::GetHandleByAnim(const Animatable* anim) {
  return anim ? anim->handle_ : 0;
}

Animatable* Animatable::GetAnimByHandle(AnimHandle handle) {
  auto& table = HandleTable();
  if (handle == 0 || handle > table.size()) return nullptr;
  Animatable* anim = table[handle - 1];
  if (anim && anim->TestAFlag(A_IS_DELETED)) return nullptr;
  return anim;
}

Animatable* Animatable::FindAnimIncludingDeleted(AnimHandle handle) {
  auto& table = HandleTable();
  if (handle == 0 || handle > table.size()) return nullptr;
  return table[handle - 1];
}

int Animatable::LiveCount() { return Live(); }
