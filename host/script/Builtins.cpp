#include "host/script/Builtins.h"

#include <numbers>

#include "host/script/Lexer.h"

namespace orlix::script {

namespace {

constexpr Builtin kBuiltins[] = {
    {"vector", BuiltinKind::MakeVector, 3, Op::Copy, "vector(x, y, z)"},
    {"dot", BuiltinKind::Dot, 2, Op::Copy, "dot(a, b) of vectors"},
    {"cross", BuiltinKind::Cross, 2, Op::Copy, "cross(a, b) of vectors"},
    {"length", BuiltinKind::Length, 1, Op::Copy, "length(a) of a vector"},
    {"normalize", BuiltinKind::Normalize, 1, Op::Copy, "normalize(a) of a vector"},
    {"abs", BuiltinKind::Each, 1, Op::Abs, "abs(x)"},
    {"sign", BuiltinKind::Each, 1, Op::Sign, "sign(x)"},
    {"floor", BuiltinKind::Each, 1, Op::Floor, "floor(x)"},
    {"ceil", BuiltinKind::Each, 1, Op::Ceil, "ceil(x)"},
    {"fract", BuiltinKind::Each, 1, Op::Fract, "fract(x)"},
    {"sqrt", BuiltinKind::Each, 1, Op::Sqrt, "sqrt(x)"},
    {"min", BuiltinKind::Each, 2, Op::Min, "min(a, b)"},
    {"max", BuiltinKind::Each, 2, Op::Max, "max(a, b)"},
    {"mod", BuiltinKind::Each, 2, Op::Mod, "mod(a, b)"},
    {"step", BuiltinKind::Each, 2, Op::Step, "step(edge, x)"},
    {"clamp", BuiltinKind::Each, 3, Op::Clamp, "clamp(x, low, high)"},
    {"mix", BuiltinKind::Each, 3, Op::Mix, "mix(a, b, t)"},
    {"smoothstep", BuiltinKind::Each, 3, Op::SmoothStep, "smoothstep(low, high, x)"},
    {"sin", BuiltinKind::Each, 1, Op::Sin, "sin(x)"},
    {"cos", BuiltinKind::Each, 1, Op::Cos, "cos(x)"},
    {"tan", BuiltinKind::Each, 1, Op::Tan, "tan(x)"},
    {"asin", BuiltinKind::Each, 1, Op::Asin, "asin(x)"},
    {"acos", BuiltinKind::Each, 1, Op::Acos, "acos(x)"},
    {"atan", BuiltinKind::Each, 1, Op::Atan, "atan(x)"},
    {"atan2", BuiltinKind::Each, 2, Op::Atan2, "atan2(y, x)"},
    {"exp", BuiltinKind::Each, 1, Op::Exp, "exp(x)"},
    {"log", BuiltinKind::Each, 1, Op::Log, "log(x)"},
    {"pow", BuiltinKind::Each, 2, Op::Pow, "pow(x, exponent)"},
    {"Noise", BuiltinKind::Point, 3, Op::Noise, "Noise(x, y, z) or Noise(point)"},
    {"random", BuiltinKind::Spread, 3, Op::Random, "random(a), random(a, b), random(a, b, c) or random(vector)"},
};

constexpr double kPi = std::numbers::pi;

}  // namespace

std::span<const Builtin> Builtins() { return kBuiltins; }

const Builtin* FindBuiltin(std::string_view name) {
  for (const Builtin& builtin : kBuiltins) {
    if (builtin.name == name) return &builtin;
  }
  return nullptr;
}

const double* FindConstant(std::string_view name) { return name == "PI" ? &kPi : nullptr; }

bool IsReserved(std::string_view name) { return !IsName(name) || FindBuiltin(name) || FindConstant(name); }

}  // namespace orlix::script
