#include "fluids/particle_operators/ParticleSheet.h"

#include <algorithm>
#include <bit>
#include <numeric>

#include "globals/Hash.h"
#include "host/objects/HasTrack.h"

namespace orlix {

namespace {

constexpr float kGivenShare = 1.0f / 3;
constexpr std::uint64_t kThinning = 7, kCollapsing = 8;

}  // namespace

const TypeInfo& ParticleSheet::Type() {
  static constexpr Parameter kParameters[] = {
      LinkParameter(kGroupId, "group", kLinkParticles, "Particle group; required"),
      ChoiceParameter(kKindId, "kind", PK_Liquid, kParticleKindChoices, "Kind of the particles"),
      FloatParameter(kRadiusId, "radius", 4, "half cells", "How far neighbours count").Between(0, 32),
      FloatParameter(kThinLimitId, "thin_limit", 0.05, "",
                     "Below this flatness (0 a sheet, 1 round) gaps are filled, above it new particles may go")
          .Between(0, 1)
          .Fallback(0.2),
      FloatParameter(kMinimumGapId, "minimum_gap", 0.8, "half cells", "Particles nearer than this leave no gap")
          .Between(0, 32),
      FloatParameter(kMaximumGapId, "maximum_gap", 3.5, "half cells", "Gaps wider than this are left alone")
          .Between(0, 32),
      FloatParameter(kChainRadiusId, "chain_radius", 2, "half cells",
                     "How far from a new particle the next one is looked for")
          .Between(0, 32)
          .Fallback(0.8),
      FloatParameter(kMinimumDensityId, "minimum_density", 0.05, "", "Particles of a lower density open no gap")
          .Fallback(0.2),
      FloatParameter(kInteriorDensityId, "interior_density", 0.7, "", "Particles of a higher density are no sheet"),
      FloatParameter(kCrowdedDensityId, "crowded_density", 0.2, "", "Above this density new particles may go again"),
      FloatParameter(kCollapseRadiusId, "collapse_radius", 0.2, "half cells",
                     "New particles with others nearer than this may go")
          .Between(0, 32),
      BoolParameter(kComputeAnisotropyId, "compute_anisotropy", true,
                    "Finds how flat particles lie; otherwise what they carry counts")
          .Fallback(0.0),
      BoolParameter(kSeparatingOnlyId, "separating_only", true, "Only particles that move apart open a gap"),
  };
  static const TypeInfo kType = {
      .id = 1300064,
      .resource = "zq_psheet",
      .className = "C4D_ParticleSheet_Object",
      .label = "POP::Thin Sheet",
      .text =
          "Keeps thin sheets of liquid whole: fills the gaps that open where particles lie flat and move apart. It "
          "goes "
          "by their density (POP::Volume Properties).",
      .kinds = kLinkOperator,
      .parameters = kParameters,
      .common = CommonNodeParameters(),
  };
  return kType;
}

bool ParticleSheet::ReadParameters() {
  if (!ParticleOperator::ReadParameters()) return false;
  const double half = GetSimulationSpace().halfCell;
  radius_ = handler.GetDouble(kRadiusId) * half;
  thinLimit_ = handler.GetDouble(kThinLimitId);
  minimumGap_ = handler.GetDouble(kMinimumGapId) * half;
  maximumGap_ = handler.GetDouble(kMaximumGapId) * half;
  chainRadius_ = handler.GetDouble(kChainRadiusId) * half;
  minimumDensity_ = handler.GetDouble(kMinimumDensityId);
  interiorDensity_ = handler.GetDouble(kInteriorDensityId);
  crowdedDensity_ = handler.GetDouble(kCrowdedDensityId);
  collapseRadius_ = handler.GetDouble(kCollapseRadiusId) * half;
  computeAnisotropy_ = handler.GetBool(kComputeAnisotropyId);
  separatingOnly_ = handler.GetBool(kSeparatingOnlyId);
  kind_ = KindOrLiquid(handler.GetChoice(kKindId));
  return true;
}

bool ParticleSheet::ResolveLinks() {
  if (!ParticleOperator::ResolveLinks()) return false;
  group_ = LinkedGroup(kGroupId);
  return group_ != nullptr;
}

void ParticleSheet::ReleaseLinks() {
  group_ = nullptr;
  ParticleOperator::ReleaseLinks();
}

void ParticleSheet::Advise() {
  if (!group_) Warn("no-group", "no particle group is linked: no sheet is kept whole; link one under group");
  if (!(radius_ > 0) && !HasTrack(*handler.hostObject(), kRadiusId))
    Warn("no-radius", "it looks at no neighbours, so no sheet is kept whole; set \"radius\"");
  if (!constraints_.empty() && !computeAnisotropy_) {
    Warn("constraints-unused", "its constraints count only where it computes the anisotropy; turn that on");
  }
}

void ParticleSheet::Prepare(iBase*) {
  SetFlag(NodeActive, false);
  if (!group_ || group_->KindIsKept(kind_) || !(simulationInfo->substepDuration > 0) || !(radius_ > 0)) return;
  if (!group_->EnsureTree(kind_, true, 0)) return;
  PrepareConstraints();
  SetFlag(NodeActive, true);
}

void ParticleSheet::Process(ProcessData&) {
  if (!IsActive()) return;
  ParticleList& list = *group_->list(kind_);
  TellWithoutDensity(list);
  SetUp(list);
  if (computeAnisotropy_) ComputeAnisotropies(list);
  const std::vector<Candidate> candidates = FindGaps(list);
  if (!candidates.empty()) {
    Insert(list, candidates);
    group_->SetKindDirty(kind_);
    group_->EnsureTree(kind_, false, 0);
  }
  if (KillCrowded(list) && list.RemoveDead(true) > 0) group_->SetKindDirty(kind_);
  SumMasses(list);
}

// Before every particle gets one, which is that of the inside.
void ParticleSheet::TellWithoutDensity(const ParticleList& list) const {
  if (interiorDensity_ >= 1 || !computeAnisotropy_) return;
  for (std::int32_t chunk = 0; chunk < list.chunkCount(); ++chunk) {
    if (list.Rows(chunk).Property<double>(PP::Density)) return;
  }
  Warn("no-density",
       "no particle carries a density: all count as interior ones and no gap is filled; add POP::Volume Properties "
       "before this node");
}

// Gives every particle what it lacks.
void ParticleSheet::SetUp(ParticleList& list) {
  for (std::int32_t i = 0; i < list.count(); ++i) {
    if (!list.Links(i).empty()) continue;
    list.SetLinks(i, {{static_cast<float>(OrlixParticle(&list, i).GetRealOr(PP::Mass, 1)), list.Id(i)}});
  }
  ForRows(list, [&](const ParticleRows& rows, int) {
    const auto give = [&](PP::Id id, const auto& value, std::int32_t r) {
      const auto view = rows.NeedProperty<std::decay_t<decltype(value)>>(id);
      if (!view.Has(r)) view.Put(r, value);
    };
    for (std::int32_t r = rows.begin; r < rows.end; ++r) {
      give(PP::Density, 1.0, r);
      give(PP::Mass, 1.0, r);
      give(PP::SmoothedCentre, rows.positions()[r], r);
      if (!computeAnisotropy_ && rows.Property<double>(PP::Anisotropy).Has(r)) continue;
      give(PP::Anisotropy, 0.0, r);
      give(PP::StretchRow0, Vec3D(1, 0, 0), r);
      give(PP::StretchRow1, Vec3D(0, 1, 0), r);
      give(PP::StretchRow2, Vec3D(0, 0, 1), r);
      give(PP::Stretches, Vec3D(1, 1, 1), r);
    }
  });
}

void ParticleSheet::ComputeAnisotropies(ParticleList& list) {
  ForRows(list, [&](const ParticleRows& rows, int worker) {
    double weights[kChunkRows];
    std::uint8_t open[kChunkRows];
    const std::int32_t count = rows.end - rows.begin, first = rows.first + rows.begin;
    const auto density = rows.Property<double>(PP::Density);
    for (std::int32_t n = 0; n < count; ++n) weights[n] = density.Get(rows.begin + n, 0), open[n] = 1;
    EvaluateChain(constraints_, ParticleRun{&list, first, count, worker, rows.positions() + rows.begin, weights, open},
                  this);
    for (std::int32_t n = 0; n < count; ++n) {
      const std::int32_t r = rows.begin + n;
      rows.TagFlags()[r] = static_cast<std::uint16_t>(rows.flags()[r] & ~ParticleFlag::Excluded);
      SheetAnisotropy anisotropy;
      if (!(weights[n] > interiorDensity_)) {
        anisotropy = SheetAnisotropyAt(list, group_->Nearest(kind_, rows.positions()[r], radius_, worker), radius_);
      }
      WriteAnisotropy(rows, r, anisotropy);
    }
  });
}

// In the order of the parents, whatever the number of workers.
std::vector<ParticleSheet::Candidate> ParticleSheet::FindGaps(const ParticleList& list) const {
  std::vector<std::vector<Candidate>> found(WorkerPool::kMaxWorkers);
  ForRows(list, [&](const ParticleRows& rows, int worker) {
    const auto density = rows.Property<double>(PP::Density), flatness = rows.Property<double>(PP::Anisotropy);
    std::vector<Neighbour> near;
    for (std::int32_t r = rows.begin; r < rows.end; ++r) {
      if (density.Get(r, 0) < minimumDensity_ || !(flatness.Get(r, 1) < thinLimit_)) continue;
      AddGapsOf(list, rows.first + r, worker, near, found[std::size_t(worker)]);
    }
  });
  std::vector<Candidate> all;
  for (const auto& part : found) all.insert(all.end(), part.begin(), part.end());
  return all;
}

void ParticleSheet::AddGapsOf(const ParticleList& list, std::int32_t a, std::int32_t worker,
                              std::vector<Neighbour>& near, std::vector<Candidate>& found) const {
  const Vec3D& x = list.Position(a);
  const auto neighbours = group_->Nearest(kind_, x, maximumGap_, worker);
  near.assign(neighbours.begin(), neighbours.end());
  for (const Neighbour& n : near) {
    if (n.index == a || !(n.distance > minimumGap_)) continue;
    const Vec3D apart = list.Position(n.index) - x;
    if (separatingOnly_ && !(Dot(list.Velocity(n.index) - list.Velocity(a), apart) > 0)) continue;
    Candidate candidate;
    candidate.place = (x + list.Position(n.index)) * 0.5, candidate.a = a, candidate.b = n.index;
    if (group_->NearestDistance(kind_, candidate.place, minimumGap_, worker) < kNowhere) continue;
    candidate.anisotropy =
        SheetAnisotropyAt(list, group_->Nearest(kind_, candidate.place, radius_ / 2, worker), radius_ / 2);
    for (const Neighbour& other : group_->Nearest(kind_, candidate.place, radius_, worker)) {
      candidate.crowd += std::max(0.0, 1 - other.distanceSquared / (radius_ * radius_));
    }
    found.push_back(candidate);
  }
}

// Chooses places that keep the least gap from one another: the emptiest first, then the nearest of those that are left
// within the chain's radius of the last, as long as there is one.
void ParticleSheet::Insert(ParticleList& list, std::span<const Candidate> candidates) {
  std::vector<Vec3D> places;
  for (const Candidate& each : candidates) places.push_back(each.place);
  ParticleKdTree tree;
  tree.Build(places, scene->pool());
  tree.SetCapacity(static_cast<std::int32_t>(candidates.size()));
  std::vector<std::uint32_t> emptiest(candidates.size());
  std::iota(emptiest.begin(), emptiest.end(), 0u);
  std::stable_sort(emptiest.begin(), emptiest.end(),
                   [&](std::uint32_t a, std::uint32_t b) { return candidates[a].crowd < candidates[b].crowd; });
  std::vector<std::uint8_t> open(candidates.size(), 1);
  const double reach = std::max(chainRadius_, minimumGap_);
  for (const std::uint32_t first : emptiest) {
    if (!open[first]) continue;
    for (auto next = static_cast<std::int32_t>(first); next >= 0;) {
      const Candidate& chosen = candidates[std::size_t(next)];
      open[std::size_t(next)] = 0;
      Add(list, chosen);
      next = -1;
      for (const Neighbour& n : tree.Search(chosen.place, reach * reach, 0)) {
        const auto at = std::size_t(n.index);
        if (!open[at]) continue;
        if (n.distance < minimumGap_) {
          open[at] = 0;
        } else if (next < 0 && n.distance < chainRadius_) {
          next = n.index;
        }
      }
    }
  }
}

void ParticleSheet::Add(ParticleList& list, const Candidate& candidate) {
  const OrlixParticle a(&list, candidate.a), b(&list, candidate.b);
  BaseParticleData data = a.Copy();
  data.flags |= ParticleFlag::Alive | ParticleFlag::Inserted;
  data.position = candidate.place;
  data.velocity = (a.GetVelocity() + b.GetVelocity()) * 0.5;
  for (PropertyEntry<double>& entry : data.reals)
    entry.value = (entry.value + b.GetRealOr(entry.key, entry.value)) * 0.5;
  for (PropertyEntry<Vec3D>& entry : data.vectors) {
    entry.value = (entry.value + b.GetVectorOr(entry.key, entry.value)) * 0.5;
  }
  const std::int32_t index = list.Append(1, data);
  list.ForEachChunk(index, index + 1,
                    [&](const ParticleRows& rows) { WriteAnisotropy(rows, rows.begin, candidate.anisotropy); });
  std::vector<ParticleLink> own{{0, a.id()}, {0, b.id()}};
  for (const std::int32_t parent : {candidate.a, candidate.b}) {
    const auto links = list.Links(parent);
    std::vector<ParticleLink> kept(links.begin(), links.end());
    for (ParticleLink& link : kept) {
      own.push_back({link.weight * kGivenShare, link.partner});
      link.weight -= own.back().weight;
    }
    list.SetLinks(parent, std::move(kept));
  }
  list.SetLinks(index, std::move(own));
}

void ParticleSheet::SumMasses(ParticleList& list) {
  ForRows(list, [&](const ParticleRows& rows, int) {
    const auto mass = rows.NeedProperty<double>(PP::Mass);
    for (std::int32_t r = rows.begin; r < rows.end; ++r) {
      double sum = 0;
      for (const ParticleLink& link : list.Links(rows.first + r)) sum += double(link.weight);
      mass.Put(r, sum);
    }
  });
}

// Half of the new particles that crowd, or that stand on top of another. True when one died.
bool ParticleSheet::KillCrowded(ParticleList& list) {
  std::atomic<bool> killed{false};
  ForRows(list, [&](const ParticleRows& rows, int worker) {
    const auto density = rows.Property<double>(PP::Density), flatness = rows.Property<double>(PP::Anisotropy);
    for (std::int32_t r = rows.begin; r < rows.end; ++r) {
      if (!(rows.flags()[r] & ParticleFlag::Inserted)) continue;
      const std::int32_t index = rows.first + r;
      const bool crowds = density.Get(r, 0) > crowdedDensity_ && flatness.Get(r, 1) > thinLimit_;
      bool dies = crowds && Chance(list, index, kThinning);
      if (!dies && group_->NearestCount(kind_, rows.positions()[r], collapseRadius_, worker) > 1) {
        dies = Chance(list, index, kCollapsing);
      }
      if (!dies) continue;
      rows.EditFlags()[r] = static_cast<std::uint16_t>(rows.flags()[r] & ~ParticleFlag::Alive);
      killed.store(true, std::memory_order_relaxed);
    }
  });
  return killed.load();
}

// One half, by the scene's seed, the time and the particle: the same at any number of workers.
bool ParticleSheet::Chance(const ParticleList& list, std::int32_t index, std::uint64_t round) const {
  const std::uint64_t words[] = {
      std::uint64_t(std::uint32_t(scene->seed)), std::bit_cast<std::uint64_t>(simulationInfo->time),
      std::uint64_t(simulationInfo->substep) << 32 | round, std::uint64_t(std::uint32_t(list.Id(index)))};
  return (HashBytes(words, sizeof words) & 1) == 0;
}

}  // namespace orlix
