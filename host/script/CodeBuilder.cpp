#include "host/script/CodeBuilder.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include "host/script/Machine.h"

namespace orlix::script {

namespace {

// How many of a, b and c an instruction reads.
int OperandsOf(Op op) {
  switch (op) {
    case Op::Jump:
    case Op::LoopStep:
      return 0;
    case Op::JumpIfNone:
    case Op::Copy:
    case Op::Negate:
    case Op::Not:
    case Op::Abs:
    case Op::Sign:
    case Op::Floor:
    case Op::Ceil:
    case Op::Fract:
    case Op::Sqrt:
    case Op::Sin:
    case Op::Cos:
    case Op::Tan:
    case Op::Asin:
    case Op::Acos:
    case Op::Atan:
    case Op::Exp:
    case Op::Log:
      return 1;
    case Op::Select:
    case Op::MultiplyAdd:
    case Op::Clamp:
    case Op::Mix:
    case Op::SmoothStep:
    case Op::Noise:
    case Op::Random:
      return 3;
    default:
      return 2;
  }
}

bool Reads(const Instruction& instruction, Register r) {
  const int operands = OperandsOf(instruction.op);
  return (operands > 0 && instruction.a == r) || (operands > 1 && instruction.b == r) ||
         (operands > 2 && instruction.c == r) || (instruction.op == Op::LoopStep && instruction.r == r);
}

bool Writes(const Instruction& instruction, Register r) {
  return instruction.op != Op::Jump && instruction.op != Op::JumpIfNone && instruction.r == r;
}

}  // namespace

Register CodeBuilder::Take() {
  if (free_.empty()) return static_cast<Register>(program_.registerCount++);
  const Register r = free_.back();
  free_.pop_back();
  return r;
}

Value CodeBuilder::Take(Type type) {
  Value value{type, {}, true};
  for (int c = 0; c < ComponentsOf(type); ++c) value.registers[c] = Take();
  return value;
}

void CodeBuilder::GiveBack(const Value& value) {
  if (!value.owned) return;
  for (int c = ComponentsOf(value.type); c-- > 0;) GiveBack(value.registers[c]);
}

Register CodeBuilder::Constant(double value) {
  const auto [found, fresh] = constants_.try_emplace(std::bit_cast<std::uint64_t>(value), Register(0));
  if (fresh) {
    // Never one that was lent: a jump may go past what used it before.
    found->second = static_cast<Register>(program_.registerCount++);
    program_.constants.push_back({found->second, value});
    values_[found->second] = value;
  }
  return found->second;
}

void CodeBuilder::Emit(Op op, Register r, Register a, Register b, Register c) {
  program_.code.push_back({op, r, a, b, c, 0});
  program_.lines.push_back(line_);
}

bool CodeBuilder::Fold(Op op, std::initializer_list<Value> operands, Value& folded) {
  double of[3][3] = {};
  int n = 0;
  for (const Value& operand : operands) {
    for (int c = 0; c < 3; ++c) {
      const auto found = values_.find(operand.At(c));
      if (found == values_.end()) return false;
      of[c][n] = found->second;
    }
    ++n;
  }
  for (int c = 0; c < ComponentsOf(folded.type); ++c) {
    const double value = Machine::Evaluate(op, of[c][0], of[c][1], of[c][2]);
    if (!std::isfinite(value)) return false;  // a failure of the samples that come here
    folded.registers[c] = Constant(value);
  }
  return true;
}

// a b + c in one pass over the lanes: sum is a product that nothing else reads.
bool CodeBuilder::FuseMultiply(Register r, Register sum, Register other) {
  auto& code = program_.code;
  const std::size_t begin = WindowBegin();
  for (std::size_t i = code.size(); i-- > begin;) {
    const Instruction found = code[i];
    if (!Writes(found, sum)) {
      if (Reads(found, sum)) return false;
      continue;
    }
    if (found.op != Op::Multiply) return false;
    for (std::size_t j = i + 1; j < code.size(); ++j) {
      if (Writes(code[j], found.a) || Writes(code[j], found.b)) return false;
    }
    code.erase(code.begin() + static_cast<std::ptrdiff_t>(i));
    program_.lines.erase(program_.lines.begin() + static_cast<std::ptrdiff_t>(i));
    Emit(Op::MultiplyAdd, r, found.a, found.b, other);
    return true;
  }
  return false;
}

Value CodeBuilder::Apply(Op op, std::initializer_list<Value> operands) {
  Value result{Type::Number, {}, false};
  for (const Value& operand : operands) {
    if (operand.type == Type::Vector) result.type = Type::Vector;
  }
  if (Fold(op, operands, result)) return result;
  // A number may stand where an operand stood, as its one instruction reads before it writes.
  if (result.type == Type::Number) {
    for (const Value& operand : operands) GiveBack(operand);
  }
  result = Take(result.type);
  const Value* of = operands.begin();
  for (int c = 0; c < ComponentsOf(result.type); ++c) {
    Register r[3] = {};
    for (std::size_t n = 0; n < operands.size(); ++n) r[n] = of[n].At(c);
    const auto product = [&](int n) { return of[n].owned && (of[n].type == result.type); };
    if (op == Op::Add && r[0] != r[1]) {
      if (product(0) && FuseMultiply(result.registers[c], r[0], r[1])) continue;
      if (product(1) && FuseMultiply(result.registers[c], r[1], r[0])) continue;
    }
    Emit(op, result.registers[c], r[0], r[1], r[2]);
  }
  if (result.type == Type::Vector) {
    for (const Value& operand : operands) GiveBack(operand);
  }
  return result;
}

std::size_t CodeBuilder::WindowBegin() const {
  constexpr std::size_t kWindow = 64;
  return std::max(label_, program_.code.size() - std::min(program_.code.size(), kWindow));
}

bool CodeBuilder::Retarget(Register from, Register to) {
  const std::size_t begin = WindowBegin();
  for (std::size_t i = program_.code.size(); i-- > begin;) {
    Instruction& instruction = program_.code[i];
    if (Writes(instruction, from)) {
      instruction.r = to;
      return true;
    }
    if (Reads(instruction, from) || Reads(instruction, to) || Writes(instruction, to)) return false;
  }
  return false;
}

void CodeBuilder::Assign(const Register* to, const Value& value, const Register* mask) {
  const int components = ComponentsOf(value.type);
  Value from = value;
  // v = vector(v.y, v.x, 0): what is still to be read must not be overwritten.
  bool overlaps = false;
  for (int c = 0; c < components; ++c) {
    for (int other = 0; other < components; ++other) overlaps |= other != c && from.registers[c] == to[other];
  }
  if (overlaps) {
    from = Take(value.type);
    for (int c = 0; c < components; ++c) Emit(Op::Copy, from.registers[c], value.registers[c]);
  }
  for (int c = 0; c < components; ++c) {
    if (mask) {
      Emit(Op::Select, to[c], *mask, from.registers[c], to[c]);
    } else if (from.registers[c] != to[c] && !(from.owned && Retarget(from.registers[c], to[c]))) {
      Emit(Op::Copy, to[c], from.registers[c]);
    }
  }
  GiveBack(from);
  if (overlaps) GiveBack(value);
}

std::uint32_t CodeBuilder::Label() {
  label_ = program_.code.size();
  return static_cast<std::uint32_t>(label_);
}

std::size_t CodeBuilder::JumpIfNone(Register mask) {
  Emit(Op::JumpIfNone, 0, mask);
  return Label() - 1;
}

void CodeBuilder::JumpTo(std::uint32_t label) {
  Emit(Op::Jump, 0, 0);
  program_.code.back().target = label;
}

std::size_t CodeBuilder::BeginRound(Register mask) {
  program_.hasLoops = true;
  Emit(Op::LoopStep, mask, 0);
  return Label() - 1;
}

void CodeBuilder::EndRound(std::size_t round, std::uint32_t begin) {
  program_.code[round].target = static_cast<std::uint32_t>(program_.code.size()) - begin;
}

Program CodeBuilder::Finish() {
  for (const Instruction& instruction : program_.code) {
    program_.readsLanes |= Reads(instruction, Program::kLanes);
  }
  return std::move(program_);
}

}  // namespace orlix::script
