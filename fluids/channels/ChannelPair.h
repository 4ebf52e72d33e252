#pragma once
// Settings nodes that name a channel: with how to emit into it, or with a value to write.

#include "fluids/channels/ScalarChannels.h"
#include "fluids/channels/VectorChannels.h"
#include "fluids/scene/Property.h"

namespace orlix {

// The channel of a link: a scalar or vector one, or a solver's divergence source.
struct ChannelTarget {
  ChannelBase_Scalar* scalar = nullptr;
  ChannelBase_Vector* vector = nullptr;
  bool Exists() const { return scalar || vector; }
  static ChannelTarget Find(const OrlixScene& scene, const BaseList2D* link);
};

class ChannelPair final : public iBase {
 public:
  using iBase::iBase;
  static const TypeInfo& Type();
  std::int32_t GetNodeBaseType() const override { return NODE_SETTINGS; }
  std::int32_t GetNodeSubType() const override { return 90; }
  void GetRetrieveTypes(std::uint32_t& mask) const override { mask |= RetrieveBit(RETRIEVE_GRID); }
  // True when both the target and the settings were found.
  bool ResolveLinks() override;
  void ReleaseLinks() override;

  ChannelBase_Scalar* scalarTarget = nullptr;
  ChannelBase_Vector* vectorTarget = nullptr;
  iBase* settings = nullptr;
};

class ChannelValue final : public iBase {
 public:
  using iBase::iBase;
  static const TypeInfo& Type();
  std::int32_t GetNodeBaseType() const override { return NODE_SETTINGS; }
  std::int32_t GetNodeSubType() const override { return 91; }
  void GetRetrieveTypes(std::uint32_t& mask) const override {
    mask |= RetrieveBit(RETRIEVE_GRID) | RetrieveBit(RETRIEVE_PROPERTY);
  }
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void ReleaseLinks() override;

  ChannelBase_Scalar* scalarTarget = nullptr;
  ChannelBase_Vector* vectorTarget = nullptr;
  iBase *scalarProperty = nullptr, *vectorProperty = nullptr, *stateProperty = nullptr;
  double scalarValue = 1, propertyScale = 0;
  Vec3D vectorValue{1, 1, 1};
  bool useProperty = false;
};

}  // namespace orlix
