#pragma once
// The base of the settings of emission, on grids and of particles: an amount that may come from a rate node.

#include "fluids/scene/iBase.h"

namespace orlix {

class iEmissionSettings : public iBase {
 public:
  using iBase::iBase;
  std::int32_t GetNodeBaseType() const override { return NODE_SETTINGS; }
  bool ResolveLinks() override;
  void ReleaseLinks() override;
  void CheckDirty() override;

  iBase* rate = nullptr;  // an EmissionRate

 protected:
  // The parameter that links it.
  virtual std::int32_t RateLinkId() const = 0;
};

}  // namespace orlix
