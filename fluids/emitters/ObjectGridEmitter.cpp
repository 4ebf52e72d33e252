#include "fluids/emitters/ObjectGridEmitter.h"

#include <algorithm>
#include <limits>

#include "fluids/level_sets/InsideCells.h"
#include "fluids/volumes/VolumeBase.h"

namespace orlix {

namespace {

constexpr std::int32_t kPriority = 10;
constexpr std::int32_t kPairSubType = 90, kParticleToGridSubType = 8;
constexpr std::int32_t kLookAtEach = 2;  // rows, where it looks for obstacles, at so many places
constexpr std::size_t kMostPlaces = 1000;
constexpr double kNearlyAll = 0.95;

// The cells of a level set that emit: all but the outer ones.
VecInt3D CellsEnd(const VolumeBase& member) { return member.LevelSet()->dims - VecInt3D(2, 2, 2); }

Vec3D CellCentre(const GridSpace& space, std::int32_t i, std::int32_t j, std::int32_t k) {
  return Vec3D(i + 0.5, j + 0.5, k + 0.5) * space.simPerVoxel + space.simMin;
}

}  // namespace

const TypeInfo& ObjectGridEmitter::Type() {
  static constexpr Parameter kParameters[] = {
      ListParameter(kPairsId, "pairs", kLinkSettings, "Pairs of a channel and the settings by which it is filled"),
      LinkParameter(kVolumeId, "volume", kLinkVolume, "Where it emits; required"),
      ButtonParameter(1003, "pick_volume", "Offers the volumes of the scene"),
      ButtonParameter(1005, "pick_channel", "Offers the pairs of the scene"),
      ButtonParameter(1100, "add_pair", "Adds a pair with settings and a duration that repeats"),
      ButtonParameter(1101, "add_looping_pair", "Adds a pair with settings and a duration that repeats"),
      ButtonParameter(1102, "add_pressure",
                      "Adds an emitter in the same volume that makes the first solver's fluid expand"),
  };
  static const TypeInfo kType = {
      .id = 1300005,
      .resource = "zq_gridemitter",
      .className = "C4D_GridEmitter_Object",
      .label = "Emitter::Grid",
      .text = "Fills channels inside a volume: smoke, heat, fuel, or the expansion of a solver's fluid.",
      .kinds = kLinkEmitter,
      .parameters = kParameters,
      .common = CommonNodeParameters(),
  };
  return kType;
}

ObjectGridEmitter::ObjectGridEmitter(BaseList2D* object, OrlixScene& owner) : ObjectVolume(object, owner) {
  stageMask = StageBit(kStageEmitters);
  priority = kPriority;
}

void ObjectGridEmitter::ExtendBounds(Vec3D& min, Vec3D& max) {
  if (!volume) return;
  std::vector<VolumeBase*> members;
  volume->AppendVolumes(members);
  if (!members.empty() && members.front()->HasLevelSet()) volume->ExtendBounds(min, max);
}

bool ObjectGridEmitter::ReadParameters() {
  stageMask = StageBit(kStageEmitters);
  priority = kPriority;
  return ObjectVolume::ReadParameters();
}

bool ObjectGridEmitter::ResolveLinks() {
  pairs.clear();
  constraints.clear();
  const bool resolved = ObjectVolume::ResolveLinks();
  volume = scene->RetrieveAs<iVolume>(handler.GetLink(kVolumeId), NODE_VOLUME, RETRIEVE_VOLUME);
  if (const InExcludeData* list = handler.GetInExclude(kPairsId)) {
    std::vector<iBase*> found;
    scene->RetrieveAll(list, found, NODE_SETTINGS, RETRIEVE_ANY, kPairSubType, RETRIEVE_ANY, true);
    for (iBase* node : found) {
      if (auto* pair = dynamic_cast<ChannelPair*>(node)) pairs.push_back(pair);
    }
  }
  constraints = RetrieveConstraints(*scene, handler);
  return resolved && volume && !pairs.empty();
}

void ObjectGridEmitter::Advise() {
  if (!volume) return Warn("no-volume", "no volume is linked, so it fills nothing; link one as \"volume\"");
  if (pairs.empty())
    return Warn("no-pairs", "it has no pairs, so it fills nothing; list nodes of type channelsettings under \"pairs\"");
  Reach(Progress::Linked);
  const auto& listed = handler.GetInExclude(kPairsId)->entries;
  const BaseDocument& document = *scene->GetHostDocument();
  if (std::any_of(listed.begin(), listed.end(), [&](const InExcludeData::Entry& entry) {
        const auto* object = static_cast<const BaseObject*>(document.FindObject(entry.target));
        return object && object->type().ShortName() != "channelsettings";
      })) {
    Warn("not-a-pair",
         "some of what it lists under \"pairs\" is no pair and fills nothing; list nodes of type channelsettings");
  }
  for (const ChannelPair* pair : pairs) {
    if (pair->settings && !dynamic_cast<const GridEmissionSettings*>(pair->settings)) {
      Warn("other-settings:" + pair->DisplayName(),
           "the settings of \"" + pair->DisplayName() +
               "\" aren't for grids, so nothing is filled; link a node of type emission_setting there");
    }
    if (!pair->scalarTarget && pair->vectorTarget) {
      Warn("vector-channel:" + pair->DisplayName(), "it fills scalar channels only, and \"" + pair->DisplayName() +
                                                        "\" has a vector channel; link a scalar one there");
    }
    const ChannelBase_Scalar* target = pair->scalarTarget;
    const bool isChannel =
        target && scene->Retrieve(target->handler.hostObject(), NODE_CHANNEL, RETRIEVE_SCALAR, RETRIEVE_ANY) == target;
    if (!isChannel || target->clearEachStep || scene->IsMoved(*target) || scene->IsPlayed(*target)) continue;
    target->Warn("not-carried", "\"" + DisplayName() +
                                    "\" fills it and nothing carries it, so what is emitted stays where it is; add a "
                                    "grid_advection that links it");
  }
  if (simulationInfo->time == 0) AdvisePlace();
}

void ObjectGridEmitter::AdvisePlace() {
  Vec3D min, max;
  if (!volume->StillBox(min, max)) return;
  const std::string thin = TooThinText(max - min, GetSimulationSpace().cellSize);
  if (!thin.empty()) return Warn("no-cell", "nothing is emitted, because of its volume: " + thin);
  std::string containers;
  bool outside = true;
  scene->ForEachNode(NODE_SOLVER, NODE_SOLVER, [&](const iBase& node) {
    const auto* solver = dynamic_cast<const iSolver*>(&node);
    Vec3D low, high;
    if (!solver || !solver->IsEnabled() || !solver->WholeContainer(low, high)) return;
    const bool apart =
        max.x < low.x || max.y < low.y || max.z < low.z || min.x > high.x || min.y > high.y || min.z > high.z;
    outside = outside && apart;
    containers += (containers.empty() ? "\"" : ", \"") + solver->DisplayName() + "\"";
  });
  if (outside && !containers.empty()) WarnOutside(containers);
}

void ObjectGridEmitter::WarnOutside(const std::string& containers) {
  Reach(Progress::Acting);  // no other reason is looked for
  Warn("outside", "its volume lies outside the container of " + containers +
                      ", so nothing is emitted there; move it, or place the container around it");
}

void ObjectGridEmitter::Reach(Progress progress) {
  Progress before = progress_.load(std::memory_order_relaxed);
  while (before < progress && !progress_.compare_exchange_weak(before, progress, std::memory_order_relaxed)) {
  }
}

void ObjectGridEmitter::Conclude() {
  switch (progress_.load()) {
    case Progress::Linked:
      return Warn("nothing-emitted",
                  "nothing was emitted: it was never active in the frames of this run; its durations, a volume without "
                  "polygons, or channels without cells, since no dynamics object was at work, kept it from it");
    case Progress::InContainer:
      return Warn("nothing-emitted",
                  "nothing was emitted: its values, durations, falloffs and constraints left nothing of it; see which "
                  "of them is 0");
    default:
      return;
  }
}

void ObjectGridEmitter::ReleaseLinks() {
  pairs.clear();
  constraints.clear();
  SetFlag(NodeActive, false);
  ObjectVolume::ReleaseLinks();
}

void ObjectGridEmitter::CheckDirty() {
  ObjectVolume::CheckDirty();
  if (!IsEnabled()) return;
  if (IsDirty() || (volume && volume->IsDirty()) || scene->HasFlag(TimeMoved)) {
    MarkDirty(false);
    for (ChannelPair* pair : pairs) {
      if (pair->scalarTarget) pair->scalarTarget->MarkDirty(false);
    }
    return;
  }
  for (const ChannelPair* pair : pairs) {
    const auto* settings = dynamic_cast<const GridEmissionSettings*>(pair->settings);
    const bool changed = (pair->settings && pair->settings->IsDirty()) ||
                         (settings && settings->duration && settings->duration->IsDirty()) ||
                         (pair->scalarTarget && pair->scalarTarget->IsDirty());
    if (changed) MarkDirty(false);
  }
}

bool ObjectGridEmitter::ComesBefore(const iBase& other) const {
  if (other.HasRetrieveType(RETRIEVE_PARTICLE) || other.GetNodeSubType() == kParticleToGridSubType) return false;
  return ObjectVolume::ComesBefore(other);
}

void ObjectGridEmitter::Prepare(iBase*) {
  if (!IsDirty()) return;
  SetFlag(NodeActive, false);
  members_.clear();
  if (!volume || pairs.empty()) return;
  volume->AppendVolumes(members_);
  if (members_.empty() || !members_.front()->HasLevelSet()) return;
  std::erase_if(members_, [](const VolumeBase* member) { return !member->HasLevelSet(); });
  if (!PrepareSources()) return;
  if (!sources_.empty()) Reach(Progress::Acting);
  for (Constraint* constraint : constraints) constraint->Prepare(this);
  SetFlag(NodeActive, true);
}

// False when no pair is active. What a cache plays back isn't filled.
bool ObjectGridEmitter::PrepareSources() {
  weights_.assign(pairs.size(), 1.0);
  sources_.clear();
  bool active = false;
  for (std::size_t p = 0; p < pairs.size(); ++p) {
    const auto* settings = dynamic_cast<const GridEmissionSettings*>(pairs[p]->settings);
    const ChannelBase_Scalar* target = pairs[p]->scalarTarget;
    const bool played = target && target->HasFlag(NodeFromCache);
    if (played) Reach(Progress::Emitted);
    if (!settings || played) continue;
    const Duration* duration = settings->duration && settings->duration->IsEnabled() ? settings->duration : nullptr;
    const bool on = !duration || duration->IsActive(simulationInfo->time, weights_[p]);
    if (!on) weights_[p] = 0;
    active |= on;
    if (!target || !target->grid || weights_[p] == 0) continue;
    const double amount = settings->BaseAmount(simulationInfo->substepDuration);
    const GridEmissionWriter writer = CreateEmissionHandler(*target)->Writer(settings->Emission());
    if (writer.HasGrid()) sources_.push_back({settings, writer, &target->grid->space, weights_[p], amount});
  }
  return active;
}

void ObjectGridEmitter::Setup() {
  layers_.clear();
  if (!IsActive()) return;
  // The layers of the channels that the volume's cells may reach.
  std::int32_t low = std::numeric_limits<std::int32_t>::max(), high = 0;
  rowCells_ = 0;
  for (const VolumeBase* member : members_) {
    const VecInt3D end = CellsEnd(*member);
    if (end.z <= 1) {
      SetFlag(NodeActive, false);
      return;
    }
    rowCells_ = std::max(rowCells_, end.x);
    const GridSpace& space = member->LevelSet()->space;
    for (const Source& source : sources_) {
      low = std::min(low, source.writer.LayersOf(CellCentre(space, 0, 0, 1).z).begin);
      high = std::max(high, source.writer.LayersOf(CellCentre(space, 0, 0, end.z - 1).z).end);
    }
  }
  if (low >= high) return;
  const int pieces = std::min(std::clamp(scene->threadCount, 1, WorkerPool::kMaxWorkers), high - low);
  for (int w = 0; w < pieces; ++w) {
    const std::int64_t span = high - low;
    layers_.push_back(
        {low + static_cast<std::int32_t>(span * w / pieces), low + static_cast<std::int32_t>(span * (w + 1) / pieces)});
  }
  layers_.front().begin = std::numeric_limits<std::int32_t>::min();
  layers_.back().end = std::numeric_limits<std::int32_t>::max();
  scratch_.resize(std::max(layers_.size(), static_cast<std::size_t>(scene->pool().count())));
  for (RowScratch& scratch : scratch_) {
    const std::size_t cells = static_cast<std::size_t>(rowCells_);
    scratch.distances.resize(cells), scratch.open.resize(cells);
    scratch.amounts.assign(RowValues(), 0.0);
  }
  if (!constraints.empty()) AskConstraints();
}

void ObjectGridEmitter::Process(ProcessData& data) {
  if (!IsActive() || data.threadIndex >= static_cast<std::int32_t>(layers_.size())) return;
  const LayerRange& layers = layers_[static_cast<std::size_t>(data.threadIndex)];
  for (std::size_t m = 0; m < members_.size(); ++m) {
    const VecInt3D end = CellsEnd(*members_[m]);
    const GridSpace& space = members_[m]->LevelSet()->space;
    for (std::int32_t k = 1; k < end.z; ++k) {
      if (data.hostThread && data.hostThread->TestBreak()) return;
      const bool reaches = std::any_of(sources_.begin(), sources_.end(), [&](const Source& source) {
        const LayerRange range = source.writer.LayersOf(CellCentre(space, 0, 0, k).z);
        return range.begin < layers.end && layers.begin < range.end;
      });
      for (std::int32_t j = 1; reaches && j < end.y; ++j) EmitRow(m, j, k, data.threadIndex, layers);
    }
  }
}

// What each source puts into the cells of a row, source after source; null when none of the volume is there.
const double* ObjectGridEmitter::FindAmounts(const VolumeBase& member, std::int32_t j, std::int32_t k,
                                             std::int32_t worker) {
  RowScratch& scratch = scratch_[static_cast<std::size_t>(worker)];
  const ScalarGrid& nodes = *member.LevelSet();
  const std::int32_t end = CellsEnd(member).x;
  if (!(MeanDistances(nodes, 1, end, j, k, scratch.distances.data()) <= 0)) return nullptr;
  for (std::size_t s = 0; s < sources_.size(); ++s) FindAmounts(member, s, j, k, worker);
  return scratch.amounts.data();
}

// Asks the constraints for all cells before the first one is written: one may read the very channel that is filled, and
// sees the same values at any number of workers.
void ObjectGridEmitter::AskConstraints() {
  WorkerPool& pool = scene->pool();
  for (const VolumeBase* member : members_) {
    const VecInt3D end = CellsEnd(*member);
    asked_.push_back(scene->scratch().Take<double>({static_cast<std::int32_t>(RowValues()), end.y, end.z}));
    Grid<double>& asked = *asked_.back();
    ParallelRange(pool, 1, end.z, [&](int first, int last, int worker) {
      for (std::int32_t k = first; k < last && !pool.Broken(); ++k) {
        for (std::int32_t j = 1; j < end.y; ++j) {
          const double* amounts = FindAmounts(*member, j, k, worker);
          double* row = asked.data + asked.Index(0, j, k);
          amounts ? std::copy_n(amounts, RowValues(), row) : std::fill_n(row, RowValues(), 0.0);
        }
      }
    });
  }
}

void ObjectGridEmitter::EmitRow(std::size_t m, std::int32_t j, std::int32_t k, std::int32_t worker,
                                const LayerRange& layers) {
  const VolumeBase& member = *members_[m];
  const double* amounts =
      constraints.empty() ? FindAmounts(member, j, k, worker) : asked_[m]->data + asked_[m]->Index(0, j, k);
  if (!amounts) return;
  const GridSpace& space = member.LevelSet()->space;
  const std::int32_t end = CellsEnd(member).x;
  // Cell by cell, and in a cell pair by pair: pairs may have one target.
  for (std::int32_t i = 1; i < end; ++i) {
    for (std::size_t s = 0; s < sources_.size(); ++s) {
      const double amount = amounts[s * static_cast<std::size_t>(rowCells_) + static_cast<std::size_t>(i)];
      if (amount == 0) continue;
      sources_[s].writer.Emit(sources_[s].settings->Value() * amount, CellCentre(space, i, j, k), layers);
    }
  }
}

// What a source's settings, constraints and falloff leave in each inner cell of the row.
void ObjectGridEmitter::FindAmounts(const VolumeBase& member, std::size_t index, std::int32_t j, std::int32_t k,
                                    std::int32_t worker) {
  RowScratch& scratch = scratch_[static_cast<std::size_t>(worker)];
  const Source& source = sources_[index];
  const GridSpace& space = member.LevelSet()->space;
  ConstraintRow row;
  row.begin = 1, row.end = CellsEnd(member).x, row.j = j, row.k = k;
  row.threadIndex = worker;
  row.space = &space;
  row.amounts = scratch.amounts.data() + index * static_cast<std::size_t>(rowCells_);
  row.open = scratch.open.data();
  bool contained = false, emitted = false;
  for (std::int32_t i = row.begin; i < row.end; ++i) {
    const bool inside = scratch.distances[static_cast<std::size_t>(i)] <= 0;
    const bool emits = inside && LatticeContainsPoint(*source.target, row.Position(i));
    contained |= emits;
    row.amounts[i] = emits ? source.amount : 0;
    row.open[i] = row.amounts[i] != 0 ? 1 : 0;
  }
  if (!contained) return;
  Reach(Progress::InContainer);
  if (!constraints.empty()) EvaluateChain(constraints, row, this);
  const bool needsDepth = source.settings->falloff != GridEmissionSettings::Falloff::None;
  for (std::int32_t i = row.begin; i < row.end; ++i) {
    if (row.amounts[i] == 0) continue;
    const double depth = needsDepth ? member.DepthWorld(row.Position(i)) : 0;
    row.amounts[i] *= source.settings->FalloffFactor(depth, source.weight);
    emitted |= row.amounts[i] != 0 && source.settings->Value() != 0;
  }
  if (emitted) Reach(Progress::Emitted);
}

// In this sub-step it was active and no cell of its volume lay in a container.
void ObjectGridEmitter::WarnOfPlace() {
  const bool fills = std::any_of(members_.begin(), members_.end(), [&](const VolumeBase* member) {
    return HasInsideCell(*member->LevelSet(), scene->pool());
  });
  if (fills) return WarnOutside("its channels");
  Warn("no-cell", "its volume fills no cell, so nothing is emitted; make it larger, or voxel_size smaller");
}

// What constraints leave of a volume isn't looked at.
void ObjectGridEmitter::TellOfObstacles() {
  if (lookedForObstacles_ || progress_.load() != Progress::Emitted || !constraints.empty()) return;
  lookedForObstacles_ = true;
  const auto stands = [](const VolumeBase* volume) {
    Vec3D min, max;
    return volume->StillBox(min, max);
  };
  // What moves leaves its place, or the gas it.
  std::vector<VolumeBase*> obstacles = CollectObstacles(*scene);
  std::erase_if(obstacles, [&](const VolumeBase* obstacle) { return !stands(obstacle); });
  if (obstacles.empty() || !std::all_of(members_.begin(), members_.end(), stands)) return;
  std::vector<Vec3D> places;
  std::vector<double> distances(static_cast<std::size_t>(rowCells_));
  for (const VolumeBase* member : members_) {
    const VecInt3D end = CellsEnd(*member);
    const double cells = double(end.x) * end.y * end.z;
    const auto step = std::max(kLookAtEach, static_cast<std::int32_t>(std::cbrt(cells / double(kMostPlaces))));
    for (std::int32_t k = 1; k < end.z; k += step) {
      for (std::int32_t j = 1; j < end.y; j += step) {
        MeanDistances(*member->LevelSet(), 1, end.x, j, k, distances.data());
        for (std::int32_t i = 1; i < end.x; i += step) {
          if (distances[static_cast<std::size_t>(i)] <= 0)
            places.push_back(CellCentre(member->LevelSet()->space, i, j, k));
        }
      }
    }
  }
  for (const VolumeBase* obstacle : obstacles) {
    const auto inside =
        std::count_if(places.begin(), places.end(), [&](const Vec3D& place) { return obstacle->InsideWorld(place); });
    if (places.empty() || static_cast<double>(inside) < kNearlyAll * static_cast<double>(places.size())) continue;
    Warn("in-obstacle", "its volume lies in the obstacle \"" + obstacle->DisplayName() +
                            "\", where nothing flows, so what it emits stays there; move one of them");
  }
}

void ObjectGridEmitter::Finish() {
  if (IsActive()) {
    TellOfObstacles();
    if (progress_.load() == Progress::Acting && !scene->TestBreak()) WarnOfPlace();
    for (Constraint* constraint : constraints) constraint->Finish();
  }
  SetFlag(NodeActive, false);
  weights_.clear();
  sources_.clear();
  members_.clear();
  layers_.clear();
  asked_.clear();
}

void ObjectGridEmitter::VisitOutputs(StateVisitor& visitor) {
  for (ChannelPair* pair : pairs) {
    if (pair->scalarTarget) visitor.VisitGrid("grid", pair->scalarTarget->grid);
  }
}

}  // namespace orlix
