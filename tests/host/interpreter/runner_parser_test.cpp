// Copyright Marvolith contributors.
#include "host/interpreter/runner_parser.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <string>
#include <vector>

#include "host/interpreter/runner_lexer.h"

namespace marvolith::test {
namespace {

std::vector<ScriptToken> Tokens(std::string_view text) {
  std::vector<ScriptToken> tokens;
  ScriptError error;
  EXPECT_TRUE(TokenizeScript(text, tokens, error)) << error.Text();
  return tokens;
}

TEST(RunnerLexerTest, CommentsContinuationsAndPlaces) {
  // A byte order mark, comments, a continued line and CRLF endings leave these tokens.
  const auto t = Tokens("\xEF\xBB\xBFx = 1 -- note\r\n/* a\nb */ y = \\  -- more\n  2.5f;'a b'.z");
  std::vector<std::string> texts;
  for (const ScriptToken& tok : t) texts.push_back(DescribeToken(tok));
  EXPECT_EQ(texts, (std::vector<std::string>{"x", "=", "1", "end of line", "y", "=", "2.5f", ";",
                                             "a b", ".", "z", "end of script"}));
  EXPECT_EQ(t[4].pos.line, 3);
  EXPECT_EQ(t[4].pos.column, 6);
  EXPECT_EQ(t[6].kind, TokenKind::kTimeFrames);
  EXPECT_EQ(t[6].pos.line, 4);
  EXPECT_EQ(t[8].keyword, Keyword::kNone) << "a quoted identifier is never a keyword";
  // A dot right after an operand is a property access; elsewhere it starts a number.
  EXPECT_EQ(Tokens("a.5").at(1).kind, TokenKind::kDot);
  EXPECT_EQ(Tokens("f .5").at(1).kind, TokenKind::kFloat);
  EXPECT_EQ(Tokens("99999999999").at(0).kind, TokenKind::kFloat) << "too large for an integer";
  EXPECT_EQ(Tokens("0xFFFFFFFF").at(0).integer, -1);
}

TEST(RunnerParserTest, NestingTooDeepIsASyntaxError) {
  auto repeat = [](const char* piece, int n) {
    std::string s;
    for (int i = 0; i < n; ++i) s += piece;
    return s;
  };
  for (const std::string& text :
       {repeat("(", 10000), repeat("- ", 5000) + "1", repeat("not ", 3000) + "true",
        repeat("[", 4000), repeat("2 ^ ", 3000) + "2", repeat("a[", 3000)}) {
    SCOPED_TRACE(text.substr(0, 8));
    ScriptError error;
    EXPECT_EQ(ParseScript(text, error), nullptr);
    EXPECT_EQ(error.message, "Syntax error: expressions nested too deeply");
  }
}

TEST(RunnerParserTest, LongChainsParseAndFreeWithoutRecursion) {
  std::string text = "1";
  for (int i = 0; i < 200000; ++i) text += "+1";
  ScriptError error;
  auto program = ParseScript(text, error);
  ASSERT_NE(program, nullptr) << error.Text();
  program.reset();  // freeing a tree 200000 deep must not overflow the stack
}

// Scripts made of the language's pieces in any order: every one parses or names a place that
// exists in its text.
RC_GTEST_PROP(RunnerParserTest, AnyTokenSoupParsesOrFailsAtAPlaceInTheText, ()) {
  static const std::vector<std::string> pieces = {
      "x",      "1",       "2.5",   "\"s\"", "#n",    "$a",    "(",     ")",       "[",      "]",
      "#(",     ",",       ".",     ":",     ";",     "\n",    "=",     "+=",      "+",      "-",
      "*",      "/",       "^",     "==",    "<",     "and",   "or",    "not",     "if",     "then",
      "else",   "do",      "while", "for",   "in",    "to",    "by",    "collect", "where",  "fn",
      "return", "exit",    "try",   "catch", "case",  "of",    "local", "at",      "time",   "undo",
      "on",     "animate", "10f",   "as",    "--c\n", "/*c*/", "'q'",   "struct",  "@\"v\"", "()",
      "&",      "on",      "create",
  };
  const auto picks =
      *rc::gen::container<std::vector<size_t>>(rc::gen::inRange<size_t>(0, pieces.size()));
  std::string text;
  for (size_t i : picks) text += pieces[i] + " ";
  ScriptError error;
  if (ParseScript(text, error)) return;
  RC_ASSERT(error.message.rfind("Syntax error: ", 0) == 0);
  int lines = 1;
  for (char c : text) lines += c == '\n' ? 1 : 0;
  RC_ASSERT(error.pos.line >= 1 && error.pos.line <= lines);
  RC_ASSERT(error.pos.column >= 1 && static_cast<size_t>(error.pos.column) <= text.size() + 1);
}

}  // namespace
}  // namespace marvolith::test
