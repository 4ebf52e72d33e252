#pragma once
// Carries known face velocities into faces without one, a number of layers deep, so that what samples the velocity near
// a solid reads sensible values.

#include <array>
#include <vector>

#include "fluids/scene/iObject.h"

namespace orlix {

class FluidSolver;

class GridExtrapolation final : public iObject {
 public:
  GridExtrapolation(BaseList2D* solverObject, OrlixScene& owner) : iObject(solverObject, owner) { iterationCount = 2; }

  bool NextIteration() override;
  void ResetSimulation() override;
  void ClearState(bool deactivate) override;
  bool ReadParameters() override;
  void Prepare(iBase* caller = nullptr) override;
  // iteration 0 finds the faces of each layer, 1 fills one layer.
  void Process(ProcessData& data) override;
  void Finish() override;
  void SetAxis(std::int32_t component) { axis = component; }

  FluidSolver* solver = nullptr;  // not owned
  std::int32_t axis = 0;          // the component in work
  std::int32_t layers = 3;
  std::int32_t layerCounter = 0;
};

}  // namespace orlix
