#include "fluids/rigid_bodies/BulletWorld.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <numeric>
#include <span>
#include <vector>

#include "fluids/bodies/ObstacleTag.h"
#include "fluids/constraints/Constraint.h"
#include "fluids/dynamics/FluidSolver.h"
#include "fluids/scene/RootObject.h"
#include "fluids/volumes/VolumeBase.h"
#include "host/objects/HasTrack.h"

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
  return HasTrack(*tag, ObstacleTag::kDrivenId) || HasTrack(*tag, ObstacleTag::kMassId) ||
         HasTrack(*tag, ObstacleTag::kDensityId) || HasTrack(*tag, ObstacleTag::kMassModeId);
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
  bool IsEmpty() const {
    return std::all_of(chains_, chains_ + kChains, [](const auto& chain) { return chain.empty(); });
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

// Along its own axes.
Vec3D SizeOf(const RigidBody& body) {
  if (body.RestPoints().empty()) return {};
  Vec3D low = body.RestPoints()[0], high = low;
  for (const Vec3D& p : body.RestPoints()) low = Min(low, p), high = Max(high, p);
  return high - low;
}

// Contacts within the slop don't push: where it is as deep as a body is thick, those of the far side are as good as
// those of the near one, and bodies pass through each other.
void TellOfSlop(std::span<VolumeBase* const> volumes, double slop) {
  const VolumeBase* thinnest = nullptr;
  double least = 0;
  for (const VolumeBase* volume : volumes) {
    const Vec3D size = SizeOf(*volume->Body());
    const double thin = std::min({size.x, size.y, size.z});
    if (thin <= 1e-6 * Length(size) || (thinnest && thin >= least)) continue;  // a sheet has no far side
    thinnest = volume, least = thin;
  }
  if (!thinnest || slop < 0.5 * least) return;
  thinnest->Warn("deep-slop",
                 fmt::format("it is {:.3g} m thick, and rigid_slop of the scene lets bodies sink {:.3g} m into "
                             "each other, so that they may pass through it; set \"rigid_slop\" and the "
                             "bodies' \"margin\" to {:.2g}",
                             least, slop, 0.05 * least));
}

void TellOfMargin(const VolumeBase& volume) {
  const RigidBody& body = *volume.Body();
  if (!(body.margin > 0) || body.RestPoints().empty()) return;
  const Vec3D sizes = SizeOf(body);
  const double size = std::max({sizes.x, sizes.y, sizes.z});
  if (body.margin <= 0.5 * size) return;
  volume.Warn("large-margin",
              fmt::format("its margin of {:.3g} m is large for a body of {:.3g} m, and throws it off what "
                          "it meets; lower \"margin\"",
                          body.margin, size));
}

// A fluid gives a body its weight beside its own, and what holds the body up acts in the rigid world alone: the fluid
// would see what lies on the ground sink by a sub-step's gravity at every solve. So as much of its weight as contacts
// carried in a step doesn't come with the fluid's, but as a force in the next step.
void HoldAhead(RigidBody& body, const RigidState& before, const Vec3D& gravity, double dt) {
  if (body.IsHeld() || before.asleep || !(before.idleTime < 0)) return;
  const Vec3D up = -Normalized(gravity);
  const Vec3D changed = body.state.velocity - before.velocity - before.force * (dt * body.InverseMass());
  const double held = std::clamp(Dot(changed, up), 0.0, Length(gravity) * dt);
  const Vec3D impulse = up * (held / body.InverseMass());
  body.AddImpulse(impulse);
  body.AddForce(-impulse / dt);
}

// Bodies that can't meet in a step have worlds of their own, which workers take one by one. What stands still is in
// each. Constraints are asked by one worker, and so is a world.
class SeparateBodies {
 public:
  SeparateBodies(std::span<const RigidEntry> entries, std::span<VolumeBase* const> volumes, const RigidStep& step,
                 bool constrained)
      : entries_(entries), boxes_(entries.size()), parents_(entries.size()) {
    std::iota(parents_.begin(), parents_.end(), std::size_t{0});
    std::vector<std::size_t> order;  // those that move, by where they begin in x
    for (std::size_t n = 0; n < entries.size(); ++n) {
      if (entries[n].kind == RigidEntry::Kind::Still) continue;
      boxes_[n] = Reach(entries[n], *volumes[n], step);
      order.push_back(n);
    }
    if (order.size() > kFew && !constrained) Join(order);
    Deal(order);
  }

  void Step(const RigidStep& step, WorkerPool& pool) {
    pool.Run(static_cast<int>(worlds_.size()), [&](int world) {
      std::vector<RigidEntry> own;
      std::vector<RigidState> standing;  // each world's own copy
      standing.reserve(entries_.size());
      for (std::size_t n = 0; n < entries_.size(); ++n) {
        const bool still = entries_[n].kind == RigidEntry::Kind::Still;
        if (!still && worldOf_[n] != world) continue;
        own.push_back(entries_[n]);
        if (still) own.back().state = &standing.emplace_back(*entries_[n].state);
      }
      StepRigidBodies(own, step);
    });
  }

 private:
  static constexpr std::size_t kFew = 32;  // bodies that one world takes as soon as many
  static constexpr std::size_t kMostWorlds = 8;
  struct Box {
    Vec3D low, high;
    bool Meets(const Box& b) const {
      return low.x <= b.high.x && b.low.x <= high.x && low.y <= b.high.y && b.low.y <= high.y && low.z <= b.high.z &&
             b.low.z <= high.z;
    }
  };

  // Where it can be in the step, with room for what pushes it on the way.
  static Box Reach(const RigidEntry& entry, const VolumeBase& volume, const RigidStep& step) {
    const RigidState& s = *entry.state;
    double size = 0;
    for (const Vec3D& p : volume.Body()->RestPoints()) size = std::max(size, LengthSquared(p));
    Vec3D end = s.pose.off + (s.velocity + step.gravity * step.dt) * step.dt;
    if (entry.kind == RigidEntry::Kind::Dynamic) end += s.force * (step.dt * step.dt / entry.mass);
    if (entry.kind == RigidEntry::Kind::Driven) end = entry.target.off;
    const Vec3D room(std::sqrt(size) + 2 * std::max(volume.Body()->margin, 0.0) + 0.25 * Length(end - s.pose.off));
    return {Min(s.pose.off, end) - room, Max(s.pose.off, end) + room};
  }
  std::size_t RootOf(std::size_t n) {
    while (parents_[n] != n) n = parents_[n] = parents_[parents_[n]];
    return n;
  }
  void Join(std::vector<std::size_t> order) {
    std::stable_sort(order.begin(), order.end(),
                     [&](std::size_t a, std::size_t b) { return boxes_[a].low.x < boxes_[b].low.x; });
    for (std::size_t a = 0; a < order.size(); ++a) {
      const Box& box = boxes_[order[a]];
      for (std::size_t b = a + 1; b < order.size() && boxes_[order[b]].low.x <= box.high.x; ++b) {
        if (box.Meets(boxes_[order[b]])) parents_[RootOf(order[a])] = RootOf(order[b]);
      }
    }
    many_ = true;
  }
  // Each set goes to the world that has the fewest bodies: the same for any number of workers.
  void Deal(const std::vector<std::size_t>& moving) {
    worldOf_.assign(entries_.size(), 0);
    worlds_.assign(1, moving.size());
    if (!many_) return;
    std::vector<std::vector<std::size_t>> sets(entries_.size());
    for (const std::size_t n : moving) sets[RootOf(n)].push_back(n);
    std::erase_if(sets, [](const auto& set) { return set.empty(); });
    std::stable_sort(sets.begin(), sets.end(), [](const auto& a, const auto& b) { return a.size() > b.size(); });
    worlds_.assign(std::min(sets.size(), kMostWorlds), 0);
    for (const auto& set : sets) {
      const auto least = std::min_element(worlds_.begin(), worlds_.end());
      for (const std::size_t n : set) worldOf_[n] = static_cast<int>(least - worlds_.begin());
      *least += set.size();
    }
  }

  std::span<const RigidEntry> entries_;
  std::vector<Box> boxes_;
  std::vector<std::size_t> parents_;  // of sets that may meet
  std::vector<int> worldOf_;
  std::vector<std::size_t> worlds_;  // bodies that move in each
  bool many_ = false;
};

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
  const bool constrained =
      std::any_of(constraints.begin(), constraints.end(), [](const auto& each) { return !each->IsEmpty(); });
  SeparateBodies(entries, volumes, step, constrained).Step(step, scene.pool());
  const auto isDynamic = [](const VolumeBase* volume) { return volume->IsDynamicBody(); };
  if (!told_ && std::any_of(volumes.begin(), volumes.end(), isDynamic)) {
    told_ = true;
    if (volumes.size() > 1) TellOfSlop(volumes, step.slop);
    for (const VolumeBase* volume : volumes) {
      if (isDynamic(volume)) TellOfMargin(*volume);
    }
  }
  for (std::size_t n = 0; n < volumes.size(); ++n) {
    if (!isDynamic(volumes[n])) continue;
    KeepInRange(*volumes[n], before[n]);
    HoldAhead(*volumes[n]->Body(), before[n], step.gravity, step.dt);
  }
}

void BulletWorld::EndFrame(OrlixScene& scene) {
  if (swimmers_.Restore(*scene.GetHostDocument())) return;
  std::vector<VolumeBase*> volumes = Obstacles(scene);
  PrepareBodies(volumes);
  swimmers_.Move(scene);
}

}  // namespace orlix
