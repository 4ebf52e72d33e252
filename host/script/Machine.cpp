#include "host/script/Machine.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <utility>

#include "globals/LaneMath.h"
#include "globals/Multiversion.h"
#include "host/noise/Noise.h"

namespace orlix::script {

namespace {

// The finaliser of MurmurHash3 for 64 bits (Appleby 2011).
ORLIX_INLINE std::uint64_t Avalanche(std::uint64_t h) {
  h ^= h >> 33;
  h *= 0xff51afd7ed558ccdull;
  h ^= h >> 33;
  h *= 0xc4ceb9fe1a85ec53ull;
  return h ^ (h >> 33);
}

// Uniform in [0, 1). -0 counts as 0.
ORLIX_INLINE double RandomOf(double a, double b, double c) {
  std::uint64_t h = Avalanche(std::bit_cast<std::uint64_t>(a + 0.0) + 0x9e3779b97f4a7c15ull);
  h = Avalanche(h + std::bit_cast<std::uint64_t>(b + 0.0));
  h = Avalanche(h + std::bit_cast<std::uint64_t>(c + 0.0));
  return static_cast<double>(h >> 11) * 0x1p-53;
}

ORLIX_INLINE double SmoothStepOf(double low, double high, double x) {
  const double width = high - low, hard = x < low ? 0 : 1, t = (x - low) / width;
  const double limited = t < 0 ? 0 : t > 1 ? 1 : t;
  return width == 0 ? hard : limited * limited * (3 - 2 * limited);
}

const Noise& LatticeNoise() {
  static const Noise noise(0);
  return noise;
}

void NoiseAt(const double* x, const double* y, const double* z, double* out, int lanes) {
  LatticeNoise().SamplePoints(NoiseType::Gradient, x, y, z, {.octaves = 1}, {out, static_cast<std::size_t>(lanes)});
}

// Lanes that stand at the same place of two registers never depend on others: r may be an operand.
template <class F>
ORLIX_INLINE void ForLanes(int lanes, F&& f) {
#pragma GCC ivdep
  for (int i = 0; i < lanes; ++i) f(i);
}

// By a function that becomes vectors; by the library's for the arguments that the first isn't made for.
template <class IsPlain, class Plain, class Library>
ORLIX_INLINE void ForLanes(const double* a, double* r, int lanes, IsPlain&& isPlain, Plain&& plain, Library&& library) {
  std::int64_t others = 0;
  for (int i = 0; i < lanes; ++i) others |= !isPlain(a[i]);
  if (others == 0) return ForLanes(lanes, [=](int i) { r[i] = plain(a[i]); });
  for (int i = 0; i < lanes; ++i) r[i] = isPlain(a[i]) ? plain(a[i]) : library(a[i]);
}

ORLIX_INLINE bool IsNone(const double* mask, int lanes) {
  std::int64_t on = 0;
  for (int i = 0; i < lanes; ++i) on |= mask[i] != 0;
  return on == 0;
}

// Whether it stopped a lane.
ORLIX_INLINE bool StepLoop(double* mask, double* budget, double steps, int lanes) {
  std::int64_t stopped = 0;
#pragma GCC ivdep
  for (int i = 0; i < lanes; ++i) {
    const double left = mask[i] != 0 ? budget[i] - steps : budget[i];
    budget[i] = left;
    stopped |= mask[i] != 0 && left < 0;
    mask[i] = left < 0 ? 0 : mask[i];
  }
  return stopped != 0;
}

ORLIX_MULTIVERSION
void Execute(const Program& program, double* registers, int stride, int lanes, Failure& failure) {
  const Instruction* const code = program.code.data();
  const std::size_t size = program.code.size();
  for (std::size_t at = 0; at < size; ++at) {
    const Instruction& instruction = code[at];
    const std::ptrdiff_t step = stride;
    double* const r = registers + instruction.r * step;
    const double* const a = registers + instruction.a * step;
    const double* const b = registers + instruction.b * step;
    const double* const c = registers + instruction.c * step;
    switch (instruction.op) {
      case Op::Copy:
        ForLanes(lanes, [=](int i) { r[i] = a[i]; });
        break;
      case Op::Select:
        ForLanes(lanes, [=](int i) { r[i] = a[i] != 0 ? b[i] : c[i]; });
        break;
      case Op::Negate:
        ForLanes(lanes, [=](int i) { r[i] = -a[i]; });
        break;
      case Op::Not:
        ForLanes(lanes, [=](int i) { r[i] = a[i] == 0 ? 1.0 : 0.0; });
        break;
      case Op::And:
        ForLanes(lanes, [=](int i) { r[i] = (a[i] != 0) & (b[i] != 0) ? 1.0 : 0.0; });
        break;
      case Op::Or:
        ForLanes(lanes, [=](int i) { r[i] = (a[i] != 0) | (b[i] != 0) ? 1.0 : 0.0; });
        break;
      case Op::AndNot:
        ForLanes(lanes, [=](int i) { r[i] = (a[i] != 0) & (b[i] == 0) ? 1.0 : 0.0; });
        break;
      case Op::Add:
        ForLanes(lanes, [=](int i) { r[i] = a[i] + b[i]; });
        break;
      case Op::Subtract:
        ForLanes(lanes, [=](int i) { r[i] = a[i] - b[i]; });
        break;
      case Op::Multiply:
        ForLanes(lanes, [=](int i) { r[i] = a[i] * b[i]; });
        break;
      case Op::MultiplyAdd:
        ForLanes(lanes, [=](int i) { r[i] = a[i] * b[i] + c[i]; });
        break;
      case Op::Divide:
        ForLanes(lanes, [=](int i) { r[i] = a[i] / b[i]; });
        break;
      case Op::Remainder:
        ForLanes(lanes, [=](int i) { r[i] = std::fmod(a[i], b[i]); });
        break;
      case Op::Less:
        ForLanes(lanes, [=](int i) { r[i] = a[i] < b[i] ? 1.0 : 0.0; });
        break;
      case Op::LessEqual:
        ForLanes(lanes, [=](int i) { r[i] = a[i] <= b[i] ? 1.0 : 0.0; });
        break;
      case Op::Equal:
        ForLanes(lanes, [=](int i) { r[i] = a[i] == b[i] ? 1.0 : 0.0; });
        break;
      case Op::NotEqual:
        ForLanes(lanes, [=](int i) { r[i] = a[i] != b[i] ? 1.0 : 0.0; });
        break;
      case Op::Abs:
        ForLanes(lanes, [=](int i) { r[i] = std::abs(a[i]); });
        break;
      case Op::Sign:
        ForLanes(lanes, [=](int i) { r[i] = a[i] > 0 ? 1.0 : a[i] < 0 ? -1.0 : 0.0; });
        break;
      case Op::Floor:
        ForLanes(lanes, [=](int i) { r[i] = std::floor(a[i]); });
        break;
      case Op::Ceil:
        ForLanes(lanes, [=](int i) { r[i] = std::ceil(a[i]); });
        break;
      case Op::Fract:
        ForLanes(lanes, [=](int i) { r[i] = a[i] - std::floor(a[i]); });
        break;
      case Op::Sqrt:
        ForLanes(lanes, [=](int i) { r[i] = std::sqrt(a[i]); });
        break;
      case Op::Min:
        ForLanes(lanes, [=](int i) { r[i] = b[i] < a[i] ? b[i] : a[i]; });
        break;
      case Op::Max:
        ForLanes(lanes, [=](int i) { r[i] = a[i] < b[i] ? b[i] : a[i]; });
        break;
      case Op::Mod:
        ForLanes(lanes, [=](int i) { r[i] = a[i] - b[i] * std::floor(a[i] / b[i]); });
        break;
      case Op::Step:
        ForLanes(lanes, [=](int i) { r[i] = b[i] < a[i] ? 0.0 : 1.0; });
        break;
      case Op::Clamp:
        ForLanes(lanes, [=](int i) {
          const double low = a[i] < b[i] ? b[i] : a[i];
          r[i] = c[i] < low ? c[i] : low;
        });
        break;
      case Op::Mix:
        ForLanes(lanes, [=](int i) { r[i] = a[i] + c[i] * (b[i] - a[i]); });
        break;
      case Op::SmoothStep:
        ForLanes(lanes, [=](int i) { r[i] = SmoothStepOf(a[i], b[i], c[i]); });
        break;
      case Op::Sin:
        ForLanes(
            a, r, lanes, [](double x) { return IsPlainAngle(x); }, [](double x) { return SinOf(x); },
            [](double x) { return std::sin(x); });
        break;
      case Op::Cos:
        ForLanes(
            a, r, lanes, [](double x) { return IsPlainAngle(x); }, [](double x) { return CosOf(x); },
            [](double x) { return std::cos(x); });
        break;
      case Op::Tan:
        ForLanes(lanes, [=](int i) { r[i] = std::tan(a[i]); });
        break;
      case Op::Asin:
        ForLanes(lanes, [=](int i) { r[i] = std::asin(a[i]); });
        break;
      case Op::Acos:
        ForLanes(lanes, [=](int i) { r[i] = std::acos(a[i]); });
        break;
      case Op::Atan:
        ForLanes(lanes, [=](int i) { r[i] = std::atan(a[i]); });
        break;
      case Op::Atan2:
        ForLanes(lanes, [=](int i) { r[i] = std::atan2(a[i], b[i]); });
        break;
      case Op::Exp:
        ForLanes(
            a, r, lanes, [](double x) { return IsPlainExponent(x); }, [](double x) { return ExpOf(x); },
            [](double x) { return std::exp(x); });
        break;
      case Op::Log:
        ForLanes(
            a, r, lanes, [](double x) { return IsPlainPositive(x); }, [](double x) { return LogOf(x); },
            [](double x) { return std::log(x); });
        break;
      case Op::Pow:
        ForLanes(lanes, [=](int i) { r[i] = std::pow(a[i], b[i]); });
        break;
      case Op::Noise:
        NoiseAt(a, b, c, r, lanes);
        break;
      case Op::Random:
        ForLanes(lanes, [=](int i) { r[i] = RandomOf(a[i], b[i], c[i]); });
        break;
      case Op::Jump:
        at = instruction.target - std::size_t(1);
        break;
      case Op::JumpIfNone:
        if (IsNone(a, lanes)) at = instruction.target - std::size_t(1);
        break;
      case Op::LoopStep:
        if (StepLoop(r, registers + Program::kBudget * step, instruction.target, lanes)) {
          failure.Note(FailureKind::TooManyInstructions, program.lines[at]);
        }
        break;
    }
  }
}

// Results, with 0 where a sample failed. Gives whether some result is no finite number.
ORLIX_MULTIVERSION
bool Collect(const double* x, const double* y, const double* z, const double* budget, int lanes, double* toX,
             double* toY, double* toZ) {
  std::int64_t bad = 0;
#pragma GCC ivdep
  for (int i = 0; i < lanes; ++i) {
    const double zero = (x[i] - x[i]) + (y[i] - y[i]) + (z[i] - z[i]);  // NaN when one isn't finite
    bad |= zero != 0;
    const double kept = budget[i] < 0 ? 1 : zero;
    toX[i] = kept == 0 ? x[i] : 0;
    toY[i] = kept == 0 ? y[i] : 0;
    toZ[i] = kept == 0 ? z[i] : 0;
  }
  return bad != 0;
}

}  // namespace

void Failure::Note(FailureKind newKind, int newLine) {
  const bool first = kind == FailureKind::None || newKind < kind || (newKind == kind && newLine < line);
  if (newKind != FailureKind::None && first) kind = newKind, line = newLine;
}

Machine::Machine(const Program& program)
    : program_(&program), registers_(static_cast<std::size_t>(program.registerCount)), results_{} {
  std::fill_n(Lanes(Program::kBudget), kLanes, kMaxSteps);
  for (const Program::Constant& constant : program.constants) {
    std::fill_n(Lanes(constant.place), kLanes, constant.value);
  }
}

void Machine::SetNumber(const Input& input, double value) { std::fill_n(Lanes(input.registers[0]), kLanes, value); }

void Machine::SetVector(const Input& input, const Vec3D& value) {
  for (int c = 0; c < 3; ++c) std::fill_n(Lanes(input.registers[c]), kLanes, value[c]);
}

void Machine::Run(int count, const double* active) {
  if (!program_->resultType) return;
  // Whole vectors of the processor; what stands in the lanes from count on is nobody's.
  const int lanes = std::min((count + 7) & ~7, kLanes);
  if (program_->readsLanes) {
    double* on = Lanes(Program::kLanes);
    for (int i = 0; i < lanes; ++i) on[i] = i < count && (!active || active[i] != 0) ? 1 : 0;
  }
  if (program_->hasLoops) std::fill_n(Lanes(Program::kBudget), lanes, kMaxSteps);
  Execute(*program_, Lanes(0), sizeof(Block) / sizeof(double), lanes, failure_);
  const Register* result = program_->result;
  const double *x = Lanes(result[0]), *y = Lanes(result[1]), *z = Lanes(result[2]), *budget = Lanes(Program::kBudget);
  if (!Collect(x, y, z, budget, lanes, results_[0].lanes, results_[1].lanes, results_[2].lanes)) return;
  // Of the lanes that somebody asked for.
  for (int i = 0; i < count; ++i) {
    const bool asked = (!active || active[i] != 0) && budget[i] >= 0;
    if (asked && !(std::isfinite(x[i]) && std::isfinite(y[i]) && std::isfinite(z[i]))) {
      failure_.Note(FailureKind::NotFinite, program_->resultLine);
    }
  }
}

Failure Machine::TakeFailure() { return std::exchange(failure_, {}); }

double Machine::Evaluate(Op op, double a, double b, double c) {
  double registers[4] = {0, a, b, c};
  Program program;
  program.code.push_back({op, 0, 1, 2, 3, 0});
  Failure unused;
  Execute(program, registers, 1, 1, unused);
  return registers[0];
}

}  // namespace orlix::script
