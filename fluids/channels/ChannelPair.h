#pragma once
// A target channel and how an emitter fills it. A solver as the target stands for the source of its pressure solve.

#include "fluids/channels/ScalarChannels.h"
#include "fluids/channels/VectorChannels.h"

namespace orlix {

// Finds the channel, or the divergence source of the solver, of a link.
struct ChannelTarget {
  ChannelBase_Scalar* scalar = nullptr;
  ChannelBase_Vector* vector = nullptr;
  bool Exists() const { return scalar || vector; }
  static ChannelTarget Of(const OrlixScene& scene, const BaseList2D* link);
};

class ChannelPair final : public iBase {
 public:
  using iBase::iBase;
  static constexpr int kChannelId = 1000, kSettingsId = 1001;
  static const TypeInfo& Type();
  std::int32_t GetNodeBaseType() const override { return NODE_SETTINGS; }
  std::int32_t GetNodeSubType() const override { return 90; }
  void GetRetrieveTypes(std::uint32_t& mask) const override { mask |= RetrieveBit(RETRIEVE_GRID); }
  bool ResolveLinks() override;
  void Advise() override;
  void ReleaseLinks() override;

  // Between ResolveLinks and ReleaseLinks.
  ChannelBase_Scalar* scalarTarget = nullptr;
  ChannelBase_Vector* vectorTarget = nullptr;
  iBase* settings = nullptr;
};

}  // namespace orlix
