#include "fluids/operators/GridCombustion.h"

#include "fluids/grids/Spread.h"
#include "fluids/operators/FireSettings.h"

namespace orlix {

namespace {

// Smoke and fuel together at which a mixture has used up its air.
constexpr double kSaturation = 3.23;

constexpr Choice kBurnModels[] = {
    {BurnModel::FixedRate, "fixed_rate", "The same amount in each second"},
    {BurnModel::MixtureLimited, "mixture_limited", "As fast as fuel and air mix"},
};

constexpr SplineKnot kTemperatureCurve[] = {{0, 1}, {1, 0}};
constexpr SplineKnot kSmokeCurve[] = {{0, 0}, {1, 1}};

}  // namespace

const TypeInfo& GridCombustion::Type() {
  static constexpr Parameter kParameters[] = {
      LinkParameter(kTemperatureId, "temperature", kLinkChannel, "The temperature channel that burning heats"),
      LinkParameter(kFireId, "fire", kLinkChannel, "The fire channel that shows the flames"),
      LinkParameter(kFuelId, "fuel", kLinkChannel, "The fuel channel; without one the flames burn down by themselves"),
      LinkParameter(kSmokeId, "smoke", kLinkChannel, "The channel that takes the smoke"),
      LinkParameter(kSolverId, "solver", kLinkSolver, "The solver whose gas expands"),
      ChoiceParameter(kBurnModelId, "burn_model", BurnModel::FixedRate, kBurnModels, "How fast fuel burns")
          .ShownWhen(kFuelId, Relation::IsNot, 0),
      FloatParameter(kBurnRateId, "burn_rate", 1.0, "1/s", "Fuel that burns in a second").Min(0),
      FloatParameter(kFuelRatioId, "fuel_ratio", 0.19, "", "Share of the fuel that can burn at once in a mixture")
          .Above(0)
          .ShownWhen(kBurnModelId, Relation::Is, BurnModel::MixtureLimited),
      FloatParameter(kBaseTemperatureId, "base_temperature", 500.0, "K", "Temperature of a flame at the curve's 0")
          .ShownWhen(kFuelId, Relation::Is, 0),
      FloatParameter(kHeatId, "heat", 1000.0, "K", "Temperature gained for each unit of fuel")
          .ShownWhen(kFuelId, Relation::IsNot, 0),
      SplineParameter(kTemperatureCurveId, "temperature_curve", kTemperatureCurve,
                      "Temperature over a flame's life, a share of the range")
          .ShownWhen(kFuelId, Relation::Is, 0),
      FloatParameter(kSmokeRateId, "smoke_rate", 0.2, "1/s", "Smoke from what burns").Min(0),
      SplineParameter(kSmokeCurveId, "smoke_curve", kSmokeCurve, "Smoke over a flame's life")
          .ShownWhen(kFuelId, Relation::Is, 0),
      FloatParameter(kExpansionId, "expansion", 0.2, "1/s", "How strongly the gas expands where it burns"),
      FalloffListParameter(),
  };
  static const TypeInfo kType = {
      .id = 1300042,
      .resource = "zq_grid_combustion_fire",
      .className = "C4D_Operator_Combustion_Object",
      .label = "GOP::Combustion",
      .text = "Burns fuel, or lets flames burn down: makes heat, smoke and expansion.",
      .kinds = kLinkOperator,
      .parameters = kParameters,
      .common = CommonNodeParameters(),
  };
  return kType;
}

bool GridCombustion::ReadParameters() {
  if (!GridOperator::ReadParameters()) return false;
  fuelTerms_.model = handler.GetChoice<BurnModel>(kBurnModelId);
  burnRate_ = handler.GetDouble(kBurnRateId);
  fuelTerms_.fuelRatio = handler.GetDouble(kFuelRatioId);
  flameTerms_.base = handler.GetDouble(kBaseTemperatureId);
  fuelTerms_.heat = handler.GetDouble(kHeatId);
  flameTerms_.temperatureCurve = handler.GetSplineData(kTemperatureCurveId);
  smokeRate_ = handler.GetDouble(kSmokeRateId);
  flameTerms_.smokeCurve = handler.GetSplineData(kSmokeCurveId);
  expansion_ = handler.GetDouble(kExpansionId);
  return true;
}

bool GridCombustion::ResolveLinks() {
  if (!GridOperator::ResolveLinks()) return false;
  temperature_ = LinkedScalar(kTemperatureId);
  fire_ = LinkedScalar(kFireId);
  fuel_ = LinkedScalar(kFuelId);
  smoke_ = LinkedScalar(kSmokeId);
  auto* solver = scene->RetrieveAs<iSolver>(handler.GetLink(kSolverId), NODE_SOLVER);
  divergence_ = solver && expansion_ != 0 ? dynamic_cast<ChannelBase_Scalar*>(solver->DivergenceSource()) : nullptr;
  return temperature_ && fire_;
}

void GridCombustion::Advise() {
  AdviseLink(temperature_, "temperature");
  AdviseLink(fire_, "fire");
}

void GridCombustion::ReleaseLinks() {
  temperature_ = fire_ = fuel_ = smoke_ = divergence_ = nullptr;
  GridOperator::ReleaseLinks();
}

void GridCombustion::Conclude() {
  if (!acted_ || burned_.load()) return;
  Warn("nothing-burned",
       handler.GetLink(kFuelId)
           ? "nothing burned in the whole run: nowhere was fuel as hot as its ignition_temperature; fill the fuel "
             "channel, heat it, or lower ignition_temperature"
           : "nothing burned in the whole run: nowhere was the fire channel above its threshold, flame_temperature as "
             "a share of the temperature's value_max; fill it up to 1");
}

bool GridCombustion::ComesBefore(const iBase& other) const {
  if (other.GetNodeBaseType() == NODE_EMITTER) return false;
  if (other.GetNodeBaseType() == NODE_OPERATOR && other.HasRetrieveType(RETRIEVE_PARTICLE)) return false;
  return GridOperator::ComesBefore(other);
}

bool GridCombustion::BindGrids() {
  if (!HasStorage(temperature_) || !HasStorage(fire_)) return false;
  lattice_ = HasStorage(fuel_) ? fuel_->grid.get() : fire_->grid.get();
  fuelGrid_ = HasStorage(fuel_) ? fuel_->grid.get() : nullptr;
  fireGrid_ = GridOn(*lattice_, fire_);
  temperatureGrid_ = GridOn(*lattice_, temperature_);
  smokeGrid_ = smoke_ ? GridOn(*lattice_, smoke_) : nullptr;
  divergenceGrid_ = HasStorage(divergence_) ? divergence_->grid.get() : nullptr;
  spreads_ =
      divergenceGrid_ && (divergenceGrid_->dims != lattice_->dims || !divergenceGrid_->space.Equals(lattice_->space));
  return fireGrid_ && temperatureGrid_;
}

void GridCombustion::Prepare(iBase*) {
  SetFlag(NodeActive, false);
  if (simulationInfo->substepDuration == 0 || !BindGrids()) return;
  const double dt = simulationInfo->substepDuration;
  fuelTerms_.burnStep = burnRate_ * dt;
  fuelTerms_.smokeStep = smokeRate_ * dt;
  fuelTerms_.expansionStep = (fuelTerms_.model == BurnModel::MixtureLimited ? 1.0 : burnRate_) * expansion_;
  if (spreads_) expansions_.assign(static_cast<std::size_t>(lattice_->dims.z), {});
  SetFlag(NodeActive, fuelGrid_ ? PrepareFuel() : PrepareFlames());
  acted_ |= IsActive();
}

bool GridCombustion::PrepareFuel() {
  fuelTerms_.ignition = IgnitionTemperatureOf(*fuel_);
  const double *fuel = fuelGrid_->data, *temperature = temperatureGrid_->data;
  return PrepareCells(*lattice_, simulationInfo->substepDuration, [&](std::int64_t index) {
    return fuel[index] > 0 && !(fuelTerms_.ignition > temperature[index]);
  });
}

bool GridCombustion::PrepareFlames() {
  flameTerms_.threshold = FlameThreshold(*fire_, *temperature_);
  flameTerms_.span = 1 - flameTerms_.threshold;
  flameTerms_.range = temperature_->valueMax - temperature_->valueMin;
  flameTerms_.smokeRate = smokeRate_;
  flameTerms_.makesSmoke = fuelTerms_.smokeStep > 0;
  flameTerms_.expansionStep = fuelTerms_.expansionStep;
  const double* fire = fireGrid_->data;
  return PrepareCells(*lattice_, simulationInfo->substepDuration,
                      [&](std::int64_t index) { return fire[index] > flameTerms_.threshold && !(fire[index] > 1); });
}

// Whether a cell of the row burns, as the kernels find it.
bool GridCombustion::Burns(const BurnRow& row) const {
  for (std::int32_t i = row.begin; i < row.end; ++i) {
    const bool burns = row.fuel ? row.fuel[i] > 0 && !(fuelTerms_.ignition > row.temperature[i])
                                : row.fire[i] > flameTerms_.threshold && !(row.fire[i] > 1);
    if (burns && row.weights[i] != 0) return true;
  }
  return false;
}

void GridCombustion::Burn(const BurnRow& row) {
  if (!burned_.load(std::memory_order_relaxed) && Burns(row)) burned_.store(true, std::memory_order_relaxed);
  if (row.fuel)
    BurnFuel(fuelTerms_, row);
  else
    BurnFlames(flameTerms_, row);
}

void GridCombustion::Process(ProcessData& data) {
  if (!IsActive()) return;
  const std::int32_t nx = lattice_->dims.x;
  std::vector<double> expansion(spreads_ ? static_cast<std::size_t>(nx) : 0);
  std::vector<double> temperature, fire, fuel, smoke;
  ForEachRow(data, *lattice_, [&](std::int32_t j, std::int32_t k, std::int64_t index) {
    BurnRow row{1,
                nx - 1,
                RowToChange(temperatureGrid_, temperature_, index, temperature),
                RowToChange(fireGrid_, fire_, index, fire),
                RowToChange(fuelGrid_, fuel_, index, fuel),
                RowToChange(smokeGrid_, smoke_, index, smoke),
                divergenceGrid_ ? divergenceGrid_->data + index : nullptr,
                weights_.Row(j, k)};
    if (!spreads_) return Burn(row);
    std::fill(expansion.begin(), expansion.end(), 0.0);
    row.expansion = expansion.data();
    Burn(row);
    for (std::int32_t i = 1; i < nx - 1; ++i) {
      if (row.expansion[i] != 0) expansions_[static_cast<std::size_t>(k)].push_back({{i, j, k}, row.expansion[i]});
    }
  });
}

void GridCombustion::SpreadExpansions() {
  const GridSpace& target = divergenceGrid_->space;
  for (const auto& layer : expansions_) {
    for (const Expansion& e : layer) {
      const Vec3D at = target.VoxelOfSim(lattice_->space.SimOfVoxel(Vec3D(e.cell) + Vec3D(0.5))) - Vec3D(0.5);
      Spread(GridView<double>(*divergenceGrid_), e.value, at.x, at.y, at.z, SpreadOperation::Add);
    }
  }
  expansions_.clear();
}

void GridCombustion::Finish() {
  if (IsActive() && spreads_ && divergenceGrid_->dims.x > 1 && divergenceGrid_->dims.y > 1 &&
      divergenceGrid_->dims.z > 1) {
    SpreadExpansions();
  }
  GridOperator::Finish();
}

void BurnFuel(const FuelTerms& terms, const BurnRow& row) {
  const double inverseRatio = terms.fuelRatio > 0 ? 1 / terms.fuelRatio : 0;
  for (std::int32_t i = row.begin; i < row.end; ++i) {
    double fuel = row.fuel[i];
    if (!(fuel > 0) || terms.ignition > row.temperature[i] || row.weights[i] == 0) continue;
    row.fire[i] = 1;
    double burned = terms.burnStep;
    double smoke = 0;
    if (terms.model == BurnModel::MixtureLimited) {
      const double air = kSaturation - ((row.smoke ? row.smoke[i] : 0) + fuel);
      burned *= std::min(std::max(air, 0.0), std::max(terms.fuelRatio, 0.0) * fuel);
      smoke = (inverseRatio + 1) * burned * terms.smokeStep;
      fuel = std::max(fuel - burned * inverseRatio, 0.0);
    } else {
      fuel -= burned;
      if (fuel < 0) burned += fuel, fuel = 0;
      smoke = burned * terms.smokeStep;
    }
    row.fuel[i] = fuel;
    if (row.smoke) row.smoke[i] += smoke;
    row.temperature[i] += burned * terms.heat;
    if (row.expansion) row.expansion[i] += burned * terms.expansionStep;
  }
}

void BurnFlames(const FlameBurnTerms& terms, const BurnRow& row) {
  for (std::int32_t i = row.begin; i < row.end; ++i) {
    const double f = row.fire[i];
    if (!(f > terms.threshold) || f > 1 || row.weights[i] == 0) continue;
    const float g = static_cast<float>(1 - (f - terms.threshold) / terms.span);
    row.temperature[i] = C4D_InterfaceHandler::SplineValueOf(terms.temperatureCurve, g) * terms.range + terms.base;
    if (terms.makesSmoke && row.smoke) {
      row.smoke[i] += C4D_InterfaceHandler::SplineValueOf(terms.smokeCurve, g) * terms.smokeRate;
    }
    if (row.expansion) row.expansion[i] += terms.expansionStep;
  }
}

}  // namespace orlix
