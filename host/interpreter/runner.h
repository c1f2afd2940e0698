// Copyright Marvolith contributors.
// The script runner of the headless host: runs script text (the host's "run this script") in a
// subset of the host's scripting language, against the open scene.
//
// The language, in brief (identifiers and names compare without case):
//   values      12  1.5  1e3  0x1F  10f (frames)  100t (ticks)  "text\n"  @"C:\verbatim"  #name
//               true false on off undefined ok  [x, y]  [x, y, z]  [x, y, z, w]  #(1, "a", #b)
//   variables   x = 1   local a, b = 2   global g   x += 1 (also -= *= /=)
//   access      $Box001  $'two words'  $ (the selection)  obj.prop  obj.prop = v  arr[1]
//               $a.pos.controller  $a.rotation.controller.x_rotation.controller
//   calls       f a b key:v   f()   obj.Method a key:v   obj.interfaceName.Method()
//               ClassName key:v ... (makes an object; a scene object class also makes a node)
//   operators   + - * / ^  == != < <= > >=  and or not  x as string|integer|float|name|...
//   control     ( a; b )  if c then a else b  if c do a  while c do a  do a while c
//               for i = 1 to n by s where c do|collect e   for x in arr do|collect e
//               case [x] of ( 1: a  default: b )  try a catch b  throw "text"
//               fn name a b key:1 = body  return v  exit [with v]  continue
//   by reference fn f &a &key: = (a = 1)  called f &v key:&w; & takes a variable, a struct
//               member or property (&s.a), or an array element (&arr[2]). A by-reference
//               parameter reads and sets that place, also from closures made in the call;
//               given a plain value it is a local copy, and & to a plain parameter or a native
//               function passes the value.
//   structs     struct Foo (a, b = 2, fn sum = a + b, on create do (...))  Foo 1 2  Foo b:3
//               s.a  s.a = 1  s.sum()  copy s; instances are shared like arrays, member
//               functions see and set the members and call each other by name, and defaults
//               are made for each instance in member order.
//   contexts    at time t e   animate on e   undo "label" on e   undo off e
//               with animate on, undo off e   with redraw off e
//               in coordsys world|parent|local|gimbal|<node>|<matrix3> e
//   commands    max undo   max redo
// A call's arguments are operands on the same line: "f -1" subtracts 1 from f, "f (-1)" calls it.
//
// Built-in globals: print format messageBox execute getCurrentException; getMAXIniFile
// getINISetting setINISetting hasINISetting delINISetting; getNodeByName isValidNode isValidObj
// delete select selectMore deselect clearSelection getAnimByHandle getHandleByAnim
// maxOps.getNodeByHandle getSubAnim getSubAnimName getSubAnimNames numKeys getKeyTime addNewKey
// deleteKeys redrawViews resetMaxFile saveMaxFile loadMaxFile; classOf superClassOf isKindOf
// getProperty setProperty isProperty; append join findItem deleteItem insertItem copy
// makeUniqueArray sort amax amin; filterString substring findString toLower toUpper
// matchPattern substituteString trimLeft trimRight replace formattedPrint; abs floor ceil sqrt
// exp log log10 sin cos tan asin acos atan atan2 mod pow length normalize dot cross distance
// inverse transMatrix scaleMatrix rotateXMatrix rotateYMatrix rotateZMatrix quatToEuler; the
// constructors point2 point3 point4 quat angleAxis eulerAngles color matrix3 interval; the
// variables sliderTime currentTime animationRange frameRate ticksPerFrame selection objects
// rootNode pi x_axis y_axis z_axis.
//
// Nodes: pos and transform are world space at the evaluation time, rotation the world rotation
// and scale the scale factors under the parent; setting pos moves the position track only.
// Quaternions, eulerAngles and angleAxis follow the host's Quat convention (host/math/quat.h).
// Arrays compare element by element.
//
// More globals (runner_library.cpp): isDeleted hide unhide addModifier deleteModifier move
// rotate scale (in the axes of `in coordsys`, about each node's pivot) LockedTracksMan.setLocks
// LockedTracksMan.getLocked theHold.Begin theHold.Accept theHold.Cancel theHold.Holding
// toolMode.coordsys getRefCoordSys maxOps.pivotMode numSplines numKnots getKnotPoint getInVec
// getOutVec addNewSpline addKnot updateShape doesFileExist getFiles createFile openFile
// stringStream close flush readLine eof deleteFile getFilenamePath getFilenameFile
// getFilenameType; print and format take to:<stream>. Controllers add axisOrder (Euler tracks,
// 1 to 9) and, on list controllers, count active available weight and the methods getName
// setName setActive getActive delete. obj[i] and obj[#name] are an object's tracks.
//
// Not supported, each a syntax error naming it: rollout and the other definitions of tools and
// plug-ins, mapped functions, about, path names with wildcards or levels.
//
// Errors. A failure stops the script (unless a try catches it) and is reported as
// "-- <message> (line L, column C)" where the place is that of the expression that failed.
// Messages follow the host's script: "Syntax error: at <token>, expected <what>",
// "Unknown property: "name" in <value>", "Type error: Call needs function or class, got: ...",
// "No ""+"" function for <value>", "Runtime error: ...", and the host's own script errors
// (RuntimeError, ArgCountError, ConversionError, out-of-range texts) with their exact text.
// A runaway script stops with "Runtime error: ..." at a step limit (loops) or a nesting limit
// (recursion); these cannot be caught by try.
#pragma once

#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "host/interpreter/runner_value.h"

/// Limits of one runner.
struct ScriptRunnerOptions {
  /// Evaluation steps (one per expression evaluated) allowed in one outermost Run.
  long long max_steps = 20'000'000;
  /// Deepest nesting of evaluation (expressions inside expressions, function calls).
  int max_depth = 1000;
};

/// What Run answers: the script's value (its last expression's), or the error that stopped it.
struct ScriptResult {
  bool ok = true;
  ScriptValue value;
  ScriptError error;
  /// "-- <message> (line L, column C)" for a failed run, "" otherwise.
  std::string ErrorText() const { return ok ? std::string() : error.Text(); }
};

class ScriptRunner;

/// A keyword argument as a native function receives it.
struct ScriptKeyArg {
  std::string name;
  ScriptValue value;
};

/// The arguments of one call of a native function, and the runner it runs in.
class ScriptCall {
 public:
  ScriptCall(ScriptRunner& runner,
             std::string_view function,
             std::span<const ScriptValue> args,
             std::span<const ScriptKeyArg> keys)
      : runner_(runner), function_(function), args_(args), keys_(keys) {}

  ScriptRunner& Runner() const { return runner_; }
  /// The name the function was called by.
  std::string_view Function() const { return function_; }
  int ArgCount() const { return static_cast<int>(args_.size()); }
  /// Positional argument i; i must be below ArgCount() (check with ExpectArgs first).
  const ScriptValue& Arg(int i) const { return args_[static_cast<size_t>(i)]; }
  std::span<const ScriptValue> Args() const { return args_; }
  std::span<const ScriptKeyArg> Keys() const { return keys_; }
  /// The keyword argument called name (compared without case), or null.
  const ScriptValue* Key(std::string_view name) const;
  /// Raises ArgCountError ("Argument count error: <function> wanted <n>, got <m>") unless
  /// min_count <= ArgCount() <= max_count.
  void ExpectArgs(int min_count, int max_count) const;
  /// The time scripts evaluate at: that of an enclosing `at time`, else the current time.
  TimeValue Time() const;

 private:
  ScriptRunner& runner_;
  std::string_view function_;
  std::span<const ScriptValue> args_;
  std::span<const ScriptKeyArg> keys_;
};

/// Runs scripts. A runner keeps the global variables that its scripts set between runs; local
/// variables, the scopes of blocks and functions, end with each run. Objects a script creates
/// and leaves unreferenced (controllers made and never assigned, say) are deleted at the end of
/// the outermost run unless a global variable holds them.
///
/// Runs may nest: a native or published function may run another script on the same runner
/// (the nested run starts at global scope and shares the step and nesting limits).
class ScriptRunner {
 public:
  explicit ScriptRunner(ScriptRunnerOptions options = {});
  ~ScriptRunner();
  ScriptRunner(const ScriptRunner&) = delete;
  ScriptRunner& operator=(const ScriptRunner&) = delete;

  /// Parses and runs text. Never throws: every error, syntax or runtime, is in the result.
  ScriptResult Run(std::string_view text);

  /// Where print and format write; by default standard output. An empty function restores it.
  void SetOutput(std::function<void(std::string_view)> out);
  /// Writes text to the output.
  void Print(std::string_view text);
  /// Shows a message box. The headless host has no windows: the handler receives the text and
  /// the title; by default the output gets "<title>: <text>" and a line break.
  void SetMessageBoxHandler(std::function<void(std::string_view text, std::string_view title)> fn);
  void MessageBox(std::string_view text, std::string_view title);

  /// The global variable name, undefined when unset.
  ScriptValue GetGlobal(std::string_view name) const;
  void SetGlobal(std::string_view name, ScriptValue value);

  /// The time scripts evaluate at: that of an enclosing `at time`, else the core interface's.
  TimeValue CurrentTime() const;

  /// The evaluator, for the runner's own sources (host/interpreter/internal/runner_impl.h).
  class Impl;
  Impl& GetImpl() { return *impl_; }

 private:
  std::unique_ptr<Impl> impl_;
};

/// The process-wide runner of the host's script entry (ExecuteMAXScriptScript). It is never
/// destroyed, so that objects it keeps outlive every user of the host.
ScriptRunner& TheScriptRunner();

// When its library is loaded, TheScriptRunner() becomes the engine behind the host's script entry
// (ExecuteMAXScriptScript, host/script/script_entry.h); a script's value comes back in published
// form (ScriptValue::ToFPValue).

// Global functions and variables. Names compare without case; a dotted name ("maxOps.foo")
// makes its first part a global structure whose member is the function. Built-in globals are
// registered when the first runner is made; later registrations may not replace them.

/// Registers a global function; false (nothing changed) when the name is taken.
bool RegisterScriptGlobal(std::string_view name, ScriptNativeFn fn);
/// Registers a global variable read by getter and, when setter is given, written by it (a
/// variable without setter is read-only). False when the name is taken.
bool RegisterScriptGlobalVariable(std::string_view name,
                                  std::function<ScriptValue(ScriptRunner&)> getter,
                                  std::function<void(ScriptRunner&, const ScriptValue&)> setter);
/// Removes a global registered by the calls above; false when there is none.
bool UnRegisterScriptGlobal(std::string_view name);
