// Copyright Marvolith contributors.
// Key records of the host's keyframe controllers, their flag word, and IKeyControl, the raw key
// access interface (GetInterface(I_KEYCONTROL)).
#pragma once

#include <cstddef>
#include <type_traits>

#include "host/core/animatable.h"
#include "host/math/point3.h"
#include "host/math/quat.h"
#include "host/math/scale_value.h"

// Key flag word. Bit 0 selects the whole key; the per-channel bits, when any is set, decide the
// selection instead (bit 0 is then ignored).
inline constexpr DWORD IKEY_SELECTED = 1u << 0;
inline constexpr DWORD IKEY_XSEL = 1u << 1;
inline constexpr DWORD IKEY_YSEL = 1u << 2;
inline constexpr DWORD IKEY_ZSEL = 1u << 3;
inline constexpr DWORD IKEY_WSEL = 1u << 30;
inline constexpr DWORD IKEY_ALLSEL = IKEY_XSEL | IKEY_YSEL | IKEY_ZSEL | IKEY_WSEL;
/// Tangents of channel X, Y, Z, W broken: the in and out handles move independently.
inline constexpr DWORD BEZKEY_XBROKEN = 1u << 4;
inline constexpr DWORD BEZKEY_YBROKEN = 1u << 5;
inline constexpr DWORD BEZKEY_ZBROKEN = 1u << 6;
inline constexpr DWORD BEZKEY_WBROKEN = 1u << 21;
/// In tangent type in bits 7-9, out tangent type in bits 10-12.
inline constexpr int BEZKEY_INTYPESHIFT = 7;
inline constexpr int BEZKEY_OUTTYPESHIFT = 10;
inline constexpr DWORD BEZKEY_INTYPEMASK = 7u << BEZKEY_INTYPESHIFT;
inline constexpr DWORD BEZKEY_OUTTYPEMASK = 7u << BEZKEY_OUTTYPESHIFT;
/// A handle's length may exceed 1 (a whole key interval).
inline constexpr DWORD BEZKEY_UNCONSTRAINHANDLE = 1u << 20;

// Tangent types.
inline constexpr int BEZKEY_SMOOTH = 0;
inline constexpr int BEZKEY_LINEAR = 1;
inline constexpr int BEZKEY_STEP = 2;
inline constexpr int BEZKEY_FAST = 3;
inline constexpr int BEZKEY_SLOW = 4;
inline constexpr int BEZKEY_USER = 5;  ///< custom: the stored tangents and lengths are used
inline constexpr int BEZKEY_FLAT = 6;  ///< auto: a smooth slope clamped so it never overshoots
/// The type that new keys get.
inline constexpr int kDefaultTangentType = BEZKEY_FLAT;

constexpr int GetInTanType(DWORD flags) {
  return static_cast<int>((flags & BEZKEY_INTYPEMASK) >> BEZKEY_INTYPESHIFT);
}
constexpr int GetOutTanType(DWORD flags) {
  return static_cast<int>((flags & BEZKEY_OUTTYPEMASK) >> BEZKEY_OUTTYPESHIFT);
}
constexpr DWORD SetInTanType(DWORD flags, int type) {
  return (flags & ~BEZKEY_INTYPEMASK) | ((DWORD(type) & 7u) << BEZKEY_INTYPESHIFT);
}
constexpr DWORD SetOutTanType(DWORD flags, int type) {
  return (flags & ~BEZKEY_OUTTYPEMASK) | ((DWORD(type) & 7u) << BEZKEY_OUTTYPESHIFT);
}
/// The broken bit of channel c (0..3).
constexpr DWORD BrokenBit(int c) {
  return c == 0   ? BEZKEY_XBROKEN
         : c == 1 ? BEZKEY_YBROKEN
         : c == 2 ? BEZKEY_ZBROKEN
                  : BEZKEY_WBROKEN;
}
/// The selection bit of channel c (0..3).
constexpr DWORD ChannelSelBit(int c) {
  return c == 0 ? IKEY_XSEL : c == 1 ? IKEY_YSEL : c == 2 ? IKEY_ZSEL : IKEY_WSEL;
}
/// The in and out handles of channel c stay on one line (not broken).
constexpr bool TangentsLocked(DWORD flags, int c) { return (flags & BrokenBit(c)) == 0; }
/// True when the key counts as selected: any per-channel bit, or bit 0 when none is set.
constexpr bool KeyFlagsSelected(DWORD flags) {
  return (flags & IKEY_ALLSEL) != 0 || (flags & IKEY_SELECTED) != 0;
}

/// Key times that no key may have: the ends of time and the first value above the lowest.
constexpr bool IsValidKeyTime(TimeValue t) {
  return t != TimeValue(0x7FFFFFFF) && t != TimeValue(0x80000000u) && t != TimeValue(0x80000001u);
}
/// The valid key times are kMinKeyTime .. kMaxKeyTime.
inline constexpr TimeValue kMinKeyTime = TimeValue(0x80000002u);
inline constexpr TimeValue kMaxKeyTime = TimeValue(0x7FFFFFFE);

// AddNewKey flags.
inline constexpr DWORD ADDKEY_SELECT = 1u << 0;  ///< select the new key, deselect the others
inline constexpr DWORD ADDKEY_INTERP = 1u << 1;  ///< the key takes the curve's value at its time
inline constexpr DWORD ADDKEY_FLAGGED = 1u << 2;

/// The start of every key record: time in ticks and the flag word.
struct IKey {
  TimeValue time = 0;
  DWORD flags = 0;
};

/// Bezier keys. Tangents are value per tick; the in tangent points backwards in time, so the in
/// handle lies at (time - inLength * dt_prev, val + intan * inLength * dt_prev) and the out handle
/// at (time + outLength * dt_next, val + outtan * outLength * dt_next). Lengths are fractions of
/// the interval to the neighbouring key, 0..1 unless BEZKEY_UNCONSTRAINHANDLE is set.
struct IBezFloatKey : IKey {
  float intan = 0.0f;
  float outtan = 0.0f;
  float val = 0.0f;
  float inLength = 1.0f / 3.0f;
  float outLength = 1.0f / 3.0f;
};
struct IBezPoint3Key : IKey {
  Point3 intan;
  Point3 outtan;
  Point3 val;
  Point3 inLength{1.0f / 3.0f, 1.0f / 3.0f, 1.0f / 3.0f};
  Point3 outLength{1.0f / 3.0f, 1.0f / 3.0f, 1.0f / 3.0f};
};
/// Scale key: tangents and lengths act on the three factors; the axis system is slerped.
struct IBezScaleKey : IKey {
  Point3 intan;
  Point3 outtan;
  ScaleValue val;
  Point3 inLength{1.0f / 3.0f, 1.0f / 3.0f, 1.0f / 3.0f};
  Point3 outLength{1.0f / 3.0f, 1.0f / 3.0f, 1.0f / 3.0f};
};
struct IBezPoint4Key : IKey {
  Point4 intan;
  Point4 outtan;
  Point4 val;
  Point4 inLength{1.0f / 3.0f, 1.0f / 3.0f, 1.0f / 3.0f, 1.0f / 3.0f};
  Point4 outLength{1.0f / 3.0f, 1.0f / 3.0f, 1.0f / 3.0f, 1.0f / 3.0f};
};

/// TCB keys (Kochanek-Bartels). Tension, continuity and bias run -1..1 with 0 the plain
/// Catmull-Rom spline; easeIn (towards this key) and easeOut (away from it) run 0..1.
struct ITCBKey : IKey {
  float tens = 0.0f;
  float cont = 0.0f;
  float bias = 0.0f;
  float easeIn = 0.0f;
  float easeOut = 0.0f;
};
struct ITCBFloatKey : ITCBKey {
  float val = 0.0f;
};
struct ITCBPoint3Key : ITCBKey {
  Point3 val;
};
/// Rotation key: the rotation from the previous key's orientation (the first key: from the
/// identity); absolute(k) = absolute(k - 1) * Quat(val). An angle above pi spins that far.
struct ITCBRotKey : ITCBKey {
  AngAxis val;
};
struct ITCBScaleKey : ITCBKey {
  ScaleValue val;
};

static_assert(sizeof(IKey) == 8);
static_assert(sizeof(IBezFloatKey) == 28 && sizeof(IBezPoint3Key) == 68 &&
                  sizeof(IBezScaleKey) == 84 && sizeof(IBezPoint4Key) == 88,
              "Bezier key records have the sizes of the host's key files");
static_assert(sizeof(ITCBFloatKey) == 32 && sizeof(ITCBPoint3Key) == 40 &&
              sizeof(ITCBRotKey) == 44 && sizeof(ITCBScaleKey) == 56);
static_assert(std::is_trivially_copyable_v<IBezScaleKey> &&
              std::is_trivially_copyable_v<ITCBRotKey>);

/// Raw key access of a keyframe controller. Keys are the class's record (GetKeySize bytes, an
/// IKey first); SetKey and AppendKey copy that many bytes from the caller's record.
class IKeyControl {
 public:
  virtual ~IKeyControl() = default;
  virtual int GetNumKeys() = 0;
  /// Resizes the key table; new keys copy the last key (or hold the constant value at time 0).
  /// Call SortKeys once their times are set.
  virtual void SetNumKeys(int n) = 0;
  /// Copies key i into *key (computed tangents included); an index out of range leaves it.
  virtual void GetKey(int i, IKey* key) = 0;
  /// Replaces key i; refused for an index out of range or an invalid key time. Keys are not
  /// re-sorted (call SortKeys).
  virtual void SetKey(int i, IKey* key) = 0;
  /// Appends a key and answers its index, or -1 when its time is invalid.
  virtual int AppendKey(IKey* key) = 0;
  /// Sorts keys by time (stable: keys of equal time keep their order).
  virtual void SortKeys() = 0;
  /// Flags of the whole track.
  virtual DWORD& GetTrackFlags() = 0;
  DWORD GetFlags() { return GetTrackFlags(); }
  /// Bytes of one key record.
  virtual int GetKeySize() = 0;
};
