#include "fluids/emitters/GridEmissionSettings.h"

#include "fluids/scene/OrlixScene.h"

namespace orlix {

namespace {

constexpr Choice kModes[] = {{0, "add", "Adds to what is there"},
                             {1, "set", "Replaces what is there"},
                             {2, "add_up_to", "Adds up to the limit"}};
constexpr Choice kFalloffs[] = {{0, "none", "The same in the whole volume"},
                                {1, "depth", "By the depth: 0 at the surface, 1 at the deepest place"},
                                {2, "depth_curve", "By the depth through the curve"}};
constexpr Choice kKinds[] = {{0, "scalar", "A number"}, {1, "vector", "A vector"}, {2, "count", "Particles"}};
constexpr SplineKnot kDepthCurve[] = {{0, 0}, {1.0 / 3, 0.5}, {2.0 / 3, 0.85}, {1, 1}};

constexpr Parameter kRateRows[] = {
    ChoiceParameter(5000, "kind", 0, kKinds, "What the rate gives"),
    FloatParameter(5001, "scalar_rate", 1.0, "1/s", "Amount of a scalar").ShownWhen(5000, Relation::Is, 0),
    VectorParameter(5002, "vector_rate", {1, 1, 1}, "1/s", "Amount of a vector").ShownWhen(5000, Relation::Is, 1),
    IntParameter(5003, "count_rate", 100, "1/s", "Number of particles").Min(0).ShownWhen(5000, Relation::Is, 2),
};

constexpr Parameter kSettingsRows[] = {
    ChoiceParameter(1000, "mode", 0, kModes, "How the amount gets into a cell"),
    BoolParameter(1001, "per_step", false, "The amount is per sub-step, not per second"),
    FloatParameter(1013, "value", 1.0, "1/s", "Amount, without a rate").ShownWhen(1015, Relation::Is, 0),
    VectorParameter(1014, "vector_value", {1, 1, 1}, "1/s", "Amount of a vector channel, without a rate")
        .ShownWhen(1015, Relation::Is, 1),
    BoolParameter(1015, "show_vector", false, "Which of the two amounts an interface shows"),
    LinkParameter(iEmissionSettings::kRateId, "rate", kLinkSettings, "Rate that replaces the amount"),
    LinkParameter(1003, "limit", kLinkSettings, "Rate whose value is the limit of add_up_to"),
    LinkParameter(1004, "active_in", kLinkDuration, "When it emits; its weight scales the amount"),
    ChoiceParameter(1006, "falloff", 0, kFalloffs, "How the amount falls off towards the surface"),
    SplineParameter(1005, "falloff_curve", kDepthCurve, "Amount over the depth, 0 to 1")
        .ShownWhen(1006, Relation::Is, 2),
    BoolParameter(1012, "spread", false, "Writes by weights into the eight cells round the point").Fallback(1.0),
    ButtonParameter(1009, "add_rate", "Adds a rate and links it"),
    ButtonParameter(1010, "add_limit", "Adds a limit and links it"),
    ButtonParameter(1011, "add_duration", "Adds a duration and links it"),
};

}  // namespace

const TypeInfo& EmissionRate::Type() {
  static const TypeInfo kType = [] {
    TypeInfo type;
    type.id = 1300011;
    type.resource = "zq_rate";
    type.className = "C4D_EmissionRate_Object";
    type.label = "Emission Rate";
    type.text = "An amount of emission that several settings share.";
    type.kinds = kLinkSettings;
    type.parameters = kRateRows;
    type.common = CommonNodeParameters();
    return type;
  }();
  return kType;
}

void EmissionRate::GetRetrieveTypes(std::uint32_t& mask) const {
  mask |= RetrieveBit(kind == 1 ? RETRIEVE_VECTOR : RETRIEVE_SCALAR);
}

bool EmissionRate::ReadParameters() {
  if (!iBase::ReadParameters()) return false;
  kind = handler.GetChoice(5000);
  scalarRate = handler.GetFloat(5001);
  vectorRate = handler.GetVector(5002);
  countRate = handler.GetInt(5003);
  return true;
}

const TypeInfo& GridEmissionSettings::Type() {
  static const TypeInfo kType = [] {
    TypeInfo type;
    type.id = 1300024;
    type.resource = "zq_emission_setting";
    type.className = "C4D_Emission_Object";
    type.label = "Emission Settings";
    type.text = "How a grid emitter fills a channel: the amount, its falloff, its limit, its time.";
    type.kinds = kLinkSettings;
    type.parameters = kSettingsRows;
    type.common = CommonNodeParameters();
    return type;
  }();
  return kType;
}

bool GridEmissionSettings::ReadParameters() {
  if (!iBase::ReadParameters()) return false;
  const std::int32_t modeValue = handler.GetChoice(1000);
  mode = modeValue == 1 ? EmissionMode::Set : modeValue == 2 ? EmissionMode::AddUpTo : EmissionMode::Add;
  perStep = handler.GetBool(1001);
  const std::int32_t falloffValue = handler.GetChoice(1006);
  falloff = falloffValue == 1   ? EmissionFalloff::Depth
            : falloffValue == 2 ? EmissionFalloff::DepthCurve
                                : EmissionFalloff::None;
  curve = handler.GetSplineData(1005);
  spread = handler.GetBool(1012);
  value = handler.GetFloat(1013);
  vectorValue = handler.GetVector(1014);
  return true;
}

bool GridEmissionSettings::ResolveLinks() {
  if (!iEmissionSettings::ResolveLinks()) return false;
  limit = scene->RetrieveAs<EmissionRate>(handler.GetLink(1003), NODE_SETTINGS);
  duration = scene->RetrieveAs<Duration>(handler.GetLink(1004), NODE_HELPER);
  return true;
}

void GridEmissionSettings::ReleaseLinks() {
  iEmissionSettings::ReleaseLinks();
  limit = nullptr;
  duration = nullptr;
}

double GridEmissionSettings::ScalarAmount() const {
  const auto* linked = dynamic_cast<const EmissionRate*>(rate);
  return linked ? linked->scalarRate : value;
}

EmissionRule GridEmissionSettings::Rule() const {
  EmissionRule rule;
  rule.mode = mode;
  rule.spread = spread;
  if (limit) rule.hasLimit = true, rule.scalarLimit = limit->scalarRate, rule.vectorLimit = limit->vectorRate;
  return rule;
}

}  // namespace orlix
