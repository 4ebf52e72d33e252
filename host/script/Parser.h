#pragma once
// Tokens become a tree, by recursive descent.
//
//   script      = { "var" declarations ";" | name "(" [ name { "," name } ] ")" block }
//   declarations = name [ "=" expression ] { "," name [ "=" expression ] }
//   statement   = block | ";" | "var" declarations ";" | simple ";"
//               | "if" "(" expression ")" statement [ "else" statement ] | "while" "(" expression ")" statement
//               | "for" "(" [ "var" declarations | simple ] ";" [ expression ] ";" [ simple ] ")" statement
//               | "break" ";" | "continue" ";" | "return" [ expression ] ";"
//   simple      = target ( "=" | "+=" | "-=" | "*=" | "/=" ) expression | target ( "++" | "--" ) | ( "++" | "--" )
//   target
//               | call
//   target      = name [ "." ( "x" | "y" | "z" ) ]
//   expression  = as in C: ?: || && == != < <= > >= + - * / % unary - ! calls, components, parentheses

#include "host/script/SyntaxTree.h"

namespace orlix::script {

// Of statements inside each other, and of expressions.
inline constexpr int kMaxNesting = 128;

// The names in the tree stand in the source.
Outcome<SyntaxTree> Parse(std::string_view source);

}  // namespace orlix::script
