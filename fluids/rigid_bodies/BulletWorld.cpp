#include "fluids/rigid_bodies/BulletWorld.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

#include "fluids/bodies/ObstacleTag.h"
#include "fluids/constraints/Constraint.h"
#include "fluids/dynamics/FluidSolver.h"
#include "fluids/scene/RootObject.h"
#include "fluids/volumes/VolumeBase.h"

namespace orlix {

namespace {

// Beyond these a body is held: single precision has no room for what would follow.
constexpr double kMostSpeed = 1000, kMostSpin = 1000, kFurthest = 1e5;  // m/s, rad/s, m

std::vector<VolumeBase*> Obstacles(const OrlixScene& scene) {
  std::vector<VolumeBase*> volumes;
  scene.ForEachNode(NODE_VOLUME, NODE_VOLUME, [&](iBase& node) {
    auto* volume = node.IsEnabled() ? dynamic_cast<iVolume*>(&node) : nullptr;
    if (volume) volume->AppendVolumes(volumes);
  });
  std::erase_if(volumes, [](const VolumeBase* v) { return !v->IsObstacle() || !v->IsEnabled(); });
  return volumes;
}

// What its tag says may change in the course of the run: a body that is driven now may be let go.
bool IsKeyed(const VolumeBase& volume) {
  const BaseObject* tag = volume.handler.hostObject()->FindTag(kObstacleTagId);
  const auto& tracks = tag->document().tracks();
  return std::any_of(tracks.begin(), tracks.end(), [&](const KeyTrack& track) {
    const bool ofMass = track.parameter == ObstacleTag::kDrivenId || track.parameter == ObstacleTag::kMassId ||
                        track.parameter == ObstacleTag::kDensityId || track.parameter == ObstacleTag::kMassModeId;
    return track.object == tag->creationNumber() && ofMass;
  });
}

// Bodies exist only where one of them moves by forces: what merely stands or is driven needs no world.
bool PrepareBodies(std::vector<VolumeBase*>& volumes) {
  const auto moves = [](const VolumeBase* v) { return v->Body()->WantsDynamic() || v->IsDynamicBody() || IsKeyed(*v); };
  if (std::none_of(volumes.begin(), volumes.end(), moves)) return false;
  std::erase_if(volumes, [](VolumeBase* v) {
    if (v->EnsureBody()) return false;
    if (v->Body()->WantsDynamic() && v->HasLevelSet()) {
      v->Warn("no-body", "only a volume of a mesh moves by forces: it stands still; put the tag on such a one");
    }
    return true;
  });
  return std::any_of(volumes.begin(), volumes.end(), moves);
}

// The constraints of a body's tag, ready to be asked: one that stands in several lists is prepared once a list.
class BodyConstraints final : public iContactScale {
 public:
  BodyConstraints(const OrlixScene& scene, const VolumeBase& volume) : volume_(volume) {
    const BaseObject* tag = volume.handler.hostObject()->FindTag(kObstacleTagId);
    static constexpr int kLists[] = {ObstacleTag::kRestitutionListId, ObstacleTag::kFrictionListId,
                                     ObstacleTag::kRollingFrictionListId, ObstacleTag::kLinearDampingListId,
                                     ObstacleTag::kAngularDampingListId};
    for (int n = 0; n < kChains; ++n) {
      const InExcludeData* list = tag->GetInExclude(kLists[n]);
      std::vector<iBase*> nodes;
      scene.RetrieveAll(list && !list->entries.empty() ? list : nullptr, nodes, NODE_HELPER,
                        RetrieveBit(RETRIEVE_CONSTRAINT), 2000, RETRIEVE_ANY, true);
      for (iBase* node : nodes) {
        if (auto* constraint = dynamic_cast<Constraint*>(node)) chains_[n].push_back(constraint);
      }
      for (Constraint* constraint : chains_[n]) constraint->Prepare(&volume_);
    }
  }
  ~BodyConstraints() override {
    for (auto& chain : chains_) {
      for (Constraint* constraint : chain) constraint->Finish();
    }
  }
  BodyConstraints(const BodyConstraints&) = delete;
  BodyConstraints& operator=(const BodyConstraints&) = delete;

  double ContactScale(RigidContact what, const Vec3D& place) const override {
    return At(static_cast<int>(what), place);
  }
  void ScaleDamping(RigidBody& body) const {
    body.linearDampingScale = At(3, body.state.pose.off);
    body.angularDampingScale = At(4, body.state.pose.off);
  }

 private:
  static constexpr int kChains = 5;
  double At(int chain, const Vec3D& place) const {
    double amount = 1;
    EvaluateChain(chains_[chain], place, amount, &volume_, 0);
    return amount;
  }

  const VolumeBase& volume_;
  std::vector<Constraint*> chains_[kChains];
};

std::vector<RigidPlane> ContainerWalls(const OrlixScene& scene) {
  std::vector<RigidPlane> walls;
  scene.ForEachNode(NODE_SOLVER, NODE_SOLVER, [&](iBase& node) {
    const auto* solver = node.IsEnabled() ? dynamic_cast<const FluidSolver*>(&node) : nullptr;
    if (!solver) return;
    for (int axis = 0; axis < 3; ++axis) {
      Vec3D normal;
      normal[axis] = 1;
      if (solver->closedFaces & ClosedLow(axis)) walls.push_back({normal, solver->lowCorner[axis]});
      if (solver->closedFaces & ClosedHigh(axis)) {
        walls.push_back({-normal, -(solver->lowCorner[axis] + solver->scaledSize[axis])});
      }
    }
  });
  return walls;
}

bool IsWhole(const RigidState& s) {
  return IsFinite(s.pose.off) && IsFinite(s.pose.v1) && IsFinite(s.pose.v2) && IsFinite(s.pose.v3) &&
         IsFinite(s.velocity) && IsFinite(s.spin);
}

bool Shorten(Vec3D& v, double most) {
  const double length = Length(v);
  if (!(length > most)) return false;
  v *= most / length;
  return true;
}

// What can't go on is held or slowed down, and told.
void KeepInRange(const VolumeBase& volume, const RigidState& before) {
  RigidState& state = volume.Body()->state;
  if (!IsWhole(state)) {
    state = before;
    state.velocity = state.spin = state.force = state.torque = {};
    volume.Warn("body-stopped",
                "its motion went out of all bounds in a collision: it was stopped where it was; a larger "
                "rigid_substeps helps");
  }
  const bool fast = Shorten(state.velocity, kMostSpeed), spins = Shorten(state.spin, kMostSpin);
  if (fast || spins) {
    volume.Warn("body-speed",
                "it would move faster than 1000 m/s or 1000 rad/s, and is held to that; see its mass and "
                "what pushes it");
  }
  const double distance =
      std::max({std::abs(state.pose.off.x), std::abs(state.pose.off.y), std::abs(state.pose.off.z)});
  if (distance <= kFurthest || state.asleep) return;
  state.velocity = state.spin = {};
  state.asleep = 1;
  volume.Warn("body-left", "it is 100 km from the origin and stays there; a floor would have held it");
}

}  // namespace

void BulletWorld::Step(OrlixScene& scene) {
  std::vector<VolumeBase*> volumes = Obstacles(scene);
  if (!PrepareBodies(volumes)) return;
  std::vector<std::unique_ptr<BodyConstraints>> constraints;
  std::vector<RigidEntry> entries;
  std::vector<RigidState> before;
  double furthest = 0;
  for (VolumeBase* volume : volumes) {
    RigidBody& body = *volume->Body();
    constraints.push_back(std::make_unique<BodyConstraints>(scene, *volume));
    constraints.back()->ScaleDamping(body);
    body.contact = constraints.back().get();
    entries.push_back(volume->BodyEntry());
    body.contact = nullptr;
    before.push_back(body.state);
    furthest = std::max(furthest, Length(body.state.pose.off));
  }
  const std::vector<RigidPlane> walls =
      scene.handler.GetBool(RootSettings::kRigidWallsId) ? ContainerWalls(scene) : std::vector<RigidPlane>();
  RigidStep step;
  step.dt = scene.info.substepDuration;
  step.substeps = std::max(scene.rigidSubsteps, 1);
  step.iterations = scene.handler.GetInt(RootSettings::kRigidIterationsId);
  step.broadphase = scene.handler.GetInt(RootSettings::kRigidBroadphaseId);
  step.slop = scene.handler.GetDouble(RootSettings::kRigidSlopId);
  step.gravity = scene.gravity;
  step.walls = walls;
  constexpr double kRoom = 0.5;  // for the bodies' own size
  if (step.broadphase != 0 && (volumes.size() + walls.size() > kMostSortedBodies || furthest > kRoom * kSortedExtent)) {
    scene.Warn(scene.Name(), "broadphase", "rigid_broadphase takes the tree: sorted axes hold 1024 bodies within 5 km");
    step.broadphase = 0;
  }
  StepRigidBodies(entries, step);
  for (std::size_t n = 0; n < volumes.size(); ++n) {
    if (volumes[n]->IsDynamicBody()) KeepInRange(*volumes[n], before[n]);
  }
}

void BulletWorld::EndFrame(OrlixScene& scene) {
  std::vector<VolumeBase*> volumes = Obstacles(scene);
  PrepareBodies(volumes);
  swimmers_.Move(scene);
}

}  // namespace orlix
