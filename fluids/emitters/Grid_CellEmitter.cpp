#include "fluids/emitters/Grid_CellEmitter.h"

#include <algorithm>

namespace orlix {

namespace {

constexpr std::int32_t kPriority = 15, kTargetId = 1000, kOperatorsId = 1001, kAnySubType = 2000;

constexpr Parameter kParameters[] = {
    LinkParameter(kTargetId, "channel", kLinkChannel, "Channel whose cells are visited"),
    ListParameter(kOperatorsId, "operators", kLinkChannelOperator, "Operators that change the cells, in this order"),
    ButtonParameter(1002, "add_channel", "Picks a channel and links it"),
    ButtonParameter(1003, "add_operator", "Adds an operator"),
};

}  // namespace

const TypeInfo& Grid_CellEmitter::Type() {
  static const TypeInfo kType = [] {
    TypeInfo type;
    type.id = 1300121;
    type.resource = "zq_grid_celliterator";
    type.className = "C4D_CellEmitter_Object";
    type.label = "Cell Iterator";
    type.text = "Lets channel operators change every cell of a channel, confined by constraints.";
    type.kinds = kLinkEmitter;
    type.parameters = kParameters;
    type.common = CommonNodeParameters();
    return type;
  }();
  return kType;
}

bool Grid_CellEmitter::ReadParameters() {
  priority = kPriority;
  stageMask = StageBit(5);
  return iObject::ReadParameters();
}

bool Grid_CellEmitter::ResolveLinks() {
  scalarTarget_ = nullptr, vectorTarget_ = nullptr;
  operators_.clear();
  const BaseList2D* link = handler.GetLink(kTargetId);
  if (!iObject::ResolveLinks() || !link) return false;
  scalarTarget_ = scene->RetrieveAs<ChannelBase_Scalar>(link, NODE_CHANNEL);
  if (!scalarTarget_) vectorTarget_ = scene->RetrieveAs<ChannelBase_Vector>(link, NODE_CHANNEL);
  if (const InExcludeData* list = handler.GetInExclude(kOperatorsId)) {
    std::vector<iBase*> found;
    scene->RetrieveAll(list, found, NODE_HELPER, RetrieveBit(RETRIEVE_GRID), kAnySubType, RETRIEVE_ANY, true);
    for (iBase* node : found) {
      if (auto* op = dynamic_cast<ChannelOperator*>(node)) operators_.push_back(op);
    }
  }
  return Target() != nullptr;
}

void Grid_CellEmitter::ReleaseLinks() {
  iObject::ReleaseLinks();
  scalarTarget_ = nullptr, vectorTarget_ = nullptr;
  operators_.clear();
}

iBase* Grid_CellEmitter::Target() const {
  return scalarTarget_ ? static_cast<iBase*>(scalarTarget_) : static_cast<iBase*>(vectorTarget_);
}

ScalarGrid* Grid_CellEmitter::TargetGrid() const {
  return scalarTarget_ ? scalarTarget_->GetGrid(0) : vectorTarget_ ? vectorTarget_->GetGrid(0) : nullptr;
}

void Grid_CellEmitter::CheckDirty() {
  iObject::CheckDirty();
  iBase* target = Target();
  bool dirty = IsDirty() || scene->HasFlag(TimeMoved) || (target && target->IsDirty());
  for (const ChannelOperator* op : operators_) dirty |= op->IsDirty();
  if (!dirty) return;
  MarkDirty(false);
  if (target) target->MarkDirty(false);
}

// Of the list; an empty one takes every enabled constraint of the scene.
void Grid_CellEmitter::CollectConstraints() {
  std::vector<Constraint*> originals = RetrieveConstraints(*scene, handler);
  const InExcludeData* list = handler.GetInExclude(kConstraintListId);
  if (!list || list->entries.empty()) {
    std::vector<iBase*> all;
    scene->RetrieveAll(nullptr, all, NODE_HELPER, RetrieveBit(RETRIEVE_CONSTRAINT), kAnySubType, RETRIEVE_ANY, true);
    for (iBase* node : all) {
      if (auto* constraint = dynamic_cast<Constraint*>(node)) originals.push_back(constraint);
    }
  }
  for (const Constraint* original : originals) {
    clones_.push_back(original->Clone());
    clones_.back()->Prepare(this);
    chain_.push_back(clones_.back().get());
  }
}

void Grid_CellEmitter::Prepare(iBase*) {
  SetFlag(NodeActive, false);
  clones_.clear();
  chain_.clear();
  iBase* target = Target();
  const ScalarGrid* grid = TargetGrid();
  if (!target || !target->IsEnabled() || !grid || operators_.empty()) return;
  if (!SplitLayers(slabs_, grid->dims, false, scene->threadCount)) return;
  CollectConstraints();
  for (ChannelOperator* op : operators_) {
    if (!op->IsEnabled()) continue;
    op->AttachInput(target);
    op->Prepare(this);
  }
  SetFlag(NodeActive, true);
}

void Grid_CellEmitter::Setup() {
  if (!IsActive()) return;
  for (ChannelOperator* op : operators_) {
    if (op->IsEnabled()) op->Setup();
  }
}

void Grid_CellEmitter::Process(ProcessData& data) {
  if (!IsActive() || !slabs_.Has(data.threadIndex)) return;
  const ScalarGrid& grid = *TargetGrid();
  const VecInt3D a = slabs_.rangeMin[data.threadIndex], b = slabs_.rangeMax[data.threadIndex];
  std::vector<double> weights(grid.dims.x, 1.0);
  std::vector<std::uint8_t> open(grid.dims.x, 1);
  for (int k = a.z; k < b.z; ++k) {
    if (data.hostThread && data.hostThread->TestBreak()) return;
    for (int j = a.y; j < b.y; ++j) {
      if (!chain_.empty()) {
        std::fill(weights.begin(), weights.end(), 1.0);
        std::fill(open.begin(), open.end(), std::uint8_t(1));
        ConstraintRow row;
        row.begin = a.x, row.end = b.x, row.j = j, row.k = k;
        row.threadIndex = data.threadIndex;
        row.space = &grid.space;
        row.amounts = weights.data();
        row.open = open.data();
        EvaluateChain(chain_, row, this);
      }
      ChannelRow row;
      row.begin = a.x, row.end = b.x, row.j = j, row.k = k;
      row.threadIndex = data.threadIndex;
      row.space = &grid.space;
      row.index = grid.Index(0, j, k);
      row.weights = weights.data();
      for (ChannelOperator* op : operators_) {
        if (op->IsEnabled()) op->ProcessRow(row);
      }
    }
  }
}

void Grid_CellEmitter::Finish() {
  for (ChannelOperator* op : operators_) {
    if (op->IsEnabled()) op->Finish();
  }
  for (const auto& clone : clones_) clone->Finish();
  clones_.clear();
  chain_.clear();
  SetFlag(NodeActive, false);
}

void Grid_CellEmitter::VisitOutputs(StateVisitor& visitor) {
  if (iBase* target = Target()) target->VisitState(visitor);
}

}  // namespace orlix
