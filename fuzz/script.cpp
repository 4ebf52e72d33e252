// The compiler of scripts on any bytes. A mistake has a text and a place in them; what compiles runs to its end, with
// the same results for a sample alone as among others.

#include <cstdlib>
#include <cstring>
#include <string_view>

#include "host/script/Compiler.h"
#include "host/script/Machine.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace orlix::script;
  const std::string_view source(reinterpret_cast<const char*>(data), size);
  const auto outcome = Compile(source, {{"x", Type::Number}, {"p", Type::Vector}});
  if (const auto* error = std::get_if<ScriptError>(&outcome)) {
    if (error->text.empty() || error->offset > size || error->line < 1 || error->column < 1) std::abort();
    return 0;
  }
  const auto& program = std::get<Program>(outcome);
  constexpr int kSamples = 5;
  double together[kSamples][3];
  Machine machine(program);
  const auto run = [&](int first, int count) {
    for (int i = 0; i < count; ++i) {
      machine.Lanes(program.Find("x")->registers[0])[i] = first + i - 2;
      for (int c = 0; c < 3; ++c) machine.Lanes(program.Find("p")->registers[c])[i] = (first + i) * 0.5 - c;
    }
    machine.Run(count);
  };
  run(0, kSamples);
  for (int i = 0; i < kSamples; ++i) {
    for (int c = 0; c < 3; ++c) together[i][c] = machine.Result(c)[i];
  }
  for (int i = 0; i < kSamples; ++i) {
    run(i, 1);
    for (int c = 0; c < 3; ++c) {
      if (machine.Result(c)[0] - machine.Result(c)[0] != 0) std::abort();
      if (std::memcmp(&together[i][c], &machine.Result(c)[0], sizeof(double)) != 0) std::abort();
    }
  }
  return 0;
}
