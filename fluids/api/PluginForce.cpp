#include "fluids/api/PluginForce.h"

#include <algorithm>

#include "fluids/channels/VelocityGridChannel.h"
#include "globals/Multiversion.h"

namespace orlix {

namespace {

// f(first, count) for pieces of [begin, end) that have a weight.
template <class F>
void ForWeighted(std::int32_t begin, std::int32_t end, const double* weights, F&& f) {
  for (std::int32_t first = begin; first < end; first += ZQAPI::kBatch) {
    const std::int32_t count = std::min(ZQAPI::kBatch, end - first);
    if (std::any_of(weights + first, weights + first + count, [](double w) { return w != 0; })) f(first, count);
  }
}

ORLIX_MULTIVERSION
void MeanOfFaces(const double* low, const double* high, std::int32_t count, double* out) {
  for (std::int32_t n = 0; n < count; ++n) out[n] = 0.5 * (low[n] + high[n]);
}

struct Velocities {
  double u[ZQAPI::kBatch], v[ZQAPI::kBatch], w[ZQAPI::kBatch];
  void Give(ZQAPI::ForceBatch& batch) const { batch.u = u, batch.v = v, batch.w = w; }
};

}  // namespace

bool PluginForce::ReadParameters() {
  priority = 20;
  return ConstrainedForce::ReadParameters() && plugin_.ReadParameters();
}

bool PluginForce::ResolveLinks() { return ConstrainedForce::ResolveLinks() && plugin_.ResolveLinks(); }

void PluginForce::ReleaseLinks() {
  plugin_.ReleaseLinks();
  ConstrainedForce::ReleaseLinks();
}

void PluginForce::CheckDirty() {
  ConstrainedForce::CheckDirty();
  const bool quiet = !scene->HasFlag(TimeMoved) && !IsDirty() && !(duration_ && duration_->IsDirty());
  if (!IsEnabled() || (quiet && !plugin_.CheckDirty())) return;
  MarkDirty(false);
  for (Constraint* constraint : constraints_) constraint->MarkDirty(false);
}

bool PluginForce::PreparePlugin() {
  readsVelocity_ = plugin_.Ask(ZQAPI::Question::ReadsVelocity);
  return plugin_.Prepare() && plugin_.Setup();
}

void PluginForce::Prepare(iBase*) {
  if (BeginPrepare() && PreparePlugin()) EndPrepare(simulationInfo->substepDuration * strengthFactor_);
}

void PluginForce::ProcessRow(const ForceRow& row) {
  if (!IsActive()) return;
  const double* weights = Amounts(row);
  ForWeighted(row.begin, row.end, weights,
              [&](std::int32_t first, std::int32_t count) { ProcessCells(row, first, count, weights + first); });
}

void PluginForce::ProcessCells(const ForceRow& row, std::int32_t first, std::int32_t count,
                               const double* weights) const {
  ZQAPI::ForceBatch batch;
  batch.count = count;
  BatchPlaces places;
  places.SetCells(row, first, batch);
  batch.weights = weights;
  batch.pushX = row.forceX + first, batch.pushY = row.forceY + first, batch.pushZ = row.forceZ + first;
  Velocities means;
  if (readsVelocity_) {
    double* const out[3] = {means.u, means.v, means.w};
    for (int c = 0; c < 3; ++c) {
      const ScalarGrid& faces = *velocity_->grids[c];
      const double* low = faces.data + faces.Index(first, row.j, row.k);
      const double* high = faces.data + faces.Index(first + (c == 0), row.j + (c == 1), row.k + (c == 2));
      MeanOfFaces(low, high, count, out[c]);
    }
    means.Give(batch);
  }
  plugin_.Evaluate(batch);
}

void PluginForce::PrepareParticles(iBase*) {
  if (!BeginParticles()) return;
  groups_.Gather(plugin_.context());
  if (PreparePlugin()) EndParticles();
}

void PluginForce::ProcessParticles(const ForceParticles& run) {
  if (!IsActive()) return;
  const double* weights = Amounts(run, simulationInfo->substepDuration * strengthFactor_);
  ForWeighted(0, run.count, weights,
              [&](std::int32_t first, std::int32_t count) { ProcessRun(run, first, count, weights + first); });
}

void PluginForce::ProcessRun(const ForceParticles& run, std::int32_t first, std::int32_t count,
                             const double* weights) const {
  ZQAPI::ForceBatch batch;
  batch.count = count;
  batch.threadIndex = run.threadIndex;
  BatchPlaces places;
  places.SetPoints(run.positions + first, batch);
  groups_.Name(run.list, batch);
  if (batch.group) batch.firstIndex = run.first + first;
  batch.weights = weights;
  Velocities velocities;
  if (readsVelocity_) {
    for (std::int32_t n = 0; n < count; ++n) {
      // A place without a particle stands still.
      const Vec3D v = run.list ? run.list->Velocity(run.first + first + n) : Vec3D();
      velocities.u[n] = v.x, velocities.v[n] = v.y, velocities.w[n] = v.z;
    }
    velocities.Give(batch);
  }
  double pushX[ZQAPI::kBatch], pushY[ZQAPI::kBatch], pushZ[ZQAPI::kBatch];
  Vec3D* forces = run.forces + first;
  for (std::int32_t n = 0; n < count; ++n) pushX[n] = forces[n].x, pushY[n] = forces[n].y, pushZ[n] = forces[n].z;
  batch.pushX = pushX, batch.pushY = pushY, batch.pushZ = pushZ;
  plugin_.Evaluate(batch);
  for (std::int32_t n = 0; n < count; ++n) forces[n] = {pushX[n], pushY[n], pushZ[n]};
}

void PluginForce::Finish() {
  plugin_.Finish();
  ConstrainedForce::Finish();
}

}  // namespace orlix
