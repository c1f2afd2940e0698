// Copyright Marvolith contributors.
#include "host/script/script_value.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>

#include "host/core/control.h"
#include "host/params/param_types.h"
#include "host/scene/core_interface.h"
#include "host/scene/inode.h"
#include "host/script/script_errors.h"

namespace {

constexpr float kDegPerRad = static_cast<float>(180.0 / std::numbers::pi);

bool IsNumber(const FPValue& v) {
  return v.Type() == FPType::TYPE_INT || v.Type() == FPType::TYPE_FLOAT;
}

// The value with a new type code on the same contents; the caller has checked they share it.
FPValue Tagged(FPValue v, FPType type) {
  v.Retag(type);
  return v;
}

// The object at a sub-anim: its controller, or its target; undefined for a track without one
// (an un-animated parameter) or a deleted parent.
FPValue SubAnimObject(const FPValue& v) {
  Animatable* parent = v.AsSubAnimParent();
  const int index = v.AsSubAnimIndex();
  Animatable* sub = parent && index >= 0 && index < parent->NumSubs() ? parent->SubAnim(index)
                                                                     : nullptr;
  if (auto* c = dynamic_cast<Control*>(sub)) return FPValue(c);
  if (auto* t = dynamic_cast<ReferenceTarget*>(sub)) return FPValue(t);
  return FPValue();
}

FPValue TimeFromFrames(const FPValue& v) {
  const double ticks = static_cast<double>(v.AsFloat()) * GetCOREInterface()->GetTicksPerFrame();
  const double clamped =
      std::clamp(std::round(ticks), double(TIME_NegInfinity), double(TIME_PosInfinity));
  return FPValue::Time(std::isnan(ticks) ? 0 : static_cast<TimeValue>(clamped));
}

}  // namespace

bool IsScriptType(FPType type) {
  using enum FPType;
  switch (type) {
    case TYPE_UNDEFINED:
    case TYPE_VOID:
    case TYPE_INT:
    case TYPE_FLOAT:
    case TYPE_BOOL:
    case TYPE_STRING:
    case TYPE_NAME:
    case TYPE_POINT3:
    case TYPE_POINT4:
    case TYPE_QUAT:
    case TYPE_ANGAXIS:
    case TYPE_MATRIX3:
    case TYPE_COLOR:
    case TYPE_BITARRAY:
    case TYPE_TIMEVALUE:
    case TYPE_INODE:
    case TYPE_REFTARG:
    case TYPE_CONTROL:
    case TYPE_INTERFACE:
    case TYPE_HWND:
    case TYPE_SUBANIM:
    case TYPE_VALUE_TAB:
      return true;
    default:
      return false;
  }
}

FPValue FromScriptValue(const FPValue& value, FPType type, const FPEnumDef* enums) {
  using enum FPType;
  const FPType given = value.Type();
  if (type == TYPE_VALUE) return value;
  // A track given where an object is wanted stands for the object at the track.
  if (given == TYPE_SUBANIM && (type == TYPE_INODE || type == TYPE_REFTARG || type == TYPE_CONTROL))
    return FromScriptValue(SubAnimObject(value), type, enums);
  if (IsTab(type)) {
    if (!value.IsTab()) throw ConversionError(value, type);
    std::vector<FPValue> items;
    items.reserve(static_cast<size_t>(value.Count()));
    for (int i = 0; i < value.Count(); ++i)
      items.push_back(FromScriptValue(value.Item(i), BaseType(type), enums));
    return FPValue::Table(type, std::move(items));
  }
  switch (type) {
    case TYPE_INT:
      if (IsNumber(value)) return FPValue(value.AsInt());
      break;
    case TYPE_INDEX:
      if (IsNumber(value)) return FPValue::Index(FromScriptIndex(value.AsInt()));
      break;
    case TYPE_BOOL:
      if (given == TYPE_BOOL) return value;
      break;
    case TYPE_FLOAT:
    case TYPE_WORLD:
      if (IsNumber(value)) return Tagged(FPValue(value.AsFloat()), type);
      break;
    case TYPE_ANGLE:
      if (IsNumber(value)) return FPValue::Angle(value.AsFloat() / kDegPerRad);
      break;
    case TYPE_PCNT_FRAC:
      if (IsNumber(value)) return FPValue::PcntFrac(value.AsFloat() / 100.0f);
      break;
    case TYPE_TIMEVALUE:
      if (given == TYPE_TIMEVALUE) return value;
      if (IsNumber(value)) return TimeFromFrames(value);
      break;
    case TYPE_ENUM:
      if (IsNumber(value)) return FPValue::Enum(value.AsInt());
      if (given == TYPE_NAME && enums) {
        if (auto v = enums->Find(value.AsString())) return FPValue::Enum(*v);
      }
      break;
    case TYPE_STRING:
    case TYPE_TSTR:
    case TYPE_FILENAME:
    case TYPE_NAME:
      if (given == TYPE_STRING || given == TYPE_NAME) return Tagged(value, type);
      break;
    case TYPE_POINT3:
    case TYPE_POINT4:
    case TYPE_MATRIX3:
    case TYPE_COLOR:
      if (given == type) return value;
      break;
    case TYPE_BITARRAY:
      if (given == TYPE_BITARRAY) return value;
      if (given == TYPE_VALUE_TAB) {
        BitArray bits;
        for (int i = 0; i < value.Count(); ++i) {
          const FPValue& item = value.Item(i);
          if (item.Type() != TYPE_INT || !SetScriptBit(bits, item.AsInt()))
            throw ConversionError(item, type);
        }
        return FPValue(bits);
      }
      break;
    case TYPE_QUAT:
    case TYPE_ANGAXIS:
      if (given == TYPE_QUAT || given == TYPE_ANGAXIS) {
        FPValue v = value;
        v.CoerceTo(type);
        return v;
      }
      break;
    case TYPE_INODE:
    case TYPE_REFTARG:
    case TYPE_CONTROL:
      if (given == TYPE_UNDEFINED || given == TYPE_INODE || given == TYPE_REFTARG ||
          given == TYPE_CONTROL) {
        FPValue v = value;
        if (v.CoerceTo(type)) return v;
      }
      break;
    case TYPE_INTERFACE:
    case TYPE_HWND:
      if (given == TYPE_UNDEFINED || given == type) {
        FPValue v = value;
        v.CoerceTo(type);
        return v;
      }
      if (type == TYPE_HWND && given == TYPE_INT)
        return FPValue::HWnd(reinterpret_cast<HWND>(static_cast<intptr_t>(value.AsInt())));
      break;
    default:
      break;
  }
  throw ConversionError(value, type);
}

FPValue ToScriptValue(const FPValue& value, const FPEnumDef* enums) {
  using enum FPType;
  if (value.IsTab()) {
    std::vector<FPValue> items;
    items.reserve(static_cast<size_t>(value.Count()));
    for (int i = 0; i < value.Count(); ++i) items.push_back(ToScriptValue(value.Item(i), enums));
    return FPValue::Table(TYPE_VALUE_TAB, std::move(items));
  }
  switch (value.Type()) {
    case TYPE_INDEX:
      return FPValue(ToScriptIndex(value.AsInt()));
    case TYPE_ENUM:
      if (const std::string* name = enums ? enums->NameOf(value.AsInt()) : nullptr)
        return FPValue::Name(*name);
      return FPValue(value.AsInt());
    case TYPE_ANGLE:
      return FPValue(value.AsFloat() * kDegPerRad);
    case TYPE_PCNT_FRAC:
      return FPValue(value.AsFloat() * 100.0f);
    case TYPE_WORLD:
      return FPValue(value.AsFloat());
    case TYPE_TSTR:
    case TYPE_FILENAME:
      return FPValue(value.AsString());
    case TYPE_INODE:
    case TYPE_REFTARG:
    case TYPE_CONTROL: {
      if (value.IsNullPointer()) return FPValue();
      // Show a live object by what it is, however it was passed.
      if (INode* node = value.AsNode()) return FPValue(node);
      if (Control* control = value.AsControl()) return FPValue(control);
      return value;
    }
    case TYPE_INTERFACE:
    case TYPE_HWND:
      return value.IsNullPointer() ? FPValue() : value;
    default:
      return value;
  }
}

bool SetScriptBit(BitArray& bits, int script_index, bool on) {
  if (script_index < 1 || script_index > kMaxScriptBitArrayIndex) return false;
  if (on && script_index > bits.GetSize()) bits.SetSize(script_index, /*keep=*/true);
  bits.Set(script_index - 1, on);
  return true;
}

// The codes shared with parameter blocks are the same numbers, so a parameter's type converts to
// an FPType with a cast.
#define MV_SAME_TYPE_CODE(name) \
  static_assert(static_cast<int>(FPType::name) == ::name, #name " differs from the block's code")
MV_SAME_TYPE_CODE(TYPE_FLOAT);
MV_SAME_TYPE_CODE(TYPE_INT);
MV_SAME_TYPE_CODE(TYPE_POINT3);
MV_SAME_TYPE_CODE(TYPE_BOOL);
MV_SAME_TYPE_CODE(TYPE_ANGLE);
MV_SAME_TYPE_CODE(TYPE_PCNT_FRAC);
MV_SAME_TYPE_CODE(TYPE_WORLD);
MV_SAME_TYPE_CODE(TYPE_STRING);
MV_SAME_TYPE_CODE(TYPE_FILENAME);
MV_SAME_TYPE_CODE(TYPE_TIMEVALUE);
MV_SAME_TYPE_CODE(TYPE_INODE);
MV_SAME_TYPE_CODE(TYPE_REFTARG);
MV_SAME_TYPE_CODE(TYPE_INDEX);
MV_SAME_TYPE_CODE(TYPE_MATRIX3);
MV_SAME_TYPE_CODE(TYPE_POINT4);
MV_SAME_TYPE_CODE(TYPE_TAB);
MV_SAME_TYPE_CODE(TYPE_INODE_TAB);
MV_SAME_TYPE_CODE(TYPE_INDEX_TAB);
#undef MV_SAME_TYPE_CODE
