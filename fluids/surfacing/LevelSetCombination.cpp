#include "fluids/surfacing/LevelSetCombination.h"

#include <algorithm>
#include <cmath>

#include "fluids/grids/Interpolation.h"
#include "globals/Multiversion.h"

namespace orlix {

namespace {

using Operation = CombinationSettings::Operation;
using BlendMode = CombinationSettings::BlendMode;

constexpr double kOffLattice = 1e-4;  // of a cell: nodes that are nearer count as one

ORLIX_MULTIVERSION void Smallest(const double* a, const double* b, double offset, int count, double* out) {
  for (int i = 0; i < count; ++i) {
    const double moved = b[i] - offset;
    out[i] = moved < a[i] ? moved : a[i];
  }
}

// sign 1: the largest of a and b'; -1: of a and -b'.
ORLIX_MULTIVERSION void Largest(const double* a, const double* b, double offset, double sign, int count, double* out) {
  for (int i = 0; i < count; ++i) {
    const double moved = (b[i] - offset) * sign;
    out[i] = moved > a[i] ? moved : a[i];
  }
}

ORLIX_MULTIVERSION void BlendSmooth(const double* a, const double* b, const double* t, double offset, double value,
                                    int count, double* out) {
  for (int i = 0; i < count; ++i) {
    const double p = a[i], q = b[i] - offset;
    out[i] = (p + q - std::sqrt(std::abs(p * p + q * q - 2 * t[i] * p * q))) / (t[i] + 1) - value;
  }
}

double Softness(double x, double t) {
  const auto s = static_cast<float>(std::clamp(x / t, 0.0, 1.0));
  return (2 * s - 3) * s * s + 1;
}

double BlendSoft(double a, double b, double t, double value, double offset) {
  if (!(t > 0)) return std::min(a, b - offset);
  return (value - (Softness(b, t) + Softness(a, t))) * (2.0 / 3) * 2 * t;
}

// Where a coordinate of a source of n nodes is read, and how far beyond the source it lies.
struct Held {
  double at, beyond;
};
Held Hold(double x, int n) {
  const double at = std::clamp(x, 0.0, n - 1.0);
  return {at, x - at};
}

double Beyond(double value, double distance) { return value < 0 ? value - distance : value + distance; }

}  // namespace

void CombineRow(const CombinationSettings& settings, const double* a, const double* b, const double* t, int count,
                double* result) {
  const double offset = settings.offset;
  switch (settings.operation) {
    case Operation::Union:
      return Smallest(a, b, offset, count, result);
    case Operation::Intersection:
      return Largest(a, b, offset, 1, count, result);
    case Operation::Subtraction:
      return Largest(a, b, offset, -1, count, result);
    default:
      break;
  }
  if (settings.blendMode == BlendMode::Smooth) {
    return BlendSmooth(a, b, t, offset, settings.blendValue, count, result);
  }
  const bool soft = settings.blendMode == BlendMode::Soft;
  for (int i = 0; i < count; ++i) {
    result[i] = soft ? BlendSoft(a[i], b[i], t[i], settings.blendValue, offset) : (b[i] - offset - a[i]) * t[i] + a[i];
  }
}

LevelSetRows::LevelSetRows(const ScalarGrid& source, const ScalarGrid& target)
    : source_(source), dims_(target.dims), cell_(source.space.cellSize) {
  origin_ = source.space.VoxelOfSim(target.space.simMin);
  step_ = target.space.simPerVoxel.x * source.space.voxelsPerSim.x;
  const auto nearWhole = [](double x) { return std::abs(x - std::round(x)) < kOffLattice; };
  aligned_ = source.space.cellSize == target.space.cellSize && nearWhole(origin_.x) && nearWhole(origin_.y) &&
             nearWhole(origin_.z);
  if (!aligned_) return;
  origin_ = {std::round(origin_.x), std::round(origin_.y), std::round(origin_.z)};
  step_ = 1;
}

void LevelSetRows::Reach(double margin, VecInt3D& low, VecInt3D& high) const {
  const double around = margin / cell_ + kOffLattice;
  for (int axis = 0; axis < 3; ++axis) {
    const double from = (-around - origin_[axis]) / step_,
                 to = (source_.dims[axis] - 1 + around - origin_[axis]) / step_;
    low[axis] = static_cast<std::int32_t>(std::clamp(std::ceil(from), 0.0, double(dims_[axis])));
    high[axis] = static_cast<std::int32_t>(std::clamp(std::floor(to) + 1, 0.0, double(dims_[axis])));
  }
}

void LevelSetRows::Read(int j, int k, double* row) const {
  const Held y = Hold(origin_.y + j * step_, source_.dims.y), z = Hold(origin_.z + k * step_, source_.dims.z);
  const double beyond = y.beyond * y.beyond + z.beyond * z.beyond;
  int i = 0;
  if (aligned_ && beyond == 0) {
    // What lies in the source is copied; the rest of the row stands around it.
    const int first = std::clamp(static_cast<int>(-origin_.x), 0, dims_.x);
    const int last = std::clamp(static_cast<int>(source_.dims.x - origin_.x), first, dims_.x);
    const double* from = &source_(0, static_cast<int>(y.at), static_cast<int>(z.at));
    if (first < last) std::copy_n(from + first + static_cast<int>(origin_.x), last - first, row + first);
    for (i = 0; i < first; ++i) row[i] = Beyond(from[0], cell_ * (-origin_.x - i));
    for (i = last; i < dims_.x; ++i) {
      row[i] = Beyond(from[source_.dims.x - 1], cell_ * (i + origin_.x - (source_.dims.x - 1)));
    }
    return;
  }
  for (; i < dims_.x; ++i) {
    const Held x = Hold(origin_.x + i * step_, source_.dims.x);
    const double value = SampleTrilinear(source_, x.at, y.at, z.at);
    row[i] = Beyond(value, cell_ * std::sqrt(x.beyond * x.beyond + beyond));
  }
}

}  // namespace orlix
