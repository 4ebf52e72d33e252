#include "fluids/particle_exchange/ParticleConverter.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "fluids/particle_emitters/ParticleEmissionHandler.h"

namespace orlix {

namespace {

constexpr std::uint16_t kKindFlags =
    ParticleFlag::Passive | ParticleFlag::Vorticity | ParticleFlag::Liquid | ParticleFlag::Diffuse;
constexpr std::int64_t kMostCopies = 1 << 20;  // of a particle

// Uniform in the ball of radius 1.
Vec3D InBall(MersenneTwister& random) {
  const Vec3D direction = RandomDirection(random);
  return direction * std::cbrt(random.Uniform());
}

// Gives the rows from first on of a list the property of a slot of another that their sources have.
template <class T, class SourceOf>
void CopyProperty(const ParticleList& from, int slot, ParticleList& to, PropertyKey key, std::int32_t first,
                  std::int32_t count, SourceOf&& sourceOf) {
  const int target = to.NeedSlot(key, PropertyTypeOf<T>());
  if (target < 0) return;
  for (std::int32_t n = 0; n < count; ++n) {
    const std::int32_t index = sourceOf(n), row = index & (kChunkRows - 1), at = first + n;
    const PropertyColumn* column = from.ChunkOf(index).column(slot);
    if (!column || !column->Has(row)) continue;
    to.ChunkOf(at)
        .NeedColumn(target, PropertyTypeOf<T>())
        .template Put<T>(at & (kChunkRows - 1), column->values<T>()[row]);
  }
}

}  // namespace

const TypeInfo& ParticleConverter::Type() {
  static constexpr Choice kTargetKinds[] = {
      {PK_Passive, "passive", "Particles that are only carried"},
      {PK_Vorticity, "vorticity", "Particles that swirl a gas"},
      {PK_Liquid, "liquid", "Particles of a liquid"},
      {PK_Diffuse, "diffuse", "Foam, spray, dust, embers"},
      {kNoKind, "none", "Nothing: the chosen particles are removed"},
  };
  static constexpr Parameter kParameters[] = {
      LinkParameter(kSourceId, "source", kLinkParticles, "Particle group that is converted; required"),
      ChoiceParameter(kSourceKindId, "source_kind", PK_Passive, kParticleKindChoices, "Kind in the source"),
      LinkParameter(kTargetId, "target", kLinkParticles, "Particle group that gets what is made"),
      ChoiceParameter(kTargetKindId, "target_kind", PK_Passive, kTargetKinds, "Kind in the target"),
      BoolParameter(kOneToOneId, "one_to_one", false, "Each chosen particle gives exactly one, which takes its data"),
      BoolParameter(kRemoveSourceId, "remove_source", true, "A converted particle leaves the source"),
      LinkParameter(kRateId, "rate", kLinkSettings,
                    "Particle emission settings: how many a chosen particle gives, and when; without them one, always"),
      FloatParameter(kCountVariationId, "count_variation", 0.0, "", "Share of the count that chance takes away")
          .Between(0, 1),
      ListParameter(kPropertiesId, "properties", kLinkProperty, "Properties that new particles get besides"),
  };
  static const TypeInfo kType = {
      .id = 1300040,
      .resource = "zq_particle_converter",
      .className = "C4D_Operator_ParticleConverter_Object",
      .label = "POP::Particle Converter",
      .text = "Turns particles of one population into particles of another, or removes them.",
      .kinds = kLinkOperator,
      .parameters = kParameters,
      .common = CommonNodeParameters(),
  };
  return kType;
}

bool ParticleConverter::ReadParameters() {
  if (!ParticleOperator::ReadParameters()) return false;
  sourceKind_ = std::clamp(handler.GetChoice(kSourceKindId), 0, kParticleKinds - 1);
  targetKind_ = handler.GetChoice(kTargetKindId);
  if (targetKind_ != kNoKind) targetKind_ = std::clamp(targetKind_, 0, kParticleKinds - 1);
  oneToOne_ = handler.GetBool(kOneToOneId);
  removeSource_ = handler.GetBool(kRemoveSourceId);
  countVariation_ = handler.GetDouble(kCountVariationId);
  return true;
}

bool ParticleConverter::ResolveLinks() {
  if (!ParticleOperator::ResolveLinks()) return false;
  source_ = LinkedGroup(kSourceId), target_ = LinkedGroup(kTargetId);
  rate_ = scene->RetrieveAs<ParticleEmissionSettings>(handler.GetLink(kRateId), NODE_SETTINGS);
  properties_ = RetrieveProperties(*scene, handler, kPropertiesId);
  return source_ != nullptr;
}

void ParticleConverter::ReleaseLinks() {
  source_ = target_ = nullptr, rate_ = nullptr;
  ParticleOperator::ReleaseLinks();
}

void ParticleConverter::Advise() {
  if (!source_) Warn("no-group", "no particle group is linked: nothing is converted; link one under source");
  if (!target_ && targetKind_ != kNoKind) {
    Warn("no-target",
         "no target is linked: nothing is converted; link a particle group under target, or choose "
         "target_kind \"none\" to remove particles");
  }
}

void ParticleConverter::Prepare(iBase*) {
  SetFlag(NodeActive, false);
  const bool makes = targetKind_ != kNoKind;
  if (!source_ || source_->Count(sourceKind_) == 0 || (makes && (!target_ || !target_->list(targetKind_)))) return;
  strength_ = rate_ ? DurationWeight(rate_->duration, simulationInfo->time) : 1;
  if (strength_ == 0) return;
  count_ = 1;
  if (rate_ && !oneToOne_) {
    count_ = rate_->CountIn(simulationInfo->substepDuration);
    if (!rate_->countPerStep) count_ = std::ceil(count_);
    if (!(count_ > 0)) return;
  }
  PrepareConstraints();
  SetFlag(NodeActive, true);
}

void ParticleConverter::Process(ProcessData&) {
  if (!IsActive()) return;
  const ParticleList& list = *source_->list(sourceKind_);
  std::vector<std::vector<Birth>> births(static_cast<std::size_t>(list.chunkCount()));
  std::atomic<bool> outOfMemory{false};
  ParallelRange(scene->pool(), 0, list.chunkCount(), [&](int from, int to, int worker) {
    for (int chunk = from; chunk < to && !scene->TestBreak(); ++chunk) {
      try {
        Choose(list.Rows(chunk), births[static_cast<std::size_t>(chunk)], worker);
      } catch (const std::bad_alloc&) {
        outOfMemory.store(true, std::memory_order_relaxed);
      }
    }
  });
  if (outOfMemory.load()) throw std::bad_alloc();
  for (const std::vector<Birth>& each : births) Make(each);
}

// Kills what is converted.
void ParticleConverter::Choose(const ParticleRows& rows, std::vector<Birth>& births, std::int32_t worker) const {
  const std::int32_t count = rows.end - rows.begin;
  std::vector<double> amounts(static_cast<std::size_t>(count), strength_);
  std::vector<std::uint8_t> open(amounts.size(), 1);
  EvaluateChain(constraints_,
                ParticleRun{source_->list(sourceKind_), rows.first + rows.begin, count, worker,
                            rows.positions() + rows.begin, amounts.data(), open.data()},
                this);
  const auto seed = static_cast<std::uint32_t>(scene->seed + GetNodeSubType());
  const std::uint64_t step = std::uint64_t(static_cast<std::uint32_t>(simulationInfo->frame)) << 40 |
                             std::uint64_t(simulationInfo->substep) << 32;
  MersenneTwister random = RandomOfPiece(seed, step | static_cast<std::uint32_t>(rows.first));
  const double cell = GetSimulationSpace().cellSize;
  for (std::int32_t row = rows.begin; row < rows.end; ++row) {
    const auto n = static_cast<std::size_t>(row - rows.begin);
    if (!open[n] || amounts[n] == 0 || (rows.flags()[row] & ParticleFlag::Alive) == 0) continue;
    bool converted = true;
    if (targetKind_ != kNoKind) {
      const Vec3D place = rows.positions()[row];
      const std::int64_t copies = oneToOne_ ? 1 : CopiesOf(amounts[n], random);
      for (std::int64_t copy = 0; copy < copies; ++copy) {
        births.push_back({rows.first + row, oneToOne_ ? place : place + InBall(random) * cell});
      }
      converted = copies > 0;
    }
    if (converted && (removeSource_ || targetKind_ == kNoKind)) rows.EditFlags()[row] &= ~ParticleFlag::Alive;
  }
}

std::int64_t ParticleConverter::CopiesOf(double amount, MersenneTwister& random) const {
  double count = count_ * amount;
  if (countVariation_ != 0) count -= random.Uniform() * count * countVariation_;
  return count > 0 ? static_cast<std::int64_t>(std::min(count, double(kMostCopies))) : 0;
}

void ParticleConverter::Make(std::span<const Birth> births) const {
  if (births.empty()) return;
  if (births.size() > static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max())) throw std::bad_alloc();
  const auto count = static_cast<std::int32_t>(births.size());
  const ParticleList& from = *source_->list(sourceKind_);
  ParticleList& to = *target_->list(targetKind_);
  BaseParticleData data = properties_.data;
  data.flags = static_cast<std::uint16_t>(ParticleFlag::Alive | FlagOfKind(targetKind_));
  data.SetVector(PP::OldPosition, {});
  const std::int32_t first = to.Append(count, data, &scene->pool());
  const auto sourceOf = [&](std::int32_t n) { return births[static_cast<std::size_t>(n)].source; };
  const ParticleChunk& chunk = from.ChunkOf(births.front().source);  // all come from one
  from.ForEachSlot([&](int slot, PropertyKey key, PropertyType type) {
    if (slot == PP::OldPosition || properties_.Gives(key) || !chunk.column(slot)) return;
    if (type == PropertyType::Real) return CopyProperty<double>(from, slot, to, key, first, count, sourceOf);
    if (type == PropertyType::Vector) return CopyProperty<Vec3D>(from, slot, to, key, first, count, sourceOf);
    CopyProperty<std::uint8_t>(from, slot, to, key, first, count, sourceOf);
  });
  for (std::int32_t n = 0; n < count; ++n) {
    const std::int32_t at = first + n, row = at & (kChunkRows - 1);
    ParticleChunk& made = to.ChunkOf(at);
    made.positions[row] = births[static_cast<std::size_t>(n)].place;
    made.column(PP::OldPosition)->values<Vec3D>()[row] = made.positions[row];
    if (!properties_.velocity) made.velocities[row] = from.Velocity(sourceOf(n));
    const auto kept = static_cast<std::uint16_t>(from.Flags(sourceOf(n)) & ~(kKindFlags | ParticleFlag::Alive));
    made.flags[row] = static_cast<std::uint16_t>(data.flags | kept);
  }
}

void ParticleConverter::Finish() {
  if (IsActive()) {
    source_->SetKindDirty(sourceKind_);
    if (target_ && targetKind_ != kNoKind) target_->SetKindDirty(targetKind_), target_->AfterStep();
  }
  ParticleOperator::Finish();
}

std::vector<ParticleGroup*> ParticleConverter::WrittenGroups() const {
  return target_ ? std::vector<ParticleGroup*>{target_} : std::vector<ParticleGroup*>{};
}

}  // namespace orlix
