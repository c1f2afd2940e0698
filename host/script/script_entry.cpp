// Copyright Marvolith contributors.
#include "host/script/script_entry.h"

#include <cstdio>

namespace {

ScriptEngineProc& Engine() {
  static ScriptEngineProc engine = nullptr;
  return engine;
}

}  // namespace

bool ExecuteMAXScriptScript(const char* s, bool quietErrors, FPValue* fpv) {
  if (ScriptEngineProc engine = Engine()) return engine(s, quietErrors, fpv);
  if (fpv) *fpv = FPValue();
  std::fprintf(stderr, "-- No script interpreter in this host\n");
  return false;
}

void SetScriptEngine(ScriptEngineProc engine) { Engine() = engine; }
