#pragma once
// The projection of a liquid: pressure only where the level set is negative, 0 at its surface.

#include "fluids/dynamics/Grid_Incompressibility.h"
#include "fluids/pressure/FreeSurface.h"

namespace orlix {

class Grid_Incompressibility_FreeSurface final : public Grid_Incompressibility {
 public:
  using Grid_Incompressibility::Grid_Incompressibility;

 protected:
  bool GatherInput() override;
  void AssembleSystem() override;
  void ApplyPressure() override;
  double RemainingDivergence() override;
  void Release() override;
  std::uint64_t RegionRevision() const override { return 0; }  // the surface moves

 private:
  void LookAtLiquidDensities();

  FreeSurface surface_;
  ScratchPool::Lease<double> weights_[3];
  ScratchPool::Lease<std::uint8_t> equation_;
};

}  // namespace orlix
