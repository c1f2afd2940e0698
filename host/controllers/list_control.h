// Copyright Marvolith contributors.
// The host's list controllers: float, point3, position, rotation and scale lists.
#pragma once

#include <vector>

#include "host/controllers/compound_control.h"
#include "host/controllers/control_interfaces.h"
#include "host/io/chunk_io.h"

class ClassDesc2;

/// A list of controllers of the list's own super class, each with a name and a weight (1 when
/// appended), and one active item. References and sub-anims are the items in order; assigning
/// to the sub-anim one past the end appends, and a controller assigned over an item adopts that
/// item's value (Copy).
///
/// GetValue combines the items at their weights (an item of weight 0 is not evaluated):
///   float, point3, position: the weighted sum;
///   rotation: each item's rotation turned weight times as far about its axis, composed so that
///     a later item applies before the earlier ones, as the items' relative GetValue would chain
///     them: q = w(q[n-1]) * ... * w(q[0]);
///   scale: each item's factors moved weight of the way from 1, composed the same way.
/// Relative GetValue applies the combined value as the host's table says; rotation and position
/// lists chain their items' own relative GetValue in order (items of weight other than 1 apply
/// their weighted value), which composes the same way.
///
/// SetValue writes the active item so that the combination becomes the value asked for,
/// dividing out the other items and the active item's weight (absolute), or passing the change
/// divided by the weight (relative float and points). Nothing happens with no active item, an
/// active weight of 0, or while locked.
///
/// Undo: every change is undoable. Structural changes (append, delete) record the whole list
/// each time; name, weight and active changes record once per hold.
///
/// Chunks: kLockChunkID locked (1 byte), 0x0100 item count (int32), 0x0110 active index (int32),
/// 0x0120 the weights (count floats), 0x0130 a container of one 0x0131 text chunk per name. The
/// items are references, saved by the scene.
class ListControl : public CompoundControl, public IListControl {
 public:
  /// super_class is one of CTRL_FLOAT_CLASS_ID, CTRL_POINT3_CLASS_ID, CTRL_POSITION_CLASS_ID,
  /// CTRL_ROTATION_CLASS_ID, CTRL_SCALE_CLASS_ID. A new list is empty.
  explicit ListControl(SClass_ID super_class);

  struct State {
    std::vector<AnimHandle> items;
    std::vector<MSTR> names;
    std::vector<float> weights;
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
  float GetSubCtrlWeight(int index, TimeValue t) override;
  void SetSubCtrlWeight(int index, float weight, TimeValue t = 0) override;
  int Append(Control* ctrl, const MSTR& name = MSTR()) override;

  // Sub-anims and references: the items.
  int NumSubs() override { return GetListCount(); }
  Animatable* SubAnim(int i) override { return GetSubCtrl(i); }
  MSTR SubAnimName(int i, bool localized = true) override { return GetName(i); }
  bool CanAssignController(int i) override { return i >= 0 && i <= GetListCount(); }
  bool AssignController(Animatable* control, int i) override;
  int SubNumToRefNum(int i) override { return i >= 0 && i < GetListCount() ? i : -1; }
  int NumRefs() override { return GetListCount(); }
  RefTargetHandle GetReference(int i) override { return GetSubCtrl(i); }

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

  SClass_ID super_;
  std::vector<Control*> items_;
  std::vector<MSTR> names_;
  std::vector<float> weights_;
  int active_ = 0;
};

ClassDesc2* FloatListClassDesc();
ClassDesc2* Point3ListClassDesc();
ClassDesc2* PositionListClassDesc();
ClassDesc2* RotationListClassDesc();
ClassDesc2* ScaleListClassDesc();
