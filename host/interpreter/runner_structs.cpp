// Copyright Marvolith contributors.
// Struct definitions and instances, and the places that by-reference arguments point at.
#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "host/interpreter/internal/runner_impl.h"
#include "host/script/fp_interface.h"

using namespace script_internal;

namespace {

// Arrays may grow through a by-reference element up to this many elements, as through index
// assignment.
constexpr int kMaxArrayLength = 10'000'000;

// Pruning the list of captured scopes once it doubled keeps a loop that makes many short-lived
// instances from growing the list without bound.
constexpr size_t kMinCapturedPrune = 64;

}  // namespace

const AstNamed* ScriptStructDef::FindData(std::string_view lower) const {
  for (const AstNamed& m : def->keys) {
    if (ScriptNameEquals(m.name, lower)) return &m;
  }
  return nullptr;
}

const AstNode* ScriptStructDef::FindFunction(std::string_view lower) const {
  for (size_t i = 1; i < def->children.size(); ++i) {
    if (ScriptNameEquals(def->children[i]->text, lower)) return def->children[i].get();
  }
  return nullptr;
}

namespace script_internal {

ScriptValue BindStructFunction(const std::shared_ptr<ScriptScope>& instance, const AstNode& fn) {
  auto bound = std::make_shared<ScriptFunction>();
  bound->name = fn.text;
  bound->program = instance->instance_of->program;
  bound->def = &fn;
  bound->closure = instance;
  return ScriptValue::Function(std::move(bound));
}

bool GetStructMember(const ScriptValue& instance, std::string_view name, ScriptValue& out) {
  ScriptScope* scope = instance.AsStructInstance();
  if (!scope) return false;
  const std::string lower = LowerName(name);
  // A member function replaced by assignment holds its new value among the data.
  if (auto it = scope->vars.find(lower); it != scope->vars.end()) {
    out = it->second;
    return true;
  }
  const AstNode* fn = scope->instance_of->FindFunction(lower);
  if (!fn) return false;
  out = BindStructFunction(instance.InstancePtr(), *fn);
  return true;
}

bool SetStructMember(const ScriptValue& instance, std::string_view name, const ScriptValue& v) {
  ScriptScope* scope = instance.AsStructInstance();
  if (!scope) return false;
  const std::string lower = LowerName(name);
  if (!scope->vars.count(lower) && !scope->instance_of->FindFunction(lower)) return false;
  scope->vars[lower] = v;
  return true;
}

}  // namespace script_internal

void ScriptRunner::Impl::NoteCaptured(const std::shared_ptr<ScriptScope>& scope) {
  if (!captured_.empty() && captured_.back().lock() == scope) return;
  captured_.push_back(scope);
  if (captured_.size() < std::max(kMinCapturedPrune, 2 * captured_pruned_)) return;
  std::erase_if(captured_, [](const std::weak_ptr<ScriptScope>& w) { return w.expired(); });
  captured_pruned_ = captured_.size();
}

ScriptValue ScriptRunner::Impl::EvalStruct(const AstNode& n) {
  auto def = std::make_shared<ScriptStructDef>();
  def->name = n.text;
  def->program = program_;
  def->def = &n;
  def->closure = env_;
  // The scope may come to hold the definition: a cycle to break when nothing reaches it.
  NoteCaptured(env_);
  ScriptValue value = ScriptValue::StructDef(std::move(def));
  Define(LowerName(n.text), value);
  return value;
}

ScriptValue ScriptRunner::Impl::ConstructStruct(const std::shared_ptr<const ScriptStructDef>& def,
                                                std::span<const ScriptValue> args,
                                                std::span<const ScriptKeyArg> keys) {
  const AstNode& node = *def->def;
  const int data_count = static_cast<int>(node.keys.size());
  if (static_cast<int>(args.size()) > data_count) {
    throw ArgCountError(def->name, data_count, static_cast<int>(args.size()));
  }
  for (const ScriptKeyArg& k : keys) {
    if (!def->FindData(k.name)) UnknownProperty(k.name, ScriptValue::StructDef(def));
  }
  // Not make_shared: the list of captured scopes holds weak pointers, which would keep the
  // whole block of a make_shared scope allocated.
  std::shared_ptr<ScriptScope> scope = ScriptValue::NewInstanceScope();
  scope->parent = def->closure;
  scope->instance_of = def;
  NoteCaptured(scope);
  // Every member exists before any default runs, so that a default naming a member reads the
  // member and not an outer variable of the same name.
  for (const AstNamed& m : node.keys) scope->vars[LowerName(m.name)] = ScriptValue();
  std::vector<bool> given(node.keys.size(), false);
  for (size_t i = 0; i < args.size(); ++i) {
    scope->vars[LowerName(node.keys[i].name)] = args[i];
    given[i] = true;
  }
  for (const ScriptKeyArg& k : keys) {
    for (size_t i = 0; i < node.keys.size(); ++i) {
      if (!ScriptNameEquals(node.keys[i].name, k.name)) continue;
      scope->vars[LowerName(node.keys[i].name)] = k.value;
      given[i] = true;
    }
  }
  ProgramSwap program(*this, def->program);
  // Defaults and the create handler run inside the instance; their own locals stay out of it.
  ScopeSwap swap(*this, ChildScope(scope));
  for (size_t i = 0; i < node.keys.size(); ++i) {
    if (given[i] || !node.keys[i].value) continue;
    scope->vars[LowerName(node.keys[i].name)] = Eval(*node.keys[i].value);
  }
  ScriptValue instance = ScriptValue::StructInstance(scope);
  if (const AstNode* on_create = node.Child(0)) Eval(*on_create);
  return instance;
}

ScriptValue ScriptRunner::Impl::CopyStructInstance(const ScriptValue& instance) {
  const ScriptScope* from = instance.AsStructInstance();
  std::shared_ptr<ScriptScope> scope = ScriptValue::NewInstanceScope();
  scope->vars = from->vars;
  scope->parent = from->parent;
  scope->instance_of = from->instance_of;
  NoteCaptured(scope);
  return ScriptValue::StructInstance(std::move(scope));
}

// ---------------------------------------------------------------------------------------------
// By-reference places.

ScriptValue ScriptRunner::Impl::EvalRef(const AstNode& place) {
  auto ref = std::make_shared<ScriptRef>();
  switch (place.kind) {
    case AstKind::kIdentifier: {
      const std::string lower = LowerName(place.text);
      ref->name = lower;
      for (std::shared_ptr<ScriptScope> s = env_; s; s = s->parent) {
        if (s->global_names.count(lower)) break;
        auto it = s->vars.find(lower);
        if (it == s->vars.end()) continue;
        // A by-reference parameter passed on: the same place, not a place holding a place.
        if (it->second.AsRef()) return it->second;
        ref->kind = ScriptRef::Kind::kVariable;
        ref->scope = s;
        return ScriptValue::Reference(std::move(ref));
      }
      ref->kind = ScriptRef::Kind::kGlobal;
      // An unknown name inside a block becomes a local there, as assignment would make it.
      if (!globals.count(lower) && !FindGlobal(lower) && env_ && !env_->top &&
          !env_->global_names.count(lower)) {
        env_->vars[lower] = ScriptValue();
        ref->kind = ScriptRef::Kind::kVariable;
        ref->scope = env_;
      }
      return ScriptValue::Reference(std::move(ref));
    }
    case AstKind::kProperty: {
      ScriptValue obj = Eval(*place.children[0]);
      ScriptValue current;
      if (obj.AsStructInstance() && obj.AsStructInstance()->vars.count(LowerName(place.text))) {
        ref->kind = ScriptRef::Kind::kVariable;
        ref->scope = obj.InstancePtr();
        ref->name = LowerName(place.text);
        return ScriptValue::Reference(std::move(ref));
      }
      if (!GetProperty(obj, place.text, CurrentTime(), current)) UnknownProperty(place.text, obj);
      ref->kind = ScriptRef::Kind::kProperty;
      ref->container = std::move(obj);
      ref->name = place.text;
      return ScriptValue::Reference(std::move(ref));
    }
    case AstKind::kIndex: {
      ScriptValue c = Eval(*place.children[0]);
      ScriptValue index = Eval(*place.children[1]);
      if (!c.IsArray()) NoFunction("put", c);
      const int i = ToInt(index);
      if (i < 1) {
        Raise("Runtime error: array index must be positive number, got: " +
              ScriptValueString(index));
      }
      ref->kind = ScriptRef::Kind::kElement;
      ref->container = std::move(c);
      ref->index = i;
      return ScriptValue::Reference(std::move(ref));
    }
    default:
      Raise("Runtime error: & takes a variable, a property or an array element");
  }
}

ScriptValue ScriptRunner::Impl::ReadRef(const ScriptRef& ref) const {
  switch (ref.kind) {
    case ScriptRef::Kind::kVariable: {
      auto it = ref.scope->vars.find(ref.name);
      return it == ref.scope->vars.end() ? ScriptValue() : it->second;
    }
    case ScriptRef::Kind::kGlobal: {
      if (auto it = globals.find(ref.name); it != globals.end()) return it->second;
      const GlobalEntry* g = FindGlobal(ref.name);
      if (!g) return ScriptValue();
      return g->fn ? ScriptValue::Function(g->function) : g->getter(self);
    }
    case ScriptRef::Kind::kElement: {
      const auto& items = ref.container.Items();
      return static_cast<size_t>(ref.index) <= items.size()
                 ? items[static_cast<size_t>(ref.index - 1)]
                 : ScriptValue();
    }
    case ScriptRef::Kind::kProperty: {
      ScriptValue out;
      if (!GetProperty(ref.container, ref.name, CurrentTime(), out)) {
        UnknownProperty(ref.name, ref.container);
      }
      return out;
    }
  }
  return ScriptValue();
}

void ScriptRunner::Impl::WriteRef(const ScriptRef& ref, const ScriptValue& v) {
  switch (ref.kind) {
    case ScriptRef::Kind::kVariable:
      ref.scope->vars[ref.name] = v;
      return;
    case ScriptRef::Kind::kGlobal: {
      if (auto it = globals.find(ref.name); it != globals.end()) {
        it->second = v;
        return;
      }
      if (const GlobalEntry* g = FindGlobal(ref.name)) {
        if (!g->setter) Raise("Runtime error: cannot assign to the system global " + ref.name);
        g->setter(self, v);
        return;
      }
      globals[ref.name] = v;
      return;
    }
    case ScriptRef::Kind::kElement: {
      if (ref.index > kMaxArrayLength) {
        Raise("Runtime error: array index too large: " + std::to_string(ref.index));
      }
      if (v.Contains(ref.container)) Raise("Runtime error: an array cannot contain itself");
      auto& items = ref.container.Items();
      if (static_cast<size_t>(ref.index) > items.size()) {
        items.resize(static_cast<size_t>(ref.index));
      }
      items[static_cast<size_t>(ref.index - 1)] = v;
      return;
    }
    case ScriptRef::Kind::kProperty:
      if (!SetProperty(ref.container, ref.name, v, CurrentTime())) {
        UnknownProperty(ref.name, ref.container);
      }
      return;
  }
}
