// Copyright Marvolith contributors.
// The tokens of the script runner's language and the lexer that makes them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/core/bit_array.h"
#include "host/interpreter/runner_ast.h"

enum class TokenKind : std::uint8_t {
  kEnd,
  kNewline,
  kInteger,     ///< integer
  kFloat,       ///< number
  kTimeFrames,  ///< 10f: number is frames
  kTimeTicks,   ///< 100t: number is ticks
  kString,      ///< text: the string with escapes resolved
  kName,        ///< #name: text is the name
  kIdentifier,  ///< text: as written; keyword set for reserved words
  kPath,        ///< $name: text is the name, empty for $ alone
  kArrayOpen,   ///< #(
  kBitArray,    ///< #{1, 3..5}: the whole literal; bits holds it
  kLParen,
  kRParen,
  kLBracket,
  kRBracket,
  kComma,
  kDot,
  kColon,
  kSemicolon,
  kAssign,
  kPlusAssign,
  kMinusAssign,
  kTimesAssign,
  kDivAssign,
  kEq,
  kNe,
  kLt,
  kLe,
  kGt,
  kGe,
  kPlus,
  kMinus,
  kTimes,
  kDiv,
  kPower,
  kAmpersand,  ///< & before a by-reference parameter or argument
};

/// Reserved words. kUnsupported marks words the language reserves for constructs this runner
/// does not run (rollout, plugin, ...): the parser names them in its error.
enum class Keyword : std::uint8_t {
  kNone,
  kAnd,
  kAs,
  kAt,
  kBy,
  kCase,
  kCatch,
  kCollect,
  kContinue,
  kDo,
  kElse,
  kExit,
  kFalse,
  kFn,
  kFor,
  kFunction,
  kGlobal,
  kIf,
  kIn,
  kLocal,
  kMapped,
  kMax,
  kNot,
  kOf,
  kOff,
  kOk,
  kOn,
  kOr,
  kReturn,
  kStruct,
  kThen,
  kThrow,
  kTo,
  kTrue,
  kTry,
  kUndefined,
  kUndo,
  kUnsupplied,
  kWhere,
  kWhile,
  kWith,
  kUnsupported,
};

struct ScriptToken {
  TokenKind kind = TokenKind::kEnd;
  Keyword keyword = Keyword::kNone;
  ScriptPos pos;
  /// White space, a comment or a line break comes before the token (or it is the first).
  bool space_before = true;
  std::string text;
  double number = 0.0;
  int integer = 0;
  BitArray bits;
};

/// Splits text into tokens, ending with one kEnd. Line breaks become kNewline tokens (one per
/// run of breaks); `--` and `/* */` comments and a backslash that continues a line are dropped.
/// Answers false with error set (and tokens unspecified) on a malformed token: an unterminated
/// string or comment, a number out of range, or a character the language does not use.
bool TokenizeScript(std::string_view text, std::vector<ScriptToken>& tokens, ScriptError& error);

/// How a token reads in an error message: the word, or the operator's spelling.
std::string DescribeToken(const ScriptToken& token);
