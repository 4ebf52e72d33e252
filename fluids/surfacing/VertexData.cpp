#include "fluids/surfacing/VertexData.h"

#include <algorithm>
#include <cmath>

#include "fluids/advection/VelocityPoints.h"
#include "fluids/channels/VelocityGridChannel.h"
#include "fluids/level_sets/LevelSetView.h"
#include "fluids/particles/ParticleKdTree.h"
#include "fluids/particles/PropertyList.h"
#include "host/threads/ForLayers.h"

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

namespace {

constexpr int kVertexShare = 4096;
constexpr std::uint32_t kAnyKind = (1u << kParticleKinds) - 1;

// Calls f(point, worker) for all of them, on all workers.
template <class F>
void ForPoints(WorkerPool& pool, int points, F&& f) {
  ParallelRange(pool, 0, (points + kVertexShare - 1) / kVertexShare, [&](int from, int to, int worker) {
    for (int p = from * kVertexShare; p < std::min(points, to * kVertexShare); ++p)
      f(static_cast<std::size_t>(p), worker);
  });
}

PolygonObject::Attribute EmptyAttribute(std::string name, int components, int points) {
  PolygonObject::Attribute attribute;
  attribute.name = std::move(name);
  attribute.components = components;
  attribute.values.resize(static_cast<std::size_t>(points) * static_cast<std::size_t>(components));
  return attribute;
}

void Put(double value, double* to) { *to = value; }
void Put(const Vec3D& value, double* to) { to[0] = value.x, to[1] = value.y, to[2] = value.z; }

// The living particles of all groups that have a property: places and values.
template <class T, class Stored>
void Holders(const std::vector<GroupEntry>& groups, PropertyKey key, std::vector<Vec3D>& places,
             std::vector<T>& values) {
  for (const GroupEntry& entry : groups) {
    const ParticleList* list = entry.group->list(entry.kind);
    if (!list) continue;
    list->ForEachChunk(0, list->count(), [&](const ParticleRows& rows) {
      const auto property = rows.Property<Stored>(key);
      for (std::int32_t r = rows.begin; r < rows.end; ++r) {
        if ((rows.flags()[r] & ParticleFlag::Alive) == 0) continue;
        const bool velocity = key.id == PP::Velocity;
        if (!velocity && !property.Has(r)) continue;
        places.push_back(rows.positions()[r]);
        if constexpr (std::is_same_v<T, Vec3D>) {
          values.push_back(velocity ? rows.velocities()[r] : property.Get(r, Stored()));
        } else {
          values.push_back(static_cast<T>(property.Get(r, Stored())));
        }
      }
    });
  }
}

template <class T, class Stored>
PolygonObject::Attribute PropertyAt(const TriMeshSTL& mesh, const std::vector<GroupEntry>& groups,
                                    const iProperty& property, double radius, WorkerPool& pool) {
  std::vector<Vec3D> places;
  std::vector<T> values;
  Holders<T, Stored>(groups, KeyOf(property), places, values);
  const int components = std::is_same_v<T, Vec3D> ? 3 : 1;
  auto attribute = EmptyAttribute(property.handler.hostObject()->name, components, mesh.PointCount());
  if (places.empty()) return attribute;
  ParticleKdTree tree;
  tree.Build(places, pool);
  ForPoints(pool, mesh.PointCount(), [&](std::size_t p, int worker) {
    T sum{};
    double weights = 0;
    for (const Neighbour& near : tree.Search(mesh.Points()[p], radius * radius, worker)) {
      const double left = 1 - near.distanceSquared / (radius * radius), weight = left * left * left;
      sum = sum + values[static_cast<std::size_t>(near.index)] * weight;
      weights += weight;
    }
    Put(weights > 0 ? sum * (1 / weights) : T{}, attribute.values.data() + p * static_cast<std::size_t>(components));
  });
  return attribute;
}

}  // namespace

void VertexData::Resolve(const OrlixScene& scene, const C4D_InterfaceHandler& handler, int listId, int groupsId,
                         double radius) {
  Release();
  const InExcludeData* list = handler.GetInExclude(listId);
  if (!list) return;
  std::vector<iBase*> found;
  for (const std::int32_t kind : {NODE_CHANNEL, NODE_VOLUME, NODE_PARTICLES}) {
    scene.RetrieveAll(list, found, kind, RETRIEVE_ANY, kAnySubType, RETRIEVE_ANY, true);
  }
  for (iBase* node : found) {
    if (auto* scalar = dynamic_cast<iChannel<double>*>(node)) scalars_.push_back(scalar);
    if (auto* vector = dynamic_cast<iChannel<Vec3D>*>(node)) vectors_.push_back(vector);
    if (auto* surface = dynamic_cast<iLevelSet*>(node))
      distances_.push_back({surface, node->handler.hostObject()->name});
    if (auto* property = dynamic_cast<iProperty*>(node)) properties_.push_back(property);
  }
  if (!properties_.empty()) groups_ = RetrieveGroups(scene, handler, groupsId, kAnyKind);
  radius_ = radius;
}

std::vector<PolygonObject::Attribute> VertexData::Sample(const TriMeshSTL& mesh, WorkerPool& pool) const {
  const int points = mesh.PointCount();
  std::vector<PolygonObject::Attribute> attributes;
  const auto sample = [&](const std::string& name, int components, auto&& valueAt) {
    auto& attribute = attributes.emplace_back(EmptyAttribute(name, components, points));
    ForPoints(pool, points, [&](std::size_t p, int) {
      Put(valueAt(mesh.Points()[p]), attribute.values.data() + p * static_cast<std::size_t>(components));
    });
  };
  for (const auto* channel : scalars_) {
    sample(channel->handler.hostObject()->name, 1, [&](const Vec3D& p) { return channel->SamplePoint(p); });
  }
  for (const auto* channel : vectors_) {
    sample(channel->handler.hostObject()->name, 3, [&](const Vec3D& p) { return channel->SamplePoint(p); });
  }
  for (const Distance& distance : distances_) {
    const ScalarGrid* grid = distance.surface->LevelSet();
    if (!grid) continue;
    const LevelSetView view(*grid);
    sample(distance.name, 1, [&](const Vec3D& p) { return view.Sample(view.IndexOfWorld(p)); });
  }
  for (const iProperty* property : properties_) {
    switch (TypeOf(*property)) {
      case PropertyType::Vector:
        attributes.push_back(PropertyAt<Vec3D, Vec3D>(mesh, groups_, *property, radius_, pool));
        break;
      case PropertyType::Real:
        attributes.push_back(PropertyAt<double, double>(mesh, groups_, *property, radius_, pool));
        break;
      case PropertyType::State:
        attributes.push_back(PropertyAt<double, std::uint8_t>(mesh, groups_, *property, radius_, pool));
    }
  }
  return attributes;
}

}  // namespace orlix
