#include "fluids/emitters/GridEmissionSettings.h"

namespace orlix {

namespace {

constexpr int kModeId = 1000, kPerStepId = 1001, kLimitId = 1003, kDurationId = 1004, kCurveId = 1005;
constexpr int kFalloffId = 1006, kSpreadId = 1012, kValueId = 1013, kVectorId = 1014, kShowVectorId = 1015;

constexpr Choice kModes[] = {
    {0, "add", "Adds to what is there"},
    {1, "set", "Replaces what is there"},
    {2, "add_up_to", "Adds, up to the limit"},
};
constexpr Choice kFalloffs[] = {
    {0, "none", "The same everywhere in the volume"},
    {1, "depth", "From 0 at the surface to 1 at the deepest place"},
    {2, "depth_curve", "The depth through the curve"},
};
constexpr SplineKnot kCurve[] = {{0, 0}, {1.0 / 3, 0.5}, {2.0 / 3, 0.85}, {1, 1}};

constexpr Parameter kParameters[] = {
    ChoiceParameter(kModeId, "mode", 0, kModes, "How a value meets what the cell holds"),
    BoolParameter(kPerStepId, "per_step", false, "The value is for a sub-step; otherwise for a second"),
    LinkParameter(iEmissionSettings::kRateId, "rate", kLinkSettings, "A rate that replaces the value"),
    LinkParameter(kLimitId, "limit", kLinkSettings,
                  "A rate whose value is the limit; without one the channel's greatest value is"),
    LinkParameter(kDurationId, "active_in", kLinkDuration, "When it emits; without one, always"),
    SplineParameter(kCurveId, "falloff_curve", kCurve, "Amount over the depth").ShownWhen(kFalloffId, Relation::Is, 2),
    ChoiceParameter(kFalloffId, "falloff", 0, kFalloffs, "How the amount goes with the depth in the volume"),
    ButtonParameter(1009, "pick_rate", "Offers the rates of the scene"),
    ButtonParameter(1010, "pick_limit", "Offers the rates of the scene as limits"),
    ButtonParameter(1011, "pick_duration", "Offers the durations of the scene"),
    BoolParameter(kSpreadId, "spread", false, "Writes into the eight cells around a point; limits don't apply then")
        .Fallback(1.0),
    FloatParameter(kValueId, "value", 1.0, "", "Amount a second, or a sub-step")
        .ShownWhen(kShowVectorId, Relation::Is, 0),
    VectorParameter(kVectorId, "vector_value", {1, 1, 1}, "", "Amount a second, or a sub-step, for vector channels")
        .ShownWhen(kShowVectorId, Relation::Is, 1),
    BoolParameter(kShowVectorId, "show_vector", false, "Shows the value for vector channels"),
};

}  // namespace

const TypeInfo& GridEmissionSettings::Type() {
  static const TypeInfo kType = [] {
    TypeInfo type;
    type.id = 1300024;
    type.resource = "zq_emission_setting";
    type.className = "C4D_Emission_Object";
    type.label = "Emission Settings";
    type.text = "How much an emitter puts into a channel, when, and in which way.";
    type.kinds = kLinkSettings;
    type.parameters = kParameters;
    type.common = CommonNodeParameters();
    return type;
  }();
  return kType;
}

bool GridEmissionSettings::ReadParameters() {
  if (!iEmissionSettings::ReadParameters()) return false;
  mode = static_cast<EmissionMode>(handler.GetChoice(kModeId));
  falloff = static_cast<Falloff>(handler.GetChoice(kFalloffId));
  perStep = handler.GetBool(kPerStepId);
  spread = handler.GetBool(kSpreadId);
  value = handler.GetDouble(kValueId);
  vectorValue = handler.GetVector(kVectorId);
  curve = handler.GetSplineData(kCurveId);
  return true;
}

bool GridEmissionSettings::ResolveLinks() {
  limit = scene->RetrieveAs<EmissionRate>(handler.GetLink(kLimitId), NODE_SETTINGS);
  duration = scene->RetrieveAs<Duration>(handler.GetLink(kDurationId), NODE_HELPER);
  if (!iEmissionSettings::ResolveLinks()) return false;
  amountRate_ = dynamic_cast<const EmissionRate*>(rate);
  return true;
}

void GridEmissionSettings::ReleaseLinks() {
  limit = nullptr, duration = nullptr, amountRate_ = nullptr;
  iEmissionSettings::ReleaseLinks();
}

GridEmission GridEmissionSettings::Emission() const {
  GridEmission emission;
  emission.mode = mode;
  emission.spread = spread;
  if (limit) emission.scalarLimit = limit->scalarRate, emission.vectorLimit = limit->vectorRate;
  return emission;
}

double GridEmissionSettings::FalloffFactor(double depth, double weight) const {
  switch (falloff) {
    case Falloff::None:
      return weight;
    case Falloff::Depth:
      return depth * weight;
    case Falloff::DepthCurve:
      // Without a curve the weight plays no part.
      return curve ? curve->ValueAt(depth) * weight : 1.0;
  }
  return 1.0;
}

}  // namespace orlix
