#include "fluids/constraints/GradientConstraint.h"

namespace orlix {

namespace {

constexpr GradientKnot kRamp[] = {{0, {0, 0, 0}}, {1, {1, 1, 1}}};

constexpr Choice kAxes[] = {
    {GradientConstraint::Axis::X, "x", "Along x"},
    {GradientConstraint::Axis::Y, "y", "Along y"},
    {GradientConstraint::Axis::Z, "z", "Along z"},
    {GradientConstraint::Axis::Radial, "radial", "In all directions"},
};

}  // namespace

const TypeInfo& GradientConstraint::Type() {
  static constexpr Parameter kParameters[] = {
      GradientParameter(kGradientId, "gradient", kRamp, "The strength, as the first component of the colour"),
      ChoiceParameter(kAxisId, "axis", GradientConstraint::Axis::Y, kAxes, "Direction of the gradient"),
      LinkParameter(kReferenceId, "reference", kLinkAny, "The object that places the gradient; this one without it"),
      FloatParameter(kDistanceId, "distance", 100.0, "host units", "Length of the gradient").Above(0),
      BoolParameter(1004, "repeat", false, "Kept, without effect").Hidden(),
      LinkParameter(kAlignmentId, "alignment", kLinkAlignment,
                    "An alignment whose vector's length takes the distance's place"),
  };
  static const TypeInfo kType = {
      .id = 1300022,
      .resource = "zq_constraint_gradient",
      .className = "C4D_Constraint_Gradient_Object",
      .label = "CS::Gradient",
      .text = "Acts along a gradient that an object places.",
      .kinds = kLinkHelper | kLinkConstraint,
      .parameters = kParameters,
      .common = ConstraintParameters(),
  };
  return kType;
}

bool GradientConstraint::ReadParameters() {
  if (!Constraint::ReadParameters()) return false;
  gradient_ = handler.GetGradient(kGradientId);
  axis_ = handler.GetChoice<Axis>(kAxisId);
  const double distance = handler.GetDouble(kDistanceId) * GetSimulationSpace().simPerHost.x;
  squaredDistance_ = distance * distance;
  return true;
}

bool GradientConstraint::ResolveLinks() {
  alignment_ = nullptr;
  if (!Constraint::ResolveLinks()) return false;
  const BaseObject* reference = handler.GetObjectLink(kReferenceId);
  LMatrix matrix = reference ? reference->GlobalMatrix() : handler.GetMatrix();
  matrix.off = matrix.off * GetSimulationSpace().simPerHost;
  inverse_ = matrix.Inverse();
  alignment_ = scene->RetrieveAs<AlignmentVector3D>(handler.GetLink(kAlignmentId), NODE_HELPER);
  return true;
}

void GradientConstraint::ReleaseLinks() {
  alignment_ = nullptr;
  Constraint::ReleaseLinks();
}

void GradientConstraint::Prepare(const iBase*) {
  if (alignment_) alignment_->Prepare(this);
  SetFlag(NodeActive, gradient_ != nullptr);
}

bool GradientConstraint::Apply(const Vec3D& position, double& amount, std::int32_t) const {
  double s;
  if (alignment_) {
    s = LengthSquared(alignment_->GetDirection(position));
  } else {
    const Vec3D q = inverse_ * position;
    const int axis = static_cast<int>(axis_);
    s = axis_ < Axis::Radial ? q[axis] * q[axis] : LengthSquared(q);
  }
  const double t = s == 0 ? 0 : std::min(s / squaredDistance_, 1.0);
  const double g = gradient_->ColourAt(t).x;
  amount *= (Inverted() ? 1 - g : g) * intensity;
  return amount > 0;
}

bool GradientConstraint::Evaluate(const Vec3D& position, double& amount, const iBase*, std::int32_t threadIndex) const {
  return !gradient_ || Apply(position, amount, threadIndex);
}

void GradientConstraint::EvaluateRow(const ConstraintRow& row, const iBase*) const {
  if (!gradient_) return;
  for (std::int32_t i = row.begin; i < row.end; ++i) {
    if (row.open[i]) row.open[i] = Apply(row.Position(i), row.amounts[i], row.threadIndex);
  }
}

}  // namespace orlix
