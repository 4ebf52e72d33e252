#include "fluids/emitters/ObjectGridEmitter.h"

#include <algorithm>

namespace orlix {

namespace {

constexpr std::int32_t kPriority = 10, kPairsId = 1000, kVolumeId = 1002, kPairSubType = 90;
constexpr std::int32_t kParticleToGridSubType = 8;

constexpr Parameter kParameters[] = {
    LinkParameter(kVolumeId, "volume", kLinkVolume, "Volume that is filled"),
    ListParameter(kPairsId, "pairs", kLinkSettings, "Channels with their settings, in this order"),
    ButtonParameter(1003, "add_volume", "Picks a volume and links it"),
    ButtonParameter(1005, "add_pair", "Picks a channel and adds a pair"),
    ButtonParameter(1100, "add_smoke", "Adds a pair with settings"),
    ButtonParameter(1101, "add_loop", "Adds a pair with settings and a looping duration"),
    ButtonParameter(1102, "add_pressure", "Adds an emitter of pressure in this volume"),
};

// Layers of a channel that a worker owns: whole layers, the same division for every emitter.
OwnedLayers LayersOf(const ScalarGrid& grid, int worker, int workers) {
  return {static_cast<std::int32_t>(std::int64_t(grid.dims.z) * worker / workers),
          static_cast<std::int32_t>(std::int64_t(grid.dims.z) * (worker + 1) / workers)};
}

double CellMean(const ScalarGrid& phi, int i, int j, int k) {
  const double* p = &phi(i, j, k);
  const std::int64_t nx = phi.dims.x, slab = phi.slab;
  const double sum = p[0] + p[1] + p[nx] + p[nx + 1] + p[slab] + p[slab + 1] + p[slab + nx] + p[slab + nx + 1];
  return sum * 0.125;
}

// Whether a write at height z (simulation space) may touch the owned layers.
bool Touches(const ScalarGrid& grid, const OwnedLayers& owned, double z) {
  const double layer = (z - grid.space.simMin.z) * grid.space.voxelsPerSim.z;
  return layer > owned.begin - 2 && layer < owned.end + 2;
}

}  // namespace

const TypeInfo& ObjectGridEmitter::Type() {
  static const TypeInfo kType = [] {
    TypeInfo type;
    type.id = 1300005;
    type.resource = "zq_gridemitter";
    type.className = "C4D_GridEmitter_Object";
    type.label = "Grid Emitter";
    type.text = "Fills channels inside a volume: smoke, heat, fuel, or pressure when a pair names a solver.";
    type.kinds = kLinkEmitter;
    type.parameters = kParameters;
    type.common = CommonNodeParameters();
    return type;
  }();
  return kType;
}

bool ObjectGridEmitter::ReadParameters() {
  priority = kPriority;
  stageMask = StageBit(5);
  return iObject::ReadParameters();
}

bool ObjectGridEmitter::ResolveLinks() {
  volume = nullptr;
  pairs_.clear();
  constraints_.clear();
  if (!iObject::ResolveLinks()) return false;
  volume = scene->RetrieveAs<iVolume>(handler.GetLink(kVolumeId), NODE_VOLUME, RETRIEVE_VOLUME);
  std::vector<iBase*> found;
  const InExcludeData* list = handler.GetInExclude(kPairsId);
  if (list) scene->RetrieveAll(list, found, NODE_SETTINGS, RETRIEVE_ANY, kPairSubType, RETRIEVE_ANY, true);
  for (iBase* node : found) {
    if (auto* pair = dynamic_cast<ChannelPair*>(node)) pairs_.push_back(pair);
  }
  constraints_ = RetrieveConstraints(*scene, handler);
  return volume && !pairs_.empty();
}

void ObjectGridEmitter::ReleaseLinks() {
  ObjectVolume::ReleaseLinks();
  pairs_.clear();
  constraints_.clear();
  members_.clear();
  targets_.clear();
}

void ObjectGridEmitter::CheckDirty() {
  iObject::CheckDirty();
  if (IsDirty() || (volume && volume->IsDirty()) || scene->HasFlag(TimeMoved)) {
    MarkDirty(false);
    for (ChannelPair* pair : pairs_) {
      if (pair->scalarTarget) pair->scalarTarget->MarkDirty(false);
    }
    return;
  }
  for (const ChannelPair* pair : pairs_) {
    const auto* settings = dynamic_cast<const GridEmissionSettings*>(pair->settings);
    const bool dirty = (settings && (settings->IsDirty() || (settings->duration && settings->duration->IsDirty()))) ||
                       (pair->scalarTarget && pair->scalarTarget->IsDirty());
    if (!dirty) continue;
    MarkDirty(false);
    return;
  }
}

bool ObjectGridEmitter::ComesBefore(const iBase& other) const {
  if (other.HasRetrieveType(RETRIEVE_PARTICLE) || other.GetNodeSubType() == kParticleToGridSubType) return false;
  return iObject::ComesBefore(other);
}

void ObjectGridEmitter::ExtendBounds(Vec3D& min, Vec3D& max) {
  if (!volume) return;
  std::vector<VolumeBase*> members;
  volume->AppendVolumes(members);
  if (!members.empty() && members.front()->HasLevelSet()) volume->ExtendBounds(min, max);
}

void ObjectGridEmitter::Prepare(iBase*) {
  if (!IsDirty()) return;
  SetFlag(NodeActive, false);
  members_.clear();
  if (!volume || pairs_.empty()) return;
  volume->AppendVolumes(members_);
  if (members_.empty() || !members_.front()->HasLevelSet()) return;
  weights_.assign(pairs_.size(), 1.0);
  bool anyActive = false;
  for (std::size_t n = 0; n < pairs_.size(); ++n) {
    const auto* settings = dynamic_cast<const GridEmissionSettings*>(pairs_[n]->settings);
    if (!settings) continue;
    if (settings->duration && settings->duration->IsEnabled()) {
      if (!settings->duration->IsActive(simulationInfo->time, weights_[n])) weights_[n] = 0;
    }
    anyActive |= weights_[n] != 0;
  }
  if (!anyActive) return;
  for (Constraint* constraint : constraints_) constraint->Prepare(this);
  SetFlag(NodeActive, true);
}

void ObjectGridEmitter::Setup() {
  targets_.clear();
  workers_ = std::clamp(scene->threadCount, 1, WorkerPool::kMaxWorkers);
  if (!IsActive()) return;
  for (std::size_t n = 0; n < pairs_.size(); ++n) {
    const auto* settings = dynamic_cast<const GridEmissionSettings*>(pairs_[n]->settings);
    ChannelBase_Scalar* channel = pairs_[n]->scalarTarget;
    if (!settings || !channel || !channel->grid || weights_[n] == 0) continue;
    Target target;
    target.channel = channel;
    target.rule = settings->Rule();
    target.falloff = settings->falloff;
    target.curve = settings->curve;
    target.weight = weights_[n];
    target.amount = settings->perStep ? 1.0 : simulationInfo->substepDuration;
    target.value = settings->ScalarAmount();
    targets_.push_back(target);
  }
}

void ObjectGridEmitter::EmitCell(const VolumeBase& member, const Vec3D& point, const OwnedLayers* owned,
                                 int threadIndex) const {
  for (std::size_t n = 0; n < targets_.size(); ++n) {
    const Target& target = targets_[n];
    if (!Touches(*target.channel->grid, owned[n], point.z) || !target.channel->ContainsPoint(point)) continue;
    double amount = target.amount;
    if (!constraints_.empty()) EvaluateChain(constraints_, point, amount, this, threadIndex);
    if (amount == 0) continue;
    switch (target.falloff) {
      case EmissionFalloff::None:
        amount *= target.weight;
        break;
      case EmissionFalloff::Depth:
        amount *= member.DepthWorld(point) * target.weight;
        break;
      case EmissionFalloff::DepthCurve:
        if (target.curve) {
          amount *= target.curve->ValueAt(static_cast<float>(member.DepthWorld(point))) * target.weight;
        }
        break;
    }
    if (amount != 0) Emit(*target.channel, target.value * amount, point, target.rule, owned[n]);
  }
}

// Every worker walks the volume's cells in the same order and writes into the layers of the channels that it owns.
void ObjectGridEmitter::Process(ProcessData& data) {
  if (!IsActive() || targets_.empty() || data.threadIndex >= workers_) return;
  std::vector<OwnedLayers> owned;
  for (const Target& target : targets_) owned.push_back(LayersOf(*target.channel->grid, data.threadIndex, workers_));
  for (const VolumeBase* member : members_) {
    const ScalarGrid* phi = member->LevelSet();
    if (!phi) continue;
    const GridSpace& space = phi->space;
    for (int k = 1; k < phi->dims.z - 2; ++k) {
      if (data.hostThread && data.hostThread->TestBreak()) return;
      const double z = (k + 0.5) * space.simPerVoxel.z + space.simMin.z;
      bool touches = false;
      for (std::size_t n = 0; n < targets_.size(); ++n) touches |= Touches(*targets_[n].channel->grid, owned[n], z);
      if (!touches) continue;
      for (int j = 1; j < phi->dims.y - 2; ++j) {
        for (int i = 1; i < phi->dims.x - 2; ++i) {
          if (CellMean(*phi, i, j, k) > 0) continue;
          EmitCell(*member, space.SimOfVoxel({i + 0.5, j + 0.5, k + 0.5}), owned.data(), data.threadIndex);
        }
      }
    }
  }
}

void ObjectGridEmitter::Finish() {
  SetFlag(NodeActive, false);
  weights_.clear();
  for (Constraint* constraint : constraints_) constraint->Finish();
}

void ObjectGridEmitter::VisitOutputs(StateVisitor& visitor) {
  for (const Target& target : targets_) visitor.VisitGrid(target.channel->DisplayName().c_str(), target.channel->grid);
}

}  // namespace orlix
