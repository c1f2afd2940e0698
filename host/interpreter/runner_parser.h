// Copyright Marvolith contributors.
// The parser of the script runner: script text to a syntax tree.
#pragma once

#include <memory>
#include <string_view>

#include "host/interpreter/runner_ast.h"

/// Deepest nesting of expressions the parser accepts; deeper text is a syntax error, so that
/// neither parsing nor evaluation can run out of stack.
inline constexpr int kMaxScriptNesting = 128;

/// Parses text into a program. On a syntax error (or a construct this runner does not run)
/// answers null and sets error: "Syntax error: at <token>, expected <what>" or
/// "Syntax error: <construct> is not supported", with the place of the offending token. Never
/// throws; any input, however damaged, gives a program or an error.
std::shared_ptr<const ScriptProgram> ParseScript(std::string_view text, ScriptError& error);
