#pragma once
// A script as the parser leaves it: names aren't looked up yet, types aren't known.

#include <cstddef>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "host/script/Lexer.h"

namespace orlix::script {

enum class ExpressionKind {
  Number,
  Name,
  Component,    // operand.x
  Unary,        // - or !
  Binary,       // arithmetic and comparisons
  Logical,      // && or ||: the second operand is asked only where the first doesn't decide
  Conditional,  // condition ? a : b
  Call
};

struct Expression {
  ExpressionKind kind = ExpressionKind::Number;
  TokenKind token = TokenKind::End;  // the operator of Unary, Binary and Logical
  std::size_t offset = 0;            // where a message about it points
  std::string_view name;             // of Name and Call
  double number = 0;
  int component = 0;  // 0 x, 1 y, 2 z
  int height = 1;     // of the tree below, this one counted
  std::vector<std::unique_ptr<Expression>> operands;
};

enum class StatementKind {
  Declare,   // var name = value
  Assign,    // target op= value
  Evaluate,  // a call whose result nobody takes
  If,
  Loop,  // while, and for behind its first part
  Block,
  Break,
  Continue,
  Return
};

struct Statement {
  StatementKind kind = StatementKind::Block;
  std::size_t offset = 0;
  std::string_view name;                   // that is declared
  TokenKind token = TokenKind::Assign;     // the operator of Assign: one of =, +=, -=, *=, /=
  std::unique_ptr<Expression> target;      // of Assign: Name, or Component of a Name
  std::unique_ptr<Expression> value;       // null where there is none; the condition of If and Loop
  std::vector<Statement> body, otherwise;  // otherwise: else, or the last part of a for
  // What stands inside, however deep, apart from loops that catch the first two.
  bool mayBreak = false, mayContinue = false, mayReturn = false;
};

struct Function {
  std::string_view name;
  std::size_t offset = 0;
  std::vector<std::string_view> parameters;
  std::vector<Statement> body;
};

struct SyntaxTree {
  std::vector<Statement> globals;  // Declare
  std::vector<Function> functions;
  std::set<std::string_view> assigned;  // names that some statement assigns to
};

}  // namespace orlix::script
