#include "fluids/forces/Force_Curl.h"

namespace orlix {

namespace {

// How far apart the three potentials are taken, in host units.
constexpr Vec3D kPotentialOffsets{931.43, 223.4, 454.32};

// x = dC/dy - dB/dz, y = dA/dz - dC/dx, z = dB/dx - dA/dy. Both sides of a difference stand together: where the chain
// is constant they cancel exactly.
constexpr Force_Curl::Tap kTapList[Force_Curl::kTaps] = {
    {2, 1, 1, 0, 1}, {2, 1, -1, 0, -1}, {1, 2, 1, 0, -1}, {1, 2, -1, 0, 1},  // x
    {0, 2, 1, 1, 1}, {0, 2, -1, 1, -1}, {2, 0, 1, 1, -1}, {2, 0, -1, 1, 1},  // y
    {1, 0, 1, 2, 1}, {1, 0, -1, 2, -1}, {0, 1, 1, 2, -1}, {0, 1, -1, 2, 1},  // z
};

}  // namespace

const TypeInfo& Force_Curl::Type() {
  static constexpr Parameter kParameters[] = {
      FloatParameter(kStrengthId, "strength", 1.0, "cells/s^2", "Size of the acceleration").Fallback(80.0),
      LinkParameter(kForceDurationId, "force_duration", kLinkDuration, "When the force acts"),
      FloatParameter(kStepId, "step", 1.0, "cells", "Distance of the samples from which the curl is taken").Above(0),
  };
  static const TypeInfo kType = {
      .id = 1300142,
      .resource = "zq_force_curl",
      .className = "C4D_Force_Curl_Object",
      .label = "DF::Field Curl",
      .text = "Swirls from constraints: the direction of the curl of a field that they make.",
      .kinds = kLinkForce,
      .parameters = kParameters,
      .common = CommonNodeParameters(),
  };
  return kType;
}

bool Force_Curl::ReadParameters() {
  priority = 0;
  if (!ConstrainedForce::ReadParameters()) return false;
  const GridSpace& space = GetSimulationSpace();
  strength_ = handler.GetDouble(kStrengthId) * space.cellSize;
  step_ = handler.GetDouble(kStepId) * space.cellSize;
  offsets_ = space.simPerHost * kPotentialOffsets;
  return true;
}

void Force_Curl::Advise() {
  if (constraints_.empty()) Warn("no-constraints", "it lists no constraints, so it has no field to swirl by; list one");
}

bool Force_Curl::CloneChain() {
  data_.clones.clear(), data_.chain.clear();
  for (const Constraint* constraint : constraints_) {
    if (!constraint->IsEnabled() || constraint->RetrieveMask() != RetrieveBit(RETRIEVE_CONSTRAINT)) continue;
    data_.clones.push_back(constraint->Clone());
    data_.chain.push_back(data_.clones.back().get());
    data_.chain.back()->Prepare(this);
  }
  amount_ = simulationInfo->substepDuration * strengthFactor_ * strength_;
  return !data_.chain.empty();
}

Vec3D Force_Curl::ShiftOf(const Tap& tap) const {
  Vec3D shift(offsets_[tap.potential]);
  shift[tap.axis] += tap.side * step_;
  return shift;
}

void Force_Curl::Prepare(iBase*) {
  if (!BeginPrepare() || !(step_ > 0) || !CloneChain()) return;
  for (int t = 0; t < kTaps; ++t) {
    shifted_[t] = Lattice();
    shifted_[t].simMin += ShiftOf(kTapList[t]);
  }
  const std::int32_t cells = Lattice().dims.x;
  potentials_.Prepare(data_.chain, cells, 1.0);
  field_.resize(static_cast<std::size_t>(cells) * 3 * WorkerPool::kMaxWorkers);
  SetFlag(NodeActive, true);
}

void Force_Curl::FieldRow(const ForceRow& row, double* x, double* y, double* z) {
  double* const field[3] = {x, y, z};
  for (double* component : field) std::fill(component + row.begin, component + row.end, 0.0);
  const double half = 0.5 / step_;
  for (int t = 0; t < kTaps; ++t) {
    const Tap& tap = kTapList[t];
    ForceRow moved = row;
    moved.space = &shifted_[t];
    const double* values = potentials_.Of(moved, this);
    const double scale = tap.sign * half;
    double* component = field[tap.component];
    for (std::int32_t i = row.begin; i < row.end; ++i) component[i] += values[i] * scale;
  }
}

void Force_Curl::ProcessRow(const ForceRow& row) {
  if (!IsActive()) return;
  const std::size_t cells = static_cast<std::size_t>(Lattice().dims.x);
  double* x = field_.data() + cells * 3 * static_cast<std::size_t>(row.threadIndex);
  double *y = x + cells, *z = y + cells;
  FieldRow(row, x, y, z);
  for (std::int32_t i = row.begin; i < row.end; ++i) {
    const Vec3D push = Normalized(Vec3D(x[i], y[i], z[i])) * amount_;
    row.forceX[i] += push.x;
    row.forceY[i] += push.y;
    row.forceZ[i] += push.z;
  }
}

Vec3D Force_Curl::Field(const Vec3D& place, std::int32_t threadIndex) const {
  Vec3D field;
  const double half = 0.5 / step_;
  for (const Tap& tap : kTapList) {
    double value = 1;
    EvaluateChain(data_.chain, place + ShiftOf(tap), value, this, threadIndex);
    field[tap.component] += value * (tap.sign * half);
  }
  return field;
}

void Force_Curl::PrepareParticles(iBase*) {
  if (!BeginParticles() || !(step_ > 0) || !CloneChain()) return;
  SetFlag(NodeActive, true);
}

void Force_Curl::ProcessParticles(const ForceParticles& run) {
  if (!IsActive()) return;
  for (std::int32_t n = 0; n < run.count; ++n) {
    if (run.weights[n] == 0) continue;
    run.forces[n] += Normalized(Field(run.positions[n], run.threadIndex)) * (amount_ * run.weights[n]);
  }
}

void Force_Curl::Finish() {
  for (Constraint* clone : data_.chain) clone->Finish();
  data_.chain.clear();
  data_.clones.clear();
  SetFlag(NodeActive, false);
}

}  // namespace orlix
