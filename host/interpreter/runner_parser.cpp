// Copyright Marvolith contributors.
#include "host/interpreter/runner_parser.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <utility>
#include <vector>

#include "host/interpreter/runner_lexer.h"
#include "host/script/fp_interface.h"

AstNode::~AstNode() {
  std::vector<std::unique_ptr<AstNode>> pending;
  auto take_children = [&pending](AstNode& n) {
    for (auto& c : n.children) {
      if (c) pending.push_back(std::move(c));
    }
    for (AstNamed& k : n.keys) {
      if (k.value) pending.push_back(std::move(k.value));
    }
  };
  take_children(*this);
  while (!pending.empty()) {
    std::unique_ptr<AstNode> next = std::move(pending.back());
    pending.pop_back();
    take_children(*next);
  }
}

namespace {

using NodePtr = std::unique_ptr<AstNode>;

// Unwinds the parser to ParseScript once error_ holds the message.
struct SyntaxFailure {};

NodePtr MakeNode(AstKind kind, ScriptPos pos) {
  auto n = std::make_unique<AstNode>();
  n->kind = kind;
  n->pos = pos;
  return n;
}

class Parser {
 public:
  Parser(const std::vector<ScriptToken>& tokens, ScriptError& error)
      : toks_(tokens), error_(error) {}

  std::shared_ptr<ScriptProgram> Program() {
    auto program = std::make_shared<ScriptProgram>();
    Sequence(TokenKind::kEnd, program->body);
    return program;
  }

 private:
  // Counts nesting on the way down; too deep is a syntax error rather than a stack overflow.
  class Nest {
   public:
    explicit Nest(Parser& p) : p_(p) {
      if (++p_.depth_ > kMaxScriptNesting) p_.Fail(p_.Cur().pos, "expressions nested too deeply");
    }
    ~Nest() { --p_.depth_; }
    Nest(const Nest&) = delete;
    Nest& operator=(const Nest&) = delete;

   private:
    Parser& p_;
  };

  const ScriptToken& Cur() const { return toks_[i_]; }
  const ScriptToken& Ahead(size_t n) const { return toks_[std::min(i_ + n, toks_.size() - 1)]; }
  bool Is(TokenKind k) const { return Cur().kind == k; }
  bool IsWord(Keyword k) const {
    return Cur().kind == TokenKind::kIdentifier && Cur().keyword == k;
  }
  // A plain identifier (not a reserved word) spelled word, compared without case.
  bool IsPlain(const ScriptToken& t, std::string_view word) const {
    return t.kind == TokenKind::kIdentifier && t.keyword == Keyword::kNone &&
           ScriptNameEquals(t.text, word);
  }
  bool IsName(const ScriptToken& t) const {
    return t.kind == TokenKind::kIdentifier && t.keyword == Keyword::kNone;
  }
  void Next() {
    if (!Is(TokenKind::kEnd)) ++i_;
  }
  void SkipNewlines() {
    while (Is(TokenKind::kNewline)) Next();
  }
  void SkipSeparators() {
    while (Is(TokenKind::kNewline) || Is(TokenKind::kSemicolon)) Next();
  }

  [[noreturn]] void Fail(ScriptPos pos, std::string message) {
    error_.message = "Syntax error: " + std::move(message);
    error_.pos = pos;
    throw SyntaxFailure{};
  }
  [[noreturn]] void Expected(const std::string& what) {
    Fail(Cur().pos, "at " + DescribeToken(Cur()) + ", expected " + what);
  }
  void Expect(TokenKind kind, const char* what) {
    if (!Is(kind)) Expected(what);
    Next();
  }
  void ExpectWord(Keyword k, const char* what) {
    if (!IsWord(k)) Expected(what);
    Next();
  }
  [[noreturn]] void Unsupported(const ScriptToken& t) { Fail(t.pos, t.text + " is not supported"); }

  void Sequence(TokenKind end, std::vector<NodePtr>& out) {
    while (true) {
      SkipSeparators();
      if (Is(end)) return;
      if (Is(TokenKind::kEnd)) Expected(")");
      out.push_back(Expr());
      if (!Is(end) && !Is(TokenKind::kNewline) && !Is(TokenKind::kSemicolon)) {
        Expected(end == TokenKind::kEnd ? "end of line" : ")");
      }
    }
  }

  NodePtr Expr() {
    Nest nest(*this);
    const ScriptToken& t = Cur();
    if (t.kind == TokenKind::kIdentifier) {
      switch (t.keyword) {
        case Keyword::kLocal:
        case Keyword::kGlobal:
          return Declaration();
        case Keyword::kIf:
          return If();
        case Keyword::kWhile:
          return While();
        case Keyword::kDo:
          return DoWhile();
        case Keyword::kFor:
          return For();
        case Keyword::kTry:
          return Try();
        case Keyword::kCase:
          return Case();
        case Keyword::kFn:
        case Keyword::kFunction:
          return Function();
        case Keyword::kStruct:
          return Struct();
        case Keyword::kMapped:
          Fail(t.pos, "mapped functions are not supported");
        case Keyword::kReturn:
          return Return();
        case Keyword::kExit:
          return Exit();
        case Keyword::kContinue: {
          auto n = MakeNode(AstKind::kContinue, t.pos);
          Next();
          return n;
        }
        case Keyword::kThrow: {
          auto n = MakeNode(AstKind::kThrow, t.pos);
          Next();
          n->children.push_back(Expr());
          return n;
        }
        case Keyword::kAt:
        case Keyword::kUndo:
        case Keyword::kWith:
          return Context();
        case Keyword::kIn:
          if (IsPlain(Ahead(1), "coordsys")) return Context();
          break;
        case Keyword::kMax:
          return MaxCommand();
        case Keyword::kUnsupported:
          Unsupported(t);
        case Keyword::kNone:
          if (IsContextWord(t) && IsSwitchWord(Ahead(1))) return Context();
          if (IsPlain(t, "attributes") &&
              (Ahead(1).kind == TokenKind::kString || IsName(Ahead(1))))
            return Attributes();
          break;
        default:
          break;
      }
    }
    NodePtr e = Or();
    if (IsAssignOp(Cur().kind)) {
      const ScriptToken& op = Cur();
      if (e->kind != AstKind::kIdentifier && e->kind != AstKind::kProperty &&
          e->kind != AstKind::kIndex) {
        Fail(op.pos, "at " + op.text + ", the left side cannot be assigned to");
      }
      auto n = MakeNode(AstKind::kAssign, op.pos);
      n->op = static_cast<int>(op.kind);
      Next();
      SkipNewlines();
      n->children.push_back(std::move(e));
      n->children.push_back(Expr());
      return n;
    }
    return e;
  }

  static bool IsAssignOp(TokenKind k) {
    return k == TokenKind::kAssign || k == TokenKind::kPlusAssign || k == TokenKind::kMinusAssign ||
           k == TokenKind::kTimesAssign || k == TokenKind::kDivAssign;
  }
  bool IsContextWord(const ScriptToken& t) const {
    return IsPlain(t, "animate") || IsPlain(t, "redraw") || IsPlain(t, "quiet");
  }
  static bool IsSwitchWord(const ScriptToken& t) {
    return t.kind == TokenKind::kIdentifier &&
           (t.keyword == Keyword::kOn || t.keyword == Keyword::kOff ||
            t.keyword == Keyword::kTrue || t.keyword == Keyword::kFalse);
  }

  NodePtr Declaration() {
    auto n = MakeNode(AstKind::kDeclare, Cur().pos);
    n->op = IsWord(Keyword::kLocal) ? kLocal : kGlobal;
    Next();
    while (true) {
      if (!IsName(Cur())) Expected("a variable name");
      AstNamed named;
      named.name = Cur().text;
      Next();
      if (Is(TokenKind::kAssign)) {
        Next();
        SkipNewlines();
        named.value = Expr();
      }
      n->keys.push_back(std::move(named));
      if (!Is(TokenKind::kComma)) return n;
      Next();
      SkipNewlines();
    }
  }

  NodePtr If() {
    auto n = MakeNode(AstKind::kIf, Cur().pos);
    Next();
    SkipNewlines();
    n->children.push_back(Expr());
    SkipNewlines();
    if (IsWord(Keyword::kDo)) {
      Next();
      SkipNewlines();
      n->children.push_back(Expr());
      n->children.push_back(nullptr);
      return n;
    }
    ExpectWord(Keyword::kThen, "then or do");
    SkipNewlines();
    n->children.push_back(Expr());
    // An else may start the next line.
    const size_t mark = i_;
    SkipNewlines();
    if (IsWord(Keyword::kElse)) {
      Next();
      SkipNewlines();
      n->children.push_back(Expr());
    } else {
      i_ = mark;
      n->children.push_back(nullptr);
    }
    return n;
  }

  NodePtr While() {
    auto n = MakeNode(AstKind::kWhile, Cur().pos);
    Next();
    SkipNewlines();
    n->children.push_back(Expr());
    SkipNewlines();
    ExpectWord(Keyword::kDo, "do");
    SkipNewlines();
    n->children.push_back(Expr());
    return n;
  }

  NodePtr DoWhile() {
    auto n = MakeNode(AstKind::kDoWhile, Cur().pos);
    Next();
    SkipNewlines();
    n->children.push_back(Expr());
    SkipNewlines();
    ExpectWord(Keyword::kWhile, "while");
    SkipNewlines();
    n->children.push_back(Expr());
    return n;
  }

  NodePtr For() {
    auto n = MakeNode(AstKind::kFor, Cur().pos);
    Next();
    if (!IsName(Cur())) Expected("a loop variable");
    n->text = Cur().text;
    Next();
    n->children.resize(5);
    if (IsWord(Keyword::kIn)) {
      Next();
      SkipNewlines();
      n->children[0] = Or();
    } else if (Is(TokenKind::kAssign)) {
      Next();
      SkipNewlines();
      n->children[0] = Or();
      SkipNewlines();
      ExpectWord(Keyword::kTo, "to");
      SkipNewlines();
      n->children[1] = Or();
      if (IsWord(Keyword::kBy)) {
        Next();
        SkipNewlines();
        n->children[2] = Or();
      }
    } else {
      Expected("in or =");
    }
    SkipNewlines();
    if (IsWord(Keyword::kWhere)) {
      Next();
      SkipNewlines();
      n->children[3] = Or();
      SkipNewlines();
    }
    if (IsWord(Keyword::kDo)) {
      n->op = kDo;
    } else if (IsWord(Keyword::kCollect)) {
      n->op = kCollect;
    } else {
      Expected("do or collect");
    }
    Next();
    SkipNewlines();
    n->children[4] = Expr();
    return n;
  }

  NodePtr Try() {
    auto n = MakeNode(AstKind::kTry, Cur().pos);
    Next();
    SkipNewlines();
    n->children.push_back(Expr());
    SkipNewlines();
    ExpectWord(Keyword::kCatch, "catch");
    SkipNewlines();
    n->children.push_back(Expr());
    return n;
  }

  NodePtr Case() {
    auto n = MakeNode(AstKind::kCase, Cur().pos);
    Next();
    SkipNewlines();
    if (IsWord(Keyword::kOf)) {
      n->children.push_back(nullptr);
    } else {
      n->children.push_back(Or());
      SkipNewlines();
    }
    ExpectWord(Keyword::kOf, "of");
    SkipNewlines();
    Expect(TokenKind::kLParen, "(");
    while (true) {
      SkipSeparators();
      if (Is(TokenKind::kRParen)) break;
      if (IsPlain(Cur(), "default") && Ahead(1).kind == TokenKind::kColon) {
        Next();
        n->children.push_back(nullptr);
      } else {
        n->children.push_back(Unary());
      }
      Expect(TokenKind::kColon, ":");
      SkipNewlines();
      n->children.push_back(Expr());
      if (!Is(TokenKind::kRParen) && !Is(TokenKind::kNewline) && !Is(TokenKind::kSemicolon)) {
        Expected(")");
      }
    }
    Next();
    return n;
  }

  NodePtr Function() {
    auto n = MakeNode(AstKind::kFunction, Cur().pos);
    Next();
    if (!IsName(Cur())) Expected("a function name");
    n->text = Cur().text;
    Next();
    while (IsName(Cur()) || Is(TokenKind::kAmpersand)) {
      AstNamed param;
      if (Is(TokenKind::kAmpersand)) {
        param.by_ref = true;
        Next();
        if (!IsName(Cur())) Expected("a parameter name");
      }
      param.name = Cur().text;
      Next();
      if (Is(TokenKind::kColon)) {
        param.keyword = true;
        Next();
        if (Is(TokenKind::kAmpersand)) {
          Fail(Cur().pos, "a by-reference keyword parameter is written &" + param.name + ":");
        }
        if (!Is(TokenKind::kAssign)) param.value = KeyValue();
      }
      n->keys.push_back(std::move(param));
    }
    Expect(TokenKind::kAssign, "=");
    SkipNewlines();
    n->children.push_back(Expr());
    return n;
  }

  // struct Name (member, member = default, fn f x = ..., on create do ...): members separated
  // by commas.
  NodePtr Struct() {
    auto n = MakeNode(AstKind::kStruct, Cur().pos);
    Next();
    if (!IsName(Cur())) Expected("a struct name");
    n->text = Cur().text;
    Next();
    SkipNewlines();
    Expect(TokenKind::kLParen, "(");
    n->children.push_back(nullptr);  // the create handler
    std::vector<std::string> names;
    auto add_name = [&](const ScriptToken& t) {
      for (const std::string& seen : names) {
        if (ScriptNameEquals(seen, t.text)) Fail(t.pos, "duplicate struct member " + t.text);
      }
      names.push_back(t.text);
    };
    while (true) {
      SkipNewlines();
      if (Is(TokenKind::kRParen) && !names.empty()) break;
      if (IsWord(Keyword::kFn) || IsWord(Keyword::kFunction)) {
        add_name(Ahead(1));
        n->children.push_back(Function());
      } else if (IsWord(Keyword::kOn)) {
        Next();
        if (!IsPlain(Cur(), "create")) {
          Fail(Cur().pos, "a struct takes no event handler but on create");
        }
        if (n->children[0]) Fail(Cur().pos, "a second on create handler");
        Next();
        SkipNewlines();
        ExpectWord(Keyword::kDo, "do");
        SkipNewlines();
        n->children[0] = Expr();
      } else {
        if (!IsName(Cur())) Expected("a struct member");
        add_name(Cur());
        AstNamed member;
        member.name = Cur().text;
        Next();
        if (Is(TokenKind::kAssign)) {
          Next();
          SkipNewlines();
          member.value = Expr();
        }
        n->keys.push_back(std::move(member));
      }
      SkipNewlines();
      if (Is(TokenKind::kRParen)) break;
      Expect(TokenKind::kComma, ", or )");
    }
    Next();
    return n;
  }

  // &place as an argument: a variable, a property or an array element passed by reference.
  NodePtr RefArgument() {
    auto n = MakeNode(AstKind::kRef, Cur().pos);
    Next();
    if (!Is(TokenKind::kIdentifier) && !Is(TokenKind::kPath) && !Is(TokenKind::kLParen)) {
      Expected("a variable after &");
    }
    NodePtr place = Operand();
    if (place->kind != AstKind::kIdentifier && place->kind != AstKind::kProperty &&
        place->kind != AstKind::kIndex) {
      Fail(n->pos, "& takes a variable, a property or an array element");
    }
    n->children.push_back(std::move(place));
    return n;
  }

  // name:value clauses; the name may be a reserved word.
  void Clauses(std::vector<AstNamed>& out) {
    while (Is(TokenKind::kIdentifier) && Ahead(1).kind == TokenKind::kColon) {
      AstNamed key;
      key.name = Cur().text;
      Next();
      Next();
      key.value = KeyValue();
      out.push_back(std::move(key));
    }
  }

  bool IsReserved(const ScriptToken& t, std::string_view word) const {
    return t.kind == TokenKind::kIdentifier && ScriptNameEquals(t.text, word);
  }

  // attributes <name> <clauses> ( parameters ... rollout ... ): a custom attribute definition.
  NodePtr Attributes() {
    auto n = MakeNode(AstKind::kAttributes, Cur().pos);
    Next();
    n->text = Cur().text;
    Next();
    Clauses(n->keys);
    SkipNewlines();
    Expect(TokenKind::kLParen, "(");
    while (true) {
      SkipSeparators();
      if (Is(TokenKind::kRParen)) break;
      if (IsReserved(Cur(), "parameters")) {
        n->children.push_back(Parameters());
      } else if (IsReserved(Cur(), "rollout")) {
        SkipRollout();
      } else if (IsWord(Keyword::kOn)) {
        Fail(Cur().pos, "event handlers of attribute definitions are not supported");
      } else if (IsWord(Keyword::kFn) || IsWord(Keyword::kFunction) ||
                 IsWord(Keyword::kLocal)) {
        Fail(Cur().pos, "functions and locals of attribute definitions are not supported");
      } else {
        Expected("parameters or rollout");
      }
    }
    Next();
    return n;
  }

  NodePtr Parameters() {
    auto n = MakeNode(AstKind::kParameters, Cur().pos);
    Next();
    if (!IsName(Cur())) Expected("a parameter block name");
    n->text = Cur().text;
    Next();
    std::vector<AstNamed> ignored;  // rollout: names a rollout, which a headless host drops
    Clauses(ignored);
    SkipNewlines();
    Expect(TokenKind::kLParen, "(");
    while (true) {
      SkipSeparators();
      if (Is(TokenKind::kRParen)) break;
      if (IsWord(Keyword::kOn)) Fail(Cur().pos, "parameter event handlers are not supported");
      if (!IsName(Cur())) Expected("a parameter name");
      auto p = MakeNode(AstKind::kParamDef, Cur().pos);
      p->text = Cur().text;
      Next();
      Clauses(p->keys);
      if (!Is(TokenKind::kRParen) && !Is(TokenKind::kNewline) && !Is(TokenKind::kSemicolon))
        Expected("a parameter clause (name:value)");
      n->children.push_back(std::move(p));
    }
    Next();
    return n;
  }

  // A rollout is user interface only: its tokens are skipped up to its balanced closing ).
  void SkipRollout() {
    Next();
    while (!Is(TokenKind::kLParen)) {
      if (Is(TokenKind::kEnd) || Is(TokenKind::kRParen)) Expected("( of the rollout");
      Next();
    }
    int depth = 0;
    do {
      if (Is(TokenKind::kEnd)) Expected(")");
      if (Is(TokenKind::kLParen) || Is(TokenKind::kArrayOpen)) ++depth;
      if (Is(TokenKind::kRParen)) --depth;
      Next();
    } while (depth > 0);
  }

  bool EndsExpression() const {
    return Is(TokenKind::kNewline) || Is(TokenKind::kSemicolon) || Is(TokenKind::kRParen) ||
           Is(TokenKind::kEnd) || IsWord(Keyword::kElse) || IsWord(Keyword::kCatch);
  }

  NodePtr Return() {
    auto n = MakeNode(AstKind::kReturn, Cur().pos);
    Next();
    n->children.push_back(EndsExpression() ? nullptr : Expr());
    return n;
  }

  NodePtr Exit() {
    auto n = MakeNode(AstKind::kExit, Cur().pos);
    Next();
    if (IsWord(Keyword::kWith)) {
      Next();
      n->children.push_back(Expr());
    } else {
      n->children.push_back(nullptr);
    }
    return n;
  }

  // One or more context clauses separated by commas, then the body they apply to.
  NodePtr Context() {
    const ScriptToken& t = Cur();
    auto n = MakeNode(AstKind::kContext, t.pos);
    if (IsWord(Keyword::kWith)) {
      Next();
      if (!IsWord(Keyword::kUndo) && !IsContextWord(Cur())) Expected("animate, undo or redraw");
    }
    NodePtr label;
    NodePtr arg;
    if (IsWord(Keyword::kIn)) {
      Next();
      if (!IsPlain(Cur(), "coordsys")) Expected("coordsys");
      Next();
      n->op = static_cast<int>(ContextKind::kCoordsys);
      arg = CoordSysName();
    } else if (IsWord(Keyword::kAt)) {
      Next();
      if (!IsPlain(Cur(), "time")) Expected("time");
      Next();
      n->op = static_cast<int>(ContextKind::kAtTime);
      arg = Operand();
    } else if (IsWord(Keyword::kUndo)) {
      Next();
      n->op = static_cast<int>(ContextKind::kUndo);
      if (!IsSwitchWord(Cur())) label = Operand();
      arg = Switch();
    } else {
      n->op = static_cast<int>(IsPlain(Cur(), "animate")  ? ContextKind::kAnimate
                               : IsPlain(Cur(), "redraw") ? ContextKind::kRedraw
                                                          : ContextKind::kQuiet);
      Next();
      arg = Switch();
    }
    n->children.push_back(std::move(arg));
    n->children.push_back(std::move(label));
    if (Is(TokenKind::kComma)) {
      Next();
      SkipNewlines();
      if (!IsWord(Keyword::kAt) && !IsWord(Keyword::kUndo) && !IsWord(Keyword::kWith) &&
          !IsWord(Keyword::kIn) && !IsContextWord(Cur())) {
        Expected("a context (at time, animate, undo)");
      }
      Nest nest(*this);
      n->children.push_back(Context());
    } else {
      SkipNewlines();
      n->children.push_back(Expr());
    }
    return n;
  }

  // The system of `in coordsys`: a bare world, parent, local, screen, grid, gimbal or view is
  // its name; anything else an operand (a node, a matrix).
  NodePtr CoordSysName() {
    const ScriptToken& t = Cur();
    static constexpr const char* kNames[] = {"world", "parent", "screen", "grid", "gimbal", "view"};
    bool named = IsWord(Keyword::kLocal);
    for (const char* name : kNames) named = named || IsPlain(t, name);
    if (!named) return Operand();
    auto n = MakeNode(AstKind::kLiteral, t.pos);
    n->value = FPValue::Name(t.text);
    Next();
    return n;
  }

  // max undo, max redo: the host's commands by name, a call of the global max.
  NodePtr MaxCommand() {
    auto n = MakeNode(AstKind::kCall, Cur().pos);
    auto callee = MakeNode(AstKind::kIdentifier, Cur().pos);
    callee->text = Cur().text;
    Next();
    if (!Is(TokenKind::kIdentifier)) Expected("a command name");
    std::string command = Cur().text;
    auto arg = MakeNode(AstKind::kLiteral, Cur().pos);
    Next();
    while (Is(TokenKind::kIdentifier) && !EndsExpression()) {
      command += " " + Cur().text;
      Next();
    }
    arg->value = FPValue::Name(command);
    n->children.push_back(std::move(callee));
    n->children.push_back(std::move(arg));
    return n;
  }

  NodePtr Switch() {
    const ScriptToken& t = Cur();
    if (t.kind == TokenKind::kIdentifier &&
        (t.keyword == Keyword::kOn || t.keyword == Keyword::kTrue || t.keyword == Keyword::kOff ||
         t.keyword == Keyword::kFalse)) {
      auto n = MakeNode(AstKind::kLiteral, t.pos);
      n->value = FPValue(t.keyword == Keyword::kOn || t.keyword == Keyword::kTrue);
      Next();
      return n;
    }
    return Operand();
  }

  NodePtr Binary(AstKind kind, int op, ScriptPos pos, NodePtr l, NodePtr r) {
    auto n = MakeNode(kind, pos);
    n->op = op;
    n->children.push_back(std::move(l));
    n->children.push_back(std::move(r));
    return n;
  }

  NodePtr Or() {
    NodePtr l = And();
    while (IsWord(Keyword::kOr)) {
      const ScriptPos pos = Cur().pos;
      Next();
      SkipNewlines();
      l = Binary(AstKind::kOr, 0, pos, std::move(l), And());
    }
    return l;
  }

  NodePtr And() {
    NodePtr l = Not();
    while (IsWord(Keyword::kAnd)) {
      const ScriptPos pos = Cur().pos;
      Next();
      SkipNewlines();
      l = Binary(AstKind::kAnd, 0, pos, std::move(l), Not());
    }
    return l;
  }

  NodePtr Not() {
    if (!IsWord(Keyword::kNot)) return Compare();
    auto n = MakeNode(AstKind::kNot, Cur().pos);
    Next();
    Nest nest(*this);
    n->children.push_back(Not());
    return n;
  }

  NodePtr Compare() {
    NodePtr l = Sum();
    while (Is(TokenKind::kEq) || Is(TokenKind::kNe) || Is(TokenKind::kLt) || Is(TokenKind::kLe) ||
           Is(TokenKind::kGt) || Is(TokenKind::kGe)) {
      const ScriptToken& op = Cur();
      Next();
      SkipNewlines();
      l = Binary(AstKind::kBinary, static_cast<int>(op.kind), op.pos, std::move(l), Sum());
    }
    return l;
  }

  NodePtr Sum() {
    NodePtr l = Product();
    while (Is(TokenKind::kPlus) || Is(TokenKind::kMinus)) {
      const ScriptToken& op = Cur();
      Next();
      SkipNewlines();
      l = Binary(AstKind::kBinary, static_cast<int>(op.kind), op.pos, std::move(l), Product());
    }
    return l;
  }

  NodePtr Product() {
    NodePtr l = Power();
    while (Is(TokenKind::kTimes) || Is(TokenKind::kDiv)) {
      const ScriptToken& op = Cur();
      Next();
      SkipNewlines();
      l = Binary(AstKind::kBinary, static_cast<int>(op.kind), op.pos, std::move(l), Power());
    }
    return l;
  }

  NodePtr Power() {
    NodePtr l = As();
    if (!Is(TokenKind::kPower)) return l;
    const ScriptPos pos = Cur().pos;
    Next();
    SkipNewlines();
    Nest nest(*this);
    return Binary(AstKind::kBinary, static_cast<int>(TokenKind::kPower), pos, std::move(l),
                  Power());
  }

  NodePtr As() {
    NodePtr l = Unary();
    while (IsWord(Keyword::kAs)) {
      const ScriptPos pos = Cur().pos;
      Next();
      l = Binary(AstKind::kAs, 0, pos, std::move(l), Operand());
    }
    return l;
  }

  NodePtr Unary() {
    if (!Is(TokenKind::kMinus)) return Call();
    auto n = MakeNode(AstKind::kUnary, Cur().pos);
    n->op = static_cast<int>(TokenKind::kMinus);
    Next();
    Nest nest(*this);
    n->children.push_back(Unary());
    return n;
  }

  // A keyword argument's value or a parameter's default: an operand, optionally negated.
  NodePtr KeyValue() {
    if (!Is(TokenKind::kMinus)) return Operand();
    auto n = MakeNode(AstKind::kUnary, Cur().pos);
    n->op = static_cast<int>(TokenKind::kMinus);
    Next();
    Nest nest(*this);
    n->children.push_back(KeyValue());
    return n;
  }

  // A keyword argument named by a reserved word the host's functions take (format to:).
  bool IsReservedKey() const {
    return IsWord(Keyword::kTo) && Ahead(1).kind == TokenKind::kColon;
  }

  bool StartsArgument() const {
    const ScriptToken& t = Cur();
    if (IsReservedKey()) return true;
    switch (t.kind) {
      case TokenKind::kInteger:
      case TokenKind::kFloat:
      case TokenKind::kTimeFrames:
      case TokenKind::kTimeTicks:
      case TokenKind::kString:
      case TokenKind::kName:
      case TokenKind::kPath:
      case TokenKind::kArrayOpen:
      case TokenKind::kBitArray:
      case TokenKind::kLParen:
      case TokenKind::kLBracket:
      case TokenKind::kAmpersand:
        return true;
      case TokenKind::kIdentifier:
        return t.keyword == Keyword::kNone || t.keyword == Keyword::kTrue ||
               t.keyword == Keyword::kFalse || t.keyword == Keyword::kUndefined ||
               t.keyword == Keyword::kUnsupplied || t.keyword == Keyword::kOk;
      default:
        return false;
    }
  }

  // Where an operand starts: a.b.c starts where a does.
  static ScriptPos StartOf(const AstNode& n) {
    const AstNode* p = &n;
    while ((p->kind == AstKind::kProperty || p->kind == AstKind::kIndex) && p->Child(0)) {
      p = p->Child(0);
    }
    return p->pos;
  }

  // A function call: an operand followed on the same line by arguments, or by ().
  NodePtr Call() {
    NodePtr callee = Operand();
    if (Is(TokenKind::kLParen) && Ahead(1).kind == TokenKind::kRParen) {
      auto n = MakeNode(AstKind::kCall, StartOf(*callee));
      Next();
      Next();
      n->children.push_back(std::move(callee));
      return n;
    }
    if (!StartsArgument()) return callee;
    auto n = MakeNode(AstKind::kCall, StartOf(*callee));
    n->children.push_back(std::move(callee));
    while (StartsArgument()) {
      if ((IsName(Cur()) || IsReservedKey()) && Ahead(1).kind == TokenKind::kColon) {
        AstNamed key;
        key.name = Cur().text;
        Next();
        Next();
        key.value = Is(TokenKind::kAmpersand) ? RefArgument() : KeyValue();
        n->keys.push_back(std::move(key));
      } else if (Is(TokenKind::kAmpersand)) {
        n->children.push_back(RefArgument());
      } else {
        n->children.push_back(Operand());
      }
    }
    return n;
  }

  NodePtr Operand() {
    NodePtr p = Primary();
    while (true) {
      if (Is(TokenKind::kDot)) {
        const ScriptPos pos = Cur().pos;
        Next();
        if (!Is(TokenKind::kIdentifier)) Expected("a property name");
        auto n = MakeNode(AstKind::kProperty, pos);
        n->text = Cur().text;
        Next();
        n->children.push_back(std::move(p));
        p = std::move(n);
      } else if (Is(TokenKind::kLBracket) && !Cur().space_before) {
        auto n = MakeNode(AstKind::kIndex, Cur().pos);
        Next();
        SkipNewlines();
        Nest nest(*this);
        n->children.push_back(std::move(p));
        n->children.push_back(Expr());
        SkipNewlines();
        Expect(TokenKind::kRBracket, "]");
        p = std::move(n);
      } else {
        return p;
      }
    }
  }

  NodePtr Literal(FPValue v) {
    auto n = MakeNode(AstKind::kLiteral, Cur().pos);
    n->value = std::move(v);
    Next();
    return n;
  }

  NodePtr Primary() {
    const ScriptToken& t = Cur();
    switch (t.kind) {
      case TokenKind::kInteger:
        return Literal(FPValue(t.integer));
      case TokenKind::kFloat:
        return Literal(FPValue(t.number));
      case TokenKind::kTimeFrames: {
        auto n = Literal(FPValue(t.number));
        n->op = kTimeFrames;
        return n;
      }
      case TokenKind::kTimeTicks: {
        const double ticks = std::clamp(std::round(t.number), double(INT_MIN), double(INT_MAX));
        auto n = Literal(FPValue(static_cast<int>(ticks)));
        n->op = kTimeTicks;
        return n;
      }
      case TokenKind::kString:
        return Literal(FPValue(t.text));
      case TokenKind::kName:
        return Literal(FPValue::Name(t.text));
      case TokenKind::kPath: {
        auto n = MakeNode(AstKind::kPathName, t.pos);
        n->text = t.text;
        Next();
        return n;
      }
      case TokenKind::kBitArray:
        return Literal(FPValue(t.bits));
      case TokenKind::kArrayOpen:
        return List(AstKind::kArray, TokenKind::kRParen, ")");
      case TokenKind::kLBracket: {
        auto n = List(AstKind::kPoint, TokenKind::kRBracket, "]");
        if (n->children.size() < 2 || n->children.size() > 4) {
          Fail(n->pos, "a point takes 2, 3 or 4 components");
        }
        return n;
      }
      case TokenKind::kLParen: {
        auto n = MakeNode(AstKind::kBlock, t.pos);
        Next();
        Sequence(TokenKind::kRParen, n->children);
        Next();
        return n;
      }
      case TokenKind::kIdentifier:
        switch (t.keyword) {
          case Keyword::kNone: {
            auto n = MakeNode(AstKind::kIdentifier, t.pos);
            n->text = t.text;
            Next();
            return n;
          }
          case Keyword::kTrue:
          case Keyword::kOn:
            return Literal(FPValue(true));
          case Keyword::kFalse:
          case Keyword::kOff:
            return Literal(FPValue(false));
          case Keyword::kUndefined:
          case Keyword::kUnsupplied:
            return Literal(FPValue());
          case Keyword::kOk:
            return Literal(FPValue::Void());
          case Keyword::kUnsupported:
            Unsupported(t);
          default:
            break;
        }
        break;
      default:
        break;
    }
    Expected("an expression");
  }

  NodePtr List(AstKind kind, TokenKind close, const char* close_text) {
    auto n = MakeNode(kind, Cur().pos);
    Next();
    SkipNewlines();
    if (Is(close)) {
      Next();
      return n;
    }
    while (true) {
      n->children.push_back(Expr());
      SkipNewlines();
      if (Is(close)) break;
      if (!Is(TokenKind::kComma)) Expected(std::string(", or ") + close_text);
      Next();
      SkipNewlines();
    }
    Next();
    return n;
  }

  const std::vector<ScriptToken>& toks_;
  ScriptError& error_;
  size_t i_ = 0;
  int depth_ = 0;
};

}  // namespace

std::shared_ptr<const ScriptProgram> ParseScript(std::string_view text, ScriptError& error) {
  std::vector<ScriptToken> tokens;
  if (!TokenizeScript(text, tokens, error)) return nullptr;
  try {
    return Parser(tokens, error).Program();
  } catch (const SyntaxFailure&) {
    return nullptr;
  }
}
