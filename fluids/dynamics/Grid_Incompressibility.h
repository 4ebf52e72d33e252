#pragma once
// Makes the velocity of a solver divergence free, up to its divergence source: assembles one Poisson system on the
// cells of the grid, with the open shares of the faces as coefficients, solves it and subtracts the pressure's
// gradient. Runs on the thread that drives the scene and divides each step among the pool's workers.

#include <cstdint>
#include <memory>
#include <vector>

#include "fluids/pressure/BodyCoupling.h"
#include "fluids/pressure/BodyMotion.h"
#include "fluids/pressure/ClosedRegions.h"
#include "fluids/pressure/PressureAssembly.h"
#include "fluids/pressure/PressureSolver.h"
#include "fluids/scene/iObject.h"
#include "host/description/Parameter.h"

namespace orlix {

class ChannelBase_Scalar;
class FluidSolver;
class VolumeBase;

// For the row of the solver's table.
inline constexpr Choice kPressureSolverChoices[] = {
    {kPressureCG, "conjugate_gradients", "Conjugate gradients with an incomplete Cholesky factor, to the tolerance"},
    {kPressureGauss, "gauss", "Gauss-Seidel with a fixed number of sweeps"},
    {kPressureMultigrid, "multigrid", "Conjugate gradients with a multigrid cycle, to the tolerance; the fastest"},
};

enum class BodyCouplingMode { Joint = 0, Split = 1 };
inline constexpr Choice kBodyCouplingChoices[] = {
    {BodyCouplingMode::Joint, "joint",
     "Fluid and bodies find their velocities in one solve: forces in newtons, steady at any ratio of densities"},
    {BodyCouplingMode::Split, "split",
     "The pressure's force acts in the next sub-step, times dt / (density h^3), and the inverse mass of a body "
     "stiffens "
     "the faces that it covers; a body of less than a fiftieth of the mass at which it floats is thrown out"},
};

class Grid_Incompressibility : public iObject {
 public:
  Grid_Incompressibility(BaseList2D* solverObject, OrlixScene& owner);
  ~Grid_Incompressibility() override;
  // Rows of the solver.
  static constexpr int kDensityChannelId = 1000, kDensityId = 1001, kPressureSolverId = 1020,
                       kPressureIterationsId = 1021, kPressureAccuracyId = 1022, kMinDiagonalRatioId = 1045,
                       kModificationId = 1046, kBodyCouplingId = 1050;

  // Before ResolveLinks; not owned.
  void SetSolver(FluidSolver* fluidSolver) { solver = fluidSolver; }
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void ReleaseLinks() override;
  void ResetSimulation() override;
  void ClearState(bool deactivate) override;
  // One projection. Does nothing, and isn't active, without a solver, its velocity or its fractions. Another one of the
  // same sub-step is told so: bodies have had their weight.
  void Project(bool again = false);

  // The bodies that forces move, where they are coupled so.
  std::vector<VolumeBase*> DynamicBodies(BodyCouplingMode coupling) const;
  // Bytes that a projection borrows on a grid of these dims.
  double ScratchBytes(const VecInt3D& dims) const;

  PressureSolverType solverType = kPressureGauss;
  PressureSettings settings;
  double density = 1.23;  // kg/m^3
  ChannelBase_Scalar* densityChannel = nullptr;
  BodyCouplingMode couplingMode = BodyCouplingMode::Joint;
  std::vector<VolumeBase*> bodies;  // volumes that move: not static

 protected:
  // The steps of a projection, in this order.
  virtual bool GatherInput();
  virtual void AddBodyDivergence();
  // What the pressure does to the bodies.
  virtual void GatherBodyForces();
  virtual void AssembleSystem();
  // No pressure can answer the mean of what the right side asks for in a region without a fixed pressure.
  virtual void RemoveMeanDivergence();
  // Of what connects cells, in a gas the shares alone: closed regions are kept while it stays. 0: found each time.
  virtual std::uint64_t RegionRevision() const;
  virtual void ApplyPressure();

  // The largest divergence that the velocity has now, beyond what source and bodies ask for. rhs_ takes it cell by
  // cell.
  virtual double RemainingDivergence();
  // Gives back what a projection borrowed.
  virtual void Release();
  GridView<const double> DensityView() const;
  MovingBody MovingBodyOf(const VolumeBase& volume) const;

  FluidSolver* solver = nullptr;

  // Of one projection.
  DivergenceInput input_;
  PressureSystem system_;
  ScratchPool::Lease<double> rhs_, pressure_;
  double divergenceBefore_ = 0, largestRightSide_ = 0;
  bool bodiesMove_ = false;
  BodyCoupling coupling_;
  std::vector<VolumeBase*> coupled_;  // in its order
  bool lookedAtDensities_ = false;    // since the run began

 private:
  bool HasDynamicBody() const;
  bool IsJoint() const { return couplingMode == BodyCouplingMode::Joint && HasDynamicBody(); }
  void BuildCoupling(bool again);
  void GatherSplitForces();
  void FindCarriedWeight();
  void TakeWeight(std::size_t body, bool inLiquid);
  PressureSolver& Solver();
  // A residual below it may be nothing but rounding.
  double RoundingOfDivergence() const;
  void ReportOutcome(const PressureOutcome& outcome);
  void LookAtDensities(const GridView<const double>& densities);

  std::unique_ptr<PressureSolver> pressureSolver_;
  PressureSolverType madeFor_ = kPressureGauss;
  std::unique_ptr<ClosedRegions> regions_;
  std::uint64_t regionsFor_ = 0;
  ScratchPool::Lease<double> densityWeights_[3];
};

}  // namespace orlix
