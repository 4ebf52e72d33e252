#pragma once
// Carries known velocities out into faces without one, a number of layers deep, so that what samples the velocity near
// a solid, or a liquid's above its surface, reads sensible values. Gas: faces that are open at all are known. What lies
// how many layers deep is kept while the fractions stay.

#include <array>
#include <cstdint>

#include "fluids/boundary/ExtrapolationLayers.h"
#include "fluids/scene/iObject.h"

namespace orlix {

class FluidSolver;

class GridExtrapolation final : public iObject {
 public:
  GridExtrapolation(BaseList2D* solverObject, OrlixScene& owner) : iObject(solverObject, owner) {}
  // A row of the solver.
  static constexpr int kExtrapolationLayersId = 1018;

  void ClearState(bool deactivate) override;
  bool ReadParameters() override;
  // All components and layers. Does nothing, and isn't active, without layers, a velocity or fractions.
  void Extrapolate();
  std::int64_t DerivedBytes() const override { return plans_[0].Bytes() + plans_[1].Bytes() + plans_[2].Bytes(); }

  FluidSolver* solver = nullptr;  // not owned
  std::int32_t layers = 3;
  bool liquidMode = false;  // only faces at or below the solver's surface are known

 private:
  bool HasInput() const;
  void FindLayers(std::int32_t component);
  // Bits of a component's faces that aren't known in a liquid.
  CellMask OutsideLiquid(std::int32_t component) const;

  std::array<ExtrapolationLayers, 3> plans_;  // by component
  std::array<std::uint64_t, 3> builtFor_{};   // the fractions' revision of the plan; 0 when it holds for one run only
  std::array<std::int32_t, 3> builtLayers_{};
};

}  // namespace orlix
