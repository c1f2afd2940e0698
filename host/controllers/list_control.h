// Copyright Marvolith contributors.
// The host's list controllers: float, point3, position, rotation and scale lists.
#pragma once

#include <vector>

#include "host/controllers/control_interfaces.h"
#include "host/io/chunk_io.h"
#include "support/compound_control.h"

class ClassDesc2;

/// A list of controllers of the list's own super class, each with a name and a weight, and one
/// active item. Each weight is a float track of its own (a Bezier float made with the item,
/// holding 1 on Append), so a weight can be keyed like any track.
///
/// References and sub-anims: the items in order (0 .. count-1), then the weight tracks in the
/// same order (count .. 2*count-1), named "Weight: <item name>". Assigning to an item's sub-anim
/// replaces the item, to a weight's sub-anim replaces the weight track (a float controller, which
/// adopts the old weight through Copy), and to the sub-anim one past the last (2*count) appends.
/// A weight's change reaches the list's dependents as the list's own change. Key operations reach
/// the items only; the weight tracks keep their keys.
///
/// GetValue combines the items at their weights read at t (an item of weight 0 is not evaluated;
/// an item whose weight track was deleted counts at weight 1):
///   float, point3, position: the weighted sum;
///   rotation: each item's rotation turned weight times as far about its axis, composed so that
///     a later item applies before the earlier ones, as the items' relative GetValue would chain
///     them: q = w(q[n-1]) * ... * w(q[0]);
///   scale: each item's factors moved weight of the way from 1, composed the same way.
/// Relative GetValue applies the combined value as the host's table says; rotation and position
/// lists chain their items' own relative GetValue in order (items of weight other than 1 apply
/// their weighted value), which composes the same way. Evaluation allocates nothing.
///
/// SetValue writes the active item so that the combination becomes the value asked for,
/// dividing out the other items and the active item's weight (absolute), or passing the change
/// divided by the weight (relative float and points). Nothing happens with no active item, an
/// active weight of 0, or while locked.
///
/// Undo: every change is undoable. Structural changes (append, delete) record the whole list,
/// weight tracks included, each time; name and active changes record once per hold; a weight's
/// value is recorded by its track.
///
/// Chunks: kLockChunkID locked (1 byte), 0x0100 item count (int32), 0x0110 active index (int32),
/// 0x0140 the number of weight tracks (int32, the item count), 0x0130 a container of one 0x0131
/// text chunk per name. Items and weight tracks are references, saved by the scene. Files written
/// before weights were tracks hold 0x0120, the weights as count floats, and no 0x0140: loading
/// one makes a track per item holding that weight (1 for a file without 0x0120 either).
class ListControl : public CompoundControl, public IListControl {
 public:
  /// super_class is one of CTRL_FLOAT_CLASS_ID, CTRL_POINT3_CLASS_ID, CTRL_POSITION_CLASS_ID,
  /// CTRL_ROTATION_CLASS_ID, CTRL_SCALE_CLASS_ID. A new list is empty.
  explicit ListControl(SClass_ID super_class);

  struct State {
    std::vector<AnimHandle> items;
    std::vector<AnimHandle> weights;  // the weight tracks, parallel to items
    std::vector<MSTR> names;
    int active = 0;
    bool locked = false;
  };
  State GetState() const;
  /// Replaces the whole list, relinking the items by handle (restore records use it).
  void SetState(const State& s);
  void StateRestored();

  Class_ID ClassID() override;
  SClass_ID SuperClassID() override { return super_; }
  void GetClassName(MSTR& s, bool localized = true) const override;
  BaseInterface* GetInterface(Interface_ID id) override;
  using CompoundControl::GetInterface;

  // IListControl.
  int GetListCount() override { return static_cast<int>(items_.size()); }
  void SetActive(int index) override;
  int GetActive() override { return active_; }
  void DeleteItem(int index) override;
  void SetName(int index, const MSTR& name) override;
  MSTR GetName(int index) override;
  Control* GetSubCtrl(int index) override;
  bool SetSubCtrl(int index, Control* ctrl) override;
  /// The weight track's value at t; 1 for an item without a track, 0 out of range.
  float GetSubCtrlWeight(int index, TimeValue t) override;
  /// Sets the weight track at t (a key in animate mode); an item without a track gets a new one.
  /// A weight that is not finite is ignored.
  void SetSubCtrlWeight(int index, float weight, TimeValue t = 0) override;
  int Append(Control* ctrl, const MSTR& name = MSTR()) override;

  /// The float track behind item index's weight, null out of range or when it was deleted.
  Control* GetWeightController(int index);
  /// Replaces item index's weight track by ctrl (a float controller, which adopts the old
  /// weight); false when refused.
  bool SetWeightController(int index, Control* ctrl);

  // Sub-anims and references: the items, then their weight tracks.
  int NumSubs() override { return 2 * GetListCount(); }
  Animatable* SubAnim(int i) override { return GetReference(i); }
  MSTR SubAnimName(int i, bool localized = true) override;
  bool CanAssignController(int i) override { return i >= 0 && i <= NumSubs(); }
  bool AssignController(Animatable* control, int i) override;
  int SubNumToRefNum(int i) override { return i >= 0 && i < NumSubs() ? i : -1; }
  int NumRefs() override { return 2 * GetListCount(); }
  RefTargetHandle GetReference(int i) override;

  void GetValue(TimeValue t,
                void* val,
                Interval& valid,
                GetSetMethod method = CTRL_ABSOLUTE) override;
  void SetValue(TimeValue t,
                void* val,
                int commit = 1,
                GetSetMethod method = CTRL_ABSOLUTE) override;
  /// The list that replaces `from` takes it as a new item and makes it active.
  void Copy(Control* from) override;
  RefTargetHandle Clone(RemapDir& remap) override;

  RefResult NotifyRefChanged(const Interval&, RefTargetHandle, PartID&, RefMessage, bool) override {
    return REF_SUCCEED;
  }
  IOResult Save(ISave* isave) override;
  /// A count above kMaxListItems, weights or names that disagree with the count, or an active
  /// index outside the list answer IO_ERROR and change nothing.
  IOResult Load(ILoad* iload) override;

  static constexpr int kMaxListItems = 1 << 16;

 protected:
  void SetReference(int i, RefTargetHandle target) override;
  int NumKeySubs() override { return GetListCount(); }
  Control* KeySub(int i) override { return GetSubCtrl(i); }
  void HoldState() override;

 private:
  void PutStructureRecord();
  void NotifyStructure();
  int WeightRef(int index) const { return static_cast<int>(items_.size()) + index; }
  /// Item i's weight at t, narrowing valid by its track; 1 without a track.
  float WeightAt(int i, TimeValue t, Interval& valid) const;

  SClass_ID super_;
  std::vector<Control*> items_;
  std::vector<Control*> weights_;  // weight tracks, parallel to items_
  std::vector<MSTR> names_;
  int active_ = 0;
};

ClassDesc2* FloatListClassDesc();
ClassDesc2* Point3ListClassDesc();
ClassDesc2* PositionListClassDesc();
ClassDesc2* RotationListClassDesc();
ClassDesc2* ScaleListClassDesc();
