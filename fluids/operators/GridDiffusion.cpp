#include "fluids/operators/GridDiffusion.h"

#include <cmath>
#include <cstring>

#include "globals/Multiversion.h"

namespace orlix {

namespace {

constexpr std::int16_t kPasses = 3;

constexpr Choice kModes[] = {
    {DiffusionMode::Gaussian, "gaussian", "A Gaussian, along one axis after the other"},
    {DiffusionMode::Neighbours, "neighbours", "Towards the mean of the six neighbours"},
    {DiffusionMode::Raise, "raise", "As neighbours, but values only rise"},
};

}  // namespace

const TypeInfo& GridDiffusion::Type() {
  static constexpr Parameter kParameters[] = {
      FloatParameter(kAlphaId, "alpha", 1.0, "m/s", "How strongly it blurs").Min(0),
      IntParameter(kRoundsId, "rounds", 1, "", "How often it blurs in a sub-step").Between(1, 1000),
      LinkParameter(kChannelId, "channel", kLinkChannel, "The scalar or vector channel that is blurred"),
      ButtonParameter(1004, "choose_channel", "Offers the scene's channels"),
      ChoiceParameter(kModeId, "mode", DiffusionMode::Neighbours, kModes, "The way of blurring"),
  };
  static const TypeInfo kType = {
      .id = 1300001,
      .resource = "zq_grid_diffusion",
      .className = "C4D_GridDiffusion_Object",
      .label = "GOP::Diffusor",
      .text = "Blurs a channel.",
      .kinds = kLinkOperator,
      .parameters = kParameters,
      .common = TimedNodeParameters(),
  };
  return kType;
}

bool GridDiffusion::ReadParameters() {
  if (!GridOperator::ReadParameters()) return false;
  strength_ = handler.GetDouble(kAlphaId) / GetSimulationSpace().cellSize;
  rounds_ = handler.GetInt(kRoundsId);
  mode_ = handler.GetChoice<DiffusionMode>(kModeId);
  return true;
}

bool GridDiffusion::ResolveLinks() {
  if (!GridOperator::ResolveLinks()) return false;
  scalar_ = LinkedScalar(kChannelId);
  vector_ = scene->RetrieveAs<ChannelBase_Vector>(handler.GetLink(kChannelId), NODE_CHANNEL, RETRIEVE_VECTOR);
  return scalar_ || vector_;
}

void GridDiffusion::Advise() { AdviseLink(scalar_ ? static_cast<const void*>(scalar_) : vector_, "channel"); }

void GridDiffusion::ReleaseLinks() {
  scalar_ = nullptr, vector_ = nullptr;
  source_.GiveBack(), result_.GiveBack();
  GridOperator::ReleaseLinks();
}

bool GridDiffusion::NextIteration() {
  ++iteration;
  if (mode_ != DiffusionMode::Gaussian && iteration >= 1) iteration = kPasses;
  if (vector_ && iteration == kPasses) ++component_, iteration = 0;
  if (component_ < 3 && iteration < kPasses) return true;
  component_ = 0;
  iteration = -1;
  if (++round_ >= rounds_) {
    round_ = 0;
    return false;
  }
  iteration = 0;
  return true;
}

ScalarGrid* GridDiffusion::Target() const {
  if (HasStorage(scalar_)) return scalar_->grid.get();
  return HasStorage(vector_) && component_ < 3 ? vector_->grids[component_].get() : nullptr;
}

void GridDiffusion::Prepare(iBase*) {
  SetFlag(NodeActive, false);
  ScalarGrid* grid = Target();
  if (!grid || simulationInfo->substepDuration == 0 || IsPlayed(scalar_) || IsPlayed(vector_)) return;
  // A grid without inner cells has nothing to be blurred.
  if (!SplitLayers(slabs_, grid->dims, false, scene->threadCount)) return;
  const bool hasNone = mode_ == DiffusionMode::Gaussian && iteration > 0 && !result_;
  if (hasNone) return;  // memory didn't suffice for the pass before
  limits_ = {grid->valueOffset, grid->valueScale};
  alpha_ = strength_ * simulationInfo->substepDuration;
  if (mode_ == DiffusionMode::Gaussian)
    PrepareGaussian(*grid);
  else
    PrepareNeighbours(*grid);
  SetFlag(NodeActive, true);
}

void GridDiffusion::PrepareGaussian(ScalarGrid& grid) {
  const auto filled = [&] {
    auto lease = scene->scratch().Take<double>(grid.dims);
    lease->Fill(limits_.min, &scene->pool());
    return lease;
  };
  if (iteration == 0) {
    kernel_ = GaussianKernel(alpha_, std::max({grid.dims.x, grid.dims.y, grid.dims.z}));
    source_.GiveBack();
    from_ = grid;
    result_ = filled();
    to_ = *result_;
    return;
  }
  source_ = std::move(result_);
  from_ = *source_;
  if (iteration == 1) {
    result_ = filled();
    to_ = *result_;
  } else {
    to_ = grid;
  }
}

void GridDiffusion::PrepareNeighbours(ScalarGrid& grid) {
  source_ = scene->scratch().Take<double>(grid.dims);
  const std::size_t layer = static_cast<std::size_t>(grid.slab);
  ParallelRange(scene->pool(), 0, grid.dims.z, [&](int begin, int end, int) {
    std::memcpy(source_->data + layer * static_cast<std::size_t>(begin),
                grid.data + layer * static_cast<std::size_t>(begin),
                layer * static_cast<std::size_t>(end - begin) * sizeof(double));
  });
  from_ = *source_;
  to_ = grid;
}

void GridDiffusion::Process(ProcessData& data) {
  if (!IsActive() || !slabs_.Has(data.threadIndex)) return;
  const std::int32_t begin = slabs_.rangeMin[data.threadIndex].z, end = slabs_.rangeMax[data.threadIndex].z;
  if (mode_ == DiffusionMode::Gaussian)
    DiffuseAlong(iteration, kernel_, limits_, from_, to_, begin, end);
  else
    DiffuseNeighbours(alpha_, mode_ == DiffusionMode::Raise, from_, to_, begin, end);
}

void GridDiffusion::Finish() {
  // The passes of a Gaussian hand their result on.
  if (mode_ != DiffusionMode::Gaussian || iteration != 0) source_.GiveBack();
  if (!IsActive() || iteration == kPasses - 1) result_.GiveBack();
  GridOperator::Finish();
}

std::vector<double> GaussianKernel(double alpha, std::int32_t limit) {
  const double wanted = alpha * 3;
  const std::int32_t radius = wanted >= 1 ? (wanted < limit ? static_cast<std::int32_t>(wanted) : limit) : 0;
  std::vector<double> kernel(static_cast<std::size_t>(2 * radius + 1), 1.0);
  double sum = 0;
  for (std::int32_t d = -radius; d <= radius; ++d) {
    double& weight = kernel[static_cast<std::size_t>(d + radius)];
    if (radius > 0) weight = std::exp(-double(d) * d / (alpha * alpha));
    sum += weight;
  }
  for (double& weight : kernel) weight /= sum;
  return kernel;
}

namespace {

// The taps that lie inside for the cell at of an axis of n cells: kernel indices [first, last).
struct TapRange {
  std::int32_t first, last;
  TapRange(std::int32_t at, std::int32_t n, std::int32_t radius)
      : first(std::max(0, radius - at)), last(std::min(2 * radius + 1, n - at + radius)) {}
};

inline double Limited(double sum, double weights, double own, const DiffusionLimits& limits) {
  if (!(weights > 0) || sum == 0) return own;
  const double value = sum / weights + limits.min;
  return value > limits.max ? limits.max : value;
}

ORLIX_MULTIVERSION
void AddScaled(double* __restrict sums, const double* source, double weight, std::int32_t count) {
  for (std::int32_t i = 0; i < count; ++i) sums[i] += weight * source[i];
}

// A row whose taps lie in other rows, stride apart.
void DiffuseRowAcross(std::span<const double> kernel, const TapRange& taps, std::int64_t stride,
                      const DiffusionLimits& limits, const double* source, double* sums, double* result,
                      std::int32_t nx) {
  const auto radius = static_cast<std::int32_t>(kernel.size() / 2);
  std::fill(sums, sums + nx, 0.0);
  double weights = 0;
  for (std::int32_t t = taps.first; t < taps.last; ++t) {
    const double weight = kernel[static_cast<std::size_t>(t)];
    weights += weight;
    AddScaled(sums + 1, source + (t - radius) * stride + 1, weight, nx - 2);
  }
  for (std::int32_t i = 1; i < nx - 1; ++i) result[i] = Limited(sums[i], weights, source[i], limits);
}

void DiffuseRowAlong(std::span<const double> kernel, const DiffusionLimits& limits, const double* source,
                     double* result, std::int32_t nx) {
  const auto radius = static_cast<std::int32_t>(kernel.size() / 2);
  for (std::int32_t i = 1; i < nx - 1; ++i) {
    const TapRange taps(i, nx, radius);
    double sum = 0, weights = 0;
    for (std::int32_t t = taps.first; t < taps.last; ++t) {
      const double weight = kernel[static_cast<std::size_t>(t)];
      weights += weight;
      sum += weight * source[i + t - radius];
    }
    result[i] = Limited(sum, weights, source[i], limits);
  }
}

}  // namespace

void DiffuseAlong(int axis, std::span<const double> kernel, const DiffusionLimits& limits,
                  const GridView<const double>& source, const GridView<double>& result, std::int32_t kBegin,
                  std::int32_t kEnd) {
  const VecInt3D n = source.dims;
  const auto radius = static_cast<std::int32_t>(kernel.size() / 2);
  std::vector<double> sums(static_cast<std::size_t>(n.x));
  for (std::int32_t k = kBegin; k < kEnd; ++k) {
    for (std::int32_t j = 1; j < n.y - 1; ++j) {
      const std::int64_t row = source.Index(0, j, k);
      if (axis == 0)
        DiffuseRowAlong(kernel, limits, source.data + row, result.data + row, n.x);
      else if (axis == 1)
        DiffuseRowAcross(kernel, TapRange(j, n.y, radius), n.x, limits, source.data + row, sums.data(),
                         result.data + row, n.x);
      else
        DiffuseRowAcross(kernel, TapRange(k, n.z, radius), source.slab, limits, source.data + row, sums.data(),
                         result.data + row, n.x);
    }
  }
}

ORLIX_MULTIVERSION
void DiffuseNeighbours(double alpha, bool raise, const GridView<const double>& source, const GridView<double>& result,
                       std::int32_t kBegin, std::int32_t kEnd) {
  const VecInt3D n = source.dims;
  const double scale = 1 / (1 + 6 * alpha);
  for (std::int32_t k = kBegin; k < kEnd; ++k) {
    for (std::int32_t j = 1; j < n.y - 1; ++j) {
      const double* s = source.data + source.Index(0, j, k);
      const double *lowY = s - n.x, *highY = s + n.x, *lowZ = s - source.slab, *highZ = s + source.slab;
      double* __restrict out = result.data + result.Index(0, j, k);
      for (std::int32_t i = 1; i < n.x - 1; ++i) {
        const double sum = s[i + 1] + s[i - 1] + highY[i] + lowY[i] + highZ[i] + lowZ[i];
        const double value = (s[i] + alpha * sum) * scale;
        out[i] = raise && !(value > out[i]) ? out[i] : value;
      }
    }
  }
}

}  // namespace orlix
