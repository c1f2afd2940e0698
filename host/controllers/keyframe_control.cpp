// Copyright Marvolith contributors.
#include "host/controllers/keyframe_control.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <numbers>
#include <type_traits>

#include "host/controllers/curve_core.h"
#include "host/controllers/internal/value_ops.h"
#include "host/core/clock.h"
#include "host/registry/class_desc.h"
#include "host/undo/hold.h"
#include "support/hold_record.h"
#include "support/lock_chunk.h"
#include "support/track_assign.h"

namespace hci = host_controllers_internal;
namespace kd = keyframe_detail;

namespace {

constexpr USHORT kOrtChunk = 0x0010;
constexpr USHORT kOrtEnabledChunk = 0x0011;
constexpr USHORT kValueChunk = 0x0020;
constexpr USHORT kKeysChunk = 0x0030;
constexpr USHORT kTrackFlagsChunk = 0x0040;

// Channel c of a value, a tangent or a length field.
inline float& Ch(float& v, int) { return v; }
inline float& Ch(Point3& v, int c) { return v[c]; }
inline float& Ch(Point4& v, int c) { return v[c]; }
inline float& Ch(ScaleValue& v, int c) { return v.s[c]; }
inline float Ch(const float& v, int) { return v; }
inline float Ch(const Point3& v, int c) { return v[c]; }
inline float Ch(const Point4& v, int c) { return v[c]; }
inline float Ch(const ScaleValue& v, int c) { return v.s[c]; }

template <typename V>
constexpr int kChannels = std::is_same_v<V, float>    ? 1
                          : std::is_same_v<V, Point4> ? 4
                          : std::is_same_v<V, Quat>   ? 0
                                                      : 3;

template <typename K>
constexpr bool kBezier = std::is_same_v<K, IBezFloatKey> || std::is_same_v<K, IBezPoint3Key> ||
                         std::is_same_v<K, IBezScaleKey> || std::is_same_v<K, IBezPoint4Key>;
template <typename K>
constexpr bool kRotation = std::is_same_v<K, ITCBRotKey>;

// A neighbour of key k: its index, and the time shift of a neighbour found by wrapping round
// (loop out-of-range type): one period back from the first key, one forward from the last.
struct Neighbour {
  bool has = false;
  int index = 0;
  double shift = 0.0;
};

Neighbour PrevOf(int k, int n, bool cyclic, double period) {
  if (k > 0) return {true, k - 1, 0.0};
  if (cyclic && n >= 2) return {true, n - 2, -period};
  return {};
}

Neighbour NextOf(int k, int n, bool cyclic, double period) {
  if (k < n - 1) return {true, k + 1, 0.0};
  if (cyclic && n >= 2) return {true, 1, period};
  return {};
}

// The handle length used on the value axis: 0..1, or any length >= 0 for an unconstrained key.
double ValueLength(float len, DWORD flags) {
  if (!(len > 0.0f)) return 0.0;
  if (!std::isfinite(len)) return 0.0;
  return (flags & BEZKEY_UNCONSTRAINHANDLE) ? len : std::min(len, 1.0f);
}

template <typename Key>
void InsertionSort(std::vector<Key>& keys) {
  // Stable and in place: evaluation may sort, and must not allocate.
  for (size_t i = 1; i < keys.size(); ++i) {
    Key k = keys[i];
    size_t j = i;
    while (j > 0 && keys[j - 1].time > k.time) {
      keys[j] = keys[j - 1];
      --j;
    }
    keys[j] = k;
  }
}

TimeValue ClampKeyTime(TimeValue t) {
  if (t > kMaxKeyTime) return kMaxKeyTime;
  if (t < kMinKeyTime) return kMinKeyTime;
  return t;
}

// ---- Bezier family ----

template <typename Key>
void PrepareBezier(std::vector<Key>& keys, bool cyclic) {
  using V = decltype(Key::val);
  const int n = static_cast<int>(keys.size());
  const double period = n > 1 ? double(keys[n - 1].time) - keys[0].time : 0.0;
  if (!(period > 0.0)) cyclic = false;
  for (int k = 0; k < n; ++k) {
    Key& key = keys[k];
    const int in_type = GetInTanType(key.flags);
    const int out_type = GetOutTanType(key.flags);
    if (in_type == BEZKEY_USER && out_type == BEZKEY_USER) continue;
    const Neighbour p = PrevOf(k, n, cyclic, period);
    const Neighbour q = NextOf(k, n, cyclic, period);
    for (int c = 0; c < kChannels<V>; ++c) {
      keycurve::SlopeInput in;
      in.t = key.time;
      in.v = Ch(key.val, c);
      if (p.has) {
        in.has_prev = true;
        in.t_prev = keys[p.index].time + p.shift;
        in.v_prev = Ch(keys[p.index].val, c);
      }
      if (q.has) {
        in.has_next = true;
        in.t_next = keys[q.index].time + q.shift;
        in.v_next = Ch(keys[q.index].val, c);
      }
      // The in tangent points backwards in time: it is the negated slope.
      if (in_type != BEZKEY_USER) {
        Ch(key.intan, c) = static_cast<float>(-keycurve::AutoSlope(in_type, false, in));
        Ch(key.inLength, c) = 1.0f / 3.0f;
      }
      if (out_type != BEZKEY_USER) {
        Ch(key.outtan, c) = static_cast<float>(keycurve::AutoSlope(out_type, true, in));
        Ch(key.outLength, c) = 1.0f / 3.0f;
      }
    }
  }
}

// Value strictly inside the segment from a to b (or at a's time for its validity).
template <typename Key>
auto BezierSegment(const Key& a, const Key& b, TimeValue t, Interval& valid) {
  using V = decltype(Key::val);
  if (GetOutTanType(a.flags) == BEZKEY_STEP) {
    valid &= Interval(a.time, b.time - 1);
    return a.val;
  }
  if (GetInTanType(b.flags) == BEZKEY_STEP) {
    valid &= Interval(a.time + 1, b.time);
    return b.val;
  }
  V r = b.val;
  bool constant = true;
  for (int c = 0; c < kChannels<V>; ++c) {
    const double la = Ch(a.outLength, c), lb = Ch(b.inLength, c);
    const double lva = ValueLength(Ch(a.outLength, c), a.flags);
    const double lvb = ValueLength(Ch(b.inLength, c), b.flags);
    const double va = Ch(a.val, c), vb = Ch(b.val, c);
    const double oa = Ch(a.outtan, c), ib = Ch(b.intan, c);
    Ch(r, c) = static_cast<float>(
        keycurve::BezierSegmentValue(t, a.time, va, oa, la, lva, b.time, vb, ib, lb, lvb));
    if (va != vb || oa * lva != 0.0 || ib * lvb != 0.0) constant = false;
  }
  if constexpr (std::is_same_v<V, ScaleValue>) {
    // The stretch axes turn evenly in time from key to key.
    Quat qb = b.val.q;
    qb.MakeClosest(a.val.q);
    float s = static_cast<float>((double(t) - a.time) / (double(b.time) - a.time));
    r.q = Slerp(a.val.q, qb, s);
    if (!(a.val.q == b.val.q)) constant = false;
  }
  valid &= constant ? Interval(a.time, b.time) : Interval(t, t);
  return r;
}

// Slope per tick at the first (before) or last key, for linear extrapolation.
template <typename Key>
void BezierEndSlope(const std::vector<Key>& keys, bool before, double* slope) {
  using V = decltype(Key::val);
  const int n = static_cast<int>(keys.size());
  const Key& a = before ? keys[0] : keys[n - 2];
  const Key& b = before ? keys[1] : keys[n - 1];
  const bool stepped =
      GetOutTanType(a.flags) == BEZKEY_STEP || GetInTanType(b.flags) == BEZKEY_STEP;
  for (int c = 0; c < kChannels<V>; ++c) {
    slope[c] = stepped ? 0.0 : (before ? double(Ch(a.outtan, c)) : -double(Ch(b.intan, c)));
  }
}

// ---- TCB family ----

keycurve::TCBParams ParamsOf(const ITCBKey& k) { return {k.tens, k.cont, k.bias}; }

template <typename Key>
void PrepareTCB(const std::vector<Key>& keys, std::vector<kd::TCBKeyCache>& cache, bool cyclic) {
  using V = decltype(Key::val);
  const int n = static_cast<int>(keys.size());
  const double period = n > 1 ? double(keys[n - 1].time) - keys[0].time : 0.0;
  if (!(period > 0.0)) cyclic = false;
  for (int k = 0; k < n; ++k) {
    const Key& key = keys[k];
    const Neighbour p = PrevOf(k, n, cyclic, period);
    const Neighbour q = NextOf(k, n, cyclic, period);
    const double dt_prev = p.has ? double(key.time) - (keys[p.index].time + p.shift) : 0.0;
    const double dt_next = q.has ? (keys[q.index].time + q.shift) - double(key.time) : 0.0;
    for (int c = 0; c < kChannels<V>; ++c) {
      const double v = Ch(key.val, c);
      const double g_prev = p.has ? v - Ch(keys[p.index].val, c) : 0.0;
      const double g_next = q.has ? Ch(keys[q.index].val, c) - v : 0.0;
      double in = 0.0, out = 0.0;
      keycurve::TCBTangents(ParamsOf(key), p.has, q.has, dt_prev, dt_next, g_prev, g_next, in, out);
      cache[k].in[c] = static_cast<float>(in);
      cache[k].out[c] = static_cast<float>(out);
    }
  }
}

template <typename Key>
auto TCBSegment(const Key& a,
                const kd::TCBKeyCache& ca,
                const Key& b,
                const kd::TCBKeyCache& cb,
                TimeValue t,
                Interval& valid) {
  using V = decltype(Key::val);
  const double s = (double(t) - a.time) / (double(b.time) - a.time);
  const double u = keycurve::Ease(s, a.easeOut, b.easeIn);
  V r = b.val;
  bool constant = true;
  for (int c = 0; c < kChannels<V>; ++c) {
    const double va = Ch(a.val, c), vb = Ch(b.val, c);
    Ch(r, c) = static_cast<float>(keycurve::Hermite(u, va, ca.out[c], vb, cb.in[c]));
    if (va != vb || ca.out[c] != 0.0f || cb.in[c] != 0.0f) constant = false;
  }
  if constexpr (std::is_same_v<V, ScaleValue>) {
    Quat qb = b.val.q;
    qb.MakeClosest(a.val.q);
    r.q = Slerp(a.val.q, qb, static_cast<float>(u));
    if (!(a.val.q == b.val.q)) constant = false;
  }
  valid &= constant ? Interval(a.time, b.time) : Interval(t, t);
  return r;
}

template <typename Key>
void TCBEndSlope(const std::vector<Key>& keys,
                 const std::vector<kd::TCBKeyCache>& cache,
                 bool before,
                 double* slope) {
  using V = decltype(Key::val);
  const int n = static_cast<int>(keys.size());
  const Key& a = before ? keys[0] : keys[n - 2];
  const Key& b = before ? keys[1] : keys[n - 1];
  const double dt = double(b.time) - a.time;
  const double ease = keycurve::EaseSlope(before ? 0.0 : 1.0, a.easeOut, b.easeIn);
  for (int c = 0; c < kChannels<V>; ++c) {
    const double tangent = before ? cache[0].out[c] : cache[n - 1].in[c];
    slope[c] = dt > 0.0 ? tangent * ease / dt : 0.0;
  }
}

// Rotation keys: absolute rotations by composition, then squad controls from the log-space
// Kochanek-Bartels tangents: after(k) = q_k exp((out_k - g_next) / 2) and
// before(k) = q_k exp((g_prev - in_k) / 2), so squad leaves and enters each key with the
// tangent the TCB parameters ask for.
void PrepareRotation(const std::vector<ITCBRotKey>& keys,
                     std::vector<kd::TCBRotKeyCache>& cache,
                     bool cyclic) {
  const int n = static_cast<int>(keys.size());
  for (int k = 0; k < n; ++k) {
    Quat q = k == 0 ? Quat(keys[0].val) : cache[k - 1].abs * Quat(keys[k].val);
    q.Normalize();
    if (k > 0) q.MakeClosest(cache[k - 1].abs);
    cache[k].abs = q;
  }
  const double period = n > 1 ? double(keys[n - 1].time) - keys[0].time : 0.0;
  if (!(period > 0.0)) cyclic = false;
  auto step = [&](int k) { return keycurve::QuatLog(Inverse(cache[k].abs) * cache[k + 1].abs); };
  for (int k = 0; k < n; ++k) {
    const Neighbour p = PrevOf(k, n, cyclic, period);
    const Neighbour q = NextOf(k, n, cyclic, period);
    // Wrapped neighbours repeat the step of the segment at the other end.
    const Point3 g_prev = p.has ? step(k > 0 ? k - 1 : n - 2) : Point3();
    const Point3 g_next = q.has ? step(k < n - 1 ? k : 0) : Point3();
    const double dt_prev = p.has ? double(keys[k].time) - (keys[p.index].time + p.shift) : 0.0;
    const double dt_next = q.has ? (keys[q.index].time + q.shift) - double(keys[k].time) : 0.0;
    Point3 in, out;
    for (int c = 0; c < 3; ++c) {
      double ti = 0.0, to = 0.0;
      keycurve::TCBTangents(ParamsOf(keys[k]), p.has, q.has, dt_prev, dt_next, g_prev[c], g_next[c],
                            ti, to);
      in[c] = static_cast<float>(ti);
      out[c] = static_cast<float>(to);
    }
    const Quat& qk = cache[k].abs;
    cache[k].after = q.has ? Normalize(qk * keycurve::QuatExp((out - g_next) * 0.5f)) : qk;
    cache[k].before = p.has ? Normalize(qk * keycurve::QuatExp((g_prev - in) * 0.5f)) : qk;
  }
}

Quat RotationSegment(const ITCBRotKey& a,
                     const kd::TCBRotKeyCache& ca,
                     const ITCBRotKey& b,
                     const kd::TCBRotKeyCache& cb,
                     TimeValue t,
                     Interval& valid) {
  const double s = (double(t) - a.time) / (double(b.time) - a.time);
  const float u = static_cast<float>(keycurve::Ease(s, a.easeOut, b.easeIn));
  const bool constant =
      b.val.angle == 0.0f && ca.abs == cb.abs && ca.after == ca.abs && cb.before == cb.abs;
  valid &= constant ? Interval(a.time, b.time) : Interval(t, t);
  if (std::fabs(b.val.angle) > std::numbers::pi_v<float>) {
    // More than half a turn: spin about the key's own axis as far as it says.
    return Normalize(ca.abs * QFromAngAxis(b.val.angle * u, b.val.axis));
  }
  return keycurve::Squad(ca.abs, ca.after, cb.before, cb.abs, u);
}

// ---- Undo ----

template <typename C>
class KeyframeRestore : public RestoreObj {
 public:
  explicit KeyframeRestore(C* c)
      : handle_(Animatable::GetHandleByAnim(c)), before_(c->GetState()) {}
  void Restore(int is_undo) override {
    C* c = Get();
    if (!c) return;
    if (is_undo) after_ = c->GetState();
    c->SetState(before_);
    c->NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
  }
  void Redo() override {
    C* c = Get();
    if (!c) return;
    c->SetState(after_);
    c->NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
  }
  void EndHold() override {
    if (C* c = Get()) c->ClearAFlag(A_HELD);
  }
  int Size() override {
    return static_cast<int>(sizeof(*this) +
                            (before_.keys.size() + after_.keys.size()) * sizeof(typename C::Key));
  }
  MSTR Description() override { return "Keyframe Edit"; }

 private:
  C* Get() { return static_cast<C*>(Animatable::GetAnimByHandle(handle_)); }
  AnimHandle handle_;
  typename C::State before_;
  typename C::State after_;
};

template <typename Traits>
class KeyframeDesc : public ClassDesc2 {
 public:
  bool IsPublic() override { return true; }
  Animatable* Create(bool) override { return new KeyframeControl<Traits>(); }
  const char* ClassName() override { return Traits::kClassName; }
  const char* InternalName() override { return Traits::kInternalName; }
  SClass_ID SuperClassID() override { return Traits::kSuperClass; }
  Class_ID ClassID() override { return Traits::kClassID; }
  const char* Category() override { return ""; }
};

}  // namespace

// An edit's view of one key: the record, its absolute value, where it came from (-1 for a new
// key) and whether the edit changed its value or time.
template <typename Traits>
struct KeyframeControl<Traits>::Entry {
  Key key;
  Value abs;
  int id;
  bool changed;
  bool moved;
};

template <typename Traits>
KeyframeControl<Traits>::KeyframeControl() {
  value_ = hci::Identity<Value>();
  pending_ = value_;
}

template <typename Traits>
typename KeyframeControl<Traits>::State KeyframeControl<Traits>::GetState() const {
  State s;
  s.keys = keys_;
  s.value = value_;
  s.ort_before = ort_before_;
  s.ort_after = ort_after_;
  s.orts_enabled = orts_enabled_;
  s.locked = locked_;
  s.track_flags = track_flags_;
  return s;
}

template <typename Traits>
void KeyframeControl<Traits>::SetState(const State& s) {
  keys_ = s.keys;
  cache_.assign(keys_.size(), Cache{});
  value_ = s.value;
  ort_before_ = s.ort_before;
  ort_after_ = s.ort_after;
  orts_enabled_ = s.orts_enabled;
  locked_ = s.locked;
  track_flags_ = s.track_flags;
  sorted_ = false;
  dirty_ = true;
  has_pending_ = false;
}

template <typename Traits>
void* KeyframeControl<Traits>::GetInterface(ULONG id) {
  if (id == I_KEYCONTROL) return static_cast<IKeyControl*>(this);
  if (id == I_LOCKED) return static_cast<ILockedTrack*>(this);
  return StdControl::GetInterface(id);
}

template <typename Traits>
void KeyframeControl<Traits>::HoldState() {
  if (HoldWantsRecord(this)) theHold.Put(new KeyframeRestore<KeyframeControl>(this));
}

template <typename Traits>
void KeyframeControl<Traits>::NotifyChange() {
  NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
}

template <typename Traits>
void KeyframeControl<Traits>::NotifySelection() {
  NotifyDependents(FOREVER, PART_ALL, REFMSG_KEY_SELECTION_CHANGED);
}

template <typename Traits>
void KeyframeControl<Traits>::ORTChanged() {
  dirty_ = true;  // the loop type decides whether end tangents wrap round
  NotifyChange();
}

template <typename Traits>
bool KeyframeControl<Traits>::Cyclic() const {
  return orts_enabled_ && (ort_before_ == ORT_LOOP || ort_after_ == ORT_LOOP);
}

template <typename Traits>
void KeyframeControl<Traits>::Prepare() {
  if (!sorted_) {
    InsertionSort(keys_);
    sorted_ = true;
    dirty_ = true;
  }
  if (cache_.size() != keys_.size()) cache_.resize(keys_.size());  // only after a misuse
  if (!dirty_) return;
  if constexpr (kBezier<Key>) {
    PrepareBezier(keys_, Cyclic());
  } else if constexpr (kRotation<Key>) {
    PrepareRotation(keys_, cache_, Cyclic());
  } else {
    PrepareTCB(keys_, cache_, Cyclic());
  }
  dirty_ = false;
}

template <typename Traits>
typename KeyframeControl<Traits>::Value KeyframeControl<Traits>::KeyAbs(int i) const {
  if constexpr (kRotation<Key>) {
    return cache_[i].abs;
  } else {
    return keys_[i].val;
  }
}

template <typename Traits>
typename KeyframeControl<Traits>::Value KeyframeControl<Traits>::Evaluate(TimeValue t,
                                                                          Interval& valid) const {
  const int n = static_cast<int>(keys_.size());
  if (n == 0) return value_;
  if (n == 1) return KeyAbs(0);
  auto it = std::upper_bound(keys_.begin(), keys_.end(), t,
                             [](TimeValue v, const Key& k) { return v < k.time; });
  const int i = static_cast<int>(it - keys_.begin()) - 1;  // last key at or before t
  if (i < 0) {
    valid &= Interval(TIME_NegInfinity, keys_[0].time);
    return KeyAbs(0);
  }
  if (i == n - 1) {
    valid &= t == keys_[i].time ? Interval(t, t) : Interval(keys_[i].time, TIME_PosInfinity);
    return KeyAbs(i);
  }
  auto segment = [&](TimeValue at, Interval& iv) -> Value {
    if constexpr (kBezier<Key>) {
      return BezierSegment(keys_[i], keys_[i + 1], at, iv);
    } else if constexpr (kRotation<Key>) {
      return RotationSegment(keys_[i], cache_[i], keys_[i + 1], cache_[i + 1], at, iv);
    } else {
      return TCBSegment(keys_[i], cache_[i], keys_[i + 1], cache_[i + 1], at, iv);
    }
  };
  if (t == keys_[i].time) {
    // At the key itself: its own value; the segment after it says how long that holds.
    bool stepped_in = false;
    if constexpr (kBezier<Key>) stepped_in = GetInTanType(keys_[i + 1].flags) == BEZKEY_STEP;
    if (stepped_in) {
      valid &= Interval(t, t);
    } else {
      Interval seg = FOREVER;
      segment(t, seg);
      valid &= seg;
    }
    return KeyAbs(i);
  }
  return segment(t, valid);
}

template <typename Traits>
void KeyframeControl<Traits>::GetValueLocalTime(TimeValue t,
                                                void* val,
                                                Interval& valid,
                                                GetSetMethod method) {
  if (!val) return;
  Prepare();
  Value v;
  if (has_pending_ && t == pending_time_) {
    v = pending_;
    valid &= Interval(t, t);
  } else {
    v = Evaluate(t, valid);
  }
  if (method == CTRL_ABSOLUTE) {
    *static_cast<Value*>(val) = v;
  } else {
    ApplyValue(val, &v);
  }
}

template <typename Traits>
void KeyframeControl<Traits>::Extrapolate(
    Interval range, TimeValue t, void* val, Interval& valid, int type) {
  if constexpr (!kRotation<Key>) {
    if (type == ORT_LINEAR && keys_.size() >= 2) {
      Prepare();
      const bool before = t < range.Start();
      double slope[4] = {0, 0, 0, 0};
      if constexpr (kBezier<Key>) {
        BezierEndSlope(keys_, before, slope);
      } else {
        TCBEndSlope(keys_, cache_, before, slope);
      }
      const int i = before ? 0 : static_cast<int>(keys_.size()) - 1;
      Value v = KeyAbs(i);
      const double dt = double(t) - keys_[i].time;
      for (int c = 0; c < kChannels<Value>; ++c)
        Ch(v, c) = static_cast<float>(Ch(v, c) + slope[c] * dt);
      *static_cast<Value*>(val) = v;
      valid &= Interval(t, t);
      return;
    }
  }
  StdControl::Extrapolate(range, t, val, valid, type);
}

template <typename Traits>
typename KeyframeControl<Traits>::Value KeyframeControl<Traits>::CurrentValue(TimeValue t) {
  const bool pending = has_pending_;
  has_pending_ = false;
  Value v{};
  Interval iv = FOREVER;
  StdControl::GetValue(t, &v, iv, CTRL_ABSOLUTE);
  has_pending_ = pending;
  return v;
}

template <typename Traits>
std::vector<typename KeyframeControl<Traits>::Entry> KeyframeControl<Traits>::Entries() {
  Prepare();
  std::vector<Entry> e;
  e.reserve(keys_.size() + 1);
  for (int k = 0; k < static_cast<int>(keys_.size()); ++k) {
    e.push_back(Entry{keys_[k], KeyAbs(k), k, false, false});
  }
  return e;
}

template <typename Traits>
void KeyframeControl<Traits>::CommitEntries(std::vector<Entry>& e) {
  std::stable_sort(e.begin(), e.end(),
                   [](const Entry& a, const Entry& b) { return a.key.time < b.key.time; });
  const int n = static_cast<int>(e.size());
  keys_.resize(e.size());
  for (int k = 0; k < n; ++k) {
    keys_[k] = e[k].key;
    if constexpr (kRotation<Key>) {
      // A key keeps its relative turn (spins included) while it follows the same key as
      // before and neither changed; otherwise the turn is rebuilt from absolute rotations.
      const bool same_prev =
          k == 0 ? e[0].id == 0 : (e[k - 1].id >= 0 && e[k].id >= 0 && e[k - 1].id + 1 == e[k].id);
      const bool touched = e[k].changed || (k > 0 && e[k - 1].changed) || !same_prev;
      if (touched) {
        Quat rel = k == 0 ? e[0].abs : Inverse(e[k - 1].abs) * e[k].abs;
        keys_[k].val = AngAxis(Normalize(rel));
      }
    } else {
      if (e[k].changed) keys_[k].val = e[k].abs;
    }
  }
  cache_.assign(keys_.size(), Cache{});
  sorted_ = true;
  dirty_ = true;
}

template <typename Traits>
void KeyframeControl<Traits>::SetOrInsertKey(TimeValue t, const Value& v, const Key* model) {
  std::vector<Entry> e = Entries();
  for (Entry& entry : e) {
    if (entry.key.time != t) continue;
    if (model) {
      entry.key = *model;
      entry.key.time = t;
    }
    entry.abs = v;
    entry.changed = true;
    CommitEntries(e);
    return;
  }
  Entry added{};
  if (model) {
    added.key = *model;
  } else {
    added.key = Key{};
    if constexpr (kBezier<Key>) {
      added.key.flags = SetOutTanType(SetInTanType(0, kDefaultTangentType), kDefaultTangentType);
    }
  }
  added.key.time = t;
  added.abs = v;
  added.id = -1;
  added.changed = true;
  e.push_back(added);
  CommitEntries(e);
}

template <typename Traits>
void KeyframeControl<Traits>::EraseKeys(const std::vector<bool>& erase) {
  std::vector<Entry> e = Entries();
  std::vector<Entry> kept;
  kept.reserve(e.size());
  for (size_t i = 0; i < e.size(); ++i) {
    if (!erase[i]) kept.push_back(e[i]);
  }
  CommitEntries(kept);
}

template <typename Traits>
void KeyframeControl<Traits>::ApplyTarget(TimeValue t, const Value& current, const Value& target) {
  HoldState();
  if (Animating()) {
    if (!IsValidKeyTime(t)) return;
    // The first key set away from frame 0 keeps the track's old value at frame 0, as the host
    // does, so that animating a still track starts from where it stood.
    if (keys_.empty() && t != 0) SetOrInsertKey(0, current, nullptr);
    SetOrInsertKey(t, target, nullptr);
  } else if (keys_.empty()) {
    value_ = target;
  } else if constexpr (kRotation<Key>) {
    // Every later key is relative to the first: turning the first turns the whole curve.
    Prepare();
    keys_[0].val = AngAxis(hci::Shift(cache_[0].abs, current, target));
  } else {
    std::vector<Entry> e = Entries();
    for (size_t k = 0; k < e.size(); ++k) {
      e[k].abs = hci::Shift(e[k].abs, current, target);
      e[k].changed = true;
      if constexpr (std::is_same_v<Value, ScaleValue> && kBezier<Key>) {
        // Factors scale by a ratio, and so do their custom tangents.
        for (int c = 0; c < 3; ++c) {
          if (current.s[c] == 0.0f) continue;
          const float ratio = target.s[c] / current.s[c];
          e[k].key.intan[c] *= ratio;
          e[k].key.outtan[c] *= ratio;
        }
      }
    }
    CommitEntries(e);
  }
  dirty_ = true;
  NotifyChange();
}

template <typename Traits>
void KeyframeControl<Traits>::SetValueLocalTime(TimeValue t,
                                                void* val,
                                                int commit,
                                                GetSetMethod method) {
  if (GetLocked() || !val) return;
  has_pending_ = false;
  const Value current = CurrentValue(t);
  Value target =
      method == CTRL_ABSOLUTE ? *static_cast<const Value*>(val) : hci::RelativeTarget(current, val);
  if constexpr (std::is_same_v<Value, Quat>) target.Normalize();
  if (!commit) {
    has_pending_ = true;
    pending_time_ = t;
    pending_ = target;
    NotifyChange();
    return;
  }
  ApplyTarget(t, current, target);
}

template <typename Traits>
void KeyframeControl<Traits>::CommitValue(TimeValue) {
  if (!has_pending_ || GetLocked()) return;
  has_pending_ = false;
  const Value current = CurrentValue(pending_time_);
  ApplyTarget(pending_time_, current, pending_);
}

template <typename Traits>
void KeyframeControl<Traits>::RestoreValue(TimeValue) {
  if (!has_pending_) return;
  has_pending_ = false;
  NotifyChange();
}

template <typename Traits>
TimeValue KeyframeControl<Traits>::GetKeyTime(int index) {
  if (index < 0 || index >= NumKeys()) return 0;
  return keys_[index].time;
}

template <typename Traits>
int KeyframeControl<Traits>::GetKeyIndex(TimeValue t) {
  for (int i = 0; i < NumKeys(); ++i) {
    if (keys_[i].time == t) return i;
  }
  return -1;
}

template <typename Traits>
bool KeyframeControl<Traits>::GetNextKeyTime(TimeValue t, DWORD flags, TimeValue& nt) {
  Prepare();
  if (flags & NEXTKEY_LEFT) {
    for (int i = NumKeys() - 1; i >= 0; --i) {
      if (keys_[i].time < t) {
        nt = keys_[i].time;
        return true;
      }
    }
    return false;
  }
  for (const Key& k : keys_) {
    if (k.time > t) {
      nt = k.time;
      return true;
    }
  }
  return false;
}

template <typename Traits>
void KeyframeControl<Traits>::CopyKeysFromTime(TimeValue src, TimeValue dst, DWORD) {
  if (GetLocked() || src == dst || !IsValidKeyTime(dst)) return;
  Prepare();
  const int idx = GetKeyIndex(src);
  HoldState();
  if (idx >= 0) {
    const Key model = keys_[idx];
    SetOrInsertKey(dst, KeyAbs(idx), &model);
  } else {
    SetOrInsertKey(dst, CurrentValue(src), nullptr);
  }
  NotifyChange();
}

template <typename Traits>
void KeyframeControl<Traits>::AddNewKey(TimeValue t, DWORD flags) {
  if (GetLocked() || !IsValidKeyTime(t)) return;
  int idx = GetKeyIndex(t);
  if (idx < 0) {
    const Value v = CurrentValue(t);
    HoldState();
    SetOrInsertKey(t, v, nullptr);
    NotifyChange();
    idx = GetKeyIndex(t);
  }
  if (!(flags & ADDKEY_SELECT)) return;
  bool changed = false;
  for (int i = 0; i < NumKeys(); ++i) {
    DWORD f = keys_[i].flags & ~(IKEY_SELECTED | IKEY_ALLSEL);
    if (i == idx) f |= IKEY_SELECTED;
    if (f != keys_[i].flags) {
      if (!changed) HoldState();
      keys_[i].flags = f;
      changed = true;
    }
  }
  if (changed) NotifySelection();
}

template <typename Traits>
void KeyframeControl<Traits>::DeleteKeyAtTime(TimeValue t) {
  const int idx = GetKeyIndex(t);
  if (idx >= 0) DeleteKeyByIndex(idx);
}

template <typename Traits>
void KeyframeControl<Traits>::DeleteKeys(DWORD flags) {
  if (GetLocked() || keys_.empty()) return;
  Prepare();
  std::vector<bool> erase(keys_.size(), false);
  bool any = false, all = true;
  for (size_t i = 0; i < keys_.size(); ++i) {
    erase[i] = (flags & TRACK_DOALL) || ((flags & TRACK_DOSEL) && KeyFlagsSelected(keys_[i].flags));
    any = any || erase[i];
    all = all && erase[i];
  }
  if (!any) return;
  HoldState();
  if (all) value_ = CurrentValue(TheAnimClock().Time());
  EraseKeys(erase);
  NotifyChange();
}

template <typename Traits>
void KeyframeControl<Traits>::DeleteKeyByIndex(int index) {
  if (GetLocked() || index < 0 || index >= NumKeys()) return;
  Prepare();
  HoldState();
  if (keys_.size() == 1) value_ = CurrentValue(TheAnimClock().Time());
  std::vector<bool> erase(keys_.size(), false);
  erase[index] = true;
  EraseKeys(erase);
  NotifyChange();
}

template <typename Traits>
void KeyframeControl<Traits>::SelectKeyByIndex(int index, bool select) {
  if (index < 0 || index >= NumKeys()) return;
  const DWORD f = keys_[index].flags;
  const DWORD nf =
      select ? ((f & ~IKEY_ALLSEL) | IKEY_SELECTED) : (f & ~(IKEY_SELECTED | IKEY_ALLSEL));
  if (nf == f) return;
  HoldState();
  keys_[index].flags = nf;
  NotifySelection();
}

template <typename Traits>
bool KeyframeControl<Traits>::IsKeySelected(int index) {
  return index >= 0 && index < NumKeys() && KeyFlagsSelected(keys_[index].flags);
}

template <typename Traits>
int KeyframeControl<Traits>::NumSelKeys() {
  int n = 0;
  for (const Key& k : keys_) n += KeyFlagsSelected(k.flags) ? 1 : 0;
  return n;
}

template <typename Traits>
void KeyframeControl<Traits>::MapKeys(TimeMap* map, DWORD flags) {
  if (GetLocked() || !map || keys_.empty()) return;
  const bool sel_only = (flags & TRACK_DOSEL) && !(flags & TRACK_DOALL);
  std::vector<Entry> e = Entries();
  const int n = static_cast<int>(e.size());
  bool any = false;
  for (int j = 0; j < n; ++j) {
    Entry& entry = e[(flags & TRACK_RIGHTTOLEFT) ? n - 1 - j : j];
    if (sel_only && !KeyFlagsSelected(entry.key.flags)) continue;
    const TimeValue nt = ClampKeyTime(map->map(entry.key.time));
    entry.moved = true;
    if (nt != entry.key.time) {
      entry.key.time = nt;
      any = true;
    }
  }
  if (!any) return;
  HoldState();
  std::stable_sort(e.begin(), e.end(),
                   [](const Entry& a, const Entry& b) { return a.key.time < b.key.time; });
  // Keys that meet at one time: the moved one stays.
  std::vector<Entry> kept;
  kept.reserve(e.size());
  for (size_t i = 0; i < e.size();) {
    size_t j = i;
    size_t keep = i;
    for (; j < e.size() && e[j].key.time == e[i].key.time; ++j) {
      if (e[j].moved) keep = j;
    }
    kept.push_back(e[keep]);
    i = j;
  }
  CommitEntries(kept);
  NotifyChange();
}

template <typename Traits>
Interval KeyframeControl<Traits>::GetTimeRange(DWORD flags) {
  if (keys_.empty()) return NEVER;
  Prepare();
  if (flags & TIMERANGE_SELONLY) {
    Interval r = NEVER;
    for (const Key& k : keys_) {
      if (KeyFlagsSelected(k.flags)) r += k.time;
    }
    return r;
  }
  return Interval(keys_.front().time, keys_.back().time);
}

template <typename Traits>
int KeyframeControl<Traits>::GetKeyTimes(Tab<TimeValue>& times, Interval range, DWORD) {
  Prepare();
  int added = 0;
  for (const Key& k : keys_) {
    if (!range.InInterval(k.time)) continue;
    times.Append(k.time);
    ++added;
  }
  return added;
}

template <typename Traits>
void KeyframeControl<Traits>::SetNumKeys(int n) {
  if (GetLocked()) return;
  if (n < 0) n = 0;
  if (n == NumKeys()) return;
  HoldState();
  if (n < NumKeys()) {
    keys_.resize(n);
  } else {
    Key fill{};
    if (keys_.empty()) {
      if constexpr (kBezier<Key>) {
        fill.flags = SetOutTanType(SetInTanType(0, kDefaultTangentType), kDefaultTangentType);
      }
      if constexpr (kRotation<Key>) {
        fill.val = AngAxis(value_);
      } else {
        fill.val = value_;
      }
    } else {
      fill = keys_.back();
      // A copied rotation key turns no further than the key it copies.
      if constexpr (kRotation<Key>) fill.val = AngAxis(Point3(1, 0, 0), 0.0f);
    }
    keys_.resize(n, fill);
    sorted_ = false;
  }
  cache_.assign(keys_.size(), Cache{});
  dirty_ = true;
  NotifyChange();
}

template <typename Traits>
void KeyframeControl<Traits>::GetKey(int i, IKey* key) {
  if (!key || i < 0 || i >= NumKeys()) return;
  if (sorted_) Prepare();  // computed tangents, without reordering under the caller
  std::memcpy(static_cast<void*>(key), &keys_[i], sizeof(Key));
}

template <typename Traits>
void KeyframeControl<Traits>::SetKey(int i, IKey* key) {
  if (GetLocked() || !key || i < 0 || i >= NumKeys() || !IsValidKeyTime(key->time)) return;
  HoldState();
  std::memcpy(static_cast<void*>(&keys_[i]), key, sizeof(Key));
  const TimeValue t = keys_[i].time;
  if ((i > 0 && keys_[i - 1].time > t) || (i + 1 < NumKeys() && keys_[i + 1].time < t)) {
    sorted_ = false;
  }
  dirty_ = true;
  NotifyChange();
}

template <typename Traits>
int KeyframeControl<Traits>::AppendKey(IKey* key) {
  if (GetLocked() || !key || !IsValidKeyTime(key->time)) return -1;
  HoldState();
  Key k;
  std::memcpy(static_cast<void*>(&k), key, sizeof(Key));
  if (!keys_.empty() && keys_.back().time > k.time) sorted_ = false;
  keys_.push_back(k);
  cache_.push_back(Cache{});
  dirty_ = true;
  NotifyChange();
  return NumKeys() - 1;
}

template <typename Traits>
void KeyframeControl<Traits>::SortKeys() {
  if (GetLocked() || sorted_) return;
  HoldState();
  Prepare();
  NotifyChange();
}

template <typename Traits>
void KeyframeControl<Traits>::Copy(Control* from) {
  if (!from || from == this) return;
  HoldState();
  if (from->ClassID() == ClassID() && from->SuperClassID() == SuperClassID()) {
    State s = static_cast<KeyframeControl*>(from)->GetState();
    SetState(s);
  } else {
    const bool same_kind = from->SuperClassID() == SuperClassID() ||
                           (hci::KindOf(SuperClassID()) == hci::ValueKind::kPoint3 &&
                            hci::KindOf(from->SuperClassID()) == hci::ValueKind::kPosition) ||
                           (hci::KindOf(SuperClassID()) == hci::ValueKind::kPosition &&
                            hci::KindOf(from->SuperClassID()) == hci::ValueKind::kPoint3);
    if (same_kind) {
      Value v = hci::Identity<Value>();
      Interval iv = FOREVER;
      from->GetValue(TheAnimClock().Time(), &v, iv, CTRL_ABSOLUTE);
      keys_.clear();
      cache_.clear();
      value_ = v;
      sorted_ = true;
      dirty_ = true;
    }
  }
  locked_ = IsTrackLocked(from);
  NotifyChange();
}

template <typename Traits>
void KeyframeControl<Traits>::SetLocked(bool locked, bool) {
  if (locked == locked_) return;
  HoldState();
  locked_ = locked;
  NotifyChange();
}

template <typename Traits>
RefTargetHandle KeyframeControl<Traits>::Clone(RemapDir& remap) {
  Prepare();
  auto* c = new KeyframeControl<Traits>();
  c->SetState(GetState());
  BaseClone(this, c, remap);
  return c;
}

template <typename Traits>
IOResult KeyframeControl<Traits>::Save(ISave* isave) {
  Prepare();
  const std::int32_t orts[2] = {ort_before_, ort_after_};
  const std::uint8_t enabled = orts_enabled_ ? 1 : 0;
  if (SaveLockChunk(isave, locked_) != IO_OK) return IO_ERROR;
  isave->BeginChunk(kOrtChunk);
  ULONG written = 0;
  IOResult res = isave->Write(orts, sizeof(orts), &written);
  isave->EndChunk();
  if (res != IO_OK || written != sizeof(orts)) return IO_ERROR;
  if (SaveChunk(isave, kOrtEnabledChunk, enabled) != IO_OK) return IO_ERROR;
  if (SaveChunk(isave, kValueChunk, value_) != IO_OK) return IO_ERROR;
  isave->BeginChunk(kKeysChunk);
  const ULONG key_bytes = static_cast<ULONG>(keys_.size() * sizeof(Key));
  res = key_bytes > 0 ? isave->Write(keys_.data(), key_bytes, &written) : IO_OK;
  isave->EndChunk();
  if (res != IO_OK || (key_bytes > 0 && written != key_bytes)) return IO_ERROR;
  return SaveChunk(isave, kTrackFlagsChunk, track_flags_);
}

template <typename Traits>
IOResult KeyframeControl<Traits>::Load(ILoad* iload) {
  State s = GetState();
  const IOResult res = ForEachChunk(iload, [&](USHORT id) -> IOResult {
    switch (id) {
      case kLockChunkID:
        return LoadLockChunk(iload, s.locked);
      case kOrtChunk: {
        std::int32_t orts[2] = {0, 0};
        if (LoadValue(iload, orts) != IO_OK || !IsValidORT(orts[0]) || !IsValidORT(orts[1]))
          return IO_ERROR;
        s.ort_before = orts[0];
        s.ort_after = orts[1];
        return IO_OK;
      }
      case kOrtEnabledChunk: {
        std::uint8_t b = 1;
        const IOResult r = LoadValue(iload, b);
        s.orts_enabled = b != 0;
        return r;
      }
      case kValueChunk:
        return LoadValue(iload, s.value);
      case kKeysChunk: {
        const ULONG length = iload->CurChunkLength();
        if (length % sizeof(Key) != 0) return IO_ERROR;
        std::vector<Key> keys(length / sizeof(Key));
        ULONG read = 0;
        if (length > 0 && (iload->Read(keys.data(), length, &read) != IO_OK || read != length))
          return IO_ERROR;
        for (const Key& k : keys) {
          if (!IsValidKeyTime(k.time)) return IO_ERROR;
        }
        s.keys = std::move(keys);
        return IO_OK;
      }
      case kTrackFlagsChunk:
        return LoadValue(iload, s.track_flags);
      default:
        return IO_OK;
    }
  });
  if (res == IO_OK) SetState(s);
  return res;
}

template <typename Traits>
ClassDesc2* KeyframeClassDesc() {
  static KeyframeDesc<Traits> desc;
  return &desc;
}

#define MV_INSTANTIATE_KEYFRAME(T)   \
  template class KeyframeControl<T>; \
  template ClassDesc2* KeyframeClassDesc<T>();

MV_INSTANTIATE_KEYFRAME(BezierFloatTraits)
MV_INSTANTIATE_KEYFRAME(BezierPositionTraits)
MV_INSTANTIATE_KEYFRAME(BezierPoint3Traits)
MV_INSTANTIATE_KEYFRAME(BezierColorTraits)
MV_INSTANTIATE_KEYFRAME(BezierScaleTraits)
MV_INSTANTIATE_KEYFRAME(BezierPoint4Traits)
MV_INSTANTIATE_KEYFRAME(TCBFloatTraits)
MV_INSTANTIATE_KEYFRAME(TCBPositionTraits)
MV_INSTANTIATE_KEYFRAME(TCBRotationTraits)
MV_INSTANTIATE_KEYFRAME(TCBScaleTraits)

#undef MV_INSTANTIATE_KEYFRAME
