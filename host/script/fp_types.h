// Copyright Marvolith contributors.
// Type codes, ids, flags and status values of function publishing, and the script index rule.
#pragma once

#include <climits>
#include <cstdint>

#include "host/base/ids.h"

/// Type code of a published argument, result, property or value. The numbers are the host's
/// ParamType2 numbers, so a code is the same in a parameter block and in an interface table.
/// Enumerators keep the host's TYPE_ names; write `FPType::TYPE_INODE`, or `using enum FPType;`
/// in a file that builds tables.
enum class FPType : int {
  TYPE_FLOAT = 0,
  TYPE_INT = 1,
  TYPE_POINT3 = 3,
  TYPE_BOOL = 4,
  TYPE_ANGLE = 5,      ///< radians in C++, degrees in script
  TYPE_PCNT_FRAC = 6,  ///< a fraction in C++, a percentage in script
  TYPE_WORLD = 7,
  TYPE_STRING = 8,
  TYPE_FILENAME = 9,
  TYPE_TIMEVALUE = 12,  ///< ticks
  TYPE_INODE = 17,
  TYPE_REFTARG = 18,
  TYPE_INDEX = 19,  ///< 0-based in C++, 1-based in script
  TYPE_MATRIX3 = 20,
  TYPE_POINT4 = 22,
  TYPE_ENUM = 24,  ///< an int; script passes a name of the enumeration or the int
  TYPE_VOID = 25,  ///< no result; prints as OK
  TYPE_INTERFACE = 26,
  TYPE_ANGAXIS = 27,  ///< angle in radians in C++, degrees in script
  TYPE_QUAT = 28,
  TYPE_BITARRAY = 31,  ///< a selection; bit 0 is element 1 in script
  TYPE_CONTROL = 35,
  TYPE_TSTR = 37,
  TYPE_HWND = 40,
  TYPE_NAME = 41,   ///< a script name, #like_this
  TYPE_COLOR = 42,  ///< components 0..1 in C++, 0..255 in script
  TYPE_VALUE = 44,  ///< as an argument type: any value, passed through unconverted
  /// Not a host code: the script value `undefined` (the host carries it as a TYPE_VALUE).
  TYPE_UNDEFINED = 0x3ff,
  /// Not a host code: a script sub-anim (a track: parent and sub-anim number), which the host
  /// carries as a TYPE_VALUE holding a MAXSubAnim. It reaches TYPE_VALUE arguments unchanged.
  TYPE_SUBANIM = 0x3fe,

  /// Added to a base code to make its table form.
  TYPE_TAB = 0x800,
  TYPE_FLOAT_TAB = TYPE_FLOAT + TYPE_TAB,
  TYPE_INT_TAB = TYPE_INT + TYPE_TAB,
  TYPE_POINT3_TAB = TYPE_POINT3 + TYPE_TAB,
  TYPE_BOOL_TAB = TYPE_BOOL + TYPE_TAB,
  TYPE_ANGLE_TAB = TYPE_ANGLE + TYPE_TAB,
  TYPE_PCNT_FRAC_TAB = TYPE_PCNT_FRAC + TYPE_TAB,
  TYPE_WORLD_TAB = TYPE_WORLD + TYPE_TAB,
  TYPE_STRING_TAB = TYPE_STRING + TYPE_TAB,
  TYPE_FILENAME_TAB = TYPE_FILENAME + TYPE_TAB,
  TYPE_TIMEVALUE_TAB = TYPE_TIMEVALUE + TYPE_TAB,
  TYPE_INODE_TAB = TYPE_INODE + TYPE_TAB,
  TYPE_REFTARG_TAB = TYPE_REFTARG + TYPE_TAB,
  TYPE_INDEX_TAB = TYPE_INDEX + TYPE_TAB,
  TYPE_MATRIX3_TAB = TYPE_MATRIX3 + TYPE_TAB,
  TYPE_POINT4_TAB = TYPE_POINT4 + TYPE_TAB,
  TYPE_ENUM_TAB = TYPE_ENUM + TYPE_TAB,
  TYPE_INTERFACE_TAB = TYPE_INTERFACE + TYPE_TAB,
  TYPE_ANGAXIS_TAB = TYPE_ANGAXIS + TYPE_TAB,
  TYPE_QUAT_TAB = TYPE_QUAT + TYPE_TAB,
  TYPE_BITARRAY_TAB = TYPE_BITARRAY + TYPE_TAB,
  TYPE_CONTROL_TAB = TYPE_CONTROL + TYPE_TAB,
  TYPE_TSTR_TAB = TYPE_TSTR + TYPE_TAB,
  TYPE_NAME_TAB = TYPE_NAME + TYPE_TAB,
  TYPE_COLOR_TAB = TYPE_COLOR + TYPE_TAB,
  /// A table of any values: what a script array is.
  TYPE_VALUE_TAB = TYPE_VALUE + TYPE_TAB,
};

/// True for the table forms.
constexpr bool IsTab(FPType t) {
  return (static_cast<int>(t) & static_cast<int>(FPType::TYPE_TAB)) != 0;
}
/// The element code of a table form; other codes are returned unchanged.
constexpr FPType BaseType(FPType t) {
  return static_cast<FPType>(static_cast<int>(t) & ~static_cast<int>(FPType::TYPE_TAB));
}
/// The table form of a base code.
constexpr FPType TabOf(FPType t) {
  return static_cast<FPType>(static_cast<int>(t) | static_cast<int>(FPType::TYPE_TAB));
}

/// Id of a published function or of a property's getter or setter within its interface.
using FunctionID = short;
/// Id of an enumeration within its interface.
using EnumID = short;
/// Marks "no function" (a read-only property's setter) and "no enumeration".
inline constexpr FunctionID FP_NO_FUNCTION = -1;
inline constexpr EnumID FP_NO_ENUM = -1;

// Interface flags of an FPInterfaceDesc.
inline constexpr DWORD FP_MIXIN = 0x0002;  ///< implemented by the object class itself
inline constexpr DWORD FP_CORE = 0x0004;   ///< registered as a core interface when constructed
/// Functions take no object: the interface's functions are global (static) operations.
inline constexpr DWORD FP_STATIC_METHODS = 0x0008;

/// Result of FPInterface::Invoke and of the dispatcher.
enum FPStatus : int {
  FPS_FAIL = 0,
  FPS_OK = 1,
  /// The id (or name) names no function or property of the interface; the result is undefined.
  FPS_NO_SUCH_FUNCTION = -1,
};

/// The C++ index of a 1-based script index (script 1 is C++ 0). Saturates at INT_MIN instead of
/// overflowing, so no script integer can wrap to a valid index.
constexpr int FromScriptIndex(int script_index) {
  return script_index == INT_MIN ? INT_MIN : script_index - 1;
}
/// The 1-based script index of a C++ index. Saturates at INT_MAX.
constexpr int ToScriptIndex(int index) { return index == INT_MAX ? INT_MAX : index + 1; }
