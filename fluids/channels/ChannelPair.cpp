#include "fluids/channels/ChannelPair.h"

namespace orlix {

namespace {

constexpr Parameter kPairRows[] = {
    LinkParameter(1000, "channel", kLinkChannel | kLinkSolver, "Channel to emit into; a solver takes pressure"),
    LinkParameter(1001, "settings", kLinkSettings, "How to emit"),
};
constexpr Parameter kValueRows[] = {
    LinkParameter(1000, "channel", kLinkChannel | kLinkSolver, "Channel to write into"),
    LinkParameter(1004, "property", kLinkParticles, "Particle property that gives the value"),
    FloatParameter(1001, "value", 1.0, "", "Value of a scalar channel"),
    VectorParameter(1002, "vector_value", {1, 1, 1}, "", "Value of a vector channel"),
    BoolParameter(1007, "use_property", false, "Take the value from the property"),
    FloatParameter(1003, "property_scale", 0, "", "Factor of the property's value"),
};

TypeInfo SettingsType(int id, const char* resource, const char* className, const char* label, const char* text,
                      std::span<const Parameter> rows) {
  TypeInfo type;
  type.id = id;
  type.resource = resource;
  type.className = className;
  type.label = label;
  type.text = text;
  type.kinds = kLinkSettings;
  type.parameters = rows;
  type.common = CommonNodeParameters();
  return type;
}

}  // namespace

ChannelTarget ChannelTarget::Find(const OrlixScene& scene, const BaseList2D* link) {
  ChannelTarget target;
  target.scalar = scene.RetrieveAs<ChannelBase_Scalar>(link, NODE_CHANNEL, RETRIEVE_SCALAR);
  if (!target.scalar) {
    if (auto* solver = scene.RetrieveAs<iSolver>(link, NODE_SOLVER)) {
      target.scalar = dynamic_cast<ChannelBase_Scalar*>(solver->DivergenceSource());
    }
  }
  target.vector = scene.RetrieveAs<ChannelBase_Vector>(link, NODE_CHANNEL, RETRIEVE_VECTOR);
  return target;
}

const TypeInfo& ChannelPair::Type() {
  static const TypeInfo kType =
      SettingsType(1300012, "zq_channelsettings", "C4D_ChannelSettings_Object", "Container::Channel/Settings",
                   "Pairs a channel with the settings by which an emitter fills it.", kPairRows);
  return kType;
}

bool ChannelPair::ResolveLinks() {
  scalarTarget = nullptr, vectorTarget = nullptr, settings = nullptr;
  if (!iBase::ResolveLinks()) return false;
  const BaseList2D *target = handler.GetLink(1000), *link = handler.GetLink(1001);
  if (!target || !link) return false;
  const ChannelTarget found = ChannelTarget::Find(*scene, target);
  scalarTarget = found.scalar, vectorTarget = found.vector;
  if (!found.Exists()) return false;
  settings = scene->Retrieve(link, NODE_SETTINGS, RETRIEVE_ANY, RETRIEVE_ANY);
  return settings != nullptr;
}

void ChannelPair::ReleaseLinks() {
  iBase::ReleaseLinks();
  scalarTarget = nullptr, vectorTarget = nullptr, settings = nullptr;
}

const TypeInfo& ChannelValue::Type() {
  static const TypeInfo kType =
      SettingsType(1300013, "zq_channelvalue", "C4D_ChannelValue_Object", "Container::Channel/Value",
                   "Pairs a channel with a value that is written into it.", kValueRows);
  return kType;
}

bool ChannelValue::ReadParameters() {
  if (!iBase::ReadParameters()) return false;
  scalarValue = handler.GetFloat(1001);
  vectorValue = handler.GetVector(1002);
  useProperty = handler.GetBool(1007);
  propertyScale = handler.GetFloat(1003);
  return true;
}

bool ChannelValue::ResolveLinks() {
  if (!iBase::ResolveLinks()) return false;
  const ChannelTarget found = ChannelTarget::Find(*scene, handler.GetLink(1000));
  scalarTarget = found.scalar, vectorTarget = found.vector;
  if (!found.Exists()) return false;
  const BaseList2D* property = handler.GetLink(1004);
  scalarProperty = scene->Retrieve(property, NODE_PARTICLES, RETRIEVE_PROPERTY, RETRIEVE_SCALAR);
  vectorProperty = scene->Retrieve(property, NODE_PARTICLES, RETRIEVE_PROPERTY, RETRIEVE_VECTOR);
  stateProperty = scene->Retrieve(property, NODE_PARTICLES, RETRIEVE_PROPERTY, RETRIEVE_STATE);
  return true;
}

void ChannelValue::ReleaseLinks() {
  iBase::ReleaseLinks();
  scalarTarget = nullptr, vectorTarget = nullptr;
  scalarProperty = vectorProperty = stateProperty = nullptr;
}

}  // namespace orlix
