// Copyright Marvolith contributors.
#include "host/interpreter/runner_lexer.h"

#include <array>
#include <charconv>
#include <climits>
#include <cstdint>
#include <utility>

#include "host/script/fp_interface.h"
#include "host/script/script_value.h"

namespace {

bool IsIdentStart(char c) {
  const auto u = static_cast<unsigned char>(c);
  return (u >= 'a' && u <= 'z') || (u >= 'A' && u <= 'Z') || u == '_' || u >= 0x80;
}
bool IsDigit(char c) { return c >= '0' && c <= '9'; }
bool IsIdentChar(char c) { return IsIdentStart(c) || IsDigit(c); }
bool IsHexDigit(char c) { return IsDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }

struct KeywordEntry {
  std::string_view word;
  Keyword keyword;
};

constexpr std::array kKeywords = {
    KeywordEntry{"and", Keyword::kAnd},
    KeywordEntry{"as", Keyword::kAs},
    KeywordEntry{"at", Keyword::kAt},
    KeywordEntry{"by", Keyword::kBy},
    KeywordEntry{"case", Keyword::kCase},
    KeywordEntry{"catch", Keyword::kCatch},
    KeywordEntry{"collect", Keyword::kCollect},
    KeywordEntry{"continue", Keyword::kContinue},
    KeywordEntry{"do", Keyword::kDo},
    KeywordEntry{"else", Keyword::kElse},
    KeywordEntry{"exit", Keyword::kExit},
    KeywordEntry{"false", Keyword::kFalse},
    KeywordEntry{"fn", Keyword::kFn},
    KeywordEntry{"for", Keyword::kFor},
    KeywordEntry{"function", Keyword::kFunction},
    KeywordEntry{"global", Keyword::kGlobal},
    KeywordEntry{"if", Keyword::kIf},
    KeywordEntry{"in", Keyword::kIn},
    KeywordEntry{"local", Keyword::kLocal},
    KeywordEntry{"mapped", Keyword::kMapped},
    KeywordEntry{"max", Keyword::kMax},
    KeywordEntry{"not", Keyword::kNot},
    KeywordEntry{"of", Keyword::kOf},
    KeywordEntry{"off", Keyword::kOff},
    KeywordEntry{"ok", Keyword::kOk},
    KeywordEntry{"on", Keyword::kOn},
    KeywordEntry{"or", Keyword::kOr},
    KeywordEntry{"return", Keyword::kReturn},
    KeywordEntry{"struct", Keyword::kStruct},
    KeywordEntry{"then", Keyword::kThen},
    KeywordEntry{"throw", Keyword::kThrow},
    KeywordEntry{"to", Keyword::kTo},
    KeywordEntry{"true", Keyword::kTrue},
    KeywordEntry{"try", Keyword::kTry},
    KeywordEntry{"undefined", Keyword::kUndefined},
    KeywordEntry{"undo", Keyword::kUndo},
    KeywordEntry{"unsupplied", Keyword::kUnsupplied},
    KeywordEntry{"where", Keyword::kWhere},
    KeywordEntry{"while", Keyword::kWhile},
    KeywordEntry{"with", Keyword::kWith},
    // Reserved for constructs this runner does not run.
    KeywordEntry{"about", Keyword::kUnsupported},
    KeywordEntry{"macroscript", Keyword::kUnsupported},
    KeywordEntry{"parameters", Keyword::kUnsupported},
    KeywordEntry{"persistent", Keyword::kUnsupported},
    KeywordEntry{"plugin", Keyword::kUnsupported},
    KeywordEntry{"rcmenu", Keyword::kUnsupported},
    KeywordEntry{"rollout", Keyword::kUnsupported},
    KeywordEntry{"set", Keyword::kUnsupported},
    KeywordEntry{"tool", Keyword::kUnsupported},
    KeywordEntry{"utility", Keyword::kUnsupported},
    KeywordEntry{"when", Keyword::kUnsupported},
};

Keyword FindKeyword(std::string_view word) {
  for (const KeywordEntry& e : kKeywords) {
    if (ScriptNameEquals(e.word, word)) return e.keyword;
  }
  return Keyword::kNone;
}

class Lexer {
 public:
  Lexer(std::string_view text, std::vector<ScriptToken>& out, ScriptError& error)
      : text_(text), out_(out), error_(error) {}

  bool Run() {
    out_.clear();
    bool space = true;
    if (text_.substr(0, 3) == "\xEF\xBB\xBF") i_ = 3;  // a UTF-8 byte order mark
    while (true) {
      if (!SkipBlanks(space)) return false;
      if (AtEnd()) break;
      ScriptToken tok;
      tok.pos = Here();
      tok.space_before = space;
      space = false;
      const char c = Peek();
      if (c == '\n') {
        Advance();
        space = true;
        if (out_.empty() || out_.back().kind != TokenKind::kNewline) {
          tok.kind = TokenKind::kNewline;
          out_.push_back(std::move(tok));
        }
        continue;
      }
      if (!Next(tok)) return false;
      out_.push_back(std::move(tok));
    }
    ScriptToken end;
    end.pos = Here();
    end.kind = TokenKind::kEnd;
    out_.push_back(std::move(end));
    return true;
  }

 private:
  bool AtEnd() const { return i_ >= text_.size(); }
  char Peek(size_t ahead = 0) const { return i_ + ahead < text_.size() ? text_[i_ + ahead] : '\0'; }
  ScriptPos Here() const { return {line_, column_}; }
  void Advance() {
    if (text_[i_] == '\n') {
      ++line_;
      column_ = 1;
    } else {
      ++column_;
    }
    ++i_;
  }
  bool Fail(ScriptPos pos, std::string message) {
    error_.message = "Syntax error: " + std::move(message);
    error_.pos = pos;
    return false;
  }

  // Blanks, comments and line continuations; a line break is left for the caller.
  bool SkipBlanks(bool& space) {
    while (!AtEnd()) {
      const char c = Peek();
      if (c == ' ' || c == '\t' || c == '\r' || c == '\f' || c == '\v') {
        Advance();
        space = true;
      } else if (c == '-' && Peek(1) == '-') {
        while (!AtEnd() && Peek() != '\n') Advance();
        space = true;
      } else if (c == '/' && Peek(1) == '*') {
        const ScriptPos start = Here();
        Advance();
        Advance();
        while (!AtEnd() && !(Peek() == '*' && Peek(1) == '/')) Advance();
        if (AtEnd()) return Fail(start, "unterminated comment");
        Advance();
        Advance();
        space = true;
      } else if (c == '\\' && ContinuesLine()) {
        // A backslash that ends a line joins it with the next.
        while (Peek() != '\n') Advance();
        Advance();
        space = true;
      } else {
        break;
      }
    }
    return true;
  }

  bool ContinuesLine() const {
    size_t j = i_ + 1;
    while (j < text_.size() && (text_[j] == ' ' || text_[j] == '\t' || text_[j] == '\r')) ++j;
    if (j + 1 < text_.size() && text_[j] == '-' && text_[j + 1] == '-') {
      while (j < text_.size() && text_[j] != '\n') ++j;
    }
    return j < text_.size() && text_[j] == '\n';
  }

  // True when the last token ends an operand, so that a '.' right after it is a property access.
  bool AfterOperand() const {
    if (out_.empty()) return false;
    switch (out_.back().kind) {
      case TokenKind::kIdentifier:
        return out_.back().keyword == Keyword::kNone;
      case TokenKind::kRParen:
      case TokenKind::kRBracket:
      case TokenKind::kPath:
      case TokenKind::kString:
      case TokenKind::kName:
      case TokenKind::kInteger:
      case TokenKind::kFloat:
      case TokenKind::kTimeFrames:
      case TokenKind::kTimeTicks:
        return true;
      default:
        return false;
    }
  }

  bool Next(ScriptToken& tok) {
    const char c = Peek();
    if (IsDigit(c) || (c == '.' && IsDigit(Peek(1)) && (tok.space_before || !AfterOperand()))) {
      return Number(tok);
    }
    if (IsIdentStart(c)) {
      Identifier(tok);
      return true;
    }
    switch (c) {
      case '"':
        return String(tok);
      case '@':
        if (Peek(1) == '"') return Verbatim(tok);
        return Fail(tok.pos, "at @, expected a verbatim string @\"...\"");
      case '\'': {
        tok.kind = TokenKind::kIdentifier;
        return Quoted(tok, "identifier");
      }
      case '#':
        return Hash(tok);
      case '$':
        return Path(tok);
      case '?':
        return Fail(tok.pos, "? is not supported");
      default:
        break;
    }
    return Operator(tok);
  }

  bool Operator(ScriptToken& tok) {
    struct Op {
      std::string_view spelling;
      TokenKind kind;
    };
    static constexpr std::array kOps = {
        Op{"==", TokenKind::kEq},          Op{"!=", TokenKind::kNe},
        Op{"<=", TokenKind::kLe},          Op{">=", TokenKind::kGe},
        Op{"+=", TokenKind::kPlusAssign},  Op{"-=", TokenKind::kMinusAssign},
        Op{"*=", TokenKind::kTimesAssign}, Op{"/=", TokenKind::kDivAssign},
        Op{"(", TokenKind::kLParen},       Op{")", TokenKind::kRParen},
        Op{"[", TokenKind::kLBracket},     Op{"]", TokenKind::kRBracket},
        Op{",", TokenKind::kComma},        Op{".", TokenKind::kDot},
        Op{":", TokenKind::kColon},        Op{";", TokenKind::kSemicolon},
        Op{"=", TokenKind::kAssign},       Op{"<", TokenKind::kLt},
        Op{">", TokenKind::kGt},           Op{"+", TokenKind::kPlus},
        Op{"-", TokenKind::kMinus},        Op{"*", TokenKind::kTimes},
        Op{"/", TokenKind::kDiv},          Op{"^", TokenKind::kPower},
        Op{"&", TokenKind::kAmpersand},
    };
    for (const Op& op : kOps) {
      if (text_.substr(i_, op.spelling.size()) == op.spelling) {
        for (size_t k = 0; k < op.spelling.size(); ++k) Advance();
        tok.kind = op.kind;
        tok.text = op.spelling;
        return true;
      }
    }
    const auto u = static_cast<unsigned char>(Peek());
    std::string shown =
        u >= 0x20 && u < 0x7f ? std::string(1, Peek()) : "character " + std::to_string(u);
    return Fail(tok.pos, "unexpected " + shown);
  }

  void Identifier(ScriptToken& tok) {
    const size_t start = i_;
    while (!AtEnd() && IsIdentChar(Peek())) Advance();
    tok.kind = TokenKind::kIdentifier;
    tok.text = std::string(text_.substr(start, i_ - start));
    tok.keyword = FindKeyword(tok.text);
  }

  // 'text' for identifiers and #'names' and $'paths': no escapes, on one line.
  bool Quoted(ScriptToken& tok, const char* what) {
    const ScriptPos start = Here();
    Advance();  // opening quote
    const size_t from = i_;
    while (!AtEnd() && Peek() != '\'' && Peek() != '\n') Advance();
    if (Peek() != '\'') return Fail(start, std::string("unterminated quoted ") + what);
    tok.text = std::string(text_.substr(from, i_ - from));
    Advance();
    if (tok.text.empty()) return Fail(start, std::string("empty quoted ") + what);
    return true;
  }

  bool Hash(ScriptToken& tok) {
    Advance();
    const char c = Peek();
    if (c == '(') {
      Advance();
      tok.kind = TokenKind::kArrayOpen;
      tok.text = "#(";
      return true;
    }
    if (c == '{') return BitArrayLiteral(tok);
    tok.kind = TokenKind::kName;
    if (c == '\'') return Quoted(tok, "name");
    if (!IsIdentChar(c)) return Fail(tok.pos, "at #, expected a name");
    const size_t start = i_;
    while (!AtEnd() && IsIdentChar(Peek())) Advance();
    tok.text = std::string(text_.substr(start, i_ - start));
    return true;
  }

  // #{1, 3..5}: element numbers and ranges of them, written as plain integers.
  bool BitArrayLiteral(ScriptToken& tok) {
    Advance();
    tok.kind = TokenKind::kBitArray;
    tok.text = "#{...}";
    auto skip_space = [this] {
      while (Peek() == ' ' || Peek() == '\t' || Peek() == '\r' || Peek() == '\n') Advance();
    };
    auto number = [this](int& out) {
      const size_t start = i_;
      while (IsDigit(Peek())) Advance();
      auto [p, ec] = std::from_chars(text_.data() + start, text_.data() + i_, out);
      return start != i_ && ec == std::errc() && p == text_.data() + i_;
    };
    skip_space();
    if (Peek() == '}') {
      Advance();
      return true;
    }
    for (;;) {
      const ScriptPos at = Here();
      int first = 0;
      if (!number(first)) return Fail(at, "in #{...}, expected an element number");
      int last = first;
      skip_space();
      if (Peek() == '.' && Peek(1) == '.') {
        Advance();
        Advance();
        skip_space();
        if (!number(last)) return Fail(at, "in #{...}, expected the number ending the range");
        skip_space();
      }
      if (first < 1 || last > kMaxScriptBitArrayIndex) {
        return Fail(at, "bit array element out of range 1.." +
                            std::to_string(kMaxScriptBitArrayIndex));
      }
      // A range written backwards (5..3) holds nothing.
      if (first <= last) {
        SetScriptBit(tok.bits, last);
        for (int i = first; i < last; ++i) tok.bits.Set(i - 1);
      }
      if (Peek() == '}') {
        Advance();
        return true;
      }
      if (Peek() != ',') return Fail(Here(), "in #{...}, expected , or }");
      Advance();
      skip_space();
    }
  }

  bool Path(ScriptToken& tok) {
    Advance();
    tok.kind = TokenKind::kPath;
    if (Peek() == '\'') {
      if (!Quoted(tok, "path name")) return false;
    } else {
      const size_t start = i_;
      while (!AtEnd() && IsIdentChar(Peek())) Advance();
      tok.text = std::string(text_.substr(start, i_ - start));
    }
    const char c = Peek();
    if (c == '*' || c == '?' || c == '/' || (c == '.' && Peek(1) == '.')) {
      return Fail(tok.pos, "path names with wildcards or levels are not supported");
    }
    return true;
  }

  bool String(ScriptToken& tok) {
    const ScriptPos start = Here();
    Advance();
    tok.kind = TokenKind::kString;
    while (true) {
      if (AtEnd()) return Fail(start, "unterminated string");
      const char c = Peek();
      if (c == '"') {
        Advance();
        return true;
      }
      if (c == '\\' && i_ + 1 < text_.size()) {
        const char e = Peek(1);
        const char* resolved = nullptr;
        switch (e) {
          case 'n':
            resolved = "\n";
            break;
          case 't':
            resolved = "\t";
            break;
          case 'r':
            resolved = "\r";
            break;
          case '"':
            resolved = "\"";
            break;
          case '\\':
            resolved = "\\";
            break;
          case '%':
            resolved = "%";
            break;
          default:
            break;
        }
        if (resolved) {
          tok.text += resolved;
          Advance();
          Advance();
          continue;
        }
        // Any other backslash stays as written ("C:\temp\x" keeps its \x).
      }
      tok.text += c;
      Advance();
    }
  }

  bool Verbatim(ScriptToken& tok) {
    const ScriptPos start = Here();
    Advance();  // @
    Advance();  // "
    tok.kind = TokenKind::kString;
    const size_t from = i_;
    while (!AtEnd() && Peek() != '"') Advance();
    if (AtEnd()) return Fail(start, "unterminated string");
    tok.text = std::string(text_.substr(from, i_ - from));
    Advance();
    return true;
  }

  bool Number(ScriptToken& tok) {
    const size_t start = i_;
    if (Peek() == '0' && (Peek(1) == 'x' || Peek(1) == 'X') && IsHexDigit(Peek(2))) {
      Advance();
      Advance();
      const size_t digits = i_;
      while (!AtEnd() && IsHexDigit(Peek())) Advance();
      std::uint32_t v = 0;
      auto [p, ec] = std::from_chars(text_.data() + digits, text_.data() + i_, v, 16);
      if (ec != std::errc() || p != text_.data() + i_) return Fail(tok.pos, "number out of range");
      tok.kind = TokenKind::kInteger;
      tok.integer = static_cast<int>(v);  // 0xFFFFFFFF is -1, as the host's 32-bit integers
      tok.number = tok.integer;
      return EndOfNumber(tok, start);
    }
    bool is_float = false;
    while (IsDigit(Peek())) Advance();
    if (Peek() == '.' && (IsDigit(Peek(1)) || !IsIdentStart(Peek(1)))) {
      is_float = true;
      Advance();
      while (IsDigit(Peek())) Advance();
    }
    if ((Peek() == 'e' || Peek() == 'E') &&
        (IsDigit(Peek(1)) || ((Peek(1) == '-' || Peek(1) == '+') && IsDigit(Peek(2))))) {
      is_float = true;
      Advance();
      if (Peek() == '-' || Peek() == '+') Advance();
      while (IsDigit(Peek())) Advance();
    }
    const char* first = text_.data() + start;
    const char* last = text_.data() + i_;
    if (!is_float) {
      long long v = 0;
      auto [p, ec] = std::from_chars(first, last, v);
      if (ec == std::errc() && p == last && v <= INT_MAX) {
        tok.kind = TokenKind::kInteger;
        tok.integer = static_cast<int>(v);
        tok.number = static_cast<double>(v);
        return EndOfNumber(tok, start);
      }
      // Too large for an integer: it reads as a float, as the host's script does.
    }
    double d = 0.0;
    auto [p, ec] = std::from_chars(first, last, d);
    if (ec != std::errc() || p != last) return Fail(tok.pos, "number out of range");
    tok.kind = TokenKind::kFloat;
    tok.number = d;
    return EndOfNumber(tok, start);
  }

  // A time suffix (10f, 100t), then nothing that would glue to the number.
  bool EndOfNumber(ScriptToken& tok, size_t start) {
    const char c = Peek();
    if ((c == 'f' || c == 'F' || c == 't' || c == 'T') && !IsIdentChar(Peek(1))) {
      Advance();
      tok.kind = (c == 'f' || c == 'F') ? TokenKind::kTimeFrames : TokenKind::kTimeTicks;
    }
    if (IsIdentChar(Peek())) {
      while (!AtEnd() && IsIdentChar(Peek())) Advance();
      return Fail(tok.pos, "at " + std::string(text_.substr(start, i_ - start)) + ", not a number");
    }
    tok.text = std::string(text_.substr(start, i_ - start));
    return true;
  }

  std::string_view text_;
  std::vector<ScriptToken>& out_;
  ScriptError& error_;
  size_t i_ = 0;
  int line_ = 1;
  int column_ = 1;
};

}  // namespace

bool TokenizeScript(std::string_view text, std::vector<ScriptToken>& tokens, ScriptError& error) {
  return Lexer(text, tokens, error).Run();
}

std::string DescribeToken(const ScriptToken& token) {
  switch (token.kind) {
    case TokenKind::kEnd:
      return "end of script";
    case TokenKind::kNewline:
      return "end of line";
    case TokenKind::kString:
      return "\"" + token.text + "\"";
    case TokenKind::kName:
      return "#" + token.text;
    case TokenKind::kPath:
      return "$" + token.text;
    default:
      return token.text;
  }
}
