// Copyright Marvolith contributors.
#include "host/script/fp_dispatch.h"

#include "host/base/exceptions.h"
#include "host/script/script_errors.h"
#include "host/script/script_value.h"

namespace {

const FPKeyArg* FindKey(std::span<const FPKeyArg> keys, std::string_view name) {
  for (const FPKeyArg& k : keys) {
    if (ScriptNameEquals(k.name, name)) return &k;
  }
  return nullptr;
}

FPResult Run(FPInterface* fpi, FunctionID id, FPParams* params, const FPEnumDef* result_enum) {
  FPValue result;
  FPResult out;
  out.status = fpi->Invoke(id, params, result);
  if (out.status == FPS_OK) out.value = ToScriptValue(result, result_enum);
  return out;
}

FPResult CallDef(FPInterface* fpi,
                 const FPInterfaceDesc& desc,
                 const FPFunctionDef& fn,
                 std::span<const FPValue> args,
                 std::span<const FPKeyArg> keys) {
  const int given = static_cast<int>(args.size());
  const int required = fn.RequiredCount();
  const int positional = fn.PositionalCount();
  // A missing argument fails where the host's function map reads it, with its array error; a
  // surplus one is the script's argument count error. Both before any argument converts.
  if (given < required) throw MaxSDK::Util::ArrayOutOfRangeException();
  if (given > positional) throw ArgCountError(fn.internal_name, positional, given);

  FPParams params;
  int next = 0;
  for (const FPParamDef& def : fn.params) {
    const FPValue* value = nullptr;
    if (!def.keyword && next < given) {
      value = &args[static_cast<size_t>(next++)];
    } else if (const FPKeyArg* key = FindKey(keys, def.internal_name)) {
      value = &key->value;
    }
    if (value) {
      params.Append(FromScriptValue(*value, def.type, desc.FindEnum(def.enum_id)));
    } else {
      // The count check above leaves only arguments with defaults unfilled.
      params.Append(def.default_value.value_or(FPValue()));
    }
  }
  return Run(fpi, fn.id, &params, desc.FindEnum(fn.enum_id));
}

FPResult GetDef(FPInterface* fpi, const FPInterfaceDesc& desc, const FPPropertyDef& prop) {
  return Run(fpi, prop.getter_id, nullptr, desc.FindEnum(prop.enum_id));
}

FPResult SetDef(FPInterface* fpi,
                const FPInterfaceDesc& desc,
                const FPPropertyDef& prop,
                const FPValue& value) {
  if (prop.ReadOnly()) throw RuntimeError("Cannot set read-only property: " + prop.internal_name);
  FPParams params{FromScriptValue(value, prop.type, desc.FindEnum(prop.enum_id))};
  return Run(fpi, prop.setter_id, &params, nullptr);
}

FPResult CallProperty(FPInterface* fpi,
                      const FPInterfaceDesc& desc,
                      const FPPropertyDef& prop,
                      bool as_setter,
                      std::span<const FPValue> args) {
  const int given = static_cast<int>(args.size());
  const int wanted = as_setter ? 1 : 0;
  if (given < wanted) throw MaxSDK::Util::ArrayOutOfRangeException();
  if (given > wanted) throw ArgCountError(prop.internal_name, wanted, given);
  return as_setter ? SetDef(fpi, desc, prop, args[0]) : GetDef(fpi, desc, prop);
}

FPResult NoSuchMember() { return {FPS_NO_SUCH_FUNCTION, FPValue()}; }

}  // namespace

FPResult CallFunction(FPInterface* fpi,
                      std::string_view name,
                      std::span<const FPValue> args,
                      std::span<const FPKeyArg> keys) {
  FPInterfaceDesc* desc = fpi ? fpi->GetDesc() : nullptr;
  if (!desc) return {FPS_FAIL, FPValue()};
  if (const FPFunctionDef* fn = desc->FindFunction(name))
    return CallDef(fpi, *desc, *fn, args, keys);
  if (const FPPropertyDef* prop = desc->FindProperty(name))
    return CallProperty(fpi, *desc, *prop, !args.empty(), args);
  return NoSuchMember();
}

FPResult CallFunction(FPInterface* fpi,
                      FunctionID id,
                      std::span<const FPValue> args,
                      std::span<const FPKeyArg> keys) {
  FPInterfaceDesc* desc = fpi ? fpi->GetDesc() : nullptr;
  if (!desc) return {FPS_FAIL, FPValue()};
  const FPMember member = desc->FindMember(id);
  switch (member.kind) {
    case FPMember::Kind::kFunction:
      return CallDef(fpi, *desc, *member.function, args, keys);
    case FPMember::Kind::kGetter:
      return CallProperty(fpi, *desc, *member.property, false, args);
    case FPMember::Kind::kSetter:
      return CallProperty(fpi, *desc, *member.property, true, args);
    case FPMember::Kind::kNone:
      break;
  }
  return NoSuchMember();
}

FPResult GetProperty(FPInterface* fpi, std::string_view name) {
  FPInterfaceDesc* desc = fpi ? fpi->GetDesc() : nullptr;
  if (!desc) return {FPS_FAIL, FPValue()};
  const FPPropertyDef* prop = desc->FindProperty(name);
  return prop ? GetDef(fpi, *desc, *prop) : NoSuchMember();
}

FPResult SetProperty(FPInterface* fpi, std::string_view name, const FPValue& value) {
  FPInterfaceDesc* desc = fpi ? fpi->GetDesc() : nullptr;
  if (!desc) return {FPS_FAIL, FPValue()};
  const FPPropertyDef* prop = desc->FindProperty(name);
  return prop ? SetDef(fpi, *desc, *prop, value) : NoSuchMember();
}
