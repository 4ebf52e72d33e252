#include "host/script/Compiler.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "host/script/Builtins.h"
#include "host/script/CodeBuilder.h"
#include "host/script/Parser.h"

namespace orlix::script {

namespace {

constexpr int kMaxDepth = 1000;     // of the compiler's own recursion, through all functions
constexpr int kMaxVisits = 200000;  // of statements and expressions, those of a function once for each of its calls

const char* NameOf(Type type) { return type == Type::Vector ? "a vector" : "a number"; }

// What ends the compilation; thrown and caught in this file alone.
struct Mistake {
  std::size_t offset;
  std::string text;
};

struct Variable {
  std::string_view name;
  std::optional<Type> type;  // nothing until it gets its first value
  Register registers[3] = {};
  int input = -1;         // which of the program's inputs it is
  bool isHost = false;    // main's argument: an object, no value
  bool isShared = false;  // its registers are somebody else's
};

// A call that is being compiled.
struct Frame {
  const Function* function = nullptr;
  bool leavesEarly = false;  // some return isn't its last statement
  bool returned = false;     // some return was seen
  std::optional<Type> type;  // of its result
  Value value;               // the result
  // With leavesEarly: where results gather, and the lanes that have returned.
  Register result[3] = {};
  Register gone = 0;
};

// A loop that is being compiled.
struct LoopExits {
  Register continued = 0;
};

class Compiler {
 public:
  Compiler(std::string_view source, const SyntaxTree& tree, const std::vector<InputDeclaration>& inputs,
           std::optional<Type> wanted)
      : source_(source), tree_(tree), wanted_(wanted) {
    for (std::size_t i = 0; i < source.size(); ++i) {
      if (source[i] == '\n') lines_.push_back(i);
    }
    for (const InputDeclaration& declared : inputs) {
      Input input{declared.name, declared.type};
      const Value place = code_.Take(input.type);
      std::copy_n(place.registers, 3, input.registers);
      code_.program().inputs.push_back(std::move(input));
    }
  }

  Outcome<Program> Run() {
    try {
      CheckFunctions();
      if (const Function* main = FindFunction("main")) CompileMain(*main);
    } catch (const Mistake& mistake) {
      return ErrorAt(source_, mistake.offset, mistake.text);
    }
    return code_.Finish();
  }

 private:
  [[noreturn]] static void Fail(std::size_t offset, std::string text) { throw Mistake{offset, std::move(text)}; }

  // Counts the work, and how deep it goes.
  class Visit {
   public:
    Visit(Compiler& compiler, std::size_t offset) : compiler_(compiler) {
      if (++compiler.visits_ > kMaxVisits || compiler.code_.InstructionCount() > std::size_t(kMaxInstructions)) {
        Fail(offset, fmt::format("the script becomes longer than {} instructions, with what its functions call",
                                 kMaxInstructions));
      }
      if (compiler.code_.registerCount() > kMaxRegisters) {
        Fail(offset,
             fmt::format("the script needs more than {} registers; use fewer variables at once", kMaxRegisters));
      }
      if (compiler.depth_ >= kMaxDepth) Fail(offset, "too much is nested here, with what functions call");
      ++compiler.depth_;
      compiler.code_.SetLine(compiler.LineOf(offset));
    }
    ~Visit() { --compiler_.depth_; }

   private:
    Compiler& compiler_;
  };

  int LineOf(std::size_t offset) const {
    return 1 + static_cast<int>(std::lower_bound(lines_.begin(), lines_.end(), offset) - lines_.begin());
  }

  // --- names
  // ----------------------------------------------------------------------------------------------------------

  void CheckFunctions() {
    for (const Function& function : tree_.functions) {
      CheckNewName(function.name, function.offset);
      if (FindFunction(function.name) != &function) {
        Fail(function.offset, fmt::format("there are two functions {}", Shown(function.name)));
      }
      const auto& names = function.parameters;
      for (std::size_t i = 0; i < names.size(); ++i) {
        if (std::find(names.begin(), names.begin() + static_cast<std::ptrdiff_t>(i), names[i]) ==
            names.begin() + static_cast<std::ptrdiff_t>(i))
          continue;
        Fail(function.offset, fmt::format("{} has two parameters {}", Shown(function.name), Shown(names[i])));
      }
    }
  }

  void CheckNewName(std::string_view name, std::size_t offset) {
    if (FindBuiltin(name) || FindConstant(name)) {
      Fail(offset, fmt::format("{} is part of the language, take another name", Shown(name)));
    }
  }

  const Function* FindFunction(std::string_view name) const {
    for (const Function& function : tree_.functions) {
      if (function.name == name) return &function;
    }
    return nullptr;
  }

  // The innermost of this name that is seen from here: of the function, or of the whole script.
  Variable* FindVariable(std::string_view name) {
    for (std::size_t i = variables_.size(); i-- > firstVariable_;) {
      if (variables_[i].name == name) return &variables_[i];
    }
    for (std::size_t i = std::min(globals_, firstVariable_); i-- > 0;) {
      if (variables_[i].name == name) return &variables_[i];
    }
    return nullptr;
  }

  Variable& ReadVariable(const Expression& at) {
    if (Variable* found = FindVariable(at.name)) {
      if (found->isHost) Fail(at.offset, fmt::format("{} is the node's object, which has no value", Shown(at.name)));
      if (found->input >= 0) code_.program().inputs[static_cast<std::size_t>(found->input)].used = true;
      return *found;
    }
    std::vector<std::string_view> names;
    for (std::size_t i = 0; i < variables_.size(); ++i) {
      if (i < globals_ || i >= firstVariable_) names.push_back(variables_[i].name);
    }
    names.push_back("PI");
    if (FindBuiltin(at.name) || FindFunction(at.name)) {
      Fail(at.offset, fmt::format("{} is a function, and stands here without its (...)", Shown(at.name)));
    }
    Fail(at.offset, fmt::format("there is no variable {}{}", Shown(at.name), DidYouMean(at.name, names)));
  }

  // --- main
  // -----------------------------------------------------------------------------------------------------------

  void CompileMain(const Function& main) {
    if (main.parameters.size() > 1) Fail(main.offset, "main has one argument, op");
    std::vector<Input>& inputs = code_.program().inputs;
    for (std::size_t i = 0; i < inputs.size(); ++i) {
      Variable variable{inputs[i].name, inputs[i].type, {}, static_cast<int>(i), false, true};
      std::copy_n(inputs[i].registers, 3, variable.registers);
      if (tree_.assigned.contains(variable.name)) {
        // A call changes a copy: what was set from outside is there for the next one.
        const Value copy = code_.Take(*variable.type);
        code_.Assign(copy.registers,
                     {*variable.type, {inputs[i].registers[0], inputs[i].registers[1], inputs[i].registers[2]}, false},
                     nullptr);
        std::copy_n(copy.registers, 3, variable.registers);
        inputs[i].used = true;
      }
      variables_.push_back(variable);
    }
    const std::size_t builtIn = globals_ = variables_.size();
    for (const Statement& global : tree_.globals) {
      for (std::size_t i = 0; i < variables_.size(); ++i) {
        if (variables_[i].name != global.name) continue;
        Fail(global.offset, fmt::format("there is a variable {} already{}", Shown(global.name),
                                        i < builtIn ? ", which the node sets" : ""));
      }
      Declare(global);
      globals_ = variables_.size();
    }
    globals_ = firstVariable_ = variables_.size();
    if (!main.parameters.empty()) {
      variables_.push_back({main.parameters[0], {}, {}, -1, true, true});
    }
    Program& program = code_.program();
    const Value result = CompileBody(main, main.offset);
    if (!resultType_) Fail(main.offset, "main returns nothing; it must return a value, \"return ...;\"");
    if (wanted_ && *wanted_ != result.type) {
      Fail(resultOffset_, fmt::format("main returns {}, must be {}", NameOf(result.type),
                                      *wanted_ == Type::Vector ? "a vector: \"return vector(x, y, z);\"" : "a number"));
    }
    program.resultType = result.type;
    for (int c = 0; c < 3; ++c) program.result[c] = result.At(c);
    program.resultLine = LineOf(resultOffset_);
  }

  // --- functions
  // ------------------------------------------------------------------------------------------------------

  Value CompileCall(const Expression& call, bool needsValue) {
    if (const Builtin* builtin = FindBuiltin(call.name)) {
      if (!needsValue) Fail(call.offset, fmt::format("nobody takes what {} gives", Shown(call.name)));
      return CompileBuiltin(*builtin, call);
    }
    const Function* function = FindFunction(call.name);
    if (!function) {
      std::vector<std::string_view> names;
      for (const Builtin& builtin : Builtins()) names.push_back(builtin.name);
      for (const Function& own : tree_.functions) names.push_back(own.name);
      Fail(call.offset, fmt::format("there is no function {}{}", Shown(call.name), DidYouMean(call.name, names)));
    }
    CheckCall(*function, call);
    const std::size_t outside = firstVariable_;
    std::vector<Variable> parameters;
    for (std::size_t i = 0; i < call.operands.size(); ++i) {
      Value value = CompileExpression(*call.operands[i]);
      if (!value.owned) value = Copied(value);
      Variable parameter{function->parameters[i], value.type};
      std::copy_n(value.registers, 3, parameter.registers);
      parameters.push_back(parameter);
    }
    firstVariable_ = variables_.size();
    variables_.insert(variables_.end(), parameters.begin(), parameters.end());
    const Value result = CompileBody(*function, call.offset);
    const bool gave = resultType_.has_value();
    CloseScope(firstVariable_);
    firstVariable_ = outside;
    if (needsValue && !gave) {
      Fail(call.offset, fmt::format("{} returns nothing, and a value is needed here", Shown(call.name)));
    }
    return result;
  }

  void CheckCall(const Function& function, const Expression& call) {
    if (function.name == "main") Fail(call.offset, "main is called by the node alone");
    if (call.operands.size() != function.parameters.size()) {
      Fail(call.offset, fmt::format("{} gets {} arguments, must be {}", Shown(function.name), call.operands.size(),
                                    function.parameters.size()));
    }
    const auto open =
        std::find_if(frames_.begin(), frames_.end(), [&](const Frame& frame) { return frame.function == &function; });
    if (open != frames_.end()) {
      std::string through;
      for (auto frame = open + 1; frame != frames_.end(); ++frame)
        through += fmt::format(" through {}", Shown(frame->function->name));
      Fail(call.offset,
           fmt::format("{} calls itself{}; a script has no recursion, write a loop", Shown(function.name), through));
    }
    if (frames_.size() >= std::size_t(kMaxCallDepth)) {
      Fail(call.offset, fmt::format("functions call each other more than {} deep", kMaxCallDepth));
    }
  }

  static bool LeavesEarly(const Function& function) {
    for (std::size_t i = 0; i < function.body.size(); ++i) {
      const bool isEnd = i + 1 == function.body.size() && function.body[i].kind == StatementKind::Return;
      if (function.body[i].mayReturn && !isEnd) return true;
    }
    return false;
  }

  // The statements of a function whose parameters are variables already. Leaves in resultType_ whether it gave a value.
  Value CompileBody(const Function& function, std::size_t calledAt) {
    const Visit visit(*this, calledAt);
    const Way outside = way_;
    const auto outerLoops = std::exchange(loop_, nullptr);
    Frame frame;
    frame.function = &function, frame.leavesEarly = LeavesEarly(function);
    if (frame.leavesEarly) {
      // A lane that leaves goes on with 0 until it returns something.
      way_.mask = code_.Take();
      code_.Emit(Op::Copy, way_.mask, outside.mask);
      frame.gone = code_.Take();
      code_.Emit(Op::Copy, frame.gone, code_.Constant(0));
      for (Register& r : frame.result) {
        r = code_.Take();
        code_.Emit(Op::Copy, r, code_.Constant(0));
      }
    }
    frames_.push_back(frame);
    CompileScope(function.body);
    frame = frames_.back();
    frames_.pop_back();
    if (frame.leavesEarly) {
      code_.GiveBack(way_.mask), code_.GiveBack(frame.gone);
      frame.value = {frame.type.value_or(Type::Number), {frame.result[0], frame.result[1], frame.result[2]}, true};
      for (int c = ComponentsOf(frame.value.type); c < 3; ++c) code_.GiveBack(frame.result[c]);
      if (!frame.type) code_.GiveBack(frame.value);
    }
    loop_ = outerLoops;
    way_ = outside;
    resultType_ = frame.type;
    return frame.type ? frame.value : code_.Number(0);
  }

  // --- statements
  // -----------------------------------------------------------------------------------------------------

  void CompileScope(const std::vector<Statement>& statements) {
    const std::size_t first = variables_.size();
    for (const Statement& statement : statements) {
      CompileStatement(statement, first);
    }
    CloseScope(first);
  }

  void CloseScope(std::size_t first) {
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

  void CompileStatement(const Statement& statement, std::size_t scope) {
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
        code_.Emit(Op::Or, loop_->continued, loop_->continued, way_.mask);
        return Leave();
      case StatementKind::Return:
        return CompileReturn(statement);
    }
  }

  void Declare(const Statement& statement) {
    CheckNewName(statement.name, statement.offset);
    if (FindFunction(statement.name)) {
      Fail(statement.offset, fmt::format("{} is a function, take another name", Shown(statement.name)));
    }
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

  Value Copied(const Value& value) {
    const Value copy = code_.Take(value.type);
    code_.Assign(copy.registers, value, nullptr);
    return copy;
  }

  static Op OperationOf(TokenKind assignment) {
    return assignment == TokenKind::AddAssign        ? Op::Add
           : assignment == TokenKind::SubtractAssign ? Op::Subtract
           : assignment == TokenKind::MultiplyAssign ? Op::Multiply
                                                     : Op::Divide;
  }

  void CompileAssignment(const Statement& statement) {
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
           fmt::format("{} is {}, this is {}{}", Shown(name.name),
                       isPart ? "a vector with numbers" : NameOf(target.type), NameOf(value.type),
                       value.type == Type::Number ? "; write vector(x, y, z)" : ""));
    }
    code_.Assign(target.registers, value, way_.isWhole ? nullptr : &way_.mask);
  }

  // Lanes in which a statement runs.
  struct Way {
    Register mask = Program::kLanes;
    bool isWhole = true;  // no lane that a batch is about is off
  };

  Register Masked(Op op, Register a, Register b) {
    const Register mask = code_.Take();
    code_.Emit(op, mask, a, b);
    return mask;
  }

  // The lanes of the mask go on no further.
  void Leave() {
    code_.Emit(Op::Copy, way_.mask, code_.Constant(0));
    way_.isWhole = false;
  }

  Register CompileCondition(const Expression& expression) {
    const Value condition = CompileExpression(expression);
    if (condition.type != Type::Number) Fail(expression.offset, "a condition must be a number, this is a vector");
    const Register r = condition.registers[0];
    if (condition.owned) return r;
    const Register copy = code_.Take();
    code_.Emit(Op::Copy, copy, r);
    return copy;
  }

  void CompileBranch(const std::vector<Statement>& statements, Register mask) {
    const Way outside = std::exchange(way_, Way{mask, false});
    const std::size_t over = code_.JumpIfNone(mask);
    CompileScope(statements);
    code_.Land(over);
    way_ = outside;
  }

  void CompileIf(const Statement& statement) {
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

  void CompileLoop(const Statement& statement) {
    const Way outside = way_;
    LoopExits exits;
    LoopExits* const outer = std::exchange(loop_, &exits);
    const Register inside = code_.Take(), round = code_.Take();
    exits.continued = code_.Take();
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
    code_.Emit(Op::Copy, exits.continued, code_.Constant(0));
    way_.mask = round;
    CompileScope(statement.body);
    code_.Emit(Op::Or, inside, round, exits.continued);
    way_ = {inside, false};
    for (const Statement& last : statement.otherwise) CompileStatement(last, variables_.size());
    code_.JumpTo(top);
    code_.EndRound(step, top);
    code_.Land(out);
    for (const Register r : {exits.continued, round, inside}) code_.GiveBack(r);
    loop_ = outer;
    way_ = outside;
    if (statement.mayReturn) {
      code_.Emit(Op::AndNot, way_.mask, way_.mask, frames_.back().gone);
      way_.isWhole = false;
    }
  }

  void CompileReturn(const Statement& statement) {
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

  // --- expressions
  // ----------------------------------------------------------------------------------------------------

  Value CompileExpression(const Expression& expression) {
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

  Value CompileName(const Expression& expression) {
    if (!FindVariable(expression.name)) {
      if (const double* constant = FindConstant(expression.name)) return code_.Number(*constant);
    }
    const Variable& variable = ReadVariable(expression);
    if (!variable.type) Fail(expression.offset, fmt::format("{} has no value yet", Shown(expression.name)));
    return {*variable.type, {variable.registers[0], variable.registers[1], variable.registers[2]}, false};
  }

  Value CompileComponent(const Expression& expression) {
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

  static void RequireNumber(const Value& value, const char* what, std::size_t offset) {
    if (value.type == Type::Vector) Fail(offset, fmt::format("{} takes numbers, this is a vector", what));
  }

  Value CompileBinary(const Expression& expression) {
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

  // By component; a number counts for all three.
  Value Arithmetic(Op op, const Value& a, const Value& b, std::size_t offset) {
    if (b.type == Type::Vector && a.type == Type::Vector && (op == Op::Multiply || op == Op::Divide)) {
      Fail(offset, op == Op::Multiply
                       ? "a vector times a vector: write dot(a, b), cross(a, b), or vector(a.x * b.x, ...)"
                       : "a vector by a vector: write vector(a.x / b.x, ...)");
    }
    if (b.type == Type::Vector && op == Op::Divide) Fail(offset, "a number can't be divided by a vector");
    return code_.Apply(op, {a, b});
  }

  Value Equality(Op each, Op all, const Value& a, const Value& b, std::size_t offset) {
    if (a.type != b.type) Fail(offset, "a number can't be compared with a vector");
    const Value parts = code_.Apply(each, {a, b});
    if (parts.type == Type::Number) return parts;
    const Value xy = code_.Apply(all, {Part(parts, 0), Part(parts, 1)});
    return code_.Apply(all, {xy, Part(parts, 2)});
  }

  static Value Part(const Value& vector, int component) {
    return {Type::Number, {vector.registers[component]}, vector.owned};
  }

  // One of several operands. Its value is that of before what the later ones change, through functions of the script.
  Value CompileOperand(const Expression& expression, std::size_t which) {
    const Value value = CompileExpression(*expression.operands[which]);
    if (value.owned) return value;
    for (std::size_t later = which + 1; later < expression.operands.size(); ++later) {
      if (!IsCheap(*expression.operands[later])) return Copied(value);
    }
    return value;
  }

  // Whether all lanes may as well work it out: it changes nothing and costs little.
  bool IsCheap(const Expression& expression) {
    if (expression.kind == ExpressionKind::Call && (FindFunction(expression.name) || expression.name == "Noise")) {
      return false;
    }
    return std::all_of(expression.operands.begin(), expression.operands.end(),
                       [&](const auto& operand) { return IsCheap(*operand); });
  }

  Value CompileLogical(const Expression& expression) {
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

  Value CompileConditional(const Expression& expression) {
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

  // --- functions of the language
  // ----------------------------------------------------------------------------------------

  Value CompileBuiltin(const Builtin& builtin, const Expression& call) {
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

  static Value Kept(Value value) {
    value.owned = false;
    return value;
  }
  Value Given(const Value& result, std::initializer_list<Value> operands) {
    for (const Value& operand : operands) code_.GiveBack(operand);
    return result;
  }

  Value MakeVector(const Value (&parts)[3]) {
    bool owned = false;
    for (const Value& part : parts) owned |= part.owned;
    Value vector{Type::Vector, {}, owned};
    for (int c = 0; c < 3; ++c) {
      // All components are temporaries, or none is.
      vector.registers[c] = (owned && !parts[c].owned ? Copied(parts[c]) : parts[c]).registers[0];
    }
    return vector;
  }

  // Leaves the operands as they are.
  Value Dot(const Value& a, const Value& b) {
    const auto product = [&](int c) { return code_.Apply(Op::Multiply, {Kept(Part(a, c)), Kept(Part(b, c))}); };
    const Value x = product(0), xy = code_.Apply(Op::Add, {product(1), x});
    return code_.Apply(Op::Add, {product(2), xy});
  }

  Value Cross(const Value& a, const Value& b) {
    Value parts[3];
    for (int c = 0; c < 3; ++c) {
      const int next = (c + 1) % 3, last = (c + 2) % 3;
      const Value minus = code_.Apply(Op::Multiply, {Kept(Part(a, last)), Kept(Part(b, next))});
      const Value plus = code_.Apply(Op::Multiply, {Kept(Part(a, next)), Kept(Part(b, last))});
      parts[c] = code_.Apply(Op::Subtract, {plus, minus});
    }
    return Given(MakeVector(parts), {a, b});
  }

  // A zero vector stays one.
  Value Normalize(const Value& a) {
    const Value length = code_.Apply(Op::Sqrt, {Dot(a, a)});
    const Value divisor = code_.Apply(Op::Select, {Kept(length), length, code_.Number(1)});
    return code_.Apply(Op::Divide, {a, divisor});
  }

  std::string_view source_;
  const SyntaxTree& tree_;
  const std::optional<Type> wanted_;
  CodeBuilder code_;
  std::vector<std::size_t> lines_;  // offsets of line ends
  int visits_ = 0, depth_ = 0;
  std::vector<Variable> variables_;  // of the script, then of the functions that are open
  std::size_t globals_ = 0, firstVariable_ = 0;
  std::vector<Frame> frames_;
  LoopExits* loop_ = nullptr;
  Way way_;
  std::optional<Type> resultType_;
  std::size_t resultOffset_ = 0;
};

}  // namespace

Outcome<Program> Compile(std::string_view source, const std::vector<InputDeclaration>& inputs,
                         std::optional<Type> wanted) {
  if (source.size() > kMaxSourceBytes) {
    return ErrorAt(source, kMaxSourceBytes,
                   fmt::format("the script has {} bytes, at most {} are read", source.size(), kMaxSourceBytes));
  }
  const auto parsed = Parse(source);
  if (const auto* error = std::get_if<ScriptError>(&parsed)) return *error;
  return Compiler(source, std::get<SyntaxTree>(parsed), inputs, wanted).Run();
}

}  // namespace orlix::script
