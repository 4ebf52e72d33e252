#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <numbers>

#include "globals/Vec.h"
#include "host/noise/Noise.h"
#include "host/script/Compiler.h"
#include "host/script/Machine.h"

namespace orlix::script {
namespace {

const std::vector<InputDeclaration> kInputs = {{"x", Type::Number}, {"p", Type::Vector}};

Program Compiled(const std::string& source) {
  auto outcome = Compile(source, kInputs);
  const auto* error = std::get_if<ScriptError>(&outcome);
  EXPECT_EQ(error, nullptr) << source << "\n" << (error ? error->text : "");
  return error ? Program() : std::get<Program>(std::move(outcome));
}

// The samples of a test: x from -3.2 to 3.15, p = (x, 2, -x).
double XOf(int sample) { return (sample - 64) * 0.05; }

void Load(const Program& program, Machine& machine, int first, int count) {
  for (int i = 0; i < count; ++i) {
    const double x = XOf(first + i);
    machine.Lanes(program.Find("x")->registers[0])[i] = x;
    const Register* p = program.Find("p")->registers;
    machine.Lanes(p[0])[i] = x, machine.Lanes(p[1])[i] = 2, machine.Lanes(p[2])[i] = -x;
  }
}

// Results of all samples, in one batch or each alone.
std::vector<Vec3D> Results(const Program& program, int batch) {
  std::vector<Vec3D> results;
  Machine machine(program);
  for (int first = 0; first < Machine::kLanes; first += batch) {
    Load(program, machine, first, batch);
    machine.Run(batch);
    for (int i = 0; i < batch; ++i) {
      results.emplace_back(machine.Result(0)[i], machine.Result(1)[i], machine.Result(2)[i]);
    }
  }
  return results;
}

struct Case {
  const char* body;  // of main
  std::function<Vec3D(double x)> expected;
};

double Collatz(double x) {
  double n = std::floor(std::abs(x) * 20) + 1, steps = 0;
  for (; n != 1; ++steps) n = std::fmod(n, 2) == 0 ? n / 2 : 3 * n + 1;
  return steps;
}

double NoiseAt(const Vec3D& p) { return Noise(0).Sample(NoiseType::Gradient, p, {.octaves = 1}); }

const Case kCases[] = {
    // Numbers and their operators.
    {"return 7;", [](double) { return Vec3D(7); }},
    {"return 1 + 2 * 3 - 8 / 4 - 1.5e1 + .5;", [](double) { return Vec3D(-9.5); }},
    {"return -x * -2 - -x;", [](double x) { return Vec3D(-x * -2 - -x); }},
    {"return x / 2 + 3 / (x + 4);", [](double x) { return Vec3D(x / 2 + 3 / (x + 4)); }},
    {"var v = p; v = vector(v.y, v.z, v.x); return v;", [](double x) { return Vec3D(2, -x, x); }},
    {"return 10 - 4 - 3 + x;", [](double x) { return Vec3D(10 - 4 - 3 + x); }},
    {"return x % 0.7 + (7 + x) % 2;", [](double x) { return Vec3D(std::fmod(x, 0.7) + std::fmod(7 + x, 2)); }},
    {"return x > 1 && x < 2 || !(x < 2.5);", [](double x) { return Vec3D((x > 1 && x < 2) || !(x < 2.5)); }},
    {"return (x >= 0) + (x <= 0) * 2 + (x == 0) * 4 + (x != 0) * 8;",
     [](double x) { return Vec3D((x >= 0) + (x <= 0) * 2 + (x == 0) * 4 + (x != 0) * 8); }},
    {"return x < 0 ? -1 : x < 1 ? 0.5 : PI;",
     [](double x) {
       return Vec3D(x < 0 ? -1 : x < 1 ? 0.5 : std::numbers::pi);
     }},
    // Comments, declarations, assignments.
    {"// a comment\n var a = x, b = 2, c; /* and\n one more */ c = a; a += b; b -= 1; c *= a; a /= 4; a++; --b; return "
     "a + b + c;",
     [](double x) { return Vec3D((x + 2) / 4 + 1 + 0 + x * (x + 2)); }},
    {"x = x * 2; x += 1; return x;", [](double x) { return Vec3D(x * 2 + 1); }},
    {"var a = 1; { var a = 5; a = 6; } return a + x;", [](double x) { return Vec3D(1 + x); }},
    {"var a; if (x > 0) a = x; return a;", [](double x) { return Vec3D(x > 0 ? x : 0); }},
    // Vectors.
    {"return p * 2 - 3 * p / 2 + vector(1, x, 2);",
     [](double x) { return Vec3D(x, 2, -x) * 2 - Vec3D(x, 2, -x) * 3 / 2 + Vec3D(1, x, 2); }},
    {"return -p + 1;", [](double x) { return Vec3D(1 - x, -1, x + 1); }},
    {"return vector(dot(p, p), length(p), p.y);",
     [](double x) { return Vec3D(x * x + 4 + x * x, std::sqrt(x * x + 4 + x * x), 2); }},
    {"return cross(p, vector(0, 1, 2)) + normalize(vector(0, 0, 0));",
     [](double x) { return Cross(Vec3D(x, 2, -x), Vec3D(0, 1, 2)); }},
    {"return normalize(p);", [](double x) { return Vec3D(x, 2, -x) / std::sqrt(4 + x * x + x * x); }},
    {"var v = p; v = vector(v.y, v.x, v.z + v.x); v.x += 1; v.z = v.y * 2; return v;",
     [](double x) { return Vec3D(3, x, 2 * x); }},
    {"return (p == vector(x, 2, -x)) + (p != vector(x, 2, 1)) * 2;", [](double x) { return Vec3D(1 + (x != -1) * 2); }},
    {"return x > 0 ? p : -p;", [](double x) { return x > 0 ? Vec3D(x, 2, -x) : Vec3D(-x, -2, x); }},
    // Functions of the language.
    {"return vector(abs(x), sign(x), floor(x)) + vector(ceil(x), fract(x), sqrt(x * x));",
     [](double x) {
       return Vec3D(std::abs(x) + std::ceil(x), (x > 0) - (x < 0) + x - std::floor(x),
                    std::floor(x) + std::sqrt(x * x));
     }},
    {"return vector(min(x, 1), max(x, 1), mod(x, 0.7)) + vector(step(1, x), clamp(x, -1, 1), mix(2, 4, x));",
     [](double x) {
       return Vec3D(std::min(x, 1.0) + (x >= 1), std::max(x, 1.0) + std::clamp(x, -1.0, 1.0),
                    x - 0.7 * std::floor(x / 0.7) + 2 + x * 2);
     }},
    {"return vector(smoothstep(0, 2, x), smoothstep(1, 1, x), smoothstep(2, 0, x));",
     [](double x) {
       const double t = std::clamp(x / 2, 0.0, 1.0), u = std::clamp((x - 2) / -2, 0.0, 1.0);
       return Vec3D(t * t * (3 - 2 * t), x >= 1, u * u * (3 - 2 * u));
     }},
    {"return vector(sin(x), cos(x), tan(x)) + vector(asin(x / 4), acos(x / 4), atan(x)) + vector(atan2(x, 2), exp(x), "
     "log(x + 4)) * pow(2, x);",
     [](double x) {
       const double p = std::pow(2, x);
       return Vec3D(std::sin(x) + std::asin(x / 4) + std::atan2(x, 2) * p,
                    std::cos(x) + std::acos(x / 4) + std::exp(x) * p, std::tan(x) + std::atan(x) + std::log(x + 4) * p);
     }},
    {"return max(p, 0) + sin(p);",
     [](double x) { return Vec3D(std::max(x, 0.0) + std::sin(x), 2 + std::sin(2), std::max(-x, 0.0) + std::sin(-x)); }},
    {"return Noise(x, 2, -x) * 2 - Noise(p * 0.5);",
     [](double x) {
       return Vec3D(NoiseAt({x, 2, -x}) * 2 - NoiseAt(Vec3D(x, 2, -x) * 0.5));
     }},
    // Control flow.
    {"if (x < 0) return -1; if (x < 1) { return 0; } else x = x * 2; return x;",
     [](double x) {
       return Vec3D(x < 0 ? -1 : x < 1 ? 0 : x * 2);
     }},
    {"var n = floor(abs(x) * 20) + 1, steps = 0; while (n != 1) { if (n % 2 == 0) n /= 2; else n = 3 * n + 1; steps++; "
     "} return steps;",
     [](double x) { return Vec3D(Collatz(x)); }},
    {"var sum = 0; for (var i = 0; i < 10; i++) { if (i == 2) continue; if (i > x * 3) break; sum += i; } return sum;",
     [](double x) {
       double sum = 0;
       for (int i = 0; i < 10 && i <= x * 3; ++i) sum += i == 2 ? 0 : i;
       return Vec3D(sum);
     }},
    {"var i, j, sum = 0; for (i = 0; i < 4; i++) for (j = 0; j < 4; j++) { if (i * j > x) return sum; if (j > i) "
     "break; sum += i + j; } return -sum;",
     [](double x) {
       double sum = 0;
       for (int i = 0; i < 4; ++i) {
         for (int j = 0; j < 4; ++j) {
           if (i * j > x) return Vec3D(sum);
           if (j > i) break;
           sum += i + j;
         }
       }
       return Vec3D(-sum);
     }},
    {"for (;;) { x += 1; if (x > 5) break; } return x;",
     [](double x) {
       while ((x += 1) <= 5) continue;
       return Vec3D(x);
     }},
};

// Functions of the script's own; whole sources.
const Case kScripts[] = {
    {"main(op) { return twice(x) + twice(p).y; } twice(a) { return a * 2; }",
     [](double x) { return Vec3D(x * 2 + 4); }},
    {"var calls = 0; f(a) { calls += 1; if (a < 0) return 0; a = sqrt(a); return a; }"
     "main(op) { var r = f(x) + f(x + 1); return r + calls * 10; }",
     [](double x) { return Vec3D(std::sqrt(std::max(x, 0.0)) + std::sqrt(std::max(x + 1, 0.0)) + 20); }},
    // The second operand is asked only where the first doesn't decide.
    {"var n = 0; count() { n++; return 1; } main(op) { var a = x > 0 && count(), b = x > 1 || count();"
     "return a + b * 2 + (x > 2 ? count() * 4 : 8) + n * 16; }",
     [](double x) {
       const double n = (x > 0) + !(x > 1) + (x > 2);
       return Vec3D((x > 0) + 2 + (x > 2 ? 4 : 8) + n * 16);
     }},
    {"var g = 1; change() { g = 5; return 0; } main(op) { return g + change() + g; }", [](double) { return Vec3D(6); }},
    {"bisect(low, high) { for (var i = 0; i < 40; i++) { var mid = (low + high) / 2; if (mid * mid < abs(x)) low = mid;"
     "else high = mid; } return low; } main() { return bisect(0, 4); }",
     [](double x) {
       double low = 0, high = 4;
       for (int i = 0; i < 40; ++i) {
         const double mid = (low + high) / 2;
         (mid * mid < std::abs(x) ? low : high) = mid;
       }
       return Vec3D(low);
     }},
};

void ExpectAsExpected(const std::string& source, const Case& expected) {
  const Program program = Compiled(source);
  if (!program.resultType) return;
  const std::vector<Vec3D> results = Results(program, Machine::kLanes);
  for (int i = 0; i < Machine::kLanes; ++i) {
    const Vec3D should = expected.expected(XOf(i)), &is = results[static_cast<std::size_t>(i)];
    for (int c = 0; c < 3; ++c) {
      ASSERT_NEAR(is[c], should[c], 1e-12 * (1 + std::abs(should[c])))
          << source << "\nx " << XOf(i) << ", component " << c;
    }
  }
  // What the other lanes do matters to none.
  EXPECT_EQ(Results(program, 1), results) << source;
  EXPECT_EQ(Results(program, 4), results) << source;
}

TEST(Script, GivesWhatTheFormulaGives) {
  for (const Case& each : kCases) ExpectAsExpected("main(op)\n{\n" + std::string(each.body) + "\n}", each);
  for (const Case& each : kScripts) ExpectAsExpected(each.body, each);
}

TEST(Script, RandomIsUniformAndOfItsArgumentsAlone) {
  const Program program = Compiled("main(op) { return vector(random(x), random(x, 1, 2), random(p)); }");
  Vec3D sum;
  Machine machine(program);
  constexpr int kBatches = 200;
  for (int batch = 0; batch < kBatches; ++batch) {
    Load(program, machine, batch * Machine::kLanes, Machine::kLanes);
    machine.Run(Machine::kLanes);
    for (int i = 0; i < Machine::kLanes; ++i) {
      const Vec3D r(machine.Result(0)[i], machine.Result(1)[i], machine.Result(2)[i]);
      for (int c = 0; c < 3; ++c) ASSERT_TRUE(r[c] >= 0 && r[c] < 1);
      sum += r;
    }
  }
  // Five deviations of the mean of 25600 uniform numbers.
  for (int c = 0; c < 3; ++c) EXPECT_NEAR(sum[c] / (kBatches * Machine::kLanes), 0.5, 5 * std::sqrt(1.0 / 12 / 25600));
}

TEST(Script, ItsSinesAndExponentialsAreTheLibrarys) {
  const Program program =
                    Compiled("main(op) { return vector(sin(x), cos(x), exp(x)) + vector(0, 0, 0) * log(abs(x)); }"),
                logarithm = Compiled("main(op) { return log(x); }");
  Machine machine(program), logarithms(logarithm);
  const auto near = [](double is, double should) { return std::abs(is - should) <= 4e-16 * std::abs(should) + 5e-16; };
  int checked = 0;
  for (double size = 1e-320; size < 1e300; size *= 1.7, ++checked) {
    for (const double x : {size, -size}) {
      machine.Lanes(program.Find("x")->registers[0])[0] = logarithms.Lanes(logarithm.Find("x")->registers[0])[0] = x;
      machine.Run(1), logarithms.Run(1);
      const bool overflows = x > 709.7;
      EXPECT_TRUE(overflows || near(machine.Result(0)[0], std::sin(x))) << x;
      EXPECT_TRUE(overflows || near(machine.Result(1)[0], std::cos(x))) << x;
      EXPECT_TRUE(overflows || near(machine.Result(2)[0], std::exp(x))) << x << " " << machine.Result(2)[0];
      EXPECT_TRUE(x < 0 || near(logarithms.Result(0)[0], std::log(x))) << x;
    }
  }
  EXPECT_GT(checked, 2000);
}

TEST(Script, AFailedSampleIsZeroAndToldWithItsLine) {
  struct Failing {
    const char* source;
    FailureKind kind;
    int line;
    bool (*fails)(double x);
    double otherwise;
  };
  const Failing cases[] = {
      {"main(op)\n{\n  return x > 1 ? 1 / 0 : 7;\n}", FailureKind::NotFinite, 3, [](double x) { return x > 1; }, 7},
      {"main(op) {\n  while (x > 1) {\n }\n return 7; }", FailureKind::TooManyInstructions, 2,
       [](double x) { return x > 1; }, 7},
      {"main(op) {\n var i = 0;\n for (;;) { i++; if (i > 100 && x < 0) return 7; } }",
       FailureKind::TooManyInstructions, 3, [](double x) { return x >= 0; }, 7},
  };
  for (const Failing& each : cases) {
    const Program program = Compiled(each.source);
    Machine machine(program);
    Load(program, machine, 0, Machine::kLanes);
    machine.Run(Machine::kLanes);
    int failed = 0;
    for (int i = 0; i < Machine::kLanes; ++i) {
      const bool fails = each.fails(XOf(i));
      failed += fails;
      ASSERT_EQ(machine.Result(0)[i], fails ? 0 : each.otherwise) << each.source << " at " << XOf(i);
    }
    EXPECT_GT(failed, 10);
    const Failure failure = machine.TakeFailure();
    EXPECT_EQ(failure.kind, each.kind);
    EXPECT_EQ(failure.line, each.line);
    // Where nobody asks, nothing fails.
    double active[Machine::kLanes];
    for (int i = 0; i < Machine::kLanes; ++i) active[i] = !each.fails(XOf(i));
    Load(program, machine, 0, Machine::kLanes);
    machine.Run(Machine::kLanes, active);
    EXPECT_EQ(machine.TakeFailure().kind, FailureKind::None) << each.source;
  }
}

TEST(Script, WithoutMainItGivesNothing) {
  for (const char* source : {"", "// nothing\n", "f(a) { return a; }", "var a = 1;"}) {
    EXPECT_FALSE(Compiled(source).resultType) << source;
  }
}

TEST(Script, AMistakeIsToldWithItsPlace) {
  struct Wrong {
    std::string source;
    int line, column;
    const char* words;
  };
  std::string deep(5000, '('), doubling = "a0() { }";
  for (int i = 1; i <= 12; ++i) {
    doubling += "a" + std::to_string(i) + "() { a" + std::to_string(i - 1) + "(); a" + std::to_string(i - 1) + "(); a" +
                std::to_string(i - 1) + "(); }";
  }
  std::string variables = "main(op) {";
  for (int i = 0; i < 400; ++i) variables += "var v" + std::to_string(i) + " = p;";
  std::string globals = "var g";
  for (int i = 0; i < 30000; ++i) globals += ",g" + std::to_string(i);
  const Wrong cases[] = {
      {"main(op)\n{\n  retrun 3;\n}", 3, 10, "\"3\" stands here, must be an assignment"},
      {"main(op) {\n return intensty;\n}", 2, 9, "there is no variable \"intensty\""},
      {"main(op) { return xx; }", 1, 19, "did you mean \"x\"?"},
      {"main(op) { return flor(x); }", 1, 19, "there is no function \"flor\", did you mean \"floor\"?"},
      {"main(op) { return p * p; }", 1, 21, "dot(a, b)"},
      {"main(op) { return dot(p, x); }", 1, 26, "this is a number, must be a vector"},
      {"main(op) { return sin(x, x); }", 1, 19, "gets 2 arguments, must be sin(x)"},
      {"main(op) { return x.y; }", 1, 21, "only a vector has"},
      {"main(op) { x = p; return x; }", 1, 16, "\"x\" is a number, this is a vector"},
      {"main(op) { if (p) return 1; return 2; }", 1, 16, "a condition must be a number"},
      {"main(op) { if (x) return 1; return p; }", 1, 36, "returns a vector here, and a number before"},
      {"main(op) { return op; }", 1, 19, "the node's object"},
      {"main(op) { var a; return a; }", 1, 26, "has no value yet"},
      {"main(op) { var a, a; return 1; }", 1, 19, "there is a variable \"a\" already"},
      {"var x = 1; main(op) { return x; }", 1, 5, "which the node sets"},
      {"main(op) { x + 1; }", 1, 14, "must be an assignment"},
      {"main(op) { 3 = x; }", 1, 12, "only a variable can be assigned to"},
      {"main(op) { return f(1); } f(a) { return g(a); } g(a) { return f(a); }", 1, 63, "calls itself through \"g\""},
      {"main(op) { }", 1, 1, "must return a value"},
      {"main(op) { break; }", 1, 12, "outside of a loop"},
      {"main(op) { return 1e999; }", 1, 19, "beyond the range"},
      {"main(op) { return 12abc; }", 1, 21, "without an operator"},
      {"main(op) { /* return 1; }", 1, 12, "has no end"},
      {"main(op) { return \xff\xfe; }", 1, 19, "\"\\xff\" is no part of the language"},
      {"// \xc3\xa4\xc3\xb6\nmain(op) { return /* \xc3\xa4 */ q; }", 2, 27, "no variable \"q\""},
      {"main(op) { return 1; ", 1, 22, "the end of the script stands here"},
      {"main(op) { return " + deep, 1, 0, "nested deeper"},
      {doubling + "main(op) { a12(); return 1; }", 1, 0, "the script becomes longer than"},
      {variables + "return 1; }", 1, 0, "registers"},
      {globals + "; main(op) { return 1; }", 1, 0, "registers"},
      {"var a, b, a; main(op) { return 1; }", 1, 11, "there is a variable \"a\" already"},
      {"f(PI, sin) { return PI + sin; } main(op) { return f(1, 2); }", 1, 1, "\"PI\" is part of the language"},
      {"main(op) { return f(1); } f(g) { return g; } g() { return 1; }", 1, 27, "\"g\" is a function"},
      {std::string(kMaxSourceBytes + 1, ' '), 1, 0, "bytes"},
  };
  for (const Wrong& each : cases) {
    const auto outcome = Compile(each.source, kInputs);
    const auto* error = std::get_if<ScriptError>(&outcome);
    ASSERT_NE(error, nullptr) << each.source.substr(0, 100);
    EXPECT_NE(error->text.find(each.words), std::string::npos) << error->text;
    EXPECT_EQ(error->line, each.line) << error->text;
    EXPECT_TRUE(each.column == 0 || error->column == each.column) << error->column << " " << error->text << "\n"
                                                                  << each.source;
  }
}

}  // namespace
}  // namespace orlix::script
