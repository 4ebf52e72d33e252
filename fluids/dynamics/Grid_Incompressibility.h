#pragma once
// Makes the velocity of a solver divergence free, up to its divergence source: assembles one Poisson system on the
// cells of the grid, with the open shares of the faces as coefficients, solves it and subtracts the pressure's
// gradient.
//
// The solver runs its rounds once a sub-step: Prepare, Process, Finish each. They run on the calling thread and divide
// their own work among the pool's workers:
//
//   0  motion of bodies to the right side      3  the solve
//   1  right side                              4  the pressure's gradient off the velocity
//   2  mean of the right side, if asked for    5  report

#include <cstdint>
#include <vector>

#include "fluids/pressure/Grid_CGSolver.h"
#include "fluids/pressure/Grid_GaussSolver.h"
#include "fluids/pressure/Grid_MultigridSolver.h"
#include "fluids/pressure/PressureAssembly.h"
#include "host/description/Parameter.h"

namespace orlix {

class ChannelBase_Scalar;
class FluidSolver;
class VolumeBase;

enum PressureSolverType : std::int32_t { kPressureCG = 0, kPressureGauss = 1, kPressureMultigrid = 2 };

// For the row 1020 of a solver's table.
inline constexpr Choice kPressureSolverChoices[] = {
    {kPressureCG, "conjugate_gradients", "Conjugate gradients with an incomplete Cholesky factor, to the tolerance"},
    {kPressureGauss, "gauss", "Gauss-Seidel with a fixed number of sweeps"},
    {kPressureMultigrid, "multigrid", "Conjugate gradients with a multigrid cycle, to the tolerance; the fastest"},
};

class Grid_Incompressibility : public iObject {
 public:
  Grid_Incompressibility(BaseList2D* solverObject, OrlixScene& owner);
  ~Grid_Incompressibility() override;

  bool RunsSerially() const override { return true; }
  bool IsIterated() const override { return true; }
  bool PreparesEachIteration() const override { return true; }

  // Before ResolveLinks; not owned.
  void SetSolver(FluidSolver* fluidSolver) { solver = fluidSolver; }
  // Sets removeMeanDivergence to false; the solver sets it afterwards.
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void ReleaseLinks() override;
  void ResetSimulation() override;
  void ClearState(bool deactivate) override;
  // Not active, for all rounds, without a solver, its velocity or its fractions.
  void Prepare(iBase* caller = nullptr) override;
  void Process(ProcessData& data) override;
  void Finish() override;

  // Bytes that a projection borrows on a grid of these dims.
  double ScratchBytes(const VecInt3D& dims) const;

  bool removeMeanDivergence = false;  // exactly when all six faces of the container are closed
  std::int32_t solverType = kPressureGauss;
  double density = 1.23;  // kg/m^3
  ChannelBase_Scalar* densityChannel = nullptr;
  std::vector<VolumeBase*> bodies;  // volumes that move: not static

 protected:
  virtual void AddBodyDivergence(ProcessData& data);
  virtual void AssembleSystem(ProcessData& data);
  virtual void ComputeMeanDivergence();
  virtual void RemoveMeanDivergence(ProcessData& data);
  virtual void ApplyPressure(ProcessData& data);

  FluidSolver* solver = nullptr;

 private:
  bool GatherInput();
  void SolveSystem();
  // The largest divergence that the velocity has now, beyond what source and bodies ask for.
  double RemainingDivergence(ProcessData& data);
  void ReportOutcome(double divergenceAfter);
  // Of the solver in use.
  double* RightSide() const;
  const double* Pressure() const;
  GridView<const double> DensityView() const;

  Grid_CGSolver cg_;
  Grid_GaussSolver gauss_;
  Grid_MultigridSolver multigrid_;

  // Of one projection.
  DivergenceInput input_;
  PressureSystem system_;
  ScratchPool::Lease<double> densityWeights_[3];
  DivergenceSums sums_;
  bool bodiesMove_ = false;
  double meanCorrection_ = 0;
  PressureOutcome outcome_;
  double divergenceAfter_ = 0;

  std::int64_t unconverged_ = 0;  // solves that ended at their limit, since the last reset
  std::int32_t warnedFrame_ = -1;
};

}  // namespace orlix
