#include "fluids/emitters/Grid_CellEmitter.h"

#include <algorithm>

namespace orlix {

namespace {

constexpr std::int32_t kPriority = 15, kAnySubType = 2000;

}  // namespace

const TypeInfo& Grid_CellEmitter::Type() {
  static constexpr Parameter kParameters[] = {
      LinkParameter(kChannelId, "channel", kLinkChannel, "The channel whose cells are visited; required"),
      ListParameter(kOperatorsId, "operators", kLinkChannelOperator, "What changes the cells, in this order"),
      ButtonParameter(1002, "pick_channel", "Offers the channels of the scene"),
      ButtonParameter(1003, "pick_operator", "Offers the channel operators of the scene"),
  };
  static const TypeInfo kType = {
      .id = 1300121,
      .resource = "zq_grid_celliterator",
      .className = "C4D_CellEmitter_Object",
      .label = "Emitter::Cell Iterator",
      .text =
          "Visits every cell of a channel and lets channel operators change it, where its constraints allow. Without a "
          "list of constraints, all of the scene confine it.",
      .kinds = kLinkEmitter,
      .parameters = kParameters,
      .common = CommonNodeParameters(),
  };
  return kType;
}

Grid_CellEmitter::Grid_CellEmitter(BaseList2D* object, OrlixScene& owner) : iObject(object, owner) {
  stageMask = StageBit(kStageEmitters);
  priority = kPriority;
}

bool Grid_CellEmitter::ReadParameters() {
  stageMask = StageBit(kStageEmitters);
  priority = kPriority;
  return iObject::ReadParameters();
}

bool Grid_CellEmitter::ResolveLinks() {
  ports_.scalarTarget = nullptr, ports_.vectorTarget = nullptr;
  ports_.operators.clear();
  if (!iObject::ResolveLinks()) return false;
  const BaseList2D* channel = handler.GetLink(kChannelId);
  ports_.scalarTarget = scene->RetrieveAs<ChannelBase_Scalar>(channel, NODE_CHANNEL, RETRIEVE_SCALAR);
  if (!ports_.scalarTarget) ports_.vectorTarget = scene->RetrieveAs<ChannelBase_Vector>(channel, NODE_CHANNEL);
  if (const InExcludeData* list = handler.GetInExclude(kOperatorsId)) {
    std::vector<iBase*> found;
    scene->RetrieveAll(list, found, NODE_HELPER, RetrieveBit(RETRIEVE_GRID), kAnySubType, RETRIEVE_ANY, true);
    for (iBase* node : found) {
      if (auto* op = dynamic_cast<ChannelOperator*>(node)) ports_.operators.push_back(op);
    }
  }
  return Target() != nullptr;
}

void Grid_CellEmitter::Advise() {
  if (!Target()) return Warn("no-channel", "no channel is linked, so it visits no cells; link one");
  if (ports_.operators.empty()) Warn("no-operators", "it lists no channel operators, so it changes nothing; list one");
}

void Grid_CellEmitter::ReleaseLinks() {
  ports_.scalarTarget = nullptr, ports_.vectorTarget = nullptr;
  ports_.operators.clear();
  SetFlag(NodeActive, false);
  iObject::ReleaseLinks();
}

iObject* Grid_CellEmitter::Target() const {
  if (ports_.scalarTarget) return ports_.scalarTarget;
  return ports_.vectorTarget;
}

const ScalarGrid* Grid_CellEmitter::FirstGrid() const {
  const ScalarGrid* grid = ports_.scalarTarget   ? ports_.scalarTarget->GetGrid(0)
                           : ports_.vectorTarget ? ports_.vectorTarget->GetGrid(0)
                                                 : nullptr;
  return grid && grid->data ? grid : nullptr;
}

void Grid_CellEmitter::CheckDirty() {
  iObject::CheckDirty();
  if (!IsEnabled() || !(IsDirty() || scene->HasFlag(TimeMoved))) return;
  MarkDirty(false);
  if (Target()) Target()->MarkDirty(false);
}

void Grid_CellEmitter::Prepare(iBase*) {
  SetFlag(NodeActive, false);
  const ScalarGrid* grid = FirstGrid();
  if (!grid || !Target()->IsEnabled() || Target()->HasFlag(NodeFromCache) || ports_.operators.empty()) return;
  CloneConstraints();
  if (!SplitLayers(slabs_, grid->dims, false, scene->threadCount)) return;
  for (ChannelOperator* op : ports_.operators) {
    if (!op->IsEnabled()) continue;
    op->AttachInput(Target());
    op->Prepare(this);
  }
  SetFlag(NodeActive, true);
}

// Clones, so that their Prepare doesn't meet that of other callers.
void Grid_CellEmitter::CloneConstraints() {
  const InExcludeData* list = handler.GetInExclude(kConstraintsId);
  if (list && list->entries.empty()) list = nullptr;
  std::vector<iBase*> found;
  scene->RetrieveAll(list, found, NODE_HELPER, RetrieveBit(RETRIEVE_CONSTRAINT), kAnySubType, RETRIEVE_ANY, true);
  ports_.constraints.clear();
  constraints_.clear();
  for (const iBase* node : found) {
    const auto* constraint = dynamic_cast<const Constraint*>(node);
    if (!constraint) continue;
    ports_.constraints.push_back(constraint->Clone());
    constraints_.push_back(ports_.constraints.back().get());
    constraints_.back()->Prepare(this);
  }
}

void Grid_CellEmitter::Setup() {
  if (!IsActive()) return;
  // All cells are asked before an operator changes one.
  weights_.Build(*scene, this, constraints_, {}, *FirstGrid(), 1.0, [](std::int64_t) { return true; });
  for (ChannelOperator* op : ports_.operators) {
    if (op->IsEnabled()) op->Setup();
  }
}

void Grid_CellEmitter::Process(ProcessData& data) {
  if (!IsActive() || !slabs_.Has(data.threadIndex)) return;
  const ScalarGrid& grid = *FirstGrid();
  const VecInt3D &min = slabs_.rangeMin[data.threadIndex], &max = slabs_.rangeMax[data.threadIndex];
  for (std::int32_t k = min.z; k < max.z; ++k) {
    if (data.hostThread && data.hostThread->TestBreak()) return;
    for (std::int32_t j = min.y; j < max.y; ++j) ProcessRow(grid, j, k, data.threadIndex);
  }
}

void Grid_CellEmitter::ProcessRow(const ScalarGrid& grid, std::int32_t j, std::int32_t k, std::int32_t worker) {
  ChannelRow row;
  row.begin = 1, row.end = grid.dims.x - 1, row.j = j, row.k = k;
  row.threadIndex = worker;
  row.space = &grid.space;
  row.index = grid.Index(0, j, k);
  row.weights = weights_.Row(j, k);
  for (ChannelOperator* op : ports_.operators) {
    if (op->IsEnabled()) op->ProcessRow(row);
  }
}

void Grid_CellEmitter::Finish() {
  if (IsActive()) {
    for (ChannelOperator* op : ports_.operators) {
      if (op->IsEnabled()) op->Finish();
    }
    for (const auto& constraint : ports_.constraints) constraint->Finish();
  }
  weights_.Release();
  ports_.constraints.clear();
  constraints_.clear();
  SetFlag(NodeActive, false);
}

void Grid_CellEmitter::VisitOutputs(StateVisitor& visitor) {
  if (ports_.scalarTarget) visitor.VisitGrid("grid", ports_.scalarTarget->grid);
  if (!ports_.vectorTarget) return;
  for (auto& grid : ports_.vectorTarget->grids) visitor.VisitGrid("grid", grid);
}

}  // namespace orlix
