#include "fluids/constraints/GradientConstraint.h"

namespace orlix {

namespace {

constexpr GradientKnot kRamp[] = {{0, {0, 0, 0}}, {1, {1, 1, 1}}};

constexpr Choice kAxes[] = {
    {0, "x", "Along x"},
    {1, "y", "Along y"},
    {2, "z", "Along z"},
    {3, "radial", "In all directions"},
};

constexpr Parameter kParameters[] = {
    GradientParameter(1000, "gradient", kRamp, "The strength, as the first component of the colour"),
    ChoiceParameter(1001, "axis", 1, kAxes, "Direction of the gradient"),
    LinkParameter(1002, "reference", kLinkAny, "The object that places the gradient; this one without it"),
    FloatParameter(1003, "distance", 100.0, "host units", "Length of the gradient").Above(0),
    BoolParameter(1004, "repeat", false, "Kept, without effect").Hidden(),
    LinkParameter(1005, "alignment", kLinkAlignment, "An alignment whose vector's length takes the distance's place"),
};

}  // namespace

const TypeInfo& GradientConstraint::Type() {
  static const TypeInfo kType =
      ConstraintType(1300022, "zq_constraint_gradient", "C4D_Constraint_Gradient_Object", "CS::Gradient",
                     "Acts along a gradient that an object places.", kParameters);
  return kType;
}

bool GradientConstraint::ReadParameters() {
  if (!Constraint::ReadParameters()) return false;
  gradient_ = handler.GetGradient(1000);
  axis_ = handler.GetChoice(1001);
  const double distance = handler.GetDouble(1003) * GetSimulationSpace().simPerHost.x;
  squaredDistance_ = distance * distance;
  return true;
}

bool GradientConstraint::ResolveLinks() {
  alignment_ = nullptr;
  if (!Constraint::ResolveLinks()) return false;
  const BaseObject* reference = handler.GetObjectLink(1002);
  LMatrix matrix = reference ? reference->GlobalMatrix() : handler.GetMatrix();
  matrix.off = matrix.off * GetSimulationSpace().simPerHost;
  inverse_ = matrix.Inverse();
  alignment_ = scene->RetrieveAs<AlignmentVector3D>(handler.GetLink(1005), NODE_HELPER);
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

bool GradientConstraint::Apply(const Vec3D& position, double& amount, std::int32_t threadIndex) const {
  double s;
  if (alignment_) {
    s = LengthSquared(alignment_->GetDirection(position, threadIndex));
  } else {
    const Vec3D q = inverse_ * position;
    s = axis_ >= 0 && axis_ <= 2 ? q[axis_] * q[axis_] : LengthSquared(q);
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
