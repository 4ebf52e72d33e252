#pragma once
// Vector channels: three grids, one a component.

#include "fluids/channels/ChannelBase.h"

namespace orlix {

class ChannelBase_Vector : public ChannelBase<Vec3D> {
 public:
  using ChannelBase::ChannelBase;
  std::int32_t GetNodeSubType() const override { return 45; }
  void GetRetrieveTypes(std::uint32_t& mask) const override {
    mask |= RetrieveBit(RETRIEVE_VECTOR) | RetrieveBit(RETRIEVE_GRID);
  }
};

class VectorGridChannel : public ChannelWithPrevious<ChannelBase_Vector> {
 public:
  using ChannelWithPrevious::ChannelWithPrevious;
  static const TypeInfo& Type();
};

}  // namespace orlix
