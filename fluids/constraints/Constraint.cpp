#include "fluids/constraints/Constraint.h"

namespace orlix {

namespace {

constexpr std::int32_t kAnySubType = 2000;

constexpr Parameter kShared[] = {
    BoolParameter(Constraint::kInvertId, "invert", false, "Acts where it otherwise wouldn't"),
    FloatParameter(Constraint::kIntensityId, "intensity", 1.0, "", "Factor of the constraint's result"),
};

}  // namespace

bool Constraint::ReadParameters() {
  priority = 0;
  if (!iBase::ReadParameters()) return false;
  SetFlag(NodeInvert, handler.GetBool(kInvertId));
  intensity = handler.GetDouble(kIntensityId);
  return true;
}

bool Constraint::Evaluate(const Vec3D&, double& amount, const iBase*, std::int32_t) const {
  amount *= intensity;
  return true;
}

void Constraint::EvaluateRow(const ConstraintRow& row, const iBase* caller) const {
  for (std::int32_t i = row.begin; i < row.end; ++i) {
    if (!row.open[i]) continue;
    if (!Evaluate(row.Position(i), row.amounts[i], caller, row.threadIndex)) row.open[i] = 0;
  }
}

void Constraint::EvaluateParticles(const ParticleRun& run, const iBase* caller) const {
  for (std::int32_t n = 0; n < run.count; ++n) {
    if (!run.open[n]) continue;
    const OrlixParticle particle(run.list, run.first + n);
    run.open[n] = EvaluateParticle(run.positions[n], run.amounts[n], caller, run.threadIndex, &particle);
  }
}

std::span<const Parameter> ConstraintParameters() {
  static const std::vector<Parameter> kRows = [] {
    std::vector<Parameter> rows(std::begin(kShared), std::end(kShared));
    const auto common = PlainNodeParameters();
    rows.insert(rows.end(), common.begin(), common.end());
    return rows;
  }();
  return kRows;
}

std::vector<Constraint*> RetrieveConstraints(const OrlixScene& scene, const C4D_InterfaceHandler& handler) {
  std::vector<Constraint*> constraints;
  const InExcludeData* list = handler.GetInExclude(kConstraintsId);
  if (!list) return constraints;
  std::vector<iBase*> found;
  scene.RetrieveAll(list, found, NODE_HELPER, RetrieveBit(RETRIEVE_CONSTRAINT), kAnySubType, RETRIEVE_ANY, true);
  for (iBase* node : found) {
    if (auto* constraint = dynamic_cast<Constraint*>(node)) constraints.push_back(constraint);
  }
  return constraints;
}

void EvaluateChain(std::span<Constraint* const> chain, const Vec3D& position, double& amount, const iBase* caller,
                   std::int32_t threadIndex) {
  for (const Constraint* constraint : chain) {
    if (!constraint->IsEnabled()) continue;
    if (!constraint->Evaluate(position, amount, caller, threadIndex) || amount == 0) return;
  }
}

void EvaluateChain(std::span<Constraint* const> chain, const ConstraintRow& row, const iBase* caller) {
  for (const Constraint* constraint : chain) {
    if (!constraint->IsEnabled()) continue;
    constraint->EvaluateRow(row, caller);
    for (std::int32_t i = row.begin; i < row.end; ++i) row.open[i] = row.open[i] && row.amounts[i] != 0;
  }
}

void EvaluateChain(std::span<Constraint* const> chain, const Vec3D& position, double& amount, const iBase* caller,
                   std::int32_t threadIndex, const OrlixParticle& particle) {
  for (const Constraint* constraint : chain) {
    if (!constraint->IsEnabled()) continue;
    if (!constraint->EvaluateParticle(position, amount, caller, threadIndex, &particle) || amount == 0) return;
  }
}

void EvaluateChain(std::span<Constraint* const> chain, const ParticleRun& run, const iBase* caller) {
  for (const Constraint* constraint : chain) {
    if (!constraint->IsEnabled()) continue;
    constraint->EvaluateParticles(run, caller);
    for (std::int32_t n = 0; n < run.count; ++n) run.open[n] = run.open[n] && run.amounts[n] != 0;
  }
}

}  // namespace orlix
