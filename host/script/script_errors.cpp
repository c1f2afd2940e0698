// Copyright Marvolith contributors.
#include "host/script/script_errors.h"

#include "host/script/value_printer.h"

RuntimeError::RuntimeError(const std::string& text) : MAXScriptException(text), text_(text) {}

RuntimeError::RuntimeError(const std::string& text, const FPValue& value)
    : MAXScriptException(text + ToScriptString(value)), text_(text), value_(value) {}

ArgCountError::ArgCountError(const std::string& function, int wanted, int got)
    : MAXScriptException("Argument count error: " + function + " wanted " + std::to_string(wanted) +
                         ", got " + std::to_string(got)),
      wanted_(wanted),
      got_(got) {}

ConversionError::ConversionError(const FPValue& value, const std::string& type_name)
    : MAXScriptException("Unable to convert: " + ToScriptString(value) + " to type: " + type_name) {
}

ConversionError::ConversionError(const FPValue& value, FPType type)
    : ConversionError(value, ScriptTypeName(type)) {}

const char* ScriptTypeName(FPType type) {
  using enum FPType;
  if (IsTab(type)) return "Array";
  switch (type) {
    case TYPE_INT:
    case TYPE_INDEX:
      return "Integer";
    case TYPE_FLOAT:
    case TYPE_ANGLE:
    case TYPE_PCNT_FRAC:
    case TYPE_WORLD:
      return "Float";
    case TYPE_BOOL:
      return "Boolean";
    case TYPE_STRING:
    case TYPE_TSTR:
    case TYPE_FILENAME:
      return "String";
    case TYPE_NAME:
      return "Name";
    case TYPE_TIMEVALUE:
      return "Time";
    case TYPE_ENUM:
      return "Enum";
    case TYPE_POINT3:
      return "Point3";
    case TYPE_POINT4:
      return "Point4";
    case TYPE_QUAT:
      return "Quat";
    case TYPE_ANGAXIS:
      return "AngleAxis";
    case TYPE_MATRIX3:
      return "Matrix3";
    case TYPE_COLOR:
      return "Color";
    case TYPE_BITARRAY:
      return "BitArray";
    case TYPE_INODE:
      return "Node";
    case TYPE_REFTARG:
      return "ReferenceTarget";
    case TYPE_CONTROL:
      return "Controller";
    case TYPE_INTERFACE:
      return "Interface";
    case TYPE_HWND:
      return "HWND";
    case TYPE_VOID:
      return "OK";
    case TYPE_UNDEFINED:
      return "UndefinedClass";
    default:
      return "Value";
  }
}
