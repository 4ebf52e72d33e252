#pragma once
// Rewrites the velocity on faces that a solid blocks: moving solids drag the fluid along, still ones let it slide.

#include <array>
#include <vector>

#include "fluids/grids/ScratchPool.h"
#include "fluids/scene/iObject.h"

namespace orlix {

class FluidSolver;
class VolumeBase;

class VelocityConstrain final : public iObject {
 public:
  VelocityConstrain(BaseList2D* solverObject, OrlixScene& owner) : iObject(solverObject, owner) { iterationCount = 2; }

  void ResetSimulation() override {}
  void ClearState(bool deactivate) override;
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void ReleaseLinks() override;
  void Prepare(iBase* caller = nullptr) override;
  // iteration 0 computes the new values of blocked faces from the old velocity, 1 writes them.
  void Process(ProcessData& data) override;
  void Finish() override { ClearState(false); }

  FluidSolver* solver = nullptr;  // not owned
  std::vector<VolumeBase*> obstacles;
  bool useObstacleNormals = true;  // prefer the normal of the obstacle's own level set
  double slip = 1;                 // 0 takes the solid's velocity, 1 keeps the tangential part
  bool moveWithObstacles = false;  // solids pass on their motion

 private:
  std::array<ScratchPool::Lease<double>, 3> scratch_;  // new values; only blocked faces are filled
};

}  // namespace orlix
