// Copyright Marvolith contributors.
// The script errors: the only exceptions of the system besides the host's out-of-range ones.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>

#include "host/script/fp_types.h"
#include "host/script/fp_value.h"

/// Base of every error raised by a script check. what() is the error's text without the
/// listener's "-- " prefix.
class MAXScriptException : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A script argument check failed: a fixed text, then the printed form of the offending value
/// joined directly (the fixed text carries its own separator, "got: " say).
class RuntimeError : public MAXScriptException {
 public:
  explicit RuntimeError(const std::string& text);
  RuntimeError(const std::string& text, const FPValue& value);

  /// The fixed text alone.
  const std::string& Text() const { return text_; }
  /// The value, when the error carries one.
  const std::optional<FPValue>& Value() const { return value_; }

 private:
  std::string text_;
  std::optional<FPValue> value_;
};

/// A function was called with the wrong number of arguments:
/// "Argument count error: <function> wanted <wanted>, got <got>".
class ArgCountError : public MAXScriptException {
 public:
  ArgCountError(const std::string& function, int wanted, int got);
  int Wanted() const { return wanted_; }
  int Got() const { return got_; }

 private:
  int wanted_;
  int got_;
};

/// A value cannot become the type an argument needs:
/// "Unable to convert: <printed value> to type: <type name>".
class ConversionError : public MAXScriptException {
 public:
  ConversionError(const FPValue& value, const std::string& type_name);
  /// For a type code, with ScriptTypeName(type) as the type name.
  ConversionError(const FPValue& value, FPType type);
};

/// The script class name of a type code, as conversion errors name it: "Integer" for TYPE_INT
/// and TYPE_INDEX, "Float" for every float kind, "Boolean", "String", "Name", "Point3", "Node",
/// "Array" for tables, and so on.
const char* ScriptTypeName(FPType type);
