#include "fluids/particle_emitters/ObjectParticleGridEmitter.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "fluids/channels/VectorChannels.h"
#include "fluids/particle_emitters/EmissionForecast.h"
#include "host/objects/HasTrack.h"

namespace orlix {

namespace {

constexpr std::int32_t kAdvectionSubType = 98, kAdvectionGroupId = 1000, kMotionSourceId = 1008, kCollisionsId = 1011,
                       kAdvectionKindId = 1014;
constexpr std::int32_t kPriority = 5, kAnySubType = 2000, kGasSolver = 37;
constexpr std::size_t kLookAtEach = 64;
// Of what is emitted: a layer along an obstacle's skin is nobody's mistake.
constexpr double kFewInObstacle = 0.05, kFewBeyondWalls = 0.1;
constexpr std::int32_t kMostSubdivision = 5;  // 32768 places in a voxel

VecInt3D CellsEnd(const VolumeBase& member) { return member.LevelSet()->dims - VecInt3D(2, 2, 2); }

// The distances at the centres of a row's voxels, by the mean of their corners.
void CentreDistances(const GridView<const double>& nodes, std::int32_t begin, std::int32_t end, std::int32_t j,
                     std::int32_t k, double* distances) {
  const double* p = nodes.data + nodes.Index(0, j, k);
  const double *q = p + nodes.dims.x, *r = p + nodes.slab, *s = q + nodes.slab;
  for (std::int32_t i = begin; i < end; ++i) {
    distances[i] = ((p[i] + p[i + 1]) + (q[i] + q[i + 1]) + (r[i] + r[i + 1]) + (s[i] + s[i + 1])) * 0.125;
  }
}

}  // namespace

const TypeInfo& ObjectParticleGridEmitter::Type() {
  static constexpr Parameter kParameters[] = {
      LinkParameter(kEmitterGroupId, "group", kLinkParticles, "Particle group that is filled; required"),
      EmitterKindParameter(),
      LinkParameter(kSettingsId, "settings", kLinkSettings, "Particle emission settings; required"),
      ListParameter(kPropertiesId, "properties", kLinkProperty, "Properties that the particles start with"),
      LinkParameter(kVolumeId, "volume", kLinkVolume, "Where it emits; required"),
      ListParameter(kSolversId, "solvers", kLinkSolver,
                    "Liquid solvers in whose containers alone it emits; without one, everywhere"),
      BoolParameter(
          kFillId, "fill", true,
          "Constraints are asked at each particle; otherwise once for a voxel, and the outer band reaches one "
          "voxel"),
      FloatParameter(kInnerBandId, "inner_band", 1.0, "",
                     "How far below the surface it emits, as a share of the volume's greatest depth; 1 is all of it"),
      FloatParameter(kOuterBandId, "outer_band", 0.0, "",
                     "How far above the surface it emits, as a share of the volume's greatest depth"),
      FloatParameter(kDeepLimitId, "deep_limit", -3.0, "cells", "Signed distance below which a voxel counts as deep"),
      IntParameter(kDeepSubdivisionId, "deep_subdivision", 1, "",
                   "Particles of a deep voxel, as a power of 2 along each axis: 1 gives 8")
          .Between(0, kMostSubdivision),
      IntParameter(kShallowSubdivisionId, "shallow_subdivision", 1, "",
                   "Particles of all other voxels, as a power of 2 along each axis: 1 gives 8")
          .Between(0, kMostSubdivision),
      LinkParameter(kColourShaderId, "colour_shader", kLinkShader, "Gives the particles their colours, by place"),
      FloatParameter(kSeparationId, "separation", 1.0, "",
                     "Least distance from particles that are there, in distances of the lattice")
          .Between(0, 8)
          .Fallback(0.5),
  };
  static const TypeInfo kType = {
      .id = 1300006,
      .resource = "zq_particlegridemitter",
      .className = "C4D_ParticleGridEmitter_Object",
      .label = "Emitter::Particle In Volume",
      .text =
          "Fills a volume, or a band about its surface, with particles on a jittered lattice. Places that are too "
          "close "
          "to a particle stay free, so that later steps only top up what has left.",
      .kinds = kLinkEmitter,
      .parameters = kParameters,
      .common = CommonNodeParameters(),
  };
  return kType;
}

ObjectParticleGridEmitter::ObjectParticleGridEmitter(BaseList2D* object, OrlixScene& owner)
    : ObjectVolume(object, owner) {
  stageMask = StageBit(kStageEmitters);
  priority = kPriority;
}

void ObjectParticleGridEmitter::ExtendBounds(Vec3D& min, Vec3D& max) {
  if (!volume || !handler_.settings) return;
  const Duration* duration = handler_.settings->duration;
  if (duration && duration->IsEnabled() && !duration->IsActive(simulationInfo->time)) return;
  std::vector<VolumeBase*> members;
  volume->AppendVolumes(members);
  if (!members.empty() && members.front()->HasLevelSet()) volume->ExtendBounds(min, max);
}

bool ObjectParticleGridEmitter::ReadParameters() {
  stageMask = StageBit(kStageEmitters);
  priority = kPriority;
  if (!ObjectVolume::ReadParameters()) return false;
  fill_ = handler.GetBool(kFillId);
  innerBand_ = handler.GetDouble(kInnerBandId);
  outerBand_ = handler.GetDouble(kOuterBandId);
  deepLimit_ = handler.GetDouble(kDeepLimitId);
  deepSubdivision_ = std::clamp(handler.GetInt(kDeepSubdivisionId), 0, kMostSubdivision);
  shallowSubdivision_ = std::clamp(handler.GetInt(kShallowSubdivisionId), 0, kMostSubdivision);
  separation_ = handler.GetDouble(kSeparationId);
  return true;
}

bool ObjectParticleGridEmitter::ResolveLinks() {
  const bool resolved = ObjectVolume::ResolveLinks();
  volume = scene->RetrieveAs<iVolume>(handler.GetLink(kVolumeId), NODE_VOLUME, RETRIEVE_VOLUME);
  handler_.Resolve(*this, {kSettingsId, kPropertiesId, kColourShaderId});
  containers_.clear();
  const InExcludeData* list = handler.GetInExclude(kSolversId);
  std::vector<iBase*> found;
  if (list) scene->RetrieveAll(list, found, NODE_SOLVER, RETRIEVE_ANY, kAnySubType, RETRIEVE_ANY, true);
  for (iBase* node : found) {
    auto* solver = dynamic_cast<iSolver*>(node);
    if (!solver || solver->GetNodeSubType() == kGasSolver || !solver->HoldsParticles()) continue;
    if (const auto* velocity = dynamic_cast<ChannelBase_Vector*>(solver->Velocity())) containers_.push_back(velocity);
  }
  limitedBySolvers_ = !containers_.empty();
  return resolved && volume;
}

void ObjectParticleGridEmitter::Advise() {
  handler_.Advise(*this);
  if (!volume) Warn("no-volume", "no volume is linked: nothing is emitted; link one under volume");
  AdviseSubdivisions();
  const BaseObject& object = *handler.hostObject();
  const bool keyed = HasTrack(object, kInnerBandId) || HasTrack(object, kOuterBandId);
  if (!keyed && -innerBand_ >= outerBand_ && innerBand_ != 1) {
    Warn("no-band", "\"inner_band\" and \"outer_band\" leave no band, so nothing is emitted; raise one of them");
  }
  const InExcludeData* list = handler.GetInExclude(kSolversId);
  if (list && !list->entries.empty() && !limitedBySolvers_) {
    Warn("no-liquid", "none of solvers is a liquid that has particles: they limit nothing; list liquids");
  }
}

// A deep voxel has the deep lattice and the shallow one's number and distance of particles, the others the other way
// round.
void ObjectParticleGridEmitter::AdviseSubdivisions() const {
  if (deepSubdivision_ == shallowSubdivision_ || limitedBySolvers_) return;
  Warn("two-subdivisions",
       fmt::format("\"deep_subdivision\" and \"shallow_subdivision\" differ, and no voxel gets more than the lesser "
                   "allows, {} particles, unevenly; set both to the same, or list the liquid under \"solvers\"",
                   1 << 3 * std::min(deepSubdivision_, shallowSubdivision_)));
}

// The whole volume, full. What flows out of it and is filled up again can't be foretold.
MemoryNeed ObjectParticleGridEmitter::MemoryFor(const VecInt3D&) const {
  const double h = GetSimulationSpace().cellSize;
  const MeshSize size = SizeOfVolume(*this, kVolumeId);
  const double voxels = size.volume / (h * h * h) + size.area / (h * h);
  const double each = std::exp2(3 * std::max(deepSubdivision_, shallowSubdivision_));
  return MemoryOfParticles(*this, voxels * each, kPropertiesId);
}

void ObjectParticleGridEmitter::ReleaseLinks() {
  handler_.Release();
  containers_.clear();
  SetFlag(NodeActive, false);
  ObjectVolume::ReleaseLinks();
}

void ObjectParticleGridEmitter::CheckDirty() {
  ObjectVolume::CheckDirty();
  if (IsEnabled() && (scene->HasFlag(TimeMoved) || handler_.SettingsAreDirty())) MarkDirty(false);
}

void ObjectParticleGridEmitter::Prepare(iBase*) {
  SetFlag(NodeActive, false);
  members_.clear();
  if (volume) volume->AppendVolumes(members_);
  if (members_.empty() || !members_.front()->HasLevelSet()) return;
  std::erase_if(members_, [](const VolumeBase* member) { return !member->HasLevelSet(); });
  if (!handler_.Begin(*this)) return;
  const double rate = handler_.settings->rate ? handler_.settings->Count() : 1;
  if (!(rate * simulationInfo->substepDuration > 0)) return;
  SetFlag(NodeActive, true);
}

LatticeFill ObjectParticleGridEmitter::FillOf(const VolumeBase& member) const {
  const double h = member.LevelSet()->space.cellSize;
  const double depth = member.MaximumDepth().value_or(0);
  LatticeFill fill;
  fill.levelSet = member.View();
  fill.cellSize = h;
  fill.jitter = h * handler_.settings->jitter * 0.25;
  fill.deep = LatticeOf(h, deepSubdivision_, separation_);
  fill.shallow = LatticeOf(h, shallowSubdivision_, separation_);
  fill.inner = -innerBand_ * depth;
  fill.outer = outerBand_ * depth;
  fill.deepBelow = deepLimit_ * h;
  fill.unlimited = innerBand_ == 1;
  fill.wholeBand = fill_;
  return fill;
}

void ObjectParticleGridEmitter::Setup() {
  layers_.clear(), runs_.clear(), targets_.clear();
  nextLayer_.store(0);
  if (!IsActive()) return;
  const ParticleList& list = *handler_.group->list(handler_.kind);
  FindWalls();
  for (const VolumeBase* member : members_) {
    const LatticeFill fill = FillOf(*member);
    const GridSpace& lattice = member->LevelSet()->space;
    Target& target = targets_.emplace_back(
        Target{member, fill, std::make_unique<ParticleLines>(), {1, 1, 1}, CellsEnd(*member), {}, 1});
    KeepWithinWalls(target);
    if (list.empty()) continue;
    target.lines->Build(list, lattice, VoxelNeighbours::Reach(lattice, fill.Widest()), scene->pool());
    CountHeld(target);
  }
  for (const Target& target : targets_) {
    if (target.share == 0) continue;  // full
    for (std::int32_t k = target.begin.z; k < target.end.z; ++k) layers_.push_back({&target, k});
  }
  TellOfWalls();
  runs_.resize(layers_.size());
  scratch_.resize(WorkerPool::kMaxWorkers);
}

// A liquid particle beyond a closed wall is moved onto it in the same sub-step. Its place would be filled anew, without
// end.
void ObjectParticleGridEmitter::FindWalls() {
  walls_.clear();
  if (handler_.kind != PK_Liquid) return;
  bool movedOntoWalls = false;  // not in free flight, nor without collisions
  scene->ForEachNode(NODE_OPERATOR, NODE_OPERATOR, [&](const iBase& node) {
    if (node.GetNodeSubType() != kAdvectionSubType || !node.IsEnabled()) return;
    if (node.handler.GetInt(kAdvectionKindId) != PK_Liquid || node.handler.GetInt(kMotionSourceId) == 0) return;
    if (node.handler.GetInt(kCollisionsId) == 0) return;
    movedOntoWalls |=
        scene->RetrieveAs<ParticleGroup>(node.handler.GetLink(kAdvectionGroupId), NODE_PARTICLES) == handler_.group;
  });
  if (!movedOntoWalls) return;
  scene->ForEachNode(NODE_SOLVER, NODE_SOLVER, [&](const iBase& node) {
    const auto* solver = dynamic_cast<const iSolver*>(&node);
    Vec3D low, high;
    if (!node.IsEnabled() || !solver || !solver->HoldsParticles(handler_.group)) return;
    if (!solver->RoomOfWalls(low, high)) return;
    wallsMin_ = walls_.empty() ? low : Min(wallsMin_, low);
    wallsMax_ = walls_.empty() ? high : Max(wallsMax_, high);
    walls_ = node.DisplayName();
  });
}

// By the centres of voxels.
void ObjectParticleGridEmitter::KeepWithinWalls(Target& target) {
  if (walls_.empty()) return;
  const ScalarGrid& nodes = *target.volume->LevelSet();
  const Vec3D low = nodes.space.VoxelOfSim(wallsMin_), high = nodes.space.VoxelOfSim(wallsMax_);
  const VecInt3D whole = target.end;
  for (int axis = 0; axis < 3; ++axis) {
    const double last = std::max(whole[axis], 1);
    target.begin[axis] = static_cast<std::int32_t>(std::clamp(std::ceil(low[axis] - 0.5), 1.0, last));
    target.end[axis] = static_cast<std::int32_t>(std::clamp(std::ceil(high[axis] - 0.5), 1.0, last));
    target.end[axis] = std::max(target.end[axis], target.begin[axis]);
  }
  if (lookedForWalls_) return;
  std::vector<double> distances(static_cast<std::size_t>(std::max(whole.x, 1)));
  for (std::int32_t k = 1; k < whole.z; ++k) {
    for (std::int32_t j = 1; j < whole.y; ++j) {
      CentreDistances(nodes, 1, whole.x, j, k, distances.data());
      const bool within = k >= target.begin.z && k < target.end.z && j >= target.begin.y && j < target.end.y;
      for (std::int32_t i = 1; i < whole.x; ++i) {
        const double share = target.fill.ShareInBand(distances[static_cast<std::size_t>(i)]);
        voxelsInBand_ += share;
        if (!within || i < target.begin.x || i >= target.end.x) voxelsBeyond_ += share;
      }
    }
  }
}

void ObjectParticleGridEmitter::TellOfWalls() {
  if (lookedForWalls_ || walls_.empty()) return;
  lookedForWalls_ = true;
  const double share = voxelsInBand_ > 0 ? voxelsBeyond_ / voxelsInBand_ : 0;
  if (share <= kFewBeyondWalls) return;
  Warn("beyond-walls",
       fmt::format("{:.0f}% of its volume lies beyond closed walls of \"{}\", where it emits nothing; move it into the "
                   "container, make that larger, or open the face through which it is to pour",
                   100 * share, walls_));
}

void ObjectParticleGridEmitter::Conclude() {
  const bool allBeyond = voxelsInBand_ > 0 && voxelsBeyond_ == voxelsInBand_;  // and told
  if (!allBeyond) handler_.Conclude(*this);
}

// Particles of a voxel at this distance: no more than its lattice has, or each sub-step would add as many again.
std::int32_t ObjectParticleGridEmitter::Most(const LatticeFill& fill, double d) const {
  const std::int32_t places = fill.Filled(d).count;
  return limitedBySolvers_ ? places : std::min(places, fill.Looked(d).count);
}

void ObjectParticleGridEmitter::CountHeld(Target& target) const {
  const ScalarGrid& nodes = *target.volume->LevelSet();
  const VecInt3D begin = target.begin, end = target.end;
  target.held.resize(static_cast<std::size_t>(nodes.count));
  std::vector<BandLacks> lacks(static_cast<std::size_t>(std::max(end.z, 1)));
  ParallelRange(scene->pool(), begin.z, end.z, [&](int from, int to, int) {
    std::vector<double> distances(static_cast<std::size_t>(std::max(end.x, 1)));
    for (std::int32_t k = from; k < to; ++k) {
      for (std::int32_t j = begin.y; j < end.y; ++j) {
        std::int32_t* held = target.held.data() + nodes.Index(0, j, k);
        std::fill_n(held, nodes.dims.x, 0);
        for (const ParticleLines::Entry& entry : target.lines->Of(j, k)) {
          const double x = nodes.space.VoxelOfSim(entry.position).x;
          if (x >= begin.x && x < end.x) ++held[static_cast<std::int32_t>(x)];
        }
        CentreDistances(nodes, begin.x, end.x, j, k, distances.data());
        for (std::int32_t i = begin.x; i < end.x; ++i) {
          const double d = distances[static_cast<std::size_t>(i)];
          target.fill.AddLack(d, held[i], Most(target.fill, d), lacks[static_cast<std::size_t>(k)]);
        }
      }
    }
  });
  BandLacks sum;
  for (const BandLacks& layer : lacks) sum.all += layer.all, sum.some += layer.some;
  target.share = sum.Share();
}

void ObjectParticleGridEmitter::Process(ProcessData& data) {
  if (!IsActive()) return;
  const auto seed = static_cast<std::uint32_t>(
      static_cast<std::int64_t>(GetNodeSubType() + double(scene->seed) + 1 + simulationInfo->time * 100));
  const std::uint64_t step = std::uint64_t(static_cast<std::uint32_t>(simulationInfo->frame)) << 40 |
                             std::uint64_t(simulationInfo->substep) << 32;
  for (std::size_t at; (at = nextLayer_.fetch_add(1, std::memory_order_relaxed)) < layers_.size();) {
    if (data.hostThread && data.hostThread->TestBreak()) return;
    MersenneTwister random = RandomOfPiece(seed, step | at);
    FillLayer(layers_[at], runs_[at], random, data.threadIndex);
    handler_.Complete(runs_[at], {}, random);
  }
}

void ObjectParticleGridEmitter::FillLayer(const Layer& layer, EmittedRun& run, MersenneTwister& random,
                                          std::int32_t worker) {
  Scratch& scratch = scratch_[static_cast<std::size_t>(worker)];
  const LatticeFill& fill = layer.target->fill;
  const ScalarGrid& nodes = *layer.target->volume->LevelSet();
  const VecInt3D begin = layer.target->begin, end = layer.target->end;
  scratch.distances.resize(static_cast<std::size_t>(std::max(end.x, 1)));
  const auto distance = [&](std::int32_t i) { return scratch.distances[static_cast<std::size_t>(i)]; };
  for (std::int32_t j = begin.y; j < end.y; ++j) {
    CentreDistances(nodes, begin.x, end.x, j, layer.k, scratch.distances.data());
    const std::int32_t* held =
        layer.target->held.empty() ? nullptr : layer.target->held.data() + nodes.Index(0, j, layer.k);
    const auto lacksSome = [&](std::int32_t i) {
      return i >= begin.x && fill.Reaches(distance(i)) && (!held || held[i] < Most(fill, distance(i)));
    };
    scratch.near.Find(*layer.target->lines, nodes.space, end.x, j, layer.k, fill.Widest(),
                      [&](std::int32_t i) { return lacksSome(i) ? fill.Looked(distance(i)).minimumDistance : 0; });
    for (std::int32_t i = begin.x; i < end.x; ++i) {
      if (!lacksSome(i)) continue;
      FillVoxel(*layer.target, {i, j, layer.k}, distance(i), scratch.near.Of(i), run, random, worker);
    }
  }
}

void ObjectParticleGridEmitter::FillVoxel(const Target& target, const VecInt3D& voxel, double d,
                                          std::span<const Vec3D> near, EmittedRun& run, MersenneTwister& random,
                                          std::int32_t worker) {
  const LatticeFill& fill = target.fill;
  const ScalarGrid& nodes = *target.volume->LevelSet();
  const Vec3D corner = nodes.space.SimOfVoxel(Vec3D(voxel.x, voxel.y, voxel.z));
  const Vec3D centre = corner + Vec3D(fill.cellSize * 0.5);
  std::int64_t lack = Most(fill, d);
  if (!target.held.empty()) {
    // Beside the band stands what was emitted in it.
    if (fill.ShareInBand(d) == 0) return;
    lack -= target.held[nodes.Index(voxel.x, voxel.y, voxel.z)];
  }
  if (limitedBySolvers_ && !InContainers(centre)) return;
  const auto weighed = [&](const Vec3D& place) {
    double amount = handler_.weight;
    EvaluateChain(handler_.constraints, place, amount, this, worker);
    return amount != 0;
  };
  if (!fill_ && !weighed(centre)) return;
  const auto accept = [&](const Vec3D& place) {
    return (!limitedBySolvers_ || InContainers(place)) && (!fill_ || weighed(place));
  };
  fill.Walk(corner, d, near, lack, target.share, random, scratch_[static_cast<std::size_t>(worker)].places, accept,
            [&](const Vec3D& place) { run.positions.push_back(place); });
}

bool ObjectParticleGridEmitter::InContainers(const Vec3D& place) const {
  return std::any_of(containers_.begin(), containers_.end(),
                     [&](const ChannelBase_Vector* velocity) { return velocity->ContainsCell(place, true); });
}

// Looks at some of the first particles that it makes.
void ObjectParticleGridEmitter::TellOfObstacles() {
  if (lookedForObstacles_) return;
  std::vector<Vec3D> some;
  for (const EmittedRun& run : runs_) {
    for (std::size_t n = 0; n < run.positions.size(); n += kLookAtEach) some.push_back(run.positions[n]);
  }
  if (some.empty()) return;
  lookedForObstacles_ = true;
  std::vector<VolumeBase*> volumes;
  scene->ForEachNode(NODE_VOLUME, NODE_VOLUME, [&](iBase& node) {
    if (auto* each = node.IsEnabled() ? dynamic_cast<iVolume*>(&node) : nullptr) each->AppendVolumes(volumes);
  });
  for (const VolumeBase* obstacle : volumes) {
    if (!obstacle->IsObstacle()) continue;
    const auto inside =
        std::count_if(some.begin(), some.end(), [&](const Vec3D& p) { return obstacle->InsideWorld(p); });
    if (kFewInObstacle * static_cast<double>(some.size()) >= static_cast<double>(inside)) continue;
    Warn("in-obstacle",
         fmt::format("{:.0f}% of what it emits stands in the obstacle \"{}\", where nothing flows; move one "
                     "of them, or let constraints keep the emitter out of it",
                     100.0 * static_cast<double>(inside) / static_cast<double>(some.size()), obstacle->DisplayName()));
  }
}

void ObjectParticleGridEmitter::Finish() {
  if (IsActive()) {
    TellOfObstacles();
    handler_.Append(runs_);
  }
  handler_.End(*this);
  layers_.clear(), runs_.clear(), targets_.clear(), members_.clear();
}

}  // namespace orlix
