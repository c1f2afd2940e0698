// Copyright Marvolith contributors.
#include "host/core/weak_ref.h"

#include <utility>

#include "host/base/scoped_flag.h"
#include "host/io/chunk_io.h"
#include "host/undo/hold.h"

namespace {

// More entries than this in one slot of a file is damage, not a rig.
constexpr ULONG kMaxLoadedEntries = 1u << 16;

}  // namespace

RefTargMonitorRefMaker::RefTargMonitorRefMaker(IRefTargMonitor& monitor, RefTargetHandle target)
    : monitor_(monitor) {
  SetRef(target);
}

RefTargMonitorRefMaker::~RefTargMonitorRefMaker() {
  if (target_) RefAccess::Relink(this, 0, nullptr);
}

void RefTargMonitorRefMaker::SetRef(RefTargetHandle target) {
  if (target == target_) return;
  // A deleted target is not watched: it can only come back through undo, which relinks the
  // slot it had.
  if (target && target->TestAFlag(A_IS_DELETED)) target = nullptr;
  RefAccess::Relink(this, 0, target);
}

RefResult RefTargMonitorRefMaker::NotifyRefChanged(const Interval& change_int,
                                                   RefTargetHandle target, PartID& part_id,
                                                   RefMessage message, bool propagate) {
  monitor_.ProcessRefTargMonitorMsg(change_int, target, part_id, message, target == target_,
                                    propagate, this);
  return REF_SUCCEED;
}

// Undo of a change of a weak owner's table: the watched targets of every slot, by handle.
class WeakSlotsRestore : public RestoreObj {
 public:
  explicit WeakSlotsRestore(WeakRefOwner* owner)
      : owner_(Animatable::GetHandleByAnim(dynamic_cast<Animatable*>(owner))),
        before_(owner->GetLayout()) {}
  void Restore(int is_undo) override {
    WeakRefOwner* owner = Find();
    if (!owner) return;
    if (is_undo) after_ = owner->GetLayout();
    owner->SetLayout(before_);
  }
  void Redo() override {
    if (WeakRefOwner* owner = Find()) owner->SetLayout(after_);
  }
  MSTR Description() override { return "Weak references"; }

 private:
  WeakRefOwner* Find() const {
    return dynamic_cast<WeakRefOwner*>(Animatable::FindAnimIncludingDeleted(owner_));
  }
  AnimHandle owner_;
  WeakRefOwner::Layout before_;
  WeakRefOwner::Layout after_;
};

WeakRefOwner::WeakRefOwner(int num_slots)
    : slots_(static_cast<size_t>(num_slots < 0 ? 0 : num_slots)) {}

WeakRefOwner::~WeakRefOwner() {
  // Unlinking a monitor must not put records into a hold that outlives this object.
  HoldSuspend quiet;
  for (auto& slot : slots_) {
    for (RefTargMonitorRefMaker* m : slot) delete m;
  }
  slots_.clear();
}

int WeakRefOwner::WeakCount(int slot) const {
  return slot >= 0 && slot < NumWeakSlots() ? slots_[static_cast<size_t>(slot)].Count() : 0;
}

RefTargetHandle WeakRefOwner::GetWeakRef(int slot, int i) const {
  if (i < 0 || i >= WeakCount(slot)) return nullptr;
  RefTargMonitorRefMaker* m = slots_[static_cast<size_t>(slot)][i];
  RefTargetHandle t = m ? m->GetRef() : nullptr;
  return t && !t->TestAFlag(A_IS_DELETED) ? t : nullptr;
}

RefTargMonitorRefMaker* WeakRefOwner::MakeMonitor(RefTargetHandle target) {
  return new RefTargMonitorRefMaker(*this, target);
}

bool WeakRefOwner::SetWeakRef(int slot, int i, RefTargetHandle target) {
  if (i < 0 || i >= WeakCount(slot)) return false;
  RefTargMonitorRefMaker*& m = slots_[static_cast<size_t>(slot)][i];
  if (m && m->GetRef() == target) return true;
  HoldLayout();
  if (!m) m = MakeMonitor(nullptr);
  m->SetRef(target);
  return true;
}

int WeakRefOwner::AppendWeakRef(int slot, RefTargetHandle target) {
  if (slot < 0 || slot >= NumWeakSlots()) return -1;
  HoldLayout();
  return slots_[static_cast<size_t>(slot)].Append(MakeMonitor(target));
}

bool WeakRefOwner::DeleteWeakRef(int slot, int i) {
  if (i < 0 || i >= WeakCount(slot)) return false;
  HoldLayout();
  auto& tab = slots_[static_cast<size_t>(slot)];
  delete tab[i];
  tab.Delete(i, 1);
  return true;
}

bool WeakRefOwner::SetWeakCount(int slot, int count) {
  if (slot < 0 || slot >= NumWeakSlots() || count < 0) return false;
  auto& tab = slots_[static_cast<size_t>(slot)];
  if (tab.Count() == count) return true;
  HoldLayout();
  Resize(tab, count);
  return true;
}

void WeakRefOwner::Resize(Tab<RefTargMonitorRefMaker*>& tab, int count) {
  for (int i = count; i < tab.Count(); ++i) delete tab[i];
  const int old = tab.Count();
  tab.SetCount(count);
  for (int i = old; i < count; ++i) tab[i] = MakeMonitor(nullptr);
}

WeakRefOwner::Layout WeakRefOwner::GetLayout() const {
  Layout out(slots_.size());
  for (size_t s = 0; s < slots_.size(); ++s) {
    for (RefTargMonitorRefMaker* m : slots_[s])
      out[s].push_back(Animatable::GetHandleByAnim(m ? m->GetRef() : nullptr));
  }
  return out;
}

void WeakRefOwner::SetLayout(const Layout& layout) {
  for (size_t s = 0; s < slots_.size() && s < layout.size(); ++s) {
    auto& tab = slots_[s];
    const int want = static_cast<int>(layout[s].size());
    Resize(tab, want);
    for (int i = 0; i < want; ++i) {
      auto* target = static_cast<ReferenceTarget*>(
          Animatable::FindAnimIncludingDeleted(layout[s][static_cast<size_t>(i)]));
      tab[i]->SetRef(target);
    }
  }
}

void WeakRefOwner::HoldLayout() {
  // A record per change, not per hold: the owner's own records use its A_HELD flag.
  if (theHold.Holding() && dynamic_cast<Animatable*>(this))
    theHold.Put(new WeakSlotsRestore(this));
}

bool WeakRefOwner::Locate(RefTargMonitorRefMaker* caller, int& slot, int& index) const {
  for (size_t s = 0; s < slots_.size(); ++s) {
    const int i = slots_[s].Find(caller);
    if (i >= 0) {
      slot = static_cast<int>(s);
      index = i;
      return true;
    }
  }
  return false;
}

IOResult WeakRefOwner::SaveWeakSlots(ISave* isave, std::uint16_t chunk_id) {
  isave->BeginChunk(chunk_id);
  ULONG written = 0;
  for (const auto& tab : slots_) {
    const std::int32_t n = tab.Count();
    if (isave->Write(&n, sizeof(n), &written) != IO_OK) return IO_ERROR;
  }
  isave->EndChunk();
  return IO_OK;
}

IOResult WeakRefOwner::LoadWeakSlots(ILoad* iload) {
  ULONG read = 0;
  for (auto& tab : slots_) {
    std::int32_t n = 0;
    if (iload->Read(&n, sizeof(n), &read) != IO_OK || read != sizeof(n)) return IO_ERROR;
    if (n < 0 || static_cast<ULONG>(n) > kMaxLoadedEntries) return IO_ERROR;
    Resize(tab, 0);  // what the file gives starts empty
    Resize(tab, n);
  }
  return IO_OK;
}

int WeakRefOwner::NumIndirectRefs() {
  int n = 0;
  for (const auto& tab : slots_) n += tab.Count();
  return n;
}

RefTargetHandle WeakRefOwner::GetIndirectReference(int i) {
  for (size_t s = 0; s < slots_.size(); ++s) {
    if (i < slots_[s].Count()) return GetWeakRef(static_cast<int>(s), i);
    i -= slots_[s].Count();
  }
  return nullptr;
}

void WeakRefOwner::SetIndirectReference(int i, RefTargetHandle target) {
  if (i < 0) return;
  for (auto& tab : slots_) {
    if (i < tab.Count()) {
      if (!tab[i]) tab[i] = MakeMonitor(nullptr);
      tab[i]->SetRef(target);
      return;
    }
    i -= tab.Count();
  }
}

RefResult WeakRefOwner::ProcessRefTargMonitorMsg(const Interval&, RefTargetHandle target,
                                                 PartID& part_id, RefMessage message,
                                                 bool from_monitored_target, bool,
                                                 RefTargMonitorRefMaker* caller) {
  if (!from_monitored_target) return REF_SUCCEED;
  // Each guard drops what arrives while its kind is handled: what the owner does about a
  // change can change the watched target again, and a weak edge must not loop.
  bool* guard = &in_process_;
  if (message == REFMSG_TARGET_DELETED) guard = &in_deleted_;
  if (message == REFMSG_NODE_HANDLE_CHANGED) guard = &in_handle_changed_;
  if (*guard) return REF_SUCCEED;
  ScopedFlag busy(*guard);
  int slot = 0;
  int index = 0;
  if (!Locate(caller, slot, index)) return REF_SUCCEED;
  WeakRefChanged(slot, index, target, part_id, message);
  return REF_SUCCEED;
}
