// Copyright Marvolith contributors.
// Function publishing: interface tables (FPInterfaceDesc), published interfaces (FPInterface,
// FPMixinInterface, FPStaticInterface) and the registry of core interfaces.
//
// A table reads like the host's static tables:
//
//   using enum FPType;
//   static FPInterfaceDesc layers_desc(
//       IANIMATIONLAYERS_ID, "interface", FP_MIXIN, &layered_float_cd,
//       {
//           {kGetLayerCount, "GetLayerCount", TYPE_INT},
//           {kAddAdjustmentLayer, "AddAdjustmentLayer", TYPE_VOID,
//            {FPArg("name", TYPE_STRING).KeyArg(""), FPArg("index", TYPE_INDEX).KeyArg(-1)}},
//       },
//       {FPPropertyDef(kGetOffsetPos, kSetOffsetPos, "offset_pos", TYPE_POINT3)},
//       {FPEnumDef(kPointTypes, {{"BezierCorner", 0}, {"Bezier", 1}})});
#pragma once

#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "host/core/base_interface.h"
#include "host/script/fp_types.h"
#include "host/script/fp_value.h"

class Animatable;
class ClassDesc2;

/// One argument of a published function.
struct FPParamDef {
  std::string internal_name;
  FPType type = FPType::TYPE_VALUE;
  /// The enumeration of a TYPE_ENUM (or TYPE_ENUM_TAB) argument, or FP_NO_ENUM.
  EnumID enum_id = FP_NO_ENUM;
  /// Set for an argument that may be left out. Held in C++ form (a TYPE_INDEX default is
  /// 0-based), coerced to the argument's type when the table is built.
  std::optional<FPValue> default_value;
  /// A keyword argument (the host's f_keyArgDefault): given only by name, never by position.
  bool keyword = false;

  /// Required argument: given by position, no default.
  FPParamDef(std::string name, FPType t) : internal_name(std::move(name)), type(t) {}
  /// Makes it a keyword argument with default value.
  FPParamDef& KeyArg(FPValue value) {
    keyword = true;
    default_value = std::move(value);
    return *this;
  }
  /// Makes it an optional positional argument with default value; optional arguments follow the
  /// required ones. A keyword may also name it.
  FPParamDef& Default(FPValue value) {
    default_value = std::move(value);
    return *this;
  }
  /// Ties a TYPE_ENUM argument to enumeration id of the interface.
  FPParamDef& Enum(EnumID id) {
    enum_id = id;
    return *this;
  }
};
/// Short name for building argument lists: FPArg("index", TYPE_INDEX).KeyArg(-1).
using FPArg = FPParamDef;

/// One published function.
struct FPFunctionDef {
  FunctionID id = FP_NO_FUNCTION;
  std::string internal_name;
  FPType result_type = FPType::TYPE_VOID;
  std::vector<FPParamDef> params;
  /// Function flags of the host's tables (FP_NO_REDRAW and so on); carried, not interpreted.
  DWORD flags = 0;
  /// The enumeration of a TYPE_ENUM result: it is returned to script as a name.
  EnumID enum_id = FP_NO_ENUM;

  FPFunctionDef(FunctionID fid,
                std::string name,
                FPType result,
                std::initializer_list<FPParamDef> args = {},
                DWORD fn_flags = 0)
      : id(fid),
        internal_name(std::move(name)),
        result_type(result),
        params(args),
        flags(fn_flags) {}
  FPFunctionDef& Enum(EnumID eid) {
    enum_id = eid;
    return *this;
  }
  /// Number of arguments given by position: those that are not keyword arguments.
  int PositionalCount() const;
  /// Number of leading positional arguments without a default.
  int RequiredCount() const;
};

/// One property: a getter and an optional setter in the interface's function id space.
struct FPPropertyDef {
  FunctionID getter_id = FP_NO_FUNCTION;
  /// FP_NO_FUNCTION for a read-only property.
  FunctionID setter_id = FP_NO_FUNCTION;
  std::string internal_name;
  FPType type = FPType::TYPE_VALUE;
  EnumID enum_id = FP_NO_ENUM;

  FPPropertyDef(FunctionID getter, FunctionID setter, std::string name, FPType t)
      : getter_id(getter), setter_id(setter), internal_name(std::move(name)), type(t) {}
  FPPropertyDef& Enum(EnumID eid) {
    enum_id = eid;
    return *this;
  }
  bool ReadOnly() const { return setter_id == FP_NO_FUNCTION; }
};

/// One enumeration: names and their values.
struct FPEnumDef {
  struct Item {
    std::string name;
    int value = 0;
  };
  EnumID id = FP_NO_ENUM;
  std::vector<Item> items;

  FPEnumDef(EnumID eid, std::initializer_list<Item> list) : id(eid), items(list) {}
  /// The value of name (compared without case, as scripts do), or nullopt.
  std::optional<int> Find(std::string_view name) const;
  /// The first name with value, or null.
  const std::string* NameOf(int value) const;
};

/// What a function id names within an interface.
struct FPMember {
  enum class Kind { kNone, kFunction, kGetter, kSetter };
  Kind kind = Kind::kNone;
  /// The function definition (kFunction) or property definition (kGetter, kSetter).
  const FPFunctionDef* function = nullptr;
  const FPPropertyDef* property = nullptr;
  explicit operator bool() const { return kind != Kind::kNone; }
};

class FPInterfaceDesc;

/// A published interface: a table of functions and properties, called by id.
class FPInterface : public BaseInterface {
 public:
  /// The table of this interface.
  virtual FPInterfaceDesc* GetDesc() = 0;
  Interface_ID GetID() override;

  /// Calls member fid with the arguments p (C++ form, in definition order; null for none) and
  /// puts the result into result, coerced to the member's declared type (an int returned for a
  /// TYPE_INDEX stays 0-based and is tagged TYPE_INDEX).
  ///
  /// An id the table does not hold answers FPS_NO_SUCH_FUNCTION with result undefined and calls
  /// nothing. Fewer arguments than the member takes raise MaxSDK::Util::ArrayOutOfRangeException
  /// before anything runs (a property setter called without its value, say). Arguments are not
  /// type-checked here: that is the dispatcher's work at the script boundary. With scalar
  /// arguments the call itself allocates nothing.
  FPStatus Invoke(FunctionID fid, FPParams* p, FPValue& result);
  /// As above, for a member without arguments.
  FPStatus Invoke(FunctionID fid, FPValue& result) { return Invoke(fid, nullptr, result); }

 protected:
  /// Runs member fid. p holds at least as many values as the member takes (an empty FPParams
  /// for none). Answers FPS_OK, or FPS_FAIL, or FPS_NO_SUCH_FUNCTION for an id the class does not
  /// implement.
  virtual FPStatus Dispatch(FunctionID fid, FPParams& p, FPValue& result) = 0;
};

/// The table of one published interface: id, internal name, flags, owner class, functions,
/// properties and enumerations. The host treats the table as an interface itself; a static
/// (core) interface derives from it and implements Dispatch.
///
/// A table with an owner class adds itself to that class's interfaces; a table flagged FP_CORE
/// registers itself as a core interface and unregisters when destroyed.
class FPInterfaceDesc : public FPInterface {
 public:
  FPInterfaceDesc(Interface_ID id,
                  std::string internal_name,
                  DWORD flags,
                  ClassDesc2* cd,
                  std::vector<FPFunctionDef> functions,
                  std::vector<FPPropertyDef> properties = {},
                  std::vector<FPEnumDef> enums = {});
  ~FPInterfaceDesc() override;
  FPInterfaceDesc(const FPInterfaceDesc&) = delete;
  FPInterfaceDesc& operator=(const FPInterfaceDesc&) = delete;

  FPInterfaceDesc* GetDesc() override { return this; }
  Interface_ID GetID() override { return id_; }

  Interface_ID ID() const { return id_; }
  const std::string& InternalName() const { return internal_name_; }
  DWORD Flags() const { return flags_; }
  ClassDesc2* OwnerClass() const { return cd_; }

  const std::vector<FPFunctionDef>& Functions() const { return functions_; }
  const std::vector<FPPropertyDef>& Properties() const { return properties_; }
  const std::vector<FPEnumDef>& Enums() const { return enums_; }

  /// What id names: a function, a property's getter or setter, or nothing. Allocates nothing.
  FPMember FindMember(FunctionID id) const;
  /// The function named name (compared without case), or null.
  const FPFunctionDef* FindFunction(std::string_view name) const;
  /// The property named name (compared without case), or null.
  const FPPropertyDef* FindProperty(std::string_view name) const;
  const FPEnumDef* FindEnum(EnumID id) const;

 protected:
  /// A bare table implements nothing.
  FPStatus Dispatch(FunctionID, FPParams&, FPValue&) override { return FPS_NO_SUCH_FUNCTION; }

 private:
  struct IdEntry {
    FunctionID id;
    FPMember member;
  };
  void BuildIndex();

  Interface_ID id_;
  std::string internal_name_;
  DWORD flags_;
  ClassDesc2* cd_;
  std::vector<FPFunctionDef> functions_;
  std::vector<FPPropertyDef> properties_;
  std::vector<FPEnumDef> enums_;
  std::vector<IdEntry> by_id_;  // sorted by id
};

/// An interface implemented by an object's class itself (a controller, say) and reached through
/// Animatable::GetInterface(Interface_ID). GetDesc answers the class's static table.
class FPMixinInterface : public FPInterface {};

/// A static interface: one instance, which is also its own table. Flag it FP_CORE to reach it
/// through GetCOREInterface.
class FPStaticInterface : public FPInterfaceDesc {
 public:
  using FPInterfaceDesc::FPInterfaceDesc;
};

/// The published interface id of anim (a mixin reached through Animatable::GetInterface), or
/// null when anim is null or answers no published interface for id.
FPInterface* GetFPInterface(Animatable* anim, Interface_ID id);

// Core interfaces: static interfaces reachable from anywhere by id or name.

/// Registers fpi; false (and nothing changes) for null or when an interface with its id is
/// registered already.
bool RegisterCOREInterface(FPInterface* fpi);
/// Removes fpi; false when it was not registered.
bool UnRegisterCOREInterface(FPInterface* fpi);
/// The core interface with id, or null.
FPInterface* GetCOREInterface(Interface_ID id);
/// The core interface whose table's internal name is name (compared without case), or null.
FPInterface* GetCOREInterface(const char* name);
int NumCOREInterfaces();
/// The i-th registered core interface in registration order, or null out of range.
FPInterface* GetCOREInterfaceAt(int i);

/// Compares two names as scripts do: ASCII letters without case, other bytes exactly.
bool ScriptNameEquals(std::string_view a, std::string_view b);

/// Calls a member function of self with the arguments of p, each read with FPValue::Get of the
/// parameter's C++ type, and puts a non-void result into result. For a Dispatch body:
///
///   case kGetLayerName: return FPBind(result, p, this, &IAnimationLayers::GetLayerName);
template <typename C, typename R, typename... A>
FPStatus FPBind(FPValue& result, FPParams& p, C* self, R (C::*fn)(A...)) {
  return [&]<std::size_t... I>(std::index_sequence<I...>) {
    if constexpr (std::is_void_v<R>) {
      (self->*fn)(p[static_cast<int>(I)].template Get<std::remove_cvref_t<A>>()...);
      result = FPValue::Void();
    } else {
      result =
          FPValue((self->*fn)(p[static_cast<int>(I)].template Get<std::remove_cvref_t<A>>()...));
    }
    return FPS_OK;
  }
  (std::index_sequence_for<A...>{});
}
template <typename C, typename R, typename... A>
FPStatus FPBind(FPValue& result, FPParams& p, C* self, R (C::*fn)(A...) const) {
  return [&]<std::size_t... I>(std::index_sequence<I...>) {
    if constexpr (std::is_void_v<R>) {
      (self->*fn)(p[static_cast<int>(I)].template Get<std::remove_cvref_t<A>>()...);
      result = FPValue::Void();
    } else {
      result =
          FPValue((self->*fn)(p[static_cast<int>(I)].template Get<std::remove_cvref_t<A>>()...));
    }
    return FPS_OK;
  }
  (std::index_sequence_for<A...>{});
}
