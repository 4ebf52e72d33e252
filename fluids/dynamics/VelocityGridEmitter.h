#pragma once
// Runs a solver's forces at every cell and adds what they ask for to the faces of its velocity. A member of the solver.

#include <array>
#include <vector>

#include "fluids/grids/ScratchPool.h"
#include "fluids/scene/iObject.h"

namespace orlix {

class FluidSolver;
class Force;

class VelocityGridEmitter final : public iObject {
 public:
  VelocityGridEmitter(BaseList2D* solverObject, OrlixScene& owner) : iObject(solverObject, owner) {}
  // A row of the solver.
  static constexpr int kForcesId = 1008;

  void ResetSimulation() override { GiveBack(); }
  void ClearState(bool deactivate) override;
  bool ReadParameters() override { return handler.HasObject(); }
  // The forces of the solver's list 1008 that act on grids; without a list, every one of the scene.
  bool ResolveLinks() override;
  void ReleaseLinks() override;
  void CheckDirty() override;
  // Gathers the forces in cells, then brings them to the faces. Does nothing, and isn't active, unless the solver is,
  // it has a velocity, and there are forces.
  void Emit();

  FluidSolver* solver = nullptr;  // not owned
  std::vector<Force*> forces;     // between ResolveLinks and ReleaseLinks

 private:
  std::array<GridView<double>, 3> ForceViews() const { return {*forceGrids_[0], *forceGrids_[1], *forceGrids_[2]}; }
  bool HasInput() const;
  void AdviseList(const InExcludeData& list) const;
  void GatherForces();
  void GatherRow(const GridSpace& space, std::int32_t j, std::int32_t k, std::int32_t worker);
  void GiveBack();

  std::array<ScratchPool::Lease<double>, 3> forceGrids_;  // m/s, at cell centres
};

}  // namespace orlix
