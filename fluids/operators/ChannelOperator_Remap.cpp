#include "fluids/operators/ChannelOperator_Remap.h"

namespace orlix {

namespace {

constexpr GradientKnot kStraight[] = {{0, {0, 0, 0}}, {1, {1, 1, 1}}};

}  // namespace

const TypeInfo& ChannelOperator_Remap::Type() {
  static constexpr Parameter kParameters[] = {
      GradientParameter(
          kGradientId, "gradient", kStraight,
          "Of a scalar channel, its first component at (value - value_min) / value_max, times the range; of a "
          "vector channel, each component at that of the value. Constraints tell where it acts, not how "
          "much"),
  };
  static const TypeInfo kType = {
      .id = 1300063,
      .resource = "zq_channelop_remap",
      .className = "C4D_ChannelOperator_Remap_Object",
      .label = "COP::Remap",
      .text = "Sends the cells that a cell emitter visits through a gradient: a curve for their values.",
      .kinds = kLinkHelper | kLinkChannelOperator,
      .parameters = kParameters,
      .common = ConfinedNodeParameters(),
  };
  return kType;
}

bool ChannelOperator_Remap::ReadParameters() {
  priority = 0;
  if (!ChannelOperator::ReadParameters()) return false;
  gradient_ = handler.GetGradient(kGradientId);
  return true;
}

void ChannelOperator_Remap::Advise() {
  if (!gradient_) Warn("no-gradient", "it has no gradient, so it changes nothing; set \"gradient\"");
}

void ChannelOperator_Remap::Prepare(iBase*) {
  const ScalarGrid* grid = TargetGrid();
  SetFlag(NodeActive, gradient_ && grid);
  if (IsActive()) weights_.Prepare(*scene, *this, *grid);
}

void ChannelOperator_Remap::ProcessRow(const ChannelRow& row) {
  if (!IsActive()) return;
  const double* weights = weights_.Of(row);
  if (scalarTarget_) {
    double* cells = scalarTarget_->grid->data + row.index;
    const double low = scalarTarget_->valueMin, high = scalarTarget_->valueMax;
    for (std::int32_t i = row.begin; i < row.end; ++i) {
      if (weights[i] != 0) cells[i] = (high - low) * gradient_->ColourAt((cells[i] - low) / high).x + low;
    }
    return;
  }
  for (int c = 0; c < 3; ++c) {
    double* cells = vectorTarget_->grids[static_cast<std::size_t>(c)]->data + row.index;
    for (std::int32_t i = row.begin; i < row.end; ++i) {
      if (weights[i] != 0) cells[i] = gradient_->ColourAt(cells[i])[c];
    }
  }
}

void ChannelOperator_Remap::Finish() {
  weights_.Finish();
  SetFlag(NodeActive, false);
}

}  // namespace orlix
