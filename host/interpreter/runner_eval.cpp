// Copyright Marvolith contributors.
// The evaluator: walks the syntax tree of a script.
#include <sys/resource.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <new>
#include <utility>

#include "host/core/control.h"
#include "host/interpreter/internal/runner_impl.h"
#include "host/registry/class_desc.h"
#include "host/scene/core_interface.h"
#include "host/scene/inode.h"
#include "host/script/fp_dispatch.h"
#include "host/script/script_value.h"
#include "host/undo/hold.h"

using namespace script_internal;

namespace {

// Arrays may grow by index assignment up to this many elements; a script that asks for more has
// a bug, and the host would run out of memory before answering.
constexpr int kMaxArrayLength = 10'000'000;

bool IsTrackSuffix(std::string_view name) {
  return ScriptNameEquals(name, "controller") || ScriptNameEquals(name, "track") ||
         ScriptNameEquals(name, "isAnimated");
}

bool IsAssignable(const AstNode& n) {
  return n.kind == AstKind::kIdentifier || n.kind == AstKind::kProperty ||
         n.kind == AstKind::kIndex;
}

std::vector<FPValue> ToFPArgs(std::span<const ScriptValue> args) {
  std::vector<FPValue> out;
  out.reserve(args.size());
  for (const ScriptValue& a : args) out.push_back(a.ToFPValue());
  return out;
}

std::vector<FPKeyArg> ToFPKeys(std::span<const ScriptKeyArg> keys) {
  std::vector<FPKeyArg> out;
  out.reserve(keys.size());
  for (const ScriptKeyArg& k : keys) out.push_back({k.name, k.value.ToFPValue()});
  return out;
}

ScriptValue CallInterface(FPInterface* fpi,
                          const ScriptValue& obj,
                          std::string_view name,
                          std::span<const ScriptValue> args,
                          std::span<const ScriptKeyArg> keys) {
  const std::vector<FPValue> fp_args = ToFPArgs(args);
  const std::vector<FPKeyArg> fp_keys = ToFPKeys(keys);
  FPResult r = CallFunction(fpi, name, fp_args, fp_keys);
  if (r.status == FPS_NO_SUCH_FUNCTION) UnknownProperty(name, obj);
  if (r.status != FPS_OK) Raise("Runtime error: " + std::string(name) + " failed");
  return ScriptValue(r.value);
}

// The 1-based index of an array element or component; raises for anything but a number.
int ScriptIndex(const ScriptValue& index) {
  const int i = ToInt(index);
  if (i < 1)
    Raise("Runtime error: array index must be positive number, got: " + ScriptValueString(index));
  return i;
}

}  // namespace

namespace {

template <typename T>
class PopGuard {
 public:
  explicit PopGuard(std::vector<T>& v) : v_(v) {}
  ~PopGuard() { v_.pop_back(); }
  PopGuard(const PopGuard&) = delete;
  PopGuard& operator=(const PopGuard&) = delete;

 private:
  std::vector<T>& v_;
};

}  // namespace

std::size_t ScriptRunner::Impl::StackBudget() {
  // Half of the thread's stack (at most 64 MB), so that a runaway script stops with an error
  // long before the host's stack runs out, whatever the size of each frame (sanitizers make
  // them large).
  static const std::size_t budget = [] {
    rlimit limit{};
    constexpr std::size_t kCap = std::size_t{64} << 20;
    if (getrlimit(RLIMIT_STACK, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return kCap;
    return std::clamp<std::size_t>(static_cast<std::size_t>(limit.rlim_cur) / 2,
                                   std::size_t{256} << 10, kCap);
  }();
  return budget;
}

ScriptValue ScriptRunner::Impl::Eval(const AstNode& n) {
  if (++steps_ > options.max_steps) {
    throw AbortSignal{"Runtime error: the script ran longer than its limit of " +
                          std::to_string(options.max_steps) + " steps",
                      n.pos};
  }
  struct Depth {
    int& depth;
    ~Depth() { --depth; }
  } depth{++depth_};
  if (depth_ > options.max_depth) {
    throw AbortSignal{"Runtime error: the script nested too deeply (limit of " +
                          std::to_string(options.max_depth) + " levels)",
                      n.pos};
  }
  const auto frame = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
  if (stack_base_ > frame && stack_base_ - frame > StackBudget()) {
    throw AbortSignal{"Runtime error: the script nested too deeply (limit of the stack)", n.pos};
  }
  try {
    return EvalNode(n);
  } catch (const LocatedError&) {
    throw;
  } catch (const std::bad_alloc&) {
    throw LocatedError("Runtime error: out of memory", n.pos);
  } catch (const std::exception& e) {
    // The first expression an error passes through is the one that raised it.
    throw LocatedError(e.what(), n.pos);
  }
}

// Only dispatches, so that its frame, which every level of nesting repeats, stays small.
ScriptValue ScriptRunner::Impl::EvalNode(const AstNode& n) {
  switch (n.kind) {
    case AstKind::kLiteral:
      return EvalLiteral(n);
    case AstKind::kIdentifier:
      return Lookup(LowerName(n.text));
    case AstKind::kPathName:
      return EvalPath(n);
    case AstKind::kArray:
      return EvalArray(n);
    case AstKind::kPoint:
      return EvalPoint(n);
    case AstKind::kBlock:
      return EvalBlock(n);
    case AstKind::kProperty:
      return EvalProperty(n);
    case AstKind::kIndex:
      return EvalIndex(n);
    case AstKind::kCall:
      return EvalCall(n);
    case AstKind::kUnary:
    case AstKind::kBinary:
    case AstKind::kAnd:
    case AstKind::kOr:
    case AstKind::kNot:
    case AstKind::kAs:
      return EvalOperator(n);
    case AstKind::kAssign:
      return EvalAssign(n);
    case AstKind::kDeclare:
      return EvalDeclare(n);
    case AstKind::kIf:
      return EvalIf(n);
    case AstKind::kWhile:
    case AstKind::kDoWhile:
      return EvalWhile(n);
    case AstKind::kFor:
      return EvalFor(n);
    case AstKind::kTry:
      return EvalTry(n);
    case AstKind::kContext:
      return EvalContext(n);
    case AstKind::kFunction:
      return EvalFunction(n);
    case AstKind::kReturn:
    case AstKind::kExit:
    case AstKind::kContinue:
    case AstKind::kThrow:
      return EvalJump(n);
    case AstKind::kCase:
      return EvalCase(n);
    case AstKind::kAttributes:
      return EvalAttributes(n);
    case AstKind::kStruct:
      return EvalStruct(n);
    case AstKind::kRef:
      return EvalRef(*n.children[0]);
    case AstKind::kParameters:
    case AstKind::kParamDef:
      break;
  }
  Raise("Runtime error: unknown expression");
}

ScriptValue ScriptRunner::Impl::EvalArray(const AstNode& n) {
  std::vector<ScriptValue> items;
  items.reserve(n.children.size());
  for (const auto& c : n.children) items.push_back(Eval(*c));
  return ScriptValue::Array(std::move(items));
}

ScriptValue ScriptRunner::Impl::EvalOperator(const AstNode& n) {
  switch (n.kind) {
    case AstKind::kUnary:
      return Negate(Eval(*n.children[0]));
    case AstKind::kAnd:
      if (!ToBool(Eval(*n.children[0]), "and")) return FPValue(false);
      return FPValue(ToBool(Eval(*n.children[1]), "and"));
    case AstKind::kOr:
      if (ToBool(Eval(*n.children[0]), "or")) return FPValue(true);
      return FPValue(ToBool(Eval(*n.children[1]), "or"));
    case AstKind::kNot:
      return FPValue(!ToBool(Eval(*n.children[0]), "not"));
    default:
      break;
  }
  ScriptValue a = Eval(*n.children[0]);
  ScriptValue b = Eval(*n.children[1]);
  if (n.kind == AstKind::kAs) return ConvertAs(a, b);
  const auto op = static_cast<TokenKind>(n.op);
  switch (op) {
    case TokenKind::kEq:
    case TokenKind::kNe:
    case TokenKind::kLt:
    case TokenKind::kLe:
    case TokenKind::kGt:
    case TokenKind::kGe:
      return FPValue(Compare(op, a, b));
    default:
      return Arithmetic(op, a, b);
  }
}

ScriptValue ScriptRunner::Impl::EvalJump(const AstNode& n) {
  switch (n.kind) {
    case AstKind::kReturn:
      throw ReturnSignal{n.Child(0) ? Eval(*n.Child(0)) : ScriptValue(), n.pos};
    case AstKind::kExit:
      throw ExitSignal{n.Child(0) ? Eval(*n.Child(0)) : ScriptValue(), n.pos};
    case AstKind::kContinue:
      throw ContinueSignal{n.pos};
    default: {
      ScriptValue v = Eval(*n.children[0]);
      // throw () inside a catch raises the error being handled again.
      if (v.IsUndefined() && !exceptions_.empty()) Raise(exceptions_.back());
      Raise("Runtime error: " + ScriptValueText(v));
    }
  }
}

ScriptValue ScriptRunner::Impl::EvalLiteral(const AstNode& n) {
  if (n.op == kTimeFrames) return FPValue::Time(ToTime(ScriptValue(n.value)));
  if (n.op == kTimeTicks) return FPValue::Time(n.value.AsInt());
  return n.value;
}

ScriptValue ScriptRunner::Impl::EvalPath(const AstNode& n) {
  if (!n.text.empty()) {
    INode* node = FindNodeByName(n.text);
    return node ? ScriptValue(FPValue(node)) : ScriptValue();
  }
  // $ alone: the selected node, or an array of them when there are several or none.
  Interface* ip = GetCOREInterface();
  if (ip->GetSelNodeCount() == 1) return FPValue(ip->GetSelNode(0));
  std::vector<ScriptValue> items;
  for (int i = 0; i < ip->GetSelNodeCount(); ++i) items.emplace_back(FPValue(ip->GetSelNode(i)));
  return ScriptValue::Array(std::move(items));
}

ScriptValue ScriptRunner::Impl::EvalPoint(const AstNode& n) {
  float c[4] = {0.0f, 0.0f, 0.0f, 0.0f};
  for (size_t i = 0; i < n.children.size() && i < 4; ++i) c[i] = ToFloat(Eval(*n.children[i]));
  if (n.children.size() == 2) return ScriptValue::OfPoint2(Point2(c[0], c[1]));
  if (n.children.size() == 4) return FPValue(Point4(c[0], c[1], c[2], c[3]));
  return FPValue(Point3(c[0], c[1], c[2]));
}

ScriptValue ScriptRunner::Impl::EvalBlock(const AstNode& n) {
  ScopeSwap scope(*this, ChildScope(env_));
  ScriptValue value;
  for (const auto& c : n.children) value = Eval(*c);
  return value;
}

ScriptValue ScriptRunner::Impl::PropertyOf(const ScriptValue& obj, std::string_view name) {
  ScriptValue out;
  if (!GetProperty(obj, name, CurrentTime(), out)) UnknownProperty(name, obj);
  return out;
}

ScriptValue ScriptRunner::Impl::TrackOrValue(const AstNode& property) {
  ScriptValue inner = Eval(*property.children[0]);
  ScriptValue track = FindSubAnim(inner, property.text);
  return track.IsUndefined() ? PropertyOf(inner, property.text) : track;
}

ScriptValue ScriptRunner::Impl::EvalProperty(const AstNode& n) {
  const AstNode& target = *n.children[0];
  // $a.pos.controller: the suffix applies to the track pos, not to the value of $a.pos.
  if (IsTrackSuffix(n.text) && target.kind == AstKind::kProperty) {
    // A node's position, rotation and scale controllers come from its transform controller,
    // which may hand out a proxy that is no sub-anim of it (the gimbal proxy).
    if (ScriptNameEquals(n.text, "controller")) {
      ScriptValue inner = Eval(*target.children[0]);
      ScriptValue part;
      if (NodePartController(inner, target.text, part)) return part;
      ScriptValue track = FindSubAnim(inner, target.text);
      return PropertyOf(track.IsUndefined() ? PropertyOf(inner, target.text) : track, n.text);
    }
    return PropertyOf(TrackOrValue(target), n.text);
  }
  return PropertyOf(Eval(target), n.text);
}

ScriptValue ScriptRunner::Impl::EvalIndex(const AstNode& n) {
  ScriptValue c = Eval(*n.children[0]);
  ScriptValue index = Eval(*n.children[1]);
  if (c.IsArray()) {
    const int i = ScriptIndex(index);
    return i <= c.Count() ? c.Items()[static_cast<size_t>(i - 1)] : ScriptValue();
  }
  const FPValue& v = c.Fp();
  auto check = [&index](int i, int count) {
    if (i < 1 || i > count) Raise("Runtime error: index out of range: " + ScriptValueString(index));
    return i - 1;
  };
  if (c.Is(FPType::TYPE_STRING)) {
    const std::string& s = v.AsString();
    const int i = check(ToInt(index), static_cast<int>(s.size()));
    return FPValue(s.substr(static_cast<size_t>(i), 1));
  }
  if (c.IsPoint2()) {
    const Point2 p = c.AsPoint2();
    return FPValue(check(ToInt(index), 2) == 0 ? p.x : p.y);
  }
  if (c.Is(FPType::TYPE_POINT3)) return FPValue(v.AsPoint3()[check(ToInt(index), 3)]);
  if (c.Is(FPType::TYPE_POINT4)) return FPValue(v.AsPoint4()[check(ToInt(index), 4)]);
  if (c.Is(FPType::TYPE_MATRIX3)) return FPValue(v.AsMatrix3().GetRow(check(ToInt(index), 4)));
  if (c.Is(FPType::TYPE_BITARRAY)) {
    // Elements past the end read as clear, as the array would read after growing.
    const int i = check(ToInt(index), kMaxScriptBitArrayIndex);
    return FPValue(v.AsBitArray()[i] != 0);
  }
  // An object's tracks: obj[2] is its second sub-anim, obj[#name] the one of that name (a
  // parameter of its blocks too), also when the track has no controller.
  if (Animatable* anim = AnimOf(c)) {
    if (index.Is(FPType::TYPE_NAME)) {
      ScriptValue track = FindSubAnim(c, index.AsString());
      if (track.IsUndefined()) Raise("Runtime error: no sub-anim " + ScriptValueString(index) +
                                     " in " + ScriptValueString(c));
      return track;
    }
    const int i = check(ToInt(index), anim->NumSubs());
    return ScriptValue::SubAnim(anim, i);
  }
  NoFunction("get", c);
}

ScriptValue ScriptRunner::Impl::EvalCall(const AstNode& n) {
  const AstNode& callee = *n.children[0];
  ScriptValue target;
  const bool method = callee.kind == AstKind::kProperty;
  target = Eval(method ? *callee.children[0] : callee);
  std::vector<ScriptValue> args;
  args.reserve(n.children.size() - 1);
  for (size_t i = 1; i < n.children.size(); ++i) args.push_back(Eval(*n.children[i]));
  std::vector<ScriptKeyArg> keys;
  keys.reserve(n.keys.size());
  for (const AstNamed& k : n.keys) keys.push_back({k.name, Eval(*k.value)});
  if (method) return CallMethod(target, callee.text, args, keys);
  return Apply(target, callee.kind == AstKind::kIdentifier ? callee.text : std::string(), args,
               keys);
}

ScriptValue ScriptRunner::Impl::Apply(const ScriptValue& fn,
                                      std::string_view name,
                                      std::span<const ScriptValue> args,
                                      std::span<const ScriptKeyArg> keys) {
  const ScriptFunction* f = fn.AsFunction();
  if (f && !f->native) return CallScriptFunction(*f, args, keys);
  std::vector<ScriptValue> arg_store;
  std::vector<ScriptKeyArg> key_store;
  Dereference(args, keys, arg_store, key_store);
  if (f) {
    ScriptCall call(self, f->name, args, keys);
    return f->native(call);
  }
  if (const ScriptClass* cls = fn.AsClass(); cls && !cls->super) {
    return CreateObject(*cls, args, keys);
  }
  if (fn.AsStructDef()) return ConstructStruct(fn.StructDefPtr(), args, keys);
  Raise("Type error: Call needs function or class, got: " + ScriptValueString(fn));
}

void ScriptRunner::Impl::Dereference(std::span<const ScriptValue>& args,
                                     std::span<const ScriptKeyArg>& keys,
                                     std::vector<ScriptValue>& arg_store,
                                     std::vector<ScriptKeyArg>& key_store) const {
  const bool any = std::any_of(args.begin(), args.end(),
                               [](const ScriptValue& a) { return a.AsRef() != nullptr; }) ||
                   std::any_of(keys.begin(), keys.end(),
                               [](const ScriptKeyArg& k) { return k.value.AsRef() != nullptr; });
  if (!any) return;
  for (const ScriptValue& a : args) arg_store.push_back(a.AsRef() ? ReadRef(*a.AsRef()) : a);
  for (const ScriptKeyArg& k : keys) {
    key_store.push_back({k.name, k.value.AsRef() ? ReadRef(*k.value.AsRef()) : k.value});
  }
  args = arg_store;
  keys = key_store;
}

ScriptValue ScriptRunner::Impl::CallMethod(const ScriptValue& obj,
                                           std::string_view name,
                                           std::span<const ScriptValue> args,
                                           std::span<const ScriptKeyArg> keys) {
  // A member function of a struct instance is a script function: references pass on.
  if (ScriptValue member; GetStructMember(obj, name, member))
    return Apply(member, name, args, keys);
  if (obj.AsStructInstance()) UnknownProperty(name, obj);
  std::vector<ScriptValue> arg_store;
  std::vector<ScriptKeyArg> key_store;
  Dereference(args, keys, arg_store, key_store);
  if (obj.GetKind() == ScriptValue::Kind::kStruct) {
    const GlobalEntry* g = FindGlobal(obj.StructName() + "." + LowerName(name));
    if (!g) UnknownProperty(name, obj);
    return Apply(g->fn ? ScriptValue::Function(g->function) : g->getter(self), name, args, keys);
  }
  FPInterface* fpi = nullptr;
  if (obj.Is(FPType::TYPE_INTERFACE)) {
    fpi = obj.Fp().AsInterface();
  } else if (obj.GetKind() == ScriptValue::Kind::kMixin) {
    fpi = obj.AsMixin();
    if (!fpi) Raise("Runtime error: the object of this interface has been deleted");
  } else {
    fpi = FindMethodInterface(obj, name);
  }
  if (fpi) return CallInterface(fpi, obj, name, args, keys);
  if (ScriptValue out; CallListMethod(obj, name, args, out)) return out;
  // A property whose value is a function.
  ScriptValue prop;
  if (GetProperty(obj, name, CurrentTime(), prop)) return Apply(prop, name, args, keys);
  UnknownProperty(name, obj);
}

ScriptValue ScriptRunner::Impl::CallScriptFunction(const ScriptFunction& fn,
                                                   std::span<const ScriptValue> args,
                                                   std::span<const ScriptKeyArg> keys) {
  const AstNode& def = *fn.def;
  int positional = 0;
  for (const AstNamed& p : def.keys) positional += p.keyword ? 0 : 1;
  if (static_cast<int>(args.size()) != positional) {
    throw ArgCountError(fn.name, positional, static_cast<int>(args.size()));
  }
  auto scope = ChildScope(fn.closure);
  ScopeSwap swap(*this, scope);
  ProgramSwap program(*this, fn.program);
  // A by-reference parameter keeps the place it was given, so that reading and setting it read
  // and set the caller's variable; any other parameter takes the value (a plain value given to
  // a by-reference parameter is just a value, and setting it changes nothing outside).
  auto bind = [this](const AstNamed& p, const ScriptValue& v) {
    return p.by_ref || !v.AsRef() ? v : ReadRef(*v.AsRef());
  };
  size_t next = 0;
  for (const AstNamed& p : def.keys) {
    const std::string lower = LowerName(p.name);
    if (!p.keyword) {
      scope->vars[lower] = bind(p, args[next++]);
      continue;
    }
    const ScriptKeyArg* given = nullptr;
    for (const ScriptKeyArg& k : keys) {
      if (ScriptNameEquals(k.name, p.name)) given = &k;
    }
    // Defaults see the parameters before them.
    scope->vars[lower] = given ? bind(p, given->value) : p.value ? Eval(*p.value) : ScriptValue();
  }
  try {
    return Eval(*def.children[0]);
  } catch (ReturnSignal& r) {
    return std::move(r.value);
  } catch (const ExitSignal& s) {
    throw LocatedError("Runtime error: exit outside of a loop", s.pos);
  } catch (const ContinueSignal& s) {
    throw LocatedError("Runtime error: continue outside of a loop", s.pos);
  }
}

ScriptValue ScriptRunner::Impl::CreateObject(const ScriptClass& cls,
                                             std::span<const ScriptValue> args,
                                             std::span<const ScriptKeyArg> keys) {
  if (!cls.desc) return ConstructBuiltin(cls, args);
  if (!args.empty()) throw ArgCountError(cls.name, 0, static_cast<int>(args.size()));
  Animatable* anim = cls.desc->Create(false);
  if (!anim) Raise("Runtime error: cannot create an object of class " + cls.name);
  const SClass_ID sclass = cls.desc->SuperClassID();
  const bool scene_object = sclass == GEOMOBJECT_CLASS_ID || sclass == SHAPE_CLASS_ID ||
                            sclass == HELPER_CLASS_ID || sclass == CAMERA_CLASS_ID ||
                            sclass == LIGHT_CLASS_ID;
  auto* target = dynamic_cast<ReferenceTarget*>(anim);
  auto* object = dynamic_cast<Object*>(anim);
  if (!target || (scene_object && !object)) {
    if (target) {
      target->MaybeAutoDelete();
    } else {
      anim->DeleteThis();
    }
    Raise("Runtime error: scripts cannot create objects of class " + cls.name);
  }
  ScriptValue made;
  if (scene_object) {
    // A scene object comes with its node, as the host's script makes it.
    std::string name;
    if (const ScriptValue* n = ScriptCall(self, cls.name, {}, keys).Key("name")) name = ToText(*n);
    made = FPValue(GetCOREInterface()->CreateObjectNode(object, name.c_str()));
  } else {
    NoteCreated(target);
    made = ObjectValue(target);
  }
  const TimeValue t = CurrentTime();
  for (const ScriptKeyArg& k : keys) {
    if (scene_object && ScriptNameEquals(k.name, "name")) continue;
    if (!SetProperty(made, k.name, k.value, t)) UnknownProperty(k.name, made);
  }
  return made;
}

ScriptValue ScriptRunner::Impl::EvalAssign(const AstNode& n) {
  const AstNode& place = *n.children[0];
  const auto op = static_cast<TokenKind>(n.op);
  ScriptValue value;
  if (op == TokenKind::kAssign) {
    value = Eval(*n.children[1]);
  } else {
    ScriptValue current = Eval(place);
    ScriptValue rhs = Eval(*n.children[1]);
    const TokenKind arith = op == TokenKind::kPlusAssign    ? TokenKind::kPlus
                            : op == TokenKind::kMinusAssign ? TokenKind::kMinus
                            : op == TokenKind::kTimesAssign ? TokenKind::kTimes
                                                            : TokenKind::kDiv;
    value = Arithmetic(arith, current, rhs);
  }
  Assign(place, value);
  return value;
}

void ScriptRunner::Impl::Assign(const AstNode& place, const ScriptValue& v) {
  switch (place.kind) {
    case AstKind::kIdentifier:
      SetVariable(LowerName(place.text), v);
      return;
    case AstKind::kIndex:
      AssignIndex(place, v);
      return;
    case AstKind::kProperty:
      AssignProperty(place, v);
      return;
    default:
      Raise("Runtime error: cannot assign to this expression");
  }
}

void ScriptRunner::Impl::AssignIndex(const AstNode& place, const ScriptValue& v) {
  const AstNode& target = *place.children[0];
  ScriptValue c = Eval(target);
  ScriptValue index = Eval(*place.children[1]);
  if (c.IsArray()) {
    const int i = ScriptIndex(index);
    if (i > kMaxArrayLength) Raise("Runtime error: array index too large: " + std::to_string(i));
    if (v.Contains(c)) Raise("Runtime error: an array cannot contain itself");
    auto& items = c.Items();
    if (static_cast<size_t>(i) > items.size()) items.resize(static_cast<size_t>(i));
    items[static_cast<size_t>(i - 1)] = v;
    // An array read from a property (a table parameter, say) is a copy: write it back.
    if (target.kind == AstKind::kProperty || target.kind == AstKind::kIndex) Assign(target, c);
    return;
  }
  if (c.Is(FPType::TYPE_BITARRAY)) {
    BitArray bits = c.Fp().AsBitArray();
    if (!SetScriptBit(bits, ToInt(index), ToBool(v, "bit array element")))
      Raise("Runtime error: index out of range: " + ScriptValueString(index));
    if (!IsAssignable(target)) Raise("Runtime error: cannot assign to an element of this value");
    Assign(target, FPValue(bits));
    return;
  }
  ScriptValue updated;
  const int i = ToInt(index);
  static constexpr const char* kComponents[] = {"x", "y", "z", "w"};
  static constexpr const char* kRows[] = {"row1", "row2", "row3", "row4"};
  const bool matrix = c.Is(FPType::TYPE_MATRIX3);
  const int count = c.IsPoint2()                            ? 2
                    : c.Is(FPType::TYPE_POINT3)             ? 3
                    : (matrix || c.Is(FPType::TYPE_POINT4)) ? 4
                                                            : 0;
  if (count == 0) NoFunction("put", c);
  if (i < 1 || i > count) Raise("Runtime error: index out of range: " + ScriptValueString(index));
  WithComponent(c, matrix ? kRows[i - 1] : kComponents[i - 1], v, updated);
  if (!IsAssignable(target)) Raise("Runtime error: cannot assign to a component of this value");
  Assign(target, updated);
}

void ScriptRunner::Impl::AssignProperty(const AstNode& place, const ScriptValue& v) {
  const AstNode& target = *place.children[0];
  const TimeValue t = CurrentTime();
  ScriptValue obj;
  if (IsTrackSuffix(place.text) && target.kind == AstKind::kProperty) {
    obj = TrackOrValue(target);
  } else {
    obj = Eval(target);
  }
  ScriptValue updated;
  if (obj.GetKind() != ScriptValue::Kind::kSubAnim && WithComponent(obj, place.text, v, updated)) {
    // A component of a value ($a.pos.x = 1): the whole value goes back where it came from.
    if (!IsAssignable(target)) Raise("Runtime error: cannot assign to a component of this value");
    Assign(target, updated);
    return;
  }
  if (!SetProperty(obj, place.text, v, t)) UnknownProperty(place.text, obj);
}

ScriptValue ScriptRunner::Impl::EvalDeclare(const AstNode& n) {
  ScriptValue last;
  for (const AstNamed& k : n.keys) {
    const std::string lower = LowerName(k.name);
    ScriptValue value = k.value ? Eval(*k.value) : ScriptValue();
    if (n.op == kLocal) {
      env_->vars[lower] = value;
    } else {
      if (k.value || !globals.count(lower)) globals[lower] = value;
      if (!env_->top) env_->global_names.insert(lower);
      value = globals[lower];
    }
    last = std::move(value);
  }
  return last;
}

ScriptValue ScriptRunner::Impl::EvalIf(const AstNode& n) {
  if (ToBool(Eval(*n.children[0]), "if-test")) return Eval(*n.children[1]);
  return n.Child(2) ? Eval(*n.Child(2)) : ScriptValue();
}

ScriptValue ScriptRunner::Impl::EvalWhile(const AstNode& n) {
  const bool test_first = n.kind == AstKind::kWhile;
  const AstNode& test = *n.children[test_first ? 0 : 1];
  const AstNode& body = *n.children[test_first ? 1 : 0];
  while (true) {
    if (test_first && !ToBool(Eval(test), "while-test")) break;
    try {
      Eval(body);
    } catch (ExitSignal& s) {
      return std::move(s.value);
    } catch (const ContinueSignal&) {
    }
    if (!test_first && !ToBool(Eval(test), "while-test")) break;
  }
  return ScriptValue();
}

ScriptValue ScriptRunner::Impl::EvalFor(const AstNode& n) {
  const bool collect = n.op == kCollect;
  const AstNode* where = n.Child(3);
  const AstNode& body = *n.children[4];
  auto scope = ChildScope(env_);
  ScopeSwap swap(*this, scope);
  ScriptValue& var = scope->vars[LowerName(n.text)];
  std::vector<ScriptValue> collected;
  ScriptValue exit_value = FPValue::Void();
  // One pass of the loop; false when an exit ends it.
  auto pass = [&](ScriptValue value) {
    var = std::move(value);
    if (where && !ToBool(Eval(*where), "where-test")) return true;
    try {
      ScriptValue v = Eval(body);
      if (collect) collected.push_back(std::move(v));
    } catch (ExitSignal& s) {
      exit_value = std::move(s.value);
      return false;
    } catch (const ContinueSignal&) {
    }
    return true;
  };
  if (!n.Child(1)) {
    ScriptValue source = Eval(*n.children[0]);
    if (!source.IsArray()) {
      Raise("Runtime error: for ... in needs an array, got: " + ScriptValueString(source));
    }
    const std::vector<ScriptValue> items = source.Items();  // the loop may change the array
    for (const ScriptValue& item : items) {
      if (!pass(item)) break;
    }
  } else {
    ScriptValue from = Eval(*n.children[0]);
    ScriptValue to = Eval(*n.children[1]);
    ScriptValue by = n.Child(2) ? Eval(*n.Child(2)) : ScriptValue(FPValue(1));
    if (from.Is(FPType::TYPE_TIMEVALUE) || to.Is(FPType::TYPE_TIMEVALUE)) {
      // Times step in ticks; a number step is frames.
      const long long first = ToTime(from);
      const long long last = ToTime(to);
      const long long step = ToTime(by);
      if (step == 0) Raise("Runtime error: for loop step must not be 0");
      for (long long t = first; step > 0 ? t <= last : t >= last; t += step) {
        if (!pass(FPValue::Time(static_cast<TimeValue>(t)))) break;
      }
    } else if (from.Is(FPType::TYPE_INT) && to.Is(FPType::TYPE_INT) && by.Is(FPType::TYPE_INT)) {
      const long long step = by.AsInt();
      if (step == 0) Raise("Runtime error: for loop step must not be 0");
      for (long long i = from.AsInt(); step > 0 ? i <= to.AsInt() : i >= to.AsInt(); i += step) {
        if (!pass(FPValue(static_cast<int>(i)))) break;
      }
    } else {
      const double first = ToFloat(from);
      const double last = ToFloat(to);
      const double step = ToFloat(by);
      if (step == 0.0 || !std::isfinite(step)) {
        Raise("Runtime error: for loop step must be a number other than 0");
      }
      for (double x = first; step > 0 ? x <= last : x >= last; x += step) {
        if (!pass(FPValue(x))) break;
      }
    }
  }
  if (collect) return ScriptValue::Array(std::move(collected));
  return exit_value;
}

ScriptValue ScriptRunner::Impl::EvalTry(const AstNode& n) {
  try {
    return Eval(*n.children[0]);
  } catch (const LocatedError& e) {
    exceptions_.push_back(e.what());
  }
  PopGuard<std::string> pop(exceptions_);
  return Eval(*n.children[1]);
}

ScriptValue ScriptRunner::Impl::EvalContext(const AstNode& n) {
  const AstNode& body = *n.children[2];
  ScriptValue arg = Eval(*n.children[0]);
  switch (static_cast<ContextKind>(n.op)) {
    case ContextKind::kAtTime: {
      times_.push_back(ToTime(arg));
      PopGuard<TimeValue> pop(times_);
      return Eval(body);
    }
    case ContextKind::kAnimate: {
      if (!ToBool(arg, "animate")) {
        AnimateSuspend off;
        return Eval(body);
      }
      struct On {
        bool was = Animating();
        On() { AnimateOn(); }
        ~On() {
          if (!was) AnimateOff();
        }
      } on;
      return Eval(body);
    }
    case ContextKind::kUndo: {
      const bool on = ToBool(arg, "undo");
      if (!on) {
        HoldSuspend off;
        return Eval(body);
      }
      const std::string label =
          n.Child(1) ? ScriptValueText(Eval(*n.Child(1))) : std::string("MAXScript");
      theHold.Begin();
      ScriptValue v;
      try {
        v = Eval(body);
      } catch (...) {
        // What the script did before it failed stays, as one undoable entry.
        theHold.Accept(label);
        throw;
      }
      theHold.Accept(label);
      return v;
    }
    case ContextKind::kCoordsys: {
      PushCoordSys(arg);
      struct Pop {
        ~Pop() { PopCoordSys(); }
      } pop;
      return Eval(body);
    }
    case ContextKind::kRedraw:
    case ContextKind::kQuiet:
      // No views and no prompts headless: the switch is read and the body runs as it is.
      ToBool(arg, "redraw");
      return Eval(body);
  }
  return Eval(body);
}

ScriptValue ScriptRunner::Impl::EvalFunction(const AstNode& n) {
  auto fn = std::make_shared<ScriptFunction>();
  fn->name = n.text;
  fn->program = program_;
  fn->def = &n;
  fn->closure = env_;
  NoteCaptured(env_);
  ScriptValue value = ScriptValue::Function(std::move(fn));
  Define(LowerName(n.text), value);
  return value;
}

ScriptValue ScriptRunner::Impl::EvalCase(const AstNode& n) {
  const AstNode* subject_node = n.Child(0);
  ScriptValue subject = subject_node ? Eval(*subject_node) : ScriptValue();
  const AstNode* fallback = nullptr;
  for (size_t i = 1; i + 1 < n.children.size(); i += 2) {
    const AstNode* label = n.Child(i);
    if (!label) {
      fallback = n.Child(i + 1);
      continue;
    }
    ScriptValue l = Eval(*label);
    const bool hit = subject_node ? ScriptEquals(subject, l) : ToBool(l, "case-test");
    if (hit) return Eval(*n.children[i + 1]);
  }
  return fallback ? Eval(*fallback) : ScriptValue();
}
