#include "fluids/operators/GridCombustion.h"

#include "fluids/grids/Spread.h"
#include "fluids/operators/FireSettings.h"

namespace orlix {

namespace {

// Smoke and fuel together at which a mixture has used up its air.
constexpr double kSaturation = 3.23;

constexpr Choice kBurnModels[] = {
    {0, "fixed_rate", "The same amount in each second"},
    {1, "mixture_limited", "As fast as fuel and air mix"},
};

constexpr SplineKnot kTemperatureCurve[] = {{0, 1}, {1, 0}};
constexpr SplineKnot kSmokeCurve[] = {{0, 0}, {1, 1}};

constexpr Parameter kParameters[] = {
    LinkParameter(1000, "temperature", kLinkChannel, "The temperature channel that burning heats"),
    LinkParameter(1001, "fire", kLinkChannel, "The fire channel that shows the flames"),
    LinkParameter(1002, "fuel", kLinkChannel, "The fuel channel; without one the flames burn down by themselves"),
    LinkParameter(1003, "smoke", kLinkChannel, "The channel that takes the smoke"),
    LinkParameter(12, "solver", kLinkSolver, "The solver whose gas expands"),
    ChoiceParameter(1004, "burn_model", 0, kBurnModels, "How fast fuel burns").ShownWhen(1002, Relation::IsNot, 0),
    FloatParameter(2, "burn_rate", 1.0, "1/s", "Fuel that burns in a second").Min(0),
    FloatParameter(3, "fuel_ratio", 0.19, "", "Share of the fuel that can burn at once in a mixture")
        .Above(0)
        .ShownWhen(1004, Relation::Is, 1),
    FloatParameter(4, "base_temperature", 500.0, "K", "Temperature of a flame at the curve's 0")
        .ShownWhen(1002, Relation::Is, 0),
    FloatParameter(5, "heat", 1000.0, "K", "Temperature gained for each unit of fuel")
        .ShownWhen(1002, Relation::IsNot, 0),
    SplineParameter(6, "temperature_curve", kTemperatureCurve, "Temperature over a flame's life, a share of the range")
        .ShownWhen(1002, Relation::Is, 0),
    FloatParameter(7, "smoke_rate", 0.2, "1/s", "Smoke from what burns").Min(0),
    SplineParameter(8, "smoke_curve", kSmokeCurve, "Smoke over a flame's life").ShownWhen(1002, Relation::Is, 0),
    FloatParameter(9, "expansion", 0.2, "1/s", "How strongly the gas expands where it burns"),
    FalloffListParameter(),
};

}  // namespace

const TypeInfo& GridCombustion::Type() {
  static const TypeInfo kType =
      OperatorType(1300042, "zq_grid_combustion_fire", "C4D_Operator_Combustion_Object", "GOP::Combustion",
                   "Burns fuel, or lets flames burn down: makes heat, smoke and expansion.", kParameters);
  return kType;
}

bool GridCombustion::ReadParameters() {
  if (!GridOperator::ReadParameters()) return false;
  fuelTerms_.model = static_cast<BurnModel>(handler.GetChoice(1004));
  burnRate_ = handler.GetDouble(2);
  fuelTerms_.fuelRatio = handler.GetDouble(3);
  flameTerms_.base = handler.GetDouble(4);
  fuelTerms_.heat = handler.GetDouble(5);
  flameTerms_.temperatureCurve = handler.GetSplineData(6);
  smokeRate_ = handler.GetDouble(7);
  flameTerms_.smokeCurve = handler.GetSplineData(8);
  expansion_ = handler.GetDouble(9);
  return true;
}

bool GridCombustion::ResolveLinks() {
  if (!GridOperator::ResolveLinks()) return false;
  temperature_ = LinkedScalar(1000);
  fire_ = LinkedScalar(1001);
  fuel_ = LinkedScalar(1002);
  smoke_ = LinkedScalar(1003);
  auto* solver = scene->RetrieveAs<iSolver>(handler.GetLink(12), NODE_SOLVER);
  divergence_ = solver ? dynamic_cast<ChannelBase_Scalar*>(solver->DivergenceSource()) : nullptr;
  return temperature_ && fire_;
}

void GridCombustion::ReleaseLinks() {
  temperature_ = fire_ = fuel_ = smoke_ = divergence_ = nullptr;
  GridOperator::ReleaseLinks();
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

void GridCombustion::Burn(const BurnRow& row) const {
  if (row.fuel)
    BurnFuel(fuelTerms_, row);
  else
    BurnFlames(flameTerms_, row);
}

void GridCombustion::Process(ProcessData& data) {
  if (!IsActive()) return;
  const std::int32_t nx = lattice_->dims.x;
  std::vector<double> expansion(spreads_ ? static_cast<std::size_t>(nx) : 0);
  ForEachRow(data, *lattice_, [&](std::int32_t j, std::int32_t k, std::int64_t index) {
    const auto at = [&](ScalarGrid* grid) { return grid ? grid->data + index : nullptr; };
    BurnRow row{1,
                nx - 1,
                at(temperatureGrid_),
                at(fireGrid_),
                at(fuelGrid_),
                at(smokeGrid_),
                at(divergenceGrid_),
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
