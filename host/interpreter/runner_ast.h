// Copyright Marvolith contributors.
// The syntax tree of the script runner: what the parser makes of a script text and the
// evaluator walks.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/script/fp_value.h"

/// A place in a script text: 1-based line and 1-based column, counted in bytes.
struct ScriptPos {
  int line = 1;
  int column = 1;
};

/// An error of a script: its message without the listener's "-- " prefix, and where it happened.
struct ScriptError {
  std::string message;
  ScriptPos pos;
  /// The one-line form: "-- <message> (line L, column C)".
  std::string Text() const {
    return "-- " + message + " (line " + std::to_string(pos.line) + ", column " +
           std::to_string(pos.column) + ")";
  }
};

/// What a syntax node is. The layout of AstNode::children for each kind is given here; a slot
/// marked "or null" holds a null pointer when the text left that part out.
enum class AstKind : std::uint8_t {
  kLiteral,     ///< value; op is kTimeFrames or kTimeTicks for a time literal held as a number
  kIdentifier,  ///< text: the variable's name
  kPathName,    ///< text: the node name after $; empty for $ alone (the selection)
  kArray,       ///< #(...): children are the elements
  kPoint,       ///< [x, y], [x, y, z] or [x, y, z, w]: children are the components
  kBlock,       ///< ( ... ): children are the expressions; a new scope
  kProperty,    ///< children {object}; text: the property name
  kIndex,       ///< children {object, index}
  kCall,        ///< children {callee, positional arguments...}; keys: keyword arguments
  kUnary,       ///< op: kMinus; children {operand}
  kBinary,      ///< op: an operator token kind; children {left, right}
  kAnd,         ///< children {left, right}; the right side runs only when needed
  kOr,          ///< children {left, right}
  kNot,         ///< children {operand}
  kAs,          ///< children {value, class}
  kAssign,      ///< op: kAssign or a compound operator token kind; children {place, value}
  kDeclare,     ///< op: kLocal or kGlobal; keys: the names with their initial values (or null)
  kIf,          ///< children {test, then, else or null}
  kWhile,       ///< children {test, body}
  kDoWhile,     ///< children {body, test}
  kFor,         ///< text: variable; op: kDo or kCollect; children {from, to or null, by or
                ///< null, where or null, body}. Without `to` it is a for ... in loop.
  kTry,         ///< children {body, handler}
  kContext,     ///< op: a ContextKind; children {argument, undo label or null, body}
  kFunction,    ///< text: name; keys: the parameters in order; children {body}
  kReturn,      ///< children {value or null}
  kExit,        ///< children {value or null}
  kContinue,    ///< no children
  kThrow,       ///< children {value}
  kCase,        ///< children {subject or null, then label and expression pairs; a null label
                ///< is the default}
  kAttributes,  ///< text: the definition's name; keys: its clauses (attribID:); children: one
                ///< kParameters per parameters clause (rollouts are dropped by the parser)
  kParameters,  ///< text: the block's name; children: one kParamDef per parameter
  kParamDef,    ///< text: the parameter's name; keys: its clauses (type:, default:, ui:, ...)
  kStruct,      ///< text: the name; keys: the data members in order with their defaults (or
                ///< null); children {on create body or null, member kFunction nodes...}
  kRef,         ///< &place as an argument: children {identifier, property or index}
};

/// Context expressions (AstKind::kContext).
enum class ContextKind : std::uint8_t { kAtTime, kAnimate, kUndo, kRedraw, kQuiet, kCoordsys };

/// Flags of AstNode::op for the kinds that use it.
inline constexpr int kTimeFrames = 1;  ///< a literal like 10f: the value is frames
inline constexpr int kTimeTicks = 2;   ///< a literal like 100t: the value is ticks
inline constexpr int kLocal = 1;
inline constexpr int kGlobal = 2;
inline constexpr int kDo = 1;
inline constexpr int kCollect = 2;

struct AstNode;

/// A keyword argument of a call (name:value), a declared name (local a = 1) or a parameter of a
/// function (positional, or keyword with an optional default).
struct AstNamed {
  std::string name;
  std::unique_ptr<AstNode> value;  ///< may be null
  bool keyword = false;            ///< for function parameters: a keyword parameter
  bool by_ref = false;             ///< for function parameters: declared &name
};

/// One node of the syntax tree. Nodes own their children; a tree is freed without recursion, so
/// that however deep a script's expressions chain, freeing them cannot exhaust the stack.
struct AstNode {
  AstNode() = default;
  ~AstNode();
  AstNode(const AstNode&) = delete;
  AstNode& operator=(const AstNode&) = delete;

  AstKind kind = AstKind::kLiteral;
  ScriptPos pos;
  int op = 0;
  std::string text;
  FPValue value;
  std::vector<std::unique_ptr<AstNode>> children;
  std::vector<AstNamed> keys;

  /// Child i, or null when the slot is empty or out of range.
  const AstNode* Child(size_t i) const { return i < children.size() ? children[i].get() : nullptr; }
};

/// A parsed script: the top-level expressions in order. Functions defined by the script keep the
/// program alive (shared ownership) for as long as they may be called.
struct ScriptProgram {
  std::vector<std::unique_ptr<AstNode>> body;
};
