#pragma once
// What the faces of a velocity grid are to an implicit viscous solve. States exist only while one runs.

#include <array>
#include <memory>

#include "fluids/grids/Grid.h"
#include "fluids/scene/iObject.h"
#include "fluids/viscosity/ViscousSystem.h"

namespace orlix {

class FluidSolver;

class Grid_Cellstates final : public iObject {
 public:
  Grid_Cellstates(BaseList2D* solverObject, OrlixScene& owner) : iObject(solverObject, owner) {}

  void ResetSimulation() override;
  void ClearState(bool deactivate) override;
  void Prepare(iBase* caller = nullptr) override;
  // Classifies all faces. On the thread that drives the scene; divides its own work.
  void Classify();

  // Of a velocity component; null between solves.
  const Grid<std::uint8_t>* States(int component) const { return states_[component].get(); }

  FluidSolver* solver = nullptr;  // not owned

 private:
  std::array<std::unique_ptr<Grid<std::uint8_t>>, 3> states_;
};

}  // namespace orlix
