// Copyright Marvolith contributors.
// Weak references: observing targets (nodes, mostly) without keeping them, without taking part
// in loop tests, and without making them part of what a scene file must keep.
#pragma once

#include <cstdint>
#include <vector>

#include "host/core/reference.h"

class ISave;
class ILoad;
class RefTargMonitorRefMaker;

/// Hears the messages of targets watched through RefTargMonitorRefMaker.
class IRefTargMonitor {
 public:
  virtual ~IRefTargMonitor() = default;
  /// A message of the watched target. The answer is the monitor's; it never travels further,
  /// since a weak edge passes nothing on.
  virtual RefResult ProcessRefTargMonitorMsg(const Interval& change_int,
                                             RefTargetHandle target,
                                             PartID& part_id,
                                             RefMessage message,
                                             bool from_monitored_target,
                                             bool propagate,
                                             RefTargMonitorRefMaker* caller) = 0;
};

/// A maker with one weak reference, owned by its monitor. The target lists it as a dependent,
/// so it hears the target's messages, but the reference is not a real dependency: no loop is
/// tested through it and saving does not follow it.
class RefTargMonitorRefMaker : public ReferenceMaker {
 public:
  RefTargMonitorRefMaker(IRefTargMonitor& monitor, RefTargetHandle target);
  ~RefTargMonitorRefMaker() override;

  RefTargetHandle GetRef() { return target_; }
  /// Watches target instead (null: nothing). Not recorded for undo: the monitor records its own
  /// table.
  void SetRef(RefTargetHandle target);

  int NumRefs() override { return 1; }
  RefTargetHandle GetReference(int i) override { return i == 0 ? target_ : nullptr; }
  bool IsRealDependency(ReferenceTarget*) override { return false; }
  RefResult NotifyRefChanged(const Interval& change_int, RefTargetHandle target, PartID& part_id,
                             RefMessage message, bool propagate) override;

 protected:
  void SetReference(int i, RefTargetHandle target) override {
    if (i == 0) target_ = target;
  }

 private:
  IRefTargMonitor& monitor_;
  RefTargetHandle target_ = nullptr;
};

/// References a maker keeps outside its own slots. A scene file saves them by scene number
/// (when the target is saved for another reason) and sets them back once every object exists.
class IIndirectReferenceMaker {
 public:
  virtual ~IIndirectReferenceMaker() = default;
  virtual int NumIndirectRefs() = 0;
  virtual RefTargetHandle GetIndirectReference(int i) = 0;
  virtual void SetIndirectReference(int i, RefTargetHandle target) = 0;
  virtual bool ShouldPersistIndirectRef(RefTargetHandle target) { return target != nullptr; }
};
/// GetInterface(I_INDIRECT_REFMAKER) answers the IIndirectReferenceMaker of an object.
inline constexpr ULONG I_INDIRECT_REFMAKER = 0x4d560101;

/// Base of the objects that observe nodes without keeping them alive: a table of slots, each a
/// list of watched targets (dynamic_cast an entry to INode). Changes of the table are undoable
/// when the owner is an Animatable. Its destructor unlinks every monitor with the hold
/// suspended. What the watched targets send
/// reaches WeakRefChanged; re-entry is guarded (a change heard while handling one is dropped,
/// deletions and handle changes each have their own guard). The owner saves the counts of its
/// slots with SaveWeakSlots/LoadWeakSlots in its own chunks, the targets go through the indirect
/// reference interface.
class WeakRefOwner : public IRefTargMonitor, public IIndirectReferenceMaker {
 public:
  explicit WeakRefOwner(int num_slots);
  ~WeakRefOwner() override;
  WeakRefOwner(const WeakRefOwner&) = delete;
  WeakRefOwner& operator=(const WeakRefOwner&) = delete;

  int NumWeakSlots() const { return static_cast<int>(slots_.size()); }
  /// Entries of slot; 0 for a bad slot.
  int WeakCount(int slot) const;
  /// Entry i of slot; null for a bad index or a deleted target.
  RefTargetHandle GetWeakRef(int slot, int i) const;
  /// Undoable. Bad indices are ignored (false).
  bool SetWeakRef(int slot, int i, RefTargetHandle target);
  /// Undoable; the new entry's index, or -1 for a bad slot.
  int AppendWeakRef(int slot, RefTargetHandle target);
  bool DeleteWeakRef(int slot, int i);
  /// Undoable; new entries are empty.
  bool SetWeakCount(int slot, int count);

  /// Writes the entry counts of every slot as one chunk; LoadWeakSlots reads them back (the
  /// entries stay empty until the file links them through SetIndirectReference).
  IOResult SaveWeakSlots(ISave* isave, std::uint16_t chunk_id);
  IOResult LoadWeakSlots(ILoad* iload);

  // IIndirectReferenceMaker: the entries of every slot in order.
  int NumIndirectRefs() override;
  RefTargetHandle GetIndirectReference(int i) override;
  void SetIndirectReference(int i, RefTargetHandle target) override;

  RefResult ProcessRefTargMonitorMsg(const Interval& change_int, RefTargetHandle target,
                                     PartID& part_id, RefMessage message,
                                     bool from_monitored_target, bool propagate,
                                     RefTargMonitorRefMaker* caller) final;

 protected:
  /// What a watched target sent: entry index of slot watches target. After
  /// REFMSG_TARGET_DELETED the entry reads null.
  virtual void WeakRefChanged(int slot, int index, RefTargetHandle target, PartID part_id,
                              RefMessage message) {}

 private:
  friend class WeakSlotsRestore;
  using Layout = std::vector<std::vector<AnimHandle>>;
  Layout GetLayout() const;
  void SetLayout(const Layout& layout);
  void HoldLayout();
  bool Locate(RefTargMonitorRefMaker* caller, int& slot, int& index) const;
  RefTargMonitorRefMaker* MakeMonitor(RefTargetHandle target);
  // Deletes the monitors past count, or adds empty ones up to it; no undo record.
  void Resize(Tab<RefTargMonitorRefMaker*>& tab, int count);

  std::vector<Tab<RefTargMonitorRefMaker*>> slots_;
  bool in_process_ = false;
  bool in_deleted_ = false;
  bool in_handle_changed_ = false;
};
