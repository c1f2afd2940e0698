// Copyright Marvolith contributors.
// FPValue: one published value of any kind, and FPParams: the arguments of one call.
#pragma once

#include <concepts>
#include <initializer_list>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "host/base/ids.h"
#include "host/base/tab.h"
#include "host/core/bit_array.h"
#include "host/math/interval.h"
#include "host/math/matrix3.h"
#include "host/math/point3.h"
#include "host/math/quat.h"
#include "host/script/fp_types.h"

class Animatable;
class INode;
class ReferenceTarget;
class Control;
class FPInterface;
using HWND = void*;

/// One value passed to or returned from a published function, or held by a script.
///
/// A value has a type code (FPType) and holds what that code needs: scalars, math types and
/// pointers inline, strings and tables owned. Copying copies strings and tables; scalar values
/// never allocate. Values of C++ calls hold the C++ form of their type (0-based TYPE_INDEX,
/// radians for TYPE_ANGLE, a fraction for TYPE_PCNT_FRAC); the dispatcher converts to and from
/// script values at the script boundary.
///
/// Nodes, reference targets and controllers are held by AnimHandle, so a value that outlives its
/// object answers null instead of a dangling pointer. Interfaces and window handles are plain
/// pointers: the caller keeps them alive.
///
/// Accessors (AsInt, AsPoint3, ...) never fail: numbers convert among int, bool and float kinds;
/// anything else of the wrong kind answers the type's zero (0, false, "", null, the identity
/// Quat or Matrix3, an empty table).
class FPValue {
 public:
  /// The script value `undefined`.
  FPValue() = default;

  template <std::same_as<bool> B>
  FPValue(B b) : type_(FPType::TYPE_BOOL), data_(b ? 1 : 0) {}
  FPValue(int i) : type_(FPType::TYPE_INT), data_(i) {}
  FPValue(float f) : type_(FPType::TYPE_FLOAT), data_(f) {}
  FPValue(double f) : type_(FPType::TYPE_FLOAT), data_(static_cast<float>(f)) {}
  FPValue(const Point3& p) : type_(FPType::TYPE_POINT3), data_(p) {}
  FPValue(const Point4& p) : type_(FPType::TYPE_POINT4), data_(p) {}
  FPValue(const Quat& q) : type_(FPType::TYPE_QUAT), data_(q) {}
  /// Angle in radians.
  FPValue(const AngAxis& a) : type_(FPType::TYPE_ANGAXIS), data_(a) {}
  FPValue(const Matrix3& m) : type_(FPType::TYPE_MATRIX3), data_(m) {}
  /// Components 0..1.
  FPValue(const Color& c) : type_(FPType::TYPE_COLOR), data_(c) {}
  FPValue(const BitArray& bits) : type_(FPType::TYPE_BITARRAY), data_(bits) {}
  FPValue(const char* s) : type_(FPType::TYPE_STRING), data_(std::string(s ? s : "")) {}
  FPValue(std::string s) : type_(FPType::TYPE_STRING), data_(std::move(s)) {}
  FPValue(std::string_view s) : type_(FPType::TYPE_STRING), data_(std::string(s)) {}
  FPValue(INode* node);
  FPValue(ReferenceTarget* target);
  FPValue(Control* control);
  FPValue(FPInterface* fpi) : type_(FPType::TYPE_INTERFACE), data_(fpi) {}

  // Tables of the common element kinds; each element keeps the table's base type.
  FPValue(const Tab<INode*>& nodes);
  FPValue(const Tab<ReferenceTarget*>& targets);
  /// A TYPE_INT_TAB, or with element_type TYPE_INDEX, TYPE_BOOL, TYPE_ENUM or TYPE_TIMEVALUE the
  /// matching table.
  FPValue(const Tab<int>& ints, FPType element_type = FPType::TYPE_INT);
  FPValue(const Tab<float>& floats, FPType element_type = FPType::TYPE_FLOAT);
  FPValue(const Tab<std::string>& strings);
  FPValue(const Tab<Point3>& points);
  FPValue(const Tab<Matrix3>& matrices);

  // Values of the typed kinds that share a C++ representation.
  static FPValue Undefined() { return FPValue(); }
  /// The result of a function without one; prints as OK.
  static FPValue Void();
  /// A 0-based index.
  static FPValue Index(int index);
  static FPValue Enum(int value);
  static FPValue Time(TimeValue ticks);
  /// Radians.
  static FPValue Angle(float radians);
  /// A fraction (1 is 100 percent).
  static FPValue PcntFrac(float fraction);
  static FPValue World(float units);
  static FPValue Name(std::string_view name);
  static FPValue FileName(std::string_view path);
  static FPValue Node(INode* node) { return FPValue(node); }
  static FPValue RefTarg(ReferenceTarget* target) { return FPValue(target); }
  static FPValue HWnd(HWND hwnd);
  /// A sub-anim: track index (0-based) of parent, held by handle. The track need not have a
  /// controller (an un-animated parameter of a block is a sub-anim too).
  static FPValue SubAnim(Animatable* parent, int index);
  /// A sub-anim of the animatable with handle parent (live or not).
  static FPValue SubAnimOfHandle(AnimHandle parent, int index);
  /// A table of tab_type (a TYPE_..._TAB code) holding items. Items keep their own types; the
  /// dispatcher converts them when the table is an argument.
  static FPValue Table(FPType tab_type, std::vector<FPValue> items = {});

  FPType Type() const { return type_; }
  bool IsUndefined() const { return type_ == FPType::TYPE_UNDEFINED; }
  bool IsVoid() const { return type_ == FPType::TYPE_VOID; }
  bool IsTab() const { return ::IsTab(type_); }
  /// True for the kinds held by handle or pointer (nodes, targets, controllers, interfaces,
  /// windows) when that handle or pointer is null.
  bool IsNullPointer() const;

  int AsInt() const;
  bool AsBool() const { return AsInt() != 0; }
  float AsFloat() const;
  TimeValue AsTime() const { return AsInt(); }
  Point3 AsPoint3() const;
  Point4 AsPoint4() const;
  /// A Quat, or the rotation of an AngAxis.
  Quat AsQuat() const;
  /// An AngAxis, or the one of a Quat.
  AngAxis AsAngAxis() const;
  Matrix3 AsMatrix3() const;
  Color AsColor() const;
  /// The bits of a TYPE_BITARRAY value; an empty array for others.
  const BitArray& AsBitArray() const;
  /// The text of the string kinds (string, TSTR, file name, name); "" for others.
  const std::string& AsString() const;
  /// The node, or null (wrong kind, no node, or a node deleted since).
  INode* AsNode() const;
  /// The reference target of a node, target or controller value, or null.
  ReferenceTarget* AsRefTarg() const;
  /// The controller of a controller value, or of a target value that is one; null otherwise.
  Control* AsControl() const;
  FPInterface* AsInterface() const;
  HWND AsHWnd() const;
  /// The handle of a node, target or controller value (0 for others), live or not.
  AnimHandle AsHandle() const;

  // Sub-anims (TYPE_SUBANIM).
  bool IsSubAnim() const { return type_ == FPType::TYPE_SUBANIM; }
  /// The live parent of a sub-anim, or null (not a sub-anim, or the parent was deleted).
  Animatable* AsSubAnimParent() const;
  /// The handle of a sub-anim's parent, live or not; 0 for other values.
  AnimHandle AsSubAnimHandle() const;
  /// The 0-based sub-anim number of a sub-anim; -1 for other values.
  int AsSubAnimIndex() const;

  // Tables.
  /// Number of elements of a table; 0 for other values.
  int Count() const;
  /// Element i of a table. An index outside [0, Count()) or a value that is not a table raises
  /// MaxSDK::Util::TabOutOfRangeException, as the host's tables do.
  const FPValue& Item(int i) const;
  FPValue& Item(int i);
  /// Appends to a table; does nothing to a value that is not a table.
  void Append(FPValue item);
  /// The elements of a table read through the accessors above; empty for other values.
  Tab<INode*> AsNodeTab() const;
  Tab<ReferenceTarget*> AsRefTargTab() const;
  Tab<int> AsIntTab() const;
  Tab<float> AsFloatTab() const;
  Tab<std::string> AsStringTab() const;
  Tab<Point3> AsPoint3Tab() const;
  Tab<Matrix3> AsMatrix3Tab() const;

  /// The value read as T through the accessor of that C++ type; used by FPBind.
  template <typename T>
  T Get() const;

  /// Same type code and same contents (floats compared exactly, handles by number).
  bool operator==(const FPValue& o) const;

  /// Turns a C++-form value into the C++ form of type, as a table default or a returned result
  /// is turned: int and float kinds convert among themselves, string kinds retag, Quat and
  /// AngAxis convert, undefined becomes the null of a pointer kind, a node, target or controller
  /// retags when its object is of the kind asked (or null, or gone), tables convert element by
  /// element. Any value becomes TYPE_VALUE unchanged and TYPE_VOID by dropping the contents.
  /// Answers false and leaves the value as it was when no such conversion exists.
  bool CoerceTo(FPType type);

  /// Changes the type code without touching the contents. Only for codes that share the held
  /// representation (e.g. TYPE_INT to TYPE_INDEX); answers false and changes nothing otherwise.
  bool Retag(FPType type);

 private:
  struct Handle {
    AnimHandle handle = 0;
    bool operator==(const Handle&) const = default;
  };
  struct SubAnimRef {
    AnimHandle parent = 0;
    int index = 0;
    bool operator==(const SubAnimRef&) const = default;
  };
  using Data = std::variant<std::monostate,
                            int,
                            float,
                            Point3,
                            Point4,
                            Quat,
                            AngAxis,
                            Matrix3,
                            Color,
                            BitArray,
                            std::string,
                            Handle,
                            SubAnimRef,
                            FPInterface*,
                            HWND,
                            std::vector<FPValue>>;
  FPValue(FPType type, Data data) : type_(type), data_(std::move(data)) {}
  static Data RepresentationOf(FPType type);

  FPType type_ = FPType::TYPE_UNDEFINED;
  Data data_;
};

template <>
inline int FPValue::Get<int>() const {
  return AsInt();
}
template <>
inline bool FPValue::Get<bool>() const {
  return AsBool();
}
template <>
inline float FPValue::Get<float>() const {
  return AsFloat();
}
template <>
inline Point3 FPValue::Get<Point3>() const {
  return AsPoint3();
}
template <>
inline Point4 FPValue::Get<Point4>() const {
  return AsPoint4();
}
template <>
inline Quat FPValue::Get<Quat>() const {
  return AsQuat();
}
template <>
inline AngAxis FPValue::Get<AngAxis>() const {
  return AsAngAxis();
}
template <>
inline Matrix3 FPValue::Get<Matrix3>() const {
  return AsMatrix3();
}
template <>
inline Color FPValue::Get<Color>() const {
  return AsColor();
}
template <>
inline BitArray FPValue::Get<BitArray>() const {
  return AsBitArray();
}
template <>
inline std::string FPValue::Get<std::string>() const {
  return AsString();
}
template <>
inline INode* FPValue::Get<INode*>() const {
  return AsNode();
}
template <>
inline ReferenceTarget* FPValue::Get<ReferenceTarget*>() const {
  return AsRefTarg();
}
template <>
inline Control* FPValue::Get<Control*>() const {
  return AsControl();
}
template <>
inline FPInterface* FPValue::Get<FPInterface*>() const {
  return AsInterface();
}
template <>
inline FPValue FPValue::Get<FPValue>() const {
  return *this;
}
template <>
inline Tab<INode*> FPValue::Get<Tab<INode*>>() const {
  return AsNodeTab();
}
template <>
inline Tab<ReferenceTarget*> FPValue::Get<Tab<ReferenceTarget*>>() const {
  return AsRefTargTab();
}
template <>
inline Tab<int> FPValue::Get<Tab<int>>() const {
  return AsIntTab();
}
template <>
inline Tab<float> FPValue::Get<Tab<float>>() const {
  return AsFloatTab();
}
template <>
inline Tab<std::string> FPValue::Get<Tab<std::string>>() const {
  return AsStringTab();
}
template <>
inline Tab<Point3> FPValue::Get<Tab<Point3>>() const {
  return AsPoint3Tab();
}
template <>
inline Tab<Matrix3> FPValue::Get<Tab<Matrix3>>() const {
  return AsMatrix3Tab();
}

/// The arguments of one call, in the order of the function's definition.
///
/// Up to kInlineCount arguments live inside the object, so a call with scalar arguments does not
/// allocate; more spill to the heap.
class FPParams {
 public:
  static constexpr int kInlineCount = 8;

  FPParams() = default;
  FPParams(std::initializer_list<FPValue> values);

  int Count() const { return count_; }
  /// Argument i. An index outside [0, Count()) raises MaxSDK::Util::ArrayOutOfRangeException, as
  /// the host's argument array does (a setter called without its argument, say).
  FPValue& operator[](int i);
  const FPValue& operator[](int i) const;
  void Append(FPValue value);
  void Clear();

 private:
  FPValue inline_[kInlineCount];
  std::vector<FPValue> spill_;
  int count_ = 0;
};
