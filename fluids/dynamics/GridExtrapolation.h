#pragma once
// Carries known values out into samples without one, a number of layers deep, so that what samples the velocity near a
// solid, or a liquid's above its surface, reads sensible values. Gas: faces that are open at all are known. What lies
// how many layers deep is kept while the fractions stay.

#include <array>
#include <cstdint>

#include "fluids/boundary/ExtrapolationLayers.h"
#include "fluids/scene/iObject.h"

namespace orlix {

class ChannelBase_Scalar;
class ChannelBase_Vector;
class FluidSolver;

class GridExtrapolation final : public iObject {
 public:
  static constexpr std::int32_t kChannelTargets = 3;  // the value of axis that selects them

  GridExtrapolation(BaseList2D* solverObject, OrlixScene& owner) : iObject(solverObject, owner) { iterationCount = 2; }

  // -1, 0, then 1 once a layer.
  bool NextIteration() override;
  void ClearState(bool deactivate) override;
  bool ReadParameters() override;
  void Prepare(iBase* caller = nullptr) override;
  // iteration 0 finds the samples of each layer, 1 fills one layer. Called once a round, on the thread that drives the
  // scene; divides its own work.
  void Process(ProcessData& data) override;
  void Finish() override { SetFlag(NodeActive, false); }
  void SetAxis(std::int32_t component) { axis = component; }
  std::int64_t DerivedBytes() const override { return plans_[0].Bytes() + plans_[1].Bytes() + plans_[2].Bytes(); }

  ChannelBase_Scalar* scalarTarget = nullptr;  // not owned; null when a solver owns the node
  ChannelBase_Vector* vectorTarget = nullptr;
  FluidSolver* solver = nullptr;  // not owned
  std::int32_t axis = 0;          // the component in work
  std::int32_t layers = 3;
  bool liquidMode = false;  // only faces at or below the solver's surface are known
  std::int32_t layerCounter = 0;

 private:
  bool HasTarget() const;
  void FindFaces(std::int32_t component);
  void FindAboveBackground();
  // Bits of the faces of the component in work that aren't known in a liquid.
  CellMask OutsideLiquid(std::int32_t component) const;

  // By component: of the velocity, or of the channel that is in work.
  std::array<ExtrapolationLayers, 3> plans_;
  std::array<std::uint64_t, 3> builtFor_{};  // the fractions' revision of the plan; 0 when it holds for one run only
  std::array<std::int32_t, 3> builtLayers_{};
};

}  // namespace orlix
