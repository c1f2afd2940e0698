// Copyright Marvolith contributors.
#include "host/interpreter/runner_value.h"

#include <cstdio>
#include <unordered_set>
#include <utility>

#include "host/core/animatable.h"
#include "host/core/control.h"
#include "host/interpreter/internal/runner_impl.h"
#include "host/script/fp_interface.h"
#include "host/script/script_errors.h"
#include "host/script/script_value.h"
#include "host/script/value_printer.h"

namespace {

const std::vector<ScriptValue>& EmptyItems() {
  static const std::vector<ScriptValue> empty;
  return empty;
}

[[noreturn]] void TooDeep() { throw MAXScriptException("Runtime error: arrays nested too deeply"); }

// A Point2 component as points print theirs: %g, so 1 prints as 1 and 0.5 as 0.5.
std::string Component(float f) {
  char buf[32];
  std::snprintf(buf, sizeof(buf), "%g", static_cast<double>(f));
  return buf;
}

void Print(const ScriptValue& v, std::string& out, int depth) {
  switch (v.GetKind()) {
    case ScriptValue::Kind::kValue:
      out += ToScriptString(v.Fp());
      return;
    case ScriptValue::Kind::kArray: {
      if (depth >= kMaxArrayNesting) {
        out += "#(...)";
        return;
      }
      out += "#(";
      bool first = true;
      for (const ScriptValue& item : v.Items()) {
        if (!first) out += ", ";
        first = false;
        Print(item, out, depth + 1);
      }
      out += ")";
      return;
    }
    case ScriptValue::Kind::kSubAnim: {
      Animatable* parent = v.SubAnimParent();
      out += parent ? "SubAnim:" + script_internal::ScriptSubAnimName(parent, v.SubAnimIndex())
                    : std::string("<Deleted SubAnim>");
      return;
    }
    case ScriptValue::Kind::kInterval:
      out += "(interval " + ToScriptString(FPValue::Time(v.AsInterval().Start())) + " " +
             ToScriptString(FPValue::Time(v.AsInterval().End())) + ")";
      return;
    case ScriptValue::Kind::kFunction:
      out += v.AsFunction()->name + "()";
      return;
    case ScriptValue::Kind::kClass:
      out += v.AsClass()->name;
      return;
    case ScriptValue::Kind::kMixin: {
      FPInterface* fpi = v.AsMixin();
      out += fpi ? ToScriptString(FPValue(fpi)) : std::string("<Deleted interface>");
      return;
    }
    case ScriptValue::Kind::kStruct:
      out += "#Struct:" + v.StructName();
      return;
    case ScriptValue::Kind::kStream: {
      const ScriptStream* st = v.AsStream();
      out += st->path.empty() ? "StringStream:" + ToScriptString(FPValue(st->text))
                              : "<File:" + st->path + ">";
      return;
    }
    case ScriptValue::Kind::kStructDef: {
      const AstNode& def = *v.AsStructDef()->def;
      out += "#Struct:" + v.AsStructDef()->name + "(";
      bool first = true;
      for (const AstNamed& m : def.keys) {
        out += (first ? "" : ", ") + m.name;
        first = false;
      }
      for (size_t i = 1; i < def.children.size(); ++i) {
        out += (first ? "" : ", ") + def.children[i]->text;
        first = false;
      }
      out += ")";
      return;
    }
    case ScriptValue::Kind::kStructInstance: {
      const ScriptScope* scope = v.AsStructInstance();
      if (depth >= kMaxArrayNesting) {
        out += "(...)";
        return;
      }
      out += "(" + scope->instance_of->name;
      for (const AstNamed& m : scope->instance_of->def->keys) {
        out += " " + m.name + ":";
        auto it = scope->vars.find(script_internal::LowerName(m.name));
        Print(it == scope->vars.end() ? ScriptValue() : it->second, out, depth + 1);
      }
      out += ")";
      return;
    }
    case ScriptValue::Kind::kPoint2:
      out += "[" + Component(v.AsPoint2().x) + "," + Component(v.AsPoint2().y) + "]";
      return;
    case ScriptValue::Kind::kRef:
      out += "<reference>";
      return;
  }
}

bool Equals(const ScriptValue& a, const ScriptValue& b, int depth);

bool EqualFp(const FPValue& a, const FPValue& b) {
  using enum FPType;
  const FPType ta = a.Type();
  const FPType tb = b.Type();
  const bool num_a = ta == TYPE_INT || ta == TYPE_FLOAT;
  const bool num_b = tb == TYPE_INT || tb == TYPE_FLOAT;
  if (num_a && num_b) {
    if (ta == TYPE_INT && tb == TYPE_INT) return a.AsInt() == b.AsInt();
    return static_cast<double>(a.AsFloat()) == static_cast<double>(b.AsFloat());
  }
  // A time compares with a number of frames.
  if ((ta == TYPE_TIMEVALUE && num_b) || (num_a && tb == TYPE_TIMEVALUE)) {
    const FPValue& t = ta == TYPE_TIMEVALUE ? a : b;
    const FPValue& n = ta == TYPE_TIMEVALUE ? b : a;
    return FromScriptValue(n, TYPE_TIMEVALUE).AsTime() == t.AsTime();
  }
  const bool obj_a = ta == TYPE_INODE || ta == TYPE_REFTARG || ta == TYPE_CONTROL;
  const bool obj_b = tb == TYPE_INODE || tb == TYPE_REFTARG || tb == TYPE_CONTROL;
  if (obj_a && obj_b) return a.AsHandle() == b.AsHandle();
  if (ta != tb) return false;
  if (ta == TYPE_NAME) return ScriptNameEquals(a.AsString(), b.AsString());
  return a == b;
}

bool Equals(const ScriptValue& a, const ScriptValue& b, int depth) {
  using Kind = ScriptValue::Kind;
  if (a.GetKind() != b.GetKind()) return false;
  switch (a.GetKind()) {
    case Kind::kValue:
      return EqualFp(a.Fp(), b.Fp());
    case Kind::kArray: {
      if (a.SameArray(b)) return true;
      if (depth >= kMaxArrayNesting) TooDeep();
      const auto& x = a.Items();
      const auto& y = b.Items();
      if (x.size() != y.size()) return false;
      for (size_t i = 0; i < x.size(); ++i) {
        if (!Equals(x[i], y[i], depth + 1)) return false;
      }
      return true;
    }
    case Kind::kSubAnim:
      return a.SubAnimParent() == b.SubAnimParent() && a.SubAnimIndex() == b.SubAnimIndex();
    case Kind::kInterval:
      return a.AsInterval().Start() == b.AsInterval().Start() &&
             a.AsInterval().End() == b.AsInterval().End();
    case Kind::kFunction:
      return a.AsFunction() == b.AsFunction();
    case Kind::kClass: {
      const ScriptClass* x = a.AsClass();
      const ScriptClass* y = b.AsClass();
      if (x->desc || y->desc) return x->desc == y->desc;
      return x->super == y->super && ScriptNameEquals(x->name, y->name);
    }
    case Kind::kMixin:
      return a.MixinOwner() == b.MixinOwner() && a.MixinID() == b.MixinID();
    case Kind::kStream:
      return a.AsStream() == b.AsStream();
    case Kind::kStruct:
      return ScriptNameEquals(a.StructName(), b.StructName());
    case Kind::kStructDef:
      return a.AsStructDef() == b.AsStructDef();
    case Kind::kStructInstance:
      return a.AsStructInstance() == b.AsStructInstance();
    case Kind::kPoint2:
      return a.AsPoint2().x == b.AsPoint2().x && a.AsPoint2().y == b.AsPoint2().y;
    case Kind::kRef:
      return a.AsRef() == b.AsRef();
  }
  return false;
}

FPValue ToFP(const ScriptValue& v, int depth) {
  switch (v.GetKind()) {
    case ScriptValue::Kind::kValue:
      return v.Fp();
    case ScriptValue::Kind::kArray: {
      if (depth >= kMaxArrayNesting) TooDeep();
      std::vector<FPValue> items;
      items.reserve(v.Items().size());
      for (const ScriptValue& item : v.Items()) items.push_back(ToFP(item, depth + 1));
      return FPValue::Table(FPType::TYPE_VALUE_TAB, std::move(items));
    }
    case ScriptValue::Kind::kSubAnim:
      // Published functions see the track itself; those that want an object get the one at
      // the track when their argument converts (FromScriptValue).
      return FPValue::SubAnimOfHandle(v.SubAnimHandle(), v.SubAnimIndex());
    case ScriptValue::Kind::kMixin: {
      FPInterface* fpi = v.AsMixin();
      return fpi ? FPValue(fpi) : FPValue();
    }
    default:
      return FPValue();
  }
}

}  // namespace

// Arrays and struct instances are freed from a work list instead of by recursion, so that
// however deep a script nested them (a list of instances each holding the next, say), freeing
// them cannot exhaust the stack.
struct ScriptValue::Pending {
  std::vector<std::shared_ptr<std::vector<ScriptValue>>> arrays;
  std::vector<std::shared_ptr<ScriptScope>> scopes;
};

void ScriptValue::TakeShared(ScriptValue& v, Pending& pending) {
  if (v.array_) pending.arrays.push_back(std::move(v.array_));
  if (v.scope_) pending.scopes.push_back(std::move(v.scope_));
}

void ScriptValue::FreePending(Pending& pending) {
  while (!pending.arrays.empty() || !pending.scopes.empty()) {
    if (!pending.arrays.empty()) {
      std::shared_ptr<std::vector<ScriptValue>> next = std::move(pending.arrays.back());
      pending.arrays.pop_back();
      if (next.use_count() == 1) {
        for (ScriptValue& item : *next) TakeShared(item, pending);
      }
      continue;
    }
    std::shared_ptr<ScriptScope> next = std::move(pending.scopes.back());
    pending.scopes.pop_back();
    if (next.use_count() == 1) {
      for (auto& [name, member] : next->vars) TakeShared(member, pending);
    }
  }
}

void ScriptValue::ArrayDeleter::operator()(std::vector<ScriptValue>* items) const {
  Pending pending;
  for (ScriptValue& item : *items) TakeShared(item, pending);
  delete items;
  FreePending(pending);
}

void ScriptValue::InstanceDeleter::operator()(ScriptScope* scope) const {
  Pending pending;
  for (auto& [name, member] : scope->vars) TakeShared(member, pending);
  delete scope;
  FreePending(pending);
}

std::shared_ptr<ScriptScope> ScriptValue::NewInstanceScope() {
  return std::shared_ptr<ScriptScope>(new ScriptScope(), InstanceDeleter());
}

ScriptValue::ScriptValue(const FPValue& v) {
  if (v.IsTab()) {
    std::vector<ScriptValue> items;
    items.reserve(static_cast<size_t>(v.Count()));
    for (int i = 0; i < v.Count(); ++i) items.emplace_back(v.Item(i));
    *this = Array(std::move(items));
  } else if (v.IsSubAnim()) {
    kind_ = Kind::kSubAnim;
    handle_ = v.AsSubAnimHandle();
    index_ = v.AsSubAnimIndex();
  } else {
    value_ = ToScriptValue(v);
  }
}

ScriptValue ScriptValue::Array(std::vector<ScriptValue> items) {
  ScriptValue v;
  v.kind_ = Kind::kArray;
  v.array_ = std::shared_ptr<std::vector<ScriptValue>>(
      new std::vector<ScriptValue>(std::move(items)), ArrayDeleter());
  return v;
}

ScriptValue ScriptValue::SubAnim(Animatable* parent, int index) {
  ScriptValue v;
  v.kind_ = Kind::kSubAnim;
  v.handle_ = Animatable::GetHandleByAnim(parent);
  v.index_ = index;
  return v;
}

ScriptValue ScriptValue::OfInterval(TimeValue start, TimeValue end) {
  ScriptValue v;
  v.kind_ = Kind::kInterval;
  v.start_ = start;
  v.end_ = end;
  return v;
}

ScriptValue ScriptValue::Function(std::shared_ptr<const ScriptFunction> fn) {
  ScriptValue v;
  v.kind_ = Kind::kFunction;
  v.function_ = std::move(fn);
  return v;
}

ScriptValue ScriptValue::Class(ScriptClass cls) {
  ScriptValue v;
  v.kind_ = Kind::kClass;
  v.class_ = std::make_shared<const ScriptClass>(std::move(cls));
  return v;
}

ScriptValue ScriptValue::Mixin(Animatable* owner, Interface_ID id) {
  ScriptValue v;
  v.kind_ = Kind::kMixin;
  v.handle_ = Animatable::GetHandleByAnim(owner);
  v.mixin_id_ = id;
  return v;
}

ScriptValue ScriptValue::Stream(std::shared_ptr<ScriptStream> stream) {
  ScriptValue v;
  v.kind_ = Kind::kStream;
  v.stream_ = std::move(stream);
  return v;
}

ScriptValue ScriptValue::StructDef(std::shared_ptr<const ScriptStructDef> def) {
  ScriptValue v;
  v.kind_ = Kind::kStructDef;
  v.struct_def_ = std::move(def);
  return v;
}

ScriptValue ScriptValue::StructInstance(std::shared_ptr<ScriptScope> scope) {
  ScriptValue v;
  v.kind_ = Kind::kStructInstance;
  v.scope_ = std::move(scope);
  return v;
}

ScriptValue ScriptValue::OfPoint2(Point2 p) {
  ScriptValue v;
  v.kind_ = Kind::kPoint2;
  v.point2_ = p;
  return v;
}

ScriptValue ScriptValue::Reference(std::shared_ptr<const ScriptRef> ref) {
  ScriptValue v;
  v.kind_ = Kind::kRef;
  v.ref_ = std::move(ref);
  return v;
}

ScriptValue ScriptValue::Struct(std::string name) {
  ScriptValue v;
  v.kind_ = Kind::kStruct;
  v.name_ = std::move(name);
  return v;
}

const FPValue& ScriptValue::Fp() const {
  static const FPValue undefined;
  return kind_ == Kind::kValue ? value_ : undefined;
}

int ScriptValue::Count() const { return array_ ? static_cast<int>(array_->size()) : 0; }

std::vector<ScriptValue>& ScriptValue::Items() const {
  return array_ ? *array_ : const_cast<std::vector<ScriptValue>&>(EmptyItems());
}

bool ScriptValue::SameArray(const ScriptValue& other) const {
  return array_ && array_ == other.array_;
}

bool ScriptValue::Contains(const ScriptValue& array) const {
  if (!array.array_ || !array_) return false;
  std::vector<const std::vector<ScriptValue>*> stack{array_.get()};
  std::unordered_set<const std::vector<ScriptValue>*> seen;
  while (!stack.empty()) {
    const std::vector<ScriptValue>* items = stack.back();
    stack.pop_back();
    if (items == array.array_.get()) return true;
    if (!seen.insert(items).second) continue;
    for (const ScriptValue& item : *items) {
      if (item.array_) stack.push_back(item.array_.get());
    }
  }
  return false;
}

Animatable* ScriptValue::SubAnimParent() const {
  return kind_ == Kind::kSubAnim ? Animatable::GetAnimByHandle(handle_) : nullptr;
}

Animatable* ScriptValue::MixinOwner() const {
  return kind_ == Kind::kMixin ? Animatable::GetAnimByHandle(handle_) : nullptr;
}

FPInterface* ScriptValue::AsMixin() const {
  Animatable* owner = MixinOwner();
  return owner ? GetFPInterface(owner, mixin_id_) : nullptr;
}

FPValue ScriptValue::ToFPValue() const { return ToFP(*this, 0); }

std::string ScriptValueString(const ScriptValue& v) {
  std::string out;
  Print(v, out, 0);
  return out;
}

std::string ScriptValueText(const ScriptValue& v) {
  if (v.Is(FPType::TYPE_STRING) || v.Is(FPType::TYPE_NAME)) return v.AsString();
  // A string stream as string is what was written to it.
  if (const ScriptStream* st = v.AsStream(); st && st->path.empty()) return st->text;
  return ScriptValueString(v);
}

bool ScriptEquals(const ScriptValue& a, const ScriptValue& b) { return Equals(a, b, 0); }
