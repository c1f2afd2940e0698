// Copyright Marvolith contributors.
// The host's script entry. Plug-ins run script text through it; the interpreter behind it is
// the host's, installed by whoever hosts one.
#pragma once

#include "host/script/fp_value.h"

/// Runs s. Answers true when the script ran without an error; then *fpv (when given) receives
/// its value in published form. On an error *fpv is undefined and, unless quietErrors, the
/// error's line goes to standard error. Without an installed interpreter it answers false and
/// says so on standard error.
bool ExecuteMAXScriptScript(const char* s, bool quietErrors = false, FPValue* fpv = nullptr);

/// What runs the scripts of ExecuteMAXScriptScript.
using ScriptEngineProc = bool (*)(const char* s, bool quietErrors, FPValue* fpv);
/// Installs engine (null removes it).
void SetScriptEngine(ScriptEngineProc engine);
