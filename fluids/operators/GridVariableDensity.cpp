#include "fluids/operators/GridVariableDensity.h"

#include "globals/Multiversion.h"

namespace orlix {

namespace {

constexpr std::int32_t kVectorChannel = 45, kVelocityChannel = 46;  // sub types

}  // namespace

const TypeInfo& GridVariableDensity::Type() {
  static constexpr Parameter kParameters[] = {
      LinkParameter(kTargetId, "target", kLinkChannel,
                    "The channel that takes the density; it should clear at each step"),
      LinkParameter(kDensityId, "density", kLinkChannel, "The channel of what makes the gas dense: smoke"),
      LinkParameter(kTemperatureId, "temperature", kLinkChannel, "The temperature channel"),
      FloatParameter(1003, "factor", 0.5, "", "Kept, without effect").Hidden().Unread(),
      FloatParameter(kAirDensityId, "air_density", 1.184, "kg/m^3", "Density of the clear gas at 294 K").Above(0),
      FloatParameter(kGasDensityId, "gas_density", 8.314472, "kg/m^3", "Density where the density channel is 1").Min(0),
  };
  static const TypeInfo kType = {
      .id = 1300125,
      .resource = "zq_grid_variabledensity",
      .className = "C4D_Operator_VariableDensity_Object",
      .label = "GOP::VariableDensity",
      .text = "Gives the projection a density that depends on temperature and smoke.",
      .kinds = kLinkOperator,
      .parameters = kParameters,
      .common = CommonNodeParameters(),
  };
  return kType;
}

bool GridVariableDensity::ReadParameters() {
  if (!GridOperator::ReadParameters()) return false;
  terms_.air = handler.GetDouble(kAirDensityId);
  terms_.gas = handler.GetDouble(kGasDensityId);
  return true;
}

bool GridVariableDensity::ResolveLinks() {
  if (!GridOperator::ResolveLinks()) return false;
  ports_.scalarTarget = LinkedScalar(kTargetId);
  auto* vector = scene->RetrieveAs<ChannelBase_Vector>(handler.GetLink(kTargetId), NODE_CHANNEL, RETRIEVE_VECTOR);
  const std::int32_t subType = vector ? vector->GetNodeSubType() : 0;
  ports_.vectorTarget = subType == kVectorChannel || subType == kVelocityChannel ? vector : nullptr;
  staggered_ = subType == kVelocityChannel;
  ports_.density = LinkedScalar(kDensityId);
  ports_.temperature = LinkedScalar(kTemperatureId);
  return (ports_.scalarTarget || ports_.vectorTarget) && ports_.density && ports_.temperature;
}

void GridVariableDensity::Advise() {
  AdviseLink(ports_.scalarTarget ? static_cast<const void*>(ports_.scalarTarget) : ports_.vectorTarget, "target");
  AdviseLink(ports_.density, "density");
  AdviseLink(ports_.temperature, "temperature");
  if ((ports_.scalarTarget && !ports_.scalarTarget->clearEachStep) ||
      (ports_.vectorTarget && !ports_.vectorTarget->clearEachStep)) {
    Warn("adds-up",
         "its target keeps its values, so the density grows in each sub-step; switch the target's clear_each_step on");
  }
}

void GridVariableDensity::ReleaseLinks() {
  ports_ = {};
  densityRows_.Release(), temperatureRows_.Release();
  GridOperator::ReleaseLinks();
}

void GridVariableDensity::Prepare(iBase*) {
  SetFlag(NodeActive, false);
  const double dt = simulationInfo->substepDuration;
  if (IsPlayed(ports_.scalarTarget) || IsPlayed(ports_.vectorTarget)) return;
  if (dt == 0 || !HasStorage(ports_.density) || !HasStorage(ports_.temperature)) return;
  lattice_ = ChooseLattice();
  if (!lattice_) return;
  densityRows_.Bind(ports_.density->grid.get(), lattice_->space);
  temperatureRows_.Bind(ports_.temperature->grid.get(), lattice_->space);
  SetFlag(NodeActive, PrepareCells(*lattice_, dt, [](std::int64_t) { return true; }));
}

const ScalarGrid* GridVariableDensity::ChooseLattice() const {
  if (HasStorage(ports_.scalarTarget)) return ports_.scalarTarget->grid.get();
  if (!HasStorage(ports_.vectorTarget)) return nullptr;
  if (!staggered_) return ports_.vectorTarget->grids[0].get();
  const ScalarGrid* cells = ports_.density->grid.get();
  return ports_.vectorTarget->grids[0]->space.Equals(cells->space) ? cells : nullptr;
}

void GridVariableDensity::Process(ProcessData& data) {
  if (!IsActive()) return;
  if (staggered_) return ProcessStaggered(data);
  const std::int32_t nx = lattice_->dims.x;
  std::vector<double> values(static_cast<std::size_t>(nx));
  ForEachRow(data, *lattice_, [&](std::int32_t j, std::int32_t k, std::int64_t index) {
    const CellRow row{1, nx - 1, j, k, data.threadIndex};
    DensityRow(terms_, densityRows_.Of(row), temperatureRows_.Of(row), weights_.Row(j, k), 1, nx - 1, values.data());
    const auto add = [&](ScalarGrid& grid) {
      double* target = grid.data + index;
      for (std::int32_t i = 1; i < nx - 1; ++i) target[i] += values[static_cast<std::size_t>(i)];
    };
    if (ports_.scalarTarget) return add(*ports_.scalarTarget->grid);
    for (auto& grid : ports_.vectorTarget->grids) add(*grid);
  });
}

// A face between two layers takes a half from each. A worker writes the faces at the low side of its own layers alone,
// and so begins with the layer below them; the last one also writes those at the top.
void GridVariableDensity::ProcessStaggered(const ProcessData& data) {
  if (!slabs_.Has(data.threadIndex)) return;
  const VecInt3D n = lattice_->dims, min = slabs_.rangeMin[data.threadIndex], max = slabs_.rangeMax[data.threadIndex];
  const bool last = data.threadIndex == slabs_.slices - 1;
  const auto& grids = ports_.vectorTarget->grids;
  const auto at = [&](int component, std::int32_t j, std::int32_t k) {
    return grids[component]->data + grids[component]->Index(0, j, k);
  };
  std::vector<double> values(static_cast<std::size_t>(n.x));
  for (std::int32_t k = std::max(min.z - 1, 1); k < max.z; ++k) {
    const bool own = k >= min.z;
    for (std::int32_t j = 1; j < n.y - 1; ++j) {
      const CellRow row{1, n.x - 1, j, k, data.threadIndex};
      DensityRow(terms_, densityRows_.Of(row), temperatureRows_.Of(row), weights_.Row(j, k), 1, n.x - 1, values.data());
      FaceRows faces;
      if (own) faces = {at(0, j, k), at(1, j, k), at(1, j + 1, k), at(2, j, k), nullptr};
      if (k + 1 < max.z || last) faces.nextZ = at(2, j, k + 1);
      AddToFaces(values.data(), 1, n.x - 1, faces);
    }
  }
}

ORLIX_MULTIVERSION
void DensityRow(const DensityTerms& terms, const double* density, const double* temperature, const double* weights,
                std::int32_t begin, std::int32_t end, double* __restrict out) {
  for (std::int32_t i = begin; i < end; ++i) out[i] = weights[i] != 0 ? terms.At(density[i], temperature[i]) : 0;
}

void AddToFaces(const double* values, std::int32_t begin, std::int32_t end, const FaceRows& faces) {
  const auto add = [&](double* row, std::int32_t offset) {
    if (!row) return;
    for (std::int32_t i = begin; i < end; ++i) row[i + offset] += 0.5 * values[i];
  };
  add(faces.x, 0), add(faces.x, 1);
  add(faces.y, 0), add(faces.nextY, 0);
  add(faces.z, 0), add(faces.nextZ, 0);
}

}  // namespace orlix
