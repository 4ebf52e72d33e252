#pragma once
// The gas: a container with a staggered velocity grid and all that works on it. It has no density or temperature of its
// own; those are channels that GridAdvection nodes carry through the velocity held here, as they carry the velocity.
//
// A sub-step, by stages: 5 the boundary and its fractions, 9 forces, 10 projection, the velocity at solids and its
// extrapolation, 16 the top speed for the choice of the next sub-step.

#include <memory>
#include <optional>
#include <vector>

#include "fluids/boundary/GridBoundary.h"
#include "fluids/boundary/Grid_VolumeFractions.h"
#include "fluids/channels/ScalarChannels.h"
#include "fluids/channels/VelocityGridChannel.h"
#include "fluids/dynamics/GridExtrapolation.h"
#include "fluids/dynamics/VelocityConstrain.h"
#include "fluids/scene/iCachedGrids.h"

namespace orlix {

class Grid_Incompressibility;
class Grid_Viscosity;
class VelocityGridEmitter;

class FluidSolver : public iSolver, public iCachedGrids, public iFractionOwner {
 public:
  enum class AnchorMode { Corner, Centre, Bottom, Custom };

  FluidSolver(BaseList2D* hostObject, OrlixScene& owner);
  ~FluidSolver() override;
  // The rows that its parts read stand in their classes.
  static constexpr int kMarginId = 1009, kContainerId = 1010, kAnchorModeId = 1027, kAnchorId = 1028,
                       kObstaclesId = 1017, kViscosityPresetId = 1025, kDensityPresetId = 1026;
  static const TypeInfo& Type();

  void ResetSimulation() override;
  void ClearState(bool deactivate) override;
  void ExtendBounds(Vec3D& min, Vec3D& max) override;
  void AfterStep() override;
  bool ApplyBounds(const Vec3D& min, const Vec3D& max) override;
  std::int32_t GetNodeSubType() const override { return 37; }
  bool RunsSerially() const override { return true; }
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void Advise() override;
  void ReleaseLinks() override;
  void CheckDirty() override;
  void Prepare(iBase* caller = nullptr) override;
  // Rests when it isn't active or dirty.
  void Process(ProcessData& data) override;
  void Finish() override;
  void VisitState(StateVisitor& visitor) override;
  void VisitOutputs(StateVisitor& visitor) override;
  std::int64_t DerivedBytes() const override {
    return boundary.DerivedBytes() + fractions.DerivedBytes() + extrapolation.DerivedBytes();
  }

  MemoryNeed MemoryFor(const VecInt3D& cells) const override;
  VecInt3D MostCells() const override;
  bool WholeContainer(Vec3D& min, Vec3D& max) const override;
  bool RoomOfWalls(Vec3D& min, Vec3D& max) const override;

  int CachedGridCount() const override { return 3; }
  ScalarGrid* CachedGrid(int index) override { return velocity.GetGrid(index); }
  void TakeCacheHeader(const GridCacheHeader& header) override;

  double SquaredSpeed() const override { return maxSquaredSpeed; }
  // Who asks writes into it: it has a grid in such frames only.
  iBase* DivergenceSource() override {
    divergenceAsked_ = true;
    return &divergenceSource;
  }
  iBase* Velocity() override { return &velocity; }

  // --- the work of its stages; a liquid has more of them, and ways of its own
  // 5: walls and obstacles, and their fractions.
  virtual void BuildBoundary();
  // 9: runs the forces on the velocity.
  virtual void EmitVelocity();
  // 10, before the projection: the viscous solve.
  virtual void SolveViscosity();
  // 10: one projection with the velocity's conditions at walls and solids around it.
  virtual void Project();
  // Carries the velocity out to where there is none, in the course of Project.
  virtual void ExtrapolateVelocity();
  // Strictly inside the box without its outer cells. Simulation space.
  virtual bool IsInterior(const Vec3D& position) const;
  // The surface of a liquid; a gas has none.
  virtual const ScalarGrid* GetSurfaceGridPrevious() const { return nullptr; }
  const ScalarGrid* GetSurfaceGrid() const override { return nullptr; }
  // The shares of the viscous solve are those inside the surface; a gas fills all and needs none.
  const ScalarGrid* SignedDistance() const override { return GetSurfaceGrid(); }
  bool IsOwnerActive() const override { return IsActive(); }
  std::uint64_t DistanceRevision() const override { return 0; }

  // The velocity's condition at the container's faces: no flow through a closed one, and slip times the tangential part
  // beside it (1 free slip, 0 no slip).
  void ApplyContainerBoundary(float slip);

  VelocityGridChannel velocity;  // m/s
  Grid_VolumeFractions fractions, viscousFractions;
  GridBoundary boundary;
  std::unique_ptr<VelocityGridEmitter> velocityEmitter;
  VelocityConstrain constraint;
  GridExtrapolation extrapolation;
  // What nodes add for the next projection, 1/s; cleared after it. Without a grid where no node writes into it.
  ChannelBase_Scalar divergenceSource;
  std::unique_ptr<Grid_Incompressibility> projection;
  std::unique_ptr<Grid_Viscosity> viscosity;
  double maxSquaredSpeed = kSpeedAfterReset;  // m^2/s^2
  bool outOfBounds = false;                   // the requested box doesn't meet the container
  double margin = 0;                          // m, by which the active box grows beyond what is asked for
  std::uint8_t closedFaces = kAllFacesClosed;
  Vec3D containerSize;    // host units
  Vec3D containerAnchor;  // as a fraction of the size
  Vec3D scaledSize;       // m
  Vec3D lowCorner;        // simulation space
  bool keepPrevious = true;
  struct Extents {
    Vec3D min, max;
  };
  std::optional<Extents> cachedExtents;  // of the frame that is played back

  static constexpr double kSpeedAfterReset = 0.001;
  // A velocity that would cross the container more often than this in a sub-step is told.
  static constexpr double kMostCrossings = 10;

 protected:
  // The nodes inside that read the solver's parameters, in the order in which they do. divergenceSource has none.
  virtual std::vector<iBase*> Parts();
  // The work of the scene's stage, in a frame that is simulated.
  virtual void ProcessStage();
  // The same in a frame whose grids a cache plays back: a gas has none, and needs no boundary for it.
  virtual void ProcessPlayedStage() {}
  virtual bool NeedsBoundaryInPlayback() const { return false; }
  // A viscosity or a viscosity channel is set.
  virtual bool IsViscous() const;
  virtual bool WantsDivergenceSource() const { return divergenceAsked_; }
  // Tells of a container that isn't what its rows promise.
  void AdviseContainer() const;

 private:
  bool ApplyDivergenceBounds(const Vec3D& min, const Vec3D& max);
  // Snaps the container to whole cells.
  void PlaceContainer(double h);
  void WarnOfSpeed() const;

  bool divergenceAsked_ = false;  // since the parameters were read
};

// The rows of a gas, then those of all nodes: what a liquid has beside its own.
std::span<const Parameter> FluidSolverParameters();

}  // namespace orlix
