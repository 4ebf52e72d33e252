#pragma once
// One script on its way from the tree to a program. Compiler.h is what others use.

#include <map>
#include <optional>
#include <string>

#include "host/script/Builtins.h"
#include "host/script/CodeBuilder.h"
#include "host/script/Compiler.h"
#include "host/script/SyntaxTree.h"

namespace orlix::script {

class Compilation {
 public:
  Compilation(std::string_view source, const SyntaxTree& tree, const std::vector<InputDeclaration>& inputs,
              std::optional<Type> wanted);
  Outcome<Program> Run();

 private:
  // What ends the compilation; Run catches it.
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

  // Lanes in which a statement runs.
  struct Way {
    Register mask = Program::kLanes;
    bool isWhole = true;  // no lane that a batch is about is off
  };

  [[noreturn]] static void Fail(std::size_t offset, std::string text) { throw Mistake{offset, std::move(text)}; }
  // Counts the work, and how deep it goes.
  class Visit {
   public:
    Visit(Compilation& compilation, std::size_t offset);
    ~Visit() { --compilation_.depth_; }

   private:
    Compilation& compilation_;
  };
  int LineOf(std::size_t offset) const;

  void CheckRegisters(std::size_t offset) const;

  // Names.
  void ReadFunctions();
  void CheckNewName(std::string_view name, std::size_t offset);
  void CheckNewVariable(std::string_view name, std::size_t offset);
  const Function* FindFunction(std::string_view name) const;
  // The innermost of this name that is seen from here: of the function, or of the whole script.
  Variable* FindVariable(std::string_view name);
  Variable& ReadVariable(const Expression& at);

  // Functions. A call is compiled as if the function stood where it is called.
  void CompileMain(const Function& main);
  Value CompileCall(const Expression& call, bool needsValue);
  // That the arguments fit, and that calls end.
  void CheckCall(const Function& function, const Expression& call);
  // Whether some return isn't its last statement.
  static bool LeavesEarly(const Function& function);
  // The statements of a function whose parameters are variables already. Leaves in resultType_ whether it gave a value.
  Value CompileBody(const Function& function, std::size_t calledAt);

  // Statements.
  // Variables that are declared among them end with them.
  void CompileScope(const std::vector<Statement>& statements);
  void CloseScope(std::size_t first);
  // scope: the first variable of the braces around it.
  void CompileStatement(const Statement& statement, std::size_t scope);
  void Declare(const Statement& statement);
  // In registers of its own.
  Value Copied(const Value& value);
  static Op OperationOf(TokenKind assignment);
  void CompileAssignment(const Statement& statement);
  // A new mask, op of two registers.
  Register Masked(Op op, Register a, Register b);
  // The lanes of the mask go on no further.
  void Leave();
  // Its register is the caller's to give back.
  Register CompileCondition(const Expression& expression);
  // Statements that only the lanes of a mask run; they may take lanes from it.
  void CompileBranch(const std::vector<Statement>& statements, Register mask);
  void CompileIf(const Statement& statement);
  void CompileLoop(const Statement& statement);
  void CompileReturn(const Statement& statement);

  // Expressions.
  Value CompileExpression(const Expression& expression);
  Value CompileName(const Expression& expression);
  Value CompileComponent(const Expression& expression);
  static void RequireNumber(const Value& value, const char* what, std::size_t offset);
  Value CompileBinary(const Expression& expression);
  // By component; a number counts for all three.
  Value Arithmetic(Op op, const Value& a, const Value& b, std::size_t offset);
  // Of vectors: all of the comparisons of each component.
  Value Equality(Op each, Op all, const Value& a, const Value& b, std::size_t offset);
  static Value Part(const Value& vector, int component);
  // One of several operands. Its value is that of before what the later ones change, through functions of the script.
  Value CompileOperand(const Expression& expression, std::size_t which);
  // Whether all lanes may as well work it out: it changes nothing and costs little.
  bool IsCheap(const Expression& expression);
  Value CompileLogical(const Expression& expression);
  Value CompileConditional(const Expression& expression);

  // Functions of the language.
  Value CompileBuiltin(const Builtin& builtin, const Expression& call);
  // As an operand that isn't given back.
  static Value Kept(Value value);
  // Gives the operands back.
  Value Given(const Value& result, std::initializer_list<Value> operands);
  Value MakeVector(const Value (&parts)[3]);
  // Leaves the operands as they are.
  Value Dot(const Value& a, const Value& b);
  Value Cross(const Value& a, const Value& b);
  // A zero vector stays one.
  Value Normalize(const Value& a);

  std::string_view source_;
  const SyntaxTree& tree_;
  const std::optional<Type> wanted_;
  std::map<std::string_view, const Function*> functions_;
  CodeBuilder code_;
  std::vector<std::size_t> lines_;  // offsets of line ends
  int visits_ = 0, depth_ = 0;
  std::vector<Variable> variables_;  // of the script, then of the functions that are open
  std::size_t globals_ = 0, firstVariable_ = 0;
  std::vector<Frame> frames_;
  Register continued_ = 0;  // of the innermost loop: lanes that wait for its next round
  Way way_;
  std::optional<Type> resultType_;
  std::size_t resultOffset_ = 0;
};

// As a message shows it: "a number", "a vector".
const char* NameOf(Type type);

}  // namespace orlix::script
