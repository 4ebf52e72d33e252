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

  static constexpr std::int32_t kRateId = 1002;
  iBase* rate = nullptr;  // an EmissionRate
};

}  // namespace orlix
