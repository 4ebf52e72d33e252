#include "fluids/operators/GridDissipate.h"

#include "globals/Multiversion.h"

namespace orlix {

const TypeInfo& GridDissipate::Type() {
  static constexpr Parameter kParameters[] = {
      LinkParameter(kChannelId, "channel", kLinkChannel, "The scalar or vector channel that fades"),
      FloatParameter(kRateId, "rate", 0.04, "1/s^2",
                     "Share of the channel's range; the loss goes with the sub-step squared")
          .Fallback(1.0),
      FalloffListParameter(),
  };
  static const TypeInfo kType = {
      .id = 1300116,
      .resource = "zq_grid_dissipate",
      .className = "C4D_Operator_Dissipation_Object",
      .label = "GOP::Dissipation",
      .text = "Lets a channel fade towards its background value.",
      .kinds = kLinkOperator,
      .parameters = kParameters,
      .common = CommonNodeParameters(),
  };
  return kType;
}

bool GridDissipate::ReadParameters() {
  if (!GridOperator::ReadParameters()) return false;
  rate_ = handler.GetDouble(kRateId);
  return true;
}

bool GridDissipate::ResolveLinks() {
  if (!GridOperator::ResolveLinks()) return false;
  scalar_ = LinkedScalar(kChannelId);
  vector_ = scene->RetrieveAs<ChannelBase_Vector>(handler.GetLink(kChannelId), NODE_CHANNEL, RETRIEVE_VECTOR);
  return scalar_ || vector_;
}

void GridDissipate::Advise() { AdviseLink(scalar_ ? static_cast<const void*>(scalar_) : vector_, "channel"); }

void GridDissipate::ReleaseLinks() {
  scalar_ = nullptr, vector_ = nullptr;
  GridOperator::ReleaseLinks();
}

void GridDissipate::Prepare(iBase*) {
  SetFlag(NodeActive, false);
  const double dt = simulationInfo->substepDuration;
  if (dt == 0 || IsPlayed(scalar_) || IsPlayed(vector_)) return;
  // The sub-step enters twice: in the step, and in the amount that each cell starts from.
  if (HasStorage(scalar_)) {
    step_ = (scalar_->valueMax - scalar_->valueMin) * rate_ * dt;
    const double *values = scalar_->grid->data, background = scalar_->backgroundValue;
    const auto above = [=](std::int64_t i) { return values[i] > background; };
    SetFlag(NodeActive, PrepareCells(*scalar_->grid, dt, above));
  } else if (HasStorage(vector_)) {
    step_ = (vector_->valueMax.x - vector_->valueMin.x) * rate_ * dt;
    const auto& grids = vector_->grids;
    const Vec3D background = vector_->backgroundValue;
    const auto above = [&](std::int64_t i) {
      return (*grids[0])[i] > background.x && (*grids[1])[i] > background.y && (*grids[2])[i] > background.z;
    };
    SetFlag(NodeActive, PrepareCells(*grids[0], dt, above));
  }
}

void GridDissipate::Process(ProcessData& data) {
  if (!IsActive()) return;
  if (HasStorage(scalar_)) {
    ScalarGrid& grid = *scalar_->grid;
    ForEachRow(data, grid, [&](std::int32_t j, std::int32_t k, std::int64_t index) {
      Dissipate(scalar_->backgroundValue, step_, {1, grid.dims.x - 1, grid.data + index, weights_.Row(j, k)});
    });
    return;
  }
  const auto& grids = vector_->grids;
  ForEachRow(data, *grids[0], [&](std::int32_t j, std::int32_t k, std::int64_t index) {
    double* const values[3] = {grids[0]->data + index, grids[1]->data + index, grids[2]->data + index};
    DissipateVector(vector_->backgroundValue, step_, 1, grids[0]->dims.x - 1, values, weights_.Row(j, k));
  });
}

ORLIX_MULTIVERSION
void Dissipate(double background, double step, const DissipateRow& row) {
  double* __restrict values = row.values;
  const double* __restrict weights = row.weights;
  for (std::int32_t i = row.begin; i < row.end; ++i) {
    const double lower = values[i] - weights[i] * step;
    values[i] = lower <= background ? background : lower;  // NaN stays, to be found
  }
}

ORLIX_MULTIVERSION
void DissipateVector(const Vec3D& background, double step, std::int32_t begin, std::int32_t end,
                     double* const values[3], const double* weights) {
  double* __restrict x = values[0], * __restrict y = values[1], * __restrict z = values[2];
  for (std::int32_t i = begin; i < end; ++i) {
    const bool above = x[i] > background.x && y[i] > background.y && z[i] > background.z;
    const bool below = x[i] < background.x && y[i] < background.y && z[i] < background.z;
    const double loss = weights[i] * step;
    const auto next = [&](double value, double floor) {
      const double lower = value - loss <= floor ? floor : value - loss;
      return above ? lower : below ? floor : value;
    };
    x[i] = next(x[i], background.x);
    y[i] = next(y[i], background.y);
    z[i] = next(z[i], background.z);
  }
}

}  // namespace orlix
