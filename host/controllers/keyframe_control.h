// Copyright Marvolith contributors.
// The host's keyframe controllers: Bezier float, position, point3, colour, scale and point4,
// and TCB float, position, rotation and scale, as one template over a traits record.
#pragma once

#include <vector>

#include "host/controllers/keys.h"
#include "host/controllers/std_control.h"
#include "host/io/chunk_io.h"

class ClassDesc2;

namespace keyframe_detail {
/// Bezier keys keep their computed tangents in the key records themselves.
struct NoKeyCache {};
/// Kochanek-Bartels tangents of one key per channel (value per unit of segment parameter).
struct TCBKeyCache {
  float in[3] = {0, 0, 0};
  float out[3] = {0, 0, 0};
};
/// A TCB rotation key's absolute rotation and its squad inner controls before and after it.
struct TCBRotKeyCache {
  Quat abs;
  Quat before;
  Quat after;
};
}  // namespace keyframe_detail

// Traits of the ten classes: key record, value, per-key cache, identity and names.
struct BezierFloatTraits {
  using Key = IBezFloatKey;
  using Value = float;
  using Cache = keyframe_detail::NoKeyCache;
  static constexpr SClass_ID kSuperClass = CTRL_FLOAT_CLASS_ID;
  static constexpr Class_ID kClassID{0x2007, 0};
  static constexpr const char* kClassName = "Bezier Float";
  static constexpr const char* kInternalName = "Bezier_Float";
};
struct BezierPositionTraits {
  using Key = IBezPoint3Key;
  using Value = Point3;
  using Cache = keyframe_detail::NoKeyCache;
  static constexpr SClass_ID kSuperClass = CTRL_POSITION_CLASS_ID;
  static constexpr Class_ID kClassID{0x2008, 0};
  static constexpr const char* kClassName = "Bezier Position";
  static constexpr const char* kInternalName = "Bezier_Position";
};
struct BezierPoint3Traits {
  using Key = IBezPoint3Key;
  using Value = Point3;
  using Cache = keyframe_detail::NoKeyCache;
  static constexpr SClass_ID kSuperClass = CTRL_POINT3_CLASS_ID;
  static constexpr Class_ID kClassID{0x200A, 0};
  static constexpr const char* kClassName = "Bezier Point3";
  static constexpr const char* kInternalName = "Bezier_Point3";
};
struct BezierColorTraits {
  using Key = IBezPoint3Key;
  using Value = Point3;
  using Cache = keyframe_detail::NoKeyCache;
  static constexpr SClass_ID kSuperClass = CTRL_POINT3_CLASS_ID;
  static constexpr Class_ID kClassID{0x2011, 0};
  static constexpr const char* kClassName = "Bezier Color";
  static constexpr const char* kInternalName = "Bezier_Color";
};
struct BezierScaleTraits {
  using Key = IBezScaleKey;
  using Value = ScaleValue;
  using Cache = keyframe_detail::NoKeyCache;
  static constexpr SClass_ID kSuperClass = CTRL_SCALE_CLASS_ID;
  static constexpr Class_ID kClassID{0x2010, 0};
  static constexpr const char* kClassName = "Bezier Scale";
  static constexpr const char* kInternalName = "Bezier_Scale";
};
struct BezierPoint4Traits {
  using Key = IBezPoint4Key;
  using Value = Point4;
  using Cache = keyframe_detail::NoKeyCache;
  static constexpr SClass_ID kSuperClass = CTRL_POINT4_CLASS_ID;
  static constexpr Class_ID kClassID{0x2012, 0};
  static constexpr const char* kClassName = "Bezier Point4";
  static constexpr const char* kInternalName = "Bezier_Point4";
};
struct TCBFloatTraits {
  using Key = ITCBFloatKey;
  using Value = float;
  using Cache = keyframe_detail::TCBKeyCache;
  static constexpr SClass_ID kSuperClass = CTRL_FLOAT_CLASS_ID;
  static constexpr Class_ID kClassID{0x442311, 0};
  static constexpr const char* kClassName = "TCB Float";
  static constexpr const char* kInternalName = "TCB_Float";
};
struct TCBPositionTraits {
  using Key = ITCBPoint3Key;
  using Value = Point3;
  using Cache = keyframe_detail::TCBKeyCache;
  static constexpr SClass_ID kSuperClass = CTRL_POSITION_CLASS_ID;
  static constexpr Class_ID kClassID{0x442312, 0};
  static constexpr const char* kClassName = "TCB Position";
  static constexpr const char* kInternalName = "TCB_Position";
};
struct TCBRotationTraits {
  using Key = ITCBRotKey;
  using Value = Quat;
  using Cache = keyframe_detail::TCBRotKeyCache;
  static constexpr SClass_ID kSuperClass = CTRL_ROTATION_CLASS_ID;
  static constexpr Class_ID kClassID{0x442313, 0};
  static constexpr const char* kClassName = "TCB Rotation";
  static constexpr const char* kInternalName = "TCB_Rotation";
};
struct TCBScaleTraits {
  using Key = ITCBScaleKey;
  using Value = ScaleValue;
  using Cache = keyframe_detail::TCBKeyCache;
  static constexpr SClass_ID kSuperClass = CTRL_SCALE_CLASS_ID;
  static constexpr Class_ID kClassID{0x442315, 0};
  static constexpr const char* kClassName = "TCB Scale";
  static constexpr const char* kInternalName = "TCB_Scale";
};

/// A keyframe controller: a sorted table of keys of Traits::Key, or one constant value while it
/// has none.
///
/// Evaluation. Between keys the Bezier classes follow the cubic of curve_core.h per channel
/// (the scale axis system slerps linearly in time); the TCB classes follow Kochanek-Bartels
/// Hermite segments with ease, rotations by squad of the absolute key rotations (a segment whose
/// key turns more than half a turn spins about its key axis instead). A stepped out tangent
/// holds a key's value until the next key; a stepped in tangent jumps to the next key's value
/// right after the key. Automatic tangents (every type but custom) are recomputed whenever keys
/// change and are written into the key records, where GetKey shows them. Outside the keys the
/// out-of-range types of StdControl apply; ORT_LOOP also wraps the end keys' automatic tangents.
/// `valid` narrows to the instant, except over a constant or stepped stretch and outside the
/// keys with constant out-of-range types.
///
/// Editing. SetValue with Animating() keys the value at t (a key there takes it; otherwise a new
/// key with automatic tangents appears); relative values add, or compose for rotation (an
/// AngAxis turning after the current rotation) and scale. Without animate mode a track without
/// keys takes the value as its constant, and a track with keys moves every key by the change at
/// t (scale factors by their ratio, rotations by the change applied first), so the whole curve
/// follows. commit 0 keeps the value pending, seen by GetValue at that time only, until
/// CommitValue applies it or RestoreValue drops it. While locked, SetValue, IKeyControl writes and
/// key operations do nothing. Every edit is one undo record per hold and tells dependents
/// REFMSG_CHANGE; selection changes tell REFMSG_KEY_SELECTION_CHANGED. TCB rotation edits keep
/// every other key's absolute rotation.
template <typename Traits>
class KeyframeControl final : public StdControl, public ILockedTrackImp, public IKeyControl {
 public:
  using Key = typename Traits::Key;
  using Value = typename Traits::Value;
  using Cache = typename Traits::Cache;

  KeyframeControl();

  /// Everything a restore record or a clone keeps.
  struct State {
    std::vector<Key> keys;
    Value value{};
    int ort_before = ORT_CONSTANT;
    int ort_after = ORT_CONSTANT;
    bool orts_enabled = true;
    bool locked = false;
    DWORD track_flags = 0;
  };
  State GetState() const;
  /// Replaces the whole state (no undo record; restore records and clones use it).
  void SetState(const State& s);

  // Animatable.
  Class_ID ClassID() override { return Traits::kClassID; }
  SClass_ID SuperClassID() override { return Traits::kSuperClass; }
  void GetClassName(MSTR& s, bool localized = true) const override { s = Traits::kClassName; }
  void* GetInterface(ULONG id) override;
  using StdControl::GetInterface;

  // Keys.
  int NumKeys() override { return static_cast<int>(keys_.size()); }
  TimeValue GetKeyTime(int index) override;
  int GetKeyIndex(TimeValue t) override;
  /// The nearest key time after t (NEXTKEY_RIGHT, the default) or before it (NEXTKEY_LEFT).
  bool GetNextKeyTime(TimeValue t, DWORD flags, TimeValue& nt) override;
  /// A key at dst with the key at src (or the curve's value at src when there is none there).
  void CopyKeysFromTime(TimeValue src, TimeValue dst, DWORD flags) override;
  /// A key at t with the curve's value there (out-of-range types included); nothing when a key
  /// is there already. ADDKEY_SELECT selects the key alone.
  void AddNewKey(TimeValue t, DWORD flags) override;
  void DeleteKeyAtTime(TimeValue t) override;
  bool IsKeyAtTime(TimeValue t, DWORD flags) override { return GetKeyIndex(t) >= 0; }
  /// TRACK_DOALL deletes every key, TRACK_DOSEL the selected ones. A track left without keys
  /// keeps the value it had at the current time as its constant.
  void DeleteKeys(DWORD flags) override;
  void DeleteKeyByIndex(int index) override;
  /// Sets or clears the key's whole selection (bit 0 and the per-channel bits).
  void SelectKeyByIndex(int index, bool select) override;
  bool IsKeySelected(int index) override;
  int NumSelKeys() override;
  /// Maps the times of all keys, or with TRACK_DOSEL (and not TRACK_DOALL) of the selected
  /// ones, then re-sorts. Times are clamped to the valid key times; where keys meet at one time
  /// the moved key stays and the other goes. TRACK_SLIDEUNSEL is not supported (ignored).
  void MapKeys(TimeMap* map, DWORD flags) override;
  /// First to last key (TIMERANGE_SELONLY: of the selected keys); NEVER without keys.
  Interval GetTimeRange(DWORD flags) override;
  /// Appends the key times inside range; answers how many.
  int GetKeyTimes(Tab<TimeValue>& times, Interval range, DWORD flags) override;
  bool IsAnimated() override { return !keys_.empty(); }

  // IKeyControl.
  int GetNumKeys() override { return NumKeys(); }
  void SetNumKeys(int n) override;
  void GetKey(int i, IKey* key) override;
  void SetKey(int i, IKey* key) override;
  int AppendKey(IKey* key) override;
  void SortKeys() override;
  DWORD& GetTrackFlags() override { return track_flags_; }
  int GetKeySize() override { return static_cast<int>(sizeof(Key)); }

  // Control.
  /// Same class: takes over keys, value and out-of-range types; another class: its value at the
  /// current time becomes the constant. The locked state follows from either way.
  void Copy(Control* from) override;
  void CommitValue(TimeValue t) override;
  void RestoreValue(TimeValue t) override;

  // StdControl.
  void GetValueLocalTime(TimeValue t,
                         void* val,
                         Interval& valid,
                         GetSetMethod method = CTRL_ABSOLUTE) override;
  void SetValueLocalTime(TimeValue t,
                         void* val,
                         int commit = 1,
                         GetSetMethod method = CTRL_ABSOLUTE) override;
  /// ORT_LINEAR continues along the end key's own tangent (rotations: StdControl's estimate).
  void Extrapolate(Interval range, TimeValue t, void* val, Interval& valid, int type) override;

  // Locked track: undoable.
  void SetLocked(bool locked, bool set_children = false) override;

  // References.
  RefResult NotifyRefChanged(const Interval&, RefTargetHandle, PartID&, RefMessage, bool) override {
    return REF_SUCCEED;
  }
  RefTargetHandle Clone(RemapDir& remap) override;
  /// Chunks: kLockChunkID locked (1 byte), 0x0010 out-of-range types (2 x int32), 0x0011 enabled
  /// (1 byte), 0x0020 constant value, 0x0030 the key records back to back, 0x0040 track flags.
  IOResult Save(ISave* isave) override;
  /// Reads the chunks above and skips others. A chunk of a wrong size, a key table that is not
  /// a whole number of records, an invalid key time or an unknown out-of-range type answers
  /// IO_ERROR and leaves the controller as it was.
  IOResult Load(ILoad* iload) override;

 protected:
  void HoldORTState() override { HoldState(); }
  void ORTChanged() override;

 private:
  struct Entry;
  void HoldState();
  void NotifyChange();
  void NotifySelection();
  /// Sorts and recomputes tangents and caches when keys changed. Allocates nothing.
  void Prepare();
  bool Cyclic() const;
  Value KeyAbs(int i) const;
  Value Evaluate(TimeValue t, Interval& valid) const;
  Value CurrentValue(TimeValue t);
  void ApplyTarget(TimeValue t, const Value& current, const Value& target);
  std::vector<Entry> Entries();
  void CommitEntries(std::vector<Entry>& entries);
  void SetOrInsertKey(TimeValue t, const Value& v, const Key* model);
  void EraseKeys(const std::vector<bool>& erase);

  std::vector<Key> keys_;
  std::vector<Cache> cache_;
  Value value_{};
  DWORD track_flags_ = 0;
  bool sorted_ = true;
  bool dirty_ = true;
  bool has_pending_ = false;
  TimeValue pending_time_ = 0;
  Value pending_{};
};

using BezierFloatControl = KeyframeControl<BezierFloatTraits>;
using BezierPositionControl = KeyframeControl<BezierPositionTraits>;
using BezierPoint3Control = KeyframeControl<BezierPoint3Traits>;
using BezierColorControl = KeyframeControl<BezierColorTraits>;
using BezierScaleControl = KeyframeControl<BezierScaleTraits>;
using BezierPoint4Control = KeyframeControl<BezierPoint4Traits>;
using TCBFloatControl = KeyframeControl<TCBFloatTraits>;
using TCBPositionControl = KeyframeControl<TCBPositionTraits>;
using TCBRotationControl = KeyframeControl<TCBRotationTraits>;
using TCBScaleControl = KeyframeControl<TCBScaleTraits>;

/// The class descriptor of KeyframeControl<Traits>.
template <typename Traits>
ClassDesc2* KeyframeClassDesc();
