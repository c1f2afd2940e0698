// Copyright Marvolith contributors.
#include "host/script/fp_value.h"

#include <cmath>
#include <limits>
#include <utility>

#include "host/base/exceptions.h"
#include "host/core/control.h"
#include "host/scene/inode.h"

namespace {

AnimHandle HandleOf(const Animatable* anim) { return Animatable::GetHandleByAnim(anim); }

// Float to int as the host's script truncates, with NaN and out-of-range values pinned so the
// conversion is never undefined behaviour.
int TruncateToInt(float f) {
  if (std::isnan(f)) return 0;
  if (f >= 2147483520.0f) return std::numeric_limits<int>::max();
  if (f <= -2147483648.0f) return std::numeric_limits<int>::min();
  return static_cast<int>(f);
}

bool SameAngAxis(const AngAxis& a, const AngAxis& b) {
  return a.axis == b.axis && a.angle == b.angle;
}

}  // namespace

FPValue::FPValue(INode* node) : type_(FPType::TYPE_INODE), data_(Handle{HandleOf(node)}) {}
FPValue::FPValue(ReferenceTarget* target)
    : type_(FPType::TYPE_REFTARG), data_(Handle{HandleOf(target)}) {}
FPValue::FPValue(Control* control)
    : type_(FPType::TYPE_CONTROL), data_(Handle{HandleOf(control)}) {}

FPValue::FPValue(const Tab<INode*>& nodes) : type_(FPType::TYPE_INODE_TAB) {
  std::vector<FPValue> items;
  items.reserve(static_cast<size_t>(nodes.Count()));
  for (INode* n : nodes) items.emplace_back(n);
  data_ = std::move(items);
}

FPValue::FPValue(const Tab<ReferenceTarget*>& targets) : type_(FPType::TYPE_REFTARG_TAB) {
  std::vector<FPValue> items;
  items.reserve(static_cast<size_t>(targets.Count()));
  for (ReferenceTarget* t : targets) items.emplace_back(t);
  data_ = std::move(items);
}

FPValue::FPValue(const Tab<int>& ints, FPType element_type) {
  // An element type that does not hold an int makes a plain int table.
  FPType element = FPValue(0).Retag(element_type) ? element_type : FPType::TYPE_INT;
  type_ = TabOf(element);
  std::vector<FPValue> items;
  items.reserve(static_cast<size_t>(ints.Count()));
  for (int i : ints) {
    FPValue v(i);
    v.Retag(element);
    items.push_back(v);
  }
  data_ = std::move(items);
}

FPValue::FPValue(const Tab<float>& floats, FPType element_type) {
  // An element type that does not hold a float makes a plain float table.
  FPType element = FPValue(0.0f).Retag(element_type) ? element_type : FPType::TYPE_FLOAT;
  type_ = TabOf(element);
  std::vector<FPValue> items;
  items.reserve(static_cast<size_t>(floats.Count()));
  for (float f : floats) items.push_back(FPValue(element, Data(f)));
  data_ = std::move(items);
}

FPValue::FPValue(const Tab<std::string>& strings) : type_(FPType::TYPE_STRING_TAB) {
  std::vector<FPValue> items;
  items.reserve(static_cast<size_t>(strings.Count()));
  for (const std::string& s : strings) items.emplace_back(s);
  data_ = std::move(items);
}

FPValue::FPValue(const Tab<Point3>& points) : type_(FPType::TYPE_POINT3_TAB) {
  std::vector<FPValue> items;
  items.reserve(static_cast<size_t>(points.Count()));
  for (const Point3& p : points) items.emplace_back(p);
  data_ = std::move(items);
}

FPValue::FPValue(const Tab<Matrix3>& matrices) : type_(FPType::TYPE_MATRIX3_TAB) {
  std::vector<FPValue> items;
  items.reserve(static_cast<size_t>(matrices.Count()));
  for (const Matrix3& m : matrices) items.emplace_back(m);
  data_ = std::move(items);
}

FPValue FPValue::Void() { return FPValue(FPType::TYPE_VOID, Data()); }
FPValue FPValue::Index(int index) { return FPValue(FPType::TYPE_INDEX, Data(index)); }
FPValue FPValue::Enum(int value) { return FPValue(FPType::TYPE_ENUM, Data(value)); }
FPValue FPValue::Time(TimeValue ticks) { return FPValue(FPType::TYPE_TIMEVALUE, Data(ticks)); }
FPValue FPValue::Angle(float radians) { return FPValue(FPType::TYPE_ANGLE, Data(radians)); }
FPValue FPValue::PcntFrac(float fraction) {
  return FPValue(FPType::TYPE_PCNT_FRAC, Data(fraction));
}
FPValue FPValue::World(float units) { return FPValue(FPType::TYPE_WORLD, Data(units)); }
FPValue FPValue::Name(std::string_view name) {
  return FPValue(FPType::TYPE_NAME, Data(std::string(name)));
}
FPValue FPValue::FileName(std::string_view path) {
  return FPValue(FPType::TYPE_FILENAME, Data(std::string(path)));
}
FPValue FPValue::HWnd(HWND hwnd) { return FPValue(FPType::TYPE_HWND, Data(hwnd)); }

FPValue FPValue::SubAnim(Animatable* parent, int index) {
  return SubAnimOfHandle(HandleOf(parent), index);
}

FPValue FPValue::SubAnimOfHandle(AnimHandle parent, int index) {
  return FPValue(FPType::TYPE_SUBANIM, Data(SubAnimRef{parent, index}));
}

FPValue FPValue::Table(FPType tab_type, std::vector<FPValue> items) {
  if (!::IsTab(tab_type)) tab_type = FPType::TYPE_VALUE_TAB;
  return FPValue(tab_type, Data(std::move(items)));
}

FPValue::Data FPValue::RepresentationOf(FPType type) {
  using enum FPType;
  if (::IsTab(type)) return std::vector<FPValue>();
  switch (type) {
    case TYPE_INT:
    case TYPE_BOOL:
    case TYPE_INDEX:
    case TYPE_ENUM:
    case TYPE_TIMEVALUE:
      return 0;
    case TYPE_FLOAT:
    case TYPE_ANGLE:
    case TYPE_PCNT_FRAC:
    case TYPE_WORLD:
      return 0.0f;
    case TYPE_POINT3:
      return Point3();
    case TYPE_POINT4:
      return Point4();
    case TYPE_QUAT:
      return Quat();
    case TYPE_ANGAXIS:
      return AngAxis();
    case TYPE_MATRIX3:
      return Matrix3();
    case TYPE_COLOR:
      return Color();
    case TYPE_BITARRAY:
      return BitArray();
    case TYPE_STRING:
    case TYPE_TSTR:
    case TYPE_FILENAME:
    case TYPE_NAME:
      return std::string();
    case TYPE_INODE:
    case TYPE_REFTARG:
    case TYPE_CONTROL:
      return Handle{};
    case TYPE_INTERFACE:
      return static_cast<FPInterface*>(nullptr);
    case TYPE_HWND:
      return static_cast<HWND>(nullptr);
    default:
      return std::monostate();
  }
}

bool FPValue::Retag(FPType type) {
  if (type == type_) return true;
  if (RepresentationOf(type).index() != data_.index()) return false;
  if (std::holds_alternative<Handle>(data_)) {
    // A live object must be of the kind asked; null and deleted objects retag freely.
    Animatable* anim = Animatable::GetAnimByHandle(AsHandle());
    if (anim && type == FPType::TYPE_INODE && !dynamic_cast<INode*>(anim)) return false;
    if (anim && type == FPType::TYPE_CONTROL && !dynamic_cast<Control*>(anim)) return false;
  }
  type_ = type;
  if (type == FPType::TYPE_BOOL) data_ = std::get<int>(data_) != 0 ? 1 : 0;
  return true;
}

bool FPValue::IsNullPointer() const {
  if (const auto* h = std::get_if<Handle>(&data_)) return h->handle == 0;
  if (const auto* p = std::get_if<FPInterface*>(&data_)) return *p == nullptr;
  if (const auto* w = std::get_if<HWND>(&data_)) return *w == nullptr;
  return false;
}

int FPValue::AsInt() const {
  if (const int* i = std::get_if<int>(&data_)) return *i;
  if (const float* f = std::get_if<float>(&data_)) return TruncateToInt(*f);
  return 0;
}

float FPValue::AsFloat() const {
  if (const float* f = std::get_if<float>(&data_)) return *f;
  if (const int* i = std::get_if<int>(&data_)) return static_cast<float>(*i);
  return 0.0f;
}

Point3 FPValue::AsPoint3() const {
  const Point3* p = std::get_if<Point3>(&data_);
  return p ? *p : Point3();
}

Point4 FPValue::AsPoint4() const {
  const Point4* p = std::get_if<Point4>(&data_);
  return p ? *p : Point4();
}

Quat FPValue::AsQuat() const {
  if (const Quat* q = std::get_if<Quat>(&data_)) return *q;
  if (const AngAxis* a = std::get_if<AngAxis>(&data_)) return Quat(*a);
  return Quat();
}

AngAxis FPValue::AsAngAxis() const {
  if (const AngAxis* a = std::get_if<AngAxis>(&data_)) return *a;
  if (const Quat* q = std::get_if<Quat>(&data_)) return AngAxis(*q);
  return AngAxis();
}

Matrix3 FPValue::AsMatrix3() const {
  const Matrix3* m = std::get_if<Matrix3>(&data_);
  return m ? *m : Matrix3();
}

Color FPValue::AsColor() const {
  const Color* c = std::get_if<Color>(&data_);
  return c ? *c : Color();
}

const BitArray& FPValue::AsBitArray() const {
  static const BitArray kEmpty;
  const BitArray* b = std::get_if<BitArray>(&data_);
  return b ? *b : kEmpty;
}

const std::string& FPValue::AsString() const {
  static const std::string kEmpty;
  const std::string* s = std::get_if<std::string>(&data_);
  return s ? *s : kEmpty;
}

AnimHandle FPValue::AsHandle() const {
  const Handle* h = std::get_if<Handle>(&data_);
  return h ? h->handle : 0;
}

Animatable* FPValue::AsSubAnimParent() const {
  const AnimHandle h = AsSubAnimHandle();
  return h ? Animatable::GetAnimByHandle(h) : nullptr;
}

AnimHandle FPValue::AsSubAnimHandle() const {
  const SubAnimRef* r = std::get_if<SubAnimRef>(&data_);
  return r ? r->parent : 0;
}

int FPValue::AsSubAnimIndex() const {
  const SubAnimRef* r = std::get_if<SubAnimRef>(&data_);
  return r ? r->index : -1;
}

ReferenceTarget* FPValue::AsRefTarg() const {
  // Every handle held here was taken from a ReferenceTarget (a node, target or controller).
  return static_cast<ReferenceTarget*>(Animatable::GetAnimByHandle(AsHandle()));
}

INode* FPValue::AsNode() const { return dynamic_cast<INode*>(AsRefTarg()); }

Control* FPValue::AsControl() const { return dynamic_cast<Control*>(AsRefTarg()); }

FPInterface* FPValue::AsInterface() const {
  FPInterface* const* p = std::get_if<FPInterface*>(&data_);
  return p ? *p : nullptr;
}

HWND FPValue::AsHWnd() const {
  const HWND* w = std::get_if<HWND>(&data_);
  return w ? *w : nullptr;
}

int FPValue::Count() const {
  const auto* items = std::get_if<std::vector<FPValue>>(&data_);
  return items ? static_cast<int>(items->size()) : 0;
}

const FPValue& FPValue::Item(int i) const {
  const auto* items = std::get_if<std::vector<FPValue>>(&data_);
  if (!items || i < 0 || i >= static_cast<int>(items->size()))
    throw MaxSDK::Util::TabOutOfRangeException();
  return (*items)[static_cast<size_t>(i)];
}

FPValue& FPValue::Item(int i) { return const_cast<FPValue&>(std::as_const(*this).Item(i)); }

void FPValue::Append(FPValue item) {
  if (auto* items = std::get_if<std::vector<FPValue>>(&data_)) items->push_back(std::move(item));
}

namespace {
template <typename T, typename Read>
Tab<T> ReadTab(const FPValue& v, Read read) {
  Tab<T> out;
  out.Resize(v.Count());
  for (int i = 0; i < v.Count(); ++i) out.Append(read(v.Item(i)));
  return out;
}
}  // namespace

Tab<INode*> FPValue::AsNodeTab() const {
  return ReadTab<INode*>(*this, [](const FPValue& e) { return e.AsNode(); });
}
Tab<ReferenceTarget*> FPValue::AsRefTargTab() const {
  return ReadTab<ReferenceTarget*>(*this, [](const FPValue& e) { return e.AsRefTarg(); });
}
Tab<int> FPValue::AsIntTab() const {
  return ReadTab<int>(*this, [](const FPValue& e) { return e.AsInt(); });
}
Tab<float> FPValue::AsFloatTab() const {
  return ReadTab<float>(*this, [](const FPValue& e) { return e.AsFloat(); });
}
Tab<std::string> FPValue::AsStringTab() const {
  return ReadTab<std::string>(*this, [](const FPValue& e) { return e.AsString(); });
}
Tab<Point3> FPValue::AsPoint3Tab() const {
  return ReadTab<Point3>(*this, [](const FPValue& e) { return e.AsPoint3(); });
}
Tab<Matrix3> FPValue::AsMatrix3Tab() const {
  return ReadTab<Matrix3>(*this, [](const FPValue& e) { return e.AsMatrix3(); });
}

bool FPValue::operator==(const FPValue& o) const {
  if (type_ != o.type_ || data_.index() != o.data_.index()) return false;
  return std::visit(
      [&o](const auto& a) -> bool {
        using T = std::decay_t<decltype(a)>;
        const T& b = std::get<T>(o.data_);
        if constexpr (std::is_same_v<T, AngAxis>) {
          return SameAngAxis(a, b);
        } else {
          return a == b;
        }
      },
      data_);
}

FPParams::FPParams(std::initializer_list<FPValue> values) {
  for (const FPValue& v : values) Append(v);
}

FPValue& FPParams::operator[](int i) { return const_cast<FPValue&>(std::as_const(*this)[i]); }

const FPValue& FPParams::operator[](int i) const {
  if (i < 0 || i >= count_) throw MaxSDK::Util::ArrayOutOfRangeException();
  return i < kInlineCount ? inline_[i] : spill_[static_cast<size_t>(i - kInlineCount)];
}

void FPParams::Append(FPValue value) {
  if (count_ < kInlineCount) {
    inline_[count_] = std::move(value);
  } else {
    spill_.push_back(std::move(value));
  }
  ++count_;
}

void FPParams::Clear() {
  for (int i = 0; i < count_ && i < kInlineCount; ++i) inline_[i] = FPValue();
  spill_.clear();
  count_ = 0;
}

namespace {
bool IsIntKind(FPType t) {
  using enum FPType;
  return t == TYPE_INT || t == TYPE_BOOL || t == TYPE_INDEX || t == TYPE_ENUM ||
         t == TYPE_TIMEVALUE;
}
bool IsFloatKind(FPType t) {
  using enum FPType;
  return t == TYPE_FLOAT || t == TYPE_ANGLE || t == TYPE_PCNT_FRAC || t == TYPE_WORLD;
}
bool IsObjectKind(FPType t) {
  using enum FPType;
  return t == TYPE_INODE || t == TYPE_REFTARG || t == TYPE_CONTROL;
}
}  // namespace

bool FPValue::CoerceTo(FPType type) {
  using enum FPType;
  if (type == type_ || type == TYPE_VALUE) return true;
  if (type == TYPE_VOID) {
    *this = Void();
    return true;
  }
  if (::IsTab(type)) {
    if (!IsTab()) return false;
    if (type == TYPE_VALUE_TAB) {
      type_ = type;
      return true;
    }
    // Convert a copy so that a failing element leaves this table as it was.
    std::vector<FPValue> items = std::get<std::vector<FPValue>>(data_);
    for (FPValue& item : items) {
      if (!item.CoerceTo(BaseType(type))) return false;
    }
    *this = FPValue(type, Data(std::move(items)));
    return true;
  }
  if (IsUndefined()) {
    if (!IsObjectKind(type) && type != TYPE_INTERFACE && type != TYPE_HWND) return false;
    *this = FPValue(type, RepresentationOf(type));
    return true;
  }
  if (IsIntKind(type) && std::holds_alternative<float>(data_)) {
    *this = FPValue(type, Data(AsInt()));
    return Retag(type);
  }
  if (IsFloatKind(type) && std::holds_alternative<int>(data_)) {
    *this = FPValue(type, Data(AsFloat()));
    return true;
  }
  if (type == TYPE_QUAT && type_ == TYPE_ANGAXIS) {
    *this = FPValue(AsQuat());
    return true;
  }
  if (type == TYPE_ANGAXIS && type_ == TYPE_QUAT) {
    *this = FPValue(AsAngAxis());
    return true;
  }
  return Retag(type);
}
