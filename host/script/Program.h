#pragma once
// What a script is compiled to: code for a machine of registers, each of which holds one number for every lane of a
// batch of samples. A vector takes three registers. Nothing in a program changes while it runs: all workers share one.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace orlix::script {

enum class Type { Number, Vector };

constexpr int ComponentsOf(Type type) { return type == Type::Vector ? 3 : 1; }

using Register = std::uint16_t;

// r: the result; a, b, c: operands. A number is true when it isn't 0; what is true or false gives 1 or 0.
enum class Op : std::uint8_t {
  Copy,         // a
  Select,       // a ? b : c
  Negate,       // -a
  Not,          // !a
  And,          // a && b
  Or,           // a || b
  AndNot,       // a && !b
  Add,          // a + b
  Subtract,     // a - b
  Multiply,     // a b
  MultiplyAdd,  // a b + c, rounded twice
  Divide,       // a / b
  Remainder,    // of a / b, with the sign of a
  Less,
  LessEqual,
  Equal,
  NotEqual,
  // Functions.
  Abs,
  Sign,
  Floor,
  Ceil,
  Fract,  // a - floor(a)
  Sqrt,
  Min,
  Max,
  Mod,         // a - b floor(a / b)
  Step,        // b < a ? 0 : 1
  Clamp,       // a within b and c
  Mix,         // a + c (b - a)
  SmoothStep,  // 0 for c up to a, 1 from b on, smooth between
  Sin,
  Cos,
  Tan,
  Asin,
  Acos,
  Atan,
  Atan2,
  Exp,
  Log,
  Pow,
  Noise,   // at a, b, c
  Random,  // by the bits of a, b, c
  // Control. A mask says which lanes go a way.
  Jump,        // to target
  JumpIfNone,  // to target when no lane of a is on
  LoopStep,    // one round, for the lanes of r: those that have used up their instructions leave
};

struct Instruction {
  Op op = Op::Copy;
  Register r = 0, a = 0, b = 0, c = 0;
  std::uint32_t target = 0;  // of jumps; of a LoopStep, the instructions of a round
};

// A variable that is set from outside before a call.
struct Input {
  std::string name;
  Type type = Type::Number;
  Register registers[3] = {};
  bool used = false;  // the code reads it
};

struct Program {
  // Each lane has as many instructions in loops as this register says when a call begins.
  static constexpr Register kBudget = 0;
  // On in the lanes that a call is about.
  static constexpr Register kLanes = 1;

  std::vector<Instruction> code;
  std::vector<int> lines;  // of the source, for each instruction
  int registerCount = 2;
  bool hasLoops = false, readsLanes = false;
  struct Constant {
    Register place;
    double value;
  };
  std::vector<Constant> constants;
  std::vector<Input> inputs;
  // What main returns; nothing without a main.
  std::optional<Type> resultType;
  Register result[3] = {};  // of a number, all three the same
  int resultLine = 0;

  const Input* Find(std::string_view name) const {
    for (const Input& input : inputs) {
      if (input.name == name) return &input;
    }
    return nullptr;
  }
};

}  // namespace orlix::script
