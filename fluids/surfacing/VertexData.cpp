#include "fluids/surfacing/VertexData.h"

#include <algorithm>
#include <cmath>

#include "fluids/advection/VelocityPoints.h"
#include "fluids/channels/VelocityGridChannel.h"
#include "fluids/surfacing/SurfaceField.h"

namespace orlix {

namespace {

constexpr int kMostSteps = 1000;
constexpr std::int32_t kAnySubType = 2000;

struct Flow {
  VelocityView view;
  Vec3D corner;  // of the lattice, simulation space
  double cellSize = 0;
};

// False for a solver without a velocity.
bool FlowOf(iSolver& solver, Flow& flow) {
  const auto* channel = dynamic_cast<const VelocityGridChannel*>(solver.Velocity());
  if (!channel) return false;
  for (int axis = 0; axis < 3; ++axis) {
    const ScalarGrid* grid = channel->GetGrid(axis);
    if (!grid) return false;
    flow.view.component[axis] = *grid;
    flow.corner = grid->space.simMin;
    flow.cellSize = grid->space.cellSize;
  }
  return flow.view.HasData();
}

// Calls f(first, run) for runs of points, which may be changed, on all workers.
template <class F>
void ForRuns(WorkerPool& pool, const std::vector<Vec3D>& points, const Vec3D& corner, F&& f) {
  constexpr int kRun = PointRun::kMost;
  const int count = static_cast<int>(points.size());
  ForLayers(pool, 0, (count + kRun - 1) / kRun, [&](int share) {
    PointRun run;
    const int first = share * kRun;
    run.count = std::min(kRun, count - first);
    run.Load(points.data() + first, run.count, -corner);
    run.Pad();
    f(first, run);
  });
}

}  // namespace

void MoveThrough(iSolver& solver, double time, WorkerPool& pool, std::vector<Vec3D>& points) {
  Flow flow;
  if (!FlowOf(solver, flow)) return;
  const double cells = std::sqrt(solver.SquaredSpeed()) * std::abs(time) / flow.cellSize;
  const int steps = static_cast<int>(std::clamp(std::ceil(cells), 1.0, double(kMostSteps)));
  ForRuns(pool, points, flow.corner, [&](int first, PointRun& run) {
    for (int n = 0; n < steps; ++n) TracePoints(flow.view, 1 / flow.cellSize, Integrator::Heun, time / steps, run);
    run.Unload(points.data() + first, flow.corner);
  });
}

std::vector<Vec3D> VelocitiesAt(iSolver& solver, WorkerPool& pool, const std::vector<Vec3D>& points) {
  Flow flow;
  if (!FlowOf(solver, flow)) return {};
  std::vector<Vec3D> velocities(points.size());
  ForRuns(pool, points, flow.corner, [&](int first, PointRun& run) {
    PointRun out;
    out.count = run.count;
    SampleVelocity(flow.view, 1 / flow.cellSize, run, out);
    out.Unload(velocities.data() + first);
  });
  return velocities;
}

void VertexData::Resolve(const OrlixScene& scene, const C4D_InterfaceHandler& handler, int listId) {
  Release();
  const InExcludeData* list = handler.GetInExclude(listId);
  if (!list) return;
  std::vector<iBase*> found;
  scene.RetrieveAll(list, found, NODE_CHANNEL, RETRIEVE_ANY, kAnySubType, RETRIEVE_ANY, true);
  for (iBase* node : found) {
    if (auto* scalar = dynamic_cast<iChannel<double>*>(node)) scalars_.push_back(scalar);
    if (auto* vector = dynamic_cast<iChannel<Vec3D>*>(node)) vectors_.push_back(vector);
  }
}

std::vector<PolygonObject::Attribute> VertexData::Sample(const TriMeshSTL& mesh, WorkerPool& pool) const {
  constexpr int kShare = 4096;
  const int points = mesh.PointCount();
  std::vector<PolygonObject::Attribute> attributes;
  const auto sample = [&](const auto& channel, int components, auto&& write) {
    PolygonObject::Attribute attribute;
    attribute.name = channel.handler.hostObject()->name;
    attribute.components = components;
    attribute.values.resize(static_cast<std::size_t>(points) * static_cast<std::size_t>(components));
    ForLayers(pool, 0, (points + kShare - 1) / kShare, [&](int share) {
      for (int p = share * kShare; p < std::min(points, (share + 1) * kShare); ++p) {
        write(channel.SamplePoint(mesh.Points()[static_cast<std::size_t>(p)]),
              attribute.values.data() + static_cast<std::size_t>(p) * static_cast<std::size_t>(components));
      }
    });
    attributes.push_back(std::move(attribute));
  };
  for (const auto* channel : scalars_) sample(*channel, 1, [](double v, double* to) { *to = v; });
  for (const auto* channel : vectors_) {
    sample(*channel, 3, [](const Vec3D& v, double* to) { to[0] = v.x, to[1] = v.y, to[2] = v.z; });
  }
  return attributes;
}

}  // namespace orlix
