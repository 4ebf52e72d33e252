#include "fluids/emitters/GridEmissionSettings.h"

namespace orlix {

namespace {

constexpr SplineKnot kCurve[] = {{0, 0}, {1.0 / 3, 0.5}, {2.0 / 3, 0.85}, {1, 1}};

}  // namespace

const TypeInfo& GridEmissionSettings::Type() {
  static constexpr Choice kModes[] = {
      {EmissionMode::Add, "add", "Adds to what is there"},
      {EmissionMode::Set, "set", "Replaces what is there"},
      {EmissionMode::AddToLimit, "add_up_to", "Adds, up to the limit"},
  };
  static constexpr Choice kFalloffs[] = {
      {Falloff::None, "none", "The same everywhere in the volume"},
      {Falloff::Depth, "depth", "From 0 at the surface to 1 at the deepest place"},
      {Falloff::DepthCurve, "depth_curve", "The depth through the curve"},
  };
  static constexpr Parameter kParameters[] = {
      ChoiceParameter(kModeId, "mode", EmissionMode::Add, kModes, "How a value meets what the cell holds"),
      BoolParameter(kPerStepId, "per_step", false, "The value is for a sub-step; otherwise for a second"),
      LinkParameter(kRateId, "rate", kLinkSettings, "A rate that replaces the value"),
      LinkParameter(kLimitId, "limit", kLinkSettings,
                    "A rate whose value is the limit; without one the channel's greatest value is"),
      LinkParameter(kActiveInId, "active_in", kLinkDuration, "When it emits; without one, always"),
      SplineParameter(kFalloffCurveId, "falloff_curve", kCurve, "Amount over the depth")
          .ShownWhen(kFalloffId, Relation::Is, Falloff::DepthCurve),
      ChoiceParameter(kFalloffId, "falloff", Falloff::None, kFalloffs,
                      "How the amount goes with the depth in the volume"),
      ButtonParameter(1009, "pick_rate", "Offers the rates of the scene"),
      ButtonParameter(1010, "pick_limit", "Offers the rates of the scene as limits"),
      ButtonParameter(1011, "pick_duration", "Offers the durations of the scene"),
      BoolParameter(kSpreadId, "spread", false, "Writes into the eight cells around a point; limits don't apply then")
          .Fallback(1.0),
      FloatParameter(kValueId, "value", 1.0, "", "Amount a second, or a sub-step")
          .ShownWhen(kRateId, Relation::Is, 0)
          .ShownWhen(kShowVectorId, Relation::Is, 0),
      VectorParameter(kVectorValueId, "vector_value", {1, 1, 1}, "",
                      "Amount a second, or a sub-step, for vector channels")
          .ShownWhen(kRateId, Relation::Is, 0)
          .ShownWhen(kShowVectorId, Relation::Is, 1),
      BoolParameter(kShowVectorId, "show_vector", false, "Shows the value for vector channels")
          .ShownWhen(kRateId, Relation::Is, 0)
          .OnlyShows(),
  };
  static const TypeInfo kType = {
      .id = 1300024,
      .resource = "zq_emission_setting",
      .className = "C4D_Emission_Object",
      .label = "Settings::Grid Emission",
      .text = "How much an emitter puts into a channel, when, and in which way.",
      .kinds = kLinkSettings,
      .parameters = kParameters,
      .common = PlainNodeParameters(),
  };
  return kType;
}

bool GridEmissionSettings::ReadParameters() {
  if (!iEmissionSettings::ReadParameters()) return false;
  mode = handler.GetChoice<EmissionMode>(kModeId);
  falloff = handler.GetChoice<Falloff>(kFalloffId);
  perStep = handler.GetBool(kPerStepId);
  spread = handler.GetBool(kSpreadId);
  value = handler.GetDouble(kValueId);
  vectorValue = handler.GetVector(kVectorValueId);
  curve = handler.GetSplineData(kFalloffCurveId);
  return true;
}

std::int32_t GridEmissionSettings::RateLinkId() const { return kRateId; }

bool GridEmissionSettings::ResolveLinks() {
  limit = scene->RetrieveAs<EmissionRate>(handler.GetLink(kLimitId), NODE_SETTINGS);
  duration = scene->RetrieveAs<Duration>(handler.GetLink(kActiveInId), NODE_HELPER);
  if (!iEmissionSettings::ResolveLinks()) return false;
  amountRate_ = dynamic_cast<const EmissionRate*>(rate);
  return true;
}

void GridEmissionSettings::Advise() {
  const auto isNoRate = [this](int row) {
    const BaseObject* linked = handler.GetObjectLink(row);
    return linked && linked->type().ShortName() != "rate";
  };
  if (isNoRate(kRateId) || isNoRate(kLimitId)) {
    Warn("not-a-rate", "its \"rate\" or \"limit\" links to what is no rate, and isn't taken; link a node of type rate");
  }
  for (const EmissionRate* linked : {amountRate_, static_cast<const EmissionRate*>(limit)}) {
    if (!linked || linked->HasRetrieveType(RETRIEVE_SCALAR)) continue;
    Warn("rate-of-another-kind", "grids are filled by numbers, and \"" + linked->DisplayName() +
                                     "\" is of another kind: its \"scalar_rate\" is taken; set its \"kind\" to scalar");
  }
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
