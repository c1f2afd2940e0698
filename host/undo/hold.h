// Copyright Marvolith contributors.
// Undo: theHold collects restore records between Begin and Accept into one named entry.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/base/ids.h"

/// One reversible change. Records made by the toolkit keep the AnimHandle of their object, not a
/// pointer, and do nothing when the handle no longer resolves.
class RestoreObj {
 public:
  virtual ~RestoreObj() = default;
  /// Puts the before state back. When is_undo is true (an undo, not a cancel) the record first
  /// captures the after state so that Redo can reapply it.
  virtual void Restore(int is_undo) = 0;
  virtual void Redo() = 0;
  /// Rough size in bytes, for the host's memory accounting.
  virtual int Size() { return 1; }
  /// Called when the hold that holds this record ends (accepted or cancelled), and when a nested
  /// hold begins over it: clears the object's A_HELD flag so that the next hold (or the inner
  /// level) records it again. It may be called more than once and does nothing else.
  virtual void EndHold() {}
  virtual MSTR Description() { return "---"; }
};

/// The host's undo system. One instance, theHold.
class Hold {
 public:
  Hold() = default;
  ~Hold();
  Hold(const Hold&) = delete;
  Hold& operator=(const Hold&) = delete;

  /// Opens a hold; holds nest, and only the outermost Accept makes an undo entry. An inner level
  /// records the objects it changes afresh, so that its Cancel restores them to where the inner
  /// level found them even when an outer level recorded them already.
  void Begin();
  /// Takes ownership of rob. Records put while not Holding() are deleted at once.
  void Put(RestoreObj* rob);
  /// Closes the innermost hold. The outermost one becomes an undo entry named name (nothing when
  /// no record was put), and the redo stack is dropped.
  void Accept(const MSTR& name);
  /// Closes the innermost hold, restoring and dropping the records it collected.
  void Cancel();
  /// Restores the records of the open hold (innermost level) and drops them, leaving the hold
  /// open: a drag reapplies its whole change from the start state on each move.
  void Restore();
  /// True inside Begin/Accept, not suspended, and not while restoring or redoing; also true
  /// inside a capture that is not suspended.
  bool Holding() const;

  /// Collects the records put until EndCapture into a list of the caller's, even while undoing
  /// or redoing: an undo record can carry out a change (deleting what it had created) and keep
  /// the records that take that change back. Captures nest; Suspend inside one still suspends.
  void BeginCapture();
  /// Ends the innermost capture and hands over its records, their EndHold already called.
  std::vector<std::unique_ptr<RestoreObj>> EndCapture();
  /// Suspends recording; nests.
  void Suspend() { ++suspend_; }
  void Resume() {
    if (suspend_ > 0) --suspend_;
  }
  bool IsSuspended() const { return suspend_ > 0; }
  bool Restoring() const { return restoring_; }
  bool Redoing() const { return redoing_; }
  /// Depth of open holds.
  int HoldLevel() const { return static_cast<int>(levels_.size()); }

  // The undo and redo stacks.
  /// Undoes the newest entry; false when there is none or a hold is open.
  bool Undo();
  /// Redoes the newest undone entry; false when there is none or a hold is open.
  bool Redo();
  int UndoCount() const { return static_cast<int>(undo_.size()); }
  int RedoCount() const { return static_cast<int>(redo_.size()); }
  /// Name of the entry i places from the top of the undo (redo) stack; empty when absent.
  MSTR UndoName(int i = 0) const;
  MSTR RedoName(int i = 0) const;
  /// Drops every entry and any open hold without restoring (scene reset, file open).
  void Clear();
  /// Keeps at most levels entries on the undo stack (oldest dropped first); 0 means no limit.
  void SetMaxLevels(int levels);

 private:
  struct Entry {
    MSTR name;
    std::vector<std::unique_ptr<RestoreObj>> records;
  };
  void RestoreRange(size_t from, int is_undo);
  // Restores the open records from index from on and drops them (cancel and drag restore).
  void RestoreAndDrop(size_t from);
  void Trim();

  struct Capture {
    std::vector<std::unique_ptr<RestoreObj>> records;
    int suspend_base = 0;  // suspend_ when the capture began
  };

  std::vector<std::unique_ptr<RestoreObj>> open_;  // records of the open hold
  std::vector<size_t> levels_;                     // open_ size at each Begin
  // Records of open_ below this index have had EndHold since they were put (a nested Begin).
  size_t held_cleared_ = 0;
  std::vector<Capture> captures_;
  std::vector<Entry> undo_;
  std::vector<Entry> redo_;
  int suspend_ = 0;
  int max_levels_ = 100;
  bool restoring_ = false;
  bool redoing_ = false;
};

extern Hold theHold;

/// True while theHold is restoring or redoing: caches compared between evaluations stay as they
/// are then.
bool IsUndoingOrRedoing();

/// Suspends theHold for the lifetime of the guard, also when an exception passes.
class HoldSuspend {
 public:
  HoldSuspend() { theHold.Suspend(); }
  ~HoldSuspend() { theHold.Resume(); }
  HoldSuspend(const HoldSuspend&) = delete;
  HoldSuspend& operator=(const HoldSuspend&) = delete;
};
