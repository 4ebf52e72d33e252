// Statements of a script: what they do to variables, and to the lanes in which they run.

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "host/script/Compilation.h"

namespace orlix::script {

void Compilation::CompileScope(const std::vector<Statement>& statements) {
  const std::size_t first = variables_.size();
  for (const Statement& statement : statements) {
    CompileStatement(statement, first);
  }
  CloseScope(first);
}

void Compilation::CloseScope(std::size_t first) {
  for (std::size_t i = variables_.size(); i-- > first;) {
    const Variable& variable = variables_[i];
    // One without a type holds three.
    if (!variable.isShared)
      code_.GiveBack({variable.type.value_or(Type::Vector),
                      {variable.registers[0], variable.registers[1], variable.registers[2]},
                      true});
  }
  variables_.resize(first);
}

void Compilation::CompileStatement(const Statement& statement, std::size_t scope) {
  const Visit visit(*this, statement.offset);
  switch (statement.kind) {
    case StatementKind::Declare:
      for (std::size_t i = scope; i < variables_.size(); ++i) {
        if (variables_[i].name == statement.name) {
          Fail(statement.offset, fmt::format("there is a variable {} already", Shown(statement.name)));
        }
      }
      return Declare(statement);
    case StatementKind::Assign:
      return CompileAssignment(statement);
    case StatementKind::Evaluate:
      return code_.GiveBack(CompileCall(*statement.value, false));
    case StatementKind::If:
      return CompileIf(statement);
    case StatementKind::Loop:
      return CompileLoop(statement);
    case StatementKind::Block:
      return CompileScope(statement.body);
    case StatementKind::Break:
      return Leave();
    case StatementKind::Continue:
      code_.Emit(Op::Or, continued_, continued_, way_.mask);
      return Leave();
    case StatementKind::Return:
      return CompileReturn(statement);
  }
}

void Compilation::Declare(const Statement& statement) {
  CheckNewVariable(statement.name, statement.offset);
  Variable variable{statement.name, {}};
  if (statement.value) {
    Value value = CompileExpression(*statement.value);
    if (!value.owned) value = Copied(value);
    variable.type = value.type;
    std::copy_n(value.registers, 3, variable.registers);
  } else {
    for (Register& r : variable.registers) {
      r = code_.Take();
      code_.Emit(Op::Copy, r, code_.Constant(0));
    }
  }
  variables_.push_back(variable);
}

Value Compilation::Copied(const Value& value) {
  const Value copy = code_.Take(value.type);
  code_.Assign(copy.registers, value, nullptr);
  return copy;
}

Op Compilation::OperationOf(TokenKind assignment) {
  return assignment == TokenKind::AddAssign        ? Op::Add
         : assignment == TokenKind::SubtractAssign ? Op::Subtract
         : assignment == TokenKind::MultiplyAssign ? Op::Multiply
                                                   : Op::Divide;
}

void Compilation::CompileAssignment(const Statement& statement) {
  const bool isPart = statement.target->kind == ExpressionKind::Component;
  const Expression& name = isPart ? *statement.target->operands[0] : *statement.target;
  ReadVariable(name);  // it is there before its value is looked at
  Value value = CompileExpression(*statement.value);
  Variable& variable = ReadVariable(name);
  if (isPart && variable.type != Type::Vector) {
    Fail(name.offset, fmt::format("{} is {}, only a vector has .x, .y and .z", Shown(name.name),
                                  variable.type ? "a number" : "no vector yet"));
  }
  if (!variable.type) {
    if (statement.token != TokenKind::Assign) Fail(name.offset, fmt::format("{} has no value yet", Shown(name.name)));
    variable.type = value.type;
    if (value.type == Type::Number) code_.GiveBack(variable.registers[2]), code_.GiveBack(variable.registers[1]);
  }
  Value target{isPart ? Type::Number : *variable.type, {}, false};
  std::copy_n(variable.registers, 3, target.registers);
  if (isPart) target.registers[0] = variable.registers[statement.target->component];
  if (statement.token != TokenKind::Assign) {
    value = Arithmetic(OperationOf(statement.token), target, value, statement.value->offset);
  }
  if (value.type != target.type) {
    Fail(statement.value->offset,
         fmt::format("{} is {}, this is {}{}", Shown(name.name), isPart ? "a vector with numbers" : NameOf(target.type),
                     NameOf(value.type), value.type == Type::Number ? "; write vector(x, y, z)" : ""));
  }
  code_.Assign(target.registers, value, way_.isWhole ? nullptr : &way_.mask);
}

Register Compilation::Masked(Op op, Register a, Register b) {
  const Register mask = code_.Take();
  code_.Emit(op, mask, a, b);
  return mask;
}

void Compilation::Leave() {
  code_.Emit(Op::Copy, way_.mask, code_.Constant(0));
  way_.isWhole = false;
}

Register Compilation::CompileCondition(const Expression& expression) {
  const Value condition = CompileExpression(expression);
  if (condition.type != Type::Number) Fail(expression.offset, "a condition must be a number, this is a vector");
  const Register r = condition.registers[0];
  if (condition.owned) return r;
  const Register copy = code_.Take();
  code_.Emit(Op::Copy, copy, r);
  return copy;
}

void Compilation::CompileBranch(const std::vector<Statement>& statements, Register mask) {
  const Way outside = std::exchange(way_, Way{mask, false});
  const std::size_t over = code_.JumpIfNone(mask);
  CompileScope(statements);
  code_.Land(over);
  way_ = outside;
}

void Compilation::CompileIf(const Statement& statement) {
  const bool exits = statement.mayBreak || statement.mayContinue || statement.mayReturn;
  const Register condition = CompileCondition(*statement.value);
  const Register then = Masked(Op::And, way_.mask, condition);
  const bool hasElse = exits || !statement.otherwise.empty();
  const Register otherwise = hasElse ? Masked(Op::AndNot, way_.mask, condition) : Register(0);
  code_.GiveBack(condition);
  CompileBranch(statement.body, then);
  if (!statement.otherwise.empty()) CompileBranch(statement.otherwise, otherwise);
  if (exits) {
    code_.Emit(Op::Or, way_.mask, then, otherwise);
    way_.isWhole = false;
  }
  code_.GiveBack(then);
  if (hasElse) code_.GiveBack(otherwise);
}

void Compilation::CompileLoop(const Statement& statement) {
  const Way outside = way_;
  const Register inside = code_.Take(), round = code_.Take();
  const Register outer = std::exchange(continued_, code_.Take());
  code_.Emit(Op::Copy, inside, outside.mask);
  const std::uint32_t top = code_.Label();
  way_ = {inside, false};
  if (statement.value) {
    const Register condition = CompileCondition(*statement.value);
    code_.Emit(Op::And, inside, inside, condition);
    code_.GiveBack(condition);
  }
  code_.SetLine(LineOf(statement.offset));
  const std::size_t step = code_.BeginRound(inside);
  const std::size_t out = code_.JumpIfNone(inside);
  code_.Emit(Op::Copy, round, inside);
  code_.Emit(Op::Copy, continued_, code_.Constant(0));
  way_.mask = round;
  CompileScope(statement.body);
  code_.Emit(Op::Or, inside, round, continued_);
  way_ = {inside, false};
  for (const Statement& last : statement.otherwise) CompileStatement(last, variables_.size());
  code_.JumpTo(top);
  code_.EndRound(step, top);
  code_.Land(out);
  for (const Register r : {continued_, round, inside}) code_.GiveBack(r);
  continued_ = outer;
  way_ = outside;
  if (statement.mayReturn) {
    code_.Emit(Op::AndNot, way_.mask, way_.mask, frames_.back().gone);
    way_.isWhole = false;
  }
}

void Compilation::CompileReturn(const Statement& statement) {
  Value value = statement.value ? CompileExpression(*statement.value) : code_.Number(0);
  Frame& frame = frames_.back();
  const bool isMain = frame.function->name == "main";
  if (isMain && !statement.value) Fail(statement.offset, "main must return a value, \"return ...;\"");
  if (frame.returned && frame.type.has_value() != (statement.value != nullptr)) {
    Fail(statement.offset,
         fmt::format("{} returns a value in one place and nothing in another", Shown(frame.function->name)));
  }
  if (statement.value && frame.type && *frame.type != value.type) {
    Fail(statement.value->offset, fmt::format("{} returns {} here, and {} before", Shown(frame.function->name),
                                              NameOf(value.type), NameOf(*frame.type)));
  }
  frame.returned = true;
  if (statement.value) frame.type = value.type;
  if (isMain) resultOffset_ = statement.offset;
  if (!frame.leavesEarly) {
    // Variables go with their scope.
    frame.value = value.owned || !statement.value ? value : Copied(value);
    return;
  }
  code_.Assign(frame.result, value, way_.isWhole ? nullptr : &way_.mask);
  code_.Emit(Op::Or, frame.gone, frame.gone, way_.mask);
  Leave();
}

}  // namespace orlix::script
