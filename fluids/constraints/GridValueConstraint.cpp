#include "fluids/constraints/GridValueConstraint.h"

#include "fluids/constraints/ConstraintAdvice.h"

namespace orlix {

namespace {

constexpr SplineKnot kCurve[] = {{0, 0}, {1, 1}};

constexpr Choice kTests[] = {
    {GridValueConstraint::Test::Equal, "equal", "The value is low"},
    {GridValueConstraint::Test::NotEqual, "not_equal", "The value isn't low"},
    {GridValueConstraint::Test::Outside, "outside", "The value lies below low or above high"},
    {GridValueConstraint::Test::Inside, "inside", "The value lies between low and high, both included"},
};

}  // namespace

const TypeInfo& GridValueConstraint::Type() {
  static constexpr Parameter kParameters[] = {
      LinkParameter(kChannelId, "channel", kLinkChannel | kLinkSolver,
                    "The channel that is read; a solver stands for its velocity"),
      ChoiceParameter(kTestId, "test", GridValueConstraint::Test::Inside, kTests,
                      "Where the constraint lets something act"),
      FloatParameter(kLowId, "low", 0, "", "Lower value of the test, a share of the channel's largest value"),
      FloatParameter(kHighId, "high", 1.0, "", "Upper value of the test, a share of the channel's largest value"),
      BoolParameter(kUseCurveId, "use_curve", true, "The strength follows the curve between the two values"),
      SplineParameter(kCurveId, "curve", kCurve, "Strength over the value's place in its range")
          .ShownWhen(kUseCurveId, Relation::Is, 1),
      FloatParameter(kMaxLengthId, "max_length", 10.0, "", "Length of a vector that counts as 1").Above(0),
  };
  static const TypeInfo kType = {
      .id = 1300021,
      .resource = "zq_constraint_gridvalue",
      .className = "C4D_Constraint_GridValue_Object",
      .label = "CS::Grid Value",
      .text = "Acts where the value of a channel passes a test.",
      .kinds = kLinkHelper | kLinkConstraint,
      .parameters = kParameters,
      .common = ConstraintParameters(),
  };
  return kType;
}

bool GridValueConstraint::ReadParameters() {
  if (!Constraint::ReadParameters()) return false;
  test_ = handler.GetChoice<Test>(kTestId);
  low_ = handler.GetDouble(kLowId);
  high_ = handler.GetDouble(kHighId);
  useCurve_ = handler.GetBool(kUseCurveId);
  curve_ = handler.GetSplineData(kCurveId);
  maxLength_ = handler.GetDouble(kMaxLengthId);
  return true;
}

bool GridValueConstraint::ResolveLinks() {
  scalarChannel_ = nullptr, vectorChannel_ = nullptr;
  if (!Constraint::ResolveLinks()) return false;
  const BaseList2D* link = handler.GetLink(kChannelId);
  scalarChannel_ = scene->RetrieveAs<ChannelBase_Scalar>(link, NODE_CHANNEL, RETRIEVE_SCALAR);
  if (scalarChannel_) return true;
  vectorChannel_ = scene->RetrieveAs<ChannelBase_Vector>(link, NODE_CHANNEL, RETRIEVE_VECTOR);
  if (auto* solver = vectorChannel_ ? nullptr : scene->RetrieveAs<iSolver>(link, NODE_SOLVER)) {
    vectorChannel_ = dynamic_cast<ChannelBase_Vector*>(solver->Velocity());
  }
  return vectorChannel_ != nullptr;
}

void GridValueConstraint::ReleaseLinks() {
  scalarChannel_ = nullptr, vectorChannel_ = nullptr;
  Constraint::ReleaseLinks();
}

void GridValueConstraint::Advise() {
  AdviseMissingLink(*this, scalarChannel_ ? static_cast<const void*>(scalarChannel_) : vectorChannel_, "channel");
}

bool GridValueConstraint::HasGrid() const {
  if (scalarChannel_) return scalarChannel_->grid != nullptr;
  return vectorChannel_ && vectorChannel_->grids[0] && vectorChannel_->grids[1] && vectorChannel_->grids[2];
}

double GridValueConstraint::ValueAt(const Vec3D& position) const {
  if (scalarChannel_) {
    const ScalarGrid& grid = *scalarChannel_->grid;
    const double value = SampleChannelGrid(grid, grid.space.VoxelOfSim(position), Interpolation::Trilinear);
    return (value - scalarChannel_->valueMin) / scalarChannel_->valueMax;
  }
  const auto& grids = vectorChannel_->grids;
  const Vec3D voxel = grids[0]->space.VoxelOfSim(position);
  Vec3D value;
  for (int c = 0; c < 3; ++c) value[c] = SampleChannelGrid(*grids[c], voxel, Interpolation::Trilinear);
  return Length(value) / maxLength_;
}

bool GridValueConstraint::Passes(double value) const {
  switch (test_) {
    case Test::Equal:
      return value == low_;
    case Test::NotEqual:
      return value != low_;
    case Test::Outside:
      return value < low_ || value > high_;
    case Test::Inside:
      return value >= low_ && value <= high_;
  }
  return false;
}

double GridValueConstraint::CurveArgument(double value) const {
  double start = 0, end = 1;
  if (test_ == Test::Inside) start = low_, end = high_;
  if (test_ == Test::Outside && value < low_) end = low_;
  if (test_ == Test::Outside && value > high_) start = high_;
  if (end == start) return 1;
  return value == start ? 0 : (value - start) / (end - start);
}

bool GridValueConstraint::Apply(const Vec3D& position, double& amount) const {
  const double value = ValueAt(position);
  amount *= Passes(value) ? 1 : 0;
  if (amount == 0) return false;
  if (useCurve_) {
    const double y = C4D_InterfaceHandler::SplineValueOf(curve_, static_cast<float>(CurveArgument(value)));
    amount *= Inverted() ? 1 - y : y;
  }
  amount *= intensity;
  return true;
}

bool GridValueConstraint::Evaluate(const Vec3D& position, double& amount, const iBase*, std::int32_t) const {
  return !HasGrid() || Apply(position, amount);
}

void GridValueConstraint::EvaluateRow(const ConstraintRow& row, const iBase*) const {
  if (!HasGrid()) return;
  for (std::int32_t i = row.begin; i < row.end; ++i) {
    if (row.open[i]) row.open[i] = Apply(row.Position(i), row.amounts[i]);
  }
}

}  // namespace orlix
