// Copyright Marvolith contributors.
// ScriptValue: a value of the script runner. Published values (FPValue) plus the kinds only
// scripts have: arrays shared by reference, sub-anims, intervals, functions, classes, the
// published interfaces of objects, global structures of functions, struct definitions and their
// instances, Point2 values, and the references that by-reference arguments pass.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/base/ids.h"
#include "host/interpreter/runner_ast.h"
#include "host/math/interval.h"
#include "host/math/point3.h"
#include "host/script/fp_value.h"

class Animatable;
class ClassDesc2;
class ScriptCall;
class ScriptValue;
struct ScriptRef;
struct ScriptScope;

/// A function written in C++ that scripts call: reads its arguments from call and answers a
/// value. It reports a script error by raising one of the errors of script_errors.h, whose text
/// reaches the script (and its try/catch) unchanged.
using ScriptNativeFn = std::function<ScriptValue(ScriptCall& call)>;

/// A function value: native (native set) or defined by a script (def set).
struct ScriptFunction {
  std::string name;
  ScriptNativeFn native;
  /// Keeps def alive while the function exists.
  std::shared_ptr<const ScriptProgram> program;
  const AstNode* def = nullptr;
  /// The scope the function was defined in, kept alive by the function so that it sees the
  /// block's locals after the block ended. A scope usually holds the functions defined in it, a
  /// cycle that the runner breaks once no global reaches the function (end of each run).
  std::shared_ptr<ScriptScope> closure;
};

/// A struct definition made by a script (struct Foo (a, b = 2, fn sum = a + b)). Its instances
/// are scopes (ScriptScope::instance_of set) holding the data members; member functions are
/// bound to an instance when read, so that an instance holds no function that holds it.
struct ScriptStructDef {
  std::string name;
  /// Keeps def alive while the definition exists.
  std::shared_ptr<const ScriptProgram> program;
  /// The AstKind::kStruct node.
  const AstNode* def = nullptr;
  /// The scope the definition was made in: the parent of each instance's scope.
  std::shared_ptr<ScriptScope> closure;

  /// The data member called lower (lower case): its declaration, or null.
  const AstNamed* FindData(std::string_view lower) const;
  /// The member function called lower (lower case): its kFunction node, or null.
  const AstNode* FindFunction(std::string_view lower) const;
};

/// A class as scripts name it: a registered class (desc set; name is its internal name) or one
/// of the runner's own classes of values and super classes (Integer, Point3, helper, ...).
struct ScriptClass {
  ClassDesc2* desc = nullptr;
  std::string name;
  /// A super class (helper, FloatController, ...), which cannot be called to make an object.
  bool super = false;
};

/// A file or string stream of a script (createFile, openFile, stringStream). What a script
/// writes is kept in text and reaches a file when the stream is flushed or closed, or when the
/// last value holding it goes; a stream opened for reading holds the file's contents.
struct ScriptStream {
  ScriptStream() = default;
  ScriptStream(const ScriptStream&) = delete;
  ScriptStream& operator=(const ScriptStream&) = delete;
  ~ScriptStream();
  /// Writes the pending text of a file stream (appending after what an earlier flush wrote);
  /// false when the file cannot be written.
  bool Flush();

  std::string path;  ///< empty for a string stream
  std::string text;
  size_t read_pos = 0;
  size_t flushed = 0;  ///< bytes of text already in the file
  bool writing = false;
  bool open = true;
};

/// Deepest nesting of arrays that printing, comparison and conversion follow; deeper levels
/// print as "..." and make comparison and conversion a script error.
inline constexpr int kMaxArrayNesting = 64;

/// One value of a script.
///
/// kValue holds an FPValue in its script form (1-based indices, degrees, percentages, arrays
/// never: they are kArray). Arrays are shared: copying the value shares the elements, as
/// script arrays are references; an array never contains itself (the runner refuses such an
/// insertion), so sharing cannot make a cycle. Objects are held by handle (in the FPValue, or as
/// the owner of a sub-anim or interface), so a value never dangles when its object is deleted.
class ScriptValue {
 public:
  enum class Kind : std::uint8_t {
    kValue,           ///< an FPValue
    kArray,           ///< #(...)
    kSubAnim,         ///< a track: the parent animatable and its sub-anim number
    kInterval,        ///< (interval start end)
    kFunction,        ///< a function
    kClass,           ///< a class
    kMixin,           ///< a published interface of an object: owner and interface id
    kStruct,          ///< a global structure of functions such as maxOps
    kStream,          ///< a file or string stream
    kStructDef,       ///< a struct definition made by a script
    kStructInstance,  ///< an instance of one, shared by reference like an array
    kPoint2,          ///< [x, y]
    kRef,             ///< &place: only ever a by-reference argument on its way to a parameter
  };

  /// undefined.
  ScriptValue() = default;
  /// v in its script form (ToScriptValue); a table becomes an array of its elements.
  ScriptValue(const FPValue& v);  // NOLINT: values convert implicitly, as in scripts

  static ScriptValue Array(std::vector<ScriptValue> items = {});
  static ScriptValue SubAnim(Animatable* parent, int index);
  static ScriptValue OfInterval(TimeValue start, TimeValue end);
  static ScriptValue Function(std::shared_ptr<const ScriptFunction> fn);
  static ScriptValue Class(ScriptClass cls);
  static ScriptValue Mixin(Animatable* owner, Interface_ID id);
  static ScriptValue Struct(std::string name);
  static ScriptValue Stream(std::shared_ptr<ScriptStream> stream);
  static ScriptValue StructDef(std::shared_ptr<const ScriptStructDef> def);
  /// An instance: scope holds its data members and has instance_of set.
  static ScriptValue StructInstance(std::shared_ptr<ScriptScope> scope);
  /// A new, empty scope for a struct instance, freed like arrays without recursion however
  /// deeply instances hold instances.
  static std::shared_ptr<ScriptScope> NewInstanceScope();
  static ScriptValue OfPoint2(Point2 p);
  static ScriptValue Reference(std::shared_ptr<const ScriptRef> ref);

  Kind GetKind() const { return kind_; }
  bool IsUndefined() const { return kind_ == Kind::kValue && value_.IsUndefined(); }
  /// A kValue of type t.
  bool Is(FPType t) const { return kind_ == Kind::kValue && value_.Type() == t; }
  /// An integer or a float.
  bool IsNumber() const { return Is(FPType::TYPE_INT) || Is(FPType::TYPE_FLOAT); }
  bool IsArray() const { return kind_ == Kind::kArray; }

  /// The FPValue of a kValue; undefined for the other kinds.
  const FPValue& Fp() const;
  // Readers of kValue contents (see FPValue: the wrong kind reads as zero or null).
  int AsInt() const { return Fp().AsInt(); }
  float AsFloat() const { return Fp().AsFloat(); }
  bool AsBool() const { return Fp().AsBool(); }
  const std::string& AsString() const { return Fp().AsString(); }
  Point3 AsPoint3() const { return Fp().AsPoint3(); }
  INode* AsNode() const { return Fp().AsNode(); }
  Control* AsControl() const { return Fp().AsControl(); }
  /// The reference target of a node, target or controller value, or null.
  ReferenceTarget* AsRefTarg() const { return Fp().AsRefTarg(); }

  // Arrays. Items() of a value that is not an array is an empty list that must not be changed.
  int Count() const;
  std::vector<ScriptValue>& Items() const;
  /// The two values are the same array (not just equal ones).
  bool SameArray(const ScriptValue& other) const;
  /// True when this value is array or holds it, at any depth (walked without recursion).
  bool Contains(const ScriptValue& array) const;

  // Sub-anims.
  /// The live parent, or null (not a sub-anim, or the parent was deleted).
  Animatable* SubAnimParent() const;
  int SubAnimIndex() const { return index_; }
  /// The handle of a sub-anim's parent, live or not.
  AnimHandle SubAnimHandle() const { return kind_ == Kind::kSubAnim ? handle_ : 0; }

  ::Interval AsInterval() const { return {start_, end_}; }
  const ScriptFunction* AsFunction() const { return function_.get(); }
  std::shared_ptr<const ScriptFunction> FunctionPtr() const { return function_; }
  const ScriptClass* AsClass() const { return kind_ == Kind::kClass ? class_.get() : nullptr; }

  /// The owner of a kMixin, or null once deleted.
  Animatable* MixinOwner() const;
  Interface_ID MixinID() const { return mixin_id_; }
  /// The interface of a kMixin, or null when its owner is gone.
  FPInterface* AsMixin() const;

  const std::string& StructName() const { return name_; }
  /// The stream of a kStream, or null.
  ScriptStream* AsStream() const { return kind_ == Kind::kStream ? stream_.get() : nullptr; }

  /// The definition of a kStructDef, or null.
  const ScriptStructDef* AsStructDef() const {
    return kind_ == Kind::kStructDef ? struct_def_.get() : nullptr;
  }
  std::shared_ptr<const ScriptStructDef> StructDefPtr() const {
    return kind_ == Kind::kStructDef ? struct_def_ : nullptr;
  }
  /// The scope of a kStructInstance, or null.
  ScriptScope* AsStructInstance() const {
    return kind_ == Kind::kStructInstance ? scope_.get() : nullptr;
  }
  std::shared_ptr<ScriptScope> InstancePtr() const {
    return kind_ == Kind::kStructInstance ? scope_ : nullptr;
  }
  bool IsPoint2() const { return kind_ == Kind::kPoint2; }
  /// The point of a kPoint2; (0, 0) for the other kinds.
  Point2 AsPoint2() const { return kind_ == Kind::kPoint2 ? point2_ : Point2(); }
  /// The place of a kRef, or null.
  const ScriptRef* AsRef() const { return kind_ == Kind::kRef ? ref_.get() : nullptr; }

  /// The value as published functions and the host's script entry take it: arrays become
  /// TYPE_VALUE_TAB tables of their converted elements (arrays nested deeper than
  /// kMaxArrayNesting raise a script error), a sub-anim a TYPE_SUBANIM value (parent and
  /// number; an argument of an object type receives the object at the track), a mixin its
  /// interface; intervals, functions, classes, structures, struct definitions and instances,
  /// Point2 values and references have no published form and give undefined.
  FPValue ToFPValue() const;

 private:
  struct ArrayDeleter {
    void operator()(std::vector<ScriptValue>* items) const;
  };
  struct InstanceDeleter {
    void operator()(ScriptScope* scope) const;
  };
  struct Pending;
  /// Moves the arrays and instances that v holds into pending.
  static void TakeShared(ScriptValue& v, Pending& pending);
  /// Frees what pending holds, taking the contents of each last holder first.
  static void FreePending(Pending& pending);

  Kind kind_ = Kind::kValue;
  FPValue value_;
  std::shared_ptr<std::vector<ScriptValue>> array_;
  AnimHandle handle_ = 0;  // sub-anim parent or mixin owner
  int index_ = 0;
  TimeValue start_ = 0;
  TimeValue end_ = 0;
  Interface_ID mixin_id_;
  std::shared_ptr<const ScriptFunction> function_;
  std::shared_ptr<const ScriptClass> class_;
  std::string name_;
  std::shared_ptr<ScriptStream> stream_;
  std::shared_ptr<const ScriptStructDef> struct_def_;
  std::shared_ptr<ScriptScope> scope_;
  std::shared_ptr<const ScriptRef> ref_;
  Point2 point2_;
};

/// Where a by-reference argument (&place) reads and writes. A variable is held by its scope (a
/// local, a parameter, the member of a struct instance), so the place outlives the block that
/// made it; an array element by the array, which is shared.
struct ScriptRef {
  enum class Kind : std::uint8_t {
    kVariable,  ///< scope->vars[name]
    kGlobal,    ///< the global variable name (a registered one through its getter and setter)
    kElement,   ///< container[index] of an array, 1-based; writing past the end grows it
    kProperty,  ///< the property name of the object container
  };
  Kind kind = Kind::kVariable;
  std::shared_ptr<ScriptScope> scope;
  std::string name;  ///< lower case for variables; as written for properties
  ScriptValue container;
  int index = 0;
};

/// The value as print shows it: strings quoted, arrays as #(1, 2), sub-anims as
/// SubAnim:X_Position, intervals as (interval 0f 100f), classes by name, functions as name(),
/// Point2 values as [1,2], struct definitions as #Struct:Foo(a, b, sum), instances with their
/// data members as (Foo a:1 b:2).
/// Everything else as ToScriptString prints it.
std::string ScriptValueString(const ScriptValue& v);
/// The value as format and `as string` show it: strings and names without quotes or #, all else
/// as ScriptValueString.
std::string ScriptValueText(const ScriptValue& v);

/// Script equality (==): numbers by value (an integer equals the float of the same value; a
/// time equals a number of frames), names without case, strings exactly, objects by identity,
/// arrays element by element, struct definitions and instances by identity, other kinds by
/// contents.
bool ScriptEquals(const ScriptValue& a, const ScriptValue& b);
