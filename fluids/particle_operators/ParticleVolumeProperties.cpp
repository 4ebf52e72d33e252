#include "fluids/particle_operators/ParticleVolumeProperties.h"

#include <algorithm>

#include "host/objects/HasTrack.h"

namespace orlix {

namespace {

constexpr std::int32_t kNeighbours = 256;
constexpr double kLeastSum = 1e-25, kAlone = 0.5, kKept = 0.8;

}  // namespace

const TypeInfo& ParticleVolumeProperties::Type() {
  static const Parameter kParameters[] = {
      LinkParameter(kGroupId, "group", kLinkParticles, "Particle group; required"),
      BoolParameter(kWriteCentreId, "write_centre", false,
                    "Gives particles a centre that is smoothed by their neighbours"),
      FloatParameter(kRadiusId, "radius", 2.5, "half cells", "How far neighbours count").Between(0, 32).Fallback(4.0),
      ChoiceParameter(kKernelModeId, "kernel_mode", KernelKind::Quadratic, KernelKinds(),
                      "How neighbours weigh, where no kernel is linked")
          .Fallback(KernelKind::Gauss),
      BoolParameter(kWriteDensityId, "write_density", true, "Gives particles their density, 0 to 1").Fallback(0.0),
      BoolParameter(kWriteSumId, "write_sum", true, "Gives particles the kernel sum itself").Fallback(0.0),
      ChoiceParameter(kKindId, "kind", PK_Liquid, kParticleKindChoices, "Kind of the particles"),
      LinkParameter(kKernelId, "kernel", kLinkKernel, "A kernel that replaces the node's own"),
  };
  static const TypeInfo kType = {
      .id = 1300065,
      .resource = "zq_pvaluetoproperty",
      .className = "C4D_ParticleVolumeProperties_Object",
      .label = "POP::Volume Properties",
      .text = "Gives particles a density by their neighbours, relative to the densest place of the first step.",
      .kinds = kLinkOperator,
      .parameters = kParameters,
      .common = CommonNodeParameters(),
  };
  return kType;
}

bool ParticleVolumeProperties::ReadParameters() {
  if (!ParticleOperator::ReadParameters()) return false;
  calibrating_ = simulationInfo->time == 0;
  if (calibrating_) stageMask |= StageBit(kStageEmitters);
  writeCentre_ = handler.GetBool(kWriteCentreId);
  radius_ = handler.GetDouble(kRadiusId) * GetSimulationSpace().halfCell;
  kernel_.kind = handler.GetChoice<KernelKind>(kKernelModeId);
  writeDensity_ = handler.GetBool(kWriteDensityId);
  writeSum_ = handler.GetBool(kWriteSumId);
  kind_ = std::clamp(handler.GetChoice(kKindId), 0, kParticleKinds - 1);
  return true;
}

bool ParticleVolumeProperties::ResolveLinks() {
  if (!ParticleOperator::ResolveLinks()) return false;
  group_ = LinkedGroup(kGroupId);
  kernelNode_ = scene->RetrieveAs<Kernel>(handler.GetLink(kKernelId), NODE_HELPER);
  return group_ != nullptr;
}

void ParticleVolumeProperties::ReleaseLinks() {
  group_ = nullptr, kernelNode_ = nullptr;
  ParticleOperator::ReleaseLinks();
}

void ParticleVolumeProperties::Advise() {
  if (!group_) Warn("no-group", "no particle group is linked: nothing gets a density; link one under group");
  if (!(radius_ > 0) && !HasTrack(*handler.hostObject(), kRadiusId))
    Warn("no-radius", "it looks at no neighbours, so nothing gets a density; set \"radius\"");
  if (!writeDensity_ && !writeSum_ && !writeCentre_) {
    Warn("nothing-wanted", "neither density nor sum nor centre are wanted, so it does nothing; turn one of them on");
  }
}

bool ParticleVolumeProperties::ComesBefore(const iBase& other) const {
  const std::int32_t type = other.GetNodeSubType();
  const bool emitter = other.GetNodeBaseType() == NODE_EMITTER && (type == 6 || type == 7);
  const bool solver = other.GetNodeBaseType() == NODE_SOLVER && scene->stage == kStageEmitters;
  return !emitter && !solver && ParticleOperator::ComesBefore(other);
}

void ParticleVolumeProperties::Prepare(iBase*) {
  SetFlag(NodeActive, false);
  if (!group_ || !(simulationInfo->substepDuration > 0) || !(radius_ > 0)) return;
  if (scene->stage == kStageEmitters && !calibrating_) return;
  if (!group_->EnsureTree(kind_, true, kNeighbours)) return;
  PrepareConstraints();
  SetFlag(NodeActive, true);
}

void ParticleVolumeProperties::Process(ProcessData&) {
  if (!IsActive()) return;
  ParticleList& list = *group_->list(kind_);
  Tag(list);
  if (scene->stage == kStageEmitters) {
    group_->factory(kind_).referenceSum = LargestSum(list);
    calibrating_ = false;
  } else if (writeDensity_ && group_->factory(kind_).referenceSum == 1) {
    Warn("no-reference",
         "no particle was there in the first step to tell what is dense: the density is the kernel sum, at most 1; let "
         "the emitter begin with the first frame");
  }
  Write(list);
}

// Marks whom the constraints leave out, and gives and takes the properties.
void ParticleVolumeProperties::Tag(ParticleList& list) const {
  ForRows(list, [&](const ParticleRows& rows, int worker) {
    double amounts[kChunkRows];
    const std::int32_t count = rows.end - rows.begin;
    Weigh(list, rows.first + rows.begin, count, worker, 1, amounts);
    const auto keep = [&](PropertyKey key, bool on, auto value) {
      using T = decltype(value);
      const auto view = on ? rows.NeedProperty<T>(key) : rows.Property<T>(key);
      if (!view) return;
      for (std::int32_t r = rows.begin; r < rows.end; ++r) {
        if (!on) {
          OrlixParticle(&list, rows.first + r).Remove(key);
        } else if (!view.Has(r)) {
          view.Put(r, value);
        }
      }
    };
    keep(PP::Density, writeDensity_, 1.0);
    keep(PP::KernelSum, writeSum_, 1.0);
    keep(PP::SmoothedCentre, writeCentre_, Vec3D());
    for (std::int32_t n = 0; n < count; ++n) {
      std::uint16_t& bits = rows.TagFlags()[rows.begin + n];
      bits =
          static_cast<std::uint16_t>(amounts[n] == 0 ? bits | ParticleFlag::Excluded : bits & ~ParticleFlag::Excluded);
    }
  });
}

ParticleVolumeProperties::Sums ParticleVolumeProperties::SumsAt(const Vec3D& position, std::int32_t worker) const {
  const KernelBase& kernel = kernelNode_ ? kernelNode_->base : kernel_;
  const double squared = radius_ * radius_, cubed = squared * radius_;
  const ParticleFactory& factory = group_->factory(kind_);
  Sums sums;
  for (const Neighbour& neighbour : group_->Nearest(kind_, position, radius_, worker)) {
    const OrlixParticle other = factory.At(neighbour.index);
    const double weight =
        kernel.EvaluateWithin(neighbour.distanceSquared, squared, cubed) * other.GetRealOr(PP::Mass, 1);
    sums.sum += weight;
    sums.centre += other.GetPosition() * weight;
    sums.any = true;
  }
  if (sums.any) {
    sums.sum = std::max(sums.sum, kLeastSum);
    sums.centre = sums.centre / sums.sum;
  }
  return sums;
}

double ParticleVolumeProperties::LargestSum(const ParticleList& list) const {
  std::vector<double> largest(WorkerPool::kMaxWorkers, 0.0);
  ForRows(list, [&](const ParticleRows& rows, int worker) {
    for (std::int32_t r = rows.begin; r < rows.end; ++r) {
      double& most = largest[static_cast<std::size_t>(worker)];
      most = std::max(most, SumsAt(rows.positions()[r], worker).sum);
    }
  });
  return *std::max_element(largest.begin(), largest.end());
}

void ParticleVolumeProperties::Write(ParticleList& list) const {
  const double reference = group_->factory(kind_).referenceSum;
  ForRows(list, [&](const ParticleRows& rows, int worker) {
    const auto density = rows.Property<double>(PP::Density), sum = rows.Property<double>(PP::KernelSum);
    const auto centre = rows.Property<Vec3D>(PP::SmoothedCentre);
    for (std::int32_t r = rows.begin; r < rows.end; ++r) {
      if (rows.flags()[r] & ParticleFlag::Excluded) continue;
      const Vec3D place = rows.positions()[r];
      const Sums sums = SumsAt(place, worker);
      const double limited = std::min(sums.sum, reference);
      if (density) density.Set(r, sums.any ? limited / reference : kAlone);
      if (sum) sum.Set(r, sums.any ? limited : kAlone);
      if (centre) centre.Set(r, sums.any ? place * kKept + sums.centre * (1 - kKept) : place);
    }
  });
}

}  // namespace orlix
