// Copyright Marvolith contributors.
// The script dispatcher: calls published functions and properties by name or id with script
// values, as the host's script does.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "host/script/fp_interface.h"
#include "host/script/fp_value.h"

/// A keyword argument of a script call (name:value).
struct FPKeyArg {
  std::string name;
  FPValue value;
};

/// What a script call answers. status is FPS_NO_SUCH_FUNCTION, with value undefined, when the
/// name or id names no member of the interface (the dispatcher's failure value); FPS_FAIL when
/// the member itself failed. value is a script value (see ToScriptValue).
struct FPResult {
  FPStatus status = FPS_OK;
  FPValue value;
};

/// Calls the function named name (compared without case) of fpi with script arguments.
///
/// Positional arguments fill the function's non-keyword arguments in order; trailing ones with a
/// default may be left out. A keyword fills the argument of that name (keyword arguments, and
/// optional positional ones not given by position); a keyword that names no such argument is
/// ignored, as the host's script ignores it. Missing arguments take their defaults. Each value
/// is converted with FromScriptValue (1-based indices become 0-based, enum names their values),
/// the function runs through FPInterface::Invoke, and its result comes back through
/// ToScriptValue (a TYPE_INDEX result becomes 1-based, an enum result its name).
///
/// When name is a property rather than a function, no arguments read it and one argument sets
/// it. Fewer positional arguments than required raise MaxSDK::Util::ArrayOutOfRangeException
/// ("Argument index out of bounds, ..."), as the host's function map does when it reads a
/// missing argument; more than the function takes raise ArgCountError. An argument that does not
/// convert raises ConversionError, a write to a read-only property RuntimeError; all of these
/// before the member runs. A member's own errors pass through as raised. Null fpi answers
/// FPS_FAIL.
FPResult CallFunction(FPInterface* fpi,
                      std::string_view name,
                      std::span<const FPValue> args,
                      std::span<const FPKeyArg> keys = {});
/// As above, by function id; a property's getter or setter id reads or writes it (a setter id
/// without its argument raises MaxSDK::Util::ArrayOutOfRangeException).
FPResult CallFunction(FPInterface* fpi,
                      FunctionID id,
                      std::span<const FPValue> args,
                      std::span<const FPKeyArg> keys = {});

/// Reads the property named name. FPS_NO_SUCH_FUNCTION when fpi has no such property.
FPResult GetProperty(FPInterface* fpi, std::string_view name);
/// Writes the property named name with a script value. FPS_NO_SUCH_FUNCTION when fpi has no such
/// property; RuntimeError "Cannot set read-only property: " followed by the name when it has no
/// setter; ConversionError when value does not convert. The result value is OK.
FPResult SetProperty(FPInterface* fpi, std::string_view name, const FPValue& value);
