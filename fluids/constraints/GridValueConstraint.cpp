#include "fluids/constraints/GridValueConstraint.h"

namespace orlix {

namespace {

constexpr SplineKnot kCurve[] = {{0, 0}, {1, 1}};

constexpr Choice kTests[] = {
    {0, "equal", "The value is low"},
    {1, "not_equal", "The value isn't low"},
    {2, "outside", "The value lies below low or above high"},
    {3, "inside", "The value lies between low and high, both included"},
};

constexpr Parameter kParameters[] = {
    LinkParameter(1000, "channel", kLinkChannel | kLinkSolver,
                  "The channel that is read; a solver stands for its velocity"),
    ChoiceParameter(1001, "test", 3, kTests, "Where the constraint lets something act"),
    FloatParameter(1002, "low", 0, "", "Lower value of the test, a share of the channel's largest value"),
    FloatParameter(1003, "high", 1.0, "", "Upper value of the test, a share of the channel's largest value"),
    BoolParameter(1004, "use_curve", true, "The strength follows the curve between the two values"),
    SplineParameter(1005, "curve", kCurve, "Strength over the value's place in its range")
        .ShownWhen(1004, Relation::Is, 1),
    FloatParameter(1007, "max_length", 10.0, "", "Length of a vector that counts as 1").Above(0),
};

}  // namespace

const TypeInfo& GridValueConstraint::Type() {
  static const TypeInfo kType =
      ConstraintType(1300021, "zq_constraint_gridvalue", "C4D_Constraint_GridValue_Object", "CS::Grid Value",
                     "Acts where the value of a channel passes a test.", kParameters);
  return kType;
}

bool GridValueConstraint::ReadParameters() {
  if (!Constraint::ReadParameters()) return false;
  test_ = static_cast<Test>(handler.GetChoice(1001));
  low_ = handler.GetDouble(1002);
  high_ = handler.GetDouble(1003);
  useCurve_ = handler.GetBool(1004);
  curve_ = handler.GetSplineData(1005);
  maxLength_ = handler.GetDouble(1007);
  return true;
}

bool GridValueConstraint::ResolveLinks() {
  scalarChannel_ = nullptr, vectorChannel_ = nullptr;
  if (!Constraint::ResolveLinks()) return false;
  const BaseList2D* link = handler.GetLink(1000);
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
