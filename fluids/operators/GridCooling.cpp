#include "fluids/operators/GridCooling.h"

#include "fluids/operators/FireSettings.h"
#include "globals/Multiversion.h"

namespace orlix {

namespace {

constexpr double kThresholdWithoutFire = 0.9;

constexpr Choice kModels[] = {
    {CoolingModel::FourthPower, "fourth_power",
     "By the fourth power of the temperature, as glowing gas radiates; independent of the sub-step"},
    {CoolingModel::Exponential, "exponential", "By a share of the temperature in each second"},
    {CoolingModel::Linear, "linear", "By the same number of kelvins in each second"},
};

double Larger(double a, double b) { return a < b ? b : a; }

}  // namespace

const TypeInfo& GridCooling::Type() {
  static constexpr Parameter kParameters[] = {
      LinkParameter(kTemperatureId, "temperature", kLinkChannel, "The temperature channel"),
      LinkParameter(kFireId, "fire", kLinkChannel, "A fire channel whose flames age; flames keep their heat"),
      FloatParameter(kRateId, "rate", 0.6, "1/s", "How fast it cools, as a share of the channel's range").Fallback(1.0),
      FalloffListParameter(),
      ChoiceParameter(kModelId, "model", CoolingModel::FourthPower, kModels, "The law of cooling"),
  };
  static const TypeInfo kType = {
      .id = 1300041,
      .resource = "zq_grid_cooling",
      .className = "C4D_Operator_Cooling_Object",
      .label = "GOP::Cooling",
      .text = "Cools a temperature channel and lets flames die.",
      .kinds = kLinkOperator,
      .parameters = kParameters,
      .common = CommonNodeParameters(),
  };
  return kType;
}

bool GridCooling::ReadParameters() {
  if (!GridOperator::ReadParameters()) return false;
  rate_ = handler.GetDouble(kRateId);
  cooling_.model = handler.GetChoice<CoolingModel>(kModelId);
  return true;
}

bool GridCooling::ResolveLinks() {
  if (!GridOperator::ResolveLinks()) return false;
  temperature_ = LinkedScalar(kTemperatureId);
  fire_ = LinkedScalar(kFireId);
  return temperature_ != nullptr;
}

void GridCooling::Advise() { AdviseLink(temperature_, "temperature"); }

void GridCooling::ReleaseLinks() {
  temperature_ = fire_ = nullptr;
  GridOperator::ReleaseLinks();
}

bool GridCooling::ComesBefore(const iBase& other) const {
  if (other.GetNodeBaseType() == NODE_OPERATOR && other.HasRetrieveType(RETRIEVE_PARTICLE)) return false;
  return GridOperator::ComesBefore(other);
}

void GridCooling::Prepare(iBase*) {
  SetFlag(NodeActive, false);
  const double dt = simulationInfo->substepDuration;
  if (!HasStorage(temperature_) || dt == 0) return;
  const ScalarGrid& grid = *temperature_->grid;
  fireGrid_ = fire_ ? GridOn(grid, fire_) : nullptr;
  const double range = temperature_->valueMax - temperature_->valueMin;
  cooling_.min = temperature_->valueMin;
  cooling_.inverseRange = range == 0 ? 0 : 1 / range;
  cooling_.cool = range * rate_;
  cooling_.rateDt = rate_ * dt;
  cooling_.dt = dt;
  flames_ = {kThresholdWithoutFire, dt, dt};
  if (fireGrid_) {
    const auto* fire = dynamic_cast<const FireGridChannel*>(fire_);
    flames_.threshold = FlameThreshold(*fire_, *temperature_);
    flames_.hotStep = (1 - flames_.threshold) / (fire ? fire->coolingTimeCold : 1.0) * dt;
    flames_.coldStep = flames_.threshold / (fire ? fire->coolingTimeHot : 1.0) * dt;
  }
  const double* temperature = grid.data;
  const double* fire = fireGrid_ ? fireGrid_->data : nullptr;
  SetFlag(NodeActive, PrepareCells(grid, 1.0, [&](std::int64_t index) {
            return temperature[index] > cooling_.min && !(fire && fire[index] > flames_.threshold);
          }));
}

void GridCooling::Process(ProcessData& data) {
  if (!IsActive()) return;
  ScalarGrid* grid = temperature_->grid.get();
  std::vector<double> temperature, fire;
  ForEachRow(data, *grid, [&](std::int32_t j, std::int32_t k, std::int64_t index) {
    CoolRow(cooling_, flames_,
            {1, grid->dims.x - 1, RowToChange(grid, temperature_, index, temperature),
             RowToChange(fireGrid_, fire_, index, fire), weights_.Row(j, k)});
  });
}

namespace {

// burning: 1 where the flame keeps the temperature.
inline void AgeFlame(const FlameTerms& flames, double& fire, bool& burning) {
  const double f = fire > 1 ? 1 : fire;
  burning = f > flames.threshold;
  fire = burning ? Larger(f - flames.hotStep, flames.threshold) : f > 0 ? Larger(f - flames.coldStep, 0) : f;
}

template <CoolingModel Model>
inline double Cooled(const CoolingTerms& cooling, double t, double amount) {
  if constexpr (Model == CoolingModel::FourthPower) {
    const double share = (t - cooling.min) * cooling.inverseRange, squared = share * share;
    return t - squared * squared * cooling.cool * amount;
  } else if constexpr (Model == CoolingModel::Exponential) {
    return t * (1 - amount * cooling.rateDt);
  } else {
    return t - amount * cooling.cool * cooling.dt;
  }
}

template <CoolingModel Model>
inline void CoolCells(const CoolingTerms& cooling, const FlameTerms& flames, const CoolingRow& row) {
  double* __restrict temperature = row.temperature;
  double* __restrict fire = row.fire;
  const double* __restrict weights = row.weights;
  for (std::int32_t i = row.begin; i < row.end; ++i) {
    bool burning = false;
    if (fire) AgeFlame(flames, fire[i], burning);
    const double t = temperature[i], cooled = Cooled<Model>(cooling, t, weights[i]);
    const double next = !burning && t > cooling.min && weights[i] != 0 ? cooled : t;
    temperature[i] = Larger(next, cooling.min);
  }
}

}  // namespace

ORLIX_MULTIVERSION
void CoolRow(const CoolingTerms& cooling, const FlameTerms& flames, const CoolingRow& row) {
  switch (cooling.model) {
    case CoolingModel::FourthPower:
      return CoolCells<CoolingModel::FourthPower>(cooling, flames, row);
    case CoolingModel::Exponential:
      return CoolCells<CoolingModel::Exponential>(cooling, flames, row);
    case CoolingModel::Linear:
      return CoolCells<CoolingModel::Linear>(cooling, flames, row);
  }
}

}  // namespace orlix
