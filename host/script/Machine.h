#pragma once
// Runs a program on a batch of samples at once: each instruction is a loop over the lanes, so that what an interpreter
// takes to find the next one is paid once a batch. A worker has a machine of its own; nothing is allocated in a run.
//
//   Machine machine(program);
//   machine.SetNumber(intensity, 0.5);                // the same in all lanes, until it is set again
//   double* x = machine.Lanes(position.registers[0]); // set x[0] ... x[count - 1]
//   machine.Run(count);
//   machine.Result(0)[i];                             // of lane i

#include <vector>

#include "globals/Vec.h"
#include "host/script/Program.h"

namespace orlix::script {

enum class FailureKind { None, TooManyInstructions, NotFinite };

// Why samples have failed, the first by kind and line.
struct Failure {
  FailureKind kind = FailureKind::None;
  int line = 0;
  void Note(FailureKind kind, int line);
};

class Machine {
 public:
  static constexpr int kLanes = 128;
  // What one sample may execute in loops; one that needs more fails.
  static constexpr double kMaxSteps = 100000;

  // The program outlives the machine.
  explicit Machine(const Program& program);

  void SetNumber(const Input& input, double value);
  void SetVector(const Input& input, const Vec3D& value);
  double* Lanes(Register r) { return registers_[r].lanes; }

  // Lanes [0, count), of which only those where active isn't 0 are asked for; null for all. A sample whose result is no
  // finite number, or that executes too much, has 0 for a result and is noted as a failure.
  void Run(int count, const double* active = nullptr);
  const double* Result(int component) const { return results_[component].lanes; }

  // Of all runs since the last call.
  Failure TakeFailure();

  // The value of one operation.
  static double Evaluate(Op op, double a, double b, double c);

 private:
  struct alignas(64) Block {
    double lanes[kLanes];
  };

  const Program* program_;
  std::vector<Block> registers_;
  Block results_[3];
  Failure failure_;
};

}  // namespace orlix::script
