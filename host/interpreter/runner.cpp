// Copyright Marvolith contributors.
#include "host/interpreter/runner.h"

#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <new>
#include <unordered_set>
#include <utility>
#include <vector>

#include "host/core/reference.h"
#include "host/interpreter/internal/runner_impl.h"
#include "host/interpreter/runner_parser.h"
#include "host/interpreter/scripted_attrib.h"
#include "host/registry/class_desc.h"
#include "host/scene/core_interface.h"
#include "host/script/fp_interface.h"
#include "host/script/script_entry.h"
#include "host/script/script_primitives.h"

using namespace script_internal;

namespace {

struct Registry {
  std::map<std::string, GlobalEntry> entries;  // lower-case names
};

Registry& Globals() {
  static auto* registry = new Registry();  // never destroyed: runners may outlive statics
  return *registry;
}

bool AddGlobal(std::string_view name, GlobalEntry entry) {
  if (name.empty()) return false;
  return Globals().entries.emplace(LowerName(name), std::move(entry)).second;
}

void WriteStdout(std::string_view text) {
  std::fwrite(text.data(), 1, text.size(), stdout);
  std::fflush(stdout);
}

// True when a global variable holds the object with handle h (directly, in an array, or as the
// owner of a track or interface).
bool HeldBy(const ScriptValue& root, AnimHandle h) {
  std::vector<const ScriptValue*> stack{&root};
  std::unordered_set<const void*> seen;
  while (!stack.empty()) {
    const ScriptValue* v = stack.back();
    stack.pop_back();
    switch (v->GetKind()) {
      case ScriptValue::Kind::kValue:
        if (v->Fp().AsHandle() == h) return true;
        break;
      case ScriptValue::Kind::kArray:
        if (seen.insert(&v->Items()).second) {
          for (const ScriptValue& item : v->Items()) stack.push_back(&item);
        }
        break;
      case ScriptValue::Kind::kSubAnim:
        if (Animatable::GetHandleByAnim(v->SubAnimParent()) == h) return true;
        break;
      case ScriptValue::Kind::kMixin:
        if (Animatable::GetHandleByAnim(v->MixinOwner()) == h) return true;
        break;
      case ScriptValue::Kind::kStructInstance:
        if (seen.insert(v->AsStructInstance()).second) {
          for (const auto& [name, member] : v->AsStructInstance()->vars) stack.push_back(&member);
        }
        break;
      default:
        break;
    }
  }
  return false;
}

// A plug-in's primitive as a native function: arguments go over in published form.
ScriptValue PrimitiveFunction(ScriptPrimitiveFn primitive) {
  auto function = std::make_shared<ScriptFunction>();
  function->native = [primitive](ScriptCall& call) {
    std::vector<FPValue> args;
    args.reserve(call.Args().size());
    for (const ScriptValue& a : call.Args()) args.push_back(a.ToFPValue());
    std::vector<PrimitiveKeyArg> keys;
    for (const ScriptKeyArg& k : call.Keys()) keys.push_back({k.name, k.value.ToFPValue()});
    return ScriptValue(primitive(PrimitiveCall{call.Function(), args, keys, call.Time()}));
  };
  return ScriptValue::Function(std::move(function));
}

}  // namespace

namespace script_internal {

std::string LowerName(std::string_view name) {
  std::string out(name);
  for (char& c : out) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return out;
}

const GlobalEntry* FindGlobal(const std::string& lower_name) {
  RegisterBuiltinGlobals();
  auto& entries = Globals().entries;
  auto it = entries.find(lower_name);
  return it == entries.end() ? nullptr : &it->second;
}

bool IsGlobalStruct(const std::string& lower_name) {
  RegisterBuiltinGlobals();
  auto& entries = Globals().entries;
  const std::string prefix = lower_name + ".";
  auto it = entries.lower_bound(prefix);
  return it != entries.end() && it->first.compare(0, prefix.size(), prefix) == 0;
}

}  // namespace script_internal

bool RegisterScriptGlobal(std::string_view name, ScriptNativeFn fn) {
  RegisterBuiltinGlobals();
  if (!fn) return false;
  GlobalEntry entry;
  auto function = std::make_shared<ScriptFunction>();
  function->name = std::string(name);
  function->native = fn;
  entry.fn = std::move(fn);
  entry.function = std::move(function);
  return AddGlobal(name, std::move(entry));
}

bool RegisterScriptGlobalVariable(std::string_view name,
                                  std::function<ScriptValue(ScriptRunner&)> getter,
                                  std::function<void(ScriptRunner&, const ScriptValue&)> setter) {
  RegisterBuiltinGlobals();
  if (!getter) return false;
  GlobalEntry entry;
  entry.getter = std::move(getter);
  entry.setter = std::move(setter);
  return AddGlobal(name, std::move(entry));
}

bool UnRegisterScriptGlobal(std::string_view name) {
  return Globals().entries.erase(LowerName(name)) > 0;
}

// ---------------------------------------------------------------------------------------------
// ScriptCall

const ScriptValue* ScriptCall::Key(std::string_view name) const {
  for (const ScriptKeyArg& k : keys_) {
    if (ScriptNameEquals(k.name, name)) return &k.value;
  }
  return nullptr;
}

void ScriptCall::ExpectArgs(int min_count, int max_count) const {
  const int n = ArgCount();
  if (n < min_count || n > max_count) {
    throw ArgCountError(std::string(function_), n < min_count ? min_count : max_count, n);
  }
}

TimeValue ScriptCall::Time() const { return runner_.CurrentTime(); }

// ---------------------------------------------------------------------------------------------
// ScriptRunner

ScriptRunner::ScriptRunner(ScriptRunnerOptions options)
    : impl_(std::make_unique<Impl>(*this, options)) {
  RegisterScriptedAttribClass();
  RegisterBuiltinGlobals();
}

ScriptRunner::~ScriptRunner() = default;

ScriptResult ScriptRunner::Run(std::string_view text) { return impl_->Run(text); }

void ScriptRunner::SetOutput(std::function<void(std::string_view)> out) {
  impl_->output = out ? std::move(out) : WriteStdout;
}

void ScriptRunner::Print(std::string_view text) { impl_->output(text); }

void ScriptRunner::SetMessageBoxHandler(
    std::function<void(std::string_view, std::string_view)> fn) {
  impl_->message_box = std::move(fn);
}

void ScriptRunner::MessageBox(std::string_view text, std::string_view title) {
  if (impl_->message_box) {
    impl_->message_box(text, title);
  } else {
    Print(std::string(title) + ": " + std::string(text) + "\n");
  }
}

ScriptValue ScriptRunner::GetGlobal(std::string_view name) const {
  auto it = impl_->globals.find(LowerName(name));
  return it == impl_->globals.end() ? ScriptValue() : it->second;
}

void ScriptRunner::SetGlobal(std::string_view name, ScriptValue value) {
  impl_->globals[LowerName(name)] = std::move(value);
}

TimeValue ScriptRunner::CurrentTime() const { return impl_->CurrentTime(); }

ScriptRunner& TheScriptRunner() {
  static auto* runner = new ScriptRunner();  // never destroyed, see the header
  return *runner;
}

namespace {

bool RunOnTheScriptRunner(const char* s, bool quietErrors, FPValue* fpv) {
  ScriptResult r = TheScriptRunner().Run(s ? s : "");
  if (fpv) *fpv = r.ok ? r.value.ToFPValue() : FPValue();
  if (!r.ok && !quietErrors) std::fprintf(stderr, "%s\n", r.ErrorText().c_str());
  return r.ok;
}

// A process that loads the interpreter has it behind the script entry from the start.
const bool kInstalled = (SetScriptEngine(&RunOnTheScriptRunner), true);

}  // namespace

// ---------------------------------------------------------------------------------------------
// ScriptRunner::Impl: runs, variables, garbage.

ScriptRunner::Impl::Impl(ScriptRunner& runner, ScriptRunnerOptions opts)
    : self(runner), options(opts), output(WriteStdout) {}

ScriptRunner::Impl::~Impl() {
  globals.clear();
  ReleaseClosures(nullptr, true);
  CollectGarbage();
}

void ScriptRunner::Impl::ReleaseClosures(const ScriptValue* keep, bool all) {
  std::unordered_set<const ScriptScope*> reached;
  if (!all) {
    std::vector<const ScriptValue*> stack;
    std::unordered_set<const void*> seen_arrays;
    for (const auto& [name, v] : globals) stack.push_back(&v);
    if (keep) stack.push_back(keep);
    while (!stack.empty()) {
      const ScriptValue* v = stack.back();
      stack.pop_back();
      if (v->IsArray()) {
        if (seen_arrays.insert(&v->Items()).second) {
          for (const ScriptValue& item : v->Items()) stack.push_back(&item);
        }
        continue;
      }
      // The scopes a value keeps alive: a function's or a struct definition's closure, an
      // instance's members (and, through its parent, its definition's closure), a reference's.
      const ScriptScope* scope = nullptr;
      if (const ScriptFunction* fn = v->AsFunction()) scope = fn->closure.get();
      if (const ScriptStructDef* def = v->AsStructDef()) scope = def->closure.get();
      if (const ScriptScope* instance = v->AsStructInstance()) scope = instance;
      if (const ScriptRef* ref = v->AsRef()) {
        scope = ref->scope.get();
        stack.push_back(&ref->container);
      }
      for (const ScriptScope* s = scope; s && reached.insert(s).second; s = s->parent.get()) {
        for (const auto& [name, var] : s->vars) stack.push_back(&var);
      }
    }
  }
  std::vector<std::weak_ptr<ScriptScope>> live;
  for (const std::weak_ptr<ScriptScope>& w : captured_) {
    std::shared_ptr<ScriptScope> s = w.lock();
    if (!s) continue;
    if (reached.count(s.get())) {
      live.push_back(w);
      continue;
    }
    // Moved out first: freeing the values may free other captured scopes.
    auto vars = std::move(s->vars);
    s->vars.clear();
    s->parent.reset();
  }
  captured_ = std::move(live);
}

ScriptResult ScriptRunner::Impl::Run(std::string_view text) {
  ScriptResult result;
  auto fail = [&result](std::string message, ScriptPos pos) {
    result.ok = false;
    result.value = ScriptValue();
    result.error = {std::move(message), pos};
  };
  ScriptError syntax;
  std::shared_ptr<const ScriptProgram> program = ParseScript(text, syntax);
  if (!program) {
    result.ok = false;
    result.error = syntax;
    return result;
  }
  const bool outermost = runs_ == 0;
  if (outermost) {
    steps_ = 0;
    depth_ = 0;
    stack_base_ = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
  }
  ++runs_;
  std::shared_ptr<ScriptScope> saved_env = std::move(env_);
  std::shared_ptr<const ScriptProgram> saved_program = std::exchange(program_, program);
  const size_t saved_times = times_.size();
  const size_t saved_exceptions = exceptions_.size();
  env_ = std::make_shared<ScriptScope>();
  env_->top = true;
  try {
    ScriptValue value;
    for (const auto& expr : program->body) value = Eval(*expr);
    result.value = std::move(value);
  } catch (const LocatedError& e) {
    fail(e.what(), e.pos);
  } catch (const AbortSignal& a) {
    fail(a.message, a.pos);
  } catch (const ExitSignal& s) {
    fail("Runtime error: exit outside of a loop", s.pos);
  } catch (const ContinueSignal& s) {
    fail("Runtime error: continue outside of a loop", s.pos);
  } catch (const ReturnSignal& s) {
    fail("Runtime error: return outside of a function", s.pos);
  } catch (const std::bad_alloc&) {
    fail("Runtime error: out of memory", ScriptPos{});
  } catch (const std::exception& e) {
    fail(e.what(), ScriptPos{});
  } catch (...) {
    fail("Runtime error: unknown error", ScriptPos{});
  }
  env_ = std::move(saved_env);
  program_ = std::move(saved_program);
  times_.resize(saved_times);
  exceptions_.resize(saved_exceptions);
  --runs_;
  // The run's value may hold what it made (a script that answers a new controller, say).
  if (outermost) {
    ReleaseClosures(&result.value, false);
    CollectGarbage(&result.value);
  }
  return result;
}

ScriptValue ScriptRunner::Impl::EvalProgram(const std::shared_ptr<const ScriptProgram>& program) {
  struct Restore {
    Impl& impl;
    std::shared_ptr<ScriptScope> env;
    std::shared_ptr<const ScriptProgram> program;
    ~Restore() {
      impl.env_ = std::move(env);
      impl.program_ = std::move(program);
    }
  } restore{*this, std::move(env_), std::exchange(program_, program)};
  env_ = std::make_shared<ScriptScope>();
  env_->top = true;
  ScriptValue value;
  for (const auto& expr : program->body) value = Eval(*expr);
  return value;
}

TimeValue ScriptRunner::Impl::CurrentTime() const {
  return times_.empty() ? GetCOREInterface()->GetTime() : times_.back();
}

ScriptValue ScriptRunner::Impl::CurrentException() const {
  return exceptions_.empty() ? ScriptValue() : ScriptValue(FPValue("-- " + exceptions_.back()));
}

void ScriptRunner::Impl::NoteCreated(Animatable* anim) {
  if (anim) created_.push_back(Animatable::GetHandleByAnim(anim));
}

void ScriptRunner::Impl::CollectGarbage(const ScriptValue* keep) {
  std::vector<AnimHandle> kept;
  for (AnimHandle h : created_) {
    auto* target = dynamic_cast<ReferenceTarget*>(Animatable::GetAnimByHandle(h));
    if (!target || target->HasDependents()) continue;  // gone, or the scene holds it now
    bool held = keep && HeldBy(*keep, h);
    for (const auto& [name, value] : globals) {
      if (HeldBy(value, h)) {
        held = true;
        break;
      }
    }
    if (held) {
      kept.push_back(h);
    } else {
      target->MaybeAutoDelete();
    }
  }
  created_ = std::move(kept);
}

ScriptValue ScriptRunner::Impl::Lookup(const std::string& lower) const {
  for (ScriptScope* s = env_.get(); s; s = s->parent.get()) {
    if (s->global_names.count(lower)) break;
    if (auto it = s->vars.find(lower); it != s->vars.end()) {
      // A by-reference parameter reads the caller's place.
      return it->second.AsRef() ? ReadRef(*it->second.AsRef()) : it->second;
    }
    // Inside a member function the struct's other functions are names too.
    if (s->instance_of) {
      if (const AstNode* fn = s->instance_of->FindFunction(lower)) {
        return BindStructFunction(s->shared_from_this(), *fn);
      }
    }
  }
  if (auto it = globals.find(lower); it != globals.end()) return it->second;
  if (const GlobalEntry* g = FindGlobal(lower)) {
    return g->fn ? ScriptValue::Function(g->function) : g->getter(self);
  }
  if (ScriptPrimitiveFn primitive = FindScriptPrimitive(lower)) return PrimitiveFunction(primitive);
  if (IsGlobalStruct(lower)) return ScriptValue::Struct(lower);
  ScriptValue builtin = BuiltinClass(lower);
  if (!builtin.IsUndefined()) return builtin;
  if (ClassDesc2* cd = ClassDirectory::Get().FindClassByInternalName(lower)) {
    return ScriptValue::Class(ScriptClass{cd, cd->InternalName(), false});
  }
  if (FPInterface* fpi = GetCOREInterface(lower.c_str())) return FPValue(fpi);
  return ScriptValue();
}

void ScriptRunner::Impl::SetVariable(const std::string& lower, const ScriptValue& v) {
  for (ScriptScope* s = env_.get(); s; s = s->parent.get()) {
    if (s->global_names.count(lower)) {
      globals[lower] = v;
      return;
    }
    if (auto it = s->vars.find(lower); it != s->vars.end()) {
      if (const ScriptRef* ref = it->second.AsRef()) {
        WriteRef(*ref, v);
      } else {
        it->second = v;
      }
      return;
    }
  }
  if (auto it = globals.find(lower); it != globals.end()) {
    it->second = v;
    return;
  }
  if (const GlobalEntry* g = FindGlobal(lower)) {
    if (g->setter) {
      g->setter(self, v);
      return;
    }
    if (!env_ || env_->top) {
      Raise("Runtime error: cannot assign to the system global " + lower);
    }
  }
  Define(lower, v);
}

void ScriptRunner::Impl::Define(const std::string& lower, const ScriptValue& v) {
  if (!env_ || env_->top) {
    globals[lower] = v;
  } else {
    env_->vars[lower] = v;
  }
}
