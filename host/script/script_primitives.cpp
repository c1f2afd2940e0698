// Copyright Marvolith contributors.
#include "host/script/script_primitives.h"

#include <map>

#include "host/script/fp_interface.h"

namespace {

std::string Lower(std::string_view name) {
  std::string out(name);
  for (char& c : out) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return out;
}

std::map<std::string, ScriptPrimitiveFn>& Primitives() {
  static std::map<std::string, ScriptPrimitiveFn> primitives;
  return primitives;
}

}  // namespace

const FPValue* PrimitiveCall::Key(std::string_view name) const {
  for (const PrimitiveKeyArg& k : keys) {
    if (ScriptNameEquals(k.name, name)) return &k.value;
  }
  return nullptr;
}

bool RegisterScriptPrimitive(std::string_view name, ScriptPrimitiveFn fn) {
  if (!fn || name.empty()) return false;
  return Primitives().emplace(Lower(name), fn).second;
}

bool UnRegisterScriptPrimitive(std::string_view name) {
  return Primitives().erase(Lower(name)) > 0;
}

ScriptPrimitiveFn FindScriptPrimitive(std::string_view name) {
  auto& primitives = Primitives();
  auto it = primitives.find(Lower(name));
  return it == primitives.end() ? nullptr : it->second;
}
