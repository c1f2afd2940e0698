// Copyright Marvolith contributors.
// References: how scene objects hold one another, hear of each other's changes, clone and die.
#pragma once

#include <cstdint>
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

#include "host/core/animatable.h"

class ReferenceTarget;
class ReferenceMaker;
class RemapDir;
class ISave;
class ILoad;
using RefTargetHandle = ReferenceTarget*;
using RefMakerHandle = ReferenceMaker*;

/// An object that holds numbered references to targets.
///
/// A maker keeps its targets in slots 0..NumRefs()-1 that it stores itself; SetReference is the
/// store and is called by the system only. Everything else goes through ReplaceReference, which
/// keeps the targets' dependent lists, refuses loops and records undo while a hold is open.
class ReferenceMaker : public Animatable {
 public:
  SClass_ID SuperClassID() override { return REF_MAKER_CLASS_ID; }

  virtual int NumRefs() { return 0; }
  virtual RefTargetHandle GetReference(int i) { return nullptr; }

  /// Points slot which at new_target. The old target loses this dependent and, when del_old is
  /// true and nothing else references it, is deleted. Answers REF_FAIL for a bad slot or when
  /// the new reference would close a loop; the slot is then unchanged.
  RefResult ReplaceReference(int which, RefTargetHandle new_target, bool del_old = true);
  /// ReplaceReference(which, nullptr).
  RefResult DeleteReference(int which);
  /// Clears every slot, deleting targets left unreferenced.
  RefResult DeleteAllRefsFromMe();
  /// Slot index holding target, or -1.
  int FindRef(RefTargetHandle target);

  /// Called by a target for each message. Answer REF_STOP to keep the message from travelling
  /// further up from this maker.
  virtual RefResult NotifyRefChanged(const Interval& change_int, RefTargetHandle target,
                                     PartID& part_id, RefMessage message, bool propagate) = 0;

  virtual IOResult Save(ISave* isave) { return IO_OK; }
  virtual IOResult Load(ILoad* iload) { return IO_OK; }

  virtual bool IsRefTarget() { return false; }
  virtual bool IsRefMaker() { return true; }
  /// A weak reference: the maker observes target without it counting as a use (no loops
  /// are tested through it and it does not keep the target for saving).
  virtual bool IsRealDependency(ReferenceTarget* target) { return true; }
  /// True for a class that tells its dependents itself after each change of its slots (a
  /// parameter block names the parameter that changed): the system's slot message is then
  /// left out.
  virtual bool TellsItsOwnSlotChanges() { return false; }

 protected:
  /// Stores target in slot i. Called by the system only (ReplaceReference, loading, undo). A
  /// maker that caches what it computed from a slot drops that cache here: undo and redo
  /// relink slots through this call too.
  virtual void SetReference(int i, RefTargetHandle target) {}
  friend struct RefAccess;
  friend class ReferenceTarget;

 private:
  // The broadcast this maker last heard and the parts it heard in it: one delivery per maker
  // per broadcast, however many paths lead to it.
  std::uint64_t heard_broadcast_ = 0;
  PartID heard_parts_ = 0;
};

/// An object that others can reference.
class ReferenceTarget : public ReferenceMaker {
 public:
  SClass_ID SuperClassID() override { return REF_TARGET_CLASS_ID; }
  bool IsRefTarget() override { return true; }

  /// Sends message to every dependent (of super class sclass, or all with NOTIFY_ALL). When a
  /// dependent answers REF_SUCCEED and propagate is true, the dependent passes the message on to
  /// its own dependents; REF_STOP ends that branch. Message numbers are passed through as given.
  /// One call is one broadcast: a maker reached along several paths hears it once (again only
  /// when a later path brings parts it has not heard). Nothing is sent while DisableRefMsgs is in
  /// force.
  RefResult NotifyDependents(const Interval& change_int, PartID part_id, RefMessage message,
                             SClass_ID sclass = NOTIFY_ALL, bool propagate = true,
                             RefTargetHandle target = nullptr);

  /// REF_FAIL when maker referencing this target would close a loop (maker is this target or
  /// is reachable from it through references), else REF_SUCCEED.
  RefResult TestForLoop(const Interval& interval, RefMakerHandle maker);

  /// Number of distinct makers that reference this target (weak observers not counted).
  int NumDependents() const;
  /// True when a maker other than a weak observer references this target.
  bool HasRealDependents();
  bool HasDependents() const { return !dependents_.empty(); }

  /// Makes a copy whose references are cloned through remap. Classes that can be cloned
  /// override it; the default clones nothing and answers null.
  virtual RefTargetHandle Clone(RemapDir& remap) { return nullptr; }
  /// Completes a clone: copies custom attributes and the parts every class shares.
  virtual void BaseClone(ReferenceTarget* from, ReferenceTarget* to, RemapDir& remap);

  /// Deletes this target: dependents hear REFMSG_TARGET_DELETED and lose their references, the
  /// target drops its own references, and its handle resolves to nothing. While a hold is open
  /// the deletion is undoable and the memory is kept until the undo records are dropped.
  void DeleteMe();
  /// Deletes the target when no maker references it any more and nothing keeps it.
  void MaybeAutoDelete();

  // Keep-alive count held by undo records that can bring a reference to this target back.
  void IncHoldCount() { ++hold_count_; }
  void DecHoldCount();

 private:
  friend class ReferenceMaker;
  friend class DependentIterator;
  friend struct RefAccess;
  void Broadcast(const Interval& change_int, PartID part_id, RefMessage message, SClass_ID sclass,
                 bool propagate, RefTargetHandle from, std::uint64_t broadcast);
  void AddDependent(ReferenceMaker* maker) { dependents_.push_back(maker); }
  void RemoveDependent(ReferenceMaker* maker);
  void FreeNow();

  std::vector<ReferenceMaker*> dependents_;  // one entry per reference slot pointing here
  int hold_count_ = 0;
};

/// Stops every reference message until the matching EnableRefMsgs (calls nest). For bulk work
/// (loading, building many nodes): whoever disables tells the dependents afterwards.
void DisableRefMsgs();
void EnableRefMsgs();
/// True while DisableRefMsgs is in force.
bool RefMsgsDisabled();

/// DisableRefMsgs for a scope, also when an exception passes.
class RefMsgsSuspend {
 public:
  RefMsgsSuspend() { DisableRefMsgs(); }
  ~RefMsgsSuspend() { EnableRefMsgs(); }
  RefMsgsSuspend(const RefMsgsSuspend&) = delete;
  RefMsgsSuspend& operator=(const RefMsgsSuspend&) = delete;
};

/// Number of NotifyRefChanged calls made by broadcasts since the process started: what a change
/// costs in deliveries, for benchmarks and tests.
std::uint64_t RefMsgDeliveries();

/// Tells maker's dependents that one of its slots changed (forward, undone or redone), so that
/// what they computed through it drops: REFMSG_CHANGE and REFMSG_SUBANIM_STRUCTURE_CHANGED.
void NotifySlotChanged(ReferenceMaker* maker);

/// Walks the distinct makers that reference a target, over a snapshot taken at construction.
class DependentIterator {
 public:
  explicit DependentIterator(ReferenceTarget* target);
  /// The next dependent, or null at the end.
  ReferenceMaker* Next();
  void Reset() { next_ = 0; }

 private:
  std::vector<ReferenceMaker*> makers_;
  size_t next_ = 0;
};

/// Host-internal access to the store of a maker's slots (loading, undo, cloning).
struct RefAccess {
  static void SetReference(ReferenceMaker* maker, int i, RefTargetHandle target) {
    maker->SetReference(i, target);
  }
  /// Sets slot i with dependent bookkeeping but without loop tests, undo or deletion of the old
  /// target; used while loading and restoring, where the state is known to be consistent.
  static void Relink(ReferenceMaker* maker, int i, RefTargetHandle target);
  /// Relink of a slot that is empty, for loading: when the maker's SetReference does not take
  /// target (a kind it refuses), the bookkeeping is taken back and false is answered.
  static bool RelinkChecked(ReferenceMaker* maker, int i, RefTargetHandle target);
};

/// Work done after a clone's references are all mapped (re-pointing plain pointers, say).
class PostPatchProc {
 public:
  virtual ~PostPatchProc() = default;
  virtual int Proc(RemapDir& remap) = 0;
};

/// The directory of a clone: original targets to their clones.
class RemapDir {
 public:
  virtual ~RemapDir();
  /// The clone of target: the mapped one when it was cloned already, else a new clone (null for
  /// null, and target itself when its class cannot clone).
  virtual RefTargetHandle CloneRef(RefTargetHandle target);
  virtual RefTargetHandle FindMapping(RefTargetHandle from);
  virtual void AddEntry(RefTargetHandle from, RefTargetHandle to);
  /// Asks for *slot to be set to the clone of original once the clone is complete.
  virtual void PatchPointer(RefTargetHandle* slot, RefTargetHandle original);
  /// Runs proc at Backpatch; owned and deleted afterwards when to_delete is true.
  virtual void AddPostPatchProc(PostPatchProc* proc, bool to_delete);
  /// Applies pointer patches, then runs the post-patch procedures once.
  virtual void Backpatch();

 private:
  std::unordered_map<RefTargetHandle, RefTargetHandle> map_;
  std::vector<std::pair<RefTargetHandle*, RefTargetHandle>> patches_;
  std::vector<std::pair<PostPatchProc*, bool>> procs_;
};

/// Clones target and everything it references, then back-patches. Null for null.
RefTargetHandle CloneRefHierarchy(RefTargetHandle target);
