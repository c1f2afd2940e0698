// Copyright Marvolith contributors.
// The built-in global functions and variables of the script runner.
#include <algorithm>
#include <cctype>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <numbers>

#include "host/app/scene_file.h"
#include "host/core/reference.h"
#include "host/interpreter/internal/runner_impl.h"
#include "host/interpreter/runner_parser.h"
#include "host/io/ini_file.h"
#include "host/math/euler.h"
#include "host/scene/core_interface.h"
#include "host/scene/inode.h"
#include "host/script/fp_interface.h"

namespace script_internal {
namespace {

constexpr double kRadPerDeg = std::numbers::pi / 180.0;
constexpr int kMaxArrayCount = 10'000'000;

using Fn = ScriptValue (*)(ScriptCall&);

ScriptRunner::Impl& ImplOf(ScriptCall& call) { return call.Runner().GetImpl(); }

std::string Text(ScriptCall& call, int i) { return ToText(call.Arg(i)); }

[[noreturn]] void CannotConvert(const ScriptValue& v, std::string_view type) {
  Raise("Unable to convert: " + ScriptValueString(v) + " to type: " + std::string(type));
}

const ScriptValue& ArrayArg(ScriptCall& call, int i) {
  if (!call.Arg(i).IsArray()) CannotConvert(call.Arg(i), "Array");
  return call.Arg(i);
}

Animatable* AnimArg(ScriptCall& call, int i) {
  Animatable* anim = AnimOf(call.Arg(i));
  if (!anim) CannotConvert(call.Arg(i), "MAXWrapper");
  return anim;
}

bool KeyBool(ScriptCall& call, const char* name, bool fallback) {
  const ScriptValue* v = call.Key(name);
  return v ? ToBool(*v, name) : fallback;
}

ScriptValue NodeArray(const std::vector<INode*>& nodes) {
  std::vector<ScriptValue> items;
  items.reserve(nodes.size());
  for (INode* n : nodes) items.emplace_back(FPValue(n));
  return ScriptValue::Array(std::move(items));
}

void CheckInsert(const ScriptValue& array, const ScriptValue& item) {
  if (item.Contains(array)) Raise("Runtime error: an array cannot contain itself");
  if (array.Count() >= kMaxArrayCount) Raise("Runtime error: array too large");
}

// ---------------------------------------------------------------------------------------------
// Output.

// Where print and format write: the stream of to:, else the runner's output.
void Emit(ScriptCall& call, const std::string& text) {
  const ScriptValue* to = call.Key("to");
  if (!to || to->IsUndefined()) {
    call.Runner().Print(text);
    return;
  }
  ScriptStream* st = to->AsStream();
  if (!st) CannotConvert(*to, "Stream");
  if (!st->open || !st->writing) Raise("Runtime error: the stream is not open for writing");
  st->text += text;
}

ScriptValue Print(ScriptCall& call) {
  call.ExpectArgs(1, 1);
  Emit(call, ScriptValueString(call.Arg(0)) + "\n");
  return call.Arg(0);
}

ScriptValue Format(ScriptCall& call) {
  if (call.ArgCount() < 1) call.ExpectArgs(1, INT_MAX);
  const std::string& fmt = Text(call, 0);
  std::string out;
  int next = 1;
  for (char c : fmt) {
    if (c != '%') {
      out += c;
      continue;
    }
    if (next >= call.ArgCount()) Raise("Runtime error: format has more % than arguments");
    out += ScriptValueText(call.Arg(next++));
  }
  Emit(call, out);
  return FPValue::Void();
}

ScriptValue MessageBoxFn(ScriptCall& call) {
  call.ExpectArgs(1, 1);
  const ScriptValue* title = call.Key("title");
  call.Runner().MessageBox(ScriptValueText(call.Arg(0)),
                           title ? ScriptValueText(*title) : std::string("MAXScript"));
  return FPValue::Void();
}

ScriptValue GetCurrentException(ScriptCall& call) {
  call.ExpectArgs(0, 0);
  return ImplOf(call).CurrentException();
}

ScriptValue Execute(ScriptCall& call) {
  call.ExpectArgs(1, 1);
  ScriptError error;
  auto program = ParseScript(Text(call, 0), error);
  if (!program) {
    Raise(error.message + " (in execute, line " + std::to_string(error.pos.line) + ", column " +
          std::to_string(error.pos.column) + ")");
  }
  return ImplOf(call).EvalProgram(program);
}

// ---------------------------------------------------------------------------------------------
// Settings.

ScriptValue GetMAXIniFile(ScriptCall& call) {
  call.ExpectArgs(0, 0);
  return FPValue(GetCOREInterface()->GetMAXIniFile());
}

ScriptValue StringArray(const std::vector<std::string>& names) {
  std::vector<ScriptValue> items;
  for (const std::string& n : names) items.emplace_back(FPValue(n));
  return ScriptValue::Array(std::move(items));
}

ScriptValue GetINISetting(ScriptCall& call) {
  call.ExpectArgs(1, 3);
  const std::string file = Text(call, 0);
  if (call.ArgCount() == 1) return StringArray(ReadIniSections(file));
  if (call.ArgCount() == 2) return StringArray(ReadIniKeys(file, Text(call, 1)));
  return FPValue(ReadIniValue(file, Text(call, 1), Text(call, 2)).value_or(""));
}

ScriptValue SetINISetting(ScriptCall& call) {
  call.ExpectArgs(4, 4);
  const std::string key = Text(call, 2);
  const std::string value = Text(call, 3);
  return FPValue(WriteIniValue(Text(call, 0), Text(call, 1), key.c_str(), value.c_str()));
}

ScriptValue HasINISetting(ScriptCall& call) {
  call.ExpectArgs(2, 3);
  const std::string file = Text(call, 0);
  const std::string section = Text(call, 1);
  if (call.ArgCount() == 3) return FPValue(ReadIniValue(file, section, Text(call, 2)).has_value());
  const auto sections = ReadIniSections(file);
  return FPValue(std::any_of(sections.begin(), sections.end(), [&section](const std::string& s) {
    return ScriptNameEquals(s, section);
  }));
}

ScriptValue DelINISetting(ScriptCall& call) {
  call.ExpectArgs(2, 3);
  const std::string key = call.ArgCount() == 3 ? Text(call, 2) : std::string();
  return FPValue(WriteIniValue(Text(call, 0), Text(call, 1),
                               call.ArgCount() == 3 ? key.c_str() : nullptr, nullptr));
}

// ---------------------------------------------------------------------------------------------
// Scene.

ScriptValue GetNodeByName(ScriptCall& call) {
  call.ExpectArgs(1, 1);
  const std::string name = Text(call, 0);
  const bool ignore_case = KeyBool(call, "ignoreCase", true);
  const bool all = KeyBool(call, "all", false);
  std::vector<INode*> found;
  for (INode* node : AllNodes()) {
    const bool match =
        ignore_case ? ScriptNameEquals(node->GetName(), name) : name == node->GetName();
    if (!match) continue;
    if (!all) return FPValue(node);
    found.push_back(node);
  }
  return all ? NodeArray(found) : ScriptValue();
}

ScriptValue IsValidNode(ScriptCall& call) {
  call.ExpectArgs(1, 1);
  return FPValue(call.Arg(0).AsNode() != nullptr);
}

ScriptValue IsValidObj(ScriptCall& call) {
  call.ExpectArgs(1, 1);
  return FPValue(AnimOf(call.Arg(0)) != nullptr);
}

ScriptValue Delete(ScriptCall& call) {
  call.ExpectArgs(1, 1);
  for (INode* node : NodesOf(call.Arg(0))) {
    // An earlier node's deletion may have taken this one with it.
    if (Animatable::GetAnimByHandle(Animatable::GetHandleByAnim(node))) {
      GetCOREInterface()->DeleteNode(node, false);
    }
  }
  return FPValue::Void();
}

ScriptValue Select(ScriptCall& call) {
  call.ExpectArgs(1, 1);
  const std::vector<INode*> nodes = NodesOf(call.Arg(0));
  Interface* ip = GetCOREInterface();
  ip->ClearNodeSelection(false);
  for (INode* node : nodes) ip->SelectNode(node, false);
  return FPValue::Void();
}

ScriptValue SelectMore(ScriptCall& call) {
  call.ExpectArgs(1, 1);
  for (INode* node : NodesOf(call.Arg(0))) GetCOREInterface()->SelectNode(node, false);
  return FPValue::Void();
}

ScriptValue Deselect(ScriptCall& call) {
  call.ExpectArgs(1, 1);
  for (INode* node : NodesOf(call.Arg(0))) GetCOREInterface()->DeSelectNode(node);
  return FPValue::Void();
}

ScriptValue ClearSelection(ScriptCall& call) {
  call.ExpectArgs(0, 0);
  GetCOREInterface()->ClearNodeSelection(false);
  return FPValue::Void();
}

ScriptValue GetAnimByHandle(ScriptCall& call) {
  call.ExpectArgs(1, 1);
  const int h = ToInt(call.Arg(0));
  return h > 0 ? ObjectValue(Animatable::GetAnimByHandle(static_cast<AnimHandle>(h)))
               : ScriptValue();
}

ScriptValue GetHandleByAnim(ScriptCall& call) {
  call.ExpectArgs(1, 1);
  const AnimHandle h = Animatable::GetHandleByAnim(AnimArg(call, 0));
  return FPValue(static_cast<int>(std::min<AnimHandle>(h, INT_MAX)));
}

ScriptValue GetNodeByHandle(ScriptCall& call) {
  ScriptValue v = GetAnimByHandle(call);
  return v.AsNode() ? v : ScriptValue();
}

ScriptValue GetSubAnim(ScriptCall& call) {
  call.ExpectArgs(2, 2);
  Animatable* anim = AnimArg(call, 0);
  const int i = ToInt(call.Arg(1));
  if (i < 1 || i > anim->NumSubs()) {
    Raise("Runtime error: sub-anim index out of range: " + ScriptValueString(call.Arg(1)));
  }
  return ScriptValue::SubAnim(anim, i - 1);
}

ScriptValue GetSubAnimName(ScriptCall& call) {
  call.ExpectArgs(2, 2);
  Animatable* anim = AnimArg(call, 0);
  const int i = ToInt(call.Arg(1));
  if (i < 1 || i > anim->NumSubs()) {
    Raise("Runtime error: sub-anim index out of range: " + ScriptValueString(call.Arg(1)));
  }
  return FPValue::Name(ScriptSubAnimName(anim, i - 1));
}

ScriptValue GetSubAnimNames(ScriptCall& call) {
  call.ExpectArgs(1, 1);
  Animatable* anim = AnimArg(call, 0);
  std::vector<ScriptValue> names;
  for (int i = 0; i < anim->NumSubs(); ++i) {
    names.emplace_back(FPValue::Name(ScriptSubAnimName(anim, i)));
  }
  return ScriptValue::Array(std::move(names));
}

ScriptValue NumKeys(ScriptCall& call) {
  call.ExpectArgs(1, 1);
  return FPValue(AnimArg(call, 0)->NumKeys());
}

ScriptValue GetKeyTime(ScriptCall& call) {
  call.ExpectArgs(2, 2);
  Animatable* anim = AnimArg(call, 0);
  const int i = ToInt(call.Arg(1));
  if (i < 1 || i > anim->NumKeys()) {
    Raise("Runtime error: key index out of range: " + ScriptValueString(call.Arg(1)));
  }
  return FPValue::Time(anim->GetKeyTime(i - 1));
}

ScriptValue AddNewKey(ScriptCall& call) {
  call.ExpectArgs(2, 2);
  AnimArg(call, 0)->AddNewKey(ToTime(call.Arg(1)), 0);
  return FPValue::Void();
}

ScriptValue DeleteKeys(ScriptCall& call) {
  call.ExpectArgs(1, 1);
  AnimArg(call, 0)->DeleteKeys(TRACK_DOALL);
  return FPValue::Void();
}

ScriptValue RedrawViews(ScriptCall& call) {
  call.ExpectArgs(0, 0);
  GetCOREInterface()->RedrawViews(call.Time());
  return FPValue::Void();
}

ScriptValue ResetMaxFile(ScriptCall& call) {
  call.ExpectArgs(0, 1);
  GetCOREInterface()->Reset();
  return FPValue::Void();
}

ScriptValue SaveMaxFile(ScriptCall& call) {
  call.ExpectArgs(1, 1);
  return FPValue(SaveScene(Text(call, 0)));
}

ScriptValue LoadMaxFile(ScriptCall& call) {
  call.ExpectArgs(1, 1);
  return FPValue(LoadScene(Text(call, 0)));
}

// ---------------------------------------------------------------------------------------------
// Classes and properties.

ScriptValue ClassOfFn(ScriptCall& call) {
  call.ExpectArgs(1, 1);
  return ClassOf(call.Arg(0));
}

ScriptValue SuperClassOfFn(ScriptCall& call) {
  call.ExpectArgs(1, 1);
  return SuperClassOf(call.Arg(0));
}

ScriptValue IsKindOf(ScriptCall& call) {
  call.ExpectArgs(2, 2);
  return FPValue(ScriptEquals(ClassOf(call.Arg(0)), call.Arg(1)) ||
                 ScriptEquals(SuperClassOf(call.Arg(0)), call.Arg(1)));
}

ScriptValue GetPropertyFn(ScriptCall& call) {
  call.ExpectArgs(2, 2);
  const std::string name = Text(call, 1);
  ScriptValue out;
  if (!GetProperty(call.Arg(0), name, call.Time(), out)) UnknownProperty(name, call.Arg(0));
  return out;
}

ScriptValue SetPropertyFn(ScriptCall& call) {
  call.ExpectArgs(3, 3);
  const std::string name = Text(call, 1);
  if (!SetProperty(call.Arg(0), name, call.Arg(2), call.Time())) {
    UnknownProperty(name, call.Arg(0));
  }
  return call.Arg(2);
}

ScriptValue IsProperty(ScriptCall& call) {
  call.ExpectArgs(2, 2);
  ScriptValue out;
  return FPValue(GetProperty(call.Arg(0), Text(call, 1), call.Time(), out));
}

// ---------------------------------------------------------------------------------------------
// Arrays.

ScriptValue Append(ScriptCall& call) {
  call.ExpectArgs(2, 2);
  const ScriptValue& array = ArrayArg(call, 0);
  CheckInsert(array, call.Arg(1));
  array.Items().push_back(call.Arg(1));
  return array;
}

ScriptValue Join(ScriptCall& call) {
  call.ExpectArgs(2, 2);
  const ScriptValue& array = ArrayArg(call, 0);
  const std::vector<ScriptValue> more = ArrayArg(call, 1).Items();
  for (const ScriptValue& item : more) CheckInsert(array, item);
  if (array.Count() + more.size() > static_cast<size_t>(kMaxArrayCount)) {
    Raise("Runtime error: array too large");
  }
  array.Items().insert(array.Items().end(), more.begin(), more.end());
  return array;
}

ScriptValue FindItem(ScriptCall& call) {
  call.ExpectArgs(2, 2);
  const auto& items = ArrayArg(call, 0).Items();
  for (size_t i = 0; i < items.size(); ++i) {
    if (ScriptEquals(items[i], call.Arg(1))) return FPValue(static_cast<int>(i + 1));
  }
  return FPValue(0);
}

ScriptValue DeleteItem(ScriptCall& call) {
  call.ExpectArgs(2, 2);
  const ScriptValue& array = ArrayArg(call, 0);
  const int i = ToInt(call.Arg(1));
  if (i < 1 || i > array.Count()) {
    Raise("Runtime error: array index out of range: " + ScriptValueString(call.Arg(1)));
  }
  array.Items().erase(array.Items().begin() + (i - 1));
  return array;
}

ScriptValue InsertItem(ScriptCall& call) {
  call.ExpectArgs(3, 3);
  const ScriptValue& array = ArrayArg(call, 1);
  const int i = ToInt(call.Arg(2));
  if (i < 1 || i > array.Count() + 1) {
    Raise("Runtime error: array index out of range: " + ScriptValueString(call.Arg(2)));
  }
  CheckInsert(array, call.Arg(0));
  array.Items().insert(array.Items().begin() + (i - 1), call.Arg(0));
  return FPValue::Void();
}

ScriptValue Copy(ScriptCall& call) {
  call.ExpectArgs(1, 1);
  const ScriptValue& v = call.Arg(0);
  if (v.AsStructInstance()) return ImplOf(call).CopyStructInstance(v);
  return v.IsArray() ? ScriptValue::Array(v.Items()) : v;
}

ScriptValue MakeUniqueArray(ScriptCall& call) {
  call.ExpectArgs(1, 1);
  std::vector<ScriptValue> out;
  for (const ScriptValue& item : ArrayArg(call, 0).Items()) {
    const bool seen = std::any_of(out.begin(), out.end(),
                                  [&item](const ScriptValue& o) { return ScriptEquals(o, item); });
    if (!seen) out.push_back(item);
  }
  return ScriptValue::Array(std::move(out));
}

ScriptValue Sort(ScriptCall& call) {
  call.ExpectArgs(1, 1);
  const ScriptValue& array = ArrayArg(call, 0);
  auto& items = array.Items();
  // One kind throughout, and no NaN, so that the order is a strict weak one.
  const bool numbers = std::all_of(items.begin(), items.end(), [](const ScriptValue& v) {
    return v.IsNumber() && !std::isnan(v.AsFloat());
  });
  const bool strings = std::all_of(items.begin(), items.end(),
                                   [](const ScriptValue& v) { return v.Is(FPType::TYPE_STRING); });
  const bool times = std::all_of(items.begin(), items.end(),
                                 [](const ScriptValue& v) { return v.Is(FPType::TYPE_TIMEVALUE); });
  if (!numbers && !strings && !times) {
    Raise("Runtime error: sort needs an array of numbers, strings or times");
  }
  std::stable_sort(items.begin(), items.end(), [](const ScriptValue& a, const ScriptValue& b) {
    return Compare(TokenKind::kLt, a, b);
  });
  return array;
}

ScriptValue ExtremeOf(ScriptCall& call, bool want_max) {
  std::vector<ScriptValue> values;
  if (call.ArgCount() == 1 && call.Arg(0).IsArray()) {
    values = call.Arg(0).Items();
  } else {
    values.assign(call.Args().begin(), call.Args().end());
  }
  if (values.empty()) return ScriptValue();
  ScriptValue best = values[0];
  for (const ScriptValue& v : values) {
    if (Compare(want_max ? TokenKind::kGt : TokenKind::kLt, v, best)) best = v;
  }
  return best;
}

// ---------------------------------------------------------------------------------------------
// Strings.

std::string Lower(std::string s) {
  for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

ScriptValue FilterString(ScriptCall& call) {
  call.ExpectArgs(2, 2);
  const std::string s = Text(call, 0);
  const std::string delims = Text(call, 1);
  const bool keep_empty = KeyBool(call, "splitEmptyTokens", false);
  std::vector<ScriptValue> parts;
  std::string token;
  for (char c : s) {
    if (delims.find(c) == std::string::npos) {
      token += c;
      continue;
    }
    if (!token.empty() || keep_empty) parts.emplace_back(FPValue(token));
    token.clear();
  }
  if (!token.empty()) parts.emplace_back(FPValue(token));
  return ScriptValue::Array(std::move(parts));
}

ScriptValue Substring(ScriptCall& call) {
  call.ExpectArgs(3, 3);
  const std::string s = Text(call, 0);
  const int start = ToInt(call.Arg(1));
  const int count = ToInt(call.Arg(2));
  if (start < 1)
    Raise("Runtime error: substring start must be 1 or more, got: " + std::to_string(start));
  if (static_cast<size_t>(start) > s.size()) return FPValue("");
  const size_t from = static_cast<size_t>(start - 1);
  return FPValue(count < 0 ? s.substr(from) : s.substr(from, static_cast<size_t>(count)));
}

ScriptValue FindString(ScriptCall& call) {
  call.ExpectArgs(2, 2);
  const size_t at = Text(call, 0).find(Text(call, 1));
  return at == std::string::npos ? ScriptValue() : ScriptValue(FPValue(static_cast<int>(at + 1)));
}

ScriptValue ToLowerFn(ScriptCall& call) {
  call.ExpectArgs(1, 1);
  return FPValue(Lower(Text(call, 0)));
}

ScriptValue ToUpperFn(ScriptCall& call) {
  call.ExpectArgs(1, 1);
  std::string s = Text(call, 0);
  for (char& c : s) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return FPValue(s);
}

ScriptValue MatchPattern(ScriptCall& call) {
  call.ExpectArgs(1, 1);
  const ScriptValue* pattern = call.Key("pattern");
  if (!pattern) Raise("Runtime error: matchPattern needs pattern:");
  const bool ignore_case = KeyBool(call, "ignoreCase", true);
  return FPValue(WildcardMatch(Text(call, 0), ToText(*pattern), ignore_case));
}

ScriptValue SubstituteString(ScriptCall& call) {
  call.ExpectArgs(3, 3);
  std::string s = Text(call, 0);
  const std::string from = Text(call, 1);
  const std::string to = Text(call, 2);
  if (from.empty()) return FPValue(s);
  std::string out;
  size_t at = 0;
  for (size_t next; (next = s.find(from, at)) != std::string::npos; at = next + from.size()) {
    out += s.substr(at, next - at) + to;
  }
  return FPValue(out + s.substr(at));
}

ScriptValue Trim(ScriptCall& call, bool left) {
  call.ExpectArgs(1, 2);
  const std::string s = Text(call, 0);
  const std::string chars = call.ArgCount() == 2 ? Text(call, 1) : std::string(" \t\r\n");
  if (left) {
    const size_t first = s.find_first_not_of(chars);
    return FPValue(first == std::string::npos ? std::string() : s.substr(first));
  }
  const size_t last = s.find_last_not_of(chars);
  return FPValue(last == std::string::npos ? std::string() : s.substr(0, last + 1));
}

ScriptValue Replace(ScriptCall& call) {
  call.ExpectArgs(4, 4);
  std::string s = Text(call, 0);
  const int start = ToInt(call.Arg(1));
  const int count = ToInt(call.Arg(2));
  if (start < 1 || count < 0 || static_cast<size_t>(start - 1) > s.size()) {
    Raise("Runtime error: replace range out of the string: " + std::to_string(start));
  }
  s.replace(static_cast<size_t>(start - 1), static_cast<size_t>(count), Text(call, 3));
  return FPValue(s);
}

// printf of one value with the format's one conversion, written without its % as the host's
// script writes it ("6.2f", "05d", "x", "-8s"): flags, a width and a precision of up to two
// digits each, and one of d i x X f e E g G s.
ScriptValue FormattedPrint(ScriptCall& call) {
  call.ExpectArgs(1, 1);
  const ScriptValue* format = call.Key("format");
  const std::string spec = format ? ToText(*format) : std::string();
  const ScriptValue& v = call.Arg(0);
  if (spec.empty()) return FPValue(ScriptValueText(v));
  const std::string f = "%" + spec;
  size_t i = 1;
  while (i < f.size() && std::strchr("-+ 0#", f[i])) ++i;
  for (int d = 0; d < 2 && i < f.size() && std::isdigit(static_cast<unsigned char>(f[i])); ++d) {
    ++i;
  }
  if (i < f.size() && f[i] == '.') {
    ++i;
    for (int d = 0; d < 2 && i < f.size() && std::isdigit(static_cast<unsigned char>(f[i])); ++d) {
      ++i;
    }
  }
  if (i + 1 != f.size() || !std::strchr("dixXfeEgGs", f[i])) {
    Raise("Runtime error: unsupported formattedPrint format: " + spec);
  }
  char buf[512];
  const char conv = f[i];
  if (conv == 's') {
    const std::string text = ScriptValueText(v);
    std::snprintf(buf, sizeof(buf), f.c_str(), text.c_str());
  } else if (std::strchr("dixX", conv)) {
    std::snprintf(buf, sizeof(buf), f.c_str(), ToInt(v));
  } else {
    std::snprintf(buf, sizeof(buf), f.c_str(), static_cast<double>(ToFloat(v)));
  }
  return FPValue(std::string(buf));
}

// ---------------------------------------------------------------------------------------------
// Math.

ScriptValue Math1(ScriptCall& call, double (*fn)(double), bool degrees_in, bool degrees_out) {
  call.ExpectArgs(1, 1);
  double x = ToFloat(call.Arg(0));
  if (degrees_in) x *= kRadPerDeg;
  double y = fn(x);
  if (degrees_out) y /= kRadPerDeg;
  return FPValue(y);
}

ScriptValue Abs(ScriptCall& call) {
  call.ExpectArgs(1, 1);
  const ScriptValue& v = call.Arg(0);
  if (v.Is(FPType::TYPE_INT)) {
    return FPValue(v.AsInt() == INT_MIN ? INT_MIN : std::abs(v.AsInt()));
  }
  return FPValue(std::fabs(ToFloat(v)));
}

ScriptValue Mod(ScriptCall& call) {
  call.ExpectArgs(2, 2);
  const double b = ToFloat(call.Arg(1));
  if (b == 0.0) Raise("Runtime error: divide by zero");
  return FPValue(std::fmod(static_cast<double>(ToFloat(call.Arg(0))), b));
}

ScriptValue Pow(ScriptCall& call) {
  call.ExpectArgs(2, 2);
  return Arithmetic(TokenKind::kPower, call.Arg(0), call.Arg(1));
}

ScriptValue Atan2(ScriptCall& call) {
  call.ExpectArgs(2, 2);
  return FPValue(std::atan2(ToFloat(call.Arg(0)), ToFloat(call.Arg(1))) / kRadPerDeg);
}

Point3 PointArg(ScriptCall& call, int i) {
  const ScriptValue& v = call.Arg(i);
  if (INode* node = v.AsNode()) return node->GetNodeTM(call.Time()).GetTrans();
  if (!v.Is(FPType::TYPE_POINT3)) CannotConvert(v, "Point3");
  return v.AsPoint3();
}

ScriptValue LengthFn(ScriptCall& call) {
  call.ExpectArgs(1, 1);
  if (call.Arg(0).IsPoint2()) return FPValue(Length(call.Arg(0).AsPoint2()));
  return FPValue(Length(PointArg(call, 0)));
}

ScriptValue NormalizeFn(ScriptCall& call) {
  call.ExpectArgs(1, 1);
  return FPValue(Normalize(PointArg(call, 0)));
}

ScriptValue Dot(ScriptCall& call) {
  call.ExpectArgs(2, 2);
  return FPValue(DotProd(PointArg(call, 0), PointArg(call, 1)));
}

ScriptValue Cross(ScriptCall& call) {
  call.ExpectArgs(2, 2);
  return FPValue(CrossProd(PointArg(call, 0), PointArg(call, 1)));
}

ScriptValue Distance(ScriptCall& call) {
  call.ExpectArgs(2, 2);
  if (call.Arg(0).IsPoint2() && call.Arg(1).IsPoint2()) {
    return FPValue(Length(call.Arg(0).AsPoint2() - call.Arg(1).AsPoint2()));
  }
  return FPValue(Length(PointArg(call, 0) - PointArg(call, 1)));
}

ScriptValue InverseFn(ScriptCall& call) {
  call.ExpectArgs(1, 1);
  const ScriptValue& v = call.Arg(0);
  if (v.Is(FPType::TYPE_MATRIX3)) return FPValue(Inverse(v.Fp().AsMatrix3()));
  if (v.Is(FPType::TYPE_QUAT)) return FPValue(Inverse(v.Fp().AsQuat()));
  CannotConvert(v, "Matrix3");
}

ScriptValue TransMatrixFn(ScriptCall& call) {
  call.ExpectArgs(1, 1);
  return FPValue(TransMatrix(PointArg(call, 0)));
}

ScriptValue ScaleMatrixFn(ScriptCall& call) {
  call.ExpectArgs(1, 1);
  return FPValue(ScaleMatrix(PointArg(call, 0)));
}

ScriptValue RotateMatrix(ScriptCall& call, Matrix3 (*fn)(float)) {
  call.ExpectArgs(1, 1);
  return FPValue(fn(static_cast<float>(ToFloat(call.Arg(0)) * kRadPerDeg)));
}

ScriptValue QuatToEulerFn(ScriptCall& call) {
  call.ExpectArgs(1, 1);
  const ScriptValue& v = call.Arg(0);
  if (!v.Is(FPType::TYPE_QUAT) && !v.Is(FPType::TYPE_ANGAXIS)) CannotConvert(v, "Quat");
  float ang[3] = {0.0f, 0.0f, 0.0f};
  QuatToEuler(v.Fp().AsQuat(), ang, EULERTYPE_XYZ);
  return FPValue(Point3(ang[0], ang[1], ang[2]) / static_cast<float>(kRadPerDeg));
}

// ---------------------------------------------------------------------------------------------
// Variables.

void SetSliderTime(ScriptRunner&, const ScriptValue& v) { GetCOREInterface()->SetTime(ToTime(v)); }

void SetAnimationRange(ScriptRunner&, const ScriptValue& v) {
  if (v.GetKind() != ScriptValue::Kind::kInterval) CannotConvert(v, "Interval");
  if (!GetCOREInterface()->SetAnimRange(v.AsInterval())) {
    Raise("Runtime error: animationRange must not be empty, got: " + ScriptValueString(v));
  }
}

void SetFrameRate(ScriptRunner&, const ScriptValue& v) {
  if (!GetCOREInterface()->SetFrameRate(ToInt(v))) {
    Raise("Runtime error: frameRate must divide 4800, got: " + ScriptValueString(v));
  }
}

struct NamedFn {
  const char* name;
  Fn fn;
};

}  // namespace

std::vector<INode*> NodesOf(const ScriptValue& v) {
  std::vector<INode*> out;
  if (v.IsArray()) {
    for (const ScriptValue& item : v.Items()) {
      INode* node = item.AsNode();
      if (!node) Raise("Unable to convert: " + ScriptValueString(item) + " to type: Node");
      out.push_back(node);
    }
  } else if (INode* node = v.AsNode()) {
    out.push_back(node);
  } else {
    Raise("Unable to convert: " + ScriptValueString(v) + " to type: Node");
  }
  return out;
}

void RegisterBuiltinGlobals() {
  static bool done = false;
  if (done) return;
  done = true;
  static constexpr NamedFn kFunctions[] = {
      {"print", Print},
      {"format", Format},
      {"messageBox", MessageBoxFn},
      {"getCurrentException", GetCurrentException},
      {"execute", Execute},
      {"getMAXIniFile", GetMAXIniFile},
      {"getINISetting", GetINISetting},
      {"setINISetting", SetINISetting},
      {"hasINISetting", HasINISetting},
      {"delINISetting", DelINISetting},
      {"getNodeByName", GetNodeByName},
      {"isValidNode", IsValidNode},
      {"isValidObj", IsValidObj},
      {"delete", Delete},
      {"select", Select},
      {"selectMore", SelectMore},
      {"deselect", Deselect},
      {"clearSelection", ClearSelection},
      {"getAnimByHandle", GetAnimByHandle},
      {"getHandleByAnim", GetHandleByAnim},
      {"maxOps.getNodeByHandle", GetNodeByHandle},
      {"getSubAnim", GetSubAnim},
      {"getSubAnimName", GetSubAnimName},
      {"getSubAnimNames", GetSubAnimNames},
      {"numKeys", NumKeys},
      {"getKeyTime", GetKeyTime},
      {"addNewKey", AddNewKey},
      {"deleteKeys", DeleteKeys},
      {"redrawViews", RedrawViews},
      {"completeRedraw", RedrawViews},
      {"resetMaxFile", ResetMaxFile},
      {"saveMaxFile", SaveMaxFile},
      {"loadMaxFile", LoadMaxFile},
      {"classOf", ClassOfFn},
      {"superClassOf", SuperClassOfFn},
      {"isKindOf", IsKindOf},
      {"getProperty", GetPropertyFn},
      {"setProperty", SetPropertyFn},
      {"isProperty", IsProperty},
      {"append", Append},
      {"join", Join},
      {"findItem", FindItem},
      {"deleteItem", DeleteItem},
      {"insertItem", InsertItem},
      {"copy", Copy},
      {"makeUniqueArray", MakeUniqueArray},
      {"sort", Sort},
      {"amax", [](ScriptCall& c) { return ExtremeOf(c, true); }},
      {"amin", [](ScriptCall& c) { return ExtremeOf(c, false); }},
      {"filterString", FilterString},
      {"substring", Substring},
      {"findString", FindString},
      {"toLower", ToLowerFn},
      {"toUpper", ToUpperFn},
      {"matchPattern", MatchPattern},
      {"substituteString", SubstituteString},
      {"trimLeft", [](ScriptCall& c) { return Trim(c, true); }},
      {"trimRight", [](ScriptCall& c) { return Trim(c, false); }},
      {"replace", Replace},
      {"formattedPrint", FormattedPrint},
      {"abs", Abs},
      {"degToRad",
       [](ScriptCall& c) {
         return Math1(
             c, [](double x) { return x; }, true, false);
       }},
      {"radToDeg",
       [](ScriptCall& c) {
         return Math1(
             c, [](double x) { return x; }, false, true);
       }},
      {"floor",
       [](ScriptCall& c) {
         return Math1(
             c, [](double x) { return std::floor(x); }, false, false);
       }},
      {"ceil",
       [](ScriptCall& c) {
         return Math1(
             c, [](double x) { return std::ceil(x); }, false, false);
       }},
      {"sqrt",
       [](ScriptCall& c) {
         return Math1(
             c, [](double x) { return std::sqrt(x); }, false, false);
       }},
      {"exp",
       [](ScriptCall& c) {
         return Math1(
             c, [](double x) { return std::exp(x); }, false, false);
       }},
      {"log",
       [](ScriptCall& c) {
         return Math1(
             c, [](double x) { return std::log(x); }, false, false);
       }},
      {"log10",
       [](ScriptCall& c) {
         return Math1(
             c, [](double x) { return std::log10(x); }, false, false);
       }},
      {"sin",
       [](ScriptCall& c) {
         return Math1(
             c, [](double x) { return std::sin(x); }, true, false);
       }},
      {"cos",
       [](ScriptCall& c) {
         return Math1(
             c, [](double x) { return std::cos(x); }, true, false);
       }},
      {"tan",
       [](ScriptCall& c) {
         return Math1(
             c, [](double x) { return std::tan(x); }, true, false);
       }},
      {"asin",
       [](ScriptCall& c) {
         return Math1(
             c, [](double x) { return std::asin(x); }, false, true);
       }},
      {"acos",
       [](ScriptCall& c) {
         return Math1(
             c, [](double x) { return std::acos(x); }, false, true);
       }},
      {"atan",
       [](ScriptCall& c) {
         return Math1(
             c, [](double x) { return std::atan(x); }, false, true);
       }},
      {"atan2", Atan2},
      {"mod", Mod},
      {"pow", Pow},
      {"length", LengthFn},
      {"normalize", NormalizeFn},
      {"dot", Dot},
      {"cross", Cross},
      {"distance", Distance},
      {"inverse", InverseFn},
      {"transMatrix", TransMatrixFn},
      {"scaleMatrix", ScaleMatrixFn},
      {"rotateXMatrix", [](ScriptCall& c) { return RotateMatrix(c, RotateXMatrix); }},
      {"rotateYMatrix", [](ScriptCall& c) { return RotateMatrix(c, RotateYMatrix); }},
      {"rotateZMatrix", [](ScriptCall& c) { return RotateMatrix(c, RotateZMatrix); }},
      {"quatToEuler", QuatToEulerFn},
  };
  for (const NamedFn& f : kFunctions) RegisterScriptGlobal(f.name, f.fn);
  RegisterLibraryGlobals();
  RegisterAttributeGlobals();

  RegisterScriptGlobalVariable(
      "sliderTime",
      [](ScriptRunner&) { return ScriptValue(FPValue::Time(GetCOREInterface()->GetTime())); },
      SetSliderTime);
  RegisterScriptGlobalVariable(
      "currentTime", [](ScriptRunner& r) { return ScriptValue(FPValue::Time(r.CurrentTime())); },
      nullptr);
  RegisterScriptGlobalVariable(
      "animationRange",
      [](ScriptRunner&) {
        const Interval range = GetCOREInterface()->GetAnimRange();
        return ScriptValue::OfInterval(range.Start(), range.End());
      },
      SetAnimationRange);
  RegisterScriptGlobalVariable(
      "frameRate",
      [](ScriptRunner&) { return ScriptValue(FPValue(GetCOREInterface()->GetFrameRate())); },
      SetFrameRate);
  RegisterScriptGlobalVariable(
      "ticksPerFrame",
      [](ScriptRunner&) { return ScriptValue(FPValue(GetCOREInterface()->GetTicksPerFrame())); },
      nullptr);
  RegisterScriptGlobalVariable(
      "selection",
      [](ScriptRunner&) {
        Interface* ip = GetCOREInterface();
        std::vector<INode*> nodes;
        for (int i = 0; i < ip->GetSelNodeCount(); ++i) nodes.push_back(ip->GetSelNode(i));
        return NodeArray(nodes);
      },
      nullptr);
  RegisterScriptGlobalVariable(
      "objects", [](ScriptRunner&) { return NodeArray(AllNodes()); }, nullptr);
  RegisterScriptGlobalVariable(
      "rootNode",
      [](ScriptRunner&) { return ScriptValue(FPValue(GetCOREInterface()->GetRootNode())); },
      nullptr);
  RegisterScriptGlobalVariable(
      "pi", [](ScriptRunner&) { return ScriptValue(FPValue(std::numbers::pi)); }, nullptr);
  RegisterScriptGlobalVariable(
      "x_axis", [](ScriptRunner&) { return ScriptValue(FPValue(Point3(1, 0, 0))); }, nullptr);
  RegisterScriptGlobalVariable(
      "y_axis", [](ScriptRunner&) { return ScriptValue(FPValue(Point3(0, 1, 0))); }, nullptr);
  RegisterScriptGlobalVariable(
      "z_axis", [](ScriptRunner&) { return ScriptValue(FPValue(Point3(0, 0, 1))); }, nullptr);
}

}  // namespace script_internal
