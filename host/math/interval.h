// Copyright Marvolith contributors.
// Time in ticks and validity intervals, as the host defines them.
#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>

/// Time in ticks: 4800 ticks make a second. Frame length comes from the core interface.
using TimeValue = std::int32_t;

inline constexpr TimeValue TIME_TICKSPERSEC = 4800;
inline constexpr TimeValue TIME_NegInfinity = std::numeric_limits<TimeValue>::min();
inline constexpr TimeValue TIME_PosInfinity = std::numeric_limits<TimeValue>::max();

/// A closed range of time over which a value stays valid. The empty interval has start > end
/// (NEVER is (NegInfinity, NegInfinity) in the host; any interval with start > end is empty here).
class Interval {
 public:
  constexpr Interval() : start_(TIME_NegInfinity), end_(TIME_NegInfinity) {}
  constexpr Interval(TimeValue s, TimeValue e) : start_(s), end_(e) {}

  constexpr TimeValue Start() const { return start_; }
  constexpr TimeValue End() const { return end_; }
  constexpr void SetStart(TimeValue s) { start_ = s; }
  constexpr void SetEnd(TimeValue e) { end_ = e; }
  constexpr void Set(TimeValue s, TimeValue e) { start_ = s; end_ = e; }
  constexpr void SetInfinite() { Set(TIME_NegInfinity, TIME_PosInfinity); }
  constexpr void SetEmpty() { Set(TIME_NegInfinity, TIME_NegInfinity); }
  /// The single instant t.
  constexpr void SetInstant(TimeValue t) { Set(t, t); }

  constexpr bool Empty() const {
    return start_ > end_ || (start_ == TIME_NegInfinity && end_ == TIME_NegInfinity);
  }
  constexpr bool InInterval(TimeValue t) const { return !Empty() && t >= start_ && t <= end_; }
  constexpr bool IsInfinite() const {
    return start_ == TIME_NegInfinity && end_ == TIME_PosInfinity;
  }
  /// Length in ticks, 0 for an empty interval (2^32 for FOREVER: 64-bit on purpose).
  constexpr std::int64_t Duration() const {
    return Empty() ? 0 : std::int64_t(end_) - std::int64_t(start_) + 1;
  }

  /// Intersection; the result of two disjoint intervals is NEVER.
  constexpr Interval& operator&=(const Interval& o) {
    if (Empty() || o.Empty()) {
      SetEmpty();
      return *this;
    }
    start_ = std::max(start_, o.start_);
    end_ = std::min(end_, o.end_);
    if (start_ > end_) SetEmpty();
    return *this;
  }
  constexpr Interval operator&(const Interval& o) const {
    Interval r = *this;
    r &= o;
    return r;
  }
  /// Grows this interval to contain t.
  constexpr Interval& operator+=(TimeValue t) {
    if (Empty()) {
      SetInstant(t);
    } else {
      start_ = std::min(start_, t);
      end_ = std::max(end_, t);
    }
    return *this;
  }
  constexpr bool operator==(const Interval& o) const {
    return (Empty() && o.Empty()) || (start_ == o.start_ && end_ == o.end_);
  }

 private:
  TimeValue start_;
  TimeValue end_;
};

inline constexpr Interval FOREVER(TIME_NegInfinity, TIME_PosInfinity);
inline constexpr Interval NEVER(TIME_NegInfinity, TIME_NegInfinity);
