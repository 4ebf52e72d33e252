#include "fluids/channels/ChannelPair.h"

namespace orlix {

namespace {

constexpr int kTargetId = 1000, kSettingsId = 1001;

constexpr Parameter kParameters[] = {
    LinkParameter(kTargetId, "channel", kLinkChannel | kLinkSolver,
                  "The channel to fill; a dynamics object takes the value as expansion of its pressure solve"),
    LinkParameter(kSettingsId, "settings", kLinkSettings, "How it is filled"),
};

}  // namespace

ChannelTarget ChannelTarget::Of(const OrlixScene& scene, const BaseList2D* link) {
  ChannelTarget target;
  target.scalar = scene.RetrieveAs<ChannelBase_Scalar>(link, NODE_CHANNEL, RETRIEVE_SCALAR);
  if (!target.scalar) {
    auto* solver = scene.RetrieveAs<iSolver>(link, NODE_SOLVER);
    if (solver) target.scalar = dynamic_cast<ChannelBase_Scalar*>(solver->DivergenceSource());
  }
  target.vector = scene.RetrieveAs<ChannelBase_Vector>(link, NODE_CHANNEL, RETRIEVE_VECTOR);
  return target;
}

const TypeInfo& ChannelPair::Type() {
  static const TypeInfo kType = [] {
    TypeInfo type;
    type.id = 1300012;
    type.resource = "zq_channelsettings";
    type.className = "C4D_ChannelSettings_Object";
    type.label = "Channel/Settings";
    type.text = "Pairs a channel with the settings by which an emitter fills it.";
    type.kinds = kLinkSettings;
    type.parameters = kParameters;
    type.common = CommonNodeParameters();
    return type;
  }();
  return kType;
}

bool ChannelPair::ResolveLinks() {
  scalarTarget = nullptr, vectorTarget = nullptr, settings = nullptr;
  if (!iBase::ResolveLinks()) return false;
  const BaseList2D *target = handler.GetLink(kTargetId), *emission = handler.GetLink(kSettingsId);
  if (!target || !emission) return false;
  const ChannelTarget found = ChannelTarget::Of(*scene, target);
  scalarTarget = found.scalar, vectorTarget = found.vector;
  if (!found.Exists()) return false;
  settings = scene->Retrieve(emission, NODE_SETTINGS, RETRIEVE_ANY, RETRIEVE_ANY);
  return settings != nullptr;
}

void ChannelPair::ReleaseLinks() {
  scalarTarget = nullptr, vectorTarget = nullptr, settings = nullptr;
  iBase::ReleaseLinks();
}

}  // namespace orlix
