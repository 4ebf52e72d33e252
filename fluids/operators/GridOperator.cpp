#include "fluids/operators/GridOperator.h"

#include <fmt/format.h>

namespace orlix {

bool GridOperator::ReadParameters() {
  stageMask = StageBit(ownStage_);
  priority = ownPriority_;
  return iObject::ReadParameters();
}

bool GridOperator::ResolveLinks() {
  if (!iObject::ResolveLinks()) return false;
  constraints_ = RetrieveConstraints(*scene, handler);
  falloffs_.clear();
  if (const InExcludeData* list = handler.GetInExclude(kFalloffsId)) {
    for (const InExcludeData::Entry& entry : list->entries) {
      const BaseObject* object = scene->GetHostDocument()->FindObject(entry.target);
      const Falloff* falloff = object && object->data() ? object->data()->AsFalloff() : nullptr;
      if (falloff) falloffs_.push_back({object, falloff});
    }
  }
  return true;
}

void GridOperator::ReleaseLinks() {
  constraints_.clear();
  falloffs_.clear();
  weights_.Release();
  iObject::ReleaseLinks();
}

void GridOperator::CheckDirty() {
  iObject::CheckDirty();
  if (!IsEnabled() || !scene->HasFlag(TimeMoved)) return;
  MarkDirty(false);
  for (iBase* channel : WrittenChannels()) {
    if (channel) channel->MarkDirty(false);
  }
}

void GridOperator::Finish() {
  if (IsActive()) {
    for (Constraint* constraint : constraints_) constraint->Finish();
  }
  weights_.Release();
  SetFlag(NodeActive, false);
}

void GridOperator::VisitOutputs(StateVisitor& visitor) {
  for (iBase* channel : WrittenChannels()) {
    if (auto* scalar = dynamic_cast<ChannelBase_Scalar*>(channel)) {
      visitor.VisitGrid("grid", scalar->grid);
    } else if (auto* vector = dynamic_cast<ChannelBase_Vector*>(channel)) {
      for (auto& grid : vector->grids) visitor.VisitGrid("grid", grid);
    }
  }
}

void GridOperator::AdviseLink(const void* channel, const char* key) const {
  if (channel) return;
  Warn(std::string("no-") + key,
       fmt::format("\"{}\" links to no channel that it can take, so nothing happens; link one", key));
}

double* GridOperator::RowToChange(ScalarGrid* grid, const iBase* channel, std::int64_t index,
                                  std::vector<double>& copy) {
  if (!grid) return nullptr;
  double* row = grid->data + index;
  if (!IsPlayed(channel)) return row;
  copy.assign(row, row + grid->dims.x);
  return copy.data();
}

ChannelBase_Scalar* GridOperator::LinkedScalar(std::int32_t linkId) const {
  return scene->RetrieveAs<ChannelBase_Scalar>(handler.GetLink(linkId), NODE_CHANNEL, RETRIEVE_SCALAR);
}

bool GridOperator::HasStorage(const ChannelBase_Vector* channel) {
  if (!channel || !channel->IsEnabled()) return false;
  for (const auto& grid : channel->grids) {
    if (!grid || grid->count == 0) return false;
  }
  return true;
}

ScalarGrid* GridOperator::GridOn(const ScalarGrid& lattice, ChannelBase_Scalar* channel) {
  if (!HasStorage(channel)) return nullptr;
  if (channel->grid->dims == lattice.dims && channel->grid->space.Equals(lattice.space)) return channel->grid.get();
  Warn("other-cells", "\"" + channel->DisplayName() + "\" has cells of its own and is left out");
  return nullptr;
}

}  // namespace orlix
