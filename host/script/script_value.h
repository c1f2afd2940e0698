// Copyright Marvolith contributors.
// Conversion between script values and the C++ form of published arguments and results.
#pragma once

#include "host/script/fp_interface.h"
#include "host/script/fp_value.h"

/// True for the types a script value can have: undefined, OK (TYPE_VOID), integer, float,
/// boolean, string, name, Point3, Point4, Quat, AngAxis, Matrix3, Color, bit array, time, node,
/// reference target, controller, interface, window handle, and arrays (TYPE_VALUE_TAB).
bool IsScriptType(FPType type);

/// The C++ form of script value for an argument of type, as the host converts at the script
/// boundary. Raises ConversionError naming ScriptTypeName(type) when value does not convert.
///
/// - Integer kinds take integers and floats (truncated). TYPE_INDEX subtracts one
///   (FromScriptIndex). TYPE_BOOL takes booleans only.
/// - Float kinds take integers and floats. TYPE_ANGLE converts degrees to radians, TYPE_PCNT_FRAC
///   a percentage to a fraction.
/// - TYPE_TIMEVALUE takes a time, or a number of frames (rounded to ticks).
/// - TYPE_ENUM takes a name of enums (compared without case) or an integer, which passes through
///   even when the enumeration has no such value.
/// - String kinds and names take strings and names.
/// - TYPE_BITARRAY takes a bit array, or an array of element numbers (1-based).
/// - Nodes, targets and controllers take undefined (null) or an object of the kind; interfaces
///   and window handles take undefined too.
/// - Tables take arrays (and tables), converting each element.
/// - TYPE_VALUE takes anything unchanged.
FPValue FromScriptValue(const FPValue& value, FPType type, const FPEnumDef* enums = nullptr);

/// The script value of a C++-form value: TYPE_INDEX adds one, TYPE_ANGLE becomes degrees,
/// TYPE_PCNT_FRAC a percentage, TYPE_ENUM the name of its value in enums (an integer without
/// one), file names and TSTR strings, null objects undefined, a node held as a target a node,
/// tables arrays. Script values pass unchanged.
FPValue ToScriptValue(const FPValue& value, const FPEnumDef* enums = nullptr);

/// The largest element number a script bit array takes: a slip of the keyboard must not ask for
/// gigabytes.
inline constexpr int kMaxScriptBitArrayIndex = 1 << 28;

/// Sets or clears element script_index (1-based) of bits, growing it to hold the element when
/// setting. Answers false, bits untouched, for a number outside 1..kMaxScriptBitArrayIndex.
bool SetScriptBit(BitArray& bits, int script_index, bool on = true);
