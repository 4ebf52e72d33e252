#include "fluids/constraints/ChannelAverageConstraint.h"

#include <vector>

#include "fluids/constraints/ConstraintAdvice.h"

namespace orlix {

const TypeInfo& ChannelAverageConstraint::Type() {
  static constexpr Parameter kParameters[] = {
      LinkParameter(kChannelId, "channel", kLinkChannel, "The scalar channel whose mean counts"),
      FloatParameter(kThresholdId, "threshold", 0.5, "",
                     "With a mean below it the node acts in full, and the constraints after this one aren't asked")
          .Fallback(0.0),
  };
  static const TypeInfo kType = {
      .id = 1300023,
      .resource = "zq_constraint_gridaverage",
      .className = "C4D_Constraint_GridChannelAverage_Object",
      .label = "CS::Grid Channel Average",
      .text = "Acts by the mean of a channel's cells above 0.",
      .kinds = kLinkHelper | kLinkConstraint,
      .parameters = kParameters,
      .common = ConstraintParameters(),
  };
  return kType;
}

bool ChannelAverageConstraint::ReadParameters() {
  if (!Constraint::ReadParameters()) return false;
  threshold_ = handler.GetDouble(kThresholdId);
  return true;
}

bool ChannelAverageConstraint::ResolveLinks() {
  if (!Constraint::ResolveLinks()) return false;
  channel_ = scene->RetrieveAs<ChannelBase_Scalar>(handler.GetLink(kChannelId), NODE_CHANNEL, RETRIEVE_SCALAR);
  return channel_ != nullptr;
}

void ChannelAverageConstraint::ReleaseLinks() {
  channel_ = nullptr;
  Constraint::ReleaseLinks();
}

void ChannelAverageConstraint::Advise() { AdviseMissingLink(*this, channel_, "channel"); }

void ChannelAverageConstraint::CheckDirty() {
  Constraint::CheckDirty();
  // The channel's content moves on with the time.
  if (IsEnabled() && scene->HasFlag(TimeMoved)) MarkDirty(false);
}

void ChannelAverageConstraint::Prepare(const iBase*) {
  if (!IsDirty()) return;
  const ScalarGrid* grid = channel_ ? channel_->GetReadGrid(0) : nullptr;
  SetFlag(NodeActive, grid && grid->count > 0);
  if (!IsActive()) return;
  if (const auto mean = MeanOfPositive(*grid, scene->pool())) average_ = *mean < threshold_ ? 0 : *mean;
  // Without an upper end of the values there is no share of it.
  average_ = channel_->valueMax == 0 ? 0 : (average_ - channel_->valueMin) / channel_->valueMax;
}

bool ChannelAverageConstraint::Evaluate(const Vec3D& position, double& amount, const iBase* caller,
                                        std::int32_t threadIndex) const {
  if (!IsActive()) return true;
  if (average_ == 0) return false;
  amount *= Inverted() ? 1 - average_ : average_;
  return Constraint::Evaluate(position, amount, caller, threadIndex);
}

std::unique_ptr<Constraint> ChannelAverageConstraint::Clone() const {
  auto clone = CloneOf(*this);
  static_cast<ChannelAverageConstraint&>(*clone).average_ = average_;
  return clone;
}

std::optional<double> MeanOfPositive(const ScalarGrid& grid, WorkerPool& pool) {
  struct Layer {
    double sum = 0;
    std::int64_t cells = 0;
  };
  std::vector<Layer> layers(static_cast<std::size_t>(std::max(grid.dims.z, 0)));
  ParallelRange(pool, 0, grid.dims.z, [&](int begin, int end, int) {
    for (int k = begin; k < end; ++k) {
      const double* values = grid.data + grid.Index(0, 0, k);
      Layer layer;
      for (std::int64_t i = 0; i < grid.slab; ++i) {
        if (values[i] > 0) layer.sum += values[i], ++layer.cells;
      }
      layers[static_cast<std::size_t>(k)] = layer;
    }
  });
  Layer all;
  for (const Layer& layer : layers) all.sum += layer.sum, all.cells += layer.cells;
  if (all.cells == 0) return std::nullopt;
  return all.sum / static_cast<double>(all.cells);
}

}  // namespace orlix
