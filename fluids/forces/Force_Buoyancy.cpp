#include "fluids/forces/Force_Buoyancy.h"

#include "globals/Multiversion.h"

namespace orlix {

namespace {

constexpr int kBlock = 256;  // cells whose strengths stand in the first cache

}  // namespace

const TypeInfo& Force_Buoyancy::Type() {
  static constexpr Parameter kParameters[] = {
      LinkParameter(kTemperatureId, "temperature", kLinkChannel, "Temperature channel; without one the force is idle"),
      LinkParameter(kFuelId, "fuel", kLinkChannel, "Fuel channel, which weighs as the density does"),
      LinkParameter(kDensityId, "density", kLinkChannel, "Density channel: smoke"),
      VectorParameter(kDirectionId, "direction", {0, 1, 0}, "", "Where hot gas goes; its length is a factor"),
      FloatParameter(kTemperatureFactorId, "temperature_factor", 0.0015, "m/(s^2 K)",
                     "Twice the acceleration for each kelvin"),
      FloatParameter(kDensityFactorId, "density_factor", -0.008, "m/s^2",
                     "Twice the acceleration for each unit of density and fuel"),
      LinkParameter(kForceDurationId, "force_duration", kLinkDuration, "When the force acts"),
  };
  static const TypeInfo kType = {
      .id = 1300015,
      .resource = "zq_force_buoyancy",
      .className = "C4D_Force_Buoyancy_Object",
      .label = "DF::Buoyancy",
      .text = "Lifts hot gas and pulls dense gas down.",
      .kinds = kLinkForce,
      .parameters = kParameters,
      .common = CommonNodeParameters(),
  };
  return kType;
}

bool Force_Buoyancy::ReadParameters() {
  priority = 0;
  if (!ConstrainedForce::ReadParameters()) return false;
  direction_ = handler.GetVector(kDirectionId);
  terms_.temperatureFactor = handler.GetDouble(kTemperatureFactorId);
  terms_.densityFactor = handler.GetDouble(kDensityFactorId);
  return true;
}

bool Force_Buoyancy::ResolveLinks() {
  if (!ConstrainedForce::ResolveLinks()) return false;
  const auto channel = [&](std::int32_t id) {
    return scene->RetrieveAs<ChannelBase_Scalar>(handler.GetLink(id), NODE_CHANNEL, RETRIEVE_SCALAR);
  };
  temperature_ = channel(kTemperatureId);
  fuel_ = channel(kFuelId);
  density_ = channel(kDensityId);
  return temperature_ != nullptr;
}

void Force_Buoyancy::Advise() {
  if (!temperature_) Warn("no-temperature", "no temperature channel is linked, so it lifts nothing; link one");
}

void Force_Buoyancy::ReleaseLinks() {
  temperature_ = fuel_ = density_ = nullptr;
  temperatureRows_.Release(), fuelRows_.Release(), densityRows_.Release();
  ConstrainedForce::ReleaseLinks();
}

void Force_Buoyancy::Prepare(iBase*) {
  const double dt = simulationInfo->substepDuration;
  if (!BeginPrepare() || !temperature_ || dt == 0) return;
  const auto bind = [&](LatticeRows& rows, const ChannelBase_Scalar* channel) {
    rows.Bind(channel ? channel->GetReadGrid(0) : nullptr, Lattice());
  };
  bind(temperatureRows_, temperature_);
  bind(fuelRows_, fuel_);
  bind(densityRows_, density_);
  if (!temperatureRows_) return;
  terms_.temperatureMin = temperature_->GetReadGrid(0)->valueOffset;
  terms_.direction = direction_ * (dt * 0.5);
  EndPrepare(strengthFactor_);
}

void Force_Buoyancy::ProcessRow(const ForceRow& row) {
  if (!IsActive()) return;
  AddBuoyancy(terms_, {row.begin,
                       row.end,
                       temperatureRows_.Of(row),
                       densityRows_ ? densityRows_.Of(row) : nullptr,
                       fuelRows_ ? fuelRows_.Of(row) : nullptr,
                       Amounts(row),
                       {row.forceX, row.forceY, row.forceZ}});
}

void Force_Buoyancy::PrepareParticles(iBase*) {
  const double dt = simulationInfo->substepDuration;
  if (!BeginParticles() || !temperature_ || !temperature_->GetReadGrid(0) || dt == 0) return;
  terms_.temperatureMin = temperature_->GetReadGrid(0)->valueOffset;
  terms_.direction = direction_ * (dt * 0.5);
  EndParticles();
}

// 0 without the channel. voxel: array coordinates of the samples at cell centres.
double Force_Buoyancy::SampleAt(const ChannelBase_Scalar* channel, const Vec3D& voxel) const {
  const ScalarGrid* grid = channel ? channel->GetReadGrid(0) : nullptr;
  return grid ? SampleGrid(GridView<const double>(*grid), voxel.x, voxel.y, voxel.z, Interpolation::Trilinear) : 0;
}

void Force_Buoyancy::ProcessParticles(const ForceParticles& run) {
  if (!IsActive()) return;
  const double* amounts = Amounts(run, strengthFactor_);
  const ScalarGrid* lattice = density_ ? density_->GetReadGrid(0) : nullptr;
  const GridSpace& space = (lattice ? lattice : temperature_->GetReadGrid(0))->space;
  for (std::int32_t n = 0; n < run.count; ++n) {
    if (amounts[n] == 0) continue;
    const Vec3D voxel = space.VoxelOfSim(run.positions[n]) - Vec3D(0.5);
    const double d = SampleAt(density_, voxel), t = SampleAt(temperature_, voxel) - terms_.temperatureMin;
    if (!(d > 0 || t > 0)) continue;
    const double s = t * terms_.temperatureFactor + (d + SampleAt(fuel_, voxel)) * terms_.densityFactor;
    run.forces[n] += terms_.direction * (s * amounts[n]);
  }
}

ORLIX_MULTIVERSION
void AddBuoyancy(const BuoyancyTerms& terms, const BuoyancyRow& row) {
  double strength[kBlock];
  for (std::int32_t from = row.begin; from < row.end; from += kBlock) {
    const std::int32_t count = row.end - from < kBlock ? row.end - from : kBlock;
    const double *temperature = row.temperature + from, *amounts = row.amounts + from;
    if (row.density) {
      const double* density = row.density + from;
      for (std::int32_t i = 0; i < count; ++i) {
        const double t = temperature[i] - terms.temperatureMin, d = density[i];
        const double s = t * terms.temperatureFactor + d * terms.densityFactor;
        strength[i] = t > 0 || d > 0 ? s : 0;
      }
    } else {
      for (std::int32_t i = 0; i < count; ++i) {
        const double t = temperature[i] - terms.temperatureMin;
        strength[i] = t > 0 ? t * terms.temperatureFactor : 0;
      }
    }
    if (row.fuel) {
      const double* fuel = row.fuel + from;
      const double* density = row.density ? row.density + from : nullptr;
      for (std::int32_t i = 0; i < count; ++i) {
        const bool acts = temperature[i] - terms.temperatureMin > 0 || (density && density[i] > 0);
        strength[i] += acts ? fuel[i] * terms.densityFactor : 0;
      }
    }
    for (std::int32_t i = 0; i < count; ++i) strength[i] *= amounts[i];
    // An axis without a component isn't touched: most directions have one.
    for (int axis = 0; axis < 3; ++axis) {
      const double along = terms.direction[axis];
      if (along == 0) continue;
      double* force = row.force[axis] + from;
      for (std::int32_t i = 0; i < count; ++i) force[i] += strength[i] * along;
    }
  }
}

}  // namespace orlix
