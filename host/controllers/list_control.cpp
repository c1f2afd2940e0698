// Copyright Marvolith contributors.
#include "host/controllers/list_control.h"

#include <cmath>
#include <cstdint>

#include "host/controllers/controller_classes.h"
#include "host/controllers/internal/controller_desc.h"
#include "host/controllers/internal/state_restore.h"
#include "host/controllers/internal/value_ops.h"
#include "host/core/clock.h"
#include "support/lock_chunk.h"
#include "support/track_assign.h"

namespace hci = host_controllers_internal;

namespace {

constexpr USHORT kCountChunk = 0x0100;
constexpr USHORT kActiveChunk = 0x0110;
constexpr USHORT kLegacyWeightsChunk = 0x0120;  // weights as plain floats, read only
constexpr USHORT kWeightTracksChunk = 0x0140;
constexpr USHORT kNamesChunk = 0x0130;
constexpr USHORT kNameChunk = 0x0131;

struct ListClass {
  SClass_ID super_class;
  Class_ID class_id;
  const char* name;
  const char* internal_name;
};

constexpr ListClass kListClasses[] = {
    {CTRL_FLOAT_CLASS_ID, Class_ID(0x4b4b1000, 0), "Float List", "Float_List"},
    {CTRL_POINT3_CLASS_ID, Class_ID(0x4b4b1001, 0), "Point3 List", "Point3_List"},
    {CTRL_POSITION_CLASS_ID, Class_ID(0x4b4b1002, 0), "Position List", "Position_List"},
    {CTRL_ROTATION_CLASS_ID, Class_ID(0x4b4b1003, 0), "Rotation List", "Rotation_List"},
    {CTRL_SCALE_CLASS_ID, Class_ID(0x4b4b1004, 0), "Scale List", "Scale_List"},
};

const ListClass& ClassOf(SClass_ID super_class) {
  for (const ListClass& c : kListClasses) {
    if (c.super_class == super_class) return c;
  }
  return kListClasses[0];
}

// A new weight track holding value. Making it is no edit of its own (the list's reference
// change is what undo records) and keys nothing, even in animate mode.
Control* NewWeightTrack(float value) {
  HoldSuspend no_undo;
  AnimateSuspend no_key;
  Control* track = NewDefaultFloatController();
  track->SetValue(0, &value, 1, CTRL_ABSOLUTE);
  return track;
}

}  // namespace

ListControl::ListControl(SClass_ID super_class) : super_(ClassOf(super_class).super_class) {}

Class_ID ListControl::ClassID() { return ClassOf(super_).class_id; }

void ListControl::GetClassName(MSTR& s, bool) const { s = ClassOf(super_).name; }

BaseInterface* ListControl::GetInterface(Interface_ID id) {
  if (id == LIST_CONTROLLER_INTERFACE) return static_cast<IListControl*>(this);
  return CompoundControl::GetInterface(id);
}

ListControl::State ListControl::GetState() const {
  State s;
  for (Control* c : items_) s.items.push_back(Animatable::GetHandleByAnim(c));
  for (Control* w : weights_) s.weights.push_back(Animatable::GetHandleByAnim(w));
  s.names = names_;
  s.active = active_;
  s.locked = locked_;
  return s;
}

void ListControl::SetState(const State& s) {
  // Unlink every slot, then link the restored ones: the dependents stay exact whatever moved.
  for (int i = 0; i < NumRefs(); ++i) {
    if (GetReference(i)) RefAccess::Relink(this, i, nullptr);
  }
  const size_t n = s.items.size();
  items_.assign(n, nullptr);
  weights_.assign(n, nullptr);
  names_ = s.names;
  names_.resize(n);
  active_ = s.active;
  locked_ = s.locked;
  auto find = [](const std::vector<AnimHandle>& handles, size_t i) {
    return i < handles.size()
               ? static_cast<ReferenceTarget*>(Animatable::FindAnimIncludingDeleted(handles[i]))
               : nullptr;
  };
  for (int i = 0; i < GetListCount(); ++i) {
    if (ReferenceTarget* item = find(s.items, i)) RefAccess::Relink(this, i, item);
    if (ReferenceTarget* weight = find(s.weights, i)) RefAccess::Relink(this, WeightRef(i), weight);
  }
}

void ListControl::StateRestored() { NotifyStructure(); }

void ListControl::HoldState() { hci::HoldControllerState(this, "List Change"); }

void ListControl::PutStructureRecord() {
  // Structural changes interleave with the reference records of their slots, so each one
  // records the whole list, not only the first in a hold.
  if (theHold.Holding()) theHold.Put(new hci::StateRestore<ListControl>(this, "List Change"));
}

void ListControl::NotifyStructure() {
  NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
  NotifyDependents(FOREVER, PART_ALL, REFMSG_SUBANIM_STRUCTURE_CHANGED);
}

RefTargetHandle ListControl::GetReference(int i) {
  const int n = GetListCount();
  if (i >= 0 && i < n) return items_[i];
  if (i >= n && i < 2 * n) return weights_[i - n];
  return nullptr;
}

void ListControl::SetReference(int i, RefTargetHandle target) {
  const int n = GetListCount();
  if (i >= 0 && i < n) {
    items_[i] = dynamic_cast<Control*>(target);
  } else if (i >= n && i < 2 * n) {
    // Only a float track can be a weight; anything else leaves the slot empty, so that a loader
    // linking a wrong object here sees the refusal.
    auto* c = dynamic_cast<Control*>(target);
    weights_[i - n] = c && c->SuperClassID() == CTRL_FLOAT_CLASS_ID ? c : nullptr;
  }
}

MSTR ListControl::SubAnimName(int i, bool) {
  const int n = GetListCount();
  if (i >= n && i < 2 * n) return "Weight: " + GetName(i - n);
  return GetName(i);
}

void ListControl::SetActive(int index) {
  if (index < 0 || index >= GetListCount() || index == active_) return;
  HoldState();
  active_ = index;
  NotifyChange();
}

void ListControl::DeleteItem(int index) {
  if (index < 0 || index >= GetListCount()) return;
  // Both slots are emptied while the layout still has them, so their records replay in it.
  ReplaceReference(WeightRef(index), nullptr);
  ReplaceReference(index, nullptr);
  PutStructureRecord();
  items_.erase(items_.begin() + index);
  weights_.erase(weights_.begin() + index);
  names_.erase(names_.begin() + index);
  if (active_ > index) --active_;
  if (active_ >= GetListCount()) active_ = GetListCount() > 0 ? GetListCount() - 1 : 0;
  NotifyStructure();
}

void ListControl::SetName(int index, const MSTR& name) {
  if (index < 0 || index >= GetListCount() || names_[index] == name) return;
  HoldState();
  names_[index] = name;
  NotifyStructure();
}

MSTR ListControl::GetName(int index) {
  if (index < 0 || index >= GetListCount()) return MSTR();
  if (!names_[index].empty() || !items_[index]) return names_[index];
  return items_[index]->ClassName();
}

Control* ListControl::GetSubCtrl(int index) {
  return index >= 0 && index < GetListCount() ? items_[index] : nullptr;
}

bool ListControl::SetSubCtrl(int index, Control* ctrl) {
  if (index == GetListCount()) return Append(ctrl) >= 0;
  if (index < 0 || index > GetListCount()) return false;
  if (!ReplaceTrack(this, index, ctrl, items_[index], super_)) return false;
  NotifyStructure();
  return true;
}

bool ListControl::AssignController(Animatable* control, int i) {
  const int n = GetListCount();
  auto* c = dynamic_cast<Control*>(control);
  if (i >= n && i < 2 * n) return SetWeightController(i - n, c);
  if (i == 2 * n) return Append(c) >= 0;
  return i >= 0 && i < n && SetSubCtrl(i, c);
}

Control* ListControl::GetWeightController(int index) {
  return index >= 0 && index < GetListCount() ? weights_[index] : nullptr;
}

bool ListControl::SetWeightController(int index, Control* ctrl) {
  if (index < 0 || index >= GetListCount()) return false;
  if (!ReplaceTrack(this, WeightRef(index), ctrl, weights_[index], CTRL_FLOAT_CLASS_ID)) return false;
  NotifyStructure();
  return true;
}

float ListControl::WeightAt(int i, TimeValue t, Interval& valid) const {
  Control* track = weights_[i];
  if (!track) return 1.0f;
  float w = 1.0f;
  track->GetValue(t, &w, valid, CTRL_ABSOLUTE);
  return w;
}

float ListControl::GetSubCtrlWeight(int index, TimeValue t) {
  if (index < 0 || index >= GetListCount()) return 0.0f;
  Interval ignored = FOREVER;
  return WeightAt(index, t, ignored);
}

void ListControl::SetSubCtrlWeight(int index, float weight, TimeValue t) {
  if (index < 0 || index >= GetListCount() || !std::isfinite(weight)) return;
  if (!weights_[index]) {
    // The track was deleted from under the item: a new one, as undoable as the slot change.
    ReplaceReference(WeightRef(index), NewWeightTrack(1.0f));
    NotifyStructure();
  }
  // The track keys (animate mode) or sets, records its own undo and tells the list's dependents.
  if (Control* track = weights_[index]) track->SetValue(t, &weight, 1, CTRL_ABSOLUTE);
}

int ListControl::Append(Control* ctrl, const MSTR& name) {
  if (!ctrl || ctrl->SuperClassID() != super_ || GetListCount() >= kMaxListItems) return -1;
  if (ctrl->TestForLoop(FOREVER, this) == REF_FAIL) return -1;
  PutStructureRecord();
  items_.push_back(nullptr);
  weights_.push_back(nullptr);
  names_.push_back(name);
  const int index = GetListCount() - 1;
  ReplaceReference(index, ctrl);
  ReplaceReference(WeightRef(index), NewWeightTrack(1.0f));
  NotifyStructure();
  return index;
}

void ListControl::GetValue(TimeValue t, void* val, Interval& valid, GetSetMethod method) {
  if (!val) return;
  const hci::ValueKind kind = hci::KindOf(super_);
  const int n = GetListCount();
  if (method != CTRL_ABSOLUTE &&
      (kind == hci::ValueKind::kRotation || kind == hci::ValueKind::kPosition)) {
    // The items' own relative GetValue, chained in order (which composes exactly as the
    // absolute value below), so that an item with its own way of applying itself keeps it.
    for (int i = 0; i < n; ++i) {
      if (!items_[i]) continue;
      const float w = WeightAt(i, t, valid);
      if (w == 0.0f) continue;
      if (w == 1.0f) {
        items_[i]->GetValue(t, val, valid, CTRL_RELATIVE);
      } else if (kind == hci::ValueKind::kRotation) {
        Quat v;
        items_[i]->GetValue(t, &v, valid, CTRL_ABSOLUTE);
        Quat wv = hci::Weighted(v, w);
        hci::ApplyRelative(kind, val, &wv);
      } else {
        Point3 v;
        items_[i]->GetValue(t, &v, valid, CTRL_ABSOLUTE);
        Point3 wv = v * w;
        hci::ApplyRelative(kind, val, &wv);
      }
    }
    return;
  }
  switch (kind) {
    case hci::ValueKind::kFloat: {
      float sum = 0.0f;
      for (int i = 0; i < n; ++i) {
        if (!items_[i]) continue;
        const float w = WeightAt(i, t, valid);
        if (w == 0.0f) continue;
        float v = 0.0f;
        items_[i]->GetValue(t, &v, valid, CTRL_ABSOLUTE);
        sum += v * w;
      }
      if (method == CTRL_ABSOLUTE) {
        *static_cast<float*>(val) = sum;
      } else {
        hci::ApplyRelative(kind, val, &sum);
      }
      break;
    }
    case hci::ValueKind::kPoint3:
    case hci::ValueKind::kPosition: {
      Point3 sum;
      for (int i = 0; i < n; ++i) {
        if (!items_[i]) continue;
        const float w = WeightAt(i, t, valid);
        if (w == 0.0f) continue;
        Point3 v;
        items_[i]->GetValue(t, &v, valid, CTRL_ABSOLUTE);
        sum += v * w;
      }
      if (method == CTRL_ABSOLUTE) {
        *static_cast<Point3*>(val) = sum;
      } else {
        hci::ApplyRelative(kind, val, &sum);
      }
      break;
    }
    case hci::ValueKind::kRotation: {
      Quat q;
      for (int i = 0; i < n; ++i) {
        if (!items_[i]) continue;
        const float w = WeightAt(i, t, valid);
        if (w == 0.0f) continue;
        Quat v;
        items_[i]->GetValue(t, &v, valid, CTRL_ABSOLUTE);
        q = Normalize(hci::Weighted(v, w) * q);
      }
      if (method == CTRL_ABSOLUTE) {
        *static_cast<Quat*>(val) = q;
      } else {
        hci::ApplyRelative(kind, val, &q);
      }
      break;
    }
    case hci::ValueKind::kScale: {
      ScaleValue s;
      for (int i = 0; i < n; ++i) {
        if (!items_[i]) continue;
        const float w = WeightAt(i, t, valid);
        if (w == 0.0f) continue;
        ScaleValue v;
        items_[i]->GetValue(t, &v, valid, CTRL_ABSOLUTE);
        s = hci::ComposeScale(hci::Weighted(v, w), s);
      }
      if (method == CTRL_ABSOLUTE) {
        *static_cast<ScaleValue*>(val) = s;
      } else {
        hci::ApplyRelative(kind, val, &s);
      }
      break;
    }
    default:
      break;
  }
}

void ListControl::SetValue(TimeValue t, void* val, int commit, GetSetMethod method) {
  const int n = GetListCount();
  const int a = active_;
  if (GetLocked() || !val || a < 0 || a >= n || !items_[a]) return;
  Interval ignored = FOREVER;
  const float w = WeightAt(a, t, ignored);
  if (w == 0.0f) return;
  Control* item = items_[a];
  switch (hci::KindOf(super_)) {
    case hci::ValueKind::kFloat: {
      float v = *static_cast<const float*>(val);
      if (method == CTRL_ABSOLUTE) {
        for (int i = 0; i < n; ++i) {
          if (i == a || !items_[i]) continue;
          float other = 0.0f;
          items_[i]->GetValue(t, &other, ignored, CTRL_ABSOLUTE);
          v -= other * WeightAt(i, t, ignored);
        }
      }
      v /= w;
      item->SetValue(t, &v, commit, method);
      break;
    }
    case hci::ValueKind::kPoint3:
    case hci::ValueKind::kPosition: {
      Point3 v = *static_cast<const Point3*>(val);
      if (method == CTRL_ABSOLUTE) {
        for (int i = 0; i < n; ++i) {
          if (i == a || !items_[i]) continue;
          Point3 other;
          items_[i]->GetValue(t, &other, ignored, CTRL_ABSOLUTE);
          v -= other * WeightAt(i, t, ignored);
        }
      }
      v /= w;
      item->SetValue(t, &v, commit, method);
      break;
    }
    case hci::ValueKind::kRotation: {
      // total = after * w(q_a) * before, with `after` the items from a + 1 up (applied first).
      Quat before, after, own;
      for (int i = 0; i < n; ++i) {
        if (!items_[i]) continue;
        Quat v;
        items_[i]->GetValue(t, &v, ignored, CTRL_ABSOLUTE);
        Quat wv = hci::Weighted(v, WeightAt(i, t, ignored));
        if (i < a) before = Normalize(wv * before);
        if (i > a) after = Normalize(wv * after);
        if (i == a) own = wv;
      }
      Quat target = method == CTRL_ABSOLUTE
                        ? Normalize(*static_cast<const Quat*>(val))
                        : hci::RelativeTarget(Normalize(after * own * before), val);
      Quat x = Normalize(Inverse(after) * target * Inverse(before));
      Quat q = w == 1.0f ? x : keycurve::QuatPow(x, 1.0 / w);
      item->SetValue(t, &q, commit, CTRL_ABSOLUTE);
      break;
    }
    case hci::ValueKind::kScale: {
      ScaleValue current;
      GetValue(t, &current, ignored, CTRL_ABSOLUTE);
      ScaleValue target = method == CTRL_ABSOLUTE ? *static_cast<const ScaleValue*>(val)
                                                  : hci::RelativeTarget(current, val);
      Point3 others(1, 1, 1);
      for (int i = 0; i < n; ++i) {
        if (i == a || !items_[i]) continue;
        ScaleValue v;
        items_[i]->GetValue(t, &v, ignored, CTRL_ABSOLUTE);
        others *= hci::Weighted(v, WeightAt(i, t, ignored)).s;
      }
      ScaleValue own;
      items_[a]->GetValue(t, &own, ignored, CTRL_ABSOLUTE);
      ScaleValue x(own.s, target.q);
      for (int c = 0; c < 3; ++c) {
        if (others[c] == 0.0f) continue;  // the others collapse this axis: nothing to reach
        const float wanted = target.s[c] / others[c];
        x.s[c] = 1.0f + (wanted - 1.0f) / w;
      }
      item->SetValue(t, &x, commit, CTRL_ABSOLUTE);
      break;
    }
    default:
      break;
  }
}

void ListControl::Copy(Control* from) {
  if (!from || from == this || from->SuperClassID() != super_) return;
  const int index = Append(from);
  if (index >= 0) SetActive(index);
  SetLocked(IsTrackLocked(from));
}

RefTargetHandle ListControl::Clone(RemapDir& remap) {
  auto* c = new ListControl(super_);
  const int n = GetListCount();
  c->items_.assign(n, nullptr);
  c->weights_.assign(n, nullptr);
  c->names_ = names_;
  c->active_ = active_;
  c->locked_ = locked_;
  for (int i = 0; i < n; ++i) {
    c->ReplaceReference(i, remap.CloneRef(items_[i]));
    c->ReplaceReference(c->WeightRef(i), remap.CloneRef(weights_[i]));
  }
  BaseClone(this, c, remap);
  return c;
}

IOResult ListControl::Save(ISave* isave) {
  if (SaveLockChunk(isave, locked_) != IO_OK) return IO_ERROR;
  if (SaveChunk(isave, kCountChunk, std::int32_t(GetListCount())) != IO_OK) return IO_ERROR;
  if (SaveChunk(isave, kActiveChunk, std::int32_t(active_)) != IO_OK) return IO_ERROR;
  if (SaveChunk(isave, kWeightTracksChunk, std::int32_t(GetListCount())) != IO_OK) return IO_ERROR;
  IOResult res = IO_OK;
  isave->BeginChunk(kNamesChunk);
  for (const MSTR& name : names_) {
    isave->BeginChunk(kNameChunk);
    res = isave->WriteWString(name);
    isave->EndChunk();
    if (res != IO_OK) break;
  }
  isave->EndChunk();
  return res == IO_OK ? IO_OK : IO_ERROR;
}

IOResult ListControl::Load(ILoad* iload) {
  State s;
  s.locked = locked_;
  int count = -1;
  int track_count = -1;
  std::vector<float> legacy_weights;
  bool have_legacy_weights = false, have_names = false;
  const IOResult res = ForEachChunk(iload, [&](USHORT id) -> IOResult {
    switch (id) {
      case kLockChunkID:
        return LoadLockChunk(iload, s.locked);
      case kCountChunk: {
        std::int32_t c = 0;
        if (LoadValue(iload, c) != IO_OK || c < 0 || c > kMaxListItems) return IO_ERROR;
        count = c;
        return IO_OK;
      }
      case kActiveChunk: {
        std::int32_t a = 0;
        const IOResult r = LoadValue(iload, a);
        s.active = a;
        return r;
      }
      case kWeightTracksChunk: {
        std::int32_t c = 0;
        const IOResult r = LoadValue(iload, c);
        track_count = c;
        return r;
      }
      case kLegacyWeightsChunk: {
        const ULONG length = iload->CurChunkLength();
        if (count < 0 || length != ULONG(count) * sizeof(float)) return IO_ERROR;
        legacy_weights.resize(count);
        ULONG read = 0;
        if (length > 0 &&
            (iload->Read(legacy_weights.data(), length, &read) != IO_OK || read != length)) {
          return IO_ERROR;
        }
        have_legacy_weights = true;
        return IO_OK;
      }
      case kNamesChunk:
        have_names = true;
        return ForEachChunk(iload, [&](USHORT sub_id) {
          if (sub_id != kNameChunk) return IO_OK;
          std::string name;
          if (iload->ReadWStringChunk(name) != IO_OK) return IO_ERROR;
          s.names.push_back(std::move(name));
          return IO_OK;
        });
      default:
        return IO_OK;
    }
  });
  if (res != IO_OK) return res;
  if (count < 0) count = 0;
  const bool tracks_by_reference = track_count >= 0;
  if (!have_legacy_weights) legacy_weights.assign(count, 1.0f);
  if (!have_names) s.names.assign(count, MSTR());
  if ((tracks_by_reference && (track_count != count || have_legacy_weights)) ||
      static_cast<int>(s.names.size()) != count || s.active < 0 ||
      (count > 0 ? s.active >= count : s.active != 0)) {
    return IO_ERROR;
  }
  s.items.assign(count, 0);
  s.weights.assign(count, 0);
  SetState(s);
  if (!tracks_by_reference) {
    // An older file: its weights become tracks here; the scene links only the items.
    HoldSuspend no_undo;
    for (int i = 0; i < count; ++i) {
      ReplaceReference(WeightRef(i), NewWeightTrack(legacy_weights[i]));
    }
  }
  return IO_OK;
}

namespace {

template <SClass_ID kSuper>
ClassDesc2* ListDesc() {
  const ListClass& c = ClassOf(kSuper);
  static hci::ControllerDesc desc(c.name, c.internal_name, c.super_class, c.class_id,
                                  [](bool) -> Animatable* { return new ListControl(kSuper); });
  return &desc;
}

}  // namespace

ClassDesc2* FloatListClassDesc() { return ListDesc<CTRL_FLOAT_CLASS_ID>(); }
ClassDesc2* Point3ListClassDesc() { return ListDesc<CTRL_POINT3_CLASS_ID>(); }
ClassDesc2* PositionListClassDesc() { return ListDesc<CTRL_POSITION_CLASS_ID>(); }
ClassDesc2* RotationListClassDesc() { return ListDesc<CTRL_ROTATION_CLASS_ID>(); }
ClassDesc2* ScaleListClassDesc() { return ListDesc<CTRL_SCALE_CLASS_ID>(); }
