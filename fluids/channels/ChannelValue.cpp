#include "fluids/channels/ChannelValue.h"

namespace orlix {

namespace {

constexpr int kTargetId = 1000, kScalarId = 1001, kVectorId = 1002, kFactorId = 1003, kPropertyId = 1004;
constexpr int kUsePropertyId = 1007;

constexpr Parameter kParameters[] = {
    LinkParameter(kTargetId, "channel", kLinkChannel | kLinkSolver, "The channel"),
    FloatParameter(kScalarId, "value", 1.0, "", "Value for a scalar channel"),
    VectorParameter(kVectorId, "vector_value", {1, 1, 1}, "", "Value for a vector channel"),
    FloatParameter(kFactorId, "property_scale", 0, "", "Factor of the property's value")
        .ShownWhen(kUsePropertyId, Relation::Is, 1),
    LinkParameter(kPropertyId, "property", kLinkProperty, "A particle property that gives the value instead"),
    BoolParameter(kUsePropertyId, "use_property", false, "Takes the value from the linked property"),
};

}  // namespace

const TypeInfo& ChannelValue::Type() {
  static constexpr Parameter kParameters[] = {
      LinkParameter(kChannelId, "channel", kLinkChannel | kLinkSolver, "The channel"),
      FloatParameter(kValueId, "value", 1.0, "", "Value for a scalar channel"),
      VectorParameter(kVectorValueId, "vector_value", {1, 1, 1}, "", "Value for a vector channel"),
      FloatParameter(kPropertyScaleId, "property_scale", 0, "", "Kept, without effect").Hidden(),
      LinkParameter(kPropertyId, "property", kLinkProperty,
                    "A particle property that gives the value; the value itself is for particles without it"),
      BoolParameter(kUsePropertyId, "use_property", false, "Kept, without effect").Hidden(),
  };
  static const TypeInfo kType = {
      .id = 1300013,
      .resource = "zq_channelvalue",
      .className = "C4D_ChannelValue_Object",
      .label = "Container::Channel/Value",
      .text = "Pairs a channel with a value, or with the particle property that gives it.",
      .kinds = kLinkSettings,
      .parameters = kParameters,
      .common = PlainNodeParameters(),
  };
  return kType;
}

bool ChannelValue::ReadParameters() {
  if (!iBase::ReadParameters()) return false;
  scalarValue = handler.GetFloat(kValueId);
  vectorValue = handler.GetVector(kVectorValueId);
  useProperty = handler.GetBool(kUsePropertyId);
  propertyScale = handler.GetFloat(kPropertyScaleId);
  return true;
}

bool ChannelValue::ResolveLinks() {
  Release();
  if (!iBase::ResolveLinks()) return false;
  const BaseList2D* target = handler.GetLink(kChannelId);
  if (!target) return false;
  const ChannelTarget found = ChannelTarget::Of(*scene, target);
  scalarTarget = found.scalar, vectorTarget = found.vector;
  if (!found.Exists()) return false;
  const BaseList2D* property = handler.GetLink(kPropertyId);
  const auto find = [&](std::int32_t kind) {
    return scene->RetrieveAs<iProperty>(property, NODE_PARTICLES, RETRIEVE_PROPERTY, kind);
  };
  scalarProperty = find(RETRIEVE_SCALAR);
  if (!scalarProperty) vectorProperty = find(RETRIEVE_VECTOR);
  if (!scalarProperty && !vectorProperty) stateProperty = find(RETRIEVE_STATE);
  return true;
}

void ChannelValue::ReleaseLinks() {
  Release();
  iBase::ReleaseLinks();
}

void ChannelValue::Release() {
  scalarTarget = nullptr, vectorTarget = nullptr;
  scalarProperty = vectorProperty = stateProperty = nullptr;
}

}  // namespace orlix
