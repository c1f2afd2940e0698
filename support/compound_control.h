// Copyright Marvolith contributors.
// CompoundControl: the base of controllers made of sub-controllers (rig transforms, Euler XYZ,
// PRS, lists), which take their keys and out-of-range types from those sub-controllers.
#pragma once

#include <vector>

#include "host/core/control.h"

/// A controller whose keys live in its sub-controllers. Key operations forward to every
/// sub-controller that KeySub answers; the keys it reports are the distinct key times of all of
/// them, in order, and a key index means the keys at that time. Out-of-range types forward too
/// (GetORT answers the first sub-controller's). While locked, edits and key operations do
/// nothing; SetLocked is undoable and with set_children locks the sub-controllers as well.
class CompoundControl : public LockableControl {
 public:
  bool IsLeaf() override { return false; }

  int NumKeys() override;
  TimeValue GetKeyTime(int index) override;
  int GetKeyIndex(TimeValue t) override;
  bool GetNextKeyTime(TimeValue t, DWORD flags, TimeValue& nt) override;
  void CopyKeysFromTime(TimeValue src, TimeValue dst, DWORD flags) override;
  void AddNewKey(TimeValue t, DWORD flags) override;
  void DeleteKeyAtTime(TimeValue t) override;
  bool IsKeyAtTime(TimeValue t, DWORD flags) override;
  void DeleteKeys(DWORD flags) override;
  void DeleteKeyByIndex(int index) override;
  void SelectKeyByIndex(int index, bool select) override;
  bool IsKeySelected(int index) override;
  int NumSelKeys() override;
  void MapKeys(TimeMap* map, DWORD flags) override;
  Interval GetTimeRange(DWORD flags) override;
  int GetKeyTimes(Tab<TimeValue>& times, Interval range, DWORD flags) override;
  bool IsAnimated() override;

  void SetORT(int ort, int type) override;
  int GetORT(int type) override;
  void EnableORTs(bool enable) override;

  void CommitValue(TimeValue t) override;
  void RestoreValue(TimeValue t) override;

  void SetLocked(bool locked, bool set_children = false) override;

 protected:
  /// The sub-controllers that key operations reach; null entries are skipped.
  virtual int NumKeySubs() = 0;
  virtual Control* KeySub(int i) = 0;
  /// Records the controller's own state for undo before it changes (once per hold).
  virtual void HoldState() = 0;
  void NotifyChange() { NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE); }
  /// IsKeyAtTime of a transform controller whose key subs 0, 1 and 2 are its position, rotation
  /// and scale tracks: with KEYAT_POSITION, KEYAT_ROTATION or KEYAT_SCALE in flags only those
  /// tracks count; without any of them, every key sub does.
  bool IsTransformKeyAtTime(TimeValue t, DWORD flags);

 private:
  std::vector<TimeValue> KeyTimes();
};
