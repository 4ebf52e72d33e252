#include "host/script/Compiler.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "host/script/Compilation.h"
#include "host/script/Parser.h"

namespace orlix::script {

namespace {

constexpr int kMaxDepth = 1000;     // of the compiler's own recursion, through all functions
constexpr int kMaxVisits = 200000;  // of statements and expressions, those of a function once for each of its calls

}  // namespace

const char* NameOf(Type type) { return type == Type::Vector ? "a vector" : "a number"; }

Compilation::Visit::Visit(Compilation& compilation, std::size_t offset) : compilation_(compilation) {
  if (++compilation.visits_ > kMaxVisits || compilation.code_.InstructionCount() > std::size_t(kMaxInstructions)) {
    Fail(offset,
         fmt::format("the script becomes longer than {} instructions, with what its functions call", kMaxInstructions));
  }
  compilation.CheckRegisters(offset);
  if (compilation.depth_ >= kMaxDepth) Fail(offset, "too much is nested here, with what functions call");
  ++compilation.depth_;
  compilation.code_.SetLine(compilation.LineOf(offset));
}

Compilation::Compilation(std::string_view source, const SyntaxTree& tree, const std::vector<InputDeclaration>& inputs,
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

Outcome<Program> Compilation::Run() {
  try {
    ReadFunctions();
    if (const Function* main = FindFunction("main")) CompileMain(*main);
    CheckRegisters(0);
  } catch (const Mistake& mistake) {
    return ErrorAt(source_, mistake.offset, mistake.text);
  }
  return code_.Finish();
}

int Compilation::LineOf(std::size_t offset) const {
  return 1 + static_cast<int>(std::lower_bound(lines_.begin(), lines_.end(), offset) - lines_.begin());
}

void Compilation::CheckRegisters(std::size_t offset) const {
  if (code_.registerCount() <= kMaxRegisters) return;
  Fail(offset, fmt::format("the script needs more than {} registers; use fewer variables at once", kMaxRegisters));
}

void Compilation::ReadFunctions() {
  for (const Function& function : tree_.functions) {
    CheckNewName(function.name, function.offset);
    if (!functions_.emplace(function.name, &function).second) {
      Fail(function.offset, fmt::format("there are two functions {}", Shown(function.name)));
    }
    const std::set<std::string_view> names(function.parameters.begin(), function.parameters.end());
    if (names.size() < function.parameters.size()) {
      Fail(function.offset, fmt::format("two parameters of {} have one name", Shown(function.name)));
    }
  }
  for (const Function& function : tree_.functions) {
    for (const std::string_view name : function.parameters) CheckNewVariable(name, function.offset);
  }
}

void Compilation::CheckNewName(std::string_view name, std::size_t offset) {
  if (FindBuiltin(name) || FindConstant(name)) {
    Fail(offset, fmt::format("{} is part of the language, take another name", Shown(name)));
  }
}

void Compilation::CheckNewVariable(std::string_view name, std::size_t offset) {
  CheckNewName(name, offset);
  if (FindFunction(name)) Fail(offset, fmt::format("{} is a function, take another name", Shown(name)));
}

const Function* Compilation::FindFunction(std::string_view name) const {
  const auto found = functions_.find(name);
  return found == functions_.end() ? nullptr : found->second;
}

Compilation::Variable* Compilation::FindVariable(std::string_view name) {
  for (std::size_t i = variables_.size(); i-- > firstVariable_;) {
    if (variables_[i].name == name) return &variables_[i];
  }
  for (std::size_t i = std::min(globals_, firstVariable_); i-- > 0;) {
    if (variables_[i].name == name) return &variables_[i];
  }
  return nullptr;
}

Compilation::Variable& Compilation::ReadVariable(const Expression& at) {
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

void Compilation::CompileMain(const Function& main) {
  if (main.parameters.size() > 1) Fail(main.offset, "main has one argument, op");
  std::vector<Input>& inputs = code_.program().inputs;
  std::set<std::string_view> names;
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
    names.insert(variable.name);
  }
  globals_ = variables_.size();
  for (const Statement& global : tree_.globals) {
    const Visit visit(*this, global.offset);
    if (!names.insert(global.name).second) {
      Fail(global.offset, fmt::format("there is a variable {} already{}", Shown(global.name),
                                      code_.program().Find(global.name) ? ", which the node sets" : ""));
    }
    Declare(global);
    globals_ = variables_.size();
  }
  firstVariable_ = variables_.size();
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

Value Compilation::CompileCall(const Expression& call, bool needsValue) {
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

void Compilation::CheckCall(const Function& function, const Expression& call) {
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

bool Compilation::LeavesEarly(const Function& function) {
  for (std::size_t i = 0; i < function.body.size(); ++i) {
    const bool isEnd = i + 1 == function.body.size() && function.body[i].kind == StatementKind::Return;
    if (function.body[i].mayReturn && !isEnd) return true;
  }
  return false;
}

Value Compilation::CompileBody(const Function& function, std::size_t calledAt) {
  const Visit visit(*this, calledAt);
  const Way outside = way_;
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
  way_ = outside;
  resultType_ = frame.type;
  return frame.type ? frame.value : code_.Number(0);
}

Outcome<Program> Compile(std::string_view source, const std::vector<InputDeclaration>& inputs,
                         std::optional<Type> wanted) {
  if (source.size() > kMaxSourceBytes) {
    return ErrorAt(source, kMaxSourceBytes,
                   fmt::format("the script has {} bytes, at most {} are read", source.size(), kMaxSourceBytes));
  }
  const auto parsed = Parse(source);
  if (const auto* error = std::get_if<ScriptError>(&parsed)) return *error;
  return Compilation(source, std::get<SyntaxTree>(parsed), inputs, wanted).Run();
}

}  // namespace orlix::script
