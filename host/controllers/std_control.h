// Copyright Marvolith contributors.
// StdControl, the base of single-value controllers that applies out-of-range types around the
// value a subclass holds.
#pragma once

#include <cstddef>
#include <cstdint>

#include "host/core/control.h"
#include "host/io/chunk_io.h"

/// Bytes of the largest value a StdControl evaluates to (a ScaleValue, 28 bytes).
inline constexpr std::size_t kStdControlValueBytes = 32;

/// Base of a controller that holds one value kind (float, point, rotation, scale, point4) over
/// a key range. GetValue maps times outside GetTimeRange(TIMERANGE_ALL) through the
/// out-of-range types, then asks the subclass for its value at the local time:
///   constant: the value at the nearer end (valid to infinity on that side);
///   cycle, loop: the range repeated (loop also makes the end keys' automatic tangents wrap
///     round, for the keyframe classes);
///   ping pong (ORT_OSCILLATE): the range played forwards and backwards in turn;
///   linear, relative repeat, identity: Extrapolate.
/// A range of one instant or none (no keys) evaluates at t directly. Relative GetValue combines
/// the value into *val with ApplyValue. Evaluation allocates nothing.
class StdControl : public Control {
 public:
  void GetValue(TimeValue t,
                void* val,
                Interval& valid,
                GetSetMethod method = CTRL_ABSOLUTE) override;
  /// Passes straight to SetValueLocalTime: a value set outside the range lands at that time.
  void SetValue(TimeValue t,
                void* val,
                int commit = 1,
                GetSetMethod method = CTRL_ABSOLUTE) override;

  /// The subclass's value at t, ignoring out-of-range types; narrows valid.
  virtual void GetValueLocalTime(TimeValue t,
                                 void* val,
                                 Interval& valid,
                                 GetSetMethod method = CTRL_ABSOLUTE) = 0;
  virtual void SetValueLocalTime(TimeValue t,
                                 void* val,
                                 int commit = 1,
                                 GetSetMethod method = CTRL_ABSOLUTE) = 0;
  /// The value at t outside range for the out-of-range type `type`, written absolute to *val:
  ///   ORT_LINEAR: the end value continued along the curve's slope at that end (estimated from
  ///     the value one frame inside the range; rotations continue turning the same way);
  ///   ORT_RELATIVE_REPEAT: the cycled value offset by the whole change over the range once per
  ///     repeat (added; rotations and scale factors compose);
  ///   ORT_IDENTITY: zero, the identity rotation or unit scale, valid to infinity on that side.
  /// Other types write the end value.
  virtual void Extrapolate(Interval range, TimeValue t, void* val, Interval& valid, int type);
  /// Relative GetValue: combines the absolute value abs into *val (floats and points add;
  /// position, rotation and scale apply to a Matrix3 as PreTranslate, PreRotate and
  /// ApplyScaleValue).
  virtual void ApplyValue(void* val, void* abs);

  /// Out-of-range type of ORT_BEFORE or ORT_AFTER; ORT_CONSTANT for any other `type`.
  int GetORT(int type) override;
  /// Sets the type `ort` (ORT_CONSTANT .. ORT_RELATIVE_REPEAT) of side `type` (ORT_BEFORE or
  /// ORT_AFTER). Unknown sides or types are ignored. Undoable where the subclass records.
  void SetORT(int ort, int type) override;
  /// With false, times outside the range evaluate as constant whatever the types say.
  void EnableORTs(bool enable) override;
  bool ORTsEnabled() const { return orts_enabled_; }

 protected:
  /// Called before the out-of-range state changes, for the subclass's undo record.
  virtual void HoldORTState() {}
  /// Called after the out-of-range state changed; tells dependents.
  virtual void ORTChanged();

  int ort_before_ = ORT_CONSTANT;
  int ort_after_ = ORT_CONSTANT;
  bool orts_enabled_ = true;
};

/// True for the out-of-range types ORT_CONSTANT .. ORT_RELATIVE_REPEAT.
constexpr bool IsValidORT(int ort) { return ort >= ORT_CONSTANT && ort <= ORT_RELATIVE_REPEAT; }
