// Copyright Marvolith contributors.
// Internals of the script runner shared by its source files: the evaluator state, scopes,
// control-flow signals, and the helpers for operators, properties and globals.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "host/interpreter/runner.h"
#include "host/interpreter/runner_lexer.h"
#include "host/params/param_types.h"
#include "host/script/script_errors.h"

/// A scope of variables: a block, a loop, a function call, the top level of a run, or the data
/// members of a struct instance.
struct ScriptScope : std::enable_shared_from_this<ScriptScope> {
  std::unordered_map<std::string, ScriptValue> vars;  // keys in lower case
  /// Names declared global in this scope: they refer to the global even under a local.
  std::unordered_set<std::string> global_names;
  std::shared_ptr<ScriptScope> parent;
  /// The outermost scope of a run: assigning an unknown name there makes a global.
  bool top = false;
  /// Set for the scope of a struct instance: its definition, whose member functions names in
  /// this scope also find.
  std::shared_ptr<const ScriptStructDef> instance_of;
};

namespace script_internal {

/// An error located in the script: what() is the message, pos where it happened.
class LocatedError : public MAXScriptException {
 public:
  LocatedError(const std::string& message, ScriptPos pos) : MAXScriptException(message), pos(pos) {}
  ScriptPos pos;
};

/// A limit of the runner was reached; not catchable by a script's try.
struct AbortSignal {
  std::string message;
  ScriptPos pos;
};
struct ExitSignal {
  ScriptValue value;
  ScriptPos pos;
};
struct ContinueSignal {
  ScriptPos pos;
};
struct ReturnSignal {
  ScriptValue value;
  ScriptPos pos;
};

/// Raises a script error with message (located by the expression being evaluated).
[[noreturn]] void Raise(const std::string& message);
/// "Unknown property: "name" in <value>".
[[noreturn]] void UnknownProperty(std::string_view name, const ScriptValue& in);
/// "No ""op"" function for <value>".
[[noreturn]] void NoFunction(std::string_view op, const ScriptValue& for_value);

/// The name in lower case (ASCII), the key of variables and globals.
std::string LowerName(std::string_view name);
/// A sub-anim's name as scripts spell it: "X Position" is X_Position.
std::string ScriptSubAnimName(Animatable* parent, int index);

/// A registered global: a function, or a variable with getter and optional setter.
struct GlobalEntry {
  ScriptNativeFn fn;
  /// The function value of fn, named as registered.
  std::shared_ptr<const ScriptFunction> function;
  std::function<ScriptValue(ScriptRunner&)> getter;
  std::function<void(ScriptRunner&, const ScriptValue&)> setter;
};
/// The registered global called name (lower case), or null.
const GlobalEntry* FindGlobal(const std::string& lower_name);
/// True when some registered global is called name.<member>.
bool IsGlobalStruct(const std::string& lower_name);
/// Registers the built-in global functions and variables (once).
void RegisterBuiltinGlobals();

// Operators (runner_operators.cpp).
ScriptValue Arithmetic(TokenKind op, const ScriptValue& a, const ScriptValue& b);
bool Compare(TokenKind op, const ScriptValue& a, const ScriptValue& b);
ScriptValue Negate(const ScriptValue& a);
/// `value as cls`.
ScriptValue ConvertAs(const ScriptValue& value, const ScriptValue& cls);
/// The runner's own class of a value (Integer, Point3, Array, ...) or the registered class of an
/// object (a node answers its base object's class).
ScriptValue ClassOf(const ScriptValue& value);
ScriptValue SuperClassOf(const ScriptValue& value);
/// The runner's own class called name (Integer, Point3, helper, ...), or undefined.
ScriptValue BuiltinClass(std::string_view name);
/// Calls one of the runner's own value classes as a constructor: point3 x y z, point4, quat
/// (x y z w, or angle axis), angleAxis angle axis, eulerAngles x y z (a quat), color r g b,
/// matrix3 (1 for the identity, or four rows), interval start end. Other classes raise.
ScriptValue ConstructBuiltin(const ScriptClass& cls, std::span<const ScriptValue> args);
/// A number as a time: a time stays, a number is frames. Raises a conversion error otherwise.
TimeValue ToTime(const ScriptValue& v);
/// A number read as float; raises a conversion error for anything else.
float ToFloat(const ScriptValue& v);
/// A number read as int (floats truncated); raises a conversion error otherwise.
int ToInt(const ScriptValue& v);
/// A boolean; raises "Type error: <what> requires BooleanClass, got: <v>" otherwise.
bool ToBool(const ScriptValue& v, std::string_view what);
/// A string or name; raises a conversion error otherwise.
const std::string& ToText(const ScriptValue& v);

// Objects (runner_properties.cpp).
/// The animatable a value stands for: a node, target or controller, a sub-anim's own object, a
/// mixin's owner; null otherwise.
Animatable* AnimOf(const ScriptValue& v);
/// Reads property name of obj at t into out; false when obj has no such property.
bool GetProperty(const ScriptValue& obj, std::string_view name, TimeValue t, ScriptValue& out);
/// Writes property name of obj at t; false when obj has no such property. Errors of the
/// value (wrong kind, refused) raise.
bool SetProperty(const ScriptValue& obj, std::string_view name, const ScriptValue& v, TimeValue t);
/// The track named name under obj ($a.pos, $a.pos.controller.x_position, a parameter of an
/// object), as a sub-anim value, or undefined when there is none.
ScriptValue FindSubAnim(const ScriptValue& obj, std::string_view name);
/// The published interface of obj (through its object, for a node) that has a function or
/// property called name, or null.
FPInterface* FindMethodInterface(const ScriptValue& obj, std::string_view name);
/// The value of a sub-anim at t: its controller's value, or its parameter's, or its object.
ScriptValue SubAnimValue(Animatable* parent, int index, TimeValue t);
/// obj with its component name (x, y, z, w of points and quats; r, g, b of colours; row1..row4
/// and translation of matrices; start and end of intervals) set to v; false when obj is not a
/// value with such a component.
bool WithComponent(const ScriptValue& obj,
                   std::string_view name,
                   const ScriptValue& v,
                   ScriptValue& out);
/// Sets a sub-anim's value at t (its controller's or parameter's).
void SetSubAnimValue(Animatable* parent, int index, const ScriptValue& v, TimeValue t);
/// Puts controller c at the sub-anim; raises when the parent refuses it.
void AssignSubAnimController(Animatable* parent, int index, const ScriptValue& c);
/// The value of a controller at t in script form (float, Point3, Quat, scale factors, Matrix3).
ScriptValue ControllerValue(Control* c, TimeValue t);
/// The value of an object as a script value (a node, controller or target).
ScriptValue ObjectValue(Animatable* anim);
/// The nodes of a node or an array of nodes; raises a conversion error for anything else.
std::vector<INode*> NodesOf(const ScriptValue& v);
/// The position, rotation or scale track controller of a node's transform controller (pos,
/// position, rotation, scale), as GetPositionController and its siblings answer it, so that a
/// controller that hands out a proxy (the gimbal proxy of a rig transform) is seen as the host's
/// script sees it. False when v is not a node or name is none of these.
bool NodePartController(const ScriptValue& v, std::string_view name, ScriptValue& out);
/// Properties of controllers beyond their parameters: axisOrder of Euler tracks, the list
/// controllers' count, active, available and weight. False when name is none of them.
bool GetControllerExtra(Control* c, std::string_view name, ScriptValue& out);
bool SetControllerExtra(Control* c, std::string_view name, const ScriptValue& v);
/// Methods of list controllers (getName, setName, setActive, getActive, delete, count): false
/// when obj is not a list controller or name is none of them.
bool CallListMethod(const ScriptValue& obj,
                    std::string_view name,
                    std::span<const ScriptValue> args,
                    ScriptValue& out);

// The coordinate system of `in coordsys` (runner_library.cpp).
/// Makes v (#world, #parent, #local, #screen, #grid, #gimbal, a node or a matrix) the current
/// coordinate system until the matching PopCoordSys; raises for anything else.
void PushCoordSys(const ScriptValue& v);
void PopCoordSys();
/// True inside `in coordsys` with a system other than world.
bool HasCoordSys();
/// The axes of the current coordinate system for node at t, without scale: the identity for
/// world (and for the view-based systems, which a headless host has no view for).
Matrix3 CoordSysAxes(INode* node, TimeValue t);
/// The frame that positions are read and written in: as CoordSysAxes, but with the parent's
/// whole transform for parent, so that a child's position reads as the parent's controller sees
/// it.
Matrix3 CoordSysFrame(INode* node, TimeValue t);
/// Registers the functions of runner_library.cpp (scene edits, files, shapes, undo).
void RegisterLibraryGlobals();

// Custom attributes (runner_attributes.cpp).
/// The custom attribute of anim's container whose name is name (without case), or undefined.
ScriptValue AttribByName(Animatable* anim, std::string_view name);
/// Registers custAttributes.add, count, get, delete and getDefs.
void RegisterAttributeGlobals();
/// v as an entry of a parameter of type (a base type) takes it; raises when it does not convert.
FPValue ConvertParamValue(ParamType2 type, const ScriptValue& v);

// Structs (runner_structs.cpp).
/// Reads member name of a struct instance: a data member's value, or a member function bound to
/// the instance. False when the instance has no such member.
bool GetStructMember(const ScriptValue& instance, std::string_view name, ScriptValue& out);
/// Writes member name of a struct instance; false when it has no such member.
bool SetStructMember(const ScriptValue& instance, std::string_view name, const ScriptValue& v);
/// The member function fn of a struct, bound to instance: its calls see and set the members.
ScriptValue BindStructFunction(const std::shared_ptr<ScriptScope>& instance, const AstNode& fn);

/// Wildcard match of s against p: * any run, ? one character; case-blind when ignore_case.
bool WildcardMatch(std::string_view s, std::string_view p, bool ignore_case);

/// The nodes of the open scene, parents first.
std::vector<INode*> AllNodes();
/// The node called name (compared without case), or null.
INode* FindNodeByName(std::string_view name);

}  // namespace script_internal

/// The evaluator behind ScriptRunner.
class ScriptRunner::Impl {
 public:
  Impl(ScriptRunner& self, ScriptRunnerOptions options);
  ~Impl();

  ScriptResult Run(std::string_view text);

  /// Evaluates n; raises located errors and passes control-flow signals.
  ScriptValue Eval(const AstNode& n);
  /// Calls fn (function or class) with the arguments.
  ScriptValue Apply(const ScriptValue& fn,
                    std::string_view name,
                    std::span<const ScriptValue> args,
                    std::span<const ScriptKeyArg> keys);
  /// Runs a parsed program at global scope (execute).
  ScriptValue EvalProgram(const std::shared_ptr<const ScriptProgram>& program);

  TimeValue CurrentTime() const;
  /// The text of the error being handled by the innermost catch, or undefined.
  ScriptValue CurrentException() const;
  /// Remembers an object the script made, to delete it after the run if nothing holds it.
  void NoteCreated(Animatable* anim);
  /// A new instance with the same definition and member values as instance (copy s).
  ScriptValue CopyStructInstance(const ScriptValue& instance);
  /// The value at a by-reference place.
  ScriptValue ReadRef(const ScriptRef& ref) const;
  /// Writes v at a by-reference place.
  void WriteRef(const ScriptRef& ref, const ScriptValue& v);

  ScriptRunner& self;
  ScriptRunnerOptions options;
  std::unordered_map<std::string, ScriptValue> globals;
  std::function<void(std::string_view)> output;
  std::function<void(std::string_view, std::string_view)> message_box;

 private:
  static std::size_t StackBudget();
  ScriptValue EvalNode(const AstNode& n);
  ScriptValue EvalArray(const AstNode& n);
  ScriptValue EvalOperator(const AstNode& n);
  ScriptValue EvalJump(const AstNode& n);
  ScriptValue EvalLiteral(const AstNode& n);
  ScriptValue EvalPath(const AstNode& n);
  ScriptValue EvalPoint(const AstNode& n);
  ScriptValue EvalBlock(const AstNode& n);
  ScriptValue EvalProperty(const AstNode& n);
  ScriptValue EvalIndex(const AstNode& n);
  ScriptValue EvalCall(const AstNode& n);
  ScriptValue EvalAssign(const AstNode& n);
  ScriptValue EvalDeclare(const AstNode& n);
  ScriptValue EvalIf(const AstNode& n);
  ScriptValue EvalWhile(const AstNode& n);
  ScriptValue EvalFor(const AstNode& n);
  ScriptValue EvalTry(const AstNode& n);
  ScriptValue EvalContext(const AstNode& n);
  ScriptValue EvalFunction(const AstNode& n);
  ScriptValue EvalCase(const AstNode& n);
  ScriptValue EvalAttributes(const AstNode& n);
  ScriptValue EvalStruct(const AstNode& n);
  /// The by-reference place of &place (a variable, a property or an array element).
  ScriptValue EvalRef(const AstNode& place);
  /// Calls a struct definition: members by position, then by keyword, then their defaults, then
  /// the create handler.
  ScriptValue ConstructStruct(const std::shared_ptr<const ScriptStructDef>& def,
                              std::span<const ScriptValue> args,
                              std::span<const ScriptKeyArg> keys);
  /// Replaces by-reference arguments by the values at their places, for callees that take
  /// values (native functions, classes, published functions): args and keys then view the
  /// stores. Nothing is copied when no argument is a reference.
  void Dereference(std::span<const ScriptValue>& args,
                   std::span<const ScriptKeyArg>& keys,
                   std::vector<ScriptValue>& arg_store,
                   std::vector<ScriptKeyArg>& key_store) const;
  /// Remembers a scope that may sit in a cycle (a closure's, an instance's), so that the end of
  /// the run can break the cycle once nothing reaches the scope.
  void NoteCaptured(const std::shared_ptr<ScriptScope>& scope);

  ScriptValue CallMethod(const ScriptValue& obj,
                         std::string_view name,
                         std::span<const ScriptValue> args,
                         std::span<const ScriptKeyArg> keys);
  ScriptValue CallScriptFunction(const ScriptFunction& fn,
                                 std::span<const ScriptValue> args,
                                 std::span<const ScriptKeyArg> keys);
  ScriptValue CreateObject(const ScriptClass& cls,
                           std::span<const ScriptValue> args,
                           std::span<const ScriptKeyArg> keys);
  /// The object a track suffix (controller, track, isAnimated) applies to: for property a.b,
  /// the track b of a when there is one, else the value of a.b.
  ScriptValue TrackOrValue(const AstNode& property);
  ScriptValue PropertyOf(const ScriptValue& obj, std::string_view name);
  void Assign(const AstNode& place, const ScriptValue& v);
  void AssignIndex(const AstNode& place, const ScriptValue& v);
  void AssignProperty(const AstNode& place, const ScriptValue& v);

  // Variables.
  ScriptValue Lookup(const std::string& lower) const;
  void SetVariable(const std::string& lower, const ScriptValue& v);
  /// Defines name in the innermost scope (a global at the top level of a run).
  void Define(const std::string& lower, const ScriptValue& v);

  /// Deletes the objects the script made that nothing holds: no reference, no global, not keep.
  void CollectGarbage(const ScriptValue* keep = nullptr);
  /// Empties the scopes that functions captured and that no global (nor keep) reaches, which
  /// breaks the cycles of scopes and the functions defined in them; all of them when all is set.
  void ReleaseClosures(const ScriptValue* keep, bool all);

  class ScopeSwap;
  class ProgramSwap;

  std::shared_ptr<ScriptScope> env_;
  std::shared_ptr<const ScriptProgram> program_;
  std::vector<TimeValue> times_;
  std::vector<std::string> exceptions_;
  std::vector<AnimHandle> created_;
  std::vector<std::weak_ptr<ScriptScope>> captured_;  // scopes that may sit in cycles
  size_t captured_pruned_ = 0;                        // size of captured_ after its last pruning
  std::uintptr_t stack_base_ = 0;  // frame address of the outermost Run
  long long steps_ = 0;
  int depth_ = 0;
  int runs_ = 0;  // nesting of Run
};

// Makes scope the innermost scope until the guard ends.
class ScriptRunner::Impl::ScopeSwap {
 public:
  ScopeSwap(Impl& impl, std::shared_ptr<ScriptScope> scope)
      : impl_(impl), saved_(std::exchange(impl.env_, std::move(scope))) {}
  ~ScopeSwap() { impl_.env_ = std::move(saved_); }
  ScopeSwap(const ScopeSwap&) = delete;
  ScopeSwap& operator=(const ScopeSwap&) = delete;

 private:
  Impl& impl_;
  std::shared_ptr<ScriptScope> saved_;
};

// Makes program the one that function definitions keep alive until the guard ends.
class ScriptRunner::Impl::ProgramSwap {
 public:
  ProgramSwap(Impl& impl, std::shared_ptr<const ScriptProgram> program)
      : impl_(impl), saved_(std::exchange(impl.program_, std::move(program))) {}
  ~ProgramSwap() { impl_.program_ = std::move(saved_); }
  ProgramSwap(const ProgramSwap&) = delete;
  ProgramSwap& operator=(const ProgramSwap&) = delete;

 private:
  Impl& impl_;
  std::shared_ptr<const ScriptProgram> saved_;
};

/// A new scope inside parent.
inline std::shared_ptr<ScriptScope> ChildScope(const std::shared_ptr<ScriptScope>& parent) {
  auto scope = std::make_shared<ScriptScope>();
  scope->parent = parent;
  return scope;
}
