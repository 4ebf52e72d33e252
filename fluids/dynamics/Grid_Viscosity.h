#pragma once
// The viscous step of a solver: its velocity after dt of internal friction, implicitly, so that no viscosity is too
// high. Walls and solids hold the fluid; at a liquid's surface the stress is 0. A solver without a viscosity pays
// nothing.

#include "fluids/dynamics/Grid_Cellstates.h"
#include "fluids/viscosity/ViscousSolve.h"

namespace orlix {

class ChannelBase_Scalar;
class VolumeBase;

class Grid_Viscosity final : public iObject {
 public:
  Grid_Viscosity(BaseList2D* solverObject, OrlixScene& owner)
      : iObject(solverObject, owner), states(solverObject, owner) {}
  // Rows of the solver.
  static constexpr int kViscosityId = 1019, kViscosityChannelId = 1300, kViscosityIterationsId = 1301,
                       kViscosityAccuracyId = 1302;

  bool ReadParameters() override;
  bool ResolveLinks() override;
  void ReleaseLinks() override;
  void ClearState(bool deactivate) override;
  // One viscous solve on the solver's velocity, with the shares in its viscousFractions. Does nothing, and isn't
  // active, without a viscosity, a velocity or walls.
  void Solve();

  // Bytes that a solve borrows on a grid of these dims.
  static double ScratchBytes(const VecInt3D& dims);

  FluidSolver* solver = nullptr;          // not owned
  ChannelBase_Scalar* channel = nullptr;  // viscosity by cell
  double viscosity = 0;                   // m^2/s: a tenth of the setting
  ViscousLimits limits;
  Grid_Cellstates states;

 private:
  bool GatherSystem();
  // What fixed faces hold: the velocity of the moving solid at them. False when none moves.
  bool GatherSolidVelocity();
  void StoreFixedFaces();
  void ReportOutcome(const PressureOutcome& outcome);

  // Of one solve.
  ViscousSystem system_;
  ScratchPool::Lease<float> ones_;  // the shares of a gas, which fills all
  ScratchPool::Lease<double> solidVelocity_[3];
  GridView<const double> solids_[3];
  std::vector<VolumeBase*> bodies_;
};

}  // namespace orlix
