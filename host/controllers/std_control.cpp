// Copyright Marvolith contributors.
#include "host/controllers/std_control.h"

#include <algorithm>
#include <cstdint>

#include "host/controllers/internal/value_ops.h"
#include "host/core/clock.h"

namespace hci = host_controllers_internal;

namespace {

std::int64_t FloorDiv(std::int64_t a, std::int64_t b) {
  std::int64_t q = a / b;
  return (a % b != 0 && ((a < 0) != (b < 0))) ? q - 1 : q;
}

// t folded into range, and how many whole periods lie between it and the range's start.
struct CycleTime {
  TimeValue local;
  std::int64_t n;
};

CycleTime Cycle(const Interval& range, TimeValue t) {
  std::int64_t start = range.Start();
  std::int64_t period = std::int64_t(range.End()) - start;
  std::int64_t d = std::int64_t(t) - start;
  std::int64_t n = FloorDiv(d, period);
  return {static_cast<TimeValue>(start + d - n * period), n};
}

// Ping pong: even periods run forwards, odd ones backwards.
TimeValue PingPong(const Interval& range, TimeValue t) {
  CycleTime c = Cycle(range, t);
  if (c.n % 2 == 0) return c.local;
  return static_cast<TimeValue>(std::int64_t(range.End()) -
                                (std::int64_t(c.local) - range.Start()));
}

// The half-line outside range on t's side, beginning at the end value's own time.
Interval OutsideFrom(const Interval& range, TimeValue t) {
  return t < range.Start() ? Interval(TIME_NegInfinity, range.Start())
                           : Interval(range.End(), TIME_PosInfinity);
}

// The half-line strictly outside range on t's side.
Interval StrictlyOutside(const Interval& range, TimeValue t) {
  return t < range.Start() ? Interval(TIME_NegInfinity, range.Start() - 1)
                           : Interval(range.End() + 1, TIME_PosInfinity);
}

template <typename V>
void ExtrapolateAs(
    StdControl& c, const Interval& range, TimeValue t, V& out, Interval& valid, int type) {
  const bool before = t < range.Start();
  const TimeValue end = before ? range.Start() : range.End();
  Interval ignored = FOREVER;
  switch (type) {
    case ORT_IDENTITY:
      out = hci::Identity<V>();
      valid &= StrictlyOutside(range, t);
      return;
    case ORT_LINEAR: {
      // The slope over the last frame inside the range (the whole range when shorter).
      std::int64_t period = std::int64_t(range.End()) - range.Start();
      std::int64_t h = std::min<std::int64_t>(period, TheAnimClock().TicksPerFrame());
      TimeValue inner = static_cast<TimeValue>(before ? end + h : end - h);
      V v_end, v_inner;
      c.GetValueLocalTime(end, &v_end, ignored);
      c.GetValueLocalTime(inner, &v_inner, ignored);
      double f = double(std::int64_t(t) - end) / double(std::int64_t(end) - inner);
      out = hci::Extend(v_inner, v_end, f);
      valid &= Interval(t, t);
      return;
    }
    case ORT_RELATIVE_REPEAT: {
      CycleTime cyc = Cycle(range, t);
      V v_local, v_start, v_end;
      c.GetValueLocalTime(cyc.local, &v_local, ignored);
      c.GetValueLocalTime(range.Start(), &v_start, ignored);
      c.GetValueLocalTime(range.End(), &v_end, ignored);
      out = hci::Repeat(v_local, v_start, v_end, cyc.n);
      valid &= Interval(t, t);
      return;
    }
    default:
      c.GetValueLocalTime(end, &out, ignored);
      valid &= OutsideFrom(range, t);
      return;
  }
}

}  // namespace

void StdControl::GetValue(TimeValue t, void* val, Interval& valid, GetSetMethod method) {
  alignas(16) unsigned char buf[kStdControlValueBytes];
  void* out = method == CTRL_ABSOLUTE ? val : buf;
  const Interval range = orts_enabled_ ? GetTimeRange(TIMERANGE_ALL) : NEVER;
  const bool inside =
      range.Empty() || range.Start() >= range.End() || (t >= range.Start() && t <= range.End());
  if (inside) {
    GetValueLocalTime(t, out, valid, CTRL_ABSOLUTE);
  } else {
    const int type = GetORT(t < range.Start() ? ORT_BEFORE : ORT_AFTER);
    Interval local_valid = FOREVER;
    switch (type) {
      case ORT_CYCLE:
      case ORT_LOOP:
        GetValueLocalTime(Cycle(range, t).local, out, local_valid, CTRL_ABSOLUTE);
        valid &= Interval(t, t);
        break;
      case ORT_OSCILLATE:
        GetValueLocalTime(PingPong(range, t), out, local_valid, CTRL_ABSOLUTE);
        valid &= Interval(t, t);
        break;
      case ORT_LINEAR:
      case ORT_RELATIVE_REPEAT:
      case ORT_IDENTITY:
        Extrapolate(range, t, out, valid, type);
        break;
      default:
        GetValueLocalTime(t < range.Start() ? range.Start() : range.End(), out, local_valid,
                          CTRL_ABSOLUTE);
        valid &= OutsideFrom(range, t);
        break;
    }
  }
  if (method != CTRL_ABSOLUTE) ApplyValue(val, out);
}

void StdControl::SetValue(TimeValue t, void* val, int commit, GetSetMethod method) {
  SetValueLocalTime(t, val, commit, method);
}

void StdControl::Extrapolate(Interval range, TimeValue t, void* val, Interval& valid, int type) {
  switch (hci::KindOf(SuperClassID())) {
    case hci::ValueKind::kFloat:
      ExtrapolateAs(*this, range, t, *static_cast<float*>(val), valid, type);
      break;
    case hci::ValueKind::kPoint3:
    case hci::ValueKind::kPosition:
      ExtrapolateAs(*this, range, t, *static_cast<Point3*>(val), valid, type);
      break;
    case hci::ValueKind::kRotation:
      ExtrapolateAs(*this, range, t, *static_cast<Quat*>(val), valid, type);
      break;
    case hci::ValueKind::kScale:
      ExtrapolateAs(*this, range, t, *static_cast<ScaleValue*>(val), valid, type);
      break;
    case hci::ValueKind::kPoint4:
      ExtrapolateAs(*this, range, t, *static_cast<Point4*>(val), valid, type);
      break;
    case hci::ValueKind::kNone:
      break;
  }
}

void StdControl::ApplyValue(void* val, void* abs) {
  hci::ApplyRelative(hci::KindOf(SuperClassID()), val, abs);
}

int StdControl::GetORT(int type) {
  if (type == ORT_BEFORE) return ort_before_;
  if (type == ORT_AFTER) return ort_after_;
  return ORT_CONSTANT;
}

void StdControl::SetORT(int ort, int type) {
  if (!IsValidORT(ort) || (type != ORT_BEFORE && type != ORT_AFTER)) return;
  int& slot = type == ORT_BEFORE ? ort_before_ : ort_after_;
  if (slot == ort) return;
  HoldORTState();
  slot = ort;
  ORTChanged();
}

void StdControl::EnableORTs(bool enable) {
  if (orts_enabled_ == enable) return;
  HoldORTState();
  orts_enabled_ = enable;
  ORTChanged();
}

void StdControl::ORTChanged() { NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE); }
