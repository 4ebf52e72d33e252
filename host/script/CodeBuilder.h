#pragma once
// The code of a program while it grows: instructions, registers that are lent and given back, constants.

#include <initializer_list>
#include <unordered_map>

#include "host/script/Program.h"

namespace orlix::script {

// What an expression gave. An owned one is a temporary, whose registers go back once it was read.
struct Value {
  Type type = Type::Number;
  Register registers[3] = {};
  bool owned = false;

  // The register of a component; of a number, always the same.
  Register At(int component) const { return registers[type == Type::Vector ? component : 0]; }
};

class CodeBuilder {
 public:
  // Of the instructions that follow.
  void SetLine(int line) { line_ = line; }

  Register Take();
  Value Take(Type type);
  void GiveBack(Register r) { free_.push_back(r); }
  void GiveBack(const Value& value);

  Register Constant(double value);
  Value Number(double value) { return {Type::Number, {Constant(value)}, false}; }

  // r = op(a, b, c).
  void Emit(Op op, Register r, Register a, Register b = 0, Register c = 0);
  // op of each component, in new registers; gives the operands back. Of constants it is worked out at once.
  Value Apply(Op op, std::initializer_list<Value> operands);
  // Makes to what value is, and gives value back. mask: the lanes in which that happens; null for all.
  void Assign(const Register* to, const Value& value, const Register* mask);

  // Where the next instruction will stand, as a place to jump to.
  std::uint32_t Label();
  // A jump whose place isn't known yet; its number is for Land. mask: jumps when no lane is on.
  std::size_t JumpIfNone(Register mask);
  void Land(std::size_t jump) { program_.code[jump].target = Label(); }
  void JumpTo(std::uint32_t label);
  // A round of a loop for the lanes of mask; its length is for EndRound.
  std::size_t BeginRound(Register mask);
  void EndRound(std::size_t round, std::uint32_t begin);

  std::size_t InstructionCount() const { return program_.code.size(); }
  int registerCount() const { return program_.registerCount; }
  Program& program() { return program_; }
  Program Finish();

 private:
  bool Fold(Op op, std::initializer_list<Value> operands, Value& folded);
  bool FuseMultiply(Register r, Register sum, Register other);
  // Lets the instruction that made the temporary from write to instead, where nothing between reads or writes to.
  bool Retarget(Register from, Register to);

  // From where on instructions may still be changed: behind the last label, and not far back.
  std::size_t WindowBegin() const;

  Program program_;
  std::vector<Register> free_;
  std::unordered_map<std::uint64_t, Register> constants_;  // by their bits
  std::unordered_map<Register, double> values_;            // of constants
  std::size_t label_ = 0;                                  // code behind it runs from top to bottom
  int line_ = 1;
};

}  // namespace orlix::script
