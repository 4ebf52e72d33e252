#pragma once
// Rewrites the velocity on faces that a solid blocks: moving solids drag the fluid along, still ones let it slide.

#include <vector>

#include "fluids/scene/iObject.h"

namespace orlix {

class FluidSolver;
class VolumeBase;

class VelocityConstrain final : public iObject {
 public:
  VelocityConstrain(BaseList2D* solverObject, OrlixScene& owner) : iObject(solverObject, owner) {}
  // Rows of the solver.
  static constexpr int kSlipId = 1035, kObstacleNormalsId = 1036, kMoveWithObstaclesId = 1047;

  bool ReadParameters() override;
  bool ResolveLinks() override;
  void ReleaseLinks() override;
  // Computes all new values of blocked faces from the old velocity, then writes them. Does nothing, and isn't active,
  // without a velocity or fractions.
  void Apply();

  FluidSolver* solver = nullptr;  // not owned
  std::vector<VolumeBase*> obstacles;
  bool useObstacleNormals = true;  // prefer the normal of the obstacle's own level set
  double slip = 1;                 // 0 takes the solid's velocity, 1 keeps the tangential part
  bool moveWithObstacles = false;  // solids pass on their motion

 private:
  bool HasInput() const;
};

}  // namespace orlix
