#include "fluids/channels/ChannelPair.h"

namespace orlix {

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
  static constexpr Parameter kParameters[] = {
      LinkParameter(kChannelId, "channel", kLinkChannel | kLinkSolver,
                    "The channel to fill; a dynamics object takes the value as expansion of its pressure solve"),
      LinkParameter(kSettingsId, "settings", kLinkSettings, "How it is filled"),
  };
  static const TypeInfo kType = {
      .id = 1300012,
      .resource = "zq_channelsettings",
      .className = "C4D_ChannelSettings_Object",
      .label = "Container::Channel/Settings",
      .text = "Pairs a channel with the settings by which an emitter fills it.",
      .kinds = kLinkSettings,
      .parameters = kParameters,
      .common = PlainNodeParameters(),
  };
  return kType;
}

bool ChannelPair::ResolveLinks() {
  scalarTarget = nullptr, vectorTarget = nullptr, settings = nullptr;
  if (!iBase::ResolveLinks()) return false;
  const BaseList2D *target = handler.GetLink(kChannelId), *emission = handler.GetLink(kSettingsId);
  if (!target || !emission) return false;
  const ChannelTarget found = ChannelTarget::Of(*scene, target);
  scalarTarget = found.scalar, vectorTarget = found.vector;
  if (!found.Exists()) return false;
  settings = scene->Retrieve(emission, NODE_SETTINGS, RETRIEVE_ANY, RETRIEVE_ANY);
  return settings != nullptr;
}

void ChannelPair::Advise() {
  const BaseList2D* target = handler.GetLink(kChannelId);
  if (!target || !ChannelTarget::Of(*scene, target).Exists()) {
    Warn("no-channel", "it links no channel and no dynamics object, so nothing is filled; link one as \"channel\"");
  } else if (!settings) {
    Warn("no-settings", "it links no emission settings, so nothing is filled; link some as \"settings\"");
  }
}

void ChannelPair::ReleaseLinks() {
  scalarTarget = nullptr, vectorTarget = nullptr, settings = nullptr;
  iBase::ReleaseLinks();
}

}  // namespace orlix
