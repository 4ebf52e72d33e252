#include "fluids/emitters/ObjectGridEmitter.h"

#include <algorithm>
#include <limits>

#include "fluids/volumes/VolumeBase.h"

namespace orlix {

namespace {

constexpr std::int32_t kPriority = 10;
constexpr std::int32_t kPairSubType = 90, kParticleToGridSubType = 8;

// Marks the cells of a row whose level set, as the mean of their eight corners, isn't above 0. False when none is.
bool MarkInside(const GridView<const double>& nodes, std::int32_t begin, std::int32_t end, std::int32_t j,
                std::int32_t k, std::uint8_t* inside) {
  const double* p = nodes.data + nodes.Index(0, j, k);
  const double *q = p + nodes.dims.x, *r = p + nodes.slab, *s = q + nodes.slab;
  std::uint8_t any = 0;
  for (std::int32_t i = begin; i < end; ++i) {
    const double sum = p[i] + p[i + 1] + q[i] + q[i + 1] + r[i] + r[i + 1] + s[i] + s[i + 1];
    inside[i] = sum * 0.125 <= 0 ? 1 : 0;
    any |= inside[i];
  }
  return any != 0;
}

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
      .label = "Grid Emitter",
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
  for (Constraint* constraint : constraints) constraint->Prepare(this);
  SetFlag(NodeActive, true);
}

// False when no pair is active.
bool ObjectGridEmitter::PrepareSources() {
  weights_.assign(pairs.size(), 1.0);
  sources_.clear();
  bool active = false;
  for (std::size_t p = 0; p < pairs.size(); ++p) {
    const auto* settings = dynamic_cast<const GridEmissionSettings*>(pairs[p]->settings);
    if (!settings) continue;
    const Duration* duration = settings->duration && settings->duration->IsEnabled() ? settings->duration : nullptr;
    const bool on = !duration || duration->IsActive(simulationInfo->time, weights_[p]);
    if (!on) weights_[p] = 0;
    active |= on;
    const ChannelBase_Scalar* target = pairs[p]->scalarTarget;
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
  // A constraint may read the very channel that is filled: then one worker does it all, in the volume's order.
  const int workers = constraints.empty() ? std::clamp(scene->threadCount, 1, WorkerPool::kMaxWorkers) : 1;
  const int pieces = std::min(workers, high - low);
  for (int w = 0; w < pieces; ++w) {
    const std::int64_t span = high - low;
    layers_.push_back(
        {low + static_cast<std::int32_t>(span * w / pieces), low + static_cast<std::int32_t>(span * (w + 1) / pieces)});
  }
  layers_.front().begin = std::numeric_limits<std::int32_t>::min();
  layers_.back().end = std::numeric_limits<std::int32_t>::max();
  scratch_.resize(layers_.size());
  for (RowScratch& scratch : scratch_) {
    const std::size_t cells = static_cast<std::size_t>(rowCells_);
    scratch.inside.resize(cells), scratch.open.resize(cells);
    scratch.amounts.resize(cells * sources_.size());
  }
}

void ObjectGridEmitter::Process(ProcessData& data) {
  if (!IsActive() || data.threadIndex >= static_cast<std::int32_t>(layers_.size())) return;
  const LayerRange& layers = layers_[static_cast<std::size_t>(data.threadIndex)];
  for (const VolumeBase* member : members_) {
    const VecInt3D end = CellsEnd(*member);
    const GridSpace& space = member->LevelSet()->space;
    for (std::int32_t k = 1; k < end.z; ++k) {
      if (data.hostThread && data.hostThread->TestBreak()) return;
      const bool reaches = std::any_of(sources_.begin(), sources_.end(), [&](const Source& source) {
        const LayerRange range = source.writer.LayersOf(CellCentre(space, 0, 0, k).z);
        return range.begin < layers.end && layers.begin < range.end;
      });
      for (std::int32_t j = 1; reaches && j < end.y; ++j) EmitRow(*member, j, k, data.threadIndex, layers);
    }
  }
}

void ObjectGridEmitter::EmitRow(const VolumeBase& member, std::int32_t j, std::int32_t k, std::int32_t worker,
                                const LayerRange& layers) {
  RowScratch& scratch = scratch_[static_cast<std::size_t>(worker)];
  const ScalarGrid& nodes = *member.LevelSet();
  const std::int32_t end = CellsEnd(member).x;
  if (!MarkInside(nodes, 1, end, j, k, scratch.inside.data())) return;
  for (std::size_t s = 0; s < sources_.size(); ++s) FindAmounts(member, s, j, k, worker);
  // Cell by cell, and in a cell pair by pair: pairs may have one target.
  for (std::int32_t i = 1; i < end; ++i) {
    if (!scratch.inside[static_cast<std::size_t>(i)]) continue;
    const Vec3D point = CellCentre(nodes.space, i, j, k);
    for (std::size_t s = 0; s < sources_.size(); ++s) {
      const double amount = scratch.amounts[s * static_cast<std::size_t>(rowCells_) + static_cast<std::size_t>(i)];
      if (amount != 0) sources_[s].writer.Emit(sources_[s].settings->Value() * amount, point, layers);
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
  for (std::int32_t i = row.begin; i < row.end; ++i) {
    const bool emits =
        scratch.inside[static_cast<std::size_t>(i)] && LatticeContainsPoint(*source.target, row.Position(i));
    row.amounts[i] = emits ? source.amount : 0;
    row.open[i] = emits && source.amount != 0 ? 1 : 0;
  }
  if (!constraints.empty()) EvaluateChain(constraints, row, this);
  const bool needsDepth = source.settings->falloff != GridEmissionSettings::Falloff::None;
  for (std::int32_t i = row.begin; i < row.end; ++i) {
    if (row.amounts[i] == 0) continue;
    const double depth = needsDepth ? member.DepthWorld(row.Position(i)) : 0;
    row.amounts[i] *= source.settings->FalloffFactor(depth, source.weight);
  }
}

void ObjectGridEmitter::Finish() {
  if (IsActive()) {
    for (Constraint* constraint : constraints) constraint->Finish();
  }
  SetFlag(NodeActive, false);
  weights_.clear();
  sources_.clear();
  members_.clear();
  layers_.clear();
}

void ObjectGridEmitter::VisitOutputs(StateVisitor& visitor) {
  for (ChannelPair* pair : pairs) {
    if (pair->scalarTarget) visitor.VisitGrid("grid", pair->scalarTarget->grid);
  }
}

}  // namespace orlix
