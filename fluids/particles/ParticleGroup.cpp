#include "fluids/particles/ParticleGroup.h"

#include <algorithm>
#include <iterator>

#include "fluids/particles/DiffuseClass.h"

namespace orlix {

namespace {

constexpr std::int32_t kSheetSubType = 95;      // inserts liquid whose links go by order
constexpr std::int32_t kAdvectionSubType = 98;  // moves particles

void CountClasses(const ParticleList& list, ParticleReport& report) {
  std::int64_t counts[kDiffuseClasses] = {};
  list.ForEachChunk(0, list.count(), [&](const ParticleRows& rows) {
    for (std::int32_t r = rows.begin; r < rows.end; ++r) ++counts[static_cast<int>(ClassOfFlags(rows.flags()[r]))];
  });
  report.bubbles = counts[0], report.foam = counts[1], report.spray = counts[2];
}

}  // namespace

const TypeInfo& ParticleGroup::Type() {
  static const TypeInfo kType = {
      .id = 1300036,
      .resource = "zq_particlegroup",
      .className = "C4D_ParticleGroup_Object",
      .label = "Particle Group",
      .text =
          "Holds particles of four kinds: passive ones, vorticity that swirls a gas, liquid, and diffuse matter such "
          "as foam or dust. Emitters fill it and operators move it. An entry of a list of groups says which kind it "
          "means.",
      .kinds = kLinkParticles,
      .common = PlainNodeParameters(),
  };
  return kType;
}

bool ParticleGroup::ReadParameters() {
  if (!iObject::ReadParameters()) return false;
  StartStep();
  return true;
}

// A group that isn't active holds nothing.
void ParticleGroup::StartStep() {
  if (!IsActive()) {
    for (ParticleFactory& each : factories_) each.SetListCount(0);
    return;
  }
  if (factories_[0].listCount() > 0) return;
  for (ParticleFactory& each : factories_) each.SetListCount(1);
  ResetKinds();
}

void ParticleGroup::ResetKinds() {
  for (std::int32_t kind = 0; kind < kParticleKinds; ++kind) {
    if (!KindIsKept(kind)) factories_[kind].Reset(GetSimulationSpace());
    SetKindDirty(kind);
  }
}

void ParticleGroup::CheckDirty() {
  iObject::CheckDirty();
  if (IsEnabled() && scene->HasFlag(TimeMoved)) MarkDirty(false);
}

bool ParticleGroup::ResetWhenDirty() const {
  const FrameClock& clock = scene->clock;
  return clock.lastFrame > clock.startFrame || (clock.frame <= clock.startFrame && simulationInfo->time == 0);
}

void ParticleGroup::ResetSimulation() {
  ResetKinds();
  for (auto& tree : trees_) tree.reset();
}

void ParticleGroup::ExtendBounds(Vec3D& min, Vec3D& max) {
  for (const ParticleFactory& each : factories_) {
    min = Min(min, each.bounds.min);
    max = Max(max, each.bounds.max);
  }
}

void ParticleGroup::UpdateBounds() {
  for (ParticleFactory& each : factories_) each.UpdateBounds(scene->pool());
}

void ParticleGroup::AfterStep() { UpdateBounds(); }

void ParticleGroup::Conclude() {
  if (kept_ != 0) return;
  if (std::none_of(std::begin(factories_), std::end(factories_),
                   [](const ParticleFactory& each) { return each.list() && each.list()->everHeld(); })) {
    return Warn("no-particles", "it held no particle in the whole run; link it under \"group\" of an emitter");
  }
  // Without a solver and a force they are meant to stand still, as the points of a surface.
  bool moved = false, pushed = false;
  scene->ForEachNode(NODE_OPERATOR, NODE_FORCE, [&](const iBase& node) {
    moved |= node.IsEnabled() && node.GetNodeSubType() == kAdvectionSubType;
    pushed |= node.GetNodeBaseType() == NODE_SOLVER || node.GetNodeBaseType() == NODE_FORCE;
  });
  if (!moved && pushed) Warn("no-advection", "nothing moves its particles, nor do they age; add a particle_advection");
}

void ParticleGroup::RemoveDeadAll() {
  for (std::int32_t kind = 0; kind < kParticleKinds; ++kind) {
    if (Count(kind) == 0) continue;
    const bool keepOrder = kind == PK_Liquid && CountNodes(NODE_OPERATOR, kSheetSubType) > 0;
    if (factories_[kind].RemoveDead(keepOrder) > 0) SetKindDirty(kind);
  }
}

void ParticleGroup::Clear(bool alsoBase) {
  for (std::int32_t kind = 0; kind < kParticleKinds; ++kind) {
    factories_[kind].Reset(factories_[kind].frame);
    trees_[kind].reset();
    SetKindDirty(kind);
  }
  if (alsoBase) iObject::ResetSimulation();
}

std::int32_t ParticleGroup::CountNodes(std::int32_t list, std::int32_t subType) const {
  std::int32_t count = 0;
  scene->ForEachNode(list >= NODE_ALL ? NODE_CHANNEL : list, list >= NODE_ALL ? NODE_HELPER : list,
                     [&](const iBase& node) {
                       count += node.IsEnabled() && node.IsActive() && node.GetNodeSubType() == subType ? 1 : 0;
                     });
  return count;
}

std::int32_t ParticleGroup::CountAll() const {
  std::int32_t count = 0;
  for (const ParticleFactory& each : factories_) count += each.Count();
  return count;
}

// --- neighbours ------------------------------------------------------------------------------------------------------

bool ParticleGroup::EnsureTree(std::int32_t kind, bool force, std::int32_t k) {
  std::unique_ptr<ParticleKdTree>& tree = trees_[kind];
  const std::int32_t capacity = k > 0 ? k : ParticleKdTree::kDefaultNeighbours;
  if (Count(kind) == 0) {
    tree.reset();
    return false;
  }
  if (force || !tree || KindIsDirty(kind)) {
    if (!tree) tree = std::make_unique<ParticleKdTree>();
    tree->Build(*list(kind), scene->pool());
    tree->SetCapacity(capacity);
    dirty_.fetch_and(static_cast<std::uint8_t>(~Bit(kind)), std::memory_order_relaxed);
  } else if (capacity > tree->capacity()) {
    tree->SetCapacity(capacity);
  }
  return true;
}

std::span<const Neighbour> ParticleGroup::Nearest(std::int32_t kind, const Vec3D& position, double radius,
                                                  std::int32_t thread) const {
  const ParticleKdTree* tree = Tree(kind);
  return tree ? tree->Search(position, radius * radius, thread) : std::span<const Neighbour>();
}

// --- state and reports -----------------------------------------------------------------------------------------------

void ParticleGroup::VisitState(StateVisitor& visitor) {
  visitor.Visit("kept", kept_);
  for (std::int32_t kind = 0; kind < kParticleKinds; ++kind) {
    visitor.Begin(kParticleKindLabels[kind]);
    factories_[kind].VisitState(visitor);
    visitor.End();
    if (visitor.Reading()) trees_[kind].reset(), SetKindDirty(kind);
  }
}

void ParticleGroup::VisitOutputs(StateVisitor& visitor) {
  for (ParticleFactory& each : factories_) each.VisitNumbers(visitor);
}

std::int64_t ParticleGroup::DerivedBytes() const {
  std::int64_t bytes = 0;
  for (const auto& tree : trees_) bytes += tree ? tree->Bytes() : 0;
  return bytes;
}

MemoryNeed ParticleGroup::MemoryFor(const VecInt3D&) const {
  double bytes = 0;
  for (const ParticleFactory& each : factories_) bytes += static_cast<double>(each.Bytes());
  return {.kept = bytes};
}

void ParticleGroup::AddToReport(SubstepReport& report) {
  ParticleReport own;
  own.group = DisplayName();
  for (std::int32_t kind = 0; kind < kParticleKinds; ++kind) {
    const ParticleTally tally = factories_[kind].TakeTally();
    own.counts[kind] = Count(kind);
    own.born += tally.born, own.died += tally.died, own.lost += tally.lost;
    if (kind == PK_Liquid) own.lostLiquid = tally.lost;
    own.bytes += factories_[kind].Bytes();
    report.particles += Count(kind);
  }
  if (const ParticleList* diffuse = list(PK_Diffuse)) CountClasses(*diffuse, own);
  report.groups.push_back(std::move(own));
}

}  // namespace orlix
