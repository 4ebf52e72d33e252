#pragma once
// Uniform numbers from the standard MT19937 (Matsumoto and Nishimura 1998), one generator for each worker.

#include <cstdint>
#include <random>

namespace orlix {

class MersenneTwister {
 public:
  explicit MersenneTwister(std::uint32_t seed = 5489u) : generator_(seed) {}
  void Seed(std::uint32_t seed) { generator_.seed(seed); }
  // The next 32 bits.
  std::uint32_t Bits() { return static_cast<std::uint32_t>(generator_()); }
  // Uniform in [0, 1): the 32 bits times 2^-32 in the engine's own rounding.
  double Uniform() { return Bits() * 2.3283064370807974e-10; }
  std::mt19937& generator() { return generator_; }

 private:
  std::mt19937 generator_;
};

}  // namespace orlix
