#include "fluids/rigid_bodies/Bullet_VelocityEmitter.h"

#include <algorithm>

#include "fluids/scene/OrlixScene.h"
#include "fluids/volumes/VolumeMesh.h"

namespace orlix {

const TypeInfo& Bullet_VelocityEmitter::Type() {
  static constexpr Choice kSamplings[] = {
      {Sampling::Centre, "centre", "At the body's centre: nothing turns it"},
      {Sampling::Points, "points", "At the points of its mesh, which share the force"},
      {Sampling::Surface, "surface",
       "At the nodes of its level set within a cell of the surface, times the cell's size"},
  };
  static constexpr Parameter kParameters[] = {
      ListParameter(kBodiesId, "bodies", kLinkVolume, "The bodies that are pushed"),
      ListParameter(kForcesId, "forces", kLinkForce, "What pushes them: forces that act on particles, and gravity"),
      ChoiceParameter(kSamplingId, "sampling", Sampling::Centre, kSamplings, "Where the forces are asked"),
      IntParameter(kLeaveOutId, "leave_out", 0, "", "1: bodies lists those that aren't pushed; all others are")
          .Between(0, 1),
  };
  static const TypeInfo kType = {
      .id = 1300123,
      .resource = "zq_rigid_forces",
      .className = "C4D_Operator_RigidForces_Object",
      .label = "ROP::Forces",
      .text = "Forces on bodies, beside gravity and what fluids do to them: wind on a raft, a pull towards a place.",
      .kinds = kLinkOperator,
      .parameters = kParameters,
      .common = TimedNodeParameters(),
  };
  return kType;
}

Bullet_VelocityEmitter::Bullet_VelocityEmitter(BaseList2D* hostObject, OrlixScene& owner) : iObject(hostObject, owner) {
  stageMask = StageBit(kStageEmitters);
}

bool Bullet_VelocityEmitter::ReadParameters() {
  priority = 20;
  if (!iObject::ReadParameters()) return false;
  SetFlag(NodeHasBounds, false);
  sampling_ = handler.GetChoice<Sampling>(kSamplingId);
  return true;
}

bool Bullet_VelocityEmitter::ResolveLinks() {
  bodies_.clear(), forces_.clear();
  if (!iObject::ResolveLinks()) return false;
  std::vector<iBase*> nodes;
  scene->RetrieveAll(handler.GetInExclude(kBodiesId), nodes, NODE_VOLUME, 0, 2000, RETRIEVE_LEVELSET,
                     handler.GetInt(kLeaveOutId) == 0);
  for (iBase* node : nodes) {
    if (auto* volume = dynamic_cast<iVolume*>(node)) volume->AppendVolumes(bodies_);
  }
  nodes.clear();
  const InExcludeData* list = handler.GetInExclude(kForcesId);
  if (list) scene->RetrieveAll(list, nodes, NODE_FORCE, RETRIEVE_ANY, 2000, RETRIEVE_ANY, true);
  for (iBase* node : nodes) {
    if (auto* force = dynamic_cast<Force*>(node)) forces_.push_back(force);
  }
  return true;
}

void Bullet_VelocityEmitter::ReleaseLinks() {
  iObject::ReleaseLinks();
  bodies_.clear(), forces_.clear();
}

void Bullet_VelocityEmitter::Advise() {
  if (bodies_.empty() || forces_.empty()) {
    return Warn("nothing-to-push", "it pushes nothing: enter volumes with an Obstacle tag under bodies, and forces");
  }
  const auto acts = [](const VolumeBase* v) { return v->IsObstacle() && v->Body()->WantsDynamic(); };
  if (std::none_of(bodies_.begin(), bodies_.end(), acts)) {
    Warn("no-dynamic-body", "none of its bodies moves by forces: turn driven off in their tags and give them a mass");
  }
}

void Bullet_VelocityEmitter::CheckDirty() {
  if (HasFlag(NodeDirtyChecked)) return;
  iObject::CheckDirty();
  if (scene->HasFlag(TimeMoved)) MarkDirty(false);
}

void Bullet_VelocityEmitter::Prepare(iBase*) {
  SetFlag(NodeActive, !bodies_.empty() && !forces_.empty() && simulationInfo->substepDuration > 0);
  if (!IsActive()) return;
  for (Force* force : forces_) {
    if (force->IsEnabled()) force->PrepareParticles(this);
  }
}

void Bullet_VelocityEmitter::ForcesAt(const std::vector<Vec3D>& places, int worker, std::vector<Vec3D>& forces) const {
  forces.assign(places.size(), Vec3D());
  const std::vector<double> weights(std::min<std::size_t>(places.size(), ForceParticles::kMost), 1.0);
  for (std::size_t first = 0; first < places.size(); first += weights.size()) {
    ForceParticles run;
    run.count = static_cast<std::int32_t>(std::min(weights.size(), places.size() - first));
    run.threadIndex = worker;
    run.positions = places.data() + first;
    run.weights = weights.data();
    run.forces = forces.data() + first;
    for (Force* force : forces_) {
      if (force->IsEnabled()) force->ProcessParticles(run);
    }
  }
  // They give what a sub-step adds to a velocity.
  for (Vec3D& f : forces) f = f / simulationInfo->substepDuration;
}

void Bullet_VelocityEmitter::PushPoints(VolumeBase& volume, int worker) const {
  const auto* mesh = dynamic_cast<const VolumeMesh*>(&volume);
  if (!mesh) return;
  const std::vector<Vec3D>& points = mesh->Mesh().Points();
  std::vector<Vec3D> forces;
  ForcesAt(points, worker, forces);
  for (std::size_t n = 0; n < points.size(); ++n)
    volume.Body()->AddForceAt(forces[n] / double(points.size()), points[n]);
}

void Bullet_VelocityEmitter::PushSurface(VolumeBase& volume, int worker) const {
  const ScalarGrid& phi = *volume.LevelSet();
  const double h = volume.cellSize;
  std::vector<Vec3D> places, forces;
  for (int k = 0; k < phi.dims.z; ++k) {
    for (int j = 0; j < phi.dims.y; ++j) {
      for (int i = 0; i < phi.dims.x; ++i) {
        if (const double d = phi(i, j, k); d >= -h && d <= h) places.push_back(phi.space.SimOfVoxel(Vec3D(i, j, k)));
      }
    }
  }
  ForcesAt(places, worker, forces);
  for (std::size_t n = 0; n < places.size(); ++n) volume.Body()->AddForceAt(forces[n] * h, places[n]);
}

// Each body is one worker's, so that its sums have one order.
void Bullet_VelocityEmitter::Process(ProcessData&) {
  if (!IsActive()) return;
  ParallelRange(scene->pool(), 0, static_cast<int>(bodies_.size()), [&](int first, int last, int worker) {
    for (int n = first; n < last; ++n) {
      VolumeBase& volume = *bodies_[std::size_t(n)];
      if (!volume.IsDynamicBody() || !volume.LevelSet() || scene->TestBreak()) continue;
      if (sampling_ == Sampling::Points) PushPoints(volume, worker);
      if (sampling_ == Sampling::Surface) PushSurface(volume, worker);
      if (sampling_ != Sampling::Centre) continue;
      std::vector<Vec3D> force;
      ForcesAt({volume.BodyCentre()}, worker, force);
      volume.Body()->AddForce(force[0]);
    }
  });
}

void Bullet_VelocityEmitter::Finish() {
  if (!IsActive()) return;
  for (Force* force : forces_) force->Finish();
}

}  // namespace orlix
