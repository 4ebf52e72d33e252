#include "fluids/forces/Force_Gravity.h"

namespace orlix {

namespace {

constexpr std::int32_t kGridEmissionSettings = 10;  // sub type
constexpr std::int32_t kSettingsDurationId = 1004;

constexpr Parameter kParameters[] = {
    VectorParameter(1000, "direction", {0, -9.81, 0}, "m/s^2", "The acceleration, in the object's own axes"),
    LinkParameter(1001, "alignment", kLinkAlignment, "Gives the direction at each place instead"),
    FloatParameter(1002, "strength", 1.0, "", "Factor of the acceleration; with an alignment, its size in m/s^2"),
    LinkParameter(1003, "settings", kLinkSettings, "Emission settings whose duration tells when the force acts"),
};

}  // namespace

const TypeInfo& Force_Gravity::Type() {
  static const TypeInfo kType = ForceType(1300014, "zq_force_gravity", "C4D_Force_Gravity_Object", "GF::External",
                                          "A constant acceleration, such as gravity or wind.", kParameters);
  return kType;
}

bool Force_Gravity::ReadParameters() {
  priority = 20;
  if (!ConstrainedForce::ReadParameters()) return false;
  direction_ = handler.GetMatrix().Rotate(handler.GetVector(1000));
  strength_ = handler.GetDouble(1002);
  return true;
}

bool Force_Gravity::ResolveLinks() {
  if (!ConstrainedForce::ResolveLinks()) return false;
  alignment_ = scene->RetrieveAs<AlignmentVector3D>(handler.GetLink(1001), NODE_HELPER);
  return true;
}

void Force_Gravity::ReleaseLinks() {
  alignment_ = nullptr;
  ConstrainedForce::ReleaseLinks();
}

Duration* Force_Gravity::FindDuration() const {
  // The settings may resolve their own links after this node does, so their link is followed here.
  const iBase* settings = scene->Retrieve(handler.GetLink(1003), NODE_SETTINGS, RETRIEVE_ANY, RETRIEVE_ANY);
  if (!settings || settings->GetNodeSubType() != kGridEmissionSettings) return DurationOf(kDurationLinkId);
  return scene->RetrieveAs<Duration>(settings->handler.GetLink(kSettingsDurationId), NODE_HELPER);
}

void Force_Gravity::Prepare(iBase*) {
  if (!BeginPrepare()) return;
  if (alignment_) alignment_->Prepare(this);
  EndPrepare(simulationInfo->substepDuration * strength_ * strengthFactor_);
}

void Force_Gravity::ProcessRow(const ForceRow& row) {
  if (!IsActive()) return;
  const double* amounts = Amounts(row);
  for (std::int32_t i = row.begin; i < row.end; ++i) {
    const Vec3D direction =
        alignment_ ? Normalized(alignment_->GetDirection(row.Position(i), row.threadIndex)) : direction_;
    row.forceX[i] += direction.x * amounts[i];
    row.forceY[i] += direction.y * amounts[i];
    row.forceZ[i] += direction.z * amounts[i];
  }
}

}  // namespace orlix
