#include "fluids/api/PluginConstraint.h"

#include <algorithm>

namespace orlix {

void PluginConstraint::ReleaseLinks() {
  plugin_.ReleaseLinks();
  ready_ = false, prepared_ = 0;
  Constraint::ReleaseLinks();
}

void PluginConstraint::CheckDirty() {
  Constraint::CheckDirty();
  const bool quiet = !scene->HasFlag(TimeMoved) && !IsDirty();
  if (IsEnabled() && (!quiet || plugin_.CheckDirty())) MarkDirty(false);
}

void PluginConstraint::Finish() {
  if (prepared_ < 1) return;
  --prepared_;
  plugin_.Finish();
}

void PluginConstraint::Prepare(const iBase*) {
  ++prepared_;
  groups_.Gather(plugin_.context());
  ready_ = plugin_.Prepare() && plugin_.Setup();
}

std::unique_ptr<Constraint> PluginConstraint::Clone() const {
  auto clone = CloneOf(*this);
  static_cast<PluginConstraint&>(*clone).plugin_.CopyState(plugin_);
  return clone;
}

void PluginConstraint::Scale(ZQAPI::ConstraintBatch& batch, double* amounts, const std::uint8_t* open) const {
  double values[ZQAPI::kBatch];
  std::uint8_t asked[ZQAPI::kBatch];
  bool any = false;
  for (std::int32_t n = 0; n < batch.count; ++n) {
    values[n] = amounts[n];
    asked[n] = open[n] != 0;
    any |= open[n] != 0;
  }
  if (!any) return;
  batch.values = values, batch.asked = asked;
  plugin_.Evaluate(batch);
  if (plugin_.context().HasFault()) return;
  for (std::int32_t n = 0; n < batch.count; ++n) {
    if (open[n] && asked[n]) amounts[n] = (Inverted() ? amounts[n] - values[n] : values[n]) * intensity;
  }
}

bool PluginConstraint::Evaluate(const Vec3D& position, double& amount, const iBase* caller,
                                std::int32_t threadIndex) const {
  return EvaluateParticle(position, amount, caller, threadIndex, nullptr);
}

bool PluginConstraint::EvaluateParticle(const Vec3D& position, double& amount, const iBase*, std::int32_t threadIndex,
                                        const OrlixParticle* particle) const {
  if (!ready_) return true;
  ZQAPI::ConstraintBatch batch;
  batch.count = 1;
  batch.threadIndex = threadIndex;
  BatchPlaces places;
  places.SetPoints(&position, batch);
  if (particle && *particle) {
    groups_.Name(particle->list(), batch);
    batch.firstIndex = particle->index();
  }
  const std::uint8_t open = 1;
  Scale(batch, &amount, &open);
  return true;
}

void PluginConstraint::EvaluateRow(const ConstraintRow& row, const iBase*) const {
  if (!ready_) return;
  BatchPlaces places;
  for (std::int32_t first = row.begin; first < row.end; first += ZQAPI::kBatch) {
    ZQAPI::ConstraintBatch batch;
    batch.count = std::min(ZQAPI::kBatch, row.end - first);
    places.SetCells(row, first, batch);
    Scale(batch, row.amounts + first, row.open + first);
  }
}

void PluginConstraint::EvaluateParticles(const ParticleRun& run, const iBase*) const {
  if (!ready_) return;
  BatchPlaces places;
  for (std::int32_t first = 0; first < run.count; first += ZQAPI::kBatch) {
    ZQAPI::ConstraintBatch batch;
    batch.count = std::min(ZQAPI::kBatch, run.count - first);
    batch.threadIndex = run.threadIndex;
    places.SetPoints(run.positions + first, batch);
    groups_.Name(run.list, batch);
    batch.firstIndex = run.first + first;
    Scale(batch, run.amounts + first, run.open + first);
  }
}

}  // namespace orlix
