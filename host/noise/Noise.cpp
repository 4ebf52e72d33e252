#include "host/noise/Noise.h"

#include <algorithm>
#include <cmath>

#include "host/noise/LatticeNoise.h"

namespace orlix {

namespace {

// Each octave has a lattice of its own, so that lattice points of several octaves don't coincide.
std::uint32_t OctaveSeed(std::uint32_t seed, int octave) {
  return seed * 0x9e3779b9u + static_cast<std::uint32_t>(octave + 1) * 0x7f4a7c15u;
}

double FiniteOr0(double v) { return std::isfinite(v) ? v : 0.0; }

}  // namespace

struct Noise::Block {
  NoisePoints points;
  double value[NoisePoints::kCapacity];
};

Noise::Noise(std::uint32_t seed) : seed_(seed) { SetUpFractal(kMaxOctaves, 2.0, 1.0); }

void Noise::SetUpFractal(int octaves, double lacunarity, double exponent) {
  if (!(lacunarity > 0) || !std::isfinite(lacunarity) || !std::isfinite(exponent)) return;
  tableSize_ = std::clamp(octaves, 1, kMaxOctaves);
  // Frequencies beyond this hold no digits of the point's fraction, and weights beyond it would swamp the sum.
  constexpr double kLargest = 1e15;
  double frequency = 1;
  for (int i = 0; i < tableSize_; ++i) {
    frequency_[i] = std::clamp(frequency, 1 / kLargest, kLargest);
    weight_[i] = std::clamp(std::pow(frequency_[i], -exponent), 1 / kLargest, kLargest);
    frequency *= lacunarity;
  }
}

Noise::Octaves Noise::OctavesOf(NoiseType type, const NoiseArguments& arguments) const {
  Octaves octaves;
  const bool fractal = UsesFractalTable(type);
  octaves.count = std::clamp(arguments.octaves, 1, fractal ? tableSize_ : kMaxOctaves);
  const double detail = std::clamp(FiniteOr0(arguments.detailAttenuation), 0.0, 1.0);
  const double fade = std::pow(detail, std::max(0.0, FiniteOr0(arguments.sampleRadius)));
  double attenuation = 1;
  for (int i = 0; i < octaves.count; ++i) {
    octaves.frequency[i] = fractal ? frequency_[i] : std::ldexp(1.0, i);
    octaves.weight[i] = (fractal ? weight_[i] : std::ldexp(1.0, -i)) * attenuation;
    octaves.weightSum += octaves.weight[i];
    attenuation *= fade;
  }
  return octaves;
}

// Musgrave: the weighted sum, here over the sum of the weights. In [-1, 1].
void Noise::Fbm(const Octaves& octaves, const NoiseArguments& arguments, std::uint32_t salt, Block& block) const {
  double noise[NoisePoints::kCapacity];
  std::fill_n(block.value, block.points.count, 0.0);
  for (int o = 0; o < octaves.count; ++o) {
    GradientNoise({OctaveSeed(seed_, o) ^ salt, arguments.time, arguments.timeRepeat}, block.points,
                  octaves.frequency[o], noise);
    for (int i = 0; i < block.points.count; ++i) block.value[i] += octaves.weight[o] * noise[i];
  }
  for (int i = 0; i < block.points.count; ++i) block.value[i] /= octaves.weightSum;
}

// Perlin 1985. In [0, 1].
void Noise::Turbulence(const Octaves& octaves, const NoiseArguments& arguments, Block& block) const {
  double noise[NoisePoints::kCapacity];
  std::fill_n(block.value, block.points.count, 0.0);
  for (int o = 0; o < octaves.count; ++o) {
    GradientNoise({OctaveSeed(seed_, o), arguments.time, arguments.timeRepeat}, block.points, octaves.frequency[o],
                  noise);
    for (int i = 0; i < block.points.count; ++i) block.value[i] += octaves.weight[o] * std::abs(noise[i]);
  }
  for (int i = 0; i < block.points.count; ++i) block.value[i] /= octaves.weightSum;
}

// Musgrave's hybrid multifractal with his offset of 0.7, over the largest value that it can have.
void Noise::Hybrid(const Octaves& octaves, const NoiseArguments& arguments, Block& block) const {
  constexpr double kOffset = 0.7;
  double noise[NoisePoints::kCapacity], weight[NoisePoints::kCapacity];
  std::fill_n(block.value, block.points.count, 0.0);
  std::fill_n(weight, block.points.count, 1.0);
  for (int o = 0; o < octaves.count; ++o) {
    GradientNoise({OctaveSeed(seed_, o), arguments.time, arguments.timeRepeat}, block.points, octaves.frequency[o],
                  noise);
    for (int i = 0; i < block.points.count; ++i) {
      const double signal = (noise[i] + kOffset) * octaves.weight[o];
      block.value[i] += weight[i] * signal;
      weight[i] = std::clamp(weight[i] * signal, 0.0, 1.0);
    }
  }
  for (int i = 0; i < block.points.count; ++i) {
    block.value[i] = std::max(0.0, block.value[i] / ((1 + kOffset) * octaves.weightSum));
  }
}

// Musgrave's ridged multifractal with his offset of 1 and gain of 2. In [0, 1].
void Noise::Ridged(const Octaves& octaves, const NoiseArguments& arguments, Block& block) const {
  constexpr double kOffset = 1, kGain = 2;
  double noise[NoisePoints::kCapacity], weight[NoisePoints::kCapacity];
  std::fill_n(block.value, block.points.count, 0.0);
  std::fill_n(weight, block.points.count, 1.0);
  for (int o = 0; o < octaves.count; ++o) {
    GradientNoise({OctaveSeed(seed_, o), arguments.time, arguments.timeRepeat}, block.points, octaves.frequency[o],
                  noise);
    for (int i = 0; i < block.points.count; ++i) {
      const double ridge = kOffset - std::abs(noise[i]), signal = ridge * ridge * weight[i];
      block.value[i] += signal * octaves.weight[o];
      weight[i] = std::clamp(signal * kGain, 0.0, 1.0);
    }
  }
  for (int i = 0; i < block.points.count; ++i) block.value[i] /= octaves.weightSum;
}

// Musgrave's domain distortion: the point is moved by a vector of three independent noises first. In [-1, 1].
void Noise::Warped(const Octaves& octaves, const NoiseArguments& arguments, Block& block) const {
  constexpr double kDistortion = 1.0;
  constexpr std::uint32_t kSalts[3] = {0x243f6a88u, 0x85a308d3u, 0x13198a2eu};
  Block moved;
  moved.points = block.points;
  double* const target[3] = {moved.points.x, moved.points.y, moved.points.z};
  for (int axis = 0; axis < 3; ++axis) {
    Fbm(octaves, arguments, kSalts[axis], block);
    for (int i = 0; i < block.points.count; ++i) target[axis][i] += kDistortion * block.value[i];
  }
  Fbm(octaves, arguments, 0, moved);
  std::copy_n(moved.value, block.points.count, block.value);
}

// Worley 1996: a sum of octaves of his F1. In [0, 1].
void Noise::Cellular(const Octaves& octaves, const NoiseArguments& arguments, Block& block) const {
  double noise[NoisePoints::kCapacity];
  std::fill_n(block.value, block.points.count, 0.0);
  for (int o = 0; o < octaves.count; ++o) {
    CellularNoise({OctaveSeed(seed_, o), arguments.time, arguments.timeRepeat}, block.points, octaves.frequency[o],
                  noise);
    for (int i = 0; i < block.points.count; ++i) block.value[i] += octaves.weight[o] * noise[i];
  }
  for (int i = 0; i < block.points.count; ++i) block.value[i] /= octaves.weightSum;
}

void Noise::Evaluate(NoiseType type, const Octaves& octaves, const NoiseArguments& arguments, Block& block) const {
  bool isSigned = false;
  switch (type) {
    case NoiseType::Turbulence:
      Turbulence(octaves, arguments, block);
      break;
    case NoiseType::HybridMultifractal:
      Hybrid(octaves, arguments, block);
      break;
    case NoiseType::RidgedMultifractal:
      Ridged(octaves, arguments, block);
      break;
    case NoiseType::Cellular:
      Cellular(octaves, arguments, block);
      break;
    case NoiseType::Warped:
      Warped(octaves, arguments, block);
      isSigned = true;
      break;
    case NoiseType::Fbm:
    case NoiseType::Gradient:
      Fbm(octaves, arguments, 0, block);
      isSigned = true;
      break;
  }
  for (int i = 0; i < block.points.count; ++i) {
    double v = isSigned ? 0.5 + 0.5 * block.value[i] : block.value[i];
    if (arguments.absolute) v = std::abs(2 * v - 1);
    block.value[i] = std::clamp(v, 0.0, 1.0);
  }
}

double Noise::Sample(NoiseType type, const Vec3D& point, const NoiseArguments& arguments) const {
  double value;
  SampleRow(type, point, {}, arguments, {&value, 1});
  return value;
}

template <class Point>
void Noise::SampleBlocks(NoiseType type, const NoiseArguments& arguments, std::span<double> out, Point&& point) const {
  NoiseArguments checked = arguments;
  checked.time = FiniteOr0(arguments.time);
  const Octaves octaves = OctavesOf(type, checked);
  Block block;
  for (std::size_t begin = 0; begin < out.size(); begin += NoisePoints::kCapacity) {
    block.points.count = static_cast<int>(std::min<std::size_t>(out.size() - begin, NoisePoints::kCapacity));
    for (int i = 0; i < block.points.count; ++i) {
      const Vec3D p = point(begin + static_cast<std::size_t>(i));
      block.points.x[i] = FiniteOr0(p.x), block.points.y[i] = FiniteOr0(p.y), block.points.z[i] = FiniteOr0(p.z);
    }
    Evaluate(type, octaves, checked, block);
    std::copy_n(block.value, block.points.count, out.data() + begin);
  }
}

void Noise::SampleRow(NoiseType type, const Vec3D& start, const Vec3D& step, const NoiseArguments& arguments,
                      std::span<double> out) const {
  SampleBlocks(type, arguments, out, [&](std::size_t i) { return start + step * static_cast<double>(i); });
}

void Noise::SamplePoints(NoiseType type, const double* x, const double* y, const double* z,
                         const NoiseArguments& arguments, std::span<double> out) const {
  SampleBlocks(type, arguments, out, [&](std::size_t i) { return Vec3D(x[i], y[i], z[i]); });
}

}  // namespace orlix
