#pragma once
// A target channel and the value that particles write into it, or take from it.

#include "fluids/channels/ChannelPair.h"
#include "fluids/helpers/Property.h"

namespace orlix {

class ChannelValue final : public iBase {
 public:
  using iBase::iBase;
  static constexpr int kChannelId = 1000, kValueId = 1001, kVectorValueId = 1002, kPropertyScaleId = 1003,
                       kPropertyId = 1004, kUsePropertyId = 1007;
  static const TypeInfo& Type();
  std::int32_t GetNodeBaseType() const override { return NODE_SETTINGS; }
  std::int32_t GetNodeSubType() const override { return 91; }
  void GetRetrieveTypes(std::uint32_t& mask) const override {
    mask |= RetrieveBit(RETRIEVE_GRID) | RetrieveBit(RETRIEVE_PROPERTY);
  }
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void ReleaseLinks() override;

  double scalarValue = 1;
  Vec3D vectorValue{1, 1, 1};
  bool useProperty = false;  // take the value from the linked property
  double propertyScale = 0;

  // Between ResolveLinks and ReleaseLinks. At most one of the three properties.
  ChannelBase_Scalar* scalarTarget = nullptr;
  ChannelBase_Vector* vectorTarget = nullptr;
  iProperty *scalarProperty = nullptr, *vectorProperty = nullptr, *stateProperty = nullptr;

 private:
  void Release();
};

}  // namespace orlix
