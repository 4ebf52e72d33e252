// Expressions of a script, and the functions of the language.

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "host/script/Compilation.h"

namespace orlix::script {

Value Compilation::CompileExpression(const Expression& expression) {
  const Visit visit(*this, expression.offset);
  switch (expression.kind) {
    case ExpressionKind::Number:
      return code_.Number(expression.number);
    case ExpressionKind::Name:
      return CompileName(expression);
    case ExpressionKind::Component:
      return CompileComponent(expression);
    case ExpressionKind::Unary: {
      const Value operand = CompileExpression(*expression.operands[0]);
      if (expression.token == TokenKind::Minus) return code_.Apply(Op::Negate, {operand});
      RequireNumber(operand, "!", expression.offset);
      return code_.Apply(Op::Not, {operand});
    }
    case ExpressionKind::Binary:
      return CompileBinary(expression);
    case ExpressionKind::Logical:
      return CompileLogical(expression);
    case ExpressionKind::Conditional:
      return CompileConditional(expression);
    case ExpressionKind::Call:
      return CompileCall(expression, true);
  }
  return {};
}

Value Compilation::CompileName(const Expression& expression) {
  if (!FindVariable(expression.name)) {
    if (const double* constant = FindConstant(expression.name)) return code_.Number(*constant);
  }
  const Variable& variable = ReadVariable(expression);
  if (!variable.type) Fail(expression.offset, fmt::format("{} has no value yet", Shown(expression.name)));
  return {*variable.type, {variable.registers[0], variable.registers[1], variable.registers[2]}, false};
}

Value Compilation::CompileComponent(const Expression& expression) {
  const Value whole = CompileExpression(*expression.operands[0]);
  if (whole.type != Type::Vector) {
    Fail(expression.offset, "only a vector has .x, .y and .z, this is a number");
  }
  if (whole.owned) {
    for (int c = 0; c < 3; ++c) {
      if (c != expression.component) code_.GiveBack(whole.registers[c]);
    }
  }
  return {Type::Number, {whole.registers[expression.component]}, whole.owned};
}

void Compilation::RequireNumber(const Value& value, const char* what, std::size_t offset) {
  if (value.type == Type::Vector) Fail(offset, fmt::format("{} takes numbers, this is a vector", what));
}

Value Compilation::CompileBinary(const Expression& expression) {
  const Value a = CompileOperand(expression, 0);
  const Value b = CompileOperand(expression, 1);
  code_.SetLine(LineOf(expression.offset));
  switch (expression.token) {
    case TokenKind::Plus:
      return Arithmetic(Op::Add, a, b, expression.offset);
    case TokenKind::Minus:
      return Arithmetic(Op::Subtract, a, b, expression.offset);
    case TokenKind::Star:
      return Arithmetic(Op::Multiply, a, b, expression.offset);
    case TokenKind::Slash:
      return Arithmetic(Op::Divide, a, b, expression.offset);
    case TokenKind::Equal:
      return Equality(Op::Equal, Op::And, a, b, expression.offset);
    case TokenKind::NotEqual:
      return Equality(Op::NotEqual, Op::Or, a, b, expression.offset);
    default:
      break;
  }
  const bool isRemainder = expression.token == TokenKind::Percent;
  for (const Value& operand : {a, b}) RequireNumber(operand, isRemainder ? "%" : "a comparison", expression.offset);
  switch (expression.token) {
    case TokenKind::Less:
      return code_.Apply(Op::Less, {a, b});
    case TokenKind::LessEqual:
      return code_.Apply(Op::LessEqual, {a, b});
    case TokenKind::Greater:
      return code_.Apply(Op::Less, {b, a});
    case TokenKind::GreaterEqual:
      return code_.Apply(Op::LessEqual, {b, a});
    default:
      return code_.Apply(Op::Remainder, {a, b});
  }
}

Value Compilation::Arithmetic(Op op, const Value& a, const Value& b, std::size_t offset) {
  if (b.type == Type::Vector && a.type == Type::Vector && (op == Op::Multiply || op == Op::Divide)) {
    Fail(offset, op == Op::Multiply ? "a vector times a vector: write dot(a, b), cross(a, b), or vector(a.x * b.x, ...)"
                                    : "a vector by a vector: write vector(a.x / b.x, ...)");
  }
  if (b.type == Type::Vector && op == Op::Divide) Fail(offset, "a number can't be divided by a vector");
  return code_.Apply(op, {a, b});
}

Value Compilation::Equality(Op each, Op all, const Value& a, const Value& b, std::size_t offset) {
  if (a.type != b.type) Fail(offset, "a number can't be compared with a vector");
  const Value parts = code_.Apply(each, {a, b});
  if (parts.type == Type::Number) return parts;
  const Value xy = code_.Apply(all, {Part(parts, 0), Part(parts, 1)});
  return code_.Apply(all, {xy, Part(parts, 2)});
}

Value Compilation::Part(const Value& vector, int component) {
  return {Type::Number, {vector.registers[component]}, vector.owned};
}

Value Compilation::CompileOperand(const Expression& expression, std::size_t which) {
  const Value value = CompileExpression(*expression.operands[which]);
  if (value.owned) return value;
  for (std::size_t later = which + 1; later < expression.operands.size(); ++later) {
    if (!IsCheap(*expression.operands[later])) return Copied(value);
  }
  return value;
}

bool Compilation::IsCheap(const Expression& expression) {
  if (expression.kind == ExpressionKind::Call && (FindFunction(expression.name) || expression.name == "Noise")) {
    return false;
  }
  return std::all_of(expression.operands.begin(), expression.operands.end(),
                     [&](const auto& operand) { return IsCheap(*operand); });
}

Value Compilation::CompileLogical(const Expression& expression) {
  const bool isAnd = expression.token == TokenKind::And;
  const Op op = isAnd ? Op::And : Op::Or;
  const char* name = isAnd ? "&&" : "||";
  const Value a = CompileExpression(*expression.operands[0]);
  RequireNumber(a, name, expression.operands[0]->offset);
  if (IsCheap(*expression.operands[1])) {
    const Value b = CompileExpression(*expression.operands[1]);
    RequireNumber(b, name, expression.operands[1]->offset);
    return code_.Apply(op, {a, b});
  }
  const Value result = a.owned ? a : Copied(a);
  const Register open = Masked(isAnd ? Op::And : Op::AndNot, way_.mask, result.registers[0]);
  const Way outside = std::exchange(way_, Way{open, false});
  const std::size_t over = code_.JumpIfNone(open);
  const Value b = CompileExpression(*expression.operands[1]);
  RequireNumber(b, name, expression.operands[1]->offset);
  code_.Emit(op, result.registers[0], result.registers[0], b.registers[0]);
  code_.GiveBack(b);
  code_.Land(over);
  way_ = outside;
  code_.GiveBack(open);
  // One that was jumped over is what its first operand was.
  return code_.Apply(Op::NotEqual, {result, code_.Number(0)});
}

Value Compilation::CompileConditional(const Expression& expression) {
  const Register condition = CompileCondition(*expression.operands[0]);
  const Expression &first = *expression.operands[1], &second = *expression.operands[2];
  const auto check = [&](const Value& a, const Value& b) {
    if (a.type != b.type) Fail(expression.offset, "one side of \":\" is a number, the other a vector");
  };
  if (IsCheap(first) && IsCheap(second)) {
    const Value a = CompileExpression(first), b = CompileExpression(second);
    check(a, b);
    return code_.Apply(Op::Select, {{Type::Number, {condition}, true}, a, b});
  }
  const Register then = Masked(Op::And, way_.mask, condition), otherwise = Masked(Op::AndNot, way_.mask, condition);
  code_.GiveBack(condition);
  const Way outside = way_;
  way_ = {then, false};
  const std::size_t overFirst = code_.JumpIfNone(then);
  const Value a = CompileExpression(first), result = a.owned ? a : Copied(a);
  code_.Land(overFirst);
  way_.mask = otherwise;
  const std::size_t overSecond = code_.JumpIfNone(otherwise);
  const Value b = CompileExpression(second);
  check(result, b);
  code_.Assign(result.registers, b, &otherwise);
  code_.Land(overSecond);
  way_ = outside;
  code_.GiveBack(then), code_.GiveBack(otherwise);
  return result;
}

Value Compilation::CompileBuiltin(const Builtin& builtin, const Expression& call) {
  Value operands[3];
  const int count = static_cast<int>(call.operands.size());
  const bool isPoint = builtin.kind == BuiltinKind::Point || builtin.kind == BuiltinKind::Spread;
  const bool fits = count == builtin.operands || (isPoint && count == 1) ||
                    (builtin.kind == BuiltinKind::Spread && count > 0 && count < 3);
  if (!fits)
    Fail(call.offset, fmt::format("{} gets {} arguments, must be {}", Shown(builtin.name), count, builtin.usage));
  for (int i = 0; i < count; ++i) operands[i] = CompileOperand(call, static_cast<std::size_t>(i));
  code_.SetLine(LineOf(call.offset));
  const auto require = [&](Type type) {
    for (int i = 0; i < count; ++i) {
      if (operands[i].type != type) {
        Fail(call.operands[static_cast<std::size_t>(i)]->offset,
             fmt::format("this is {}, must be {}: {}", NameOf(operands[i].type), NameOf(type), builtin.usage));
      }
    }
  };
  const Value &a = operands[0], &b = operands[1], &c = operands[2];
  switch (builtin.kind) {
    case BuiltinKind::Each:
      return count == 1   ? code_.Apply(builtin.op, {a})
             : count == 2 ? code_.Apply(builtin.op, {a, b})
                          : code_.Apply(builtin.op, {a, b, c});
    case BuiltinKind::Point:
    case BuiltinKind::Spread:
      if (count == 1 && a.type == Type::Vector) return code_.Apply(builtin.op, {Part(a, 0), Part(a, 1), Part(a, 2)});
      if (count == 1 && builtin.kind == BuiltinKind::Point) require(Type::Vector);
      require(Type::Number);
      for (int i = count; i < 3; ++i) operands[i] = code_.Number(0);
      return code_.Apply(builtin.op, {a, b, c});
    case BuiltinKind::MakeVector:
      require(Type::Number);
      return MakeVector(operands);
    case BuiltinKind::Dot:
      require(Type::Vector);
      return Given(Dot(a, b), {a, b});
    case BuiltinKind::Cross:
      require(Type::Vector);
      return Cross(a, b);
    case BuiltinKind::Length:
      require(Type::Vector);
      return Given(code_.Apply(Op::Sqrt, {Dot(a, a)}), {a});
    case BuiltinKind::Normalize:
      require(Type::Vector);
      return Normalize(a);
  }
  return {};
}

Value Compilation::Kept(Value value) {
  value.owned = false;
  return value;
}

Value Compilation::Given(const Value& result, std::initializer_list<Value> operands) {
  for (const Value& operand : operands) code_.GiveBack(operand);
  return result;
}

Value Compilation::MakeVector(const Value (&parts)[3]) {
  bool owned = false;
  for (const Value& part : parts) owned |= part.owned;
  Value vector{Type::Vector, {}, owned};
  for (int c = 0; c < 3; ++c) {
    // All components are temporaries, or none is.
    vector.registers[c] = (owned && !parts[c].owned ? Copied(parts[c]) : parts[c]).registers[0];
  }
  return vector;
}

Value Compilation::Dot(const Value& a, const Value& b) {
  const auto product = [&](int c) { return code_.Apply(Op::Multiply, {Kept(Part(a, c)), Kept(Part(b, c))}); };
  const Value x = product(0), xy = code_.Apply(Op::Add, {product(1), x});
  return code_.Apply(Op::Add, {product(2), xy});
}

Value Compilation::Cross(const Value& a, const Value& b) {
  Value parts[3];
  for (int c = 0; c < 3; ++c) {
    const int next = (c + 1) % 3, last = (c + 2) % 3;
    const Value minus = code_.Apply(Op::Multiply, {Kept(Part(a, last)), Kept(Part(b, next))});
    const Value plus = code_.Apply(Op::Multiply, {Kept(Part(a, next)), Kept(Part(b, last))});
    parts[c] = code_.Apply(Op::Subtract, {plus, minus});
  }
  return Given(MakeVector(parts), {a, b});
}

Value Compilation::Normalize(const Value& a) {
  const Value length = code_.Apply(Op::Sqrt, {Dot(a, a)});
  const Value divisor = code_.Apply(Op::Select, {Kept(length), length, code_.Number(1)});
  return code_.Apply(Op::Divide, {a, divisor});
}

}  // namespace orlix::script
