#include "host/script/Parser.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>

namespace orlix::script {

namespace {

using ExpressionPointer = std::unique_ptr<Expression>;

// How strongly a binary operator binds; 0 for other tokens.
int PrecedenceOf(TokenKind kind) {
  switch (kind) {
    case TokenKind::Or:
      return 1;
    case TokenKind::And:
      return 2;
    case TokenKind::Equal:
    case TokenKind::NotEqual:
      return 3;
    case TokenKind::Less:
    case TokenKind::LessEqual:
    case TokenKind::Greater:
    case TokenKind::GreaterEqual:
      return 4;
    case TokenKind::Plus:
    case TokenKind::Minus:
      return 5;
    case TokenKind::Star:
    case TokenKind::Slash:
    case TokenKind::Percent:
      return 6;
    default:
      return 0;
  }
}

bool IsAssignment(TokenKind kind) {
  return kind == TokenKind::Assign || kind == TokenKind::AddAssign || kind == TokenKind::SubtractAssign ||
         kind == TokenKind::MultiplyAssign || kind == TokenKind::DivideAssign;
}

// A mistake leaves error_ set and what was read so far; every loop ends at it, as Fail moves to the end of the tokens.
class Parser {
 public:
  Parser(std::string_view source, std::vector<Token> tokens) : source_(source), tokens_(std::move(tokens)) {}

  Outcome<SyntaxTree> Run() {
    while (Is(TokenKind::Var) || Is(TokenKind::Name)) {
      if (Is(TokenKind::Var)) {
        ReadDeclarations(tree_.globals);
        Expect(TokenKind::Semicolon, "\";\"");
      } else {
        ReadFunction();
      }
    }
    if (!Is(TokenKind::End)) Fail(fmt::format("{} stands here, must be \"var\" or a function's name", Found()));
    if (error_) return *error_;
    return std::move(tree_);
  }

 private:
  class Nested {
   public:
    explicit Nested(Parser& parser) : parser_(parser) {
      if (++parser_.depth_ > kMaxNesting) parser_.Fail(fmt::format("nested deeper than {}", kMaxNesting));
    }
    ~Nested() { --parser_.depth_; }

   private:
    Parser& parser_;
  };

  const Token& Now() const { return tokens_[at_]; }
  bool Is(TokenKind kind) const { return Now().kind == kind; }
  std::string Found() const { return Is(TokenKind::End) ? "the end of the script" : Shown(Now().text); }
  Token Take() {
    const Token token = Now();
    if (at_ + 1 < tokens_.size()) ++at_;
    return token;
  }
  bool TakeIf(TokenKind kind) {
    if (!Is(kind)) return false;
    Take();
    return true;
  }
  void FailAt(std::size_t offset, std::string text) {
    if (!error_) error_ = ErrorAt(source_, offset, std::move(text));
    at_ = tokens_.size() - 1;
  }
  void Fail(std::string text) { FailAt(Now().offset, std::move(text)); }
  void Expect(TokenKind kind, const char* what) {
    if (!TakeIf(kind)) Fail(fmt::format("{} stands here, must be {}", Found(), what));
  }
  std::string_view ExpectName(const char* what) {
    if (Is(TokenKind::Name)) return Take().text;
    Fail(fmt::format("{} stands here, must be {}", Found(), what));
    return {};
  }

  void ReadFunction() {
    Function function;
    function.offset = Now().offset;
    function.name = Take().text;
    if (!Is(TokenKind::LeftParenthesis)) {
      return FailAt(function.offset,
                    fmt::format("{} stands outside of a function; a script has variables, \"var name = "
                                "1;\", and functions, \"name(...) {{ ... }}\"",
                                Shown(function.name)));
    }
    Take();
    if (!Is(TokenKind::RightParenthesis)) {
      do {
        function.parameters.push_back(ExpectName("a parameter's name"));
      } while (TakeIf(TokenKind::Comma));
    }
    Expect(TokenKind::RightParenthesis, "\")\"");
    ReadBlock(function.body);
    tree_.functions.push_back(std::move(function));
  }

  void ReadBlock(std::vector<Statement>& body) {
    Expect(TokenKind::LeftBrace, "\"{\"");
    while (!Is(TokenKind::RightBrace) && !Is(TokenKind::End)) ReadStatement(body);
    Expect(TokenKind::RightBrace, "\"}\"");
  }

  void ReadDeclarations(std::vector<Statement>& into) {
    Take();  // var
    do {
      Statement statement;
      statement.kind = StatementKind::Declare;
      statement.offset = Now().offset;
      statement.name = ExpectName("a variable's name");
      if (TakeIf(TokenKind::Assign)) statement.value = ReadExpression();
      into.push_back(std::move(statement));
    } while (TakeIf(TokenKind::Comma));
  }

  void ReadStatement(std::vector<Statement>& into) {
    const Nested nested(*this);
    if (TakeIf(TokenKind::Semicolon)) return;
    if (Is(TokenKind::Var)) {
      ReadDeclarations(into);
      return Expect(TokenKind::Semicolon, "\";\"");
    }
    if (Is(TokenKind::For)) return ReadFor(into);
    Statement statement;
    statement.offset = Now().offset;
    switch (Now().kind) {
      case TokenKind::LeftBrace:
        ReadBlock(statement.body);
        break;
      case TokenKind::If:
        ReadIf(statement);
        break;
      case TokenKind::While:
        Take();
        statement.kind = StatementKind::Loop;
        statement.value = ReadCondition();
        ReadLoopBody(statement);
        break;
      case TokenKind::Break:
      case TokenKind::Continue: {
        const bool isBreak = Take().kind == TokenKind::Break;
        statement.kind = isBreak ? StatementKind::Break : StatementKind::Continue;
        (isBreak ? statement.mayBreak : statement.mayContinue) = true;
        if (loops_ == 0)
          FailAt(statement.offset, fmt::format("\"{}\" outside of a loop", isBreak ? "break" : "continue"));
        Expect(TokenKind::Semicolon, "\";\"");
        break;
      }
      case TokenKind::Return:
        Take();
        statement.kind = StatementKind::Return;
        statement.mayReturn = true;
        if (!Is(TokenKind::Semicolon)) statement.value = ReadExpression();
        Expect(TokenKind::Semicolon, "\";\"");
        break;
      default:
        ReadSimple(statement);
        Expect(TokenKind::Semicolon, "\";\"");
    }
    NoteExits(statement);
    into.push_back(std::move(statement));
  }

  static void NoteExits(Statement& statement) {
    for (const std::vector<Statement>* list : {&statement.body, &statement.otherwise}) {
      for (const Statement& inner : *list) {
        statement.mayReturn |= inner.mayReturn;
        if (statement.kind == StatementKind::Loop) continue;
        statement.mayBreak |= inner.mayBreak, statement.mayContinue |= inner.mayContinue;
      }
    }
  }

  ExpressionPointer ReadCondition() {
    Expect(TokenKind::LeftParenthesis, "\"(\"");
    ExpressionPointer condition = ReadExpression();
    Expect(TokenKind::RightParenthesis, "\")\"");
    return condition;
  }

  void ReadIf(Statement& statement) {
    Take();
    statement.kind = StatementKind::If;
    statement.value = ReadCondition();
    ReadStatement(statement.body);
    if (TakeIf(TokenKind::Else)) ReadStatement(statement.otherwise);
  }

  void ReadLoopBody(Statement& loop) {
    ++loops_;
    ReadStatement(loop.body);
    --loops_;
  }

  // A block of its first part and of the loop.
  void ReadFor(std::vector<Statement>& into) {
    Statement block, loop;
    block.offset = loop.offset = Take().offset;
    loop.kind = StatementKind::Loop;
    Expect(TokenKind::LeftParenthesis, "\"(\"");
    if (Is(TokenKind::Var)) {
      ReadDeclarations(block.body);
    } else if (!Is(TokenKind::Semicolon)) {
      ReadSimple(block.body.emplace_back());
    }
    Expect(TokenKind::Semicolon, "\";\"");
    if (!Is(TokenKind::Semicolon)) loop.value = ReadExpression();
    Expect(TokenKind::Semicolon, "\";\"");
    if (!Is(TokenKind::RightParenthesis)) ReadSimple(loop.otherwise.emplace_back());
    Expect(TokenKind::RightParenthesis, "\")\"");
    ReadLoopBody(loop);
    NoteExits(loop);
    block.body.push_back(std::move(loop));
    NoteExits(block);
    into.push_back(std::move(block));
  }

  void ReadSimple(Statement& statement) {
    statement.offset = Now().offset;
    if (Is(TokenKind::Increment) || Is(TokenKind::Decrement)) {
      const TokenKind step = Take().kind;
      statement.target = ReadPostfix();
      return MakeStep(statement, step);
    }
    ExpressionPointer first = ReadPostfix();
    if (error_) return;
    const TokenKind next = Now().kind;
    if (IsAssignment(next)) {
      statement.kind = StatementKind::Assign;
      statement.token = Take().kind;
      statement.target = std::move(first);
      statement.value = ReadExpression();
      if (IsAssignment(Now().kind)) Fail("an assignment is a statement of its own, it has no value");
      return CheckTarget(statement);
    }
    if (next == TokenKind::Increment || next == TokenKind::Decrement) {
      statement.target = std::move(first);
      return MakeStep(statement, Take().kind);
    }
    statement.kind = StatementKind::Evaluate;
    if (first->kind != ExpressionKind::Call) {
      return Fail(fmt::format("{} stands here, must be an assignment such as \"=\"", Found()));
    }
    statement.value = std::move(first);
  }

  // ++ and -- are += 1 and -= 1.
  void MakeStep(Statement& statement, TokenKind step) {
    statement.kind = StatementKind::Assign;
    statement.token = step == TokenKind::Increment ? TokenKind::AddAssign : TokenKind::SubtractAssign;
    statement.value = std::make_unique<Expression>();
    statement.value->number = 1;
    statement.value->offset = statement.offset;
    CheckTarget(statement);
  }

  void CheckTarget(const Statement& statement) {
    if (error_) return;
    const Expression* target = statement.target.get();
    if (target->kind == ExpressionKind::Component) target = target->operands[0].get();
    if (target->kind != ExpressionKind::Name) {
      return FailAt(statement.offset, "only a variable can be assigned to, or its .x, .y or .z");
    }
    tree_.assigned.insert(target->name);
  }

  ExpressionPointer Make(ExpressionKind kind, const Token& token) {
    auto expression = std::make_unique<Expression>();
    expression->kind = kind, expression->token = token.kind, expression->offset = token.offset;
    return expression;
  }

  ExpressionPointer ReadExpression() {
    const Nested nested(*this);
    ExpressionPointer condition = ReadBinary(1);
    if (!Is(TokenKind::Question)) return condition;
    ExpressionPointer choice = Make(ExpressionKind::Conditional, Take());
    Adopt(*choice, std::move(condition));
    Adopt(*choice, ReadExpression());
    Expect(TokenKind::Colon, "\":\"");
    Adopt(*choice, ReadExpression());
    return choice;
  }

  // A chain of operators is a tree as high as it is long.
  void Adopt(Expression& parent, ExpressionPointer operand) {
    parent.height = std::max(parent.height, operand->height + 1);
    if (parent.height > kMaxNesting) FailAt(parent.offset, fmt::format("more than {} operators in one", kMaxNesting));
    parent.operands.push_back(std::move(operand));
  }

  // Operators that bind at least as strongly as lowest; equal ones from left to right.
  ExpressionPointer ReadBinary(int lowest) {
    ExpressionPointer left = ReadUnary();
    for (int precedence = PrecedenceOf(Now().kind); precedence >= lowest && precedence > 0;
         precedence = PrecedenceOf(Now().kind)) {
      const bool logical = Is(TokenKind::And) || Is(TokenKind::Or);
      ExpressionPointer both = Make(logical ? ExpressionKind::Logical : ExpressionKind::Binary, Take());
      Adopt(*both, std::move(left));
      Adopt(*both, ReadBinary(precedence + 1));
      left = std::move(both);
    }
    return left;
  }

  ExpressionPointer ReadUnary() {
    if (!Is(TokenKind::Minus) && !Is(TokenKind::Not)) return ReadPostfix();
    const Nested nested(*this);
    ExpressionPointer unary = Make(ExpressionKind::Unary, Take());
    Adopt(*unary, ReadUnary());
    return unary;
  }

  ExpressionPointer ReadPostfix() {
    ExpressionPointer operand = ReadPrimary();
    while (Is(TokenKind::Dot)) {
      ExpressionPointer part = Make(ExpressionKind::Component, Take());
      part->offset = Now().offset;
      const std::string_view name = Is(TokenKind::Name) ? Now().text : std::string_view();
      if (name != "x" && name != "y" && name != "z") Fail(fmt::format("{} stands here, must be x, y or z", Found()));
      part->component = name == "y" ? 1 : name == "z" ? 2 : 0;
      Take();
      Adopt(*part, std::move(operand));
      operand = std::move(part);
    }
    return operand;
  }

  ExpressionPointer ReadPrimary() {
    const Nested nested(*this);
    if (Is(TokenKind::Number)) {
      ExpressionPointer number = Make(ExpressionKind::Number, Now());
      number->number = Take().number;
      return number;
    }
    if (TakeIf(TokenKind::LeftParenthesis)) {
      ExpressionPointer inside = ReadExpression();
      Expect(TokenKind::RightParenthesis, "\")\"");
      return inside;
    }
    if (!Is(TokenKind::Name)) {
      Fail(fmt::format("{} stands here, must be a value: a number, a variable, a function's call", Found()));
      return Make(ExpressionKind::Number, Now());
    }
    ExpressionPointer named = Make(ExpressionKind::Name, Now());
    named->name = Take().text;
    if (!TakeIf(TokenKind::LeftParenthesis)) return named;
    named->kind = ExpressionKind::Call;
    if (!Is(TokenKind::RightParenthesis)) {
      do {
        Adopt(*named, ReadExpression());
      } while (TakeIf(TokenKind::Comma));
    }
    Expect(TokenKind::RightParenthesis, "\")\"");
    return named;
  }

  std::string_view source_;
  std::vector<Token> tokens_;
  std::size_t at_ = 0;
  int depth_ = 0, loops_ = 0;
  SyntaxTree tree_;
  std::optional<ScriptError> error_;
};

}  // namespace

Outcome<SyntaxTree> Parse(std::string_view source) {
  auto tokens = Tokenize(source);
  if (const auto* error = std::get_if<ScriptError>(&tokens)) return *error;
  return Parser(source, std::move(std::get<std::vector<Token>>(tokens))).Run();
}

}  // namespace orlix::script
