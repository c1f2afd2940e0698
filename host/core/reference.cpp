// Copyright Marvolith contributors.
#include "host/core/reference.h"

#include <algorithm>
#include <unordered_set>

#include "host/core/cust_attrib.h"
#include "host/core/diagnostics.h"
#include "host/undo/hold.h"

namespace {

// Undo of one slot change. Keeps both targets alive while the record exists, so that undo can
// bring back a target that lost its last reference.
class RefChangeRestore : public RestoreObj {
 public:
  RefChangeRestore(ReferenceMaker* maker, int which, RefTargetHandle old_target,
                   RefTargetHandle new_target)
      : maker_(Animatable::GetHandleByAnim(maker)),
        which_(which),
        old_(old_target),
        new_(new_target) {
    if (old_) old_->IncHoldCount();
    if (new_) new_->IncHoldCount();
  }
  ~RefChangeRestore() override {
    // The new target first: an object created during the hold and dropped again is freed before
    // the one it replaced is considered.
    if (new_) new_->DecHoldCount();
    if (old_) old_->DecHoldCount();
  }
  void Restore(int) override { Set(old_); }
  void Redo() override { Set(new_); }
  MSTR Description() override { return "Reference change"; }

 private:
  void Set(RefTargetHandle target) {
    auto* maker = static_cast<ReferenceMaker*>(Animatable::FindAnimIncludingDeleted(maker_));
    if (!maker) return;
    RefTargetHandle occupant = maker->GetReference(which_);
    if (occupant == target) return;
    RefAccess::Relink(maker, which_, target);
    NotifySlotChanged(maker);
    // A change made with the hold suspended left a target here that no record knows: once
    // displaced it belongs to nobody, and goes as ReplaceReference would have let it go.
    if (occupant && occupant != old_ && occupant != new_) occupant->MaybeAutoDelete();
  }
  AnimHandle maker_;
  int which_;
  RefTargetHandle old_;
  RefTargetHandle new_;
};

// Keeps a target alive for a scope, also when an exception passes.
class KeepAlive {
 public:
  explicit KeepAlive(ReferenceTarget* target) : target_(target) { target_->IncHoldCount(); }
  ~KeepAlive() { target_->DecHoldCount(); }
  KeepAlive(const KeepAlive&) = delete;
  KeepAlive& operator=(const KeepAlive&) = delete;

 private:
  ReferenceTarget* target_;
};

int g_ref_msgs_disabled = 0;
std::uint64_t g_last_broadcast = 0;
std::uint64_t g_deliveries = 0;

// Undo of a target deletion: the object comes back to life (its references come back through
// the records put after this one).
class DeleteRestore : public RestoreObj {
 public:
  explicit DeleteRestore(ReferenceTarget* target) : target_(target) { target_->IncHoldCount(); }
  ~DeleteRestore() override { target_->DecHoldCount(); }
  void Restore(int) override { target_->ClearAFlag(A_IS_DELETED); }
  void Redo() override { target_->SetAFlag(A_IS_DELETED); }
  MSTR Description() override { return "Delete"; }

 private:
  ReferenceTarget* target_;
};

// Changes slot which of maker with dependent bookkeeping and an undo record; no loop test and no
// deletion of the old target.
void SetSlot(ReferenceMaker* maker, int which, RefTargetHandle old_target,
             RefTargetHandle new_target) {
  if (theHold.Holding()) theHold.Put(new RefChangeRestore(maker, which, old_target, new_target));
  RefAccess::Relink(maker, which, new_target);
  NotifySlotChanged(maker);
}

}  // namespace

void DisableRefMsgs() { ++g_ref_msgs_disabled; }

void EnableRefMsgs() {
  MV_ASSERT(g_ref_msgs_disabled > 0);
  if (g_ref_msgs_disabled > 0) --g_ref_msgs_disabled;
}

bool RefMsgsDisabled() { return g_ref_msgs_disabled > 0; }

std::uint64_t RefMsgDeliveries() { return g_deliveries; }

void NotifySlotChanged(ReferenceMaker* maker) {
  if (!maker || !maker->IsRefTarget() || maker->TestAFlag(A_IS_DELETED) ||
      maker->TellsItsOwnSlotChanges())
    return;
  auto* target = static_cast<ReferenceTarget*>(maker);
  target->NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
  target->NotifyDependents(FOREVER, PART_ALL, REFMSG_SUBANIM_STRUCTURE_CHANGED);
}

void RefAccess::Relink(ReferenceMaker* maker, int i, RefTargetHandle target) {
  RefTargetHandle old = maker->GetReference(i);
  if (old == target) return;
  if (target) target->AddDependent(maker);
  maker->SetReference(i, target);
  if (old) old->RemoveDependent(maker);
}

bool RefAccess::RelinkChecked(ReferenceMaker* maker, int i, RefTargetHandle target) {
  if (!target || maker->GetReference(i)) return false;
  target->AddDependent(maker);
  maker->SetReference(i, target);
  if (maker->GetReference(i) == target) return true;
  target->RemoveDependent(maker);
  return false;
}

RefResult ReferenceMaker::ReplaceReference(int which, RefTargetHandle new_target, bool del_old) {
  if (which < 0 || which >= NumRefs()) return REF_FAIL;
  RefTargetHandle old = GetReference(which);
  if (old == new_target) return REF_SUCCEED;
  if (new_target && new_target->TestForLoop(FOREVER, this) == REF_FAIL) {
    LogLine("Marvolith: a reference was refused because it would close a loop.\n");
    return REF_FAIL;
  }
  SetSlot(this, which, old, new_target);
  if (old && del_old) old->MaybeAutoDelete();
  return REF_SUCCEED;
}

RefResult ReferenceMaker::DeleteReference(int which) { return ReplaceReference(which, nullptr); }

RefResult ReferenceMaker::DeleteAllRefsFromMe() {
  for (int i = 0, n = NumRefs(); i < n; ++i) {
    if (GetReference(i)) ReplaceReference(i, nullptr, true);
  }
  return REF_SUCCEED;
}

int ReferenceMaker::FindRef(RefTargetHandle target) {
  for (int i = 0, n = NumRefs(); i < n; ++i) {
    if (GetReference(i) == target) return i;
  }
  return -1;
}

RefResult ReferenceTarget::NotifyDependents(const Interval& change_int, PartID part_id,
                                            RefMessage message, SClass_ID sclass, bool propagate,
                                            RefTargetHandle target) {
  if (dependents_.empty() || g_ref_msgs_disabled > 0) return REF_SUCCEED;
  Broadcast(change_int, part_id, message, sclass, propagate, target ? target : this,
            ++g_last_broadcast);
  return REF_SUCCEED;
}

void ReferenceTarget::Broadcast(const Interval& change_int, PartID part_id, RefMessage message,
                                SClass_ID sclass, bool propagate, RefTargetHandle from,
                                std::uint64_t broadcast) {
  if (dependents_.empty()) return;
  // Dependents may drop their references while they hear the message: walk a snapshot of
  // handles and skip those gone meanwhile.
  AnimHandle stack_buf[16];
  std::vector<AnimHandle> heap_buf;
  AnimHandle* handles = stack_buf;
  size_t count = 0;
  if (dependents_.size() > std::size(stack_buf)) {
    heap_buf.resize(dependents_.size());
    handles = heap_buf.data();
  }
  for (ReferenceMaker* maker : dependents_) {
    AnimHandle h = GetHandleByAnim(maker);
    if (std::find(handles, handles + count, h) == handles + count) handles[count++] = h;
  }
  for (size_t i = 0; i < count; ++i) {
    auto* maker = static_cast<ReferenceMaker*>(FindAnimIncludingDeleted(handles[i]));
    if (!maker) continue;
    if (sclass != NOTIFY_ALL && maker->SuperClassID() != sclass) continue;
    // A diamond brings the same broadcast to a maker along several paths; the first delivery
    // did the work unless this path carries parts the maker has not heard yet.
    if (maker->heard_broadcast_ == broadcast) {
      if ((part_id & ~maker->heard_parts_) == 0) continue;
      maker->heard_parts_ |= part_id;
    } else {
      maker->heard_broadcast_ = broadcast;
      maker->heard_parts_ = part_id;
    }
    PartID part = part_id;
    ++g_deliveries;
    RefResult r = maker->NotifyRefChanged(change_int, from, part, message, propagate);
    if (r == REF_STOP || !propagate || !maker->IsRefTarget()) continue;
    auto* next = static_cast<ReferenceTarget*>(maker);
    next->Broadcast(change_int, part, message, sclass, propagate, next, broadcast);
  }
}

RefResult ReferenceTarget::TestForLoop(const Interval&, RefMakerHandle maker) {
  if (!maker) return REF_SUCCEED;
  if (maker == this) return REF_FAIL;
  std::vector<ReferenceMaker*> stack{this};
  std::unordered_set<ReferenceMaker*> seen{this};
  while (!stack.empty()) {
    ReferenceMaker* m = stack.back();
    stack.pop_back();
    for (int i = 0, n = m->NumRefs(); i < n; ++i) {
      RefTargetHandle r = m->GetReference(i);
      if (!r || !m->IsRealDependency(r)) continue;
      if (r == maker) return REF_FAIL;
      if (seen.insert(r).second) stack.push_back(r);
    }
  }
  return REF_SUCCEED;
}

int ReferenceTarget::NumDependents() const {
  int n = 0;
  auto* self = const_cast<ReferenceTarget*>(this);
  for (size_t i = 0; i < dependents_.size(); ++i) {
    if (!dependents_[i]->IsRealDependency(self)) continue;
    if (std::find(dependents_.begin(), dependents_.begin() + i, dependents_[i]) ==
        dependents_.begin() + i)
      ++n;
  }
  return n;
}

bool ReferenceTarget::HasRealDependents() {
  return std::any_of(dependents_.begin(), dependents_.end(),
                     [this](ReferenceMaker* m) { return m->IsRealDependency(this); });
}

void ReferenceTarget::RemoveDependent(ReferenceMaker* maker) {
  auto it = std::find(dependents_.begin(), dependents_.end(), maker);
  MV_ASSERT(it != dependents_.end());
  if (it != dependents_.end()) dependents_.erase(it);
}

void ReferenceTarget::BaseClone(ReferenceTarget* from, ReferenceTarget* to, RemapDir& remap) {
  // The parts every class shares are copied here; a class's own data is copied by its Clone.
  if (!from || !to) return;
  CloneCustAttribs(from, to, remap);
}

void ReferenceTarget::DeleteMe() {
  if (TestAFlag(A_IS_DELETED)) return;
  // The custom attributes go with their owner (undoably, like the rest).
  DeleteCustAttribContainer();
  if (theHold.Holding()) theHold.Put(new DeleteRestore(this));
  SetAFlag(A_IS_DELETED);
  KeepAlive keep(this);  // through the dependents' reactions
  NotifyDependents(FOREVER, PART_ALL, REFMSG_TARGET_DELETED, NOTIFY_ALL, false);
  // Makers that kept their slot after hearing the message lose it now.
  while (!dependents_.empty()) {
    ReferenceMaker* maker = dependents_.front();
    int slot = maker->FindRef(this);
    MV_ASSERT(slot >= 0);
    if (slot < 0) {
      dependents_.erase(dependents_.begin());
      continue;
    }
    SetSlot(maker, slot, this, nullptr);
  }
  DeleteAllRefsFromMe();
}

void ReferenceTarget::MaybeAutoDelete() {
  if (hold_count_ > 0) return;
  if (TestAFlag(A_IS_DELETED)) {
    if (dependents_.empty()) FreeNow();
    return;
  }
  // Weak observers do not keep a target: deleting it tells them and empties their slots.
  if (HasRealDependents()) return;
  if (TestAFlag(A_LOCK_TARGET)) return;
  DeleteMe();
}

void ReferenceTarget::DecHoldCount() {
  MV_ASSERT(hold_count_ > 0);
  if (hold_count_ > 0) --hold_count_;
  if (hold_count_ > 0) return;
  MaybeAutoDelete();
}

void ReferenceTarget::FreeNow() {
  MV_ASSERT(dependents_.empty() && hold_count_ == 0);
  DeleteThis();
}

DependentIterator::DependentIterator(ReferenceTarget* target) {
  if (!target) return;
  for (ReferenceMaker* maker : target->dependents_) {
    if (std::find(makers_.begin(), makers_.end(), maker) == makers_.end()) makers_.push_back(maker);
  }
}

ReferenceMaker* DependentIterator::Next() {
  return next_ < makers_.size() ? makers_[next_++] : nullptr;
}

RemapDir::~RemapDir() {
  for (auto& [proc, owned] : procs_) {
    if (owned) delete proc;
  }
}

RefTargetHandle RemapDir::CloneRef(RefTargetHandle target) {
  if (!target) return nullptr;
  if (RefTargetHandle mapped = FindMapping(target)) return mapped;
  RefTargetHandle clone = target->Clone(*this);
  if (!clone) return target;
  AddEntry(target, clone);
  return clone;
}

RefTargetHandle RemapDir::FindMapping(RefTargetHandle from) {
  auto it = map_.find(from);
  return it == map_.end() ? nullptr : it->second;
}

void RemapDir::AddEntry(RefTargetHandle from, RefTargetHandle to) { map_[from] = to; }

void RemapDir::PatchPointer(RefTargetHandle* slot, RefTargetHandle original) {
  patches_.emplace_back(slot, original);
}

void RemapDir::AddPostPatchProc(PostPatchProc* proc, bool to_delete) {
  if (proc) procs_.emplace_back(proc, to_delete);
}

void RemapDir::Backpatch() {
  for (auto& [slot, original] : patches_) {
    RefTargetHandle mapped = FindMapping(original);
    *slot = mapped ? mapped : original;
  }
  patches_.clear();
  auto procs = std::move(procs_);
  procs_.clear();
  for (auto& [proc, owned] : procs) {
    proc->Proc(*this);
    if (owned) delete proc;
  }
}

RefTargetHandle CloneRefHierarchy(RefTargetHandle target) {
  RemapDir remap;
  RefTargetHandle clone = remap.CloneRef(target);
  remap.Backpatch();
  return clone;
}
