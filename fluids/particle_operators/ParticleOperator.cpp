#include "fluids/particle_operators/ParticleOperator.h"

#include <fmt/format.h>

#include <algorithm>

namespace orlix {

bool ParticleOperator::ReadParameters() {
  stageMask = StageBit(ownStage_);
  priority = ownPriority_;
  return iObject::ReadParameters();
}

bool ParticleOperator::ResolveLinks() {
  if (!iObject::ResolveLinks()) return false;
  constraints_ = RetrieveConstraints(*scene, handler);
  return true;
}

void ParticleOperator::ReleaseLinks() {
  constraints_.clear();
  SetFlag(NodeActive, false);
  iObject::ReleaseLinks();
}

// While the time moves there is work.
void ParticleOperator::CheckDirty() {
  iObject::CheckDirty();
  if (IsEnabled() && scene->HasFlag(TimeMoved)) MarkDirty(false);
}

void ParticleOperator::Finish() {
  if (IsActive()) {
    for (Constraint* constraint : constraints_) constraint->Finish();
  }
  SetFlag(NodeActive, false);
}

void ParticleOperator::VisitOutputs(StateVisitor& visitor) {
  for (ParticleGroup* group : WrittenGroups()) {
    if (group) group->VisitOutputs(visitor);
  }
}

Duration* ParticleOperator::LinkedDuration(std::int32_t linkId) const {
  const BaseList2D* own = handler.GetLink(linkId);
  return scene->RetrieveAs<Duration>(own ? own : handler.GetLink(kDurationId), NODE_HELPER);
}

void ParticleOperator::PrepareConstraints() {
  for (Constraint* constraint : constraints_) constraint->Prepare(this);
}

void ParticleOperator::Weigh(ParticleList& list, std::int32_t first, std::int32_t count, std::int32_t thread,
                             double start, double* amounts) const {
  std::fill_n(amounts, count, start);
  if (constraints_.empty()) return;
  std::uint8_t open[kChunkRows];
  std::fill_n(open, count, std::uint8_t{1});
  const Vec3D* positions = &list.Position(first);
  EvaluateChain(constraints_, ParticleRun{&list, first, count, thread, positions, amounts, open}, this);
}

void ParticleOperator::WeighAll(ParticleList& list, double start, std::vector<double>& amounts) const {
  amounts.resize(static_cast<std::size_t>(list.count()));
  ForRows(list, [&](const ParticleRows& rows, int worker) {
    const std::int32_t first = rows.first + rows.begin;
    Weigh(list, first, rows.end - rows.begin, worker, start, amounts.data() + first);
  });
}

void ParticleOperator::WarnWithoutProperty(std::int32_t propertyLinkId) const {
  const BaseObject* property = handler.GetObjectLink(propertyLinkId);
  if (!property || !looked_.load() || found_.load()) return;
  Warn("no-such-property",
       fmt::format("no particle has \"{}\", so nothing was written; add it to the \"properties\" of "
                   "their emitter",
                   property->Path()));
}

void WarnWithoutKind(const iBase& node, std::span<const GroupEntry> entries) {
  if (entries.empty() || std::any_of(entries.begin(), entries.end(), [](const GroupEntry& entry) {
        const ParticleList* list = entry.group->list(entry.kind);
        return !list || list->everHeld() || entry.group->KindIsKept(entry.kind);
      })) {
    return;
  }
  node.Warn(
      "no-such-particles",
      fmt::format(
          "\"{}\" held no {} particle in the whole run, so it did nothing; choose the kind that its emitter makes",
          entries.front().group->DisplayName(), kParticleKindChoices[entries.front().kind].key));
}

}  // namespace orlix
