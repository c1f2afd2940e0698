// Copyright Marvolith contributors.
// The printed form of values, as the host's script listener shows them.
#pragma once

#include <string>

#include "host/script/fp_value.h"

/// The value as the script listener prints it. A C++-form value is first turned into its script
/// value (see ToScriptValue), so a TYPE_INDEX 0 prints as 1.
///
/// undefined, OK (no result), true, false, 12, 1.5, 2.0, "text" (quotes, backslashes, newlines
/// and tabs escaped), #name, [1,2,3], [1,2,3,4], (quat 0 0 0 1), (angleAxis 90 [0,0,1]),
/// (matrix3 [1,0,0] [0,1,0] [0,0,1] [0,0,0]), (color 255 0 0), 10f (a time in frames, 2.5f
/// between frames), $Box001 ($'two words' when the name needs quotes), <Deleted scene node>,
/// Controller:Class_Name, ReferenceTarget:Class_Name, <Deleted object>, <Interface:Name>,
/// <MixinInterface:name>, and arrays as #(1, 2, 3). Floats print with six significant digits.
std::string ToScriptString(const FPValue& value);

/// A float as the listener prints it: six significant digits, ".0" added to a whole number.
std::string ScriptFloatString(float f);
