// Copyright Marvolith contributors.
// Global script functions of plug-ins: a plug-in names a function and the host's interpreter
// calls it with the arguments in published form.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "host/script/fp_value.h"

/// A keyword argument of a primitive call.
struct PrimitiveKeyArg {
  std::string name;
  FPValue value;
};

/// One call of a plug-in's global script function. A script's `undefined` arrives as a default
/// FPValue, a deleted node as a TYPE_INODE value whose node is null.
struct PrimitiveCall {
  std::string_view function;
  std::span<const FPValue> args;
  std::span<const PrimitiveKeyArg> keys;
  /// The time the script evaluates at (an enclosing `at time`, else the current time).
  TimeValue time = 0;

  /// The keyword argument called name (compared without case), or null.
  const FPValue* Key(std::string_view name) const;
};

/// A primitive answers its value, or raises one of the errors of script_errors.h, whose text
/// reaches the script unchanged.
using ScriptPrimitiveFn = FPValue (*)(const PrimitiveCall& call);

/// Registers a global function under name (compared without case). False, and nothing changed,
/// when the name is taken or fn is null.
bool RegisterScriptPrimitive(std::string_view name, ScriptPrimitiveFn fn);
/// Removes a registered function; false when there is none.
bool UnRegisterScriptPrimitive(std::string_view name);
/// The function registered under name, or null.
ScriptPrimitiveFn FindScriptPrimitive(std::string_view name);
