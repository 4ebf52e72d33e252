#pragma once
// The text of a script becomes tokens.

#include <string>
#include <string_view>
#include <vector>

#include "host/script/ScriptError.h"

namespace orlix::script {

enum class TokenKind {
  End,
  Name,
  Number,
  // Keywords.
  Var,
  If,
  Else,
  While,
  For,
  Break,
  Continue,
  Return,
  // Punctuation.
  LeftParenthesis,
  RightParenthesis,
  LeftBrace,
  RightBrace,
  Comma,
  Semicolon,
  Dot,
  Question,
  Colon,
  Assign,
  AddAssign,
  SubtractAssign,
  MultiplyAssign,
  DivideAssign,
  Increment,
  Decrement,
  Plus,
  Minus,
  Star,
  Slash,
  Percent,
  Not,
  And,
  Or,
  Less,
  LessEqual,
  Greater,
  GreaterEqual,
  Equal,
  NotEqual
};

struct Token {
  TokenKind kind = TokenKind::End;
  std::string_view text;   // in the source; empty at the end
  std::size_t offset = 0;  // of its first byte
  double number = 0;       // of a number
};

// The tokens of a source, with an End behind the last. Comments run from // to the end of the line or from /* to */.
Outcome<std::vector<Token>> Tokenize(std::string_view source);

// Whether a name can be that of a variable: letters, digits and _, no digit in front, no keyword.
bool IsName(std::string_view text);

}  // namespace orlix::script
