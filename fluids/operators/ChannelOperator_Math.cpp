#include "fluids/operators/ChannelOperator_Math.h"

#include "globals/Multiversion.h"

namespace orlix {

namespace {

constexpr Choice kOperations[] = {
    {MathOperation::Add, "add", "Adds"},
    {MathOperation::Subtract, "subtract", "Subtracts"},
    {MathOperation::Multiply, "multiply", "Multiplies, a vector by component"},
    {MathOperation::Dot, "dot", "Multiplies; of vectors, the scalar product goes into the first component"},
    {MathOperation::Min, "min", "The smaller"},
    {MathOperation::Max, "max", "The larger"},
};

}  // namespace

const TypeInfo& ChannelOperator_Math::Type() {
  static constexpr Parameter kParameters[] = {
      LinkParameter(kSourceId, "source", kLinkChannel | kLinkSolver,
                    "The channel that gives the operand; a solver stands for its velocity"),
      ChoiceParameter(kOperationId, "operation", MathOperation::Add, kOperations, "What is done with each cell"),
      FloatParameter(kValueId, "value", 1.0, "", "The operand without a source")
          .ShownWhen(kSourceId, Relation::Is, 0)
          .ShownWhen(kUseVectorId, Relation::Is, 0),
      VectorParameter(kVectorValueId, "vector_value", {1, 1, 1}, "", "The operand of a vector channel without a source")
          .ShownWhen(kSourceId, Relation::Is, 0)
          .ShownWhen(kUseVectorId, Relation::Is, 1),
      BoolParameter(kUseVectorId, "use_vector", false, "The operand without a source is the vector").OnlyShows(),
  };
  static const TypeInfo kType = {
      .id = 1300056,
      .resource = "zq_channelop_math",
      .className = "C4D_ChannelOperator_Math_Object",
      .label = "COP::Math",
      .text = "Arithmetic on the cells that a cell emitter visits.",
      .kinds = kLinkHelper | kLinkChannelOperator,
      .parameters = kParameters,
      .common = ConfinedNodeParameters(),
  };
  return kType;
}

bool ChannelOperator_Math::ReadParameters() {
  priority = 0;
  if (!ChannelOperator::ReadParameters()) return false;
  operation_ = handler.GetChoice<MathOperation>(kOperationId);
  scalarValue_ = handler.GetDouble(kValueId);
  vectorValue_ = handler.GetVector(kVectorValueId);
  useVector_ = handler.GetBool(kUseVectorId);
  return true;
}

bool ChannelOperator_Math::ResolveLinks() {
  scalarSource_ = nullptr, vectorSource_ = nullptr;
  if (!ChannelOperator::ResolveLinks()) return false;
  iBase* node = scene->Retrieve(handler.GetLink(kSourceId), NODE_ALL, RETRIEVE_ANY, RETRIEVE_ANY);
  if (auto* solver = dynamic_cast<iSolver*>(node)) node = solver->Velocity();
  scalarSource_ = dynamic_cast<ChannelBase_Scalar*>(node);
  vectorSource_ = dynamic_cast<ChannelBase_Vector*>(node);
  return true;
}

void ChannelOperator_Math::ReleaseLinks() {
  scalarSource_ = nullptr, vectorSource_ = nullptr;
  for (LatticeRows& rows : sources_) rows.Release();
  ChannelOperator::ReleaseLinks();
}

void ChannelOperator_Math::Prepare(iBase*) {
  const ScalarGrid* grid = TargetGrid();
  SetFlag(NodeActive, grid != nullptr);
  if (!IsActive()) return;
  for (int c = 0; c < 3; ++c) {
    const ScalarGrid* source = scalarSource_   ? scalarSource_->GetReadGrid(0)
                               : vectorSource_ ? vectorSource_->GetReadGrid(c)
                                               : nullptr;
    sources_[c].Bind(source, grid->space);
  }
  weights_.Prepare(*scene, *this, *grid);
}

double ChannelOperator_Math::ConstantOf(int component) const {
  return vectorSource_ || (useVector_ && !scalarSource_) ? vectorValue_[component] : scalarValue_;
}

void ChannelOperator_Math::ProcessRow(const ChannelRow& row) {
  if (!IsActive()) return;
  const double* amounts = weights_.Of(row);
  if (vectorTarget_) return ProcessVector(row, amounts);
  const double* operands = sources_[0] ? sources_[0].Of(row) : nullptr;
  MathRow(operation_, scalarTarget_->grid->data + row.index, operands, scalarValue_, amounts, row.begin, row.end);
}

void ChannelOperator_Math::ProcessVector(const ChannelRow& row, const double* amounts) {
  double* cells[3];
  const double* operands[3];
  for (int c = 0; c < 3; ++c) {
    cells[c] = vectorTarget_->grids[c]->data + row.index;
    LatticeRows& source = sources_[c];
    operands[c] = source ? source.Of(row) : nullptr;
  }
  if (operation_ != MathOperation::Dot) {
    for (int c = 0; c < 3; ++c) MathRow(operation_, cells[c], operands[c], ConstantOf(c), amounts, row.begin, row.end);
    return;
  }
  for (std::int32_t i = row.begin; i < row.end; ++i) {
    if (amounts[i] == 0) continue;
    double sum = 0;
    for (int c = 0; c < 3; ++c) sum += cells[c][i] * (amounts[i] * (operands[c] ? operands[c][i] : ConstantOf(c)));
    cells[0][i] = sum;
  }
}

void ChannelOperator_Math::Finish() {
  weights_.Finish();
  SetFlag(NodeActive, false);
}

namespace {

template <class F>
inline void ForEachCell(double* cells, const double* operands, double constant, const double* amounts,
                        std::int32_t begin, std::int32_t end, F&& f) {
  for (std::int32_t i = begin; i < end; ++i) {
    const double operand = amounts[i] * (operands ? operands[i] : constant), result = f(cells[i], operand);
    cells[i] = amounts[i] != 0 ? result : cells[i];
  }
}

}  // namespace

ORLIX_MULTIVERSION
void MathRow(MathOperation operation, double* cells, const double* operands, double constant, const double* amounts,
             std::int32_t begin, std::int32_t end) {
  const auto apply = [&](auto&& f) { ForEachCell(cells, operands, constant, amounts, begin, end, f); };
  switch (operation) {
    case MathOperation::Add:
      return apply([](double c, double o) { return c + o; });
    case MathOperation::Subtract:
      return apply([](double c, double o) { return c - o; });
    case MathOperation::Multiply:
    case MathOperation::Dot:
      return apply([](double c, double o) { return c * o; });
    case MathOperation::Min:
      return apply([](double c, double o) { return o < c ? o : c; });
    case MathOperation::Max:
      return apply([](double c, double o) { return c < o ? o : c; });
  }
}

}  // namespace orlix
